// Writing the intermediate file: rows "ID first second", in blocks of whole rows.

#ifndef VOSTREL_HELPERS_ROW_WRITER_H
#define VOSTREL_HELPERS_ROW_WRITER_H

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace vostrel {

/// The ID column: 0, 1, 2, ... as text. Counting in the text itself, which changes one character
/// nine times in ten, costs a fraction of converting each number.
class RowNumber {
 public:
  explicit RowNumber(std::int32_t first = 0);

  const std::string& text() const { return text_; }

  /// One more; 2147483647 is followed by -2147483648.
  void increment();

 private:
  std::int32_t number_;
  std::string text_;
};

/// Writes numbered rows to a file: the row number, a blank, the first value, a blank, the second
/// value, a newline; values as a stream in its default state writes them.
///
/// Rows are gathered and written some thousands at a time, never in part; the file ends with a
/// whole row whenever the program is elsewhere. Whoever is about to wait, or to end, calls flush()
/// first. As with any stream, after a write that failed nothing more is written, silently.
class RowWriter {
 public:
  /// Creates or truncates the file. Whether that succeeded is not told.
  explicit RowWriter(const char* name);

  /// Adds a row. It is in the file after the next flush at the latest.
  void append(double first, double second);

  /// Writes the rows gathered so far, and leaves nothing in any buffer of this program.
  void flush();

 private:
  std::ofstream file_;
  std::vector<char> block_;
  std::size_t used_ = 0;
  RowNumber number_;
};

}  // namespace vostrel

#endif  // VOSTREL_HELPERS_ROW_WRITER_H
