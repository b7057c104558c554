#include "text/row_writer.h"

#include <charconv>

#include "text/block_size.h"

namespace vostrel {

void RowNumber::convert() {
  char* const end = std::to_chars(text_.data(), text_.data() + text_.size(), number_).ptr;
  size_ = static_cast<std::size_t>(end - text_.data());
  last_ = end[-1];
}

// The rows of one block of an ordinary table fit into block_, so they are written in one call.
RowWriter::RowWriter(const char* name)
    : block_(2 * kBlockSize),
      row_(block_.data()),
      last_row_(block_.data() + block_.size() - kRowRoom) {
  static_assert(kRowRoom <= 2 * kBlockSize);
  // With a buffer, the stream would write rows a second time when it is closed after a failure.
  file_.rdbuf()->pubsetbuf(nullptr, 0);
  file_.open(name);
}

void RowWriter::flush() {
  file_.write(block_.data(), row_ - block_.data()).flush();
  row_ = block_.data();
}

}  // namespace vostrel
