// Copying numbers, compared with std::atof and a stream in its default state.

#include "text/copy_number.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "tests/plain/plain_utils.h"
#include "tests/support/random.h"

namespace {

/// A field in a line, with exactly the padding that may be read.
std::vector<char> line_of(const std::string& field, char behind) {
  std::vector<char> line(field.begin(), field.end());
  line.push_back(behind);
  if (behind != '\n') line.insert(line.end(), {'7', '\n'});
  line.insert(line.end(), vostrel::kTextPadding, '7');
  line.shrink_to_fit();
  return line;
}

std::string expected_copy(const std::string& field) {
  return plain::write_double(plain::read_double(field));
}

/// Returns whether copy_small_decimal copies `field`. If so, checks the copy.
bool is_small_decimal(const std::string& field, char behind = ',') {
  const std::vector<char> line = line_of(field, behind);
  std::vector<char> room(vostrel::kNumberRoom);
  const vostrel::CopiedNumber copied = vostrel::copy_small_decimal(line.data(), room.data());
  if (copied.read_end == nullptr) return false;
  EXPECT_EQ(copied.read_end - line.data(), static_cast<std::ptrdiff_t>(field.size())) << field;
  EXPECT_EQ(std::string(room.data(), copied.write_end), expected_copy(field)) << field;
  return true;
}

/// The last `count` digits of `number`, with leading zeros.
std::string digits_of(std::uint64_t number, std::size_t count) {
  const std::string text = std::to_string(number);
  return text.size() < count ? std::string(count - text.size(), '0') + text : text;
}

TEST(CopySmallDecimal, RoundsToSixDigits) {
  for (const std::string field :
       {"0.42542079", "1.23456789", "0.1", "0.10", "1.", "1.0", "5.00000000", "9.99999499", "0.01",
        "0.0123456749", "0.09999996", "0.99999996", "1.99999996", "0.12345678901234567890",
        "1.00000400", "1.00000600", "0.30000000000000004", "2.9999999999999996"}) {
    EXPECT_TRUE(is_small_decimal(field)) << field;
  }
}

TEST(CopySmallDecimal, DeclinesEverythingElse) {
  for (const std::string field : {"",     "1",   "-0.5",       "+0.5",          ".5",
                                  "12.5", "nan", "1.5e3",      "1.123456789e3", "0x1.8",
                                  "0.",   "0.0", "0.00999999", "9.999996",      " 0.5",
                                  "a.5",  "/.5", ":.5",        "0.5:",          "0.12345678:"}) {
    EXPECT_FALSE(is_small_decimal(field)) << field;
  }
}

TEST(CopySmallDecimal, EndsBeforeAnyCharacterBelowZero) {
  for (int behind = 0; behind < 256; ++behind) {
    if (vostrel::is_digit(static_cast<char>(behind))) continue;
    const bool ends = behind < '0';
    EXPECT_EQ(is_small_decimal("0.123", static_cast<char>(behind)), ends) << behind;
    EXPECT_EQ(is_small_decimal("0.12345678", static_cast<char>(behind)), ends) << behind;
    EXPECT_EQ(is_small_decimal("0.123456789", static_cast<char>(behind)), ends) << behind;
  }
}

// At a midpoint between two numbers of six digits, the double decides.
TEST(CopySmallDecimal, DeclinesTies) {
  for (const std::string field :
       {"1.000005", "1.00000500", "0.1234565", "0.12345650", "0.01234565", "1.00000500000000000001",
        "1.000004999", "0.123456499999999999999", "0.012345649"}) {
    EXPECT_FALSE(is_small_decimal(field)) << field;
  }
  for (const std::string field :
       {"1.00000501", "1.00000499", "0.12345651", "0.12345649", "0.01234566", "0.01234564"}) {
    EXPECT_TRUE(is_small_decimal(field)) << field;
  }
}

// Every combination of dropped digits. Only ties, and what may be just below one, are declined.
TEST(CopySmallDecimal, DeclinesOnlyTies) {
  Random random;
  for (int round = 0; round < rounds(200); ++round) {
    const std::string digit = std::to_string(1 + random.below(9));
    struct Kind {
      std::string front;
      std::string five;   // what is dropped, in a tie
      std::string below;  // just below it
    };
    const std::string six = digits_of(random.below(900000), 6);
    const std::array kinds = {Kind{digit + "." + six.substr(1), "500", "499"},
                              Kind{"0." + digit + six.substr(1), "50", "49"},
                              Kind{"0.0" + digit + six.substr(1), "5", "4"}};
    for (const auto& [front, five, below] : kinds) {
      const std::size_t dropped = five.size();
      const std::uint64_t tails = dropped == 3 ? 1000 : dropped == 2 ? 100 : 10;
      for (std::uint64_t i = 0; i < tails; ++i) {
        const std::string tail = digits_of(i, dropped);
        ASSERT_EQ(is_small_decimal(front + tail), tail != five) << front << tail;
        for (const char more : {'0', '1', '9'}) {
          ASSERT_EQ(is_small_decimal(front + tail + more), tail != five && tail != below)
              << front << tail;
        }
      }
    }
  }
}

TEST(CopySmallDecimal, CarriesThroughNines) {
  for (const std::string field :
       {"0.99999996", "0.39999996", "0.039999996", "0.099999996", "0.30999999999999999999",
        "1.39999960", "1.09999960", "1.99999600", "8.99999999", "8.999999999999"}) {
    EXPECT_TRUE(is_small_decimal(field)) << field;
  }
}

TEST(CopySmallDecimal, MatchesAtofAndStreamForAnyLength) {
  Random random;
  std::size_t copied = 0;
  const int count = rounds(1000000);
  for (int round = 0; round < count; ++round) {
    std::string field = std::to_string(random.below(10)) + ".";
    const std::size_t decimals = random.below(random.one_in(20) ? 60 : 20);
    for (std::size_t i = 0; i < decimals; ++i) {
      field += static_cast<char>('0' + (random.one_in(3) ? std::array{0, 4, 5, 9}[random.below(4)]
                                                         : static_cast<int>(random.below(10))));
    }
    copied += is_small_decimal(field);
  }
  EXPECT_GT(copied, static_cast<std::size_t>(count) / 2);
}

/// The copy of a field, or "wrong end".
std::string copy_of(const std::string& field, char behind = ',') {
  const std::vector<char> line = line_of(field, behind);
  std::vector<char> room(vostrel::kNumberRoom);
  const vostrel::CopiedNumber copied = vostrel::copy_number(line.data(), ',', room.data());
  if (copied.read_end != line.data() + field.size()) return "wrong end";
  return {room.data(), copied.write_end};
}

TEST(CopyNumber, MatchesAtofAndStream) {
  for (const std::string field : {"0.42542079",
                                  "0.1234565",
                                  "0.000012345649",
                                  "-0.5",
                                  "-0.0",
                                  "0",
                                  "12.345678",
                                  "-99",
                                  "1e5",
                                  "nan",
                                  "-nan",
                                  "inf",
                                  "text",
                                  " 0.5 ",
                                  "1.5 x",
                                  "0x1p3",
                                  "123456789.123456789",
                                  "1.000005",
                                  "9.999995",
                                  "0.123456499999999999999"}) {
    EXPECT_EQ(copy_of(field, ','), expected_copy(field)) << field;
    EXPECT_EQ(copy_of(field, '\n'), expected_copy(field)) << field;
  }
}

TEST(CopyNumber, CopiesScientificNotation) {
  for (const std::string mantissa : {"1.",
                                     "4.25420790",
                                     "4.254207900000000180",
                                     "9.99999500",
                                     "9.999995000000000001",
                                     "9.99999499999999999999",
                                     "9.99999499",
                                     "9.99999501",
                                     "1.00000500",
                                     "1.00000499",
                                     "1.0000049999999999999999",
                                     "1.00000501",
                                     "5.0",
                                     "0.5",
                                     "0.0",
                                     "12.5",
                                     ".5",
                                     "-4.25420790",
                                     "-9.99999999",
                                     "1.2345678",
                                     "1.234567",
                                     "1.2345650"}) {
    for (const char* const sign : {"+", "-", ""}) {
      for (const char* const e : {"e", "E", "f"}) {
        for (const char* const power :
             {"00", "01", "02",  "03", "04", "05", "06", "07", "10",  "13",
              "0",  "4",  "001", "0x", "0/", "0-", "0 ", "x0", "300", ""}) {
          const std::string field = mantissa + e + sign + power;
          ASSERT_EQ(copy_of(field), expected_copy(field)) << field;
          ASSERT_EQ(copy_of(" " + field + " "), expected_copy(field)) << field;
        }
      }
    }
  }
}

TEST(CopyNumber, MatchesAtofAndStreamForScientificNotation) {
  Random random;
  for (int round = 0; round < rounds(300000); ++round) {
    std::string field = std::to_string(random.below(10)) + ".";
    field += digits_of(random.below(100000), 5);
    if (random.one_in(2)) {
      const std::array tails = {"499", "500", "49999999999999999999", "501",
                                "500000000000000000001"};
      field += random.pick(tails);
    }
    field += digits_of(random.below(1000000), 6).substr(random.below(7));
    field += (random.one_in(2) ? "e-0" : "e+0") + std::to_string(random.below(8));
    ASSERT_EQ(copy_of(field), expected_copy(field)) << field;
  }
}

TEST(CopyNumber, ReturnsTheEndOfTheField) {
  for (const std::string field :
       {"0.5 ",          "0.5-1", "0.5.5",  "1..5",   "0.5\t",   "-0.5 ",
        "1.5e",          "0.5\r", "-0.5\r", "12.5\r", "  0.5  ", " -0.5",
        "  -1.000005 x", "- 0.5", "--0.5",  " - 0.5", "-.5",     "-0.004 ",
        "-0.0 ",         " ",     "   ",    "\t0.5",  "-12 34",  "0.123456499999999999999 "}) {
    EXPECT_EQ(copy_of(field), expected_copy(field)) << field;
  }
}

TEST(CopyNumber, DeclinesEmptyFieldsAndNulAndWhatNeedsMemory) {
  const std::string too_long = "1e" + std::string(vostrel::kShortText - 1, '0');
  const std::string with_nul("0.5 \0", 5);
  for (const std::string& field : {std::string(), with_nul, too_long}) {
    const std::vector<char> line = line_of(field, ',');
    std::vector<char> room(vostrel::kNumberRoom);
    EXPECT_EQ(vostrel::copy_number(line.data(), ',', room.data()).read_end, nullptr);
  }
  EXPECT_EQ(copy_of(too_long.substr(0, vostrel::kShortText)), "1");
}

TEST(CopyNumber, CopiesLongFieldsThatNeedNoMemory) {
  const std::string ones(vostrel::kShortText + 10, '1');
  EXPECT_EQ(copy_of("0." + ones), "0.111111");
  EXPECT_EQ(copy_of("-1." + ones + "e-03"), "-0.00111111");
}

}  // namespace
