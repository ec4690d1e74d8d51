#include "numeric/errorMeasures.h"

#include "numeric/workArrays.h"

namespace obrin {
namespace {

struct MeasureMemory {
    WorkArray<float> differences{"diff"};
};

/// (a_i - b_i)^2 in the thread's scratch array, which the caller may write to until the next call.
float* squaredDifferences(Count n, const float* a, const float* b) {
    float* const diff = threadOwn<MeasureMemory>().differences.get(n);
    sves(n, a, 1, b, 1, diff, 1);
    svem(n, diff, 1, diff, 1, diff, 1);
    return diff;
}

} // namespace

double MSE(Count n, const float* a, const float* b) {
    return smean(n, squaredDifferences(n, a, b), 1);
}

double WMSE(Count n, const float* a, const float* b, const float* w) {
    float* const diff = squaredDifferences(n, a, b);
    svem(n, diff, 1, w, 1, diff, 1);
    return smean(n, diff, 1);
}

bool reserveErrorMeasures(std::int64_t n) noexcept {
    auto* const memory = tryThreadOwn<MeasureMemory>();
    return memory != nullptr && memory->differences.reserve(n);
}

} // namespace obrin
