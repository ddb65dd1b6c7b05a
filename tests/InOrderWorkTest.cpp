// Work made on several threads and used in order on the calling one.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "support/InOrderWork.h"

using namespace quillora;

TEST(InOrderWork, ResultsAreUsedInOrderWithinTheWindowAndAfterWhatTheyMustFollow)
{
    constexpr std::size_t kCount = 40;
    std::atomic<std::size_t> usedSoFar = 0;
    std::atomic<bool> aheadOfWindow = false, beforeItsPredecessor = false;
    std::vector<std::size_t> order;
    forEachInOrder<std::size_t>(
        kCount, 3, 4,
        [](std::size_t i) { return i % 5 == 0 && i > 0 ? std::optional<std::size_t>(i - 3) : std::nullopt; },
        [&](std::size_t i) {
            if (i >= usedSoFar + 4) aheadOfWindow = true;
            if (i % 5 == 0 && i > 0 && usedSoFar <= i - 3) beforeItsPredecessor = true;
            return i * i;
        },
        [&](std::size_t i, std::size_t square) {
            EXPECT_EQ(square, i * i);
            order.push_back(i);
            usedSoFar = i + 1;
        });
    ASSERT_EQ(order.size(), kCount);
    for (std::size_t i = 0; i < kCount; ++i) EXPECT_EQ(order[i], i);
    EXPECT_FALSE(aheadOfWindow);
    EXPECT_FALSE(beforeItsPredecessor);

    // A failure in the work reaches the caller once its turn comes.
    std::size_t usedBeforeFailure = 0;
    EXPECT_THROW(forEachInOrder<int>(
                     10, 2, 2, [](std::size_t) { return std::nullopt; },
                     [](std::size_t i) -> int {
                         if (i == 6) throw std::runtime_error("no");
                         return 0;
                     },
                     [&](std::size_t, int) { ++usedBeforeFailure; }),
                 std::runtime_error);
    EXPECT_EQ(usedBeforeFailure, 6u);
}
