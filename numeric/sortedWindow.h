#pragma once

#include "numeric/vectorKernels.h"

#include <cstdint>

namespace obrin {

/// The samples oldest .. next - 1 of a series in a buffer sorted ascending, found by the searches of
/// numeric/sortedSearch; the definition of the running median, at O(window) a sample. Samples outside 0 .. n
/// - 1 pass as if they were not there. A sample that the search does not find (there is a NaN in the buffer)
/// is told in the log and stays, so the buffer may outgrow the window, but never n.
class SortedWindow {
public:
    /// `room` holds every sample that can be in the window at one time, n when any of them is NaN. Both
    /// arrays belong to the caller and outlive this.
    SortedWindow(Count n, const float* in, float* room, std::int64_t oldest)
        : n_(n), in_(in), room_(room), oldest_(oldest) {}

    std::int64_t oldest() const { return oldest_; } ///< the next sample to leave; negative: none does yet
    std::int64_t next() const { return next_; }     ///< the next sample to enter

    void enter();

    /// `steps` times: the oldest sample leaves, unless it is at or past `end`; the next one enters.
    void slide(Count steps, std::int64_t end);

    float median() const { return room_[count_ / 2]; }
    /// The element at a place of the buffer; at a place that is no longer used, what was last stored there.
    float at(Count place) const { return room_[place]; }

private:
    void leave();
    void insert(float value);
    void remove(float value);
    void reportMissing() const;

    Count n_;
    const float* in_;
    float* room_;
    Count count_ = 0;
    std::int64_t oldest_;
    std::int64_t next_ = 0;
};

} // namespace obrin
