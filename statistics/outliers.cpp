#include <bit>
#include <cmath>
#include <limits>

#include "statistics/statistics.h"

namespace vostrel {

namespace {

// The bits of magnitudes, as integers, have the order of the magnitudes, with NaN above infinity.
// Integers are compared twice as fast as doubles here, because the compiler compares two at a time.

constexpr std::int64_t kInfinity =
    std::bit_cast<std::int64_t>(std::numeric_limits<double>::infinity());

// The bits of a magnitude exceed this integer if and only if the magnitude exceeds `bound` or is
// NaN.
std::int64_t integer_bound(double bound) {
  if (std::isnan(bound)) return kInfinity;
  return bound < 0 ? -1 : std::bit_cast<std::int64_t>(std::fabs(bound));
}

// 1 if magnitude > bound, else 0. Neither is below -1, so the difference can't overflow.
std::uint64_t exceeds(std::int64_t magnitude, std::int64_t bound) {
  return static_cast<std::uint64_t>(bound - magnitude) >> 63;
}

}  // namespace

std::array<std::uint64_t, 5> count_outliers(std::span<const double> values, double sigma) {
  std::array<std::int64_t, 5> bounds{};
  for (std::size_t k = 0; k < bounds.size(); ++k) {
    bounds[k] = integer_bound(outlier_bounds(sigma)[k]);
  }
  std::array<std::uint64_t, 5> counts{};
  std::uint64_t nans = 0;
  for (const double value : values) {
    const auto magnitude = std::bit_cast<std::int64_t>(std::fabs(value));
    for (std::size_t k = 0; k < bounds.size(); ++k) counts[k] += exceeds(magnitude, bounds[k]);
    nans += exceeds(magnitude, kInfinity);
  }
  for (std::uint64_t& count : counts) count -= nans;
  return counts;
}

}  // namespace vostrel
