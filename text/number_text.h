// Numbers as text, both ways: what std::atof, std::atoi and a stream in its default state do, to
// the last bit and character, without copies of the text and without locale machinery.
//
// The common shapes (a minus, digits, a point, digits; 0.0001 to 999999) are handled here, all but
// the minus inline; everything else goes to the standard library in number_text.cpp. A usual number
// takes 2 to 3 ns to read, where std::atof takes 45, and 5 ns to write, where std::to_chars takes
// 36 and a stream 118.

#ifndef VOSTREL_TEXT_NUMBER_TEXT_H
#define VOSTREL_TEXT_NUMBER_TEXT_H

#include <array>
#include <bit>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "text/byte_words.h"
#include "text/digits.h"

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

// What the functions below leave to the standard library.
double read_any_double(std::string_view text);
int read_any_int(std::string_view text);
char* write_any_double(double value, char* out);

// A plain decimal number without a sign; as read_plain_decimal.
inline const char* read_plain_magnitude(const char* text, double& value) {
  std::uint64_t digits;
  if (text[1] == '.' && is_digit(text[0])) {
    const Digits decimals = leading_decimals(text + 2);
    digits = static_cast<std::uint64_t>(*text - '0') * 100000000 + decimals.value;
    text += 2 + decimals.count;
  } else {
    const Digits whole = leading_digits(text);
    text += whole.count;
    unsigned count = whole.count;
    digits = whole.value * 100000000;
    if (*text == '.') {
      const Digits decimals = leading_decimals(text + 1);
      digits += decimals.value;
      text += 1 + decimals.count;
      count += decimals.count;
    }
    if (count == 0 || digits > std::uint64_t{1} << 53) return nullptr;
  }
  if (static_cast<unsigned char>(*text) >= '0') return nullptr;
  value = static_cast<double>(static_cast<std::int64_t>(digits)) / 1e8;
  return text;
}

// The same behind a minus, for the place of the minus.
const char* read_negative_decimal(const char* text, double& value);

}  // namespace internal

/// Reads a plain decimal number at `text`: an optional minus, up to eight digits, and optionally a
/// point with up to eight digits more; at least one digit, and behind it a character below '0' (a
/// comma, blank, line end, ...), which can't continue the number.
///
/// @return the end of the number, with `value` set to what std::atof gives; or nullptr, with
///         `value` untouched, when the text is anything else.
/// Precondition: kTextPadding bytes are readable behind the number.
///
/// Exact because the digits, filled up with zeros to eight decimals, form an integer of at most
/// 2^53: it is a double, and so is 10^8, so that their quotient, rounded once by the division, is
/// the double nearest to the decimal number. That is what std::atof returns.
///
/// What is usual (no sign, one digit before the point) is told by branches: guessed right, they let
/// the processor go on to what stands behind the number before it has looked at all of it.
inline const char* read_plain_decimal(const char* text, double& value) {
  if (*text == '-') return internal::read_negative_decimal(text, value);
  return internal::read_plain_magnitude(text, value);
}

/// The end of a field: the first `separator` or newline from `from` on, a place in that field.
///
/// @return that place; nullptr when the field is empty, or when a NUL or the end of kShortText
///         characters is met on the way.
/// Precondition: the text ends with a newline or a NUL.
const char* find_field_end(const char* field, const char* from, char separator);

/// Reads the number in the field that begins at `text`, whatever its shape, and ends in front of
/// the first `separator` or newline.
///
/// @return the place of that separator or newline, with `value` set to what std::atof makes of the
///         field; or nullptr when the field is empty, holds a NUL, or is longer than kShortText.
/// Precondition: the text ends with a newline or a NUL, with kTextPadding readable bytes behind it.
const char* read_field(const char* text, char separator, double& value);

/// Reads the number in a field that must end in front of `separator`: as read_field, but nullptr as
/// well when the line ends first; and fast when the field is a plain decimal number.
inline const char* read_field_before(const char* text, char separator, double& value) {
  const char* end = read_plain_decimal(text, value);
  if (end == nullptr || *end != separator) end = read_field(text, separator, value);
  return end != nullptr && *end == separator ? end : nullptr;
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
  const Digits digits = leading_digits(text.data());
  if (digits.count != 0 && static_cast<unsigned char>(*(text.data() + digits.count)) < '0') {
    return static_cast<int>(digits.value);
  }
  return internal::read_any_int(text);
}

namespace internal {

/// What turns the numbers of one binade (those with the same binary exponent) into six digits
/// before the point.
struct Binade {
  std::size_t decade;           // the decade of the smallest of them, counted from 10^-5
  double next_decade;           // from here on it is one higher
  std::array<double, 2> scale;  // 10^5 over the power of ten, below next_decade and from it on
};

/// The binades from 2^-14 to just below 2^20.
struct Binades {
  static constexpr std::size_t kFirst = 1023 - 14;
  std::array<Binade, 34> of{};

  constexpr Binades() {
    constexpr std::array<double, 12> kPowers = {1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1e0,
                                                1e1,  1e2,  1e3,  1e4,  1e5,  1e6};
    double smallest = 1.0 / (1 << 14);
    std::size_t power = 0;
    for (Binade& binade : of) {
      while (smallest >= kPowers[power + 1]) ++power;
      // Behind 10^-5 there is no scale that is needed: numbers below 10^-4 are written elsewhere.
      const double scale = power == 0 ? 0 : kPowersOfTen[10 - power];
      const double next_scale = power == 10 ? 0 : kPowersOfTen[9 - power];
      binade = {power, kPowers[power + 1], {scale, next_scale}};
      smallest *= 2;
    }
  }
};
inline constexpr Binades kBinades;

/// Where the digits of a decade's numbers go, from 10^-5 on. Told by a table, since a branch on the
/// decade would be guessed wrong too often in a column of values about 1.
struct Layout {
  std::uint64_t front;         // the text in front of the point and zeros behind it ...
  std::uint64_t front_digits;  // ... and all bits where digits take its place
  std::uint32_t in_front;      // how many digits there are in front of the point
  std::uint32_t point;         // where the point stands
  std::uint32_t rest;          // where the digits behind the point begin
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

/// Writes a number from its six digits and its decade, counted from 10^-5, without the zeros that
/// end its decimals. 1000000 counts as 100000 one decade up. Precondition: that is below 10^6.
inline char* write_six_digits(std::uint32_t six, std::size_t decade, char* out) {
  if (six == 1000000) {
    six = 100000;
    ++decade;
  }
  const std::uint32_t upper = kTriples.of[six / 1000];
  const std::uint32_t lower = kTriples.of[six % 1000];
  const std::uint64_t text = (upper & 0xffffff) | std::uint64_t{lower} << 24;
  const std::uint32_t significant = lower >> 24 != 0 ? 3 + (lower >> 24) : upper >> 24;
  const Layout& layout = kLayouts[decade];
  store_word(out, layout.front | (text & layout.front_digits));
  out[layout.point] = '.';
  out += layout.rest;
  store_word(out, text >> (8 * layout.in_front));
  return significant > layout.in_front ? out + (significant - layout.in_front) : out - 1;
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
/// exact = value * 10^k, where 10^5 <= exact < 10^6; ties to even. 10^k, with k from 0 to 9, is a
/// double, so scaled, the rounded product, is the double nearest to exact. Unless scaled lies
/// midway between two integers, both have the same nearest integer: the midway points are doubles
/// themselves, and rounding never carries a number past a double. Adding 2^52 finds that integer,
/// ties to even, as doubles from there on are whole numbers; subtracting it again is exact. Midway,
/// what the product lost by rounding tells the side that exact lies on, and a fused multiplication
/// and addition gives just that; nothing lost means a true tie, which is settled already. At the
/// ends of a decade the digits may come out as 10^6, or a number just below a power of ten that is
/// no double may pass for it: "100000" one decade up is right for both.
inline char* write_double(double value, char* out) {
  using namespace internal;
  const double magnitude = std::fabs(value);
  if (!(magnitude >= 1e-4 && magnitude < 999999.5)) return write_any_double(value, out);
  const Binade& binade =
      kBinades.of[(std::bit_cast<std::uint64_t>(magnitude) >> 52) - Binades::kFirst];
  const bool next = magnitude >= binade.next_decade;
  const double scaled = magnitude * binade.scale[next];
  constexpr double kWholeFromHere = 4503599627370496.0;  // 2^52
  const double shifted = scaled + kWholeFromHere;
  auto six = static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(shifted));
  if (std::fabs(scaled - (shifted - kWholeFromHere)) == 0.5) {
    const double error = std::fma(magnitude, binade.scale[next], -scaled);
    if (error != 0) six = static_cast<std::uint32_t>(scaled) + (error > 0);
  }
  *out = '-';
  return internal::write_six_digits(six, binade.decade + next, out + std::signbit(value));
}

}  // namespace vostrel

#endif  // VOSTREL_TEXT_NUMBER_TEXT_H
