#include "text/read_number.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <limits>
#include <string>
#include <system_error>
#include <version>

namespace vostrel {

namespace {

// What std::atof and std::atoi skip before a number.
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// Calls convert() on a NUL-terminated copy of the text. A short copy is made on the stack.
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

double internal::read_any_double(std::string_view text) {
  std::string_view number = text;
  number.remove_prefix(std::min(number.find_first_not_of(kWhiteSpace), number.size()));
  const bool negative = number.starts_with('-');
  if (negative || number.starts_with('+')) number.remove_prefix(1);

  if (number == "nan") {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    return negative ? -nan : nan;
  }
#ifdef __cpp_lib_to_chars
  // std::from_chars rounds decimal numbers as std::atof does and is several times faster. It would
  // take a second sign, doesn't know hexadecimal prefixes, and gives no value out of range.
  const bool decimal = !number.empty() && (is_digit(number[0]) || number[0] == '.') &&
                       !number.starts_with("0x") && !number.starts_with("0X");
  if (decimal) {
    double value;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (error == std::errc{}) return negative ? -value : value;
  }
#endif
  return with_terminated_copy(text, [](const char* copy) { return std::atof(copy); });
}

int read_int(std::string_view text) {
  return with_terminated_copy(text, [](const char* copy) { return std::atoi(copy); });
}

const char* internal::read_any_field(const char* text, char separator, double& value) {
  const char* const end = find_field_end(text, text, separator);
  if (end != nullptr) value = read_any_double({text, static_cast<std::size_t>(end - text)});
  return end;
}

const char* find_field_end(const char* field, const char* from, char separator) {
  const char* end = from;
  while (*end != separator && *end != '\n') {
    if (*end == '\0' || static_cast<std::size_t>(end - field) >= kShortText) return nullptr;
    ++end;
  }
  return end != field ? end : nullptr;
}

}  // namespace vostrel
