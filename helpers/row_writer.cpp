#include "helpers/row_writer.h"

#include <array>
#include <charconv>

#include "helpers/number_text.h"

namespace vostrel {

namespace {

constexpr std::size_t kBlock = std::size_t{1} << 17;
// A row number of at most eleven characters, two values, two blanks and a newline.
constexpr std::size_t kRowRoom = 16 + 2 * kNumberRoom;

}  // namespace

char* RowNumber::write_whole(char* out) const { return std::to_chars(out, out + 16, number_).ptr; }

void RowNumber::take_thousands() {
  std::array<char, 16> text{};
  const char* const end = std::to_chars(text.data(), text.data() + text.size(), number_ / 1000).ptr;
  thousands_ = load_word(text.data());
  thousands_size_ = static_cast<std::size_t>(end - text.data());
  // Below 0 nothing is looked up, but the thousands must begin with a multiple of 1000 there too.
  units_ = static_cast<std::uint32_t>((number_ % 1000 + 1000) % 1000);
}

RowWriter::RowWriter(const char* name) : file_(name), block_(kBlock) {}

void RowWriter::append(double first, double second) {
  if (used_ + kRowRoom > block_.size()) flush();
  char* out = number_.write(block_.data() + used_);
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
