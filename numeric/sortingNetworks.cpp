#include "numeric/sortingNetworks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <utility>

namespace obrin {
namespace {

// Four windows abreast, one in each lane; on processors without vectors the compiler makes four scalars of
// it.
using Lanes = float __attribute__((vector_size(16)));

inline Lanes lesser(Lanes a, Lanes b) {
    return a < b ? a : b;
}
inline Lanes greater(Lanes a, Lanes b) {
    return a > b ? a : b;
}
inline float lesser(float a, float b) {
    return std::min(a, b);
}
inline float greater(float a, float b) {
    return std::max(a, b);
}

template <class T>
void exchange(T& a, T& b) {
    const T least = lesser(a, b);
    b = greater(a, b);
    a = least;
}

/// The least of all five is the lesser of two pairs' least ones, and not the median; so with the greatest.
/// Three are left.
template <class T>
T medianOfFive(T a, T b, T c, T d, T e) {
    exchange(a, b);
    exchange(c, d);
    T low = greater(a, c);
    T high = lesser(b, d);
    exchange(low, high);
    return greater(low, lesser(high, e));
}

Lanes load(const float* from) {
    Lanes lanes;
    std::memcpy(&lanes, from, sizeof lanes);
    return lanes;
}

/// The medians of five of four windows: four samples of each are loaded at once and transposed.
Lanes mediansOfFive(const float* in, std::ptrdiff_t s) {
    const Lanes p = load(in), q = load(in + s), r = load(in + 2 * s), t = load(in + 3 * s);
    const Lanes pqFront = __builtin_shufflevector(p, q, 0, 4, 1, 5);
    const Lanes pqBack = __builtin_shufflevector(p, q, 2, 6, 3, 7);
    const Lanes rtFront = __builtin_shufflevector(r, t, 0, 4, 1, 5);
    const Lanes rtBack = __builtin_shufflevector(r, t, 2, 6, 3, 7);
    return medianOfFive(__builtin_shufflevector(pqFront, rtFront, 0, 1, 4, 5),
                        __builtin_shufflevector(pqFront, rtFront, 2, 3, 6, 7),
                        __builtin_shufflevector(pqBack, rtBack, 0, 1, 4, 5),
                        __builtin_shufflevector(pqBack, rtBack, 2, 3, 6, 7),
                        Lanes{in[4], in[s + 4], in[2 * s + 4], in[3 * s + 4]});
}

void windowsOfFive(const float* in, std::ptrdiff_t s, Count windows, float* out) {
    Count i = 0;
    for (; i + 4 <= windows; i += 4, in += 4 * s) {
        const Lanes medians = mediansOfFive(in, s);
        std::memcpy(out + i, &medians, sizeof medians);
    }
    for (; i < windows; ++i, in += s)
        out[i] = medianOfFive(in[0], in[1], in[2], in[3], in[4]);
}

/// Carries the least of v[W - 1 - sizeof...(Step) ..] down to the front of that range.
template <std::size_t W, std::size_t... Step>
void carryDown(std::array<float, W>& v, std::index_sequence<Step...>) {
    (exchange(v[W - 2 - Step], v[W - 1 - Step]), ...);
}

/// Puts the least elements in order into v[0 .. sizeof...(Round) - 1].
template <std::size_t W, std::size_t... Round>
void sortFront(std::array<float, W>& v, std::index_sequence<Round...>) {
    (carryDown(v, std::make_index_sequence<W - 1 - Round>{}), ...);
}

template <std::size_t W>
void windowsOf(const float* in, std::ptrdiff_t s, Count windows, float* out) {
    for (Count i = 0; i < windows; ++i, in += s) {
        std::array<float, W> v;
        std::copy_n(in, W, v.begin());
        sortFront(v, std::make_index_sequence<W / 2 + 1>{});
        out[i] = v[W / 2];
    }
}

} // namespace

void smallWindowMedians(const float* in, Count w, Count s, Count windows, float* out) {
    constexpr std::array networks{windowsOf<2>, windowsOf<3>, windowsOf<4>, windowsOfFive,
                                  windowsOf<6>, windowsOf<7>, windowsOf<8>, windowsOf<9>};
    static_assert(networks.size() == largestNetwork - 1);
    networks[static_cast<std::size_t>(w) - 2](in, s, windows, out);
}

} // namespace obrin
