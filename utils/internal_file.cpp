// Reads the intermediate file.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <new>
#include <string_view>
#include <system_error>
#include <vector>

#include "text/eight_characters.h"
#include "text/line_reader.h"
#include "text/read_number.h"
#include "utils/utils.h"

namespace {

using vostrel::LineReader;

// The three vectors of the data set.
struct Columns {
  std::vector<int>& id;
  std::vector<double>& zspec;
  std::vector<double>& zphot;
};

// Reads the first of `lines`, fast, if it has the form that RowWriter writes: an ID of at most
// eight digits, a space, a value, a space, a value, a newline. Does nothing and returns false for
// any other.
bool read_simple_line(std::string_view& lines, vostrel::SteadyIntegers& ids,
                      const Columns& columns) {
  std::uint64_t id;
  const char* const id_end = ids.read(lines.data(), id);
  if (id_end == nullptr || *id_end != ' ') return false;
  double reference;
  const char* const reference_end = vostrel::read_field(id_end + 1, ' ', reference);
  if (reference_end == nullptr || *reference_end != ' ') return false;
  double estimate;
  const char* const estimate_end = vostrel::read_field(reference_end + 1, '\n', estimate);
  if (estimate_end == nullptr) return false;
  lines.remove_prefix(static_cast<std::size_t>(estimate_end + 1 - lines.data()));
  columns.id.push_back(static_cast<int>(id));
  columns.zspec.push_back(reference);
  columns.zphot.push_back(estimate);
  return true;
}

// Reads any line. A search that fails gives npos, and npos + 1 is 0: missing fields are read from
// the start of the line.
// Throws std::out_of_range if there is no text for one of the first two fields.
void read_line(std::string_view line, const Columns& columns) {
  std::size_t start = line.find_first_not_of(' ');
  std::size_t end = line.find(' ', start);
  columns.id.push_back(vostrel::read_int(line.substr(start, end - start)));

  start = line.find_first_not_of(' ', end + 1);
  end = line.find(' ', start);
  columns.zspec.push_back(vostrel::read_double(line.substr(start, end - start)));

  columns.zphot.push_back(vostrel::read_double(line.substr(end + 1)));
}

// Reserves room for all rows of the file, because vectors that grow step by step copy every row
// once more. Assumes that the other rows are as long as those read so far.
class Reservation {
 public:
  Reservation(const char* name, const Columns& columns)
      : columns_(columns), rows_before_(columns.id.size()) {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(name, error);
    if (!error) file_size_ = static_cast<double>(size);
  }

  // Call this after each block with its size in bytes and its number of rows.
  void update(std::size_t block_size, std::size_t block_rows) {
    bytes_read_ += static_cast<double>(block_size);
    if (columns_.id.capacity() - columns_.id.size() >= 2 * block_rows) return;
    const auto rows = static_cast<double>(columns_.id.size() - rows_before_);
    const double expected = rows * (file_size_ / bytes_read_);
    if (!(expected > rows)) return;
    const double room = static_cast<double>(rows_before_ + 2 * block_rows) + expected;
    if (!fits(room)) return;
    columns_.id.reserve(static_cast<std::size_t>(room));
    columns_.zspec.reserve(static_cast<std::size_t>(room));
    columns_.zphot.reserve(static_cast<std::size_t>(room));
  }

 private:
  // Whether there is memory for these rows and for the statistics, which take a few megabytes.
  // Short first rows inflate the estimate; if memory is limited, the vectors grow step by step
  // instead.
  static bool fits(double rows) {
    constexpr double kStatistics = 8 << 20;
    const double bytes = rows * (sizeof(int) + 2 * sizeof(double)) + kStatistics;
    if (bytes >= static_cast<double>(PTRDIFF_MAX)) return false;
    void* const memory = ::operator new(static_cast<std::size_t>(bytes), std::nothrow);
    ::operator delete(memory);
    return memory != nullptr;
  }

  const Columns& columns_;
  std::size_t rows_before_;
  double file_size_ = 0;
  double bytes_read_ = 0;
};

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
  Reservation reservation(nameInternalFile, columns);
  vostrel::SteadyIntegers ids;
  for (std::string_view lines; !(lines = file.next_lines()).empty();) {
    const std::size_t block_size = lines.size();
    const std::size_t rows_before = id.size();
    while (!lines.empty()) {
      if (read_simple_line(lines, ids, columns)) continue;
      const std::string_view line = vostrel::take_line(lines);
      if (line.empty()) return 0;
      read_line(line, columns);
    }
    reservation.update(block_size, id.size() - rows_before);
  }
  return 0;
}
