// Numbers as text, both ways: what std::atof, std::atoi and a stream in its default state do, to
// the last bit and character, without copies of the text and without locale machinery.
//
// The common shapes (a sign, digits, a point, digits; 0.0001 to 999999) are handled here, inline;
// everything else goes to the standard library in number_text.cpp. At ten million rows the standard
// functions alone would take about four times as long as the whole program does with these.

#ifndef VOSTREL_HELPERS_NUMBER_TEXT_H
#define VOSTREL_HELPERS_NUMBER_TEXT_H

#include <array>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "helpers/byte_words.h"

namespace vostrel {

// The proofs below count roundings: each operation must round once, to double.
static_assert(FLT_EVAL_METHOD == 0 && DBL_MANT_DIG == 53);

/// The room write_double needs; the longest text is 13 characters ("-1.23457e-308").
inline constexpr std::size_t kNumberRoom = 24;

/// A text of at most this many characters is read without memory from the heap.
inline constexpr std::size_t kShortText = 1024;

namespace internal {

/// 10^0 to 10^9: exact as doubles.
inline constexpr std::array<double, 10> kPowersOfTen = {1e0, 1e1, 1e2, 1e3, 1e4,
                                                        1e5, 1e6, 1e7, 1e8, 1e9};
inline constexpr std::array<std::uint64_t, 9> kWholePowersOfTen = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

/// Up to eight decimal digits at the start of a text.
struct Digits {
  std::uint64_t value;
  unsigned count;
};

/// Reads the digits at `text`, eight at the most; eight bytes must be readable.
inline Digits leading_digits(const char* text) {
  std::uint64_t word = load_word(text) ^ repeat_byte('0');
  // A byte above 9 sets its top bit here. It may carry into the bytes behind it, which is harmless:
  // only the first one that is set counts.
  const std::uint64_t others = (word | (word + repeat_byte(0x76))) & repeat_byte(0x80);
  const unsigned count = static_cast<unsigned>(std::countr_zero(others)) / 8;
  if (count == 0) return {0, 0};
  // Move the digits to the end of the word, so that zeros stand in front of them.
  word <<= 64 - 8 * count;
  // Join neighbours: eight digits, four numbers below 100, then all of it in two multiplications.
  word = word * 10 + (word >> 8);
  constexpr std::uint64_t kEveryFourth = 0x000000ff000000ff;
  const std::uint64_t upper = (word & kEveryFourth) * (100 + (std::uint64_t{1000000} << 32));
  const std::uint64_t lower = ((word >> 16) & kEveryFourth) * (1 + (std::uint64_t{10000} << 32));
  return {(upper + lower) >> 32 & 0xffffffff, count};
}

double read_any_double(std::string_view text);
int read_any_int(std::string_view text);
char* write_any_double(double value, char* out);

}  // namespace internal

/// Reads a plain decimal number at `text`: an optional minus, up to eight digits, and optionally a
/// point with up to eight digits more; at least one digit, and behind it a character below '0' (a
/// comma, blank, line end, ...), which can't continue the number.
///
/// @return the end of the number, with `value` set to what std::atof gives; or nullptr, with
///         `value` untouched, when the text is anything else.
/// Precondition: kTextPadding bytes are readable behind the number.
///
/// Exact because the digits form an integer of at most 2^53 and the power of ten is at most 10^8:
/// both are doubles, so their quotient, rounded once by the division, is the double nearest to the
/// decimal number. That is what std::atof returns.
inline const char* read_plain_decimal(const char* text, double& value) {
  const bool negative = *text == '-';
  text += negative;
  const internal::Digits whole = internal::leading_digits(text);
  text += whole.count;
  std::uint64_t digits = whole.value;
  unsigned count = whole.count;
  unsigned decimals = 0;
  if (*text == '.') {
    const internal::Digits fraction = internal::leading_digits(text + 1);
    text += 1 + fraction.count;
    decimals = fraction.count;
    count += decimals;
    digits = digits * internal::kWholePowersOfTen[decimals] + fraction.value;
  }
  if (count == 0 || static_cast<unsigned char>(*text) >= '0' || digits > std::uint64_t{1} << 53) {
    return nullptr;
  }
  const double magnitude =
      static_cast<double>(static_cast<std::int64_t>(digits)) / internal::kPowersOfTen[decimals];
  value = negative ? -magnitude : magnitude;
  return text;
}

/// The number at the start of `text`, the same bits as std::atof of a copy of it: leading white
/// space is skipped, the longest numeric prefix counts, 0 when there is none.
///
/// Precondition: kTextPadding bytes are readable behind the text, and the first of them does not
/// continue a number (comma, blank, line end and NUL do not).
inline double read_double(std::string_view text) {
  double value;
  if (read_plain_decimal(text.data(), value) != nullptr) return value;
  return internal::read_any_double(text);
}

/// The integer at the start of `text`, the same as std::atoi of a copy of it. Where that is
/// undefined (beyond the int range), the value is what the C library makes of it.
/// Precondition: as for read_double.
inline int read_int(std::string_view text) {
  const internal::Digits digits = internal::leading_digits(text.data());
  if (digits.count != 0 && static_cast<unsigned char>(text.data()[digits.count]) < '0') {
    return static_cast<int>(digits.value);
  }
  return internal::read_any_int(text);
}

namespace internal {

/// For each binary exponent of a number from 2^-14 to just below 2^20: the decimal exponent of the
/// smallest such number. The largest is at most one decade higher.
struct Decades {
  static constexpr int kFirst = 1023 - 14;
  std::array<signed char, 34> of{};
  constexpr Decades() {
    for (int i = 0; i < 34; ++i) {
      double smallest = 1;
      for (int k = i; k < 14; ++k) smallest /= 2;
      for (int k = 14; k < i; ++k) smallest *= 2;
      int decade = -5;
      for (const double power : {1e-4, 1e-3, 1e-2, 1e-1, 1e0, 1e1, 1e2, 1e3, 1e4, 1e5}) {
        decade += smallest >= power;
      }
      of[static_cast<std::size_t>(i)] = static_cast<signed char>(decade);
    }
  }
};
inline constexpr Decades kDecades;

/// 10^-5 to 10^6, the nearest doubles.
inline constexpr std::array<double, 12> kDecadeStart = {1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1e0,
                                                        1e1,  1e2,  1e3,  1e4,  1e5,  1e6};

/// The digits of a number of at most eight, one a byte, the first one lowest.
inline std::uint64_t spread_digits(std::uint32_t number) {
  std::uint64_t word = number / 10000 | std::uint64_t{number % 10000} << 32;
  const std::uint64_t hundreds = (word * 10486 >> 20) & 0x0000007f0000007f;
  word = hundreds | (word - hundreds * 100) << 16;
  const std::uint64_t tens = (word * 103 >> 10) & 0x000f000f000f000f;
  return tens | (word - tens * 10) << 8;
}

}  // namespace internal

/// Writes `value` as a stream in its default state does: six significant digits, the shorter of
/// plain and exponent form, no trailing zeros; "-0", "inf", "-inf", "nan" and "-nan" included.
///
/// @param out  where to write; kNumberRoom characters must be writable, of which more than the text
///             itself may be overwritten.
/// @return the end of the text.
///
/// From 0.0001 to just below 999999.5 the six digits are the integer nearest to
/// exact = value * 10^k, with 10^5 <= exact < 10^6, ties to even. 10^k (k from 0 to 9) is a double,
/// so scaled = the rounded product differs from exact by less than half a unit in its last place,
/// and scaled, its whole part and its fraction are all exact. A fraction above one half then means
/// exact > whole + 1/2, and one below it exact < whole + 1/2, because whole + 1/2 is itself a
/// double and rounding never crosses one. Only a fraction of exactly one half leaves the side open:
/// those few go to the standard library, as does everything outside the range.
/// Near the ends of a decade scaled may round up to 10^6, or value may pass for the next decade's
/// start: both give the digits 100000 one decade up, as they should.
inline char* write_double(double value, char* out) {
  using namespace internal;
  const double magnitude = std::fabs(value);
  if (!(magnitude >= 1e-4 && magnitude < 999999.5)) return write_any_double(value, out);
  const auto binary = static_cast<std::size_t>(
      static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52) - Decades::kFirst);
  int decade = kDecades.of[binary];
  decade += magnitude >= kDecadeStart[static_cast<std::size_t>(decade + 6)];
  const double scaled = magnitude * kPowersOfTen[static_cast<std::size_t>(5 - decade)];
  auto six = static_cast<std::uint32_t>(static_cast<std::int64_t>(scaled));
  const double fraction = scaled - static_cast<double>(static_cast<std::int64_t>(six));
  if (fraction == 0.5) return write_any_double(value, out);
  six += fraction > 0.5;
  if (six == 1000000) {
    six = 100000;
    ++decade;
  }

  const std::uint64_t digits = spread_digits(six * 100);
  const int significant = 8 - std::countl_zero(digits) / 8;
  const std::uint64_t text = digits | repeat_byte('0');
  *out = '-';
  out += std::signbit(value);
  if (decade < 0) {
    store_word(out, 0x3030303030302e30);  // "0.000000"
    store_word(out + 1 - decade, text);
    return out + 1 - decade + significant;
  }
  const int whole = decade + 1;
  store_word(out, text);
  out[whole] = '.';
  store_word(out + whole + 1, text >> (8 * whole));
  return out + (significant > whole ? significant + 1 : whole);
}

}  // namespace vostrel

#endif  // VOSTREL_HELPERS_NUMBER_TEXT_H
