#include "numeric/sortedWindow.h"

#include "agent/debugLog.h"
#include "numeric/sortedSearch.h"

#include <algorithm>

namespace obrin {

void SortedWindow::enter() {
    if (next_ < n_)
        insert(in_[next_]);
    ++next_;
}

void SortedWindow::leave() {
    if (oldest_ >= 0 && oldest_ < n_)
        remove(in_[oldest_]);
    ++oldest_;
}

void SortedWindow::slide(Count steps, std::int64_t end) {
    // Past the last sample only the two indices move; a stride of billions is one step there.
    const std::int64_t busy = std::clamp<std::int64_t>(n_ - oldest_, 0, steps);
    for (std::int64_t step = 0; step < busy; ++step) {
        if (oldest_ < end)
            leave();
        enter();
    }
    oldest_ = std::max(oldest_, std::min(oldest_ + steps - busy, end));
    next_ += steps - busy;
}

void SortedWindow::insert(float value) {
    std::int32_t place = count_;
    if (FindSMGeq(value, room_, count_, 1, &place) != 1)
        place = count_;
    std::copy_backward(room_ + place, room_ + count_, room_ + count_ + 1);
    room_[place] = value;
    ++count_;
}

void SortedWindow::remove(float value) {
    std::int32_t place = 0;
    if (BinSearch(value, room_, count_, 1, &place) != 1) {
        reportMissing();
        return;
    }
    std::copy(room_ + place + 1, room_ + count_, room_ + place);
    --count_;
}

void SortedWindow::reportMissing() const {
    DEBUGMSG("Median filtering, error in binary search BinSearch for\n");
    DEBUGMSG("curr_window_size = %d, buffer = \n", count_);
    for (Count place = 0; place < count_; ++place)
        DEBUGMSG("%f \n", static_cast<double>(room_[place]));
    DEBUGMSG("Median filtering, error in binary search BinSearch");
}

} // namespace obrin
