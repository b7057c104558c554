// The fields of a line, by position and by skipping commas.

#include "text/table_fields.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/random.h"
#include "text/eight_characters.h"

namespace {

using namespace std::string_literals;

/// Walks from position to position, as field_at is defined.
std::optional<std::string> field_by_walking(const std::string& line, int position) {
  std::size_t scan = 0;
  for (int k = 1;; ++k) {
    scan = line.find_first_not_of(',', scan);
    const std::size_t comma = line.find(',', scan);
    if (k == position) {
      if (scan == std::string::npos) return std::nullopt;
      return line.substr(scan, comma - scan);
    }
    scan = comma + 1;
  }
}

TEST(FieldAt, StartsOverAfterTheLastField) {
  const struct {
    std::string line;
    std::vector<std::optional<std::string>> fields;  // positions 1, 2, 3, ...
  } kTable[] = {
      {"7", {"7", "7", "7"}},
      {"5,6", {"5", "6", "5", "6", "5"}},
      {"1,,3", {"1", "3", "1", "3"}},
      {",1,2", {"1", "2", "1", "2"}},
      {"1,2,", {"1", "2", std::nullopt, "1", "2", std::nullopt, "1"}},
      {"1,,,", {"1", std::nullopt, "1", std::nullopt}},
      {",", {std::nullopt, std::nullopt, std::nullopt}},
      {",,,", {std::nullopt, std::nullopt}},
      {" , ", {" ", " ", " "}},
      {"a\0b,\r"s, {"a\0b"s, "\r", "a\0b"s}},
  };
  for (const auto& row : kTable) {
    for (std::size_t i = 0; i < row.fields.size(); ++i) {
      const int position = static_cast<int>(i) + 1;
      EXPECT_EQ(vostrel::field_at(row.line, position), row.fields[i]) << row.line << position;
      EXPECT_EQ(field_by_walking(row.line, position), row.fields[i]) << row.line << position;
    }
  }
}

TEST(FieldAt, MatchesWalking) {
  Random random;
  for (int i = 0; i < rounds(200000); ++i) {
    std::string line;
    for (std::size_t n = 1 + random.below(25); n > 0; --n) line += random.pick(",,1x "s);
    const int position = 1 + static_cast<int>(random.below(40));
    ASSERT_EQ(vostrel::field_at(line, position), field_by_walking(line, position))
        << line << " at " << position;
  }
}

TEST(FieldAt, TakesTheLargestPosition) {
  // 2147483647 = 3 * 715827882 + 1, and 4 * 536870911 + 3.
  EXPECT_EQ(vostrel::field_at("7,8,9", 2147483647), "7");
  EXPECT_EQ(vostrel::field_at("7,8,9,", 2147483647), "9");
}

/// As skip_commas, one character at a time. Nothing for nullptr.
std::optional<std::size_t> skip_by_walking(const std::string& line, int count) {
  std::size_t place = 0;
  for (; count > 0; ++place) {
    if (place == line.size() || (line[place] & 0x60) == 0)
      return std::nullopt;  // a control character
    if (line[place] != ',') continue;
    if (place == 0 || line[place - 1] == ',') return std::nullopt;
    --count;
  }
  return place;
}

TEST(SkipCommas, MatchesWalking) {
  Random random;
  for (int i = 0; i < rounds(300000); ++i) {
    std::string line;
    const std::string letters = random.one_in(3) ? ",,-.+1\0\n\xac\x8a"s : ",0123456789-+\xac."s;
    for (std::size_t n = random.below(60); n > 0; --n) line += random.pick(letters);
    const std::size_t end = line.size();
    line += '\n' + std::string(vostrel::kTextPadding, ',');
    const int count = static_cast<int>(random.below(10));
    const char* const found = vostrel::skip_commas(line.data(), count);
    const std::optional<std::size_t> expected = skip_by_walking(line.substr(0, end), count);
    ASSERT_EQ(found != nullptr, expected.has_value()) << line << " by " << count;
    if (found != nullptr) {
      ASSERT_EQ(found - line.data(), static_cast<std::ptrdiff_t>(*expected)) << line << count;
    }
  }
}

}  // namespace
