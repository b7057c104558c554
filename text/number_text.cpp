#include "text/number_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <string>
#include <system_error>

namespace vostrel {

namespace internal {

namespace {

// The six characters std::atof and std::atoi skip in front of a number.
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// Calls convert on a NUL-terminated copy of the text. A short copy needs no memory from the heap,
// so that reading an ordinary line can't fail for want of it.
template <class Convert>
auto with_terminated_copy(std::string_view text, Convert convert) {
  std::array<char, kShortText + 1> copy;
  if (text.size() < copy.size()) {
    *std::copy(text.begin(), text.end(), copy.begin()) = '\0';
    return convert(copy.data());
  }
  return convert(std::string(text).c_str());
}

}  // namespace

const char* read_negative_decimal(const char* text, double& value) {
  const char* const end = read_plain_magnitude(text + 1, value);
  if (end != nullptr) value = -value;
  return end;
}

double read_any_double(std::string_view text) {
  std::string_view number = text;
  number.remove_prefix(std::min(number.find_first_not_of(kWhiteSpace), number.size()));
  const bool negative = number.starts_with('-');
  if (negative || number.starts_with('+')) number.remove_prefix(1);

  if (number == "nan") {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    return negative ? -nan : nan;
  }
  // std::from_chars reads the same decimal numbers and rounds them the same way, several times
  // faster. It takes neither white space nor a plus, which are gone by now, but would take another
  // sign; it knows no hexadecimal prefix; and it gives no value beyond the range of a double.
  const bool decimal = !number.empty() && (is_digit(number[0]) || number[0] == '.') &&
                       !number.starts_with("0x") && !number.starts_with("0X");
  if (decimal) {
    double value;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error == std::errc{}) return negative ? -value : value;
  }
  return with_terminated_copy(text, [](const char* copy) { return std::atof(copy); });
}

int read_any_int(std::string_view text) {
  return with_terminated_copy(text, [](const char* copy) { return std::atoi(copy); });
}

char* write_any_double(double value, char* out) {
  if (value == 0) {  // the one common number outside the fast range
    *out = '-';
    out += std::signbit(value);
    *out = '0';
    return out + 1;
  }
  return std::to_chars(out, out + kNumberRoom, value, std::chars_format::general, 6).ptr;
}

}  // namespace internal

const char* find_field_end(const char* field, const char* from, char separator) {
  const char* end = from;
  while (*end != separator && *end != '\n') {
    if (*end == '\0' || static_cast<std::size_t>(end - field) >= kShortText) return nullptr;
    ++end;
  }
  return end != field ? end : nullptr;
}

const char* read_field(const char* text, char separator, double& value) {
  const char* const end = find_field_end(text, text, separator);
  if (end != nullptr) {
    value = internal::read_any_double({text, static_cast<std::size_t>(end - text)});
  }
  return end;
}

}  // namespace vostrel
