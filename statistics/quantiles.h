// Percentiles of ordered values, and the widths that follow from them.

#ifndef VOSTREL_STATISTICS_QUANTILES_H
#define VOSTREL_STATISTICS_QUANTILES_H

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "floating_point.h"

namespace vostrel {

/// The interquartile range of a normal distribution with standard deviation 1, as LSST's science
/// book rounds it.
inline constexpr double kIqrFactor = 1.349;

/// The two neighbouring ranks around a percentile, and its position between them, from 0 to 1.
struct PercentilePlace {
  std::uint64_t lower;
  std::uint64_t upper;
  double part;
};

/// The position of a percentile among n values: numpy.percentile's method "linear", which is number
/// 7 of R. J. Hyndman and Y. Fan, "Sample quantiles in statistical packages", 1996. Requires: n > 0
/// and 0 <= percent <= 100.
inline PercentilePlace percentile_place(std::uint64_t n, double percent) {
  const double place = percent / 100 * static_cast<double>(n - 1);
  const double floor = std::floor(place);
  const std::uint64_t lower = std::min(static_cast<std::uint64_t>(floor), n - 1);
  if (lower == n - 1) return {lower, lower, 1};  // as NumPy: -0 stays -0
  return {lower, lower + 1, place - floor};
}

/// A percentile of n values. Rounds as numpy.percentile does.
/// @param value  returns the value of a rank, from 0 to n - 1.
template <class Value>
double percentile(std::uint64_t n, double percent, Value value) {
  const PercentilePlace place = percentile_place(n, percent);
  const double low = value(place.lower);
  const double high = value(place.upper);
  const double distance = high - low;
  return place.part >= 0.5 ? high - distance * (1 - place.part) : low + distance * place.part;
}

/// The median of n values. Rounds as numpy.median does.
template <class Value>
double middle_value(std::uint64_t n, Value value) {
  return n % 2 == 1 ? value(n / 2) : (value(n / 2) + value((n - 1) / 2)) / 2.0;
}

/// (P84 - P16) / 2: the standard deviation of a normal distribution, nearly.
template <class Value>
double sigma_68(std::uint64_t n, Value value) {
  return (percentile(n, 84, value) - percentile(n, 16, value)) / 2;
}

/// (P75 - P25) / 1.349: the standard deviation of a normal distribution.
template <class Value>
double sigma_iqr(std::uint64_t n, Value value) {
  return (percentile(n, 75, value) - percentile(n, 25, value)) / kIqrFactor;
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_QUANTILES_H
