// Resamples, and their statistics compared with point_statistics() of the same objects.

#include "analysis/bootstrap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "analysis/resample.h"
#include "tests/support/bits.h"
#include "tests/support/data.h"
#include "tests/support/random.h"

namespace {

using vostrel::Bootstrap;
using vostrel::ExtendedStatistics;
using vostrel::Extras;
using vostrel::PointStatistics;
using vostrel::Quantiles;
using vostrel::Replicate;
using vostrel::ResidualStatistics;

TEST(Philox, MatchesReferenceValues) {
  // From the authors' list.
  const std::array<std::uint64_t, 4> zeros = {0x16554d9eca36314c, 0xdb20fe9d672d0fdc,
                                              0xd7e772cee186176b, 0x7e68b68aec7ba23b};
  EXPECT_EQ(vostrel::philox({0, 0, 0, 0}, {0, 0}), zeros);
  const std::uint64_t f = ~std::uint64_t{0};
  const std::array<std::uint64_t, 4> ones = {0x87b092c3013fe90b, 0x438c3c67be8d0224,
                                             0x9cc7d7c69cd777b6, 0xa09caebf594f0ba0};
  EXPECT_EQ(vostrel::philox({f, f, f, f}, {f, f}), ones);
}

TEST(OnesOf256, FollowFromBinomialCoefficients) {
  const std::uint64_t f = ~std::uint64_t{0};
  const std::uint64_t half = std::uint64_t{1} << 63;
  using Number = std::array<std::uint64_t, 4>;
  EXPECT_EQ(vostrel::ones_of_256(Number{0, 0, 0, 0}), 0u);
  EXPECT_EQ(vostrel::ones_of_256(Number{0, 0, 0, 1}), 1u);  // (256, 0) = 1
  EXPECT_EQ(vostrel::ones_of_256(Number{0, 0, 0, 256}), 1u);
  EXPECT_EQ(vostrel::ones_of_256(Number{0, 0, 0, 257}), 2u);  // (256, 1) = 256
  EXPECT_EQ(vostrel::ones_of_256(Number{0, 0, 0, 257 + 32639}), 2u);
  EXPECT_EQ(vostrel::ones_of_256(Number{0, 0, 0, 257 + 32640}), 3u);  // (256, 2) = 256 * 255 / 2
  EXPECT_EQ(vostrel::ones_of_256(Number{half, 0, 0, 0}), 128u);
  EXPECT_EQ(vostrel::ones_of_256(Number{f, f, f, f - 1}), 255u);
  EXPECT_EQ(vostrel::ones_of_256(Number{f, f, f, f}), 256u);
}

TEST(OnesOf256, HaveTheMeanAndVarianceOfTheBinomialDistribution) {
  // Evenly spaced numbers. The variance is 256 / 4, and it is symmetric.
  constexpr int kNumbers = 1 << 20;
  double sum = 0;
  double squares = 0;
  for (std::uint64_t i = 0; i < kNumbers; ++i) {
    const std::uint64_t word = (2 * i + 1) << 43;
    const auto ones = static_cast<double>(vostrel::ones_of_256({word, 0, 0, 0}));
    sum += ones - 128;
    squares += (ones - 128) * (ones - 128);
  }
  EXPECT_EQ(sum, 0);
  EXPECT_NEAR(squares / kNumbers, 64, 0.001);
}

// The number of draws from some of the items has the mean and the variance of the binomial
// distribution, whether or not the items end with a block.
TEST(Resample, DrawsFollowTheBinomialDistribution) {
  constexpr int kResamples = 1000;
  for (const std::size_t size : {1u, 2u, 3u, 200u, 257u, 2500u}) {
    for (const std::size_t part : {size / 3, size / 2, std::min<std::size_t>(size, 256), size}) {
      double sum = 0;
      double squares = 0;
      for (int k = 0; k < kResamples; ++k) {
        const auto indices = vostrel::resample_indices(5, static_cast<std::uint64_t>(k), size);
        ASSERT_EQ(indices.size(), size);
        ASSERT_TRUE(std::is_sorted(indices.begin(), indices.end()));
        ASSERT_LT(indices.back(), size);
        const auto end = std::lower_bound(indices.begin(), indices.end(), part);
        const auto drawn = static_cast<double>(end - indices.begin());
        sum += drawn - static_cast<double>(part);
        squares += (drawn - static_cast<double>(part)) * (drawn - static_cast<double>(part));
      }
      const auto n = static_cast<double>(size);
      const double p = static_cast<double>(part) / n;
      const double variance = n * p * (1 - p);
      EXPECT_NEAR(sum / kResamples, 0, 5 * std::sqrt(variance / kResamples)) << size << " " << part;
      EXPECT_NEAR(squares / kResamples, variance, 5 * variance * std::sqrt(3.0 / kResamples))
          << size << " " << part;
    }
  }
}

TEST(Resample, EveryItemIsDrawnEquallyOften) {
  constexpr std::size_t kSize = 1500;
  constexpr int kResamples = 2000;
  std::vector<double> counts(kSize);
  for (int k = 0; k < kResamples; ++k) {
    for (const auto i : vostrel::resample_indices(6, static_cast<std::uint64_t>(k), kSize)) {
      ++counts[i];
    }
  }
  double chi_square = 0;
  for (const double count : counts) {
    chi_square += (count - kResamples) * (count - kResamples) / kResamples;
  }
  EXPECT_NEAR(chi_square, kSize, 5 * std::sqrt(2.0 * kSize));
}

Data data_set(Random& random, std::size_t size, std::size_t kind) {
  Data data;
  for (std::size_t i = 0; i < size; ++i) {
    const double z = 3 * random.fraction();
    double r = 0.05 * random.normal();
    if (kind == 1) r /= random.normal();                          // tails without a variance
    if (kind == 2) r = std::round(r * 20) / 20;                   // repeats
    if (kind == 3) r += 1000;                                     // far from zero
    if (kind == 4) r = random.one_in(2) ? 0.25 : -0.25;           // on the bound of 1 sigma
    if (kind == 5) r *= std::pow(10, 300 * random.normal() / 3);  // squares that overflow
    if (kind == 6 && random.one_in(50)) r = kInfinity;
    if (kind == 7) r = std::fabs(r) + (random.one_in(2) ? 1.0 : 0.0);  // a gap at the median
    if (kind == 8) r = std::fabs(r) < 0.004 ? 0.0 : r;  // zeros of both signs about the median
    const double reference = kind == 4 ? 0 : kind == 8 && random.one_in(2) ? -2 - z : z;
    data.reference.push_back(reference);
    data.estimate.push_back(reference - r);
  }
  return data;
}

// NaN equals NaN of either sign.
void expect_same(double found, double expected) {
  EXPECT_EQ(bits_of(std::isnan(found) ? kNaN : found),
            bits_of(std::isnan(expected) ? kNaN : expected))
      << found << " " << expected;
}

void expect_equal(const ResidualStatistics& found, const ResidualStatistics& expected) {
  if (std::isfinite(expected.rms)) {
    EXPECT_NEAR(found.bias, expected.bias, 1e-12 * expected.rms);
    EXPECT_NEAR(found.sigma, expected.sigma, 1e-12 * expected.rms);
    EXPECT_NEAR(found.rms, expected.rms, 1e-12 * expected.rms);
  }
  expect_same(found.mad, expected.mad);
  expect_same(found.nmad, expected.nmad);
  expect_same(found.mad_delta, expected.mad_delta);
  EXPECT_EQ(found.outliers_015, expected.outliers_015);
  EXPECT_EQ(found.outliers_1sigma, expected.outliers_1sigma);
  EXPECT_EQ(found.outliers_2sigma, expected.outliers_2sigma);
  EXPECT_EQ(found.outliers_3sigma, expected.outliers_3sigma);
  EXPECT_EQ(found.outliers_4sigma, expected.outliers_4sigma);
}

// The statistics of objects, each as many times as its unit is drawn.
ExtendedStatistics plain(const Data& data, const std::vector<std::uint32_t>& unit_of,
                         const std::vector<std::size_t>& counts, const Extras& extras) {
  Data drawn;
  for (std::size_t i = 0; i < data.reference.size(); ++i) {
    for (std::size_t k = 0; k < counts[unit_of[i]]; ++k) {
      drawn.reference.push_back(data.reference[i]);
      drawn.estimate.push_back(data.estimate[i]);
    }
  }
  return vostrel::extended_statistics(drawn.reference, drawn.estimate, extras);
}

std::vector<std::size_t> drawn_counts(std::uint64_t seed, std::uint64_t number, std::size_t size) {
  std::vector<std::size_t> counts(size);
  for (const auto i : vostrel::resample_indices(seed, number, size)) ++counts[i];
  return counts;
}

void expect_equal(const PointStatistics& found, const PointStatistics& expected) {
  EXPECT_EQ(found.n, expected.n);
  expect_equal(found.delta, expected.delta);
  expect_equal(found.norm, expected.norm);
}

std::vector<double> numbers_of(const Quantiles& q) {
  std::vector<double> numbers = {q.median, q.sigma_68, q.sigma_iqr};
  numbers.insert(numbers.end(), q.percentiles.begin(), q.percentiles.end());
  numbers.insert(numbers.end(), q.outliers.begin(), q.outliers.end());
  return numbers;
}

void expect_same(const std::vector<double>& found, const std::vector<double>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i) {
    SCOPED_TRACE(i);
    expect_same(found[i], expected[i]);
  }
}

void expect_equal(const Replicate& found, const ExtendedStatistics& expected) {
  expect_equal(found.statistics, expected.point);
  expect_same(numbers_of(found.quantiles[0]), numbers_of(expected.delta));
  expect_same(numbers_of(found.quantiles[1]), numbers_of(expected.norm));
  const auto metrics = [](const vostrel::LsstMetrics& m) {
    return std::vector{m.bias, m.sigma_iqr, m.sigma_mad, m.outlier_rate};
  };
  expect_same(metrics(found.lsst), metrics(expected.lsst));
}

// Percentiles and bounds: none, the usual ones, or more than a word of marks holds.
Extras random_extras(Random& random) {
  if (random.one_in(3)) return {};
  Extras extras = {{2.5, 16, 84, 97.5}, {0.05, 0.25, 1}};
  if (random.one_in(2)) return extras;
  for (int k = 0; k < 12; ++k) extras.percentiles.push_back(100 * random.fraction());
  extras.percentiles.insert(extras.percentiles.end(), {0, 100, 50});
  extras.outliers.insert(extras.outliers.end(), {0, 0.15, 1e300});
  return extras;
}

// Objects, or groups of them that are shifted together.
TEST(Bootstrap, MatchesThePlainLoop) {
  Random random;
  for (int round = 0; round < rounds(800); ++round) {
    const std::size_t size = 2 + random.below(random.one_in(10) ? 9000 : 300);
    Data data = data_set(random, size, random.below(9));
    const bool grouped = random.one_in(2);
    const std::size_t units =
        grouped ? 2 + random.below(std::min<std::size_t>(size - 1, 60)) : size;
    std::vector<std::uint32_t> unit_of(size);
    std::vector<double> shifts(units, 0);
    for (double& shift : shifts) shift = random.one_in(3) ? 0.03 * random.normal() : 0;
    for (std::size_t i = 0; i < size; ++i) {
      unit_of[i] = static_cast<std::uint32_t>(i < units ? i : random.below(units));
      if (grouped) data.estimate[i] += shifts[unit_of[i]];
    }
    Bootstrap bootstrap = grouped ? Bootstrap(data.reference, data.estimate, 3, unit_of, units)
                                  : Bootstrap(data.reference, data.estimate, 3);
    const Extras extras = random_extras(random);
    bootstrap.ask(extras);
    if (!random.one_in(10)) {
      bootstrap.order(false);
      bootstrap.order(true);
    }
    const std::uint64_t first = random.below(1000);
    std::vector<Replicate> found(random.below(10));
    bootstrap.run(first, found, random.one_in(2));
    for (std::size_t k = 0; k < found.size(); ++k) {
      expect_equal(found[k], plain(data, unit_of, drawn_counts(3, first + k, units), extras));
    }
    const std::size_t left_out = random.below(units);
    std::vector<std::size_t> others(units, 1);
    others[left_out] = 0;
    std::vector<Replicate> one(1);
    bootstrap.leave_out(left_out, one);
    expect_equal(one[0], plain(data, unit_of, others, extras));
    if (HasFailure()) {
      ADD_FAILURE() << size << " " << units;
      return;
    }
  }
}

// Without this, a window in the wrong place would cost only time.
TEST(Bootstrap, WindowsAnswerOrdinaryResamples) {
  Random random;
  for (const std::size_t size : {60u, 301u, 3000u}) {
    const Data data = data_set(random, size, 0);
    std::vector<std::uint32_t> groups(size);
    for (std::size_t i = 0; i < size; ++i) groups[i] = static_cast<std::uint32_t>(i % 30);
    for (const bool grouped : {false, true}) {
      Bootstrap bootstrap = grouped ? Bootstrap(data.reference, data.estimate, 3, groups, 30)
                                    : Bootstrap(data.reference, data.estimate, 3);
      bootstrap.ask({{2.5, 97.5, 0}, {0.2}});
      bootstrap.order(false);
      bootstrap.order(true);
      std::vector<Replicate> found(100);
      EXPECT_LE(bootstrap.run(0, found, false), 1u) << size << grouped;
    }
  }
}

TEST(Bootstrap, GroupsAreDrawnWhole) {
  const Data data = {{0, 0, 0, 0, 0}, {-1, -2, -4, -8, -16}};
  const std::vector<std::uint32_t> groups = {0, 1, 0, 2, 1};
  const Bootstrap bootstrap(data.reference, data.estimate, 9, groups, 3);
  std::vector<Replicate> found(50);
  bootstrap.run(0, found, false);
  for (std::size_t k = 0; k < found.size(); ++k) {
    double sum = 0;
    std::uint64_t n = 0;
    for (const auto group : vostrel::resample_indices(9, k, 3)) {
      sum += std::array{1 + 4, 2 + 16, 8}[group];
      n += std::array{2u, 2u, 1u}[group];
    }
    EXPECT_EQ(found[k].statistics.n, n);
    EXPECT_DOUBLE_EQ(found[k].statistics.delta.bias, sum / static_cast<double>(n));
  }
}

// Residuals 1, 2, 4, 9: mean 4, squares about it 9, 4, 0, 25, mean 9.5. Squares about zero 1, 4,
// 16, 81, mean 25.5.
TEST(Bootstrap, ErrorsOfMoments) {
  const Data data = {{0, 0, 0, 0}, {-1, -2, -4, -9}};
  const Bootstrap objects(data.reference, data.estimate, 1);
  ResidualStatistics values{};
  values.bias = 4;
  values.sigma = std::sqrt(9.5);
  values.rms = std::sqrt(25.5);
  const auto errors = objects.errors(false, values);
  EXPECT_DOUBLE_EQ(errors.bias, std::sqrt(38.0) / 4);
  const double about = 0.25 + 30.25 + 90.25 + 240.25;
  EXPECT_DOUBLE_EQ(errors.log_sigma, std::sqrt(about) / 4 / (2 * 9.5));
  const double zero = 600.25 + 462.25 + 90.25 + 3080.25;
  EXPECT_DOUBLE_EQ(errors.log_rms, std::sqrt(zero) / 4 / (2 * 25.5));
  const double fourth = 0.0625 + 30.25 * 30.25 + 90.25 * 90.25 + 240.25 * 240.25;
  EXPECT_DOUBLE_EQ(objects.effective_units(false)[0], about * about / fourth);
  // Groups 1, 9 and 2, 4: their sums are 2 and -2, of squares 34 - 19 and 4 - 19.
  const std::vector<std::uint32_t> groups = {0, 1, 1, 0};
  const Bootstrap grouped(data.reference, data.estimate, 1, groups, 2);
  EXPECT_DOUBLE_EQ(grouped.errors(false, values).bias, std::sqrt(8.0) / 4);
  EXPECT_DOUBLE_EQ(grouped.errors(false, values).log_sigma, std::sqrt(450.0) / 4 / (2 * 9.5));
  EXPECT_DOUBLE_EQ(grouped.effective_units(false)[0], 2);
}

// The sums of a resample give the errors that its objects have by definition.
TEST(Bootstrap, ErrorsOfResamples) {
  Random random;
  const Data data = data_set(random, 300, 0);
  std::vector<std::uint32_t> groups(300);
  for (std::size_t i = 0; i < 300; ++i) groups[i] = static_cast<std::uint32_t>(i % 40);
  for (const bool grouped : {false, true}) {
    const auto make = [&] {
      return grouped ? Bootstrap(data.reference, data.estimate, 3, groups, 40)
                     : Bootstrap(data.reference, data.estimate, 3);
    };
    Bootstrap fast = make();
    fast.order(false);
    fast.order(true);
    std::vector<Replicate> found(20);
    std::vector<Replicate> expected(20);
    fast.run(0, found, true);
    make().run(0, expected, true);
    for (std::size_t k = 0; k < 20; ++k) {
      for (std::size_t i = 0; i < 2; ++i) {
        const auto& a = found[k].errors[i];
        const auto& b = expected[k].errors[i];
        EXPECT_NEAR(a.bias, b.bias, 1e-10 * b.bias);
        EXPECT_NEAR(a.log_sigma, b.log_sigma, 1e-10 * b.log_sigma);
        EXPECT_NEAR(a.log_rms, b.log_rms, 1e-10 * b.log_rms);
      }
    }
  }
}

TEST(Bootstrap, StopsWhenAsked) {
  const std::vector<double> values(3000, 0.5);
  const Bootstrap bootstrap(values, values, 1);
  std::vector<Replicate> found(3);
  const auto stop = [] { throw std::runtime_error("enough"); };
  EXPECT_THROW(bootstrap.run(0, found, false, stop), std::runtime_error);
}

}  // namespace
