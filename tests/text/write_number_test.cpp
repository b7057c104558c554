// Writing numbers, compared with a stream in its default state.

#include "text/write_number.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <string>

#include "tests/plain/plain_utils.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"

namespace {

std::string written(double value) {
  char text[vostrel::kNumberRoom];
  char* const end = vostrel::write_double(value, text);
  return {text, end};
}

void expect_same_writing(double value) {
  ASSERT_EQ(written(value), plain::write_double(value)) << std::hexfloat << value;
}

/// Tests the value, its neighbours on both sides, and their negatives.
void expect_same_writing_around(double value) {
  for (const double near :
       {value, std::nextafter(value, kInfinity), std::nextafter(value, -kInfinity)}) {
    expect_same_writing(near);
    expect_same_writing(-near);
  }
}

TEST(WriteDouble, WritesKnownValues) {
  const struct {
    double value;
    const char* text;
  } kTable[] = {
      {0, "0"},
      {-0.0, "-0"},
      {1, "1"},
      {-1, "-1"},
      {2.5, "2.5"},
      {12.5, "12.5"},
      {100, "100"},
      {10, "10"},
      {0.1, "0.1"},
      {0.12345678, "0.123457"},
      {0.1234567, "0.123457"},
      {0.01234567, "0.0123457"},
      {1234567, "1.23457e+06"},
      {0.00001, "1e-05"},
      {2.5e-05, "2.5e-05"},
      {1.5e-05, "1.5e-05"},
      {0.0001, "0.0001"},
      {0.00012345678, "0.000123457"},
      {0.000099999949, "9.99999e-05"},
      {0.000099999951, "0.0001"},
      {123456, "123456"},
      {999999, "999999"},
      {999999.4, "999999"},
      {999999.5, "1e+06"},
      {999999.6, "1e+06"},
      {1000000, "1e+06"},
      {1000001, "1e+06"},
      {1000005, "1e+06"},
      {1000006, "1.00001e+06"},
      {99999.95, "99999.9"},
      {99999.94, "99999.9"},
      {9.999995, "10"},
      {9.9999951, "10"},
      {0.9999995, "1"},
      {0.99999951, "1"},
      {0.1000005, "0.100001"},
      {3, "3"},
      {-2.25, "-2.25"},
      {100000.5, "100000"},
      {100001.5, "100002"},
      {10000.25, "10000.2"},
      {10000.75, "10000.8"},
      {1000.125, "1000.12"},
      {1000.375, "1000.38"},
      {100.0625, "100.062"},
      {100.1875, "100.188"},
      {0.9921875, "0.992188"},
      {0.09765625, "0.0976562"},
      {0.009765625, "0.00976562"},
      {0.0009765625, "0.000976562"},
      {1e100, "1e+100"},
      {1e-100, "1e-100"},
      {1e22, "1e+22"},
      {1.7976931348623157e308, "1.79769e+308"},
      {2.2250738585072014e-308, "2.22507e-308"},
      {5e-324, "4.94066e-324"},
      {-1.234567e-308, "-1.23457e-308"},
      {kInfinity, "inf"},
      {-kInfinity, "-inf"},
      {kNaN, "nan"},
      {-kNaN, "-nan"},
  };
  for (const auto& row : kTable) {
    EXPECT_EQ(written(row.value), row.text) << std::hexfloat << row.value;
    EXPECT_EQ(plain::write_double(row.value), row.text) << std::hexfloat << row.value;
  }
}

TEST(WriteDouble, ShowsOnlyTheSignOfNaN) {
  for (const double value : kNaNs) expect_same_writing(value);
}

TEST(WriteDouble, MatchesAStreamForRandomBits) {
  Random random;
  for (int i = 0; i < rounds(300000); ++i) expect_same_writing(random.any_double());
}

TEST(WriteDouble, MatchesAStreamForOrdinaryMagnitudes) {
  Random random;
  for (int i = 0; i < rounds(600000); ++i) {
    const double scale = std::pow(10.0, static_cast<double>(random.below(14)) - 6);
    expect_same_writing((random.one_in(2) ? -scale : scale) * random.fraction());
  }
}

TEST(WriteDouble, MatchesAStreamAroundPowersOfTenAndTwo) {
  for (int e = -324; e <= 308; ++e) {
    expect_same_writing_around(std::strtod(("1e" + std::to_string(e)).c_str(), nullptr));
  }
  for (int e = -1074; e <= 1023; ++e) expect_same_writing_around(std::ldexp(1.0, e));
}

TEST(WriteDouble, MatchesAStreamAroundSixDigitMidpoints) {
  Random random;
  for (int e = -330; e <= 303; ++e) {
    const bool common = e >= -11 && e <= 1;
    for (int i = 0; i < rounds(common ? 3000 : 40); ++i) {
      const std::string digits = std::to_string(100000 + random.below(900000));
      expect_same_writing_around(
          std::strtod((digits + "5e" + std::to_string(e - 1)).c_str(), nullptr));
    }
    // The carry into the next decade.
    expect_same_writing_around(std::strtod(("9999995e" + std::to_string(e - 1)).c_str(), nullptr));
  }
}

TEST(WriteDouble, MatchesAStreamAtExactTies) {
  // Odd multiples of 1/2, 1/4, ... whose digits are seven, the last one a five.
  for (int s = 1; s <= 11; ++s) {
    const double unit = std::ldexp(1.0, -s);
    const long last = std::min(static_cast<long>(std::pow(10.0, 7 - s) / unit), 3000000L);
    const long step = 2 * (1 + last / rounds(60000));
    for (long k = 1; k <= last; k += step) expect_same_writing(static_cast<double>(k) * unit);
  }
}

TEST(WriteDouble, MatchesAStreamForDecimalsOfSixDigits) {
  for (const char* const exponent : {"e-10", "e-6", "e-4", "e-2", "e0", "e3"}) {
    const int step = 1000000 / rounds(60000) | 1;
    for (int digits = 0; digits < 1000000; digits += step) {
      expect_same_writing(std::strtod((std::to_string(digits) + exponent).c_str(), nullptr));
    }
  }
}

TEST(WriteDouble, MatchesAStreamForIntegers) {
  for (int i = -2000; i <= 2000; ++i) expect_same_writing(i);
  for (int i = 99990; i <= 100020; ++i) expect_same_writing(i);
  for (int i = 999000; i <= 1001000; ++i) expect_same_writing(i);
}

TEST(WriteDouble, MatchesAStreamForSubnormals) {
  Random random;
  for (int i = 0; i < 1000; ++i) expect_same_writing_around(std::ldexp(i, -1074));
  for (int i = 0; i < rounds(20000); ++i) {
    expect_same_writing(std::bit_cast<double>(random.bits() >> (12 + random.below(50))));
  }
}

}  // namespace
