// Reads the user's comma-separated table and writes the intermediate file.

#include <cstddef>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "text/copy_number.h"
#include "text/line_reader.h"
#include "text/read_number.h"
#include "text/row_writer.h"
#include "text/table_fields.h"
#include "text/write_number.h"
#include "utils/utils.h"

namespace {

using vostrel::CopiedNumber;
using vostrel::LineReader;
using vostrel::RowWriter;

// Appends a line to the log, and closes it: no line is lost.
void log_line(std::string_view text) {
  std::ofstream log("error.log", std::ios::app);
  log << text << std::endl;
}

void report_failure(const std::string& message) {
  std::cout << message << std::endl;
  log_line(message);
}

// Copies the first of `lines` into a row, fast. Does nothing and returns false for a line that
// copy_line must read: one with an empty field or a control character before its second value, one
// without a newline, or one that needs memory to be read.
bool copy_simple_line(std::string_view& lines, int col1, int col2, RowWriter& rows) {
  const char* const first = vostrel::skip_commas(lines.data(), col1 - 1);
  if (first == nullptr) return false;
  const CopiedNumber reference = vostrel::copy_number(first, ',', rows.begin_row());
  if (reference.read_end == nullptr || *reference.read_end != ',') return false;
  *reference.write_end = ' ';

  const char* const second = vostrel::skip_commas(reference.read_end + 1, col2 - col1 - 1);
  if (second == nullptr) return false;
  const CopiedNumber estimate = vostrel::copy_number(second, ',', reference.write_end + 1);
  if (estimate.read_end == nullptr) return false;

  // Most often the line ends here.
  std::size_t size = static_cast<std::size_t>(estimate.read_end - lines.data());
  if (lines[size] != '\n') size = lines.find('\n', size);
  if (size == std::string_view::npos) return false;
  lines.remove_prefix(size + 1);
  rows.end_row(estimate.write_end);
  return true;
}

// Copies any line into a row.
void copy_line(std::string_view line, int col1, int col2, RowWriter& rows) {
  // Reading a long field may throw std::bad_alloc. If uncaught, destructors may not run: flush
  // first.
  if (line.size() > vostrel::kShortText) rows.flush();
  const std::optional<std::string_view> first = vostrel::field_at(line, col1);
  const std::optional<std::string_view> second = vostrel::field_at(line, col2);
  if (!first || !second) {
    rows.flush();
    throw std::out_of_range("no text in a selected column of an input line");
  }
  const double reference = vostrel::read_double(*first);
  const double estimate = vostrel::read_double(*second);
  char* out = vostrel::write_double(reference, rows.begin_row());
  *out++ = ' ';
  rows.end_row(vostrel::write_double(estimate, out));
}

// Copies two columns of every line, up to the first empty one, into rows.
void copy_columns(LineReader& table, int col1, int col2, RowWriter& rows) {
  for (std::string_view lines; !(lines = table.next_lines()).empty();) {
    while (!lines.empty()) {
      if (copy_simple_line(lines, col1, col2, rows)) continue;
      const std::string_view line = vostrel::take_line(lines);
      if (line.empty()) {
        rows.flush();
        return;
      }
      copy_line(line, col1, col2, rows);
    }
    rows.flush();  // next_lines may wait
  }
}

}  // namespace

int UTILS::loadInputFile() {
  std::ifstream head(nameInputFile);
  if (!head.is_open()) {
    report_failure(std::string("*** file ") + nameInputFile + " not found! ***");
    return -1;
  }
  // Character by character: std::getline silently cuts a line short when memory runs out.
  char c = 0;
  if (headerFlag == 1) {
    std::string header;
    while (head.get(c) && c != '\n') header += c;
    std::cout << std::endl;
    std::cout << "header = " << header << std::endl;
  }
  long long columns = 1;
  while (head.get(c) && c != '\n') columns += c == ',';
  head.close();
  std::cout << "col number " << columns << std::endl;

  if (col1 > columns || col2 > columns) {
    report_failure(
        "column index exceeds maximum number of columns in the input file. Program aborted");
    return -10;
  }
  if (col1 < 1 || col1 >= col2) {
    report_failure(
        "first column index must be at least 1 and less than second column index. Program aborted");
    return -20;
  }

  std::cout << std::endl;
  std::cout << "Load data from file: " << nameInputFile << std::endl;
  std::cout << std::endl;

  {
    // In this order: RowWriter empties a table that is also the intermediate file.
    LineReader table(nameInputFile);
    RowWriter rows(nameInternalFile);
    copy_columns(table, col1, col2, rows);
  }

  log_line("File created succesfully");
  return 0;
}
