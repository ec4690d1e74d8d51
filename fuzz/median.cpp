// The running medians against their textbook form, on any floats.

#include "fuzz/target.h"
#include "numeric/medianFilter.h"
#include "tests/numeric/referenceMedian.h"

#include <bit>
#include <cmath>

namespace obrin::fuzz::median {
namespace {

using Floats = std::vector<float>;

Floats readSamples(Input& bytes) {
    if (bytes.take<std::uint8_t>() % 2 == 0)
        return bytes.series<float>(100);
    const auto levels = bytes.series<std::int8_t>(400); // many of them equal
    return {levels.begin(), levels.end()};
}

bool isSame(float a, float b) {
    return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b) ||
           (std::isnan(a) && std::isnan(b));
}

void checkSame(const Floats& own, const Floats& expected, Count count) {
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
        require(isSame(own[i], expected[i]), "a median is the textbook's");
}

void check(std::string_view input) {
    Input bytes(input);
    const Count w = bytes.within(-1, 300);
    const Count s = bytes.take<std::uint8_t>() == 255 ? bytes.take<Count>() : bytes.within(-1, 300);
    const Floats in = readSamples(bytes);
    const auto n = static_cast<Count>(in.size());
    Floats out(in.size() / static_cast<std::size_t>(std::max(s, 1)) + 2);
    const Count medians = median_filter(n, in.data(), w, s, out.data());
    require(medians >= 0 && static_cast<std::size_t>(medians) <= out.size(),
            "there are as many medians as promised");
    Floats border(in.size() + 2);
    const Count atBorders = median_filter_with_border_effects(n, in.data(), w, s, border.data());
    require(atBorders >= 0 && static_cast<std::size_t>(atBorders) <= border.size(), "and at the borders");
    if (n < 1 || w < 2 || s < 1 || s > 1000)
        return;
    Floats expected(out.size());
    require(test::referenceMedianFilter(n, in.data(), w, s, expected.data()) == medians,
            "as many as the textbook has");
    checkSame(out, expected, medians);
    expected.resize(border.size());
    const Count room = n + 2;
    require(std::min(room, test::referenceBorderMedianFilter(n, in.data(), w, s, room, expected.data())) ==
                atBorders,
            "as many as the textbook has at the borders");
    checkSame(border, expected, atBorders);
}

const Target target("median", check);

} // namespace
} // namespace obrin::fuzz::median
