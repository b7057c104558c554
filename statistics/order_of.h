// An order-preserving map from doubles to integers.

#ifndef VOSTREL_STATISTICS_ORDER_OF_H
#define VOSTREL_STATISTICS_ORDER_OF_H

#include <bit>
#include <cstdint>
#include <limits>

namespace vostrel {

/// Returns an integer that sorts as the value does. Neighbouring doubles have neighbouring
/// integers. Both zeros have 0. Requires: the value is not NaN.
inline std::int64_t order_of(double value) {
  const auto bits = std::bit_cast<std::int64_t>(value);
  return bits < 0 ? std::numeric_limits<std::int64_t>::min() - bits : bits;
}

/// The inverse of order_of(), except that -0 becomes 0.
inline double value_of(std::int64_t order) {
  return std::bit_cast<double>(order < 0 ? std::numeric_limits<std::int64_t>::min() - order
                                         : order);
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_ORDER_OF_H
