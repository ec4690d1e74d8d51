#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace obrin::fuzz {

/// A part of the agent that takes bytes from elsewhere, and what it promises for whatever bytes these are.
/// One object a source, with static storage; a program finds those it is linked from in targets().
struct Target {
    /// `itsCheck` hands the bytes to that part and ends the process, with a line on standard error, when it
    /// does not keep a promise. It keeps nothing from one call to the next.
    Target(const char* itsName, void (*itsCheck)(std::string_view input));

    const char* name;
    void (*check)(std::string_view input);
};

/// The targets of this program.
const std::vector<const Target*>& targets();

/// Before the first check: nothing is logged unless a target has a log of its own.
void prepare();

/// Ends the process as a crash does when a promise is not kept.
void require(bool isKept, const char* promise);

/// A work file of this process, which goes with it.
std::string workFile(std::string_view name);
void writeWorkFile(const std::string& path, std::string_view content);

/// Takes numbers off the front of an input. What is not there is 0.
class Input {
public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}

    template <class Value>
    Value take() {
        static_assert(std::is_trivially_copyable_v<Value>);
        Value value{};
        const std::string_view taken = rest_.substr(0, sizeof value);
        std::memcpy(&value, taken.data(), taken.size());
        rest_.remove_prefix(taken.size());
        return value;
    }

    /// A whole number in least .. most.
    std::int32_t within(std::int32_t least, std::int32_t most) {
        const std::int64_t count = std::int64_t{most} - least + 1;
        return static_cast<std::int32_t>(least + take<std::uint32_t>() % count);
    }

    /// At most so many values, as many as there are.
    template <class Value>
    std::vector<Value> series(std::size_t most) {
        std::vector<Value> values;
        while (values.size() < most && !rest_.empty())
            values.push_back(take<Value>());
        return values;
    }

    std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

} // namespace obrin::fuzz
