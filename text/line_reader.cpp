#include "text/line_reader.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "text/block_size.h"
#include "text/eight_characters.h"

namespace vostrel {

LineReader::LineReader(const char* name)
    : stream_buffer_(kBlockSize + 1), text_(2 * kBlockSize + kTextPadding) {
  // libstdc++ leaves one byte of the buffer unused.
  file_.rdbuf()->pubsetbuf(stream_buffer_.data(),
                           static_cast<std::streamsize>(stream_buffer_.size()));
  file_.open(name);
}

// Moves the text that is not yet returned to the start of text_ and appends a block. Returns the
// size of the block, 0 at the end of the file.
std::size_t LineReader::read_block() {
  if (begin_ != 0) {  // otherwise a long line would be moved onto itself for every block
    std::memmove(text_.data(), text_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ + kBlockSize + kTextPadding > text_.size()) {
    if (text_.size() > text_.max_size() / 2) throw std::bad_alloc();  // only with 32 bits
    std::vector<char> larger(2 * text_.size());
    std::copy_n(text_.data(), end_, larger.data());
    text_.swap(larger);
  }
  // read() would wait for a full block. peek() waits for one character, readsome() doesn't wait.
  file_.peek();
  const auto size = static_cast<std::size_t>(file_.readsome(text_.data() + end_, kBlockSize));
  end_ += size;
  std::memset(text_.data() + end_, 0, kTextPadding);
  return size;
}

std::string_view LineReader::next_lines() {
  std::size_t lines_end = 0;
  while (lines_end == 0) {
    const std::size_t size = read_block();
    if (size == 0) {
      if (file_.bad()) end_ = 0;
      lines_end = end_;
      break;
    }
    // The text before this block is part of one line.
    const std::size_t newline = std::string_view(text_.data() + end_ - size, size).rfind('\n');
    if (newline != std::string_view::npos) lines_end = end_ - size + newline + 1;
  }
  begin_ = lines_end;
  return {text_.data(), lines_end};
}

std::string_view take_line(std::string_view& lines) {
  const std::size_t newline = std::min(lines.find('\n'), lines.size());
  const std::string_view line = lines.substr(0, newline);
  lines.remove_prefix(std::min(newline + 1, lines.size()));
  return line;
}

}  // namespace vostrel
