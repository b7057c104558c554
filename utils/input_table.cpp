// The input table reader: the user's comma-separated table becomes the intermediate file.

#include <cstddef>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "text/line_reader.h"
#include "text/number_copy.h"
#include "text/number_text.h"
#include "text/row_writer.h"
#include "text/table_line.h"
#include "utils/utils.h"

namespace {

using vostrel::CopiedNumber;
using vostrel::LineReader;
using vostrel::RowWriter;

// Appends one line to the log, which is opened and closed each time so that nothing of it is lost.
void log_line(std::string_view text) {
  std::ofstream log("error.log", std::ios::app);
  log << text << std::endl;
}

void report_failure(const std::string& message) {
  std::cout << message << std::endl;
  log_line(message);
}

// Makes rows of the lines that have been read, as far as they are of the usual shape: no empty
// field up to the second column, nor anything that takes memory to read. Stops in front of the
// first other line. Each line is looked at once, and no further than its second number but for its
// end.
void append_usual_rows(LineReader& table, int col1, int col2, RowWriter& rows) {
  const std::string_view lines = table.lines();
  const char* line = lines.data();
  const char* const lines_end = line + lines.size();
  rows.append_all([&](char* out) -> char* {
    if (line == lines_end) return nullptr;
    const char* field = vostrel::skip_commas(line, col1 - 1);
    if (field == nullptr) return nullptr;
    const CopiedNumber first = vostrel::copy_number_before(field, ',', out);
    if (first.text == nullptr) return nullptr;
    *first.out = ' ';
    field = vostrel::skip_commas(first.text + 1, col2 - col1 - 1);
    if (field == nullptr) return nullptr;
    const CopiedNumber second = vostrel::copy_number(field, ',', first.out + 1);
    if (second.text == nullptr) return nullptr;
    const char* end = second.text;
    if (*end != '\n') {
      end = static_cast<const char*>(
          std::memchr(end, '\n', static_cast<std::size_t>(lines_end - end)));
      if (end == nullptr) return nullptr;  // the last line, without a newline
    }
    line = end + 1;
    return second.out;
  });
  table.take_until(line);
}

// Copies two columns of every line, up to the first empty one, into the rows.
void copy_columns(LineReader& table, int col1, int col2, RowWriter& rows) {
  while (table.fill()) {
    append_usual_rows(table, col1, col2, rows);
    std::string_view line;
    while (table.next(line)) {
      if (line.empty()) {
        rows.flush();
        return;
      }
      // Reading a field of a very long line may need memory that is not there.
      if (line.size() > vostrel::kShortText) rows.flush();
      const std::optional<std::string_view> first = vostrel::field_at(line, col1);
      const std::optional<std::string_view> second = vostrel::field_at(line, col2);
      if (!first || !second) {
        // Nobody need catch this, so nothing may be left to a destructor.
        rows.flush();
        throw std::out_of_range("no text in a selected column of an input line");
      }
      rows.append(vostrel::read_double(*first), vostrel::read_double(*second));
      append_usual_rows(table, col1, col2, rows);
    }
    // The next fill may wait, for as long as it likes.
    rows.flush();
  }
}

}  // namespace

int UTILS::loadInputFile() {
  std::ifstream head(nameInputFile);
  if (!head.is_open()) {
    report_failure(std::string("*** file ") + nameInputFile + " not found! ***");
    return -1;
  }
  // Character by character, for std::getline takes memory and hides it when there is none: a line
  // cut short would be counted wrongly.
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
    // In this order: a table that is itself the intermediate file is empty from here on.
    LineReader table(nameInputFile);
    RowWriter rows(nameInternalFile);
    copy_columns(table, col1, col2, rows);
  }

  log_line("File created succesfully");
  return 0;
}
