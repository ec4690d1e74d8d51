#pragma once

namespace obrin::bench {

/// Nanoseconds of processor time for one forecast of a window of 288 samples: in the replay of an archive,
/// reading, rings, notification state and score included, and bare.
struct ReplayCost {
    double replayed;
    double bare;
};

ReplayCost replayCost();

} // namespace obrin::bench
