// LSST's metrics, worked out by hand. The Python tests compare them with NumPy.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "statistics/statistics.h"

namespace vostrel {
namespace {

LsstMetrics metrics_of(const std::vector<double>& reference, const std::vector<double>& estimate) {
  return extended_statistics(reference, estimate).lsst;
}

TEST(LsstMetrics, MatchHandComputedValues) {
  // e = 0.75, 0.25, 0, -1, 8: quartiles 0 and 0.75, distances from 0.25: 0.5, 0, 0.25, 1.25, 7.75.
  const LsstMetrics metrics = metrics_of({0, 1, 0, 0, 0}, {0.75, 1.5, 0, -1, 8});
  EXPECT_EQ(metrics.bias, 0.25);
  EXPECT_EQ(metrics.sigma_iqr, 0.75 / 1.349);
  EXPECT_EQ(metrics.sigma_mad, 0.5 * 1.4826);
  EXPECT_EQ(metrics.outlier_rate, 0.2);  // beyond 3 sigma_iqr = 1.67
}

TEST(LsstMetrics, InterpolateBetweenTwoRanks) {
  // Quartiles 0.75 and 4.25, distances from 2: 2, 1, 1, 6.
  const LsstMetrics metrics = metrics_of({0, 0, 0, 0}, {0, 1, 3, 8});
  EXPECT_EQ(metrics.bias, 2);
  EXPECT_EQ(metrics.sigma_iqr, 3.5 / 1.349);
  EXPECT_EQ(metrics.sigma_mad, 1.5 * 1.4826);
  EXPECT_EQ(metrics.outlier_rate, 0.25);  // beyond 3 sigma_iqr = 7.78
}

TEST(LsstMetrics, TheOutlierBoundIsNeverBelowSixPercent) {
  const LsstMetrics metrics =
      metrics_of({0, 0, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0, 0.06, std::nextafter(0.06, 1)});
  EXPECT_EQ(metrics.outlier_rate, 0.125);
}

TEST(LsstMetrics, AreNaNWithoutObjectsOrWithANaN) {
  EXPECT_TRUE(std::isnan(metrics_of({}, {}).bias));
  const LsstMetrics metrics = metrics_of({-1, 1}, {-1, 1});
  EXPECT_TRUE(std::isnan(metrics.bias));
  EXPECT_TRUE(std::isnan(metrics.sigma_iqr));
  EXPECT_TRUE(std::isnan(metrics.sigma_mad));
  EXPECT_TRUE(std::isnan(metrics.outlier_rate));
}

}  // namespace
}  // namespace vostrel
