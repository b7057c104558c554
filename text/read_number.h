// Reads numbers as std::atof and std::atoi do, to the last bit.
//
// Decimal numbers such as -12.345678 are read inline, in 2 to 3 ns; std::atof takes 45. All others
// go to the standard library, in read_number.cpp.

#ifndef VOSTREL_TEXT_READ_NUMBER_H
#define VOSTREL_TEXT_READ_NUMBER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "floating_point.h"
#include "text/eight_characters.h"

namespace vostrel {

/// A text of up to this many characters is read without allocating memory.
inline constexpr std::size_t kShortText = 1024;

namespace internal {

// These read what the inline functions below don't.
double read_any_double(std::string_view text);
const char* read_any_field(const char* text, char separator, double& value);

// As read_decimal, for a number without a minus.
inline const char* read_positive_decimal(const char* text, double& value) {
  std::uint64_t digits;  // of the number times 10^8
  if (text[1] == '.' && is_digit(text[0])) {
    // The most common form. The branch lets the processor go on before it knows where the number
    // ends.
    const Digits decimals = leading_decimals(text + 2);
    digits = static_cast<std::uint64_t>(*text - '0') * 100000000 + decimals.value;
    text += 2 + decimals.count;
  } else {
    const Digits whole = leading_integer(text);
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

}  // namespace internal

/// Reads a decimal number: an optional minus, up to eight digits, and optionally a point with up to
/// eight more digits. There must be a digit, and a character below '0' (comma, space, line end,
/// ...) after the number.
///
/// Returns the end of the number and sets `value` to what std::atof returns. Returns nullptr and
/// leaves `value` alone if the text is anything else.
/// Requires kTextPadding readable bytes after the number.
///
/// Why it is exact: the number times 10^8 is an integer of at most 2^53, hence a double; so is
/// 10^8. The division rounds once, to the double nearest to the number, which is what std::atof
/// returns.
inline const char* read_decimal(const char* text, double& value) {
  if (*text != '-') return internal::read_positive_decimal(text, value);
  const char* const end = internal::read_positive_decimal(text + 1, value);
  if (end != nullptr) value = -value;
  return end;
}

/// Reads the number at the start of `text` as std::atof does: skips white space, takes the longest
/// prefix that is a number, and returns 0 if there is none.
///
/// Requires kTextPadding readable bytes after the text, the first of which can't continue a number
/// (comma, space, line end and NUL can't).
/// Throws std::bad_alloc if the text is longer than kShortText and there is no memory for a copy.
inline double read_double(std::string_view text) {
  double value;
  if (read_decimal(text.data(), value) != nullptr) return value;
  return internal::read_any_double(text);
}

/// Reads the integer at the start of `text` as std::atoi does, also beyond the range of int, where
/// the C library decides. Throws the same as read_double.
int read_int(std::string_view text);

/// Finds the end of a field: the first `separator` or newline at or after `from`, which lies in the
/// field.
///
/// Returns nullptr if the field is empty, holds a NUL after `from`, or goes on for more than
/// kShortText characters.
/// Requires a newline or NUL at the end of the text.
const char* find_field_end(const char* field, const char* from, char separator);

/// Reads a field, which ends at the first `separator` or newline.
///
/// Returns that end and sets `value` to what std::atof makes of the field. Returns nullptr, with
/// `value` unspecified, if the field is empty, holds a NUL, or is longer than kShortText.
/// Requires a newline or NUL at the end of the text, with kTextPadding readable bytes after it.
inline const char* read_field(const char* text, char separator, double& value) {
  const char* const end = read_decimal(text, value);
  if (end != nullptr && (*end == separator || *end == '\n')) return end;
  return internal::read_any_field(text, separator, value);
}

}  // namespace vostrel

#endif  // VOSTREL_TEXT_READ_NUMBER_H
