#include "statistics/outlier_counts.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

namespace vostrel {

namespace {

constexpr std::int64_t kInfinity =
    std::bit_cast<std::int64_t>(std::numeric_limits<double>::infinity());

// The bound as an integer that exactly the distances greater than it, and not-a-numbers, exceed.
std::int64_t order_of(double bound) {
  if (std::isnan(bound)) return kInfinity;
  return bound < 0 ? -1 : std::bit_cast<std::int64_t>(std::fabs(bound));
}

// 1 when distance > bound. Neither is below -1, so that the difference can't overflow.
std::uint64_t is_beyond(std::int64_t distance, std::int64_t bound) {
  return static_cast<std::uint64_t>(bound - distance) >> 63;
}

}  // namespace

std::array<std::size_t, kOutlierBounds> count_beyond(
    const double* values, std::size_t n, const std::array<double, kOutlierBounds>& bounds) {
  std::array<std::int64_t, kOutlierBounds> orders{};
  for (std::size_t k = 0; k < kOutlierBounds; ++k) orders[k] = order_of(bounds[k]);

  std::array<std::uint64_t, kOutlierBounds> beyond{};
  std::uint64_t not_numbers = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const auto distance = std::bit_cast<std::int64_t>(std::fabs(values[i]));
    for (std::size_t k = 0; k < kOutlierBounds; ++k) beyond[k] += is_beyond(distance, orders[k]);
    not_numbers += is_beyond(distance, kInfinity);
  }

  std::array<std::size_t, kOutlierBounds> counts{};
  for (std::size_t k = 0; k < kOutlierBounds; ++k) {
    counts[k] = static_cast<std::size_t>(beyond[k] - not_numbers);
  }
  return counts;
}

}  // namespace vostrel
