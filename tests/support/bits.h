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

/// Whether tests compare the sign of a NaN. If an operation gets two NaNs, the compiler chooses
/// which one survives. The releases, which g++ builds, must make the same choice everywhere.
#if defined(VOSTREL_RELEASE) && !defined(__clang__)
inline constexpr bool kTestsSignOfNaN = true;
#else
inline constexpr bool kTestsSignOfNaN = false;
#endif

/// The bits. Of a NaN at most the sign, which is all that output shows.
inline std::uint64_t bits_without_payload(double value) {
  if (!std::isnan(value)) return bits_of(value);
  return bits_of(kTestsSignOfNaN ? std::copysign(kNaN, value) : kNaN);
}

#endif  // VOSTREL_TESTS_SUPPORT_BITS_H
