#pragma once

#include "resources/resourceRecords.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace obrin {

/// An item of a configuration as it stands in the text.
struct ConfigurationItem {
    std::size_t at = 0;      ///< the byte at which it stands, or should
    std::string_view text{}; ///< its spelling; empty when it is missing, or no number
    std::optional<std::int64_t>
        number{};         ///< of items 6 to 11; of any size that 64 bits hold, else the nearest
    bool missing = false; ///< the text ends before it
};

/// The eleven items, which have their meaning by position alone: five names, then whole numbers. A word that
/// is no number is not passed, and so stands in the place of every later item too.
struct ConfigurationText {
    static constexpr std::size_t names = 5;
    static constexpr std::size_t required = 9;
    static constexpr std::size_t all = 11;

    std::array<ConfigurationItem, all> items{};
    std::size_t end = 0; ///< where the reading ended
};

/// The grammar of the configuration file, for all who read it. Touches nothing but the text. Any thread.
ConfigurationText readConfigurationText(std::string_view text);

/// Reads the eleven items of a configuration text, which have their meaning by position alone, into `clasp`
/// and `maxfilesizeinMB` (megabytes), and the last two, which may be missing, into enablepooltaggingflag and
/// grace_period. Creates the data home directory as soon as its name is known. A word where a number belongs
/// leaves that item, and every later number, as it was. False when the text ends before item 9: that is
/// logged and, but for item 4, reported as a fatal event; later items are then not read. `path`: the file's
/// name for the log. Agent thread.
bool readConfiguration(std::string_view text, const std::string& path, Clasp* clasp, int* maxfilesizeinMB);

} // namespace obrin
