// Residuals and statistics. Each exists twice, for the plain and for the normalized residual; the
// arithmetic stands once, in the functions at the top.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <new>
#include <vector>

#include "statistics/order_statistics.h"
#include "statistics/outlier_counts.h"
#include "utils/utils.h"

namespace {

using Vector = std::vector<double>;

// Appends residual(i) for i = 0 ... n - 1. Some at a time, so that the vector is neither filled
// twice nor checked for room each time.
template <class Residual>
void append_residuals(Vector& residuals, std::size_t n, Residual residual) {
  residuals.reserve(residuals.size() + n);
  std::array<double, 512> some;
  for (std::size_t first = 0; first < n; first += some.size()) {
    const std::size_t count = std::min(some.size(), n - first);
    for (std::size_t i = 0; i < count; ++i) some[i] = residual(first + i);
    residuals.insert(residuals.end(), some.data(), some.data() + count);
  }
}

// The mean of term(residual) over the first n residuals. The sum is taken in index order with one
// addition per term, which fixes its rounding.
template <class Term>
double mean_of(const Vector& residuals, std::size_t n, Term term) {
  double sum = 0.0;
  for (std::size_t i = 0; i < n; ++i) sum += term(residuals[i]);
  return sum / static_cast<double>(n);
}

double mean(const Vector& residuals, std::size_t n) {
  return mean_of(residuals, n, [](double residual) { return residual; });
}

double standard_deviation(const Vector& residuals, std::size_t n, double mean) {
  return std::sqrt(mean_of(residuals, n, [mean](double residual) {
    const double deviation = residual - mean;
    return deviation * deviation;
  }));
}

double root_mean_square(const Vector& residuals, std::size_t n) {
  return std::sqrt(mean_of(residuals, n, [](double residual) { return residual * residual; }));
}

// Makes the standard deviation of normally distributed values of their median absolute value.
constexpr double kNmadFactor = 1.4826;

// Counts are ints. More values than an int can count are refused as a negative count would be,
// by the standard error for an array of impossible size.
std::size_t checked_count(const Vector& residuals) {
  if (residuals.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw std::bad_array_new_length();
  }
  return residuals.size();
}

double median_absolute(const Vector& residuals) {
  return vostrel::median_of_absolutes(residuals.data(), checked_count(residuals));
}

double median_absolute_deviation(const Vector& residuals) {
  const std::size_t n = checked_count(residuals);
  const double center = vostrel::median(residuals.data(), n);
  return vostrel::median_of_distances(residuals.data(), n, center);
}

// A member that counts at first and becomes a percentage, and the bound that is counted beyond.
struct Outliers {
  double* member;
  double bound;
};

// member + 1.0 + 1.0 + ..., count times. On a whole number that is one exact addition; on what an
// earlier call left there, each addition rounds.
double add_ones(double member, std::size_t count) {
  if (count == 0) return member;
  constexpr double kExact = 9007199254740992.0;  // 2^53, up to which every whole number is a double
  const double sum = member + static_cast<double>(count);
  if (member == std::floor(member) && std::fabs(member) <= kExact && sum <= kExact) return sum;
  for (std::size_t i = 0; i < count; ++i) member += 1.0;
  return member;
}

void count_outliers(const Vector& residuals,
                    const std::array<Outliers, vostrel::kOutlierBounds>& outliers) {
  std::array<double, vostrel::kOutlierBounds> bounds{};
  for (std::size_t k = 0; k < bounds.size(); ++k) bounds[k] = outliers[k].bound;
  const auto counts = vostrel::count_beyond(residuals.data(), residuals.size(), bounds);
  for (std::size_t k = 0; k < bounds.size(); ++k) {
    double& member = *outliers[k].member;
    member = add_ones(member, counts[k]) / static_cast<double>(residuals.size()) * 100.0;
  }
}

constexpr double kOutlierBound = 0.15;

}  // namespace

void UTILS::CalculateDelta() {
  append_residuals(delta, id.size(), [this](std::size_t i) { return zspec[i] - zphot[i]; });
}

void UTILS::CalculateDeltaNorm() {
  append_residuals(deltaNorm, id.size(),
                   [this](std::size_t i) { return (zspec[i] - zphot[i]) / (1.0 + zspec[i]); });
}

void UTILS::CalculateBias() { bias = mean(delta, id.size()); }
void UTILS::CalculateBiasNorm() { biasNorm = mean(deltaNorm, id.size()); }

void UTILS::CalculateSigma() { sigma = standard_deviation(delta, id.size(), bias); }
void UTILS::CalculateSigmaNorm() { sigmaNorm = standard_deviation(deltaNorm, id.size(), biasNorm); }

void UTILS::CalculateRMS() { rms = root_mean_square(delta, id.size()); }
void UTILS::CalculateRMSNorm() { rmsNorm = root_mean_square(deltaNorm, id.size()); }

double UTILS::CalculateMedian(std::vector<double> values, int n) const {
  if (n < 0) throw std::bad_array_new_length();
  return vostrel::median(values.data(), static_cast<std::size_t>(n));
}

double UTILS::CalculateAbsMedian(std::vector<double> values, int n) const {
  if (n < 0) throw std::bad_array_new_length();
  return vostrel::median_of_absolutes(values.data(), static_cast<std::size_t>(n));
}

void UTILS::CalculateMAD() { mad = median_absolute(delta); }
void UTILS::CalculateMADNorm() { madNorm = median_absolute(deltaNorm); }

void UTILS::CalculateNMAD() { nmad = mad * kNmadFactor; }
void UTILS::CalculateNMADNorm() { nmadNorm = madNorm * kNmadFactor; }

void UTILS::CalculateMADDeltaz() { madDeltaz = median_absolute_deviation(delta); }
void UTILS::CalculateMADDeltazNorm() { madDeltazNorm = median_absolute_deviation(deltaNorm); }

void UTILS::CalculateOutliers() {
  count_outliers(delta, {{{&outliers1, sigma},
                          {&outliers2, 2.0 * sigma},
                          {&outliers3, 3.0 * sigma},
                          {&outliers4, 4.0 * sigma},
                          {&outliersConstant, kOutlierBound}}});
}

void UTILS::CalculateOutliersNorm() {
  count_outliers(deltaNorm, {{{&outliers1Norm, sigmaNorm},
                              {&outliers2Norm, 2.0 * sigmaNorm},
                              {&outliers3Norm, 3.0 * sigmaNorm},
                              {&outliers4Norm, 4.0 * sigmaNorm},
                              {&outliersConstantNorm, kOutlierBound}}});
}
