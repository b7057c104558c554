// Counting the values that lie beyond bounds.

#ifndef VOSTREL_STATISTICS_OUTLIER_COUNTS_H
#define VOSTREL_STATISTICS_OUTLIER_COUNTS_H

#include <array>
#include <cstddef>

namespace vostrel {

/// The four multiples of sigma and the fixed bound.
inline constexpr std::size_t kOutlierBounds = 5;

/// For each of the bounds, how many of values[0] ... values[n - 1] have |value| > bound. As always,
/// a comparison with a not-a-number is false, on either side.
///
/// The bits of numbers that are not negative, taken as integers, order as the numbers do, infinity
/// above all and not-a-numbers above infinity. So the comparisons are made between integers, by the
/// sign of their difference, and the not-a-numbers, which are found beyond every bound, are counted
/// and subtracted. g++ 12 does that for two values at a time, which it does not for comparisons of
/// doubles: it takes half the time of the plain loop.
std::array<std::size_t, kOutlierBounds> count_beyond(
    const double* values, std::size_t n, const std::array<double, kOutlierBounds>& bounds);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_OUTLIER_COUNTS_H
