// Medians in linear time, with the result of the plain bubble sort, bit for bit.

#ifndef VOSTREL_STATISTICS_ORDER_STATISTICS_H
#define VOSTREL_STATISTICS_ORDER_STATISTICS_H

#include <cstddef>

namespace vostrel {

// The three medians below are those of the values (or what is made of them) in the order that this
// sort leaves:
//
//     for (k = n - 1; k >= 1; --k)
//       for (j = 0; j < k; ++j)
//         if (a[j] > a[j + 1]) swap(a[j], a[j + 1]);
//
// namely the middle value, or for even n half the sum of the upper and the lower middle value.
// They read the values in place. The scratch space they need is a copy below 65,536 values, and
// from there on room for n / 8 numbers and a megabyte at the most.
//
// Without not-a-numbers that is the ascending order, equal values (which differ at most in the sign
// of a zero) in the order in which they came. A comparison with a not-a-number is false, so it is
// never swapped, and no value gets past it: it stays where it is and parts the array. Each stretch
// between two of them is fully sorted by itself, since the passes k = e ... s + 1, which sort the
// stretch [s, e], are among the passes made, and those before them do no harm.
// The values in the middle are thus found without sorting: the stretch around the middle is
// searched for the value of the rank that the middle has in it.

/// The median of values[0] ... values[n - 1]; a not-a-number when n is 0.
double median(const double* values, std::size_t n);

/// The median of |values[i]|; a not-a-number when n is 0.
double median_of_absolutes(const double* values, std::size_t n);

/// The median of |values[i] - center|; a not-a-number when n is 0.
double median_of_distances(const double* values, std::size_t n, double center);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_ORDER_STATISTICS_H
