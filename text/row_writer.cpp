#include "text/row_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "text/block_size.h"

namespace vostrel {

namespace {

// Room for the rows of one block of an ordinary table, which then go out in one piece.
constexpr std::size_t kBlock = 2 * kBlockSize;

}  // namespace

char* RowNumber::write_another_way(char* out) {
  const auto number = static_cast<std::int32_t>(static_cast<std::uint32_t>(base_) + units_);
  if (number < 1000) {
    base_ = number;
    units_ = 0;
    limit_ = 0;
    return std::to_chars(out, out + 16, number).ptr;
  }
  // The thousands of this number, which serve up to the next multiple of 1000.
  units_ = static_cast<std::uint32_t>(number % 1000);
  base_ = number - number % 1000;
  constexpr std::uint32_t kLast = std::numeric_limits<std::int32_t>::max();
  limit_ = std::min<std::uint32_t>(1000, kLast - static_cast<std::uint32_t>(base_) + 1);
  std::array<char, 16> text{};
  const char* const end = std::to_chars(text.data(), text.data() + text.size(), base_ / 1000).ptr;
  thousands_ = load_word(text.data());
  thousands_size_ = static_cast<std::size_t>(end - text.data());
  return write_with_thousands(out);
}

RowWriter::RowWriter(const char* name) : block_(kBlock) {
  static_assert(kRowRoom <= kBlock);
  // Without a buffer of its own the stream can't keep rows whose writing failed, and write them a
  // second time when it is closed.
  file_.rdbuf()->pubsetbuf(nullptr, 0);
  file_.open(name);
}

void RowWriter::append(double first, double second) {
  bool more = true;
  append_all([&](char* out) -> char* {
    if (!more) return nullptr;
    more = false;
    out = write_double(first, out);
    *out++ = ' ';
    return write_double(second, out);
  });
}

void RowWriter::flush() {
  file_.write(block_.data(), static_cast<std::streamsize>(used_)).flush();
  used_ = 0;
}

}  // namespace vostrel
