#pragma once

#include "agent/agentConfig.h"
#include "support/textFindings.h"

#include <array>
#include <string_view>

namespace obrin {

/// What a run makes of a configuration, and what is to be said of its grammar. The findings, those of
/// findForeignBytes among them; item is the item they are about:
///   item-missing              at the last character; a run refuses the text for it
///   comment-in-configuration  text: an item that looks like a comment or a section
///   number-malformed          text: the word in the place of this item and of all later ones
///   number-with-rest          text: the word; number: the item's, as it begins; all later ones have none
///   number-out-of-range       text; number: what is taken
///   surplus-item              text: what stands behind the last item
struct ConfigurationReport {
    TextFindings findings{};
    bool accepted = false; ///< false: a run refuses the text
    ConfigurationText read{};
    std::array<Place, ConfigurationText::all> places{}; ///< of the items; nowhere for one that is not read
};

/// Reads a configuration by the grammar of a run. Touches nothing but the text, of which the report holds
/// parts. Any thread.
ConfigurationReport checkConfiguration(std::string_view text);

} // namespace obrin
