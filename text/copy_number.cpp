#include "text/copy_number.h"

#include <cstddef>

namespace vostrel {

namespace {

// As copy_small_decimal, for scientific notation: a digit from 1 to 9, a point, any number of
// decimals, an e, a sign and two digits, from 0.0001 to just below 10^5. Looks at nine digits and
// drops three of them. It is exact for the same reason.
CopiedNumber copy_scientific(const char* text, char* out) {
  if (!is_digit(*text) || *text == '0' || text[1] != '.') return kNotCopied;
  const char* const e = skip_digits(text + 2);
  if (*e != 'e' && *e != 'E') return kNotCopied;
  if ((e[1] != '-' && e[1] != '+') || e[2] != '0' || !is_digit(e[3])) return kNotCopied;
  if (static_cast<unsigned char>(e[4]) >= '0') return kNotCopied;
  const int power = e[1] == '-' ? '0' - e[3] : e[3] - '0';
  if (power < -4 || power > 4) return kNotCopied;

  const std::uint64_t decimals = join_digits(digits_then_zeros(load_digits(text + 2)));
  const auto digits =
      static_cast<std::uint32_t>(*text - '0') * 100000000 + static_cast<std::uint32_t>(decimals);
  const std::uint32_t dropped = digits % 1000;
  const bool more_decimals = e - text > 10;
  if (dropped == 500 || (dropped == 499 && more_decimals)) return kNotCopied;
  const std::uint32_t six = digits / 1000 + (dropped > 500);
  const int decade = power + 5;
  return {e + 4, internal::write_six_digits(six, static_cast<std::size_t>(decade), out)};
}

// Copies the number at the start of a field, after spaces: digits, a point, perhaps an exponent.
// Returns kNotCopied for any other number.
CopiedNumber copy_leading_number(const char* text, char* out) {
  const char* number = text;
  while (*number == ' ') ++number;
  const bool negative = *number == '-';
  const char* const magnitude = number + negative;
  *out = '-';
  CopiedNumber copied = kNotCopied;
  // If there are no spaces and no minus, copy_number has tried this.
  if (magnitude != text) copied = copy_small_decimal(magnitude, out + negative);
  if (copied.read_end == nullptr) copied = copy_scientific(magnitude, out + negative);
  if (copied.read_end != nullptr) return copied;
  double value;
  const char* const end = read_decimal(number, value);
  return end != nullptr ? CopiedNumber{end, write_double(value, out)} : kNotCopied;
}

}  // namespace

CopiedNumber internal::copy_any_number(const char* text, char separator, char* out) {
  const CopiedNumber copied = copy_leading_number(text, out);
  if (copied.read_end != nullptr) {
    // The rest of the field, such as a carriage return, is ignored.
    const char* const end = find_field_end(text, copied.read_end, separator);
    return end != nullptr ? CopiedNumber{end, copied.write_end} : kNotCopied;
  }
  double value;
  const char* const end = read_any_field(text, separator, value);
  return end != nullptr ? CopiedNumber{end, write_double(value, out)} : kNotCopied;
}

}  // namespace vostrel
