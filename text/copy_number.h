// Copies a number from one text to another. The result is that of reading the number and writing it
// with six digits. Most numbers are copied without making a double.

#ifndef VOSTREL_TEXT_COPY_NUMBER_H
#define VOSTREL_TEXT_COPY_NUMBER_H

#include <bit>
#include <cstdint>

#include "text/eight_characters.h"
#include "text/read_number.h"
#include "text/write_number.h"

namespace vostrel {

/// Where a copied number ends in both texts.
struct CopiedNumber {
  const char* read_end;
  char* write_end;
};

inline constexpr CopiedNumber kNotCopied = {nullptr, nullptr};

/// Copies a number like most redshifts: one digit, a point and any number of decimals, from 0.01
/// to just below 10, with a character below '0' after it.
///
/// Returns both ends, or kNotCopied if the number is anything else or its rounding is not certain.
/// Requires kTextPadding readable bytes after the number and kNumberRoom writable bytes at `out`.
///
/// Looks at the first eight decimals, one digit in each byte, the first in the highest byte. Drops
/// the last three of them, two or one: six digits remain. Adding a five at the first
/// dropped digit rounds the number x.
///
/// Why it is exact: the dropped digits are neither exactly the five nor, with more decimals after
/// them, just below it. So x is at least 10^-8 away from every midpoint between two numbers of six
/// digits. The double nearest to x is within 10^-15 of x, hence on the same side of every midpoint,
/// and has the same six digits.
///
/// One addition handles all eight digits: 246 is added to each byte too, and a digit that
/// reaches ten carries. Where there was no carry, the 246 is subtracted again.
inline CopiedNumber copy_small_decimal(const char* text, char* out) {
  auto whole = static_cast<std::uint64_t>(*text - '0');
  if (whole > 9 || text[1] != '.') return kNotCopied;
  const DigitWord digits = load_digits(text + 2);
  std::uint64_t decimals = digits.values;
  unsigned count = 8;  // the most common count: the processor needn't wait for it
  if (digits.end != 0) {
    decimals = digits_then_zeros(digits);
    count = count_digits(digits);
  }
  decimals = reverse_bytes(decimals);
  const char* end = text + 2 + count;

  // Zeros at the start move the six digits to the right by up to two places. Computed, because a
  // branch would be mispredicted too often in a column of values around 1.
  const std::uint64_t front = whole << 56 | decimals >> 8;
  const unsigned zeros = static_cast<unsigned>(std::countl_zero(front | 1)) / 8;
  const std::uint64_t five = std::uint64_t{0x050000} >> (8 * zeros);
  const std::uint64_t dropped = std::uint64_t{0xffffff} >> (8 * zeros);
  if ((decimals & dropped) == five) return kNotCopied;  // with three zeros both are 0
  if (static_cast<unsigned char>(*end) >= '0') {
    const std::uint64_t below_five = std::uint64_t{0x040909} >> (8 * zeros);
    if ((decimals & dropped) == below_five) return kNotCopied;
    end = skip_digits(end);
    if (static_cast<unsigned char>(*end) >= '0') return kNotCopied;
  }

  constexpr std::uint64_t kCarry = repeat_byte(246);
  std::uint64_t sum = decimals + five + kCarry;
  whole += sum < kCarry;
  if (whole == 10) return kNotCopied;
  sum -= (sum >> 7 & repeat_byte(1)) * 246;
  sum &= ~dropped;

  *out = static_cast<char>(whole + '0');
  out[1] = '.';
  store_eight(out + 2, reverse_bytes(sum) | repeat_byte('0'));
  const unsigned left = 8 - static_cast<unsigned>(std::countr_zero(sum)) / 8;
  return {end, out + 1 + left + (left != 0)};
}

namespace internal {
// Copies what copy_number doesn't copy itself.
CopiedNumber copy_any_number(const char* text, char separator, char* out);
}  // namespace internal

/// Copies the number in a field, which ends at the first `separator` or newline: writes what
/// write_double makes of what read_double reads.
///
/// Returns the end of the field and of the text written. Returns kNotCopied if the field is empty,
/// holds a NUL after its number, or is longer than kShortText and not such a simple number.
/// Requires the same as read_field and write_double, and a separator other than a space.
inline CopiedNumber copy_number(const char* text, char separator, char* out) {
  const CopiedNumber copied = copy_small_decimal(text, out);
  if (copied.read_end != nullptr && (*copied.read_end == separator || *copied.read_end == '\n')) {
    return copied;
  }
  return internal::copy_any_number(text, separator, out);
}

}  // namespace vostrel

#endif  // VOSTREL_TEXT_COPY_NUMBER_H
