#pragma once

#include "resources/resourceRecords.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>

namespace obrin {

/// With what an archive is replayed. A period of -1 is chosen as a run would.
struct ReplaySettings {
    std::int32_t millisecondsPerSample = 0;
    std::int32_t minForecastHours = 0;
    std::int32_t maxForecastHours = 0;
    std::int32_t every = 1; ///< only each so many-th cycle is taken
};

/// What the numbers of an archive stand for: the records of a scratch pad that the declarations still ask
/// for, each as the link that a run would have, but without a ring. Templates are left out.
class ReplayedResources {
public:
    ReplayedResources(std::string_view declarations, std::string_view scratchPad,
                      const ReplaySettings& settings);

    /// The link with that number; null when there is none.
    Link* find(std::int32_t rid) const;

    std::int32_t highestRid() const { return highestRid_; } ///< of all records
    std::size_t size() const { return links_.size(); }
    std::int32_t millisecondsPerSample() const { return period_; } ///< between two cycles that are taken

private:
    std::unordered_map<std::int32_t, std::unique_ptr<Link>> links_;
    std::int32_t highestRid_ = 0;
    std::int32_t period_ = 0;
};

} // namespace obrin
