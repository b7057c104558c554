// The intermediate three-column file: its reader, and the second writer of the same layout.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>
#include <system_error>

#include "helpers/line_reader.h"
#include "helpers/number_text.h"
#include "utils/utils.h"

namespace {

using vostrel::LineReader;

// The three data vectors, filled together.
struct Columns {
  std::vector<int>& id;
  std::vector<double>& zspec;
  std::vector<double>& zphot;
};

// Takes the lines that have been read as far as they are of the writers' own shape: a number of at
// most eight digits, a blank, a value, a blank, a value. Stops in front of the first other line.
// The vectors grow by some hundred rows at a time, which spares three checks and updates of a
// vector for each row.
void take_usual_rows(LineReader& file, const Columns& columns) {
  constexpr std::size_t kAtOnce = 512;
  std::array<int, kAtOnce> id;
  std::array<double, kAtOnce> zspec;
  std::array<double, kAtOnce> zphot;
  std::size_t count = 0;
  const auto deliver = [&] {
    columns.id.insert(columns.id.end(), id.data(), id.data() + count);
    columns.zspec.insert(columns.zspec.end(), zspec.data(), zspec.data() + count);
    columns.zphot.insert(columns.zphot.end(), zphot.data(), zphot.data() + count);
    count = 0;
  };
  const std::string_view lines = file.lines();
  const char* line = lines.data();
  const char* const lines_end = line + lines.size();
  vostrel::FixedDigits number(0);
  while (line != lines_end) {
    // IDs seldom get longer. Taking the last one's length for granted until it is found wrong
    // spares the processor waiting for the length before it can go on to the values.
    if (!number.read(line)) {
      number = vostrel::FixedDigits(vostrel::internal::leading_digits(line).count);
      if (!number.read(line)) break;
    }
    const char* field = line + number.count();
    if (*field != ' ') break;
    id[count] = static_cast<int>(number.value());
    const char* end = vostrel::read_plain_decimal(++field, zspec[count]);
    if (end == nullptr || *end != ' ') end = vostrel::read_field(field, ' ', zspec[count]);
    if (end == nullptr || *end != ' ') break;
    field = end + 1;
    end = vostrel::read_plain_decimal(field, zphot[count]);
    if (end == nullptr || *end != '\n') end = vostrel::read_field(field, '\n', zphot[count]);
    if (end == nullptr) break;
    line = end + 1;
    if (++count == kAtOnce) deliver();
  }
  deliver();
  file.take_until(line);
}

// Takes one line of any shape. Blanks separate, and only they. A field that is not found begins
// again at the line's start, for a failed search leaves the position one below 0.
// Throws std::out_of_range when there is no text for one of the first two fields.
void take_any_row(std::string_view line, const Columns& columns) {
  std::size_t start = line.find_first_not_of(' ');
  std::size_t end = line.find(' ', start);
  columns.id.push_back(vostrel::read_int(line.substr(start, end - start)));

  start = line.find_first_not_of(' ', end + 1);
  end = line.find(' ', start);
  columns.zspec.push_back(vostrel::read_double(line.substr(start, end - start)));

  columns.zphot.push_back(vostrel::read_double(line.substr(end + 1)));
}

// Makes room for the rows of the rest of the file, as many as there would be if they were as long
// as those of its first block. They are a little longer as a rule, since the IDs grow.
void reserve_for(const char* name, std::size_t rows_read, std::size_t bytes_read,
                 const Columns& columns) {
  std::error_code unknown;
  const std::uintmax_t size = std::filesystem::file_size(name, unknown);
  if (unknown || bytes_read == 0 || size <= bytes_read) return;
  const double blocks = static_cast<double>(size) / static_cast<double>(bytes_read);
  const auto rows = static_cast<std::size_t>(blocks * static_cast<double>(rows_read));
  columns.id.reserve(columns.id.size() + rows);
  columns.zspec.reserve(columns.zspec.size() + rows);
  columns.zphot.reserve(columns.zphot.size() + rows);
}

}  // namespace

int UTILS::loadInternalFile() {
  LineReader file(nameInternalFile);
  if (!file.is_open()) {
    std::cout << "*** file " << nameInternalFile << " not found! ***" << std::endl;
    return -1;
  }
  std::cout << std::endl;
  std::cout << "Load data from file: " << nameInternalFile << std::endl;
  std::cout << std::endl;

  const Columns columns{id, zspec, zphot};
  const std::size_t rows_before = id.size();
  bool first_block = true;
  while (file.fill()) {
    const std::size_t bytes = file.lines().size();
    take_usual_rows(file, columns);
    std::string_view line;
    while (file.next(line)) {
      if (line.empty()) return 0;
      take_any_row(line, columns);
      take_usual_rows(file, columns);
    }
    if (first_block) reserve_for(nameInternalFile, id.size() - rows_before, bytes, columns);
    first_block = false;
  }
  return 0;
}

void UTILS::storeORMEDAOutput() const {
  std::ofstream file(nameOutputFile);
  file << "# ID zspec zphot" << std::endl;
  const std::size_t rows = std::min({id.size(), zspec.size(), output.size()});
  for (std::size_t i = 0; i < rows; ++i) {
    file << id[i] << " " << zspec[i] << " " << output[i] << std::endl;
  }
}
