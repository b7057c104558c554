#include "text/write_number.h"

#include <charconv>
#include <cstdio>
#include <string_view>
#include <version>

namespace vostrel {

namespace {

char* write_text(std::string_view text, char* out) { return out + text.copy(out, text.size()); }

}  // namespace

char* internal::write_any_double(double value, char* out) {
  *out = '-';
  out += std::signbit(value);
  const double magnitude = std::fabs(value);
  if (magnitude == 0) return write_text("0", out);
  // Standard libraries write NaN in different ways.
  if (std::isnan(value)) return write_text("nan", out);
#ifdef __cpp_lib_to_chars
  const std::chars_format format = std::chars_format::general;
  return std::to_chars(out, out + (kNumberRoom - 1), magnitude, format, 6).ptr;
#else
  return out + std::snprintf(out, kNumberRoom - 1, "%.6g", magnitude);
#endif
}

}  // namespace vostrel
