// Writes the rows "ID first second" of the intermediate file, in blocks of whole rows.

#ifndef VOSTREL_TEXT_ROW_WRITER_H
#define VOSTREL_TEXT_ROW_WRITER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <vector>

#include "text/write_number.h"

namespace vostrel {

/// The IDs of rows as text: 0, 1, 2, ... After 2147483647 comes -2147483648.
class RowNumber {
 public:
  explicit RowNumber(std::int32_t first = 0) : number_(first) { convert(); }

  /// Writes the number and returns its end. Requires 16 writable bytes at `out`.
  char* write(char* out) const {
    std::memcpy(out, text_.data(), text_.size());
    out[size_ - 1] = last_;
    return out + size_;
  }

  void increment() {
    number_ = static_cast<std::int32_t>(static_cast<std::uint32_t>(number_) + 1);
    if (number_ > 0 && last_ != '9') {
      ++last_;
    } else {
      convert();
    }
  }

 private:
  void convert();

  std::int32_t number_;
  std::array<char, 16> text_{};  // of the last conversion
  std::size_t size_ = 0;
  char last_ = '0';  // the last digit
};

/// Writes numbered rows to a file: the row number, a space, the first value, a space, the second
/// value, a newline. Values are written as by write_double.
///
/// Rows are collected and written in blocks of whole rows: the file never ends within a row. Call
/// flush() before you wait or end. As with any stream, nothing is written after a failed write.
class RowWriter {
 public:
  /// Creates or truncates the file. A failure is not reported.
  explicit RowWriter(const char* name);

  /// The bytes for the two values of a row and the space between them.
  static constexpr std::size_t kValuesRoom = 2 * kNumberRoom + 1;

  /// Begins a row. Returns where to write its two values with a space between them; kValuesRoom
  /// bytes are writable there. Replaces an unfinished row.
  char* begin_row() {
    if (row_ > last_row_) flush();
    char* const out = number_.write(row_);
    *out = ' ';
    return out + 1;
  }

  /// Ends a row at the end of its values.
  void end_row(char* values_end) {
    *values_end = '\n';
    row_ = values_end + 1;
    number_.increment();
  }

  /// Writes the collected rows to the file.
  void flush();

 private:
  // A row number, a space, two values and a newline.
  static constexpr std::size_t kRowRoom = 16 + 1 + kValuesRoom + 1;

  std::ofstream file_;
  std::vector<char> block_;
  char* row_;             // where the next row goes
  const char* last_row_;  // the last place where a row fits
  RowNumber number_;
};

}  // namespace vostrel

#endif  // VOSTREL_TEXT_ROW_WRITER_H
