// The median of distances, which mad_about_median and UTILS share. The other medians are in
// statistics.h.

#ifndef VOSTREL_STATISTICS_ORDER_STATISTICS_H
#define VOSTREL_STATISTICS_ORDER_STATISTICS_H

#include <span>

namespace vostrel {

/// The median of |value - center|, ordered as statistics.h tells. NaN for no values.
double median_of_distances(std::span<const double> values, double center);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_ORDER_STATISTICS_H
