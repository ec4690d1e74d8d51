#include "numeric/sortedSearch.h"

#include <algorithm>

namespace obrin {
namespace {

/// The first index in 1 .. n - 1 whose element is not `before`, n - 1 when all before the last are. The
/// callers have looked at both ends already, so that the answer is inside the array even when a NaN is
/// compared.
template <class Before>
std::int32_t boundary(const float* arr, Count n, Before before) {
    const float* const last = arr + (n - 1);
    const float* const first = n > 1 ? arr + 1 : last;
    return static_cast<std::int32_t>(std::partition_point(first, last, before) - arr);
}

int place(std::int32_t where, int found, std::int32_t* pos) {
    *pos = where;
    return found;
}

} // namespace

int BinSearch(float value, const float* arr, Count n, int order, std::int32_t* pos) {
    std::int32_t candidate = 0;
    const int found = order == 1 ? FindSMGeq(value, arr, n, order, &candidate)
                                 : FindLGLeq(value, arr, n, order, &candidate);
    if (found != 1 || arr[candidate] != value) {
        return 0;
    }
    return place(candidate, 1, pos);
}

int FindSMGeq(float value, const float* arr, Count n, int order, std::int32_t* pos) {
    if (n < 1) {
        return 0;
    }
    if (order == 1) {
        if (arr[0] >= value) {
            return place(0, 1, pos);
        }
        if (arr[n - 1] < value) {
            return place(n, 0, pos);
        }
        return place(boundary(arr, n, [value](float element) { return element < value; }), 1, pos);
    }
    if (arr[0] < value) {
        return place(-1, 0, pos);
    }
    if (arr[n - 1] >= value) {
        return place(n - 1, 1, pos);
    }
    const std::int32_t smaller = boundary(arr, n, [value](float element) { return element >= value; });
    return place(std::max(smaller - 1, 0), 1, pos);
}

int FindLGLeq(float value, const float* arr, Count n, int order, std::int32_t* pos) {
    if (n < 1) {
        return 0;
    }
    if (order == 1) {
        if (arr[0] > value) {
            return place(-1, 0, pos);
        }
        if (arr[n - 1] <= value) {
            return place(n - 1, 1, pos);
        }
        const std::int32_t larger = boundary(arr, n, [value](float element) { return element <= value; });
        return place(std::max(larger - 1, 0), 1, pos);
    }
    if (arr[0] <= value) {
        return place(0, 1, pos);
    }
    if (arr[n - 1] > value) {
        return place(n, 0, pos);
    }
    return place(boundary(arr, n, [value](float element) { return element > value; }), 1, pos);
}

} // namespace obrin
