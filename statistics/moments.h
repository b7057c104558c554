// Mean, standard deviation and root mean square. Sums run in index order with one addition per
// value, which fixes their rounding. All three are NaN for no values.

#ifndef VOSTREL_STATISTICS_MOMENTS_H
#define VOSTREL_STATISTICS_MOMENTS_H

#include <cmath>
#include <span>

namespace vostrel {

inline double mean(std::span<const double> values) {
  double sum = 0.0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}

/// The standard deviation about `center`, with the number of values as divisor.
inline double standard_deviation(std::span<const double> values, double center) {
  double sum = 0.0;
  for (const double value : values) sum += (value - center) * (value - center);
  return std::sqrt(sum / static_cast<double>(values.size()));
}

/// About zero.
inline double root_mean_square(std::span<const double> values) {
  double sum = 0.0;
  for (const double value : values) sum += value * value;
  return std::sqrt(sum / static_cast<double>(values.size()));
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_MOMENTS_H
