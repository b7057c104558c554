#include "helpers/number_copy.h"

#include "helpers/number_text.h"

namespace vostrel {

CopiedNumber internal::copy_any_number(const char* text, char separator, char* out) {
  double value;
  const char* end = read_plain_decimal(text, value);
  if (end == nullptr || (*end != separator && *end != '\n')) {
    end = read_field(text, separator, value);
  }
  if (end == nullptr) return kNotCopied;
  return {end, write_double(value, out)};
}

}  // namespace vostrel
