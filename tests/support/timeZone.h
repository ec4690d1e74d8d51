#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace obrin::test {

/// Gives the process a time zone for as long as it lives.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        if (const char* before = std::getenv("TZ"))
            before_ = before;
        set(zone);
    }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;
    ~TimeZone() { set(before_ ? before_->c_str() : nullptr); }

private:
    static void set(const char* zone) {
        zone == nullptr ? ::unsetenv("TZ") : ::setenv("TZ", zone, 1);
        ::tzset();
    }
    std::optional<std::string> before_;
};

/// A moment of which day, month, weekday, hour, minute and second all differ from each other, and from those
/// of Greenwich where the zone says so: 2009-02-13 23:31:30 there, the next day at 04:31:30 here.
constexpr std::time_t tellingMoment = 1234567890;
constexpr const char* tellingZone = "EAST-5";

} // namespace obrin::test
