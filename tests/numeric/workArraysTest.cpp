#include "numeric/workArrays.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <malloc.h>
#include <memory>
#include <thread>

namespace obrin {
namespace {

using Exited = testing::ExitedWithCode;

TEST(WorkArrays, MemoryIsZeroedAndLargeEnough) {
    const std::unique_ptr<std::int32_t, void (*)(void*)> memory(
        static_cast<std::int32_t*>(allocateWork("numbers", sizeof(std::int32_t), 1000)), std::free);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(memory.get()[i], 0);
    }
}

TEST(WorkArrays, CountBelowOneIsReportedOnStandardErrorAndServedWithOneElement) {
    for (const int count : {0, -7}) {
        testing::internal::CaptureStderr();
        const std::unique_ptr<double, void (*)(void*)> memory(
            static_cast<double*>(allocateWork("buff", sizeof(double), count)), std::free);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "trying to allocate buff with size " + std::to_string(count) + " \n");
        ASSERT_NE(memory, nullptr);
        *memory = 1.5;
        EXPECT_EQ(*memory, 1.5);
    }
}

TEST(WorkArrays, RefusedMemoryIsReportedInTwoLinesAndEndsTheProcessWithStatusOne) {
    EXPECT_EXIT(allocateWork("smoothed_x", INT_MAX, INT_MAX), Exited(1),
                "Error allocating array smoothed_x\nSizeof 2147483647, n_elements 2147483647\n$");
}

TEST(WorkArrays, CountBelowOneIsReportedBeforeTheRefusal) {
    EXPECT_EXIT(allocateWork("buff", SIZE_MAX - INT_MAX, -3), Exited(1),
                "^trying to allocate buff with size -3 \n(.*\n)*Error allocating array buff\n"
                "Sizeof -2147483648, n_elements -3\n$");
}

TEST(WorkArrays, SameOrSmallerSizeIsServedFromTheMemoryAtHand) {
    WorkArray<float> array("array");
    float* const memory = array.get(100);
    memory[99] = 1.0F;
    EXPECT_EQ(array.get(100), memory);
    EXPECT_EQ(array.get(1), memory);
    EXPECT_EQ(array.get(100), memory);
}

TEST(WorkArrays, ArrayGrowsToEverySizeAskedFor) {
    WorkArray<double> array("array");
    for (int elements = 1; elements < 3000; elements += 97) {
        double* const memory = array.get(elements);
        for (int i = 0; i < elements; ++i) {
            memory[i] = i; // the sanitizer watches the end
        }
        ASSERT_EQ(memory[elements - 1], elements - 1);
    }
}

TEST(WorkArrays, WhatAThreadHoldsIsFreedWhenItEnds) {
    const auto work = [] {
        thread_local WorkArray<double> first("first");
        thread_local WorkArray<float> second("second");
        for (const int elements : {1, 1 << 20, 1 << 21}) { // the middle one of three is given back in between
            first.get(elements)[elements - 1] = 1.0;
            second.get(elements)[elements - 1] = 1.0F;
        }
    };
    const std::size_t before = ::mallinfo2().hblkhd;
    for (int i = 0; i < 3; ++i) {
        std::thread(work).join();
    }
    EXPECT_EQ(::mallinfo2().hblkhd, before) << "the leak checker of a sanitizer sees it too";
}

TEST(WorkArrays, AnyOrderOfGivingBackLeavesTheRestWhole) {
    std::thread([] {
        void* blocks[4];
        for (int given : {0, 1, 2, 3}) {
            blocks[given] = allocateThreadWork("block", sizeof(double), 100);
        }
        for (int given : {1, 3, 0}) {
            freeThreadWork(blocks[given]);
        }
        freeThreadWork(nullptr);
        static_cast<double*>(blocks[2])[99] = 1.0;
        allocateThreadWork("block", sizeof(double), 100);
    }).join();
}

TEST(WorkArrays, RefusedMemoryOfAThreadEndsTheProcessAlike) {
    EXPECT_EXIT(allocateThreadWork("diff", SIZE_MAX, 2), Exited(1),
                "^Error allocating array diff\nSizeof -1, n_elements 2\n$");
    EXPECT_EXIT(allocateThreadWork("diff", SIZE_MAX / 2, 2), Exited(1), "Error allocating array diff\n");
    EXPECT_EXIT(allocateThreadWork("diff", INT_MAX, INT_MAX), Exited(1), "Error allocating array diff\n");
}

TEST(WorkArrays, WhatIsReservedIsServedFromTheMemoryAtHand) {
    WorkArray<float> array("array");
    ASSERT_TRUE(array.reserve(100));
    float* const memory = array.get(1);
    memory[99] = 1.0F; // the sanitizer watches the end
    EXPECT_EQ(array.get(100), memory);
    ASSERT_TRUE(array.reserve(100));
    ASSERT_TRUE(array.reserve(-1));
    EXPECT_EQ(array.get(100), memory);
}

TEST(WorkArrays, WhatCannotBeReservedEndsNothingAndLeavesTheArrayAsItWas) {
    struct Large {
        char bytes[1 << 24];
    };
    WorkArray<Large> array("array");
    Large* const memory = array.get(1);
    memory->bytes[0] = 'x';
    EXPECT_FALSE(array.reserve(INT_MAX)) << "more than an address has room for";
    EXPECT_FALSE(array.reserve(std::int64_t{INT_MAX} + 2)) << "more than is counted";
    EXPECT_EQ(array.get(1), memory);
    EXPECT_EQ(memory->bytes[0], 'x');
}

TEST(WorkArrays, LivingArrayReportsACountBelowOneEveryTime) {
    WorkArray<float> array("diff");
    testing::internal::CaptureStderr();
    ASSERT_NE(array.get(0), nullptr);
    ASSERT_NE(array.get(0), nullptr);
    array.get(5);
    float* const memory = array.get(-1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trying to allocate diff with size 0 \n"
                                                      "trying to allocate diff with size 0 \n"
                                                      "trying to allocate diff with size -1 \n");
    memory[4] = 1.0F; // still the five of before
}

} // namespace
} // namespace obrin
