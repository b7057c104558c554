// Residuals, moments, medians and outliers. Every statistic exists twice; what is said of one kind
// of residual is tried on both.

#include <gtest/gtest.h>

#include <cmath>
#include <new>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/open_utils.h"

namespace {

using Values = std::vector<double>;

// ---- residuals ----------------------------------------------------------------------------------

TEST(Residuals, AreReferenceMinusEstimateAndThatOverOnePlusReference) {
  OpenUtils run = loaded({0.5, 1.0, 0.0}, {0.4, 1.2, 0.25});
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta, (Values{0.5 - 0.4, 1.0 - 1.2, -0.25}));
  EXPECT_EQ(run.deltaNorm, (Values{(0.5 - 0.4) / 1.5, (1.0 - 1.2) / 2.0, -0.25}));
  EXPECT_DOUBLE_EQ(run.delta[0], 0.1);
  EXPECT_NEAR(run.delta[1], -0.2, 1e-15);
  EXPECT_NEAR(run.deltaNorm[1], -0.1, 1e-15);
}

TEST(Residuals, OfNoDataAreEmpty) {
  OpenUtils run = empty_set();
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_TRUE(run.delta.empty());
  EXPECT_TRUE(run.deltaNorm.empty());
}

TEST(Residuals, WithAReferenceOfMinusOneAreInfiniteOrNotANumber) {
  OpenUtils run = loaded({-1, -1, -1}, {0, -2, -1});
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta, (Values{-1, 1, 0}));
  EXPECT_EQ(run.deltaNorm[0], -kInfinity);
  EXPECT_EQ(run.deltaNorm[1], kInfinity);
  EXPECT_TRUE(std::isnan(run.deltaNorm[2]));
}

TEST(Residuals, AreAppendedOnASecondCall) {
  OpenUtils run = loaded({1, 2}, {0.5, 4});
  run.CalculateDelta();
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta, (Values{0.5, -2, 0.5, -2}));
  EXPECT_EQ(run.deltaNorm, (Values{0.25, -2 / 3.0, 0.25, -2 / 3.0}));
}

TEST(Residuals, GoByTheCountOfIdentifiers) {
  OpenUtils run = loaded({1, 2, 3}, {0, 0, 0});
  run.id = {8, 9};
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  EXPECT_EQ(run.delta.size(), 2u);
  EXPECT_EQ(run.deltaNorm.size(), 2u);
}

// ---- moments ------------------------------------------------------------------------------------

OpenUtils moments_of(Values residuals) {
  OpenUtils run = with_residuals(std::move(residuals));
  run.CalculateBias();
  run.CalculateBiasNorm();
  run.CalculateSigma();
  run.CalculateSigmaNorm();
  run.CalculateRMS();
  run.CalculateRMSNorm();
  return run;
}

struct Moments {
  const char* name;
  Values residuals;
  double bias, sigma, rms;
};

TEST(Moments, AreMeanPopulationDeviationAndRootMeanSquare) {
  const Moments kMoments[] = {
      {"1 to 4", {1, 2, 3, 4}, 2.5, std::sqrt(1.25), std::sqrt(7.5)},
      {"single residual", {-0.375}, -0.375, 0, 0.375},
      {"all equal", {-3, -3, -3}, -3, 0, 3},
      {"zeros", {0, 0}, 0, 0, 0},
      {"mean of zero", {-1, 1}, 0, 1, 1},
  };
  for (const Moments& row : kMoments) {
    SCOPED_TRACE(row.name);
    const OpenUtils run = moments_of(row.residuals);
    EXPECT_EQ(run.getBias(), row.bias);
    EXPECT_EQ(run.getBiasNorm(), row.bias);
    EXPECT_EQ(run.getSigma(), row.sigma);
    EXPECT_EQ(run.getSigmaNorm(), row.sigma);
    EXPECT_EQ(run.getRMS(), row.rms);
    EXPECT_EQ(run.getRMSNorm(), row.rms);
  }
  EXPECT_NEAR(moments_of({1, 2, 3, 4}).getSigma(), 1.1180, 5e-5);
  EXPECT_NEAR(moments_of({1, 2, 3, 4}).getRMS(), 2.7386, 5e-5);
}

TEST(Moments, OfNoDataAreNotANumber) {
  const OpenUtils run = moments_of({});
  for (const double value : {run.getBias(), run.getBiasNorm(), run.getSigma(), run.getSigmaNorm(),
                             run.getRMS(), run.getRMSNorm()}) {
    EXPECT_TRUE(std::isnan(value));
  }
}

TEST(Moments, AreSummedInIndexOrder) {
  // 1e16 + 1 is 1e16 again: any other order keeps at least one of the ones.
  EXPECT_EQ(moments_of({1e16, 1, 1, -1e16}).getBias(), 0.0);
  EXPECT_EQ(moments_of({1, 1, 1e16, -1e16}).getBias(), 0.5);
  EXPECT_EQ(moments_of({1e8, 1, 1, 1}).getRMS(), std::sqrt(1e16 / 4));
  EXPECT_EQ(moments_of({1, 1, 1, 1e8}).getRMS(), std::sqrt((3 + 1e16) / 4));
}

TEST(Moments, CountOnlyAsManyResidualsAsThereAreIdentifiers) {
  OpenUtils run = with_residuals({1, 3, 100, 100});
  run.id = {0, 1};
  run.CalculateBias();
  run.CalculateBiasNorm();
  run.CalculateSigma();
  run.CalculateSigmaNorm();
  run.CalculateRMS();
  run.CalculateRMSNorm();
  EXPECT_EQ(run.getBias(), 2);
  EXPECT_EQ(run.getBiasNorm(), 2);
  EXPECT_EQ(run.getSigma(), 1);
  EXPECT_EQ(run.getSigmaNorm(), 1);
  EXPECT_EQ(run.getRMS(), std::sqrt(5.0));
  EXPECT_EQ(run.getRMSNorm(), std::sqrt(5.0));
}

TEST(Moments, SigmaIsAboutTheStoredBias) {
  OpenUtils run = with_residuals({1, 2, 3, 4});
  run.CalculateSigma();
  run.CalculateSigmaNorm();
  EXPECT_EQ(run.getSigma(), std::sqrt(7.5));  // the bias is still 0
  EXPECT_EQ(run.getSigmaNorm(), std::sqrt(7.5));
  run.bias = 10;
  run.biasNorm = 5;
  run.CalculateSigma();
  run.CalculateSigmaNorm();
  EXPECT_EQ(run.getSigma(), std::sqrt((81.0 + 64 + 49 + 36) / 4));
  EXPECT_EQ(run.getSigmaNorm(), std::sqrt((16.0 + 9 + 4 + 1) / 4));
}

TEST(Moments, AreTheSameOnASecondCall) {
  OpenUtils run = moments_of({0.1, -0.2, 0.3});
  const double bias = run.getBias(), sigma = run.getSigma(), rms = run.getRMS();
  run.CalculateBias();
  run.CalculateSigma();
  run.CalculateRMS();
  EXPECT_EQ(run.getBias(), bias);
  EXPECT_EQ(run.getSigma(), sigma);
  EXPECT_EQ(run.getRMS(), rms);
}

TEST(Moments, CarryInfinitiesAndNotANumbers) {
  EXPECT_EQ(moments_of({1, kInfinity}).getBias(), kInfinity);
  EXPECT_TRUE(std::isnan(moments_of({1, kInfinity}).getSigma()));
  EXPECT_EQ(moments_of({1, -kInfinity}).getRMS(), kInfinity);
  EXPECT_TRUE(std::isnan(moments_of({kInfinity, -kInfinity}).getBias()));
  EXPECT_TRUE(std::isnan(moments_of({1, kNaN}).getRMS()));
}

// ---- medians ------------------------------------------------------------------------------------

struct Median {
  const char* name;
  Values values;
  int n;
  double median;
};

TEST(CalculateMedian, IsTheMiddleOfTheFirstValues) {
  const Median kMedians[] = {
      {"odd", {3, 1, 2}, 3, 2},
      {"even", {4, 1, 3, 2}, 4, 2.5},
      {"only the first three", {5, 1, 9, 7}, 3, 5},
      {"one", {-7}, 1, -7},
      {"two", {1, 2}, 2, 1.5},
      {"first of many", {8, 1, 2, 3}, 1, 8},
      {"infinities are ordinary", {kInfinity, 1, -kInfinity}, 3, 1},
      {"half of an overflowing sum", {1.7e308, 1.7e308}, 2, kInfinity},
      {"a not-a-number in front stays there", {kNaN, 2, 1}, 3, 1},
      {"a not-a-number at the end stays there", {2, 1, kNaN}, 3, 2},
      {"nothing moves past a not-a-number", {9, 8, kNaN, 1, 0, 2, 3}, 7, 0},
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

TEST(CalculateAbsMedian, IsTheMiddleOfTheMagnitudes) {
  const OpenUtils run = empty_set();
  EXPECT_EQ(run.CalculateAbsMedian({-3, 1, 2}, 3), 2);
  EXPECT_EQ(run.CalculateAbsMedian({-4, 1, 3, -2}, 4), 2.5);
  EXPECT_EQ(run.CalculateAbsMedian({-5, 1, 9, 7}, 3), 5);
  EXPECT_EQ(run.CalculateAbsMedian({-kInfinity, 1, -2}, 3), 2);
  EXPECT_EQ(bits_of(run.CalculateAbsMedian({-0.0}, 1)), bits_of(0.0));
  EXPECT_EQ(bits_of(run.CalculateAbsMedian({-kNaN}, 1)), bits_of(std::fabs(kNaN)));
}

TEST(CalculateMedian, OfNothingIsNotANumber) {
  const OpenUtils run = empty_set();
  EXPECT_TRUE(std::isnan(run.CalculateMedian({}, 0)));
  EXPECT_TRUE(std::isnan(run.CalculateMedian({1, 2, 3}, 0)));
  EXPECT_TRUE(std::isnan(run.CalculateAbsMedian({}, 0)));
}

TEST(CalculateMedian, OfANegativeCountRaisesTheAllocationException) {
  const OpenUtils run = empty_set();
  for (const int n : {-1, -2147483647 - 1}) {
    EXPECT_THROW(static_cast<void>(run.CalculateMedian({1, 2}, n)), std::bad_array_new_length);
    EXPECT_THROW(static_cast<void>(run.CalculateAbsMedian({1, 2}, n)), std::bad_array_new_length);
  }
}

OpenUtils robust_of(Values residuals) {
  OpenUtils run = with_residuals(std::move(residuals));
  run.CalculateMADDeltaz();
  run.CalculateMADDeltazNorm();
  run.CalculateMAD();
  run.CalculateMADNorm();
  run.CalculateNMAD();
  run.CalculateNMADNorm();
  return run;
}

struct Robust {
  const char* name;
  Values residuals;
  double mad, nmad, mad_of_delta;
};

TEST(RobustStatistics, AreAboutZeroAndAboutTheMedian) {
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
    const OpenUtils run = robust_of(row.residuals);
    EXPECT_EQ(run.getMAD(), row.mad);
    EXPECT_EQ(run.getMADNorm(), row.mad);
    EXPECT_EQ(run.getNMAD(), row.mad * 1.4826);
    EXPECT_EQ(run.getNMADNorm(), row.mad * 1.4826);
    EXPECT_NEAR(run.getNMAD(), row.nmad, 1e-14);
    EXPECT_EQ(run.getMADDeltaz(), row.mad_of_delta);
    EXPECT_EQ(run.getMADDeltazNorm(), row.mad_of_delta);
  }
}

TEST(RobustStatistics, OfNoDataAreNotANumber) {
  const OpenUtils run = robust_of({});
  for (const double value : {run.getMAD(), run.getMADNorm(), run.getNMAD(), run.getNMADNorm(),
                             run.getMADDeltaz(), run.getMADDeltazNorm()}) {
    EXPECT_TRUE(std::isnan(value));
  }
}

TEST(RobustStatistics, CountTheWholeResidualVector) {
  OpenUtils run = with_residuals({1, 2, 30});
  run.id = {0};
  run.CalculateMAD();
  run.CalculateMADNorm();
  run.CalculateMADDeltaz();
  run.CalculateMADDeltazNorm();
  EXPECT_EQ(run.getMAD(), 2);
  EXPECT_EQ(run.getMADNorm(), 2);
  EXPECT_EQ(run.getMADDeltaz(), 1);
  EXPECT_EQ(run.getMADDeltazNorm(), 1);
}

TEST(RobustStatistics, NmadReadsTheStoredMad) {
  OpenUtils run = with_residuals({5});
  run.mad = 2;
  run.madNorm = 3;
  run.CalculateNMAD();
  run.CalculateNMADNorm();
  EXPECT_EQ(run.getNMAD(), 2 * 1.4826);
  EXPECT_EQ(run.getNMADNorm(), 3 * 1.4826);
}

TEST(RobustStatistics, LeaveTheResidualsAsTheyAreAndRepeatThemselves) {
  OpenUtils run = robust_of({-3, 1, 2});
  run.CalculateMAD();
  run.CalculateMADDeltaz();
  EXPECT_EQ(run.getMAD(), 2);
  EXPECT_EQ(run.getMADDeltaz(), 1);
  EXPECT_EQ(run.delta, (Values{-3, 1, 2}));
  EXPECT_EQ(run.deltaNorm, (Values{-3, 1, 2}));
}

// ---- outliers -----------------------------------------------------------------------------------

struct Outliers {
  const char* name;
  Values residuals;
  double sigma;
  Values percent;  // beyond 1, 2, 3, 4 sigma and beyond 0.15
};

TEST(Outliers, ArePercentagesStrictlyBeyondEachBound) {
  const Outliers kOutliers[] = {
      {"on a bound is inside", {1, 2, 3, 4}, 1, {75, 50, 25, 0, 100}},
      {"0.15 itself is inside", {0.15, -0.15}, 1, {0, 0, 0, 0, 0}},
      {"just above it is outside", {0.15000001, 0.15}, 1, {0, 0, 0, 0, 50}},
      {"cumulative", {-9, 0, 0, 0}, 1, {25, 25, 25, 25, 25}},
      {"zeros against zero", {0, 0}, 0, {0, 0, 0, 0, 0}},
      {"not-a-numbers are inside", {kNaN, 1}, 0.01, {50, 50, 50, 50, 50}},
      {"not-a-number sigma", {1, 1}, kNaN, {0, 0, 0, 0, 100}},
      {"infinite residual", {kInfinity, 0}, 1, {50, 50, 50, 50, 50}},
      {"a third",
       {1, 0, 0},
       0.1,
       {1 / 3.0 * 100, 1 / 3.0 * 100, 1 / 3.0 * 100, 1 / 3.0 * 100, 1 / 3.0 * 100}},
  };
  for (const Outliers& row : kOutliers) {
    SCOPED_TRACE(row.name);
    OpenUtils run = with_residuals(row.residuals);
    run.sigma = run.sigmaNorm = row.sigma;
    run.CalculateOutliers();
    run.CalculateOutliersNorm();
    EXPECT_EQ((Values{run.getOutliers1(), run.getOutliers2(), run.getOutliers3(),
                      run.getOutliers4(), run.getOutliersConstant()}),
              row.percent);
    EXPECT_EQ((Values{run.getOutliers1Norm(), run.getOutliers2Norm(), run.getOutliers3Norm(),
                      run.getOutliers4Norm(), run.getOutliersConstantNorm()}),
              row.percent);
  }
}

TEST(Outliers, AreMeasuredFromZeroInUnitsOfTheSetsOwnSigma) {
  OpenUtils run = moments_of({0.1, -0.2, 0.3, -0.4});
  run.CalculateOutliers();
  EXPECT_NEAR(run.getBias(), -0.05, 1e-15);
  EXPECT_NEAR(run.getSigma(), 0.26926, 5e-6);
  EXPECT_EQ(run.getOutliers1(), 50);
  EXPECT_EQ(run.getOutliers2(), 0);
  EXPECT_EQ(run.getOutliers3(), 0);
  EXPECT_EQ(run.getOutliers4(), 0);
  EXPECT_EQ(run.getOutliersConstant(), 75);

  run = moments_of({0.2, 0.2});
  run.CalculateOutliers();
  EXPECT_EQ(run.getBias(), 0.2);
  EXPECT_EQ(run.getSigma(), 0);
  for (const double value : {run.getOutliers1(), run.getOutliers2(), run.getOutliers3(),
                             run.getOutliers4(), run.getOutliersConstant()}) {
    EXPECT_EQ(value, 100);
  }
}

TEST(Outliers, UseTheProductOfFactorAndSigma) {
  // 3 * 0.1 is 0.30000000000000004: more than 0.3, so 0.3 is inside and the product's neighbour
  // out.
  OpenUtils run = with_residuals({0.3, 3.0 * 0.1, std::nextafter(3.0 * 0.1, 1.0), 0});
  run.sigma = 0.1;
  run.CalculateOutliers();
  EXPECT_EQ(run.getOutliers3(), 25);
}

TEST(Outliers, OfNoDataAreNotANumber) {
  OpenUtils run = empty_set();
  run.CalculateOutliers();
  run.CalculateOutliersNorm();
  for (const double value :
       {run.getOutliers1(), run.getOutliers2(), run.getOutliers3(), run.getOutliers4(),
        run.getOutliersConstant(), run.getOutliers1Norm(), run.getOutliers2Norm(),
        run.getOutliers3Norm(), run.getOutliers4Norm(), run.getOutliersConstantNorm()}) {
    EXPECT_TRUE(std::isnan(value));
  }
}

TEST(Outliers, CountOntoThePercentagesOfAnEarlierCall) {
  OpenUtils run = with_residuals({1, 0, 0, 0});
  run.sigma = run.sigmaNorm = 0.3;
  run.CalculateOutliers();
  run.CalculateOutliers();
  run.CalculateOutliersNorm();
  run.CalculateOutliersNorm();
  EXPECT_EQ(run.getOutliers1(), 650);  // (25 + 1) / 4 * 100
  EXPECT_EQ(run.getOutliers4(), 0);
  EXPECT_EQ(run.getOutliersConstant(), 650);
  EXPECT_EQ(run.getOutliers1Norm(), 650);
  EXPECT_EQ(run.getOutliersConstantNorm(), 650);
  // From a third every rounding shows: the ones are added to the percentage one by one.
  run = with_residuals({1, 1, 1, 1, 1, 1, 1});
  run.outliers1 = 1 / 3.0;
  run.CalculateOutliers();
  double expected = 1 / 3.0;
  for (int i = 0; i < 7; ++i) expected += 1.0;
  EXPECT_EQ(run.getOutliers1(), expected / 7 * 100.0);
}

TEST(Outliers, CountTheWholeResidualVector) {
  OpenUtils run = with_residuals({1, 1, 0, 0});
  run.id = {0};
  run.sigma = run.sigmaNorm = 0.4;
  run.CalculateOutliers();
  run.CalculateOutliersNorm();
  EXPECT_EQ(run.getOutliers1(), 50);
  EXPECT_EQ(run.getOutliers1Norm(), 50);
}

}  // namespace
