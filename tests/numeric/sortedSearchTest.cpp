#include "numeric/sortedSearch.h"

#include "tests/numeric/specialFloats.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

namespace obrin {
namespace {

using test::infinity;
using test::notANumber;

using Floats = std::vector<float>;
using Search = int (*)(float, const float*, Count, int, std::int32_t*);

struct Answer {
    int found;
    std::int32_t pos;
    bool operator==(const Answer&) const = default;
};

void PrintTo(const Answer& answer, std::ostream* out) {
    *out << answer.found << " at " << answer.pos;
}

constexpr std::int32_t noPlace = -99;

Answer ask(Search search, float value, const Floats& array, int order) {
    std::int32_t pos = noPlace;
    const int found = search(value, array.data(), static_cast<Count>(array.size()), order, &pos);
    return {found, pos};
}

TEST(SortedSearch, SmallestNotBelowInOneThreeSevenNine) {
    const Floats array{1.0F, 3.0F, 7.0F, 9.0F};
    EXPECT_EQ(ask(FindSMGeq, 5.0F, array, 1), (Answer{1, 2}));
    EXPECT_EQ(ask(FindSMGeq, 10.0F, array, 1), (Answer{0, 4}));
    EXPECT_EQ(ask(FindSMGeq, 0.0F, array, 1), (Answer{1, 0}));
}

TEST(SortedSearch, SmallestNotBelowThreeInOneThreeThreeSevenIsTheFirstThree) {
    EXPECT_EQ(ask(FindSMGeq, 3.0F, {1.0F, 3.0F, 3.0F, 7.0F}, 1), (Answer{1, 1}));
}

TEST(SortedSearch, AmongEqualsTheFirstOrTheLastIsTakenByDirectionAndOrder) {
    const Floats ascending{1.0F, 3.0F, 3.0F, 7.0F};
    const Floats descending{7.0F, 3.0F, 3.0F, 1.0F};
    EXPECT_EQ(ask(FindSMGeq, 3.0F, ascending, 1), (Answer{1, 1}));
    EXPECT_EQ(ask(FindLGLeq, 3.0F, ascending, 1), (Answer{1, 2}));
    EXPECT_EQ(ask(FindSMGeq, 3.0F, descending, -1), (Answer{1, 2}));
    EXPECT_EQ(ask(FindLGLeq, 3.0F, descending, -1), (Answer{1, 1}));
}

TEST(SortedSearch, ValueBeyondTheEndsHasItsOwnPlaces) {
    const Floats ascending{1.0F, 3.0F};
    const Floats descending{3.0F, 1.0F};
    EXPECT_EQ(ask(FindSMGeq, 4.0F, ascending, 1), (Answer{0, 2}));
    EXPECT_EQ(ask(FindLGLeq, 0.0F, ascending, 1), (Answer{0, -1}));
    EXPECT_EQ(ask(FindSMGeq, 4.0F, descending, 0), (Answer{0, -1}));
    EXPECT_EQ(ask(FindLGLeq, 0.0F, descending, 0), (Answer{0, 2}));
}

TEST(SortedSearch, EmptyArrayGivesZeroAndLeavesThePlaceUntouched) {
    for (const Search search : {BinSearch, FindSMGeq, FindLGLeq}) {
        for (const int order : {1, -1}) {
            for (const Count n : {0, -5}) {
                std::int32_t pos = noPlace;
                EXPECT_EQ(search(1.0F, nullptr, n, order, &pos), 0);
                EXPECT_EQ(pos, noPlace);
            }
        }
    }
}

/// The definitions, element by element, on an ascending array.
Answer scanNotBelow(float value, const Floats& array) {
    for (std::size_t i = 0; i < array.size(); ++i) {
        if (array[i] >= value) {
            return {1, static_cast<std::int32_t>(i)};
        }
    }
    return {0, static_cast<std::int32_t>(array.size())};
}

Answer scanNotAbove(float value, const Floats& array) {
    for (std::size_t i = array.size(); i > 0; --i) {
        if (array[i - 1] <= value) {
            return {1, static_cast<std::int32_t>(i) - 1};
        }
    }
    return {0, -1};
}

/// The same place seen from the other end.
Answer mirrored(Answer answer, std::size_t size) {
    return {answer.found, static_cast<std::int32_t>(size) - 1 - answer.pos};
}

void compareWithScan(const Floats& ascending) {
    const Floats descending(ascending.rbegin(), ascending.rend());
    for (float value = 0.0F; value <= 5.0F; value += 0.5F) {
        const Answer notBelow = scanNotBelow(value, ascending);
        const Answer notAbove = scanNotAbove(value, ascending);
        ASSERT_EQ(ask(FindSMGeq, value, ascending, 1), notBelow);
        ASSERT_EQ(ask(FindLGLeq, value, ascending, 1), notAbove);
        ASSERT_EQ(ask(FindSMGeq, value, descending, -1), mirrored(notBelow, ascending.size()));
        ASSERT_EQ(ask(FindLGLeq, value, descending, 2), mirrored(notAbove, ascending.size()));
        const bool present = std::find(ascending.begin(), ascending.end(), value) != ascending.end();
        for (const auto& [array, order] : {std::pair{&ascending, 1}, std::pair{&descending, -1}}) {
            const Answer equal = ask(BinSearch, value, *array, order);
            ASSERT_EQ(equal.found, present ? 1 : 0);
            if (present) {
                ASSERT_EQ(array->at(static_cast<std::size_t>(equal.pos)), value);
            }
        }
    }
}

TEST(SortedSearch, EverySortedArrayOfUpToSevenOutOfFourValuesAgreesWithAScan) {
    std::function<void(Floats&)> extend = [&](Floats& array) {
        if (!array.empty()) {
            compareWithScan(array);
        }
        if (array.size() == 7) {
            return;
        }
        for (float next = array.empty() ? 1.0F : array.back(); next <= 4.0F; next += 1.0F) {
            array.push_back(next);
            extend(array);
            array.pop_back();
        }
    };
    Floats array;
    extend(array);
}

TEST(SortedSearch, InfinitiesAreOrdinaryValues) {
    const Floats array{-infinity, 0.0F, infinity};
    EXPECT_EQ(ask(BinSearch, infinity, array, 1), (Answer{1, 2}));
    EXPECT_EQ(ask(FindSMGeq, -infinity, array, 1), (Answer{1, 0}));
    EXPECT_EQ(ask(FindLGLeq, infinity, array, 1), (Answer{1, 2}));
}

TEST(SortedSearch, NotANumberNeverLeadsOutsideTheArray) {
    for (std::size_t size = 1; size <= 6; ++size) {
        for (std::size_t hole = 0; hole <= size; ++hole) {
            Floats array;
            for (std::size_t i = 0; i < size; ++i) {
                array.push_back(i == hole ? notANumber : static_cast<float>(i));
            }
            for (const float value : {notANumber, -1.0F, 2.0F, 9.0F}) {
                for (const int order : {1, -1}) {
                    for (const Search search : {FindSMGeq, FindLGLeq}) {
                        const Answer answer = ask(search, value, array, order);
                        ASSERT_GE(answer.pos, answer.found == 1 ? 0 : -1);
                        ASSERT_LE(answer.pos, static_cast<std::int32_t>(size) - (answer.found == 1 ? 1 : 0));
                    }
                    const Answer equal = ask(BinSearch, value, array, order);
                    ASSERT_TRUE(equal.found == 0 || array.at(static_cast<std::size_t>(equal.pos)) == value);
                }
            }
        }
    }
}

} // namespace
} // namespace obrin
