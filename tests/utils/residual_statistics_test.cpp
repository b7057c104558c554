// Residuals, moments, medians and outliers of the class. Each statistic exists twice, so the tests
// run for delta and for deltaNorm, while the members of the other residual hold other values.

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/open_utils.h"
#include "utils/lines.h"

namespace {

using Values = std::vector<double>;

// ---- residuals ----------------------------------------------------------------------------------

TEST(Residuals, MatchTheirFormulas) {
  OpenUtils run = loaded({0.5, 1.0, 0.0}, {0.4, 1.2, 0.25});
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta, (Values{0.5 - 0.4, 1.0 - 1.2, -0.25}));
  EXPECT_EQ(run.deltaNorm, (Values{(0.5 - 0.4) / 1.5, (1.0 - 1.2) / 2.0, -0.25}));
  EXPECT_DOUBLE_EQ(run.delta[0], 0.1);
  EXPECT_NEAR(run.delta[1], -0.2, 1e-15);
  EXPECT_NEAR(run.deltaNorm[1], -0.1, 1e-15);
}

TEST(Residuals, AreEmptyWithoutData) {
  OpenUtils run = empty_set();
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_TRUE(run.delta.empty());
  EXPECT_TRUE(run.deltaNorm.empty());
}

TEST(Residuals, BecomeInfiniteOrNaNForAReferenceOfMinusOne) {
  OpenUtils run = loaded({-1, -1, -1}, {0, -2, -1});
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta, (Values{-1, 1, 0}));
  EXPECT_EQ(run.deltaNorm[0], -kInfinity);
  EXPECT_EQ(run.deltaNorm[1], kInfinity);
  EXPECT_TRUE(std::isnan(run.deltaNorm[2]));
}

TEST(Residuals, AppendOnASecondCall) {
  OpenUtils run = loaded({1, 2}, {0.5, 4});
  run.CalculateDelta();
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta, (Values{0.5, -2, 0.5, -2}));
  EXPECT_EQ(run.deltaNorm, (Values{0.25, -2 / 3.0, 0.25, -2 / 3.0}));
}

TEST(Residuals, HaveOneEntryPerIdentifier) {
  OpenUtils run = loaded({1, 2, 3}, {0, 0, 0});
  run.id = {8, 9};
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta, (Values{1, 2}));
  EXPECT_EQ(run.deltaNorm, (Values{1 / 2.0, 2 / 3.0}));
}

// ---- the statistics of either residual ----------------------------------------------------------

/// The members and methods of one residual.
struct Residual {
  const char* name;
  Values OpenUtils::*values;
  double OpenUtils::*bias;
  double OpenUtils::*sigma;
  double OpenUtils::*rms;
  double OpenUtils::*mad;
  double OpenUtils::*nmad;
  double OpenUtils::*madDeltaz;
  std::array<double OpenUtils::*, 5> outliers;  // beyond 0.15 and 1, 2, 3 and 4 sigma
  void (UTILS::*calculateBias)();
  void (UTILS::*calculateSigma)();
  void (UTILS::*calculateRMS)();
  void (UTILS::*calculateMAD)();
  void (UTILS::*calculateNMAD)();
  void (UTILS::*calculateMADDeltaz)();
  void (UTILS::*calculateOutliers)();
};

const Residual kDelta = {
    "delta",
    &OpenUtils::delta,
    &OpenUtils::bias,
    &OpenUtils::sigma,
    &OpenUtils::rms,
    &OpenUtils::mad,
    &OpenUtils::nmad,
    &OpenUtils::madDeltaz,
    {&OpenUtils::outliersConstant, &OpenUtils::outliers1, &OpenUtils::outliers2,
     &OpenUtils::outliers3, &OpenUtils::outliers4},
    &UTILS::CalculateBias,
    &UTILS::CalculateSigma,
    &UTILS::CalculateRMS,
    &UTILS::CalculateMAD,
    &UTILS::CalculateNMAD,
    &UTILS::CalculateMADDeltaz,
    &UTILS::CalculateOutliers,
};

const Residual kDeltaNorm = {
    "deltaNorm",
    &OpenUtils::deltaNorm,
    &OpenUtils::biasNorm,
    &OpenUtils::sigmaNorm,
    &OpenUtils::rmsNorm,
    &OpenUtils::madNorm,
    &OpenUtils::nmadNorm,
    &OpenUtils::madDeltazNorm,
    {&OpenUtils::outliersConstantNorm, &OpenUtils::outliers1Norm, &OpenUtils::outliers2Norm,
     &OpenUtils::outliers3Norm, &OpenUtils::outliers4Norm},
    &UTILS::CalculateBiasNorm,
    &UTILS::CalculateSigmaNorm,
    &UTILS::CalculateRMSNorm,
    &UTILS::CalculateMADNorm,
    &UTILS::CalculateNMADNorm,
    &UTILS::CalculateMADDeltazNorm,
    &UTILS::CalculateOutliersNorm,
};

// How GoogleTest shows the parameter of a test.
void PrintTo(const Residual& residual, std::ostream* out) { *out << residual.name; }

/// A test of one residual. The other one must be neither read nor changed.
class EachResidual : public testing::TestWithParam<Residual> {
 protected:
  EachResidual() {
    const Residual& other = the_other();
    run_.*other.values = kOtherValues;
    for (const auto member :
         {other.bias, other.sigma, other.rms, other.mad, other.nmad, other.madDeltaz}) {
      run_.*member = kOtherStatistic;
    }
    for (const auto member : other.outliers) run_.*member = kOtherStatistic;
  }

  void TearDown() override {
    const Residual& other = the_other();
    EXPECT_EQ(run_.*other.values, kOtherValues);
    for (const auto member :
         {other.bias, other.sigma, other.rms, other.mad, other.nmad, other.madDeltaz}) {
      EXPECT_EQ(run_.*member, kOtherStatistic);
    }
    for (const auto member : other.outliers) EXPECT_EQ(run_.*member, kOtherStatistic);
  }

  /// A data set of these residuals, with as many identifiers.
  void set(const Values& residuals) {
    run_.id.assign(residuals.size(), 7);
    values() = residuals;
    for (const auto member : GetParam().outliers) run_.*member = 0;
  }

  Values& values() { return run_.*GetParam().values; }
  double& bias() { return run_.*GetParam().bias; }
  double& sigma() { return run_.*GetParam().sigma; }
  double& rms() { return run_.*GetParam().rms; }
  double& mad() { return run_.*GetParam().mad; }
  double& nmad() { return run_.*GetParam().nmad; }
  double& mad_of_delta() { return run_.*GetParam().madDeltaz; }
  /// Beyond 0.15 and 1, 2, 3 and 4 sigma.
  Values outliers() const {
    Values values;
    for (const auto member : GetParam().outliers) values.push_back(run_.*member);
    return values;
  }

  void calculate_moments() {
    (run_.*GetParam().calculateBias)();
    (run_.*GetParam().calculateSigma)();
    (run_.*GetParam().calculateRMS)();
  }
  void calculate_medians() {
    (run_.*GetParam().calculateMADDeltaz)();
    (run_.*GetParam().calculateMAD)();
    (run_.*GetParam().calculateNMAD)();
  }
  void calculate_outliers() { (run_.*GetParam().calculateOutliers)(); }
  void calculate_sigma() { (run_.*GetParam().calculateSigma)(); }
  void calculate_nmad() { (run_.*GetParam().calculateNMAD)(); }

  OpenUtils run_ = empty_set();

 private:
  static const Residual& the_other() {
    return GetParam().name == std::string("delta") ? kDeltaNorm : kDelta;
  }

  // Far from all values below, and more values than any test has.
  const Values kOtherValues = {-5e5, 3e5, 7e5, -1e5, 9e5, 2e5, -4e5, 6e5, 1e5};
  static constexpr double kOtherStatistic = -98765;
};

INSTANTIATE_TEST_SUITE_P(Of, EachResidual, testing::Values(kDelta, kDeltaNorm),
                         [](const auto& test) { return std::string(test.param.name); });

struct Moments {
  const char* name;
  Values residuals;
  double bias, sigma, rms;
};

TEST_P(EachResidual, HasMeanPopulationDeviationAndRootMeanSquare) {
  const Moments kMoments[] = {
      {"1 to 4", {1, 2, 3, 4}, 2.5, std::sqrt(1.25), std::sqrt(7.5)},
      {"single residual", {-0.375}, -0.375, 0, 0.375},
      {"all equal", {-3, -3, -3}, -3, 0, 3},
      {"zeros", {0, 0}, 0, 0, 0},
      {"mean of zero", {-1, 1}, 0, 1, 1},
  };
  for (const Moments& row : kMoments) {
    SCOPED_TRACE(row.name);
    set(row.residuals);
    calculate_moments();
    EXPECT_EQ(bias(), row.bias);
    EXPECT_EQ(sigma(), row.sigma);
    EXPECT_EQ(rms(), row.rms);
    calculate_moments();
    EXPECT_EQ(bias(), row.bias);
    EXPECT_EQ(sigma(), row.sigma);
    EXPECT_EQ(rms(), row.rms);
    EXPECT_EQ(values(), row.residuals);
  }
}

TEST_P(EachResidual, HasNaNStatisticsWithoutData) {
  set({});
  calculate_moments();
  calculate_medians();
  calculate_outliers();
  for (const double value : {bias(), sigma(), rms(), mad(), nmad(), mad_of_delta()}) {
    EXPECT_TRUE(std::isnan(value));
  }
  for (const double value : outliers()) EXPECT_TRUE(std::isnan(value));
}

TEST_P(EachResidual, SumsInIndexOrder) {
  // 1e16 + 1 is 1e16 again: another order keeps at least one of the ones.
  set({1e16, 1, 1, -1e16});
  calculate_moments();
  EXPECT_EQ(bias(), 0.0);
  set({1, 1, 1e16, -1e16});
  calculate_moments();
  EXPECT_EQ(bias(), 0.5);

  set({1e8, 1, 1, 1});
  calculate_moments();
  EXPECT_EQ(rms(), std::sqrt(1e16 / 4));
  bias() = 0;
  calculate_sigma();
  EXPECT_EQ(sigma(), std::sqrt(1e16 / 4));
  set({1, 1, 1, 1e8});
  calculate_moments();
  EXPECT_EQ(rms(), std::sqrt((3 + 1e16) / 4));
  bias() = 0;
  calculate_sigma();
  EXPECT_EQ(sigma(), std::sqrt((3 + 1e16) / 4));
}

TEST_P(EachResidual, MomentsUseOneResidualPerIdentifier) {
  set({1, 3, 100, 100});
  run_.id = {0, 1};
  calculate_moments();
  EXPECT_EQ(bias(), 2);
  EXPECT_EQ(sigma(), 1);
  EXPECT_EQ(rms(), std::sqrt(5.0));
}

TEST_P(EachResidual, TakesSigmaAboutTheStoredBias) {
  set({1, 2, 3, 4});
  calculate_sigma();
  EXPECT_EQ(sigma(), std::sqrt(7.5));  // the bias is still 0
  bias() = 10;
  calculate_sigma();
  EXPECT_EQ(sigma(), std::sqrt((81.0 + 64 + 49 + 36) / 4));
}

TEST_P(EachResidual, PropagatesInfinitiesAndNaNIntoMoments) {
  set({1, kInfinity});
  calculate_moments();
  EXPECT_EQ(bias(), kInfinity);
  EXPECT_TRUE(std::isnan(sigma()));
  EXPECT_EQ(rms(), kInfinity);
  set({kInfinity, -kInfinity});
  calculate_moments();
  EXPECT_TRUE(std::isnan(bias()));
  set({1, kNaN});
  calculate_moments();
  EXPECT_TRUE(std::isnan(rms()));
}

struct Robust {
  const char* name;
  Values residuals;
  double mad, nmad, mad_of_delta;
};

TEST_P(EachResidual, HasMediansAboutZeroAndAboutTheMedian) {
  const Robust kRobust[] = {
      {"-3, 1, 2", {-3, 1, 2}, 2, 2.9652, 1},
      {"1 to 4", {1, 2, 3, 4}, 2.5, 3.7065, 1},
      {"single residual", {-0.5}, 0.5, 0.7413, 0},
      {"all of one sign", {-10, -11, -12, -13, -14}, 12, 17.7912, 1},
      {"all equal", {2, 2, 2, 2}, 2, 2.9652, 0},
      {"one infinity", {1, 2, kInfinity}, 2, 2.9652, 1},
  };
  for (const Robust& row : kRobust) {
    SCOPED_TRACE(row.name);
    set(row.residuals);
    calculate_medians();
    calculate_medians();
    EXPECT_EQ(mad(), row.mad);
    EXPECT_EQ(nmad(), row.mad * 1.4826);
    EXPECT_NEAR(nmad(), row.nmad, 1e-14);
    EXPECT_EQ(mad_of_delta(), row.mad_of_delta);
    EXPECT_EQ(values(), row.residuals);
  }
}

TEST_P(EachResidual, MediansUseTheWholeVector) {
  set({1, 2, 30});
  run_.id = {0};
  calculate_medians();
  EXPECT_EQ(mad(), 2);
  EXPECT_EQ(mad_of_delta(), 1);
}

TEST_P(EachResidual, TakesNmadFromTheStoredMad) {
  set({5});
  mad() = 2;
  calculate_nmad();
  EXPECT_EQ(nmad(), 2 * 1.4826);
}

struct Outliers {
  const char* name;
  Values residuals;
  double sigma;
  Values percent;  // beyond 0.15 and 1, 2, 3 and 4 sigma
};

TEST_P(EachResidual, CountsOutliersStrictlyBeyondEachBound) {
  const double third = 1 / 3.0 * 100;
  const Outliers kOutliers[] = {
      {"one for each bound", {1.5, -2.5, 3.5, -4.5, 0.1}, 1, {80, 80, 60, 40, 20}},
      {"on a bound is inside", {1, 2, 3, 4}, 1, {100, 75, 50, 25, 0}},
      {"0.15 itself is inside", {0.15, -0.15}, 1, {0, 0, 0, 0, 0}},
      {"the next number is outside", {0.65 - 0.5, -0.15}, 1, {50, 0, 0, 0, 0}},
      {"cumulative", {-9, 0, 0, 0}, 1, {25, 25, 25, 25, 25}},
      {"zeros against zero", {0, 0}, 0, {0, 0, 0, 0, 0}},
      {"any other number against zero", {5e-324, 0}, 0, {0, 50, 50, 50, 50}},
      {"NaN is inside", {kNaN, 1}, 0.01, {50, 50, 50, 50, 50}},
      {"NaN as sigma", {1, 1}, kNaN, {100, 0, 0, 0, 0}},
      {"infinite residual", {kInfinity, 0}, 1, {50, 50, 50, 50, 50}},
      {"infinite sigma", {kInfinity, 0}, kInfinity, {50, 0, 0, 0, 0}},
      {"a third", {1, 0, 0}, 0.1, {third, third, third, third, third}},
      // 3 * 0.1 is 0.30000000000000004. Only the number after it is outside.
      {"factor times sigma",
       {0.3, 3.0 * 0.1, std::nextafter(3.0 * 0.1, 1.0), 0},
       0.1,
       {75, 75, 75, 25, 0}},
  };
  for (const Outliers& row : kOutliers) {
    SCOPED_TRACE(row.name);
    set(row.residuals);
    sigma() = row.sigma;
    calculate_outliers();
    EXPECT_EQ(outliers(), row.percent);
  }
}

TEST_P(EachResidual, MeasuresOutliersFromZeroInUnitsOfItsOwnSigma) {
  set({0.1, -0.2, 0.3, -0.4});
  calculate_moments();
  calculate_outliers();
  EXPECT_NEAR(bias(), -0.05, 1e-15);
  EXPECT_NEAR(sigma(), 0.26926, 5e-6);
  EXPECT_EQ(outliers(), (Values{75, 50, 0, 0, 0}));

  set({0.2, 0.2});
  calculate_moments();
  calculate_outliers();
  EXPECT_EQ(bias(), 0.2);
  EXPECT_EQ(sigma(), 0);
  EXPECT_EQ(outliers(), (Values{100, 100, 100, 100, 100}));
}

TEST_P(EachResidual, AddsOutliersToThePercentagesOfAnEarlierCall) {
  set({1, 0, 0, 0});
  sigma() = 0.3;
  calculate_outliers();
  calculate_outliers();
  // (25 + 1) / 4 * 100; beyond 4 sigma = 1.2 there is none.
  EXPECT_EQ(outliers(), (Values{650, 650, 650, 650, 0}));

  // Starting from a third, every addition of 1 rounds.
  set({1, 1, 1, 1, 1, 1, 1});
  sigma() = 0;
  for (const auto member : GetParam().outliers) run_.*member = 1 / 3.0;
  calculate_outliers();
  double sum = 1 / 3.0;
  for (int i = 0; i < 7; ++i) sum += 1.0;
  EXPECT_EQ(outliers(), Values(5, sum / 7 * 100.0));
}

TEST_P(EachResidual, OutliersUseTheWholeVector) {
  set({1, 1, 0, 0});
  run_.id = {0};
  sigma() = 0.4;
  calculate_outliers();
  EXPECT_EQ(outliers(), (Values{50, 50, 50, 0, 0}));
}

// ---- medians of any values ----------------------------------------------------------------------

struct Median {
  const char* name;
  Values values;
  int n;
  double median;
};

TEST(CalculateMedian, ReturnsTheMedianOfTheFirstValues) {
  const Median kMedians[] = {
      {"odd", {3, 1, 2}, 3, 2},
      {"even", {4, 1, 3, 2}, 4, 2.5},
      {"only the first three", {5, 1, 9, 7}, 3, 5},
      {"one", {-7}, 1, -7},
      {"two", {1, 2}, 2, 1.5},
      {"first of many", {8, 1, 2, 3}, 1, 8},
      {"infinities are ordinary", {kInfinity, 1, -kInfinity}, 3, 1},
      {"half of an overflowing sum", {1.7e308, 1.7e308}, 2, kInfinity},
      {"a NaN in front stays there", {kNaN, 2, 1}, 3, 1},
      {"a NaN at the end stays there", {2, 1, kNaN}, 3, 2},
      {"nothing moves past a NaN", {9, 8, kNaN, 1, 0, 2, 3}, 7, 0},
  };
  const OpenUtils run = empty_set();
  for (const Median& row : kMedians) {
    EXPECT_EQ(run.CalculateMedian(row.values, row.n), row.median) << row.name;
  }
  EXPECT_TRUE(std::isnan(run.CalculateMedian({1, kNaN, 0}, 3)));
  EXPECT_TRUE(std::isnan(run.CalculateMedian({kInfinity, -kInfinity}, 2)));
}

TEST(CalculateMedian, KeepsTheOrderOfTheTwoZeros) {
  const OpenUtils run = empty_set();
  EXPECT_EQ(bits_of(run.CalculateMedian({0.0, -0.0, 0.0}, 3)), bits_of(-0.0));
  EXPECT_EQ(bits_of(run.CalculateMedian({-0.0, 0.0, -0.0}, 3)), bits_of(0.0));
  EXPECT_EQ(bits_of(run.CalculateMedian({1, -0.0, 0.0, -1, 0.0}, 5)), bits_of(0.0));
  EXPECT_EQ(bits_of(run.CalculateMedian({-0.0, -0.0}, 2)), bits_of(-0.0));
  EXPECT_EQ(bits_of(run.CalculateMedian({-0.0, 0.0}, 2)), bits_of(0.0));
}

TEST(CalculateAbsMedian, ReturnsTheMedianOfAbsoluteValues) {
  const OpenUtils run = empty_set();
  EXPECT_EQ(run.CalculateAbsMedian({-3, 1, 2}, 3), 2);
  EXPECT_EQ(run.CalculateAbsMedian({-4, 1, 3, -2}, 4), 2.5);
  EXPECT_EQ(run.CalculateAbsMedian({-5, 1, 9, 7}, 3), 5);
  EXPECT_EQ(run.CalculateAbsMedian({-kInfinity, 1, -2}, 3), 2);
  EXPECT_EQ(bits_of(run.CalculateAbsMedian({-0.0}, 1)), bits_of(0.0));
  EXPECT_EQ(bits_of(run.CalculateAbsMedian({-kNaN}, 1)), bits_of(std::fabs(kNaN)));
}

TEST(CalculateMedian, ReturnsNaNForNoValues) {
  const OpenUtils run = empty_set();
  EXPECT_TRUE(std::isnan(run.CalculateMedian({}, 0)));
  EXPECT_TRUE(std::isnan(run.CalculateMedian({1, 2, 3}, 0)));
  EXPECT_TRUE(std::isnan(run.CalculateAbsMedian({}, 0)));
}

TEST(CalculateMedian, ThrowsForANegativeCount) {
  const OpenUtils run = empty_set();
  for (const int n : {-1, -2147483647 - 1}) {
    EXPECT_THROW(static_cast<void>(run.CalculateMedian({1, 2}, n)), std::bad_array_new_length);
    EXPECT_THROW(static_cast<void>(run.CalculateAbsMedian({1, 2}, n)), std::bad_array_new_length);
  }
}

// ---- all at once --------------------------------------------------------------------------------

TEST(CalculateStatistics, MatchesTheSeparateMethods) {
  std::vector<double> zspec;
  std::vector<double> zphot;
  double residual = 0.1;
  for (int i = 0; i < 30; ++i) {
    zspec.push_back(i * i % 7 / 4.0);
    zphot.push_back(zspec.back() - residual);
    residual *= 1.1;
  }
  zspec.push_back(0);
  zphot.push_back(kInfinity);
  OpenUtils one_by_one = loaded(zspec, zphot);
  one_by_one.id.pop_back();  // the last object doesn't count
  OpenUtils at_once = one_by_one;
  calculate_each(one_by_one);
  at_once.CalculateStatistics();
  at_once.CalculateStatistics();  // percentages don't add up
  EXPECT_TRUE(at_once.delta.empty());
  EXPECT_TRUE(at_once.deltaNorm.empty());

  const vostrel::PointStatistics expected = statistics_of(one_by_one);
  const vostrel::PointStatistics actual = statistics_of(at_once);
  std::set<double> values;
  for (const auto& statistic : vostrel::kStatistics) {
    const auto member = statistic.member;
    values.insert({expected.delta.*member, expected.norm.*member});
    EXPECT_EQ(bits_of(actual.delta.*member), bits_of(expected.delta.*member)) << statistic.label;
    EXPECT_EQ(bits_of(actual.norm.*member), bits_of(expected.norm.*member)) << statistic.label;
  }
  EXPECT_EQ(values.size(), 2 * vostrel::kStatistics.size());  // otherwise a mix-up may not show
}

}  // namespace
