// The residuals and their statistics. Each statistic exists twice: for delta and for deltaNorm.

#include <array>
#include <cstddef>
#include <limits>
#include <new>
#include <span>
#include <vector>

#include "statistics/moments.h"
#include "statistics/residuals.h"
#include "statistics/statistics.h"
#include "utils/utils.h"

namespace {

using Vector = std::vector<double>;

template <class Residual>
void append_residuals(Vector& residuals, const Vector& reference, const Vector& estimate,
                      std::size_t n, Residual residual) {
  residuals.reserve(residuals.size() + n);
  for (std::size_t i = 0; i < n; ++i) residuals.push_back(residual(reference[i], estimate[i]));
}

std::span<const double> first(const Vector& values, std::size_t n) { return {values.data(), n}; }

// Counts are ints. More values than an int can count get the same error as a negative count.
template <class Values>
const Values& countable(const Values& values) {
  if (values.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw std::bad_array_new_length();
  }
  return values;
}

std::span<const double> first_of(const Vector& values, int n) {
  if (n < 0) throw std::bad_array_new_length();
  return first(values, static_cast<std::size_t>(n));
}

// Adds 1.0 to a member for each of its outliers and turns the sums into percentages. So a second
// call starts from the percentages of the first.
void add_outliers(const Vector& residuals, double sigma, const std::array<double*, 5>& members) {
  const auto counts = vostrel::count_outliers(residuals, sigma);
  for (std::size_t k = 0; k < members.size(); ++k) {
    double sum = *members[k];
    for (std::uint64_t i = 0; i < counts[k]; ++i) sum += 1.0;
    *members[k] = vostrel::percentage(sum, residuals.size());
  }
}

// Sets the members, in the order of kStatistics.
void set_members(const vostrel::ResidualStatistics& all, const std::array<double*, 11>& members) {
  for (std::size_t k = 0; k < members.size(); ++k) {
    *members[k] = all.*vostrel::kStatistics[k].member;
  }
}

}  // namespace

void UTILS::CalculateDelta() {
  append_residuals(delta, zspec, zphot, id.size(), vostrel::residual);
}

void UTILS::CalculateDeltaNorm() {
  append_residuals(deltaNorm, zspec, zphot, id.size(), vostrel::normalized_residual);
}

void UTILS::CalculateBias() { bias = vostrel::mean(first(delta, id.size())); }
void UTILS::CalculateBiasNorm() { biasNorm = vostrel::mean(first(deltaNorm, id.size())); }

void UTILS::CalculateSigma() { sigma = vostrel::standard_deviation(first(delta, id.size()), bias); }
void UTILS::CalculateSigmaNorm() {
  sigmaNorm = vostrel::standard_deviation(first(deltaNorm, id.size()), biasNorm);
}

void UTILS::CalculateRMS() { rms = vostrel::root_mean_square(first(delta, id.size())); }
void UTILS::CalculateRMSNorm() { rmsNorm = vostrel::root_mean_square(first(deltaNorm, id.size())); }

// The public interface takes a vector by value.
// NOLINTBEGIN(performance-unnecessary-value-param)
double UTILS::CalculateMedian(std::vector<double> values, int n) const {
  return vostrel::median(first_of(values, n));
}

double UTILS::CalculateAbsMedian(std::vector<double> values, int n) const {
  return vostrel::absolute_median(first_of(values, n));
}
// NOLINTEND(performance-unnecessary-value-param)

void UTILS::CalculateMAD() { mad = vostrel::absolute_median(countable(delta)); }
void UTILS::CalculateMADNorm() { madNorm = vostrel::absolute_median(countable(deltaNorm)); }

void UTILS::CalculateNMAD() { nmad = mad * vostrel::kNmadFactor; }
void UTILS::CalculateNMADNorm() { nmadNorm = madNorm * vostrel::kNmadFactor; }

void UTILS::CalculateMADDeltaz() { madDeltaz = vostrel::mad_about_median(countable(delta)); }
void UTILS::CalculateMADDeltazNorm() {
  madDeltazNorm = vostrel::mad_about_median(countable(deltaNorm));
}

void UTILS::CalculateOutliers() {
  add_outliers(delta, sigma, {&outliersConstant, &outliers1, &outliers2, &outliers3, &outliers4});
}

void UTILS::CalculateOutliersNorm() {
  add_outliers(
      deltaNorm, sigmaNorm,
      {&outliersConstantNorm, &outliers1Norm, &outliers2Norm, &outliers3Norm, &outliers4Norm});
}

void UTILS::CalculateStatistics() {
  const std::size_t n = countable(id).size();
  const vostrel::PointStatistics all = vostrel::point_statistics(first(zspec, n), first(zphot, n));
  set_members(all.delta, {&bias, &sigma, &rms, &mad, &nmad, &madDeltaz, &outliersConstant,
                          &outliers1, &outliers2, &outliers3, &outliers4});
  set_members(all.norm, {&biasNorm, &sigmaNorm, &rmsNorm, &madNorm, &nmadNorm, &madDeltazNorm,
                         &outliersConstantNorm, &outliers1Norm, &outliers2Norm, &outliers3Norm,
                         &outliers4Norm});
}

double UTILS::getBias() const { return bias; }
double UTILS::getSigma() const { return sigma; }
double UTILS::getRMS() const { return rms; }
double UTILS::getMAD() const { return mad; }
double UTILS::getNMAD() const { return nmad; }
double UTILS::getMADDeltaz() const { return madDeltaz; }
double UTILS::getOutliers1() const { return outliers1; }
double UTILS::getOutliers2() const { return outliers2; }
double UTILS::getOutliers3() const { return outliers3; }
double UTILS::getOutliers4() const { return outliers4; }
double UTILS::getOutliersConstant() const { return outliersConstant; }

double UTILS::getBiasNorm() const { return biasNorm; }
double UTILS::getSigmaNorm() const { return sigmaNorm; }
double UTILS::getRMSNorm() const { return rmsNorm; }
double UTILS::getMADNorm() const { return madNorm; }
double UTILS::getNMADNorm() const { return nmadNorm; }
double UTILS::getMADDeltazNorm() const { return madDeltazNorm; }
double UTILS::getOutliers1Norm() const { return outliers1Norm; }
double UTILS::getOutliers2Norm() const { return outliers2Norm; }
double UTILS::getOutliers3Norm() const { return outliers3Norm; }
double UTILS::getOutliers4Norm() const { return outliers4Norm; }
double UTILS::getOutliersConstantNorm() const { return outliersConstantNorm; }
