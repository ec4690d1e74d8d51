#pragma once

#include "numeric/vectorKernels.h"

namespace obrin {

/// Largest window that smallWindowMedians() takes.
inline constexpr Count largestNetwork = 9;

/// Medians (place w / 2 in sorted order) of the windows in[i s .. i s + w - 1], i < windows, all of them
/// complete, into `out`, each by a sorting network: a fixed order of exchanges without a branch. No NaN;
/// 2 <= w <= largestNetwork, s >= 1. Windows may overlap; `out` does not overlap `in`. Any thread.
void smallWindowMedians(const float* in, Count w, Count s, Count windows, float* out);

} // namespace obrin
