// loadInternalFile.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/open_utils.h"
#include "tests/support/scratch.h"

namespace {

using namespace std::string_literals;

class InternalFile : public InScratchFolder {
 protected:
  static OpenUtils read_back(const std::string& text) {
    write_file("internal.txt", text);
    OpenUtils run = empty_set();
    int result = -99;
    EXPECT_EQ(printed_by([&] { result = run.loadInternalFile(); }),
              "\nLoad data from file: internal.txt\n\n");
    EXPECT_EQ(result, 0);
    EXPECT_EQ(run.zspec.size(), run.id.size());
    EXPECT_EQ(run.zphot.size(), run.id.size());
    return run;
  }
};

struct Line {
  const char* name;
  std::string text;
  int id;
  double zspec, zphot;
};

TEST_F(InternalFile, OneLineIsOneObject) {
  const Line kLines[] = {
      {"three fields", "0 0.1 0.12\n", 0, 0.1, 0.12},
      {"exponents", "3 1e-05 2\n", 3, 0.00001, 2},
      {"special values", "4 inf -inf\n", 4, kInfinity, -kInfinity},
      {"negative ID", "-2147483648 -1 +2\n", -2147483647 - 1, -1, 2},
      {"largest ID", "2147483647 1 2\n", 2147483647, 1, 2},
      {"one field is all three", "7\n", 7, 7, 7},
      {"one field with a fraction", "7.5\n", 7, 7.5, 7.5},
      {"with two fields the third is the whole line", "5 0.1\n", 5, 0.1, 5},
      {"an empty third field is zero", "5 0.1 \n", 5, 0.1, 0},
      {"spaces in front", "   5 1 2\n", 5, 1, 2},
      {"spaces in front of the second field", "5    1 2\n", 5, 1, 2},
      {"spaces in front of the third field", "5 1    2\n", 5, 1, 2},
      {"a fourth field is ignored", "5 1 2 3\n", 5, 1, 2},
      {"a tab separates nothing", "5\t1 2\n", 5, 2, 5},
      {"commas separate nothing", "5,1 2,3 4,5\n", 5, 2, 4},
      {"words are zero", "a b c\n", 0, 0, 0},
      {"the heading of storeORMEDAOutput", "# ID zspec zphot\n", 0, 0, 0},
      {"an ID ends at its point", "1.9 2 3\n", 1, 2, 3},
      {"CR LF", "5 1 2\r\n", 5, 1, 2},
      {"a line of CR", "\r\n", 0, 0, 0},
      {"no newline at the end", "5 1 2", 5, 1, 2},
      {"a NUL ends a number", "5\0 1\0009 2\0009\n"s, 5, 1, 2},
      {"hexadecimal", "0x10 0x10 0x1p-1\n", 0, 16, 0.5},
  };
  for (const Line& line : kLines) {
    SCOPED_TRACE(line.name);
    const OpenUtils run = read_back(line.text);
    ASSERT_EQ(run.id.size(), 1u);
    EXPECT_EQ(run.id[0], line.id);
    EXPECT_EQ(run.zspec[0], line.zspec);
    EXPECT_EQ(run.zphot[0], line.zphot);
  }
}

TEST_F(InternalFile, AnEmptyLineEndsTheFile) {
  EXPECT_EQ(read_back("").getDataSize(), 0);
  EXPECT_EQ(read_back("\n0 1 2\n").getDataSize(), 0);
  EXPECT_EQ(read_back("0 1 2\n\n1 1 2\n").getDataSize(), 1);
}

TEST_F(InternalFile, AMissingFileReturnsMinusOneAndIsNotLogged) {
  OpenUtils run = loaded({1}, {2});
  int result = 0;
  EXPECT_EQ(printed_by([&] { result = run.loadInternalFile(); }),
            "*** file internal.txt not found! ***\n");
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(exists("error.log"));
  EXPECT_EQ(run.id, (std::vector<int>{0}));
  EXPECT_EQ(run.zspec, (std::vector<double>{1}));
  EXPECT_EQ(run.zphot, (std::vector<double>{2}));
  run.setNameInputFile("other");
  EXPECT_EQ(printed_by([&] { run.loadInternalFile(); }), "*** file other not found! ***\n");
}

TEST_F(InternalFile, ADirectoryIsAnEmptyFile) {
  std::filesystem::create_directory("internal.txt");
  OpenUtils run = empty_set();
  int result = -99;
  EXPECT_EQ(printed_by([&] { result = run.loadInternalFile(); }),
            "\nLoad data from file: internal.txt\n\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(run.getDataSize(), 0);
}

TEST_F(InternalFile, LoadingTwiceAppendsTheRowsAgain) {
  OpenUtils run = read_back("0 1 2\n1 3 4\n");
  printed_by([&] { run.loadInternalFile(); });
  EXPECT_EQ(run.id, (std::vector<int>{0, 1, 0, 1}));
  EXPECT_EQ(run.zspec, (std::vector<double>{1, 3, 1, 3}));
  EXPECT_EQ(run.zphot, (std::vector<double>{2, 4, 2, 4}));
}

TEST_F(InternalFile, ALineWithoutTextInItsFirstTwoFieldsThrowsOutOfRange) {
  for (const std::string line : {" ", "     ", "5 ", "5    ", " 5 "}) {
    SCOPED_TRACE("'" + line + "'");
    write_file("internal.txt", "0 1 2\n" + line + "\n");
    OpenUtils run = empty_set();
    EXPECT_THROW(printed_by([&] { run.loadInternalFile(); }), std::out_of_range);
    EXPECT_EQ(run.zspec, (std::vector<double>{1}));
    EXPECT_EQ(run.zphot, (std::vector<double>{2}));
  }
}

TEST_F(InternalFile, ValuesPassThroughSixDigits) {
  write_file("table.csv", "0.1234567,1234567\n-0,nan\n");
  OpenUtils run = empty_set();
  printed_by([&] {
    EXPECT_EQ(run.loadInputFile(), 0);
    EXPECT_EQ(run.loadInternalFile(), 0);
  });
  ASSERT_EQ(run.getDataSize(), 2);
  EXPECT_EQ(run.zspec[0], 0.123457);
  EXPECT_EQ(run.zphot[0], 1234570.0);
  EXPECT_EQ(bits_of(run.zspec[1]), bits_of(-0.0));
  EXPECT_TRUE(std::isnan(run.zphot[1]));
}

TEST_F(InternalFile, ManyRowsComeBackInOrder) {
  std::string text;
  for (int i = 0; i < 20000; ++i) {
    const std::string n = std::to_string(i);
    text += n + " " + n + ".5 -" + n + "\n";
  }
  const OpenUtils run = read_back(text);
  ASSERT_EQ(run.getDataSize(), 20000);
  for (int i = 0; i < 20000; ++i) {
    const auto place = static_cast<std::size_t>(i);
    ASSERT_EQ(run.id[place], i);
    ASSERT_EQ(run.zspec[place], i + 0.5);
    ASSERT_EQ(run.zphot[place], -i);
  }
}

}  // namespace
