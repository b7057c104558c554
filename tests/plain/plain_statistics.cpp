// Residuals and statistics, one loop each.

#include <cmath>
#include <limits>
#include <new>

#include "plain_utils.h"

namespace plain {

void bubble_sort(std::vector<double>& values) {
  if (values.empty()) {
    return;
  }
  for (std::size_t k = values.size() - 1; k >= 1; k--) {
    for (std::size_t j = 0; j <= k - 1; j++) {
      if (values[j] > values[j + 1]) {
        const double held = values[j];
        values[j] = values[j + 1];
        values[j + 1] = held;
      }
    }
  }
}

double median(std::vector<double> values, int n) {
  if (n < 0) {
    throw std::bad_array_new_length();
  }
  if (n == 0) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  const std::size_t count = static_cast<std::size_t>(n);
  std::vector<double> a;
  for (std::size_t i = 0; i < count; i++) {
    a.push_back(values[i]);
  }
  bubble_sort(a);
  if (n % 2 == 0) {
    return (a[count / 2] + a[count / 2 - 1]) / 2.0;
  }
  return a[count / 2];
}

double abs_median(std::vector<double> values, int n) {
  for (double& value : values) {
    value = std::fabs(value);
  }
  return median(values, n);
}

void UTILS::CalculateDelta() {
  for (std::size_t i = 0; i < id.size(); i++) {
    delta.push_back(zspec[i] - zphot[i]);
  }
}

void UTILS::CalculateDeltaNorm() {
  for (std::size_t i = 0; i < id.size(); i++) {
    const double numerator = zspec[i] - zphot[i];
    const double denominator = 1.0 + zspec[i];
    deltaNorm.push_back(numerator / denominator);
  }
}

void UTILS::CalculateBias() {
  double sum = 0.0;
  for (std::size_t i = 0; i < id.size(); i++) {
    sum = sum + delta[i];
  }
  bias = sum / static_cast<double>(id.size());
}

void UTILS::CalculateBiasNorm() {
  double sum = 0.0;
  for (std::size_t i = 0; i < id.size(); i++) {
    sum = sum + deltaNorm[i];
  }
  biasNorm = sum / static_cast<double>(id.size());
}

void UTILS::CalculateSigma() {
  double sum = 0.0;
  for (std::size_t i = 0; i < id.size(); i++) {
    sum = sum + (delta[i] - bias) * (delta[i] - bias);
  }
  sigma = std::sqrt(sum / static_cast<double>(id.size()));
}

void UTILS::CalculateSigmaNorm() {
  double sum = 0.0;
  for (std::size_t i = 0; i < id.size(); i++) {
    sum = sum + (deltaNorm[i] - biasNorm) * (deltaNorm[i] - biasNorm);
  }
  sigmaNorm = std::sqrt(sum / static_cast<double>(id.size()));
}

void UTILS::CalculateRMS() {
  double sum = 0.0;
  for (std::size_t i = 0; i < id.size(); i++) {
    sum = sum + delta[i] * delta[i];
  }
  rms = std::sqrt(sum / static_cast<double>(id.size()));
}

void UTILS::CalculateRMSNorm() {
  double sum = 0.0;
  for (std::size_t i = 0; i < id.size(); i++) {
    sum = sum + deltaNorm[i] * deltaNorm[i];
  }
  rmsNorm = std::sqrt(sum / static_cast<double>(id.size()));
}

double UTILS::CalculateMedian(std::vector<double> values, int n) const { return median(values, n); }

double UTILS::CalculateAbsMedian(std::vector<double> values, int n) const {
  return abs_median(values, n);
}

void UTILS::CalculateMAD() { mad = CalculateAbsMedian(delta, static_cast<int>(delta.size())); }

void UTILS::CalculateMADNorm() {
  madNorm = CalculateAbsMedian(deltaNorm, static_cast<int>(deltaNorm.size()));
}

void UTILS::CalculateNMAD() { nmad = mad * 1.4826; }

void UTILS::CalculateNMADNorm() { nmadNorm = madNorm * 1.4826; }

void UTILS::CalculateMADDeltaz() {
  const double m = CalculateMedian(delta, static_cast<int>(delta.size()));
  std::vector<double> distances;
  for (const double d : delta) {
    distances.push_back(std::fabs(d - m));
  }
  madDeltaz = CalculateMedian(distances, static_cast<int>(distances.size()));
}

void UTILS::CalculateMADDeltazNorm() {
  const double m = CalculateMedian(deltaNorm, static_cast<int>(deltaNorm.size()));
  std::vector<double> distances;
  for (const double d : deltaNorm) {
    distances.push_back(std::fabs(d - m));
  }
  madDeltazNorm = CalculateMedian(distances, static_cast<int>(distances.size()));
}

void UTILS::CalculateOutliers() {
  for (const double d : delta) {
    const double a = std::fabs(d);
    if (a > sigma) outliers1 += 1.0;
    if (a > 2.0 * sigma) outliers2 += 1.0;
    if (a > 3.0 * sigma) outliers3 += 1.0;
    if (a > 4.0 * sigma) outliers4 += 1.0;
    if (a > 0.15) outliersConstant += 1.0;
  }
  const double n = static_cast<double>(delta.size());
  outliers1 = (outliers1 / n) * 100.0;
  outliers2 = (outliers2 / n) * 100.0;
  outliers3 = (outliers3 / n) * 100.0;
  outliers4 = (outliers4 / n) * 100.0;
  outliersConstant = (outliersConstant / n) * 100.0;
}

void UTILS::CalculateOutliersNorm() {
  for (const double d : deltaNorm) {
    const double a = std::fabs(d);
    if (a > sigmaNorm) outliers1Norm += 1.0;
    if (a > 2.0 * sigmaNorm) outliers2Norm += 1.0;
    if (a > 3.0 * sigmaNorm) outliers3Norm += 1.0;
    if (a > 4.0 * sigmaNorm) outliers4Norm += 1.0;
    if (a > 0.15) outliersConstantNorm += 1.0;
  }
  const double n = static_cast<double>(deltaNorm.size());
  outliers1Norm = (outliers1Norm / n) * 100.0;
  outliers2Norm = (outliers2Norm / n) * 100.0;
  outliers3Norm = (outliers3Norm / n) * 100.0;
  outliers4Norm = (outliers4Norm / n) * 100.0;
  outliersConstantNorm = (outliersConstantNorm / n) * 100.0;
}

}  // namespace plain
