// The intermediate three-column file: its reader, and the second writer of the same layout.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <string_view>
#include <system_error>
#include <vector>

#include "text/block_size.h"
#include "text/line_reader.h"
#include "text/number_text.h"
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
  vostrel::SteadyDigits ids;
  while (line != lines_end) {
    std::uint64_t number;
    const char* end = ids.read(line, number);
    if (end == nullptr || *end != ' ') break;
    id[count] = static_cast<int>(number);
    end = vostrel::read_field_before(end + 1, ' ', zspec[count]);
    if (end == nullptr) break;
    end = vostrel::read_field_before(end + 1, '\n', zphot[count]);
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

// Reserves room for the rows of a file before they come, as doubling the vectors again and again
// would copy all rows once more. The rest of the file is taken for rows as long as those read so
// far: at first 8 times as many, and when some blocks have been read up to 1024 times.
class Room {
 public:
  Room(const char* name, const Columns& columns)
      : columns_(columns), rows_before_(columns.id.size()) {
    std::error_code unknown;
    const std::uintmax_t size = std::filesystem::file_size(name, unknown);
    if (!unknown) file_size_ = static_cast<double>(size);
  }

  // Reserves, if what is left may not be enough for as many rows as a block of text just held.
  void provide(std::size_t block_bytes, std::size_t block_rows) {
    bytes_ += static_cast<double>(block_bytes);
    if (bytes_ == 0 || columns_.id.capacity() - columns_.id.size() >= 2 * block_rows) return;
    const auto rows = static_cast<double>(columns_.id.size() - rows_before_);
    const double most = bytes_ < 4 * static_cast<double>(vostrel::kBlockSize) ? 8 : 1024;
    const double expected = rows * std::min(file_size_ / bytes_, most);
    if (expected <= rows) return;
    const std::size_t room = rows_before_ + static_cast<std::size_t>(expected) + 2 * block_rows;
    if (!fits(room)) return;
    columns_.id.reserve(room);
    columns_.zspec.reserve(room);
    columns_.zphot.reserve(room);
  }

 private:
  // Whether there is memory for so many rows and their two residuals. A head of short rows lets
  // expect too many: where memory is limited, the vectors had better grow as they must.
  static bool fits(std::size_t rows) {
    const std::size_t size = rows * (sizeof(int) + 4 * sizeof(double));
    void* const all = ::operator new(size, std::nothrow);
    ::operator delete(all);
    return all != nullptr;
  }

  const Columns& columns_;
  std::size_t rows_before_;
  double file_size_ = 0;
  double bytes_ = 0;
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
  Room room(nameInternalFile, columns);
  while (file.fill()) {
    const std::size_t bytes = file.lines().size();
    const std::size_t rows = id.size();
    take_usual_rows(file, columns);
    std::string_view line;
    while (file.next(line)) {
      if (line.empty()) return 0;
      take_any_row(line, columns);
      take_usual_rows(file, columns);
    }
    room.provide(bytes, id.size() - rows);
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
