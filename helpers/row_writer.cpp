#include "helpers/row_writer.h"

#include <algorithm>
#include <limits>

#include "helpers/number_text.h"

namespace vostrel {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 17;
// A row number of at most eleven characters, two values, two blanks and a newline.
constexpr std::size_t kRowRoom = 16 + 2 * kNumberRoom;

}  // namespace

RowNumber::RowNumber(std::int32_t first) : number_(first), text_(std::to_string(first)) {}

void RowNumber::increment() {
  if (number_ == std::numeric_limits<std::int32_t>::max()) {
    number_ = std::numeric_limits<std::int32_t>::min();
  } else {
    ++number_;
  }
  if (number_ > 0 && text_.back() != '9') {
    ++text_.back();
  } else {
    text_ = std::to_string(number_);
  }
}

RowWriter::RowWriter(const char* name) : file_(name), block_(kBlock) {}

void RowWriter::append(double first, double second) {
  if (used_ + kRowRoom > block_.size()) flush();
  const std::string& number = number_.text();
  char* out = std::copy(number.begin(), number.end(), block_.data() + used_);
  *out++ = ' ';
  out = write_double(first, out);
  *out++ = ' ';
  out = write_double(second, out);
  *out++ = '\n';
  used_ = static_cast<std::size_t>(out - block_.data());
  number_.increment();
}

void RowWriter::flush() {
  file_.write(block_.data(), static_cast<std::streamsize>(used_)).flush();
  used_ = 0;
}

}  // namespace vostrel
