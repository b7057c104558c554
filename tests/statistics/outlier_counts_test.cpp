// Counting beyond bounds: held against the plain comparison, on values made to break it.

#include "statistics/outlier_counts.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/random.h"

namespace {

using Bounds = std::array<double, vostrel::kOutlierBounds>;
using Counts = std::array<std::size_t, vostrel::kOutlierBounds>;

constexpr double kTiny = std::numeric_limits<double>::denorm_min();
constexpr double kHuge = std::numeric_limits<double>::max();

Counts plain_counts(const std::vector<double>& values, const Bounds& bounds) {
  Counts counts{};
  for (const double value : values) {
    for (std::size_t k = 0; k < bounds.size(); ++k) {
      if (std::fabs(value) > bounds[k]) ++counts[k];
    }
  }
  return counts;
}

Counts counts(const std::vector<double>& values, const Bounds& bounds) {
  return vostrel::count_beyond(values.data(), values.size(), bounds);
}

TEST(CountBeyond, IsStrictAndMeasuresFromZero) {
  EXPECT_EQ(counts({0.1, -0.2, 0.3, -0.4}, {0.1, 0.2, 0.3, 0.4, 0.15}), (Counts{3, 2, 1, 0, 3}));
  EXPECT_EQ(counts({}, {0, 1, 2, 3, 4}), (Counts{}));
}

TEST(CountBeyond, OfOddValuesAndBoundsIsThePlainCount) {
  const std::vector<double> odd = {0.0,
                                   -0.0,
                                   kTiny,
                                   -kTiny,
                                   0.15,
                                   -0.15,
                                   kHuge,
                                   -kHuge,
                                   kNaN,
                                   -kNaN,
                                   1,
                                   -1,
                                   kInfinity,
                                   -kInfinity,
                                   std::nextafter(0.15, 1.0),
                                   std::nextafter(0.15, 0.0)};
  for (const double bound : odd) {
    const Bounds bounds = {bound, 2.0 * bound, 3.0 * bound, 4.0 * bound, 0.15};
    EXPECT_EQ(counts(odd, bounds), plain_counts(odd, bounds)) << bound;
  }
}

TEST(CountBeyond, OfRandomBitsIsThePlainCount) {
  Random random;
  for (int round = 0; round < rounds(20000); ++round) {
    std::vector<double> values(random.below(40));
    for (double& value : values) value = random.any_double();
    Bounds bounds{};
    for (double& bound : bounds) {
      bound = values.empty() || random.one_in(2) ? random.any_double() : random.pick(values);
    }
    ASSERT_EQ(counts(values, bounds), plain_counts(values, bounds));
  }
}

}  // namespace
