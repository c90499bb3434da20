// KvSobol: per-axis Sobol permutations and the pair-drawing rule.
#include "sobol.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <set>
#include <vector>

namespace {

std::vector<int> values(const int* array, int length) {
    return std::vector<int>(array, array + length);
}

} // namespace

TEST(Sobol, ArraysForSmallLengths) {
    KvSobol sobol;
    EXPECT_EQ(sobol.xs, nullptr);
    EXPECT_EQ(sobol.ys, nullptr);
    sobol.init(2, 2);
    EXPECT_EQ(values(sobol.xs, 2), (std::vector<int>{1, 0}));
    EXPECT_EQ(values(sobol.ys, 2), (std::vector<int>{1, 0}));
    sobol.init(4, 4);
    EXPECT_EQ(values(sobol.xs, 4), (std::vector<int>{2, 1, 3, 0}));
    EXPECT_EQ(values(sobol.ys, 4), (std::vector<int>{2, 3, 1, 0}));
    sobol.init(5, 5);
    EXPECT_EQ(values(sobol.xs, 5), (std::vector<int>{4, 2, 3, 1, 0}));
    EXPECT_EQ(values(sobol.ys, 5), (std::vector<int>{4, 2, 1, 3, 0}));
    EXPECT_EQ(sobol.n, 5);
    EXPECT_EQ(sobol.m, 5);
    // A single cell: the only entry is the sign bit.
    sobol.init(1, 3);
    EXPECT_EQ(sobol.xs[0], INT_MIN);
    EXPECT_EQ(values(sobol.ys, 3), (std::vector<int>{2, 1, 0}));
}

TEST(Sobol, EveryLengthIsAPermutation) {
    KvSobol sobol;
    for (int length = 2; length <= 300; length++) {
        sobol.init(length, length);
        std::set<int> xs(sobol.xs, sobol.xs + length), ys(sobol.ys, sobol.ys + length);
        ASSERT_EQ(static_cast<int>(xs.size()), length);
        ASSERT_EQ(static_cast<int>(ys.size()), length);
        ASSERT_EQ(*xs.rbegin(), length - 1);
        ASSERT_EQ(*ys.rbegin(), length - 1);
        if ((length & (length - 1)) == 0) {
            ASSERT_EQ(sobol.xs[length - 1], 0);
        }
    }
}

TEST(Sobol, PairsCoverTheGridOnce) {
    KvSobol sobol;
    sobol.init(6, 4);
    std::set<std::pair<int, int>> seen;
    int x, y;
    ASSERT_EQ(sobol.next(x, y), 1);
    EXPECT_EQ(x, sobol.xs[0]);
    EXPECT_EQ(y, sobol.ys[0]);
    seen.insert({x, y});
    for (int i = 1; i < 24; i++) {
        ASSERT_EQ(sobol.next(x, y), 1);
        seen.insert({x, y});
    }
    EXPECT_EQ(seen.size(), 24u);
    EXPECT_EQ(sobol.count, 24);
    // The second pass pairs xs with ys shifted by one place.
    sobol.init(3, 3);
    for (int i = 0; i < 3; i++)
        sobol.next(x, y);
    EXPECT_EQ(sobol.ix, 0);
    EXPECT_EQ(sobol.iy, 1);
    sobol.next(x, y);
    EXPECT_EQ(x, sobol.xs[0]);
    EXPECT_EQ(y, sobol.ys[1]);
    // Nothing to draw from an empty sequence.
    sobol.init(0, 5);
    EXPECT_EQ(sobol.next(x, y), 0);
}

TEST(Sobol, UserManagedArraysStillWork) {
    // The engine's historical use: null the pointers, init, free the arrays itself.
    KvSobol sobol;
    sobol.xs = nullptr;
    sobol.ys = nullptr;
    sobol.init(7, 9);
    free(sobol.xs);
    free(sobol.ys);
    sobol.xs = sobol.ys = nullptr;
}
