// loadInputFile: the user's table, the intermediate file made of it, messages and error.log.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/open_utils.h"
#include "tests/support/scratch.h"

namespace {

using namespace std::string_literals;

const std::string kCreated = "File created succesfully\n";
const std::string kTooLarge =
    "column index exceeds maximum number of columns in the input file. Program aborted\n";
const std::string kBadOrder =
    "first column index must be at least 1 and less than second column index. Program aborted\n";

class InputTable : public InScratchFolder {
 protected:
  struct Outcome {
    int result;
    std::string console;
  };

  static Outcome load(const std::string& table, int header_flag, int col1, int col2) {
    write_file("table.csv", table);
    OpenUtils run(header_flag, "table.csv", "report.txt", col1, col2);
    Outcome outcome{};
    outcome.console = printed_by([&] { outcome.result = run.loadInputFile(); });
    EXPECT_TRUE(run.id.empty() && run.zspec.empty() && run.zphot.empty());
    EXPECT_FALSE(exists("report.txt"));
    return outcome;
  }

  /// The intermediate file of a table that is loaded without trouble.
  static std::string rows(const std::string& table, int col1, int col2, int header_flag = 0) {
    EXPECT_EQ(load(table, header_flag, col1, col2).result, 0);
    return read_file("internal.txt");
  }
};

TEST_F(InputTable, TwoColumnsBecomeNumberedRows) {
  const Outcome outcome = load("0.1,0.12\n0.2,0.19\n", 0, 1, 2);
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.console, "col number 2\n\nLoad data from file: table.csv\n\n");
  EXPECT_EQ(read_file("internal.txt"), "0 0.1 0.12\n1 0.2 0.19\n");
  EXPECT_EQ(read_file("error.log"), kCreated);
}

TEST_F(InputTable, AHeaderIsPrintedAndBecomesRowZero) {
  const Outcome outcome = load("zspec,zphot\n0.1,0.12\n0.2,0.19\n", 1, 1, 2);
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.console,
            "\nheader = zspec,zphot\ncol number 2\n\nLoad data from file: table.csv\n\n");
  EXPECT_EQ(read_file("internal.txt"), "0 0 0\n1 0.1 0.12\n2 0.2 0.19\n");
}

TEST_F(InputTable, OnlyAHeaderFlagOfOneMeansAHeader) {
  for (const int flag : {0, 2, -1, 10}) {
    const Outcome outcome = load("0.1,0.12\n0.2,0.19\n", flag, 1, 2);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.console, "col number 2\n\nLoad data from file: table.csv\n\n") << flag;
    EXPECT_EQ(read_file("internal.txt"), "0 0.1 0.12\n1 0.2 0.19\n") << flag;
  }
}

TEST_F(InputTable, TheHeaderIsPrintedByteForByte) {
  EXPECT_EQ(load("a\0b,\xff\r\n1,2\n"s, 1, 1, 2).console,
            "\nheader = a\0b,\xff\r\ncol number 2\n\nLoad data from file: table.csv\n\n"s);
}

TEST_F(InputTable, ColumnsAreCountedOnTheLineAfterTheHeader) {
  // Five columns above, two below: two.
  EXPECT_EQ(load("a,b,c,d,e\n1,2\n", 1, 1, 3).console,
            "\nheader = a,b,c,d,e\ncol number 2\n" + kTooLarge);
  // Two columns above, five below: five.
  EXPECT_EQ(load("a,b\n1,2,3,4,5\n", 1, 1, 5).result, 0);
  EXPECT_EQ(read_file("internal.txt"), "0 0 0\n1 1 5\n");
}

TEST_F(InputTable, AMissingTableReturnsMinusOneAndIsLogged) {
  OpenUtils run(1, "no such table", "report.txt", 0, 0);
  int result = 0;
  write_file("internal.txt", "old\n");
  for (const std::string log : {"*** file no such table not found! ***\n",
                                "*** file no such table not found! ***\n"
                                "*** file no such table not found! ***\n"}) {
    EXPECT_EQ(printed_by([&] { result = run.loadInputFile(); }),
              "*** file no such table not found! ***\n");
    EXPECT_EQ(result, -1);
    EXPECT_EQ(read_file("error.log"), log);
  }
  EXPECT_EQ(read_file("internal.txt"), "old\n");
}

struct Rejected {
  const char* name;
  std::string table;
  int header_flag, col1, col2;
  int result;
  int columns;
};

TEST_F(InputTable, BadColumnIndicesAreRejectedAndLogged) {
  const Rejected kRejected[] = {
      {"no commas", "0.1 0.12\n", 0, 1, 2, -10, 1},
      {"tabs and semicolons", "0.1\t0.12;3\n", 0, 1, 2, -10, 1},
      {"empty table", "", 0, 1, 2, -10, 1},
      {"an empty first line", "\n1,2\n", 0, 1, 2, -10, 1},
      {"col1 equals col2", "1,2\n", 0, 2, 2, -20, 2},
      {"col1 above col2", "1,2\n", 0, 2, 1, -20, 2},
      {"col1 is 0", "1,2\n", 0, 0, 2, -20, 2},
      {"col1 negative", "1,2\n", 0, -5, 2, -20, 2},
      {"col2 is 0", "1,2\n", 0, 1, 0, -20, 2},
      {"both negative", "1,2\n", 0, -5, -4, -20, 2},
      {"smallest ints", "1,2\n", 0, -2147483647 - 1, -2147483647 - 1, -20, 2},
      {"col2 too large", "1,2,3\n", 0, 3, 5, -10, 3},
      {"col1 too large", "1,2,3\n", 0, 4, 2, -10, 3},
      {"the count test comes first", "1,2,3\n", 0, 0, 5, -10, 3},
      {"largest ints", "1,2,3\n", 0, 2147483647, 2147483647, -10, 3},
      {"same column of a one-column table", "1\n", 0, 1, 1, -20, 1},
  };
  write_file("internal.txt", "old\n");
  std::string log;
  for (const Rejected& row : kRejected) {
    SCOPED_TRACE(row.name);
    const std::string message = row.result == -10 ? kTooLarge : kBadOrder;
    const Outcome outcome = load(row.table, row.header_flag, row.col1, row.col2);
    EXPECT_EQ(outcome.result, row.result);
    EXPECT_EQ(outcome.console, "col number " + std::to_string(row.columns) + "\n" + message);
    log += message;
    EXPECT_EQ(read_file("error.log"), log);
    EXPECT_EQ(read_file("internal.txt"), "old\n");
  }
}

TEST_F(InputTable, ATableWithOnlyAHeaderHasOneColumn) {
  const Outcome outcome = load("zspec,zphot\n", 1, 1, 2);
  EXPECT_EQ(outcome.result, -10);
  EXPECT_EQ(outcome.console, "\nheader = zspec,zphot\ncol number 1\n" + kTooLarge);
  EXPECT_FALSE(exists("internal.txt"));
}

TEST_F(InputTable, AnEmptyTableWithAHeaderFlagHasAnEmptyHeader) {
  EXPECT_EQ(load("", 1, 1, 2).console, "\nheader = \ncol number 1\n" + kTooLarge);
}

TEST_F(InputTable, ADirectoryIsAnEmptyTable) {
  std::filesystem::create_directory("folder");
  OpenUtils run(1, "folder", "report.txt", 1, 2);
  int result = 0;
  EXPECT_EQ(printed_by([&] { result = run.loadInputFile(); }),
            "\nheader = \ncol number 1\n" + kTooLarge);
  EXPECT_EQ(result, -10);
}

struct Extraction {
  const char* name;
  std::string table;
  int col1, col2;
  std::string rows;
};

TEST_F(InputTable, FieldsBecomeRows) {
  const Extraction kExtractions[] = {
      {"an empty field is skipped", "1,,3\n", 1, 2, "0 1 3\n"},
      {"an empty field counts as a column, so the third wraps", "1,,3\n", 1, 3, "0 1 1\n"},
      {"the second, and the third, which wraps", "1,,3\n", 2, 3, "0 3 1\n"},
      {"leading comma", ",1,2\n", 1, 2, "0 1 2\n"},
      {"leading comma wraps at the end", ",1,2\n", 2, 3, "0 2 1\n"},
      {"many commas", ",,,1,,,,2,,3\n", 2, 3, "0 2 3\n"},
      {"a short line wraps to its start", "1,2,3\n5,6\n", 1, 3, "0 1 3\n1 5 5\n"},
      {"a short line wraps several times", "1,2,3,4,5,6,7\n8,9\n", 4, 7, "0 4 7\n1 9 8\n"},
      {"a line of one field is that field everywhere", "1,2,3\n7\n", 2, 3, "0 2 3\n1 7 7\n"},
      {"extra fields are ignored", "1,2\n3,4,5,6\n", 1, 2, "0 1 2\n1 3 4\n"},
      {"fields left of the first and right of the second", "a,b,1.5,c,2.5,d\n", 3, 5,
       "0 1.5 2.5\n"},
      {"an empty line ends the table", "1,2\n\n3,4\n", 1, 2, "0 1 2\n"},
      {"a line of one space does not", "1,2\n \n3,4\n", 1, 2, "0 1 2\n1 0 0\n2 3 4\n"},
      {"no newline at the end", "1,2\n3,4", 1, 2, "0 1 2\n1 3 4\n"},
      {"CR LF", "1,2\r\n3,4\r\n", 1, 2, "0 1 2\n1 3 4\n"},
      {"a line of CR is not empty", "1,2\r\n\r\n3,4\r\n", 1, 2, "0 1 2\n1 0 0\n2 3 4\n"},
      {"spaces around a number", " 2.5,2.5 \n\t-1,+1\t\n", 1, 2, "0 2.5 2.5\n1 -1 1\n"},
      {"spaces separate nothing", "1 2,3 4\n", 1, 2, "0 1 3\n"},
      {"words are zero", "abc,x1\n", 1, 2, "0 0 0\n"},
      {"the longest numeric prefix", "1.5abc,2e\n1e2x,0x10\n", 1, 2, "0 1.5 2\n1 100 16\n"},
      {"special values", "nan,inf\n-inf,-nan\n-0,infinity\n", 1, 2,
       "0 nan inf\n1 -inf -nan\n2 -0 inf\n"},
      {"overflow and underflow", "1e999,-1e999\n1e-999,4e-320\n", 1, 2,
       "0 inf -inf\n1 0 3.99996e-320\n"},
      {"six digits", "0.12345678,1234567\n0.00001,2.0\n123456,999999.5\n", 1, 2,
       "0 0.123457 1.23457e+06\n1 1e-05 2\n2 123456 1e+06\n"},
      {"a NUL ends a number, not a line", "1\0002,3\0004\n"s, 1, 2, "0 1 3\n"},
      {"a byte-order mark hides the first number",
       "\xef\xbb\xbf"
       "1,2\n",
       1, 2, "0 0 2\n"},
      {"trailing commas beyond the second column", "1,2,,,\n", 1, 2, "0 1 2\n"},
      {"any byte may be a field", "\x80\xff,\x01\n", 1, 2, "0 0 0\n"},
  };
  for (const Extraction& row : kExtractions) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(rows(row.table, row.col1, row.col2), row.rows);
  }
}

TEST_F(InputTable, AShortLineUnderAVeryWideOneWrapsManyTimes) {
  std::string wide = "1";
  for (int i = 1; i < 1000; ++i) wide += ",1";
  // Fields 7,8,9 again and again: the 500th is the second, the 1000th the first.
  EXPECT_EQ(rows(wide + "\n7,8,9\n", 500, 1000), "0 1 1\n1 8 7\n");
  EXPECT_EQ(rows(wide + "\n,7,,8,9\n", 501, 999), "0 1 1\n1 9 9\n");
}

TEST_F(InputTable, TheIntermediateFileIsReplaced) {
  write_file("internal.txt", "much longer than what comes now\n");
  EXPECT_EQ(rows("1,2\n", 1, 2), "0 1 2\n");
}

TEST_F(InputTable, ManyRowsAreNumberedFromZero) {
  std::string table, expected;
  for (int i = 0; i < 20000; ++i) {
    table += std::to_string(i) + ".5,-" + std::to_string(i) + "\n";
    expected +=
        std::to_string(i) + " " + std::to_string(i) + ".5 " + "-" + std::to_string(i) + "\n";
  }
  EXPECT_EQ(rows(table, 1, 2), expected);
}

TEST_F(InputTable, ATableThatIsTheIntermediateFileIsEmptiedAndGivesNoRows) {
  write_file("internal.txt", "1,2\n3,4\n");
  OpenUtils run(0, "internal.txt", "report.txt", 1, 2);
  int result = -99;
  EXPECT_EQ(printed_by([&] { result = run.loadInputFile(); }),
            "col number 2\n\nLoad data from file: internal.txt\n\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(read_file("internal.txt"), "");
  EXPECT_EQ(read_file("error.log"), kCreated);
}

TEST_F(InputTable, AnIntermediateFileThatCannotBeOpenedIsSilent) {
  write_file("table.csv", "1,2\n");
  OpenUtils run = empty_set();
  run.setNameInputFile("no such folder/internal.txt");
  int result = -99;
  EXPECT_EQ(printed_by([&] { result = run.loadInputFile(); }),
            "col number 2\n\nLoad data from file: table.csv\n\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(read_file("error.log"), kCreated);
}

TEST_F(InputTable, TheLogGrowsByOneLinePerRun) {
  write_file("error.log", "from before\n");
  rows("1,2\n", 1, 2);
  rows("1,2\n", 1, 2);
  EXPECT_EQ(read_file("error.log"), "from before\n" + kCreated + kCreated);
}

struct Throwing {
  const char* name;
  std::string table;
  int col1, col2;
  std::string rows_before;
};

TEST_F(InputTable, ANeededFieldWithoutTextThrowsOutOfRange) {
  const Throwing kThrowing[] = {
      {"trailing comma", "0.1,0.2,\n", 1, 3, ""},
      {"after whole rows", "1,2,3\n4,5,6\n0.1,0.2,\n7,8,9\n", 1, 3, "0 1 3\n1 4 6\n"},
      {"only commas, first column", "1,2\n,,,\n", 1, 2, "0 1 2\n"},
      {"a single comma", "1,2\n,\n", 1, 2, "0 1 2\n"},
      {"trailing comma on the last line without newline", "1,2,3\n4,5,", 2, 3, "0 2 3\n"},
      {"both fields missing", "1,2,3\n4,\n", 2, 3, "0 2 3\n"},
      {"only after wrapping", "1,2,3,4,5,6\n4,5,\n", 1, 6, "0 1 6\n"},
  };
  for (const Throwing& row : kThrowing) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove("error.log");
    EXPECT_THROW(load(row.table, 0, row.col1, row.col2), std::out_of_range);
    EXPECT_EQ(read_file("internal.txt"), row.rows_before);
    EXPECT_FALSE(exists("error.log"));
  }
}

TEST_F(InputTable, AMissingFieldThatIsNotNeededIsNoError) {
  EXPECT_EQ(rows("1,2,\n", 1, 2), "0 1 2\n");
  // The third position finds no text, the fourth starts over: 4 is the first field again.
  EXPECT_EQ(rows("1,2,,\n", 1, 4), "0 1 1\n");
}

}  // namespace
