// Lines of a text file as views. Only LineReader::next_lines waits for the file.

#ifndef VOSTREL_TEXT_LINE_READER_H
#define VOSTREL_TEXT_LINE_READER_H

#include <cstddef>
#include <fstream>
#include <string_view>
#include <vector>

namespace vostrel {

/// Reads a file in blocks of whole lines. The caller can finish its work on one block, and flush
/// what it wrote, before it waits for the next:
///
///     LineReader file(name);
///     for (std::string_view lines; !(lines = file.next_lines()).empty();) {
///       while (!lines.empty()) use(take_line(lines));
///     }
class LineReader {
 public:
  /// Opens the file. Reads nothing yet.
  explicit LineReader(const char* name);

  /// Whether the file could be opened. If not, it has no lines.
  bool is_open() const { return file_.is_open(); }

  /// Reads until it has a whole line. Waits for it if the file is a pipe.
  ///
  /// Returns one or more whole lines, or nothing at the end of the file. The last line of a file
  /// may lack its newline; a line cut off by a read error is dropped. The view is valid until the
  /// next call, with kTextPadding readable bytes after it.
  /// Throws std::bad_alloc if a line doesn't fit into memory.
  ///
  /// On a pipe, lines that have arrived are returned at once with libstdc++. libc++ fills a whole
  /// block first, unless the pipe is closed.
  std::string_view next_lines();

 private:
  std::size_t read_block();

  std::vector<char> stream_buffer_;
  std::ifstream file_;  // uses stream_buffer_, so declared after it
  std::vector<char> text_;
  std::size_t begin_ = 0;  // of the text that is not yet returned
  std::size_t end_ = 0;
};

/// Takes the first line off `lines`, which isn't empty. Returns it without its newline.
std::string_view take_line(std::string_view& lines);

}  // namespace vostrel

#endif  // VOSTREL_TEXT_LINE_READER_H
