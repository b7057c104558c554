// The table reader on arbitrary bytes. The first three bytes choose header flag and columns, the
// rest is the table. The result or exception, console, log and rows must be those of the plain
// code.

#include "fuzz.h"
#include "tests/plain/plain_utils.h"
#include "tests/support/open_utils.h"

namespace {

struct Found {
  std::string result;
  std::string console;
  std::string log;
  std::string rows;
};

// Small indices mostly, and those that make no sense.
int column(std::uint8_t choice) {
  if (choice < 240) return choice % 8 + 1;
  if (choice < 250) return choice - 220;
  static constexpr int kOdd[] = {0, -1, 2147483647, -2147483647 - 1, 100, 1000};
  return kOdd[choice - 250];
}

template <class Reader>
Found load(const Reader& make, Console& console, const ScratchFile& log, const ScratchFile& rows) {
  log.clear();
  rows.set("old rows\n");
  auto run = make();
  run.setNameInputFile("rows");
  const std::string result = result_of([&run] { return run.loadInputFile(); });
  return {result, console.take(), log.text(), rows.text()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const ScratchFolder folder;
  static const ScratchFile table("table");
  static const ScratchFile rows("rows");
  static const ScratchFile log("error.log");
  static Console console;

  Input input(data, size);
  const int header_flag = input.byte() % 3;
  const int col1 = column(input.byte());
  const int col2 = column(input.byte());
  table.set(input.rest());
  const Found product = load([=] { return OpenUtils(header_flag, "table", "report", col1, col2); },
                             console, log, rows);
  const Found plain = load([=] { return plain::UTILS(header_flag, "table", "report", col1, col2); },
                           console, log, rows);
  require(product.result == plain.result, "result");
  require(product.console == plain.console, "console");
  require(product.log == plain.log, "log");
  require(product.rows == plain.rows, "rows");
  return 0;
}
