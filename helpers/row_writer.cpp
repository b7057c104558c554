#include "helpers/row_writer.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "helpers/block_size.h"
#include "helpers/number_text.h"

namespace vostrel {

namespace {

// Room for the rows of one block of an ordinary table, which then go out in one piece.
constexpr std::size_t kBlock = 2 * kBlockSize;

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

RowWriter::RowWriter(const char* name) : block_(kBlock) {
  // Without a buffer of its own the stream can't keep rows whose writing failed, and write them a
  // second time when it is closed.
  file_.rdbuf()->pubsetbuf(nullptr, 0);
  file_.open(name);
}

void RowWriter::append(const double* first, const double* second, std::size_t count) {
  for (std::size_t done = 0; done < count;) {
    std::size_t room = (block_.size() - used_) / kRowRoom;
    if (room == 0) {
      flush();
      room = block_.size() / kRowRoom;
    }
    const std::size_t end = std::min(count, done + room);
    // On local variables, which no character written to the block can be a part of.
    RowNumber number = number_;
    char* out = block_.data() + used_;
    for (; done < end; ++done) {
      out = number.write(out);
      *out++ = ' ';
      out = write_double(first[done], out);
      *out++ = ' ';
      out = write_double(second[done], out);
      *out++ = '\n';
      number.increment();
    }
    used_ = static_cast<std::size_t>(out - block_.data());
    number_ = number;
  }
}

void RowWriter::flush() {
  file_.write(block_.data(), static_cast<std::streamsize>(used_)).flush();
  used_ = 0;
}

}  // namespace vostrel
