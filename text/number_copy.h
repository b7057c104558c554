// A number from one text to another: what reading it and writing it with six digits gives, in most
// cases without making a double of it.

#ifndef VOSTREL_TEXT_NUMBER_COPY_H
#define VOSTREL_TEXT_NUMBER_COPY_H

#include <bit>
#include <cstdint>

#include "text/byte_words.h"
#include "text/digits.h"
#include "text/number_text.h"

namespace vostrel {

/// Where a copied number ends: in the text that was read, and in the one that was written.
struct CopiedNumber {
  const char* text;
  char* out;
};

inline constexpr CopiedNumber kNotCopied = {nullptr, nullptr};

/// Writes to `out` what write_double makes of the number that read_double finds at `text`, if it is
/// a number as catalogues of redshifts have them: one digit, a point and any number of decimals,
/// from 0.01 to just below 10; behind it a character below '0'.
///
/// @return both ends; kNotCopied when the number is anything else, or its rounding not certain.
/// Preconditions: kTextPadding bytes are readable behind the number, and kNumberRoom characters are
/// writable at `out`, of which more than the text itself may be overwritten.
///
/// Of the number x the first eight decimals are looked at, one digit to a byte, the first one
/// highest. The last three of them, two or one are dropped. Adding a five at the first one dropped
/// rounds x to six digits, unless what is dropped is exactly that five, or just below it with more
/// decimals to come. In all other cases x is at least 10^-8 away from every number midway between
/// two of six digits, and the double nearest to x is closer to x than 10^-15, hence on the same
/// side of all those, so that writing it gives the same digits.
///
/// The sum is made of all eight digits at once: 246 more in each byte makes a byte that reaches ten
/// pass on its carry, and is taken off again where there was none. All this takes about half the
/// time of making the double and writing it.
inline CopiedNumber copy_usual_number(const char* text, char* out) {
  auto whole = static_cast<std::uint64_t>(*text - '0');
  if (whole > 9 || text[1] != '.') return kNotCopied;
  const DigitWord digits = load_digits(text + 2);
  std::uint64_t decimals = digits.word;
  unsigned count = 8;  // as it often is: guessed right, what follows need not wait for the count
  if (digits.others != 0) {
    decimals = digits_only(digits);
    count = count_digits(digits);
  }
  decimals = reverse_bytes(decimals);
  const char* end = text + 2 + count;

  // The six digits end behind five decimals, or as many more as there are zeros in front. Told by
  // arithmetic, since a branch would be guessed wrong too often in a column of values about 1.
  const std::uint64_t front = whole << 56 | decimals >> 8;
  const unsigned zeros = static_cast<unsigned>(std::countl_zero(front | 1)) / 8;
  const std::uint64_t five = std::uint64_t{0x050000} >> (8 * zeros);
  const std::uint64_t dropped = std::uint64_t{0xffffff} >> (8 * zeros);
  if ((decimals & dropped) == five) return kNotCopied;  // behind three zeros too, as both are 0
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
  store_word(out + 2, reverse_bytes(sum) | repeat_byte('0'));
  const unsigned left = 8 - static_cast<unsigned>(std::countr_zero(sum)) / 8;
  return {end, out + 1 + left + (left != 0)};
}

namespace internal {
CopiedNumber copy_any_number(const char* text, char separator, char* out);
}

/// Writes to `out` the number in the field at `text`, whatever its shape, which ends in front of
/// the first `separator` or newline: what write_double makes of what read_double finds there.
///
/// @return the place of that separator or newline, and the end of what was written; kNotCopied for
///         an empty field, for one that holds a NUL, and for some of more than kShortText
///         characters, among them all that would take memory to read.
/// Preconditions: as for read_field and write_double; `separator` is no blank.
inline CopiedNumber copy_number(const char* text, char separator, char* out) {
  const CopiedNumber copied = copy_usual_number(text, out);
  if (copied.text != nullptr && (*copied.text == '\n' || *copied.text == separator)) return copied;
  return internal::copy_any_number(text, separator, out);
}

/// The same for a field that must end in front of `separator`: kNotCopied as well when the line
/// ends first.
inline CopiedNumber copy_number_before(const char* text, char separator, char* out) {
  const CopiedNumber copied = copy_usual_number(text, out);
  if (copied.text != nullptr && *copied.text == separator) return copied;
  const CopiedNumber other = internal::copy_any_number(text, separator, out);
  return other.text != nullptr && *other.text == separator ? other : kNotCopied;
}

}  // namespace vostrel

#endif  // VOSTREL_TEXT_NUMBER_COPY_H
