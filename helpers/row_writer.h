// Writing the intermediate file: rows "ID first second", in blocks of whole rows.

#ifndef VOSTREL_HELPERS_ROW_WRITER_H
#define VOSTREL_HELPERS_ROW_WRITER_H

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <limits>
#include <vector>

#include "helpers/byte_words.h"
#include "helpers/digits.h"

namespace vostrel {

/// The ID column: 0, 1, 2, ... as text. The text of the thousands is kept and the rest looked up,
/// at a fraction of the cost of converting each number.
class RowNumber {
 public:
  explicit RowNumber(std::int32_t first = 0) : number_(first) { take_thousands(); }

  /// Writes it to `out`, where 16 characters must be writable, and returns the end of the text.
  char* write(char* out) const {
    if (number_ < 1000) return write_whole(out);
    store_word(out, thousands_);
    store_word(out + thousands_size_, kTriples.of[units_]);
    return out + thousands_size_ + 3;
  }

  /// One more; 2147483647 is followed by -2147483648.
  void increment() {
    number_ = number_ == std::numeric_limits<std::int32_t>::max()
                  ? std::numeric_limits<std::int32_t>::min()
                  : number_ + 1;
    if (++units_ == 1000) take_thousands();
  }

 private:
  char* write_whole(char* out) const;
  void take_thousands();

  std::int32_t number_;
  std::uint32_t units_ = 0;      // number_ % 1000, for numbers that have ...
  std::uint64_t thousands_ = 0;  // ... thousands: the text of number_ / 1000
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
  void append(double first, double second) { append(&first, &second, 1); }

  /// Adds `count` rows, faster than one by one.
  void append(const double* first, const double* second, std::size_t count);

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
