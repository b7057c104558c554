// Writing the intermediate file: rows "ID first second", in blocks of whole rows.

#ifndef VOSTREL_TEXT_ROW_WRITER_H
#define VOSTREL_TEXT_ROW_WRITER_H

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <vector>

#include "text/byte_words.h"
#include "text/digits.h"
#include "text/number_text.h"

namespace vostrel {

/// The ID column: 0, 1, 2, ... as text. The text of the thousands is kept and the rest looked up,
/// at a fraction of the cost of converting each number.
class RowNumber {
 public:
  explicit RowNumber(std::int32_t first = 0) : base_(first) {}

  /// Writes it to `out`, where 16 characters must be writable, and returns the end of the text.
  char* write(char* out) {
    return units_ < limit_ ? write_with_thousands(out) : write_another_way(out);
  }

  /// One more; 2147483647 is followed by -2147483648.
  void increment() { ++units_; }

 private:
  char* write_with_thousands(char* out) const {
    store_word(out, thousands_);
    store_word(out + thousands_size_, kTriples.of[units_]);
    return out + thousands_size_ + 3;
  }
  char* write_another_way(char* out);

  std::int32_t base_;            // the number is base_ + units_, and as long as ...
  std::uint32_t units_ = 0;      // ... this is below ...
  std::uint32_t limit_ = 0;      // ... that, base_ is a multiple of 1000 that has ...
  std::uint64_t thousands_ = 0;  // ... this text without its three zeros
  std::size_t thousands_size_ = 0;
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

  /// Adds rows as long as there are any. `values(out)` writes the two values of the next row, a
  /// blank between them, to `out`, where kValuesRoom characters are writable, and returns the end
  /// of that text; or nullptr when there is no further row.
  template <class Values>
  void append_all(Values values) {
    for (bool more = true; more;) {
      if (used_ + kRowRoom > block_.size()) flush();
      const char* const full = block_.data() + (block_.size() - kRowRoom);
      // On local variables, which no character written to the block can be a part of.
      RowNumber number = number_;
      char* row = block_.data() + used_;
      while (row <= full) {
        char* out = number.write(row);
        *out++ = ' ';
        out = values(out);
        more = out != nullptr;
        if (!more) break;
        *out++ = '\n';
        row = out;
        number.increment();
      }
      used_ = static_cast<std::size_t>(row - block_.data());
      number_ = number;
    }
  }

  /// Writes the rows gathered so far, and leaves nothing in any buffer of this program.
  void flush();

  /// Two values and a blank.
  static constexpr std::size_t kValuesRoom = 2 * kNumberRoom + 1;

 private:
  // A row number of at most eleven characters, a blank, two values and a newline.
  static constexpr std::size_t kRowRoom = 16 + 1 + kValuesRoom + 1;

  std::ofstream file_;
  std::vector<char> block_;
  std::size_t used_ = 0;
  RowNumber number_;
};

}  // namespace vostrel

#endif  // VOSTREL_TEXT_ROW_WRITER_H
