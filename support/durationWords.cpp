#include "support/durationWords.h"

#include <algorithm>

namespace obrin {
namespace {

std::string withRest(std::int64_t main, const char* unit, std::int64_t rest, const char* restUnit) {
    std::string words = std::to_string(main) + unit;
    return rest == 0 ? words : words + " " + std::to_string(rest) + restUnit;
}

} // namespace

std::string durationWords(std::int64_t seconds) {
    seconds = std::max<std::int64_t>(seconds, 0);
    if (seconds < 120)
        return std::to_string(seconds) + " s";
    const std::int64_t minutes = seconds / 60 + (seconds % 60 >= 30 ? 1 : 0);
    if (minutes < 120)
        return std::to_string(minutes) + " min";
    if (minutes < std::int64_t{48} * 60)
        return withRest(minutes / 60, " h", minutes % 60, " min");
    const std::int64_t hours = (minutes + 30) / 60;
    return withRest(hours / 24, " days", hours % 24, " h");
}

} // namespace obrin
