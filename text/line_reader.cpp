#include "text/line_reader.h"

#include <algorithm>
#include <cstring>

#include "text/block_size.h"
#include "text/byte_words.h"

namespace vostrel {

LineReader::LineReader(const char* name)
    : stream_buffer_(kBlockSize + 1),
      text_(2 * kBlockSize + kTextPadding),
      begin_(text_.data()),
      lines_end_(begin_),
      end_(begin_) {
  // The stream keeps one byte of its buffer to itself.
  file_.rdbuf()->pubsetbuf(stream_buffer_.data(),
                           static_cast<std::streamsize>(stream_buffer_.size()));
  file_.open(name);
}

bool LineReader::fill() {
  if (ended_) return false;
  const auto kept = static_cast<std::size_t>(end_ - begin_);
  if (kept + kBlockSize + kTextPadding > text_.size()) {
    std::vector<char> larger(2 * text_.size());
    std::copy(begin_, end_, larger.begin());
    text_.swap(larger);
  } else {
    std::memmove(text_.data(), begin_, kept);
  }
  begin_ = text_.data();

  // peek waits for the next block, and readsome takes what is there without waiting again. A stream
  // that was asked for a whole block would wait until it is full, or the file at its end.
  file_.peek();
  const auto read = static_cast<std::size_t>(file_.readsome(text_.data() + kept, kBlockSize));
  const char* const news = begin_ + kept;
  end_ = news + read;
  std::memset(text_.data() + kept + read, 0, kTextPadding);
  if (read == 0) {
    ended_ = true;
    if (file_.bad()) end_ = begin_;
    lines_end_ = end_;
  } else {
    // What was kept is part of one line, so its end can only be among the news.
    const std::size_t newline = std::string_view(news, read).rfind('\n');
    lines_end_ = newline == std::string_view::npos ? begin_ : news + newline + 1;
  }
  return begin_ != end_;
}

bool LineReader::next(std::string_view& line) {
  if (begin_ == lines_end_) return false;
  const auto size = static_cast<std::size_t>(lines_end_ - begin_);
  const auto* newline = static_cast<const char*>(std::memchr(begin_, '\n', size));
  const char* const line_end = newline != nullptr ? newline : lines_end_;  // for the last line
  line = {begin_, static_cast<std::size_t>(line_end - begin_)};
  begin_ = newline != nullptr ? newline + 1 : lines_end_;
  return true;
}

}  // namespace vostrel
