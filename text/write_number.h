// Writes numbers as a stream in its default state does, character for character.
//
// 0.0001 to 999999 is written inline, in 5 ns; std::to_chars takes 36, a stream 118.

#ifndef VOSTREL_TEXT_WRITE_NUMBER_H
#define VOSTREL_TEXT_WRITE_NUMBER_H

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "floating_point.h"
#include "text/eight_characters.h"

namespace vostrel {

/// The bytes that writing a number needs. The longest number has 13 characters ("-1.23457e-308").
/// Bytes after the number may be overwritten.
inline constexpr std::size_t kNumberRoom = 24;

namespace internal {

// Writes what write_double doesn't write itself.
char* write_any_double(double value, char* out);

/// Each number below 1000 as three characters, the first in the lowest byte. The top byte counts
/// the digits up to the last one that is not 0.
struct ThreeDigits {
  std::array<std::uint32_t, 1000> of{};

  constexpr ThreeDigits() {
    for (std::uint32_t n = 0; n < 1000; ++n) {
      const std::uint32_t significant = n % 10 != 0 ? 3 : n % 100 != 0 ? 2 : n != 0 ? 1 : 0;
      of[n] = (n / 100 | n / 10 % 10 << 8 | n % 10 << 16 | significant << 24) + 0x303030;
    }
  }
};
inline constexpr ThreeDigits kThreeDigits;

/// Where the six digits of a number go, by its decade. A table, because a branch on the decade
/// would be mispredicted too often in a column of values around 1.
struct Layout {
  std::uint64_t front;         // what stands before the digits: "0.", "0.0", ...
  std::uint64_t front_digits;  // a mask: all bits if digits stand there instead
  std::uint32_t in_front;      // how many digits there are before the point
  std::uint32_t point;         // where the point is
  std::uint32_t rest;          // where the digits after the point begin
};

inline constexpr std::uint64_t kZeros = 0x3030303030302e30;  // "0.000000"
inline constexpr std::uint64_t kDigits = ~std::uint64_t{0};
inline constexpr std::array<Layout, 11> kLayouts = {{{kZeros, 0, 0, 1, 6},
                                                     {kZeros, 0, 0, 1, 5},
                                                     {kZeros, 0, 0, 1, 4},
                                                     {kZeros, 0, 0, 1, 3},
                                                     {kZeros, 0, 0, 1, 2},
                                                     {0, kDigits, 1, 1, 2},
                                                     {0, kDigits, 2, 2, 3},
                                                     {0, kDigits, 3, 3, 4},
                                                     {0, kDigits, 4, 4, 5},
                                                     {0, kDigits, 5, 5, 6},
                                                     {0, kDigits, 6, 6, 7}}};

/// Writes a number below 10^6 given by its six digits and its decade (0 from 10^-5 on, 1 from 10^-4
/// on, ...), without trailing zeros. 1000000 stands for 100000 one decade up.
inline char* write_six_digits(std::uint32_t six, std::size_t decade, char* out) {
  if (six == 1000000) {
    six = 100000;
    ++decade;
  }
  const std::uint32_t upper = kThreeDigits.of[six / 1000];
  const std::uint32_t lower = kThreeDigits.of[six % 1000];
  const std::uint64_t text = (upper & 0xffffff) | std::uint64_t{lower} << 24;
  const std::uint32_t significant = lower >> 24 != 0 ? 3 + (lower >> 24) : upper >> 24;
  const Layout& layout = kLayouts[decade];
  store_eight(out, layout.front | (text & layout.front_digits));
  out[layout.point] = '.';
  out += layout.rest;
  store_eight(out, text >> (8 * layout.in_front));
  return significant > layout.in_front ? out + (significant - layout.in_front) : out - 1;
}

/// 10^0 to 10^9: exact as doubles.
inline constexpr std::array<double, 10> kPowersOfTen = {1e0, 1e1, 1e2, 1e3, 1e4,
                                                        1e5, 1e6, 1e7, 1e8, 1e9};

/// How numbers with the same binary exponent become six digits before the point. Such numbers lie
/// in one decade or two.
struct Binade {
  std::size_t decade;           // the lower decade, 0 from 10^-5 on
  double next_decade;           // where the upper decade begins
  std::array<double, 2> scale;  // 10^5 over the decade's power of ten, lower and upper
};

/// The binades from 2^-14 to just below 2^20.
struct Binades {
  static constexpr std::size_t kFirst = 1023 - 14;
  std::array<Binade, 34> of{};

  constexpr Binades() {
    constexpr std::array<double, 12> kPowers = {1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1e0,
                                                1e1,  1e2,  1e3,  1e4,  1e5,  1e6};
    double smallest = 1.0 / (1 << 14);
    std::size_t decade = 0;
    for (Binade& binade : of) {
      while (smallest >= kPowers[decade + 1]) ++decade;
      // Decade 0 needs no scale: write_double leaves numbers below 10^-4 to write_any_double.
      const double scale = decade == 0 ? 0 : kPowersOfTen[10 - decade];
      const double next_scale = decade == 10 ? 0 : kPowersOfTen[9 - decade];
      binade = {decade, kPowers[decade + 1], {scale, next_scale}};
      smallest *= 2;
    }
  }
};
inline constexpr Binades kBinades;

}  // namespace internal

/// Writes `value` as a stream in its default state does: six significant digits, fixed or exponent
/// form, no trailing zeros; "-0", "inf", "-inf", "nan" and "-nan" included.
///
/// Returns the end of the text. Requires kNumberRoom writable bytes at `out`.
///
/// Why it is exact: from 0.0001 to just below 999999.5 the six digits are the integer nearest to
/// exact = value * 10^k with 10^5 <= exact < 10^6 and k from 0 to 9, ties to even. 10^k is a
/// double, so `scaled` is the double nearest to exact. Rounding never crosses a double, and the
/// midpoints between integers are doubles. So exact and scaled have the same nearest integer,
/// unless scaled is a midpoint. Adding 2^52 finds that integer, ties to even, because from there on
/// doubles are integers; subtracting 2^52 is exact. If scaled is a midpoint, the sign of its
/// rounding error, which std::fma gives exactly, tells on which side exact lies. No error means a
/// true tie, already rounded to even. The digits may come out as 10^6 at the end of a decade, and a
/// number just below a power of ten that isn't a double may pass for that power: 100000 one decade
/// up is right for both.
inline char* write_double(double value, char* out) {
  using namespace internal;
  const double magnitude = std::fabs(value);
  if (!(magnitude >= 1e-4 && magnitude < 999999.5)) return write_any_double(value, out);
  const Binade& binade =
      kBinades.of[(std::bit_cast<std::uint64_t>(magnitude) >> 52) - Binades::kFirst];
  const bool upper = magnitude >= binade.next_decade;
  const double scaled = magnitude * binade.scale[upper];
  constexpr double kIntegersFromHere = 4503599627370496.0;  // 2^52
  const double shifted = scaled + kIntegersFromHere;
  auto six = static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(shifted));
  if (std::fabs(scaled - (shifted - kIntegersFromHere)) == 0.5) {
    const double error = std::fma(magnitude, binade.scale[upper], -scaled);
    if (error != 0) six = static_cast<std::uint32_t>(scaled) + (error > 0);
  }
  *out = '-';
  return write_six_digits(six, binade.decade + upper, out + std::signbit(value));
}

}  // namespace vostrel

#endif  // VOSTREL_TEXT_WRITE_NUMBER_H
