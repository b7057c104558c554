#include "text/eight_characters.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/support/random.h"

namespace {

// The length of the integer before is sometimes the same, sometimes too short or too long.
TEST(SteadyIntegers, ReadsIntegersOfChangingLength) {
  Random random;
  vostrel::SteadyIntegers integers;
  for (int round = 0; round < rounds(100000); ++round) {
    const std::size_t size = 1 + random.below(8);
    std::string digits;
    while (digits.size() < size) digits += static_cast<char>('0' + random.below(10));
    const std::string text = digits + random.pick(std::string(" \n:/ax\x80")) + "99999999999999999";
    std::uint64_t value = 0;
    const char* const end = integers.read(text.data(), value);
    ASSERT_EQ(end, text.data() + size) << text;
    ASSERT_EQ(value, std::stoull(digits));
  }
}

TEST(SteadyIntegers, ReadsAtMostEightDigitsAndAtLeastOne) {
  vostrel::SteadyIntegers integers;
  std::uint64_t value = 0;
  const std::string long_text = "1234567890 padding padding";
  EXPECT_EQ(integers.read(long_text.data(), value), long_text.data() + 8);
  EXPECT_EQ(value, 12345678U);
  const std::string blank = " 1 padding padding padding";
  EXPECT_EQ(integers.read(blank.data(), value), nullptr);
}

}  // namespace
