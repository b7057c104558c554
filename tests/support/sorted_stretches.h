// The medians of large arrays, by sorting. The reference where a bubble sort would take too long.

#ifndef VOSTREL_TESTS_SUPPORT_SORTED_STRETCHES_H
#define VOSTREL_TESTS_SUPPORT_SORTED_STRETCHES_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "tests/plain/plain_utils.h"
#include "tests/support/bits.h"

/// Leaves the order that the bubble sort leaves: NaNs stay in place, each stretch between them is
/// sorted, equal values keep their order.
inline void sort_stretches(std::vector<double>& values) {
  const auto is_nan = [](double value) { return std::isnan(value); };
  auto begin = values.begin();
  while (begin != values.end()) {
    const auto end = std::find_if(begin, values.end(), is_nan);
    std::stable_sort(begin, end);
    begin = std::find_if_not(end, values.end(), is_nan);
  }
}

/// The middle value, or half the sum of the two in the middle.
inline double middle_of(const std::vector<double>& sorted) {
  if (sorted.empty()) return kNaN;
  const std::size_t half = sorted.size() / 2;
  if (sorted.size() % 2 == 1) return sorted[half];
  // The plain median adds and halves. Two values are already in order: a bubble sort would have
  // swapped them otherwise.
  return plain::median({sorted[half - 1], sorted[half]}, 2);
}

inline double median_by_stretches(std::vector<double> values) {
  sort_stretches(values);
  return middle_of(values);
}

inline std::vector<double> absolutes(std::vector<double> values) {
  for (double& value : values) value = std::fabs(value);
  return values;
}

inline std::vector<double> distances(std::vector<double> values, double center) {
  for (double& value : values) value = std::fabs(value - center);
  return values;
}

#endif  // VOSTREL_TESTS_SUPPORT_SORTED_STRETCHES_H
