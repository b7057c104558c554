#include "helpers/number_copy.h"

#include "helpers/number_text.h"

namespace vostrel {

namespace {

// Copies the number that the field at `text` begins with, behind blanks; kNotCopied when it has
// more of a shape than digits and a point.
CopiedNumber copy_plain_number(const char* text, char* out) {
  while (*text == ' ') ++text;
  const bool negative = *text == '-';
  *out = '-';
  const CopiedNumber copied = copy_usual_number(text + negative, out + negative);
  if (copied.text != nullptr) return copied;
  double value;
  const char* const end = read_plain_decimal(text, value);
  return end != nullptr ? CopiedNumber{end, write_double(value, out)} : kNotCopied;
}

}  // namespace

CopiedNumber internal::copy_any_number(const char* text, char separator, char* out) {
  const CopiedNumber copied = copy_plain_number(text, out);
  if (copied.text != nullptr) {
    // What stands behind the number in its field, such as the return of a line that ends with one,
    // counts for nothing.
    const char* const end = find_field_end(text, copied.text, separator);
    return end != nullptr ? CopiedNumber{end, copied.out} : kNotCopied;
  }
  double value;
  const char* const end = read_field(text, separator, value);
  return end != nullptr ? CopiedNumber{end, write_double(value, out)} : kNotCopied;
}

}  // namespace vostrel
