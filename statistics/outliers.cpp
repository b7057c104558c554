#include <cmath>

#include "floating_point.h"
#include "statistics/statistics.h"

namespace vostrel {

std::array<std::uint64_t, 5> count_outliers(std::span<const double> values, double sigma) {
  const std::array<double, 5> bounds = outlier_bounds(sigma);
  std::array<std::uint64_t, 5> counts{};
  for (const double value : values) {
    for (std::size_t k = 0; k < bounds.size(); ++k) counts[k] += std::fabs(value) > bounds[k];
  }
  return counts;
}

}  // namespace vostrel
