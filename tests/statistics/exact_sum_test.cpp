#include "statistics/exact_sum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/random.h"

namespace {

using Values = std::vector<double>;
__extension__ typedef __int128 Int128;  // NOLINT(modernize-use-using): no other form is quiet

bool same(double a, double b) {
  return bits_of(a) == bits_of(b) || (std::isnan(a) && std::isnan(b));
}

double one_by_one(const Values& values) {
  vostrel::ExactSum sum;
  for (const double value : values) sum.add(value);
  return sum.total();
}

// The sum in blocks. Holds the sums of squares in blocks, too, against those one by one.
double in_blocks(const Values& values, std::size_t size) {
  vostrel::ExactSum sum;
  vostrel::ExactSum squares;
  vostrel::ExactSum deviations;
  vostrel::ExactSum expected_squares;
  vostrel::ExactSum expected_deviations;
  const double center = values.empty() ? 0 : values[0];
  for (std::size_t first = 0; first < values.size(); first += size) {
    const auto block = std::span(values).subspan(first, std::min(size, values.size() - first));
    vostrel::ExactSum::add_with_squares(block, sum, squares);
    deviations.add_squares_about(center, block);
    for (const double value : block) {
      expected_squares.add(value * value);
      expected_deviations.add((value - center) * (value - center));
    }
  }
  EXPECT_TRUE(same(squares.total(), expected_squares.total()));
  EXPECT_TRUE(same(deviations.total(), expected_deviations.total()));
  return sum.total();
}

TEST(ExactSum, RoundsOnce) {
  struct {
    Values values;
    double sum;
  } const kTable[] = {
      {{}, 0},
      {{1e100, 1, -1e100}, 1},
      {{0.1, 0.2, -0.3}, 0x1p-55},  // the doubles 0.1 and 0.2 are too large, 0.3 is too small
      {{0x1p53, 1}, 0x1p53},        // a tie goes to the even neighbour
      {{1, 0x1p-53}, 1},
      {{0x1p53, 1, 0x1p-20}, 0x1p53 + 2},  // the rest is in one of the next words
      {{0x1p53, 1, 0x1p-40}, 0x1p53 + 2},
      {{0x1p53, 1, 0x1p-1000}, 0x1p53 + 2},
      {{0x1p53 + 2, 1}, 0x1p53 + 4},
      {{0x1p63, 0x401}, 0x1p63 + 0x800},
      {{0x1p63, 0x402}, 0x1p63 + 0x800},
      {{-0x1p53, -1, -0x1p-1074}, -0x1p53 - 2},
      {{0x1p1023, 0x1p1023, -0x1p1023}, 0x1p1023},
      {{0x1p1023, 0x1p1023}, kInfinity},
      {{0x1p-1074, 0x1p-1074}, 0x1p-1073},
      {{0x1p-1022, -0x1p-1074}, 0x1p-1022 - 0x1p-1074},
      {{0.5, 0.5, 0x1p-27, 0x1p-52}, 1 + 0x1p-27 + 0x1p-52},  // the last square breaks a tie
      {{0x1.23456789abcdfp-500, 0x1.23456789abcdfp-500}, 0x1.23456789abcdfp-499},
      {{kInfinity, 1}, kInfinity},
      {{-kInfinity, 1e308, 1e308}, -kInfinity},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(one_by_one(row.values), row.sum);
    EXPECT_EQ(in_blocks(row.values, 2), row.sum);
    EXPECT_EQ(in_blocks(row.values, 100), row.sum);
  }
  EXPECT_TRUE(std::isnan(one_by_one({kInfinity, -kInfinity})));
  EXPECT_TRUE(std::isnan(in_blocks({kInfinity, -kInfinity}, 2)));
  EXPECT_TRUE(std::isnan(in_blocks({1, kNaN}, 2)));
}

TEST(ExactSum, MergesAnInfinity) {
  vostrel::ExactSum sum;
  vostrel::ExactSum infinite;
  infinite.add(kInfinity);
  sum.merge(infinite);
  EXPECT_EQ(sum.total(), kInfinity);
}

// Without carries, the words of the sum would overflow.
TEST(ExactSum, IsDoubledByMerges) {
  vostrel::ExactSum sum;
  sum.add(0x1.fffffffffffffp-100);
  for (int i = 0; i < 100; ++i) sum.merge(vostrel::ExactSum(sum));
  EXPECT_EQ(sum.total(), 0x1.fffffffffffffp0);
}

// Multiples of 2^-60 below 2^40 in magnitude: __int128 adds them exactly and rounds once.
TEST(ExactSum, MatchesIntegerArithmetic) {
  Random random;
  for (int round = 0; round < rounds(3000); ++round) {
    Values values(random.below(3000));
    Int128 sum = 0;
    for (double& value : values) {
      const auto integer = static_cast<std::int64_t>(random.bits()) >> random.below(64);
      const int up = static_cast<int>(random.below(36));
      value = std::ldexp(static_cast<double>(integer >> 11), up - 60);
      sum += static_cast<Int128>(integer >> 11) << up;
    }
    const double expected = std::ldexp(static_cast<double>(sum), -60);
    ASSERT_EQ(bits_of(in_blocks(values, 1 + random.below(2048))), bits_of(expected));
    ASSERT_EQ(bits_of(one_by_one(values)), bits_of(expected));
  }
}

TEST(ExactSum, IsIndependentOfOrderAndBlocks) {
  Random random;
  for (int round = 0; round < rounds(1000); ++round) {
    Values values(random.below(2000));
    for (double& value : values) {
      do {
        value = random.any_double();
      } while (!std::isfinite(value));
      if (random.one_in(2)) value = -values[random.below(values.size())];
    }
    const double expected = one_by_one(values);
    std::sort(values.begin(), values.end());
    ASSERT_EQ(bits_of(in_blocks(values, 1 + random.below(2048))), bits_of(expected));

    vostrel::ExactSum left;
    vostrel::ExactSum right;
    for (const double value : values) (random.one_in(2) ? left : right).add(value);
    left.merge(right);
    ASSERT_EQ(bits_of(left.total()), bits_of(expected));
  }
}

// The results would be the same without splitting, only later.
TEST(ExactSum, SplitsOrdinaryBlocks) {
  Random random;
  vostrel::ExactSum sum;
  vostrel::ExactSum squares;
  vostrel::ExactSum deviations;
  int split = 0;
  for (int block = 0; block < 100; ++block) {
    Values values(2048);
    for (double& value : values) value = 0.1 * (random.fraction() - random.fraction());
    split += vostrel::ExactSum::add_with_squares(values, sum, squares);
    split += deviations.add_squares_about(0.003, values);
  }
  EXPECT_GE(split, 190);  // a block with a value very close to 0 needs more bits
}

}  // namespace
