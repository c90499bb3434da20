// KvSobol: per-axis Sobol permutations and the pair-drawing rule.
#include "sobol.h"

#include <gtest/gtest.h>

#include <climits>
#include <set>
#include <tuple>
#include <vector>

using Ints = std::vector<int>;

TEST(Sobol, ArraysForSmallLengths) {
    KvSobol sobol;
    EXPECT_TRUE(sobol.xs == nullptr && sobol.ys == nullptr);
    // L = 5: cycles 4 2 6 3 7 1 5 0 and 4 6 2 5 1 3 7 0 without the values >= 5.
    const std::tuple<int, Ints, Ints> cases[] = {{2, {1, 0}, {1, 0}},
                                                 {4, {2, 1, 3, 0}, {2, 3, 1, 0}},
                                                 {5, {4, 2, 3, 1, 0}, {4, 2, 1, 3, 0}}};
    for (const auto& [length, xs, ys] : cases) {
        sobol.init(length, length);
        EXPECT_EQ(Ints(sobol.xs, sobol.xs + length), xs);
        EXPECT_EQ(Ints(sobol.ys, sobol.ys + length), ys);
    }
    // A single cell: the only entry is the sign bit.
    sobol.init(1, 3);
    EXPECT_EQ(sobol.xs[0], INT_MIN);
    EXPECT_EQ(Ints(sobol.ys, sobol.ys + 3), (Ints{2, 1, 0}));
}

TEST(Sobol, EveryLengthIsAPermutation) {
    KvSobol sobol;
    for (int length = 2; length <= 300; length++) {
        sobol.init(length, length);
        for (const int* array : {sobol.xs, sobol.ys}) {
            std::set<int> values(array, array + length);
            ASSERT_EQ(static_cast<int>(values.size()), length);
            ASSERT_EQ(*values.rbegin(), length - 1);
        }
        if ((length & (length - 1)) == 0) {
            ASSERT_EQ(sobol.xs[length - 1], 0) << length; // 0 comes last in a cycle
        }
    }
}

TEST(Sobol, PairsCoverTheGridOnce) {
    KvSobol sobol;
    sobol.init(6, 4);
    std::vector<std::pair<int, int>> pairs;
    int x, y;
    for (int i = 0; i < 24; i++) {
        ASSERT_EQ(sobol.next(x, y), 1);
        pairs.push_back({x, y});
    }
    EXPECT_EQ(pairs[0], std::make_pair(sobol.xs[0], sobol.ys[0]));
    EXPECT_EQ((std::set<std::pair<int, int>>(pairs.begin(), pairs.end()).size()), 24u);
    EXPECT_EQ(sobol.count, 24);
    // The second pass pairs xs with ys shifted by one place.
    sobol.init(3, 3);
    for (int i = 0; i < 3; i++)
        sobol.next(x, y);
    EXPECT_EQ(std::tie(sobol.ix, sobol.iy), std::make_tuple(0, 1));
    sobol.next(x, y);
    EXPECT_EQ(std::make_pair(x, y), std::make_pair(sobol.xs[0], sobol.ys[1]));
    // Nothing to draw from an empty sequence.
    sobol.init(0, 5);
    EXPECT_EQ(sobol.next(x, y), 0);
}
