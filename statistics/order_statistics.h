// The median of the distances from any center. The other medians are in statistics.h.

#ifndef VOSTREL_STATISTICS_ORDER_STATISTICS_H
#define VOSTREL_STATISTICS_ORDER_STATISTICS_H

#include <span>

namespace vostrel {

/// The median of |value - center|, in the order that statistics.h defines. NaN if there are no
/// values.
double median_of_distances(std::span<const double> values, double center);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_ORDER_STATISTICS_H
