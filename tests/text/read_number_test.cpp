// Reading numbers, compared with std::atof and std::atoi.

#include "text/read_number.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "tests/plain/plain_utils.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"

namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;

/// The text with exactly the padding that the readers may look at: a character that ends a number,
/// then digits that don't belong to it.
class Padded {
 public:
  Padded(const std::string& text, char behind) : size_(text.size()) {
    buffer_.reserve(size_ + vostrel::kTextPadding);
    buffer_.assign(text.begin(), text.end());
    buffer_.push_back(behind);
    while (buffer_.size() < size_ + vostrel::kTextPadding) buffer_.push_back('7');
    buffer_.shrink_to_fit();
  }
  std::string_view text() const { return {buffer_.data(), size_}; }

 private:
  std::size_t size_;
  std::vector<char> buffer_;
};

std::string shown(const std::string& text) {
  return text.size() <= 100 ? "'" + text + "'" : "'" + text.substr(0, 100) + "'...";
}

/// atoi is defined only for what fits an int.
bool fits_an_int(const std::string& text) {
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  return value >= -2147483648LL && value <= 2147483647LL;
}

void expect_same_reading(const std::string& text) {
  for (const char behind : {',', ' ', '\n', '\0'}) {
    const Padded padded(text, behind);
    ASSERT_EQ(bits_of(vostrel::read_double(padded.text())), bits_of(plain::read_double(text)))
        << shown(text) << " before " << int{behind};
    if (fits_an_int(text)) {
      ASSERT_EQ(vostrel::read_int(padded.text()), plain::read_int(text)) << shown(text);
    }
  }
}

struct Reading {
  std::string text;
  double value;
};

const std::vector<Reading>& readings() {
  static const std::vector<Reading> table = {
      // White space, signs, nothing at all.
      {"", 0},
      {" ", 0},
      {"0", 0},
      {"-0", -0.0},
      {"+0", 0},
      {"1", 1},
      {"-1", -1},
      {"+1", 1},
      {" \t\n\v\f\r2.5", 2.5},
      {" -3", -3},
      {"2.5 ", 2.5},
      {"- 1", 0},
      {"+ 1", 0},
      {"+-1", 0},
      {"-+1", 0},
      {"--1", 0},
      {"++1", 0},
      {"-", 0},
      {"+", 0},
      {"1-2", 1},
      {"1+2", 1},
      {"\xa0"
       "1",
       0},
      {"1\xa0", 1},
      {"\0001"s, 0},
      {"1\0002"s, 1},
      {"1.\0005"s, 1},
      {"-\0001"s, 0},
      {"1e\0005"s, 1},
      {" \0001"s, 0},
      // Points.
      {".5", 0.5},
      {"5.", 5},
      {".", 0},
      {"-.", 0},
      {"-.5", -0.5},
      {"+.5", 0.5},
      {"..5", 0},
      {"1..5", 1},
      {"1.5.5", 1.5},
      {"-.5e-3", -0.0005},
      {".e1", 0},
      {"5.e1", 50},
      {"1,5", 1},
      // Exponents.
      {"1e", 1},
      {"1e+", 1},
      {"1e-", 1},
      {"1e+5x", 100000},
      {"1E5", 100000},
      {"1e5", 100000},
      {"1e-5", 0.00001},
      {"1e+-5", 1},
      {"1e 5", 1},
      {"e5", 0},
      {"1e5.5", 100000},
      {"1ee5", 1},
      {"1e0000000000000000000000000000005", 100000},
      {"1e-0000000000000000000000005", 0.00001},
      {"1e99999999999999999999", kInfinity},
      {"-1e99999999999999999999", -kInfinity},
      {"1e-99999999999999999999", 0},
      {"-1e-99999999999999999999", -0.0},
      {"0e999999999", 0},
      {"-0e999999999", -0.0},
      {"0.0e99999999999999999999", 0},
      {"1e2147483648", kInfinity},
      {"1e-2147483649", 0},
      {"1e4294967297", kInfinity},
      {"1e9223372036854775808", kInfinity},
      {"1e18446744073709551617", kInfinity},
      // The ends of the range.
      {"1.7976931348623157e308", 0x1.fffffffffffffp1023},
      {"1.7976931348623158e308", 0x1.fffffffffffffp1023},
      {"1.7976931348623159e308", kInfinity},
      {"1e309", kInfinity},
      {"-1e309", -kInfinity},
      {"2.2250738585072014e-308", 0x1p-1022},
      {"2.2250738585072011e-308", 0x0.fffffffffffffp-1022},
      {"4.9406564584124654e-324", 0x1p-1074},
      {"5e-324", 0x1p-1074},
      {"3e-324", 0x1p-1074},
      {"2e-324", 0},
      {"-2e-324", -0.0},
      {"2.4703282292062327e-324", 0},
      {"2.4703282292062328e-324", 0x1p-1074},
      // Halfway between two doubles: to the even one, unless more digits follow.
      {"9007199254740993", 9007199254740992.0},
      {"9007199254740995", 9007199254740996.0},
      {"9007199254740993.0000000000000000000000000000001", 9007199254740994.0},
      {"9007199254740992.9999999999999999999999999999999", 9007199254740992.0},
      {"1.00000000000000011102230246251565404236316680908203125", 1.0},
      {"1.00000000000000011102230246251565404236316680908203124", 1.0},
      {"1.00000000000000011102230246251565404236316680908203126", 0x1.0000000000001p0},
      {"8.5e-1", 0.85},
      {"0.1", 0x1.999999999999ap-4},
      {"123456789012345678", 123456789012345680.0},
      // Hexadecimal.
      {"0x", 0},
      {"0X", 0},
      {"-0x", -0.0},
      {"0x.", 0},
      {"0x.p1", 0},
      {"0xg", 0},
      {"0x1", 1},
      {"0x10", 16},
      {"-0x10", -16},
      {"0XfF", 255},
      {"0x.8", 0.5},
      {"0x1.8", 1.5},
      {"0x1p3", 8},
      {"0x1p", 1},
      {"0x1p+", 1},
      {"0x1p-", 1},
      {"0x1P-3", 0.125},
      {"0x1p3x", 8},
      {"0x1e5", 485},
      {"00x1", 0},
      {"0x0x1", 0},
      {"0x1p99999999999", kInfinity},
      {"0x1p-99999999999", 0},
      {"0x0p99999999999", 0},
      {"0x1.fffffffffffff8p0", 2},
      {"0x1.00000000000008p0", 1},
      {"0x1.000000000000080000000000000001p0", 0x1.0000000000001p0},
      {"0x1p-1074", 0x1p-1074},
      {"0x1p-1075", 0},
      {"0x1.8p-1075", 0x1p-1074},
      {"0x.00000000000000000001p80", 1},
      {"0x-1", 0},
      {"0x 1", 0},
      {"0x1.8.8", 1.5},
      // Infinities.
      {"inf", kInfinity},
      {"INF", kInfinity},
      {"-inf", -kInfinity},
      {"+inf", kInfinity},
      {"iNfInItY", kInfinity},
      {"infinity", kInfinity},
      {"-Infinity", -kInfinity},
      {"infinit", kInfinity},
      {"infx", kInfinity},
      {"infinityx", kInfinity},
      {"in", 0},
      {"i", 0},
      {"- inf", 0},
      {"  inf", kInfinity},
      {"1inf", 1},
      {"in\0f"s, 0},
      // Other notations, which are not recognized.
      {"0b11", 0},
      {"1_000", 1},
      {"1'000", 1},
      {"1d5", 1},
      {"1f", 1},
      {"abc", 0},
      {"x1", 0},
      {"\xef\xbb\xbf"
       "1",
       0},
      {"one", 0},
      {"$1", 0},
      {"#1", 0},
      {"'1'", 0},
      {"\"1\"", 0},
      // Eight and nine digits: a reader by words stops at eight.
      {"12345678", 12345678},
      {"123456789", 123456789},
      {"1234567.8", 1234567.8},
      {"12345678.9", 12345678.9},
      {"1.23456789", 1.23456789},
      {"1.234567890", 1.23456789},
      {"12345678.12345678", 12345678.12345678},
      {"99999999.99999999", 99999999.99999999},
      {"90071992.54740993", 90071992.54740993},
      {"90071992.54740992", 90071992.54740992},
      {"00000000", 0},
      {"000000001", 1},
      {"00000000.00000001", 1e-8},
      {"0.000000001", 1e-9},
      {"12345678/9", 12345678},
      {"12345678:9", 12345678},
      {"1234567:", 1234567},
      {"1/", 1},
      {"1:", 1},
      {"12345678e1", 123456780},
      {"1.5e", 1.5},
      {"1.5E+", 1.5},
  };
  return table;
}

TEST(ReadDouble, ReadsKnownTexts) {
  for (const Reading& row : readings()) {
    for (const char behind : {',', ' ', '\n', '\0'}) {
      const Padded padded(row.text, behind);
      EXPECT_EQ(bits_of(vostrel::read_double(padded.text())), bits_of(row.value))
          << shown(row.text) << " before " << int{behind};
    }
    EXPECT_EQ(bits_of(plain::read_double(row.text)), bits_of(row.value)) << shown(row.text);
  }
}

TEST(ReadDouble, MatchesAtofForNaN) {
  for (const char* const text : {"nan",
                                 "NaN",
                                 "NAN",
                                 "-nan",
                                 "+nan",
                                 "nan()",
                                 "nan(123)",
                                 "nan(0x7f)",
                                 "nan(017)",
                                 "nan(abc",
                                 "nan(abc)",
                                 "nan(12 3)",
                                 "nan(_)",
                                 "nan(1)2",
                                 "-nan(5)",
                                 "nan(-1)",
                                 "nan(99999999999999999999999)",
                                 "nan(0)",
                                 "nan(4503599627370495)",
                                 "nan(2251799813685248)",
                                 "na",
                                 "n",
                                 "nano",
                                 " nan",
                                 "nan ",
                                 "1nan",
                                 "n an",
                                 "nan(",
                                 "nan(()",
                                 "nan(1,2)",
                                 "nan(0xffffffffffffffffffff)",
                                 "-nan(0xfffffffffffff)",
                                 "nanq",
                                 "snan",
                                 "nan(ind)"}) {
    expect_same_reading(text);
  }
  expect_same_reading("nan(1\0002)"s);
  expect_same_reading("nan(" + std::string(5000, '1') + ")");
  expect_same_reading("nan(" + std::string(5000, 'a'));
}

TEST(ReadInt, ReadsKnownTexts) {
  const struct {
    std::string text;
    int value;
  } kTable[] = {
      {"", 0},
      {"0", 0},
      {"7", 7},
      {"-7", -7},
      {"+7", 7},
      {"--7", 0},
      {"+-7", 0},
      {" \t\n\v\f\r7", 7},
      {"7 8", 7},
      {"1.9", 1},
      {"2abc", 2},
      {"x", 0},
      {".5", 0},
      {"1e3", 1},
      {"0x10", 0},
      {"010", 10},
      {"nan", 0},
      {"12345678", 12345678},
      {"123456789", 123456789},
      {"2147483647", 2147483647},
      {"-2147483648", -2147483647 - 1},
      {"0000000000000000000000000042", 42},
      {"4\0002"s, 4},
      {"12345678/9", 12345678},
      {"12345678:", 12345678},
      {"1-2", 1},
      {"\xef\xbb\xbf"
       "1",
       0},
      {"- 1", 0},
  };
  for (const auto& row : kTable) {
    for (const char behind : {',', ' ', '\n', '\0'}) {
      const Padded padded(row.text, behind);
      EXPECT_EQ(vostrel::read_int(padded.text()), row.value) << shown(row.text);
    }
    EXPECT_EQ(plain::read_int(row.text), row.value) << shown(row.text);
  }
}

TEST(ReadInt, MatchesAtoiBeyondTheRangeOfInt) {
  for (const char* const text :
       {"2147483648", "-2147483649", "4294967296", "4294967297", "9223372036854775807",
        "9223372036854775808", "99999999999999999999", "-9223372036854775808",
        "-99999999999999999999"}) {
    EXPECT_EQ(vostrel::read_int(Padded(text, ',').text()), plain::read_int(text)) << text;
  }
}

TEST(ReadDouble, MatchesAtofForEveryDigitCount) {
  Random random;
  const auto digits = [&](std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += static_cast<char>('0' + random.below(10));
    return text;
  };
  for (std::size_t before = 0; before <= 25; ++before) {
    for (std::size_t after = 0; after <= 25; ++after) {
      for (const char* const sign : {"", "-", "+"}) {
        expect_same_reading(sign + digits(before) + "." + digits(after));
        expect_same_reading(sign + std::string(before, '9') + "." + std::string(after, '9'));
        expect_same_reading(sign + std::string(before, '0') + "." + digits(after));
      }
      expect_same_reading(digits(before));
      expect_same_reading(digits(before) + "e" + digits(after));
    }
  }
}

TEST(ReadDouble, MatchesAtofForVeryLongNumbers) {
  const std::string zeros(1000000, '0');
  const std::string nines(1000000, '9');
  for (const std::string& text : {std::string(800, '1'),
                                  "0." + std::string(800, '3'),
                                  "1" + std::string(800, '0') + "e-800",
                                  "." + std::string(800, '0') + "1e800",
                                  std::string(308, '9') + "." + std::string(500, '9'),
                                  zeros,
                                  "-" + zeros,
                                  zeros + "1",
                                  "0." + zeros,
                                  "0." + zeros + "1",
                                  "0." + zeros + "1e1000001",
                                  nines,
                                  "1" + zeros,
                                  "1" + zeros + "e-1000000",
                                  "0." + nines,
                                  "1." + zeros + "1",
                                  "9007199254740993." + zeros + "1",
                                  "9007199254740993." + zeros,
                                  "1e" + zeros + "5",
                                  "1e-" + zeros + "5",
                                  "1e" + nines,
                                  "0x" + zeros + "1",
                                  "0x1." + zeros + "1",
                                  "0x1.00000000000008" + zeros + "1",
                                  std::string(1000000, ' ') + "1",
                                  std::string(1000000, '\t'),
                                  std::string(1000000, 'x'),
                                  std::string(1000000, '-'),
                                  std::string(1023, '1'),
                                  std::string(1024, '1'),
                                  std::string(1025, '1'),
                                  "1." + std::string(1021, '0') + "1",
                                  "1." + std::string(1022, '0') + "1",
                                  "1." + std::string(1023, '0') + "1"}) {
    expect_same_reading(text);
  }
}

TEST(ReadDouble, MatchesAtofAroundMidpoints) {
  Random random;
  // The middle between two neighbouring doubles, in full: at most 770 digits.
  for (int i = 0; i < rounds(3000); ++i) {
    const double low = std::fabs(random.any_double());
    if (!(low < 1e300)) continue;
    char text[1200];
    const double high = std::nextafter(low, kInfinity);
    const long double middle = (static_cast<long double>(low) + static_cast<long double>(high)) / 2;
    std::snprintf(text, sizeof text, "%.1100Lg", middle);
    std::string half = text;
    expect_same_reading(half);
    const std::size_t end = std::min(half.find('e'), half.size());
    expect_same_reading(half.substr(0, end) + (half.find('.') < end ? "1" : ".1") +
                        half.substr(end));
    for (const int precision : {16, 17, 18, 20}) {
      std::snprintf(text, sizeof text, "%.*Lg", precision, middle);
      expect_same_reading(text);
    }
  }
}

/// Text that looks like a number, or nearly so.
std::string number_like(Random& random) {
  static const std::string kSpaces[] = {"", "", "", " ", "\t", " \v\f\r"};
  static const std::string kSigns[] = {"", "", "", "-", "+", "--"};
  static const std::string kWords[] = {"inf", "INFINITY", "infin", "nan", "nan(12)", "nan(x", "na"};
  static const std::string kEnds[] = {"", "", "", "x", " ", "e", ".", "-1", "\r", "\0"s, "e+"};
  static const std::string kAlphabet = "0123456789.,-+eExXpP naifNAIF()\t\0"s;
  const auto digits = [&](std::size_t most) {
    std::string text;
    for (std::size_t i = random.below(most + 1); i > 0; --i) {
      text += static_cast<char>('0' + (random.one_in(3) ? 0 : random.below(10)));
    }
    return text;
  };
  std::string text = random.pick(kSpaces) + random.pick(kSigns);
  const std::size_t kind = random.below(10);
  if (kind < 7) {
    text += digits(random.one_in(8) ? 30 : 9);
    if (!random.one_in(4)) text += "." + digits(random.one_in(8) ? 30 : 9);
    if (random.one_in(3)) text += (random.one_in(2) ? "e" : "E") + random.pick(kSigns) + digits(3);
  } else if (kind == 7) {
    static const char kHex[] = "0123456789abcdefABCDEF";
    text += random.one_in(2) ? "0x" : "0X";
    for (std::size_t i = random.below(18); i > 0; --i) text += kHex[random.below(22)];
    if (random.one_in(2)) text += ".";
    for (std::size_t i = random.below(18); i > 0; --i) text += kHex[random.below(22)];
    if (random.one_in(2)) text += "p" + random.pick(kSigns) + digits(4);
  } else if (kind == 8) {
    text += random.pick(kWords);
  }
  text += random.pick(kEnds);
  if (random.one_in(4) && !text.empty()) text[random.below(text.size())] = random.pick(kAlphabet);
  if (random.one_in(8)) text.insert(random.below(text.size() + 1), 1, random.pick(kAlphabet));
  return text;
}

TEST(ReadDouble, MatchesAtofForTextsLikeNumbers) {
  Random random;
  for (int i = 0; i < rounds(600000); ++i) {
    expect_same_reading(number_like(random));
    if (HasFatalFailure()) return;
  }
}

TEST(ReadDouble, MatchesAtofForRandomShortTexts) {
  Random random;
  static const std::string kAlphabet = "0123456789.-+eE xp\0"s;
  std::string text;
  for (int i = 0; i < rounds(300000); ++i) {
    text.clear();
    for (std::size_t n = random.below(20); n > 0; --n) text += random.pick(kAlphabet);
    expect_same_reading(text);
    if (HasFatalFailure()) return;
  }
}

struct Field {
  std::string_view text;
  char separator;
  int end;  // where the field ends; -1 when it is not read
  double value;
};

TEST(ReadField, EndsAtTheSeparatorOrNewline) {
  std::string longest(vostrel::kShortText, '1');
  std::string too_long(vostrel::kShortText + 1, '1');
  longest += ",\n";
  too_long += ",\n";
  const std::vector<Field> table = {
      {"0.5,1\n", ',', 3, 0.5},
      {"0.5\n1,2\n", ',', 3, 0.5},
      {" 0.5 ,1\n", ',', 5, 0.5},
      {"1e-05 2\n", ' ', 5, 0.00001},
      {"0.12345678901234567,\n", ',', 19, 0.12345678901234567},
      {"abc,1\n", ',', 3, 0},
      {"0x10,1\n", ',', 4, 16},
      {"-inf\n", ',', 4, -HUGE_VAL},
      {" 1 2\n", '\n', 4, 1},
      {",1\n", ',', -1, 0},
      {"\n1\n", ',', -1, 0},
      {"1\0,\n"sv, ',', -1, 0},
      {"1", ',', -1, 0},
      {longest, ',', int{vostrel::kShortText}, HUGE_VAL},
      {too_long, ',', -1, 0},
  };
  for (const Field& field : table) {
    const std::string given(field.text);
    const std::string text = given + std::string(vostrel::kTextPadding, '\0');
    double value = 0;
    const char* const end = vostrel::read_field(text.data(), field.separator, value);
    EXPECT_EQ(end == nullptr ? -1 : end - text.data(), field.end) << shown(given);
    if (end != nullptr) {
      EXPECT_EQ(value, field.value) << shown(given);
    }
  }
}

}  // namespace
