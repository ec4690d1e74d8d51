// The listing that df prints.

#include "acquisition/counterReaders.h"
#include "acquisition/diskListing.h"
#include "acquisition/textForms.h"
#include "fuzz/target.h"

#include <cmath>
#include <limits>

namespace obrin::fuzz::disks {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();

std::string cleanedName(const DiskLine& line) {
    return cleanfilename(line.device + " " + line.mountPoint);
}

bool isSame(const DiskLine& a, const DiskLine& b) {
    return a.device == b.device && a.total == b.total && a.used == b.used && a.available == b.available &&
           a.mountPoint == b.mountPoint;
}

void checkLine(std::string_view text, const DiskLine& line) {
    require(line.mountPoint.starts_with('/') && text.ends_with(line.mountPoint),
            "the mount point ends the line");
    const std::size_t begin = std::min(text.find_first_not_of(' '), text.size());
    require(!line.device.empty() && text.substr(begin).starts_with(line.device),
            "the device begins the line");
    const std::string written = line.device + " " + std::to_string(line.total) + " " +
                                std::to_string(line.used) + " " + std::to_string(line.available) + " 5% " +
                                line.mountPoint;
    const auto again = parseDiskLine(written);
    require(again && isSame(*again, line), "a line that is written anew reads back the same");
    for (const double limit : {0.0, 0.5, 1e300, -1.0, infinity, -infinity, std::nan("")}) {
        const auto used = diskUsed(line, limit);
        require(!used || std::isfinite(*used), "a value is finite");
    }
}

void check(std::string_view input) {
    const DiskListing listing(input);
    const std::string_view whole = input.substr(0, input.rfind('\n') + 1);
    require(listing.lineFeeds() == static_cast<std::size_t>(std::ranges::count(input, '\n')),
            "every line is counted");
    require(listing.lines().size() + listing.leftOut().size() + 1 ==
                std::max<std::size_t>(listing.lineFeeds(), 1),
            "a line behind the heading is read or left out");

    std::size_t at = 0;
    std::string_view rest = whole.substr(std::min(whole.find('\n'), whole.size()));
    while (rest.size() > 1) {
        rest.remove_prefix(1);
        const std::string_view text = rest.substr(0, rest.find('\n'));
        if (const auto line = parseDiskLine(text)) {
            checkLine(text, *line);
            require(at < listing.lines().size() && isSame(listing.lines()[at], *line),
                    "a listing has the lines in their order");
            const DiskLine* first = listing.find(cleanedName(*line));
            require(first != nullptr && cleanedName(*first) == cleanedName(*line) &&
                        first <= &listing.lines()[at],
                    "a line is found by its name, the first one of several");
            ++at;
        }
        rest.remove_prefix(text.size());
    }
    require(at == listing.lines().size(), "no line comes from nothing");
}

const Target target("disks", check);

} // namespace
} // namespace obrin::fuzz::disks
