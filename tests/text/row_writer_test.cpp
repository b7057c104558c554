// Row numbers, and rows in a file.

#include "text/row_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>

#include "tests/plain/plain_utils.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"
#include "tests/support/scratch.h"

namespace {

std::string text_of(vostrel::RowNumber& number) {
  char text[16];
  char* const end = number.write(text);
  return {text, end};
}

TEST(RowNumber, CountsUpFromAnywhere) {
  for (const int first :
       {0, 5, 95, 500, 999, 999990, 99999995, 2147483639, -5, -1005, -2147483647}) {
    vostrel::RowNumber number(first);
    int expected = first;
    for (int i = 0; i < 4000; ++i) {
      ASSERT_EQ(text_of(number), std::to_string(expected));
      number.increment();
      expected = plain::next_row(expected);
    }
  }
}

TEST(RowNumber, WrapsAroundAtTheEndOfItsRange) {
  vostrel::RowNumber number(2147483646);
  EXPECT_EQ(text_of(number), "2147483646");
  number.increment();
  EXPECT_EQ(text_of(number), "2147483647");
  number.increment();
  EXPECT_EQ(text_of(number), "-2147483648");
  number.increment();
  EXPECT_EQ(text_of(number), "-2147483647");
}

TEST(RowNumber, CountsThroughZero) {
  vostrel::RowNumber number(-2);
  for (const char* const text : {"-2", "-1", "0", "1"}) {
    EXPECT_EQ(text_of(number), text);
    number.increment();
  }
}

class RowWriterTest : public InScratchFolder {
 protected:
  static void append(vostrel::RowWriter& rows, double first, double second) {
    char* out = vostrel::write_double(first, rows.begin_row());
    *out++ = ' ';
    rows.end_row(vostrel::write_double(second, out));
  }
};

TEST_F(RowWriterTest, TruncatesTheFileAtOnce) {
  write_file("rows", "old\n");
  vostrel::RowWriter rows("rows");
  EXPECT_EQ(read_file("rows"), "");
}

TEST_F(RowWriterTest, FlushesEveryRow) {
  vostrel::RowWriter rows("rows");
  append(rows, 0.1, -0.0);
  append(rows, 1234567, -kInfinity);
  rows.flush();
  EXPECT_EQ(read_file("rows"), "0 0.1 -0\n1 1.23457e+06 -inf\n");
  rows.flush();
  append(rows, kNaN, -kNaN);
  rows.flush();
  EXPECT_EQ(read_file("rows"), "0 0.1 -0\n1 1.23457e+06 -inf\n2 nan -nan\n");
}

TEST_F(RowWriterTest, DropsARowThatIsNotEnded) {
  vostrel::RowWriter rows("rows");
  *rows.begin_row() = '7';
  rows.flush();
  EXPECT_EQ(read_file("rows"), "");
  *rows.begin_row() = '7';
  append(rows, 1, 2);
  rows.flush();
  EXPECT_EQ(read_file("rows"), "0 1 2\n");
}

TEST_F(RowWriterTest, NeverLeavesPartOfARowInTheFile) {
  Random random;
  vostrel::RowWriter rows("rows");
  std::string expected;
  for (int i = 0; i < 60000; ++i) {
    const double first = random.any_double(), second = random.fraction();
    append(rows, first, second);
    expected += std::to_string(i) + " " + plain::write_double(first) + " " +
                plain::write_double(second) + "\n";
    if (i % 500 == 0) {
      const std::string text = read_file("rows");
      ASSERT_EQ(text, expected.substr(0, text.size()));
      ASSERT_TRUE(text.empty() || text.back() == '\n');
    }
  }
  rows.flush();
  EXPECT_EQ(read_file("rows"), expected);
}

TEST_F(RowWriterTest, HasRoomForTheLongestRows) {
  vostrel::RowWriter rows("rows");
  const std::string values = "-1.23457e-308 -1.23457e-308";
  std::string expected;
  for (int i = 0; i < 50000; ++i) {
    rows.end_row(std::copy(values.begin(), values.end(), rows.begin_row()));
    expected += std::to_string(i) + " " + values + "\n";
  }
  rows.flush();
  EXPECT_EQ(read_file("rows"), expected);
}

TEST_F(RowWriterTest, IgnoresAFileItCannotCreate) {
  vostrel::RowWriter rows("no such folder/rows");
  append(rows, 1, 2);
  rows.flush();
  EXPECT_FALSE(exists("no such folder"));
}

}  // namespace
