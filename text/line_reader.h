// The lines of a text file, without a copy of each and with the reads in plain sight.

#ifndef VOSTREL_TEXT_LINE_READER_H
#define VOSTREL_TEXT_LINE_READER_H

#include <cstddef>
#include <fstream>
#include <string_view>
#include <vector>

namespace vostrel {

/// Hands out the lines of a file as std::getline would, from blocks that are read when the caller
/// says so. The caller can thus finish what others may be waiting for before it waits itself:
///
///     LineReader file(name);
///     std::string_view line;
///     while (file.fill()) {
///       while (file.next(line)) ...
///     }
///
/// A line lasts until the next fill. Its newline is dropped, and nothing else is: not a carriage
/// return, not a NUL. A last line without a newline counts; one cut off by a read error does not.
/// Where a line ends, kTextPadding more bytes are readable.
class LineReader {
 public:
  /// Opens the file but reads nothing yet.
  explicit LineReader(const char* name);

  /// Whether the file could be opened. One that could not has no lines.
  bool is_open() const { return file_.is_open(); }

  /// Reads more of the file, once, waiting for it if need be; what was read and not yet taken
  /// stays.
  /// @return false when there is nothing to come from next() any more.
  /// @throws std::bad_alloc when a line does not fit into memory.
  bool fill();

  /// Takes the next line, if all of it has been read.
  bool next(std::string_view& line);

  /// The lines that have been read and not taken, all of them whole.
  std::string_view lines() const { return {begin_, static_cast<std::size_t>(lines_end_ - begin_)}; }

  /// Takes the lines before `position`: the start of one of lines(), or their end.
  void take_until(const char* position) { begin_ = position; }

 private:
  std::vector<char> stream_buffer_;  // what one read of the file can bring
  std::ifstream file_;               // uses it, so stands behind it
  std::vector<char> text_;           // the text that was read, in one piece, padding behind it
  const char* begin_;                // of the text that was read and not taken
  const char* lines_end_;            // of its whole lines
  const char* end_;
  bool ended_ = false;
};

}  // namespace vostrel

#endif  // VOSTREL_TEXT_LINE_READER_H
