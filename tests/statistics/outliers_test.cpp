#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "statistics/statistics.h"
#include "tests/support/bits.h"

namespace {

using Counts = std::array<std::uint64_t, 5>;

TEST(CountOutliers, IsStrictAndMeasuresFromZero) {
  // Beyond 0.15, 0.1, 0.2, 0.3 (in doubles 3 * 0.1 exceeds 0.3) and 0.4.
  EXPECT_EQ(vostrel::count_outliers(std::vector{0.1, -0.2, 0.3, -0.4}, 0.1),
            (Counts{3, 3, 2, 1, 0}));
  EXPECT_EQ(vostrel::count_outliers({}, 0.1), Counts{});
}

TEST(CountOutliers, UsesTheDoubleNearestTo015) {
  const std::vector<double> about = {0.15, std::nextafter(0.15, 1.0), -0.15,
                                     -std::nextafter(0.15, 1.0)};
  EXPECT_EQ(vostrel::count_outliers(about, 1.0), (Counts{2, 0, 0, 0, 0}));
}

TEST(CountOutliers, CountsInfinitiesAndNeverNaN) {
  EXPECT_EQ(vostrel::count_outliers(std::vector{kInfinity, -kInfinity, kNaN}, 1.0),
            (Counts{2, 2, 2, 2, 2}));
  EXPECT_EQ(vostrel::count_outliers(std::vector{1.0, kInfinity}, kNaN), (Counts{2, 0, 0, 0, 0}));
}

TEST(Percentage, DividesFirst) {
  // 87 / 640 is 0.1359375, which rounds down in doubles.
  EXPECT_EQ(vostrel::percentage(87, 640), 87.0 / 640.0 * 100.0);
  EXPECT_LT(vostrel::percentage(87, 640), 13.59375);
}

}  // namespace
