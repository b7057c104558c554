// The pieces. Medians are compared bit by bit with the bubble sort. Large arrays are compared with
// a sort of each stretch between NaNs, which is itself compared with the bubble sort.

#include "statistics/statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <span>
#include <vector>

#include "tests/plain/plain_utils.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"
#include "tests/support/sorted_stretches.h"

namespace {

using Values = std::vector<double>;

int count_of(const Values& values) { return static_cast<int>(values.size()); }

/// A small array of a random kind.
Values small_array(Random& random, std::size_t size) {
  static const double kZeros[] = {0.0, -0.0};
  static const double kFew[] = {0.0, -0.0, 1, -1, 2, kInfinity, -kInfinity};
  const std::size_t kind = random.below(8);
  const std::size_t nan_in = random.below(4) == 0 ? 2 + random.below(20) : 0;
  Values values(size);
  for (std::size_t i = 0; i < size; ++i) {
    double& value = values[i];
    switch (kind) {
      case 0:
        value = random.any_double();
        break;
      case 1:
        value = random.fraction() - 0.5;
        break;
      case 2:
        value = random.pick(kZeros);
        break;
      case 3:
        value = random.pick(kFew);
        break;
      case 4:
        value = static_cast<double>(random.below(10)) - 5;
        break;
      case 5:
        value = static_cast<double>(i);
        break;
      case 6:
        value = -static_cast<double>(i / 2);
        break;
      default:
        value = 1.0 + static_cast<double>(random.below(4)) * 0x1p-52;
        break;
    }
    if (nan_in != 0 && random.one_in(nan_in)) value = random.pick(kNaNs);
  }
  return values;
}

/// A center as CalculateMADDeltaz would use it, or any other.
double some_center(Random& random, const Values& values) {
  const std::size_t kind = random.below(4);
  if (kind == 0) return random.any_double();
  if (kind == 1 && !values.empty()) return values[random.below(values.size())];
  return vostrel::median(values);
}

std::string shown(const Values& values) {
  std::string text;
  for (const double value : values) text += plain::write_double(value) + " ";
  return text;
}

void expect_medians_of_the_bubble_sort(const Values& values, double center) {
  const int n = count_of(values);
  ASSERT_EQ(bits_without_payload(vostrel::median(values)),
            bits_without_payload(plain::median(values, n)))
      << shown(values);
  ASSERT_EQ(bits_without_payload(vostrel::absolute_median(values)),
            bits_without_payload(plain::abs_median(values, n)))
      << shown(values);
  ASSERT_EQ(bits_without_payload(vostrel::median_of_distances(values, center)),
            bits_without_payload(plain::median(distances(values, center), n)))
      << shown(values) << "around " << center;
}

TEST(Medians, ReturnNaNForNoValues) {
  const Values none;
  EXPECT_TRUE(std::isnan(vostrel::median(none)));
  EXPECT_TRUE(std::isnan(vostrel::absolute_median(none)));
  EXPECT_TRUE(std::isnan(vostrel::median_of_distances(none, 1.0)));
  expect_medians_of_the_bubble_sort(none, 0.0);
}

TEST(Medians, MatchHandComputedValues) {
  const struct {
    const char* name;
    Values values;
    double median;
  } kTable[] = {
      {"odd", {3, 1, 2}, 2},
      {"even", {4, 1, 3, 2}, 2.5},
      {"two stretches, the middle in the second", {9, 8, kNaN, 1, 0, 2, 3}, 0},
      {"two stretches, the middle in the first", {5, 4, 3, 2, kNaN, 1, 0}, 5},
      {"zeros keep their order, even below", {-0.0, 0.0, -0.0, 0.0, -0.0}, -0.0},
      {"zeros among others", {1, 0.0, -1, -0.0, 0.0}, -0.0},
      {"infinities", {kInfinity, -kInfinity, 3}, 3},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(bits_of(vostrel::median(row.values)), bits_of(row.median)) << row.name;
  }
  const Values values = {-3, 1, 2};
  EXPECT_EQ(vostrel::absolute_median(values), 2);
  EXPECT_EQ(vostrel::median_of_distances(values, 1), 1);
  EXPECT_EQ(vostrel::median_of_distances(std::span(values).first(2), 1), 2);  // of 4 and 0
  EXPECT_EQ(vostrel::mad_about_median(values), 1);
}

TEST(Medians, MatchTheBubbleSortOnSmallArrays) {
  Random random;
  for (int i = 0; i < rounds(300000); ++i) {
    const Values values = small_array(random, random.below(random.one_in(4) ? 65 : 14));
    expect_medians_of_the_bubble_sort(values, some_center(random, values));
    if (HasFatalFailure()) return;
  }
}

TEST(Medians, MatchTheBubbleSortOnUpTo2000Values) {
  Random random;
  for (int i = 0; i < rounds(60); ++i) {
    const Values values = small_array(random, 65 + random.below(1936));
    expect_medians_of_the_bubble_sort(values, some_center(random, values));
    if (HasFatalFailure()) return;
  }
}

TEST(Medians, MatchTheBubbleSortOnEveryOrderOfFiveValues) {
  // Five places, each one of five values: two zeros, a number, an infinity, a NaN.
  const double kFew[] = {0.0, -0.0, 1.0, -kInfinity, kNaN};
  for (std::size_t code = 0; code < 3125; ++code) {
    Values values;
    for (std::size_t rest = code, i = 0; i < 5; ++i, rest /= 5) values.push_back(kFew[rest % 5]);
    for (const std::size_t n : {5u, 4u}) {
      expect_medians_of_the_bubble_sort(
          Values(values.begin(), values.begin() + static_cast<long>(n)), 1.0);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(SortStretches, MatchesTheBubbleSort) {
  Random random;
  for (int i = 0; i < rounds(100000); ++i) {
    Values by_bubbles = small_array(random, random.below(40));
    Values by_stretches = by_bubbles;
    plain::bubble_sort(by_bubbles);
    sort_stretches(by_stretches);
    for (std::size_t k = 0; k < by_bubbles.size(); ++k) {
      ASSERT_EQ(bits_without_payload(by_stretches[k]), bits_without_payload(by_bubbles[k]));
    }
  }
}

struct Shape {
  const char* name;
  std::function<double(Random&, std::size_t i, std::size_t n)> value;
};

const Shape kShapes[] = {
    {"uniform", [](Random& r, std::size_t, std::size_t) { return r.fraction() - 0.5; }},
    {"sorted", [](Random&, std::size_t i, std::size_t) { return static_cast<double>(i); }},
    {"reversed", [](Random&, std::size_t i, std::size_t n) { return static_cast<double>(n - i); }},
    {"constant", [](Random&, std::size_t, std::size_t) { return -0.25; }},
    {"two values", [](Random& r, std::size_t, std::size_t) { return r.one_in(2) ? 1.0 : -1.0; }},
    {"organ pipe",
     [](Random&, std::size_t i, std::size_t n) { return static_cast<double>(std::min(i, n - i)); }},
    {"saw teeth", [](Random&, std::size_t i, std::size_t) { return static_cast<double>(i % 37); }},
    {"one in ten NaN", [](Random& r, std::size_t,
                          std::size_t) { return r.one_in(10) ? r.pick(kNaNs) : r.fraction(); }},
    {"every other NaN", [](Random& r, std::size_t i,
                           std::size_t) { return i % 2 == 0 ? r.pick(kNaNs) : r.fraction(); }},
    {"one NaN below the middle",
     [](Random& r, std::size_t i, std::size_t n) { return i == n / 2 - 1 ? kNaN : r.fraction(); }},
    {"one NaN in the middle",
     [](Random& r, std::size_t i, std::size_t n) { return i == n / 2 ? -kNaN : r.fraction(); }},
    {"one NaN in front",
     [](Random& r, std::size_t i, std::size_t) { return i == 0 ? kNaN : r.fraction(); }},
    {"one NaN at the end",
     [](Random& r, std::size_t i, std::size_t n) { return i == n - 1 ? kNaN : r.fraction(); }},
    {"only NaN", [](Random& r, std::size_t, std::size_t) { return r.pick(kNaNs); }},
    {"random bits", [](Random& r, std::size_t, std::size_t) { return r.any_double(); }},
    {"zeros of both signs",
     [](Random& r, std::size_t, std::size_t) { return r.one_in(2) ? 0.0 : -0.0; }},
    {"zeros of both signs among others",
     [](Random& r, std::size_t, std::size_t) {
       const std::size_t kind = r.below(10);
       return kind < 4 ? 0.0 : kind < 8 ? -0.0 : r.fraction() - 0.5;
     }},
    {"a cluster of neighbouring doubles",
     [](Random& r, std::size_t, std::size_t) {
       return 1.0 + static_cast<double>(r.below(4)) * 0x1p-52;
     }},
    {"a cluster and a few far away",
     [](Random& r, std::size_t, std::size_t) {
       return r.one_in(1000) ? r.any_double() : 0.1 + static_cast<double>(r.below(50)) * 1e-15;
     }},
    {"six-digit decimals",
     [](Random& r, std::size_t, std::size_t) {
       return static_cast<double>(r.below(500)) / 1000 - 0.25;
     }},
    {"infinities of both signs",
     [](Random& r, std::size_t, std::size_t) { return r.one_in(2) ? kInfinity : -kInfinity; }},
    {"all magnitudes",
     [](Random& r, std::size_t, std::size_t) {
       return std::ldexp(r.fraction(), static_cast<int>(r.below(2000)) - 1000);
     }},
    {"growing by powers",
     [](Random&, std::size_t i, std::size_t n) {
       return std::ldexp(1.0, static_cast<int>(i * 2000 / n) - 1000);
     }},
};

void expect_medians_of_sorting(const Shape& shape, Random& random, std::size_t n) {
  SCOPED_TRACE(shape.name + (" of " + std::to_string(n)));
  Values values(n);
  for (std::size_t i = 0; i < n; ++i) values[i] = shape.value(random, i, n);
  const double median = median_by_stretches(values);
  ASSERT_EQ(bits_without_payload(vostrel::median(values)), bits_without_payload(median));
  ASSERT_EQ(bits_without_payload(vostrel::absolute_median(values)),
            bits_without_payload(median_by_stretches(absolutes(values))));
  ASSERT_EQ(bits_without_payload(vostrel::median_of_distances(values, median)),
            bits_without_payload(median_by_stretches(distances(values, median))));
}

TEST(Medians, MatchSortingOnLargeArraysOfEveryShape) {
  Random random;
  for (const Shape& shape : kShapes) {
    for (const std::size_t n : {3000u, 4097u, 100000u, 100001u}) {
      expect_medians_of_sorting(shape, random, n);
    }
  }
}

// All are in one bucket of the search, which takes them in many blocks.
TEST(Medians, CountEachOfManyNeighboursOnce) {
  std::vector<double> values;
  for (int i = 0; i <= 100'000; ++i) values.push_back(1 + i * 0x1p-40);
  EXPECT_EQ(vostrel::median(values), 1 + 50'000 * 0x1p-40);
}

// The values after NaN are sorted, and the two in the middle are the lowest of them.
TEST(Medians, AreAmongManyValuesAfterNaN) {
  std::vector<double> values(200'000);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<double>(i);
  values[99'998] = kNaN;
  EXPECT_EQ(vostrel::median(values), 99'999.5);
}

// ---- outliers ----

using Counts = std::array<std::uint64_t, 5>;

TEST(CountOutliers, IsStrictAndMeasuresFromZero) {
  // Beyond 0.15, 0.1, 0.2, 0.3 (in doubles 3 * 0.1 exceeds 0.3) and 0.4.
  EXPECT_EQ(vostrel::count_outliers(std::vector{0.1, -0.2, 0.3, -0.4}, 0.1),
            (Counts{3, 3, 2, 1, 0}));
  const std::vector<double> barely_beyond = {std::nextafter(2.0, 9), std::nextafter(3.0, 9),
                                             std::nextafter(4.0, 9)};
  EXPECT_EQ(vostrel::count_outliers(barely_beyond, 1), (Counts{3, 3, 3, 2, 1}));
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
