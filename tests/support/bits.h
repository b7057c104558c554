// Special values, and doubles compared bit by bit.

#ifndef VOSTREL_TESTS_SUPPORT_BITS_H
#define VOSTREL_TESTS_SUPPORT_BITS_H

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// NaNs of both signs, with and without a payload.
inline const std::array<double, 6> kNaNs = {
    std::bit_cast<double>(0x7ff8000000000000u), std::bit_cast<double>(0xfff8000000000000u),
    std::bit_cast<double>(0x7ff8000000000123u), std::bit_cast<double>(0xfff8abcdef012345u),
    std::bit_cast<double>(0x7fffffffffffffffu), std::bit_cast<double>(0xffffffffffffffffu)};

inline std::uint64_t bits_of(double value) { return std::bit_cast<std::uint64_t>(value); }

/// The bits, but only the sign of a NaN. Where two NaNs meet in a sum or a difference, the compiler
/// chooses which payload survives. No output shows it.
inline std::uint64_t bits_without_payload(double value) {
  return bits_of(std::isnan(value) ? std::copysign(kNaN, value) : value);
}

#endif  // VOSTREL_TESTS_SUPPORT_BITS_H
