// Random tables, from clean to malicious.

#ifndef VOSTREL_TESTS_RELIABILITY_TABLES_H
#define VOSTREL_TESTS_RELIABILITY_TABLES_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "tests/support/random.h"

inline std::string digits(Random& random, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += static_cast<char>('0' + random.below(10));
  return text;
}

/// A number as tables usually have it.
inline std::string usual_number(Random& random) {
  std::string text = random.one_in(8) ? "-" : "";
  text += random.one_in(3) ? digits(random, 1 + random.below(4)) : std::to_string(random.below(4));
  if (!random.one_in(10)) text.append(".").append(digits(random, 1 + random.below(9)));
  return text;
}

/// Text in place of a number: every notation that is read, and others.
inline std::string hostile_number(Random& random) {
  static constexpr std::string_view kShapes[] = {"nan",
                                                 "-nan",
                                                 "NaN",
                                                 "+nan",
                                                 "nan(123)",
                                                 "nan(",
                                                 "-nan(0x7)",
                                                 "inf",
                                                 "-inf",
                                                 "+INF",
                                                 "infinity",
                                                 "-Infinity",
                                                 "infinit",
                                                 "in",
                                                 "na",
                                                 "0x1p3",
                                                 "0x",
                                                 "0X.8",
                                                 "0x1.fp-2",
                                                 "-0xAB",
                                                 "0x1p",
                                                 "1e",
                                                 "1e+",
                                                 "1e5",
                                                 "1E-5",
                                                 "1e999",
                                                 "-1e999",
                                                 "1e-999",
                                                 "-1e-999",
                                                 "2.5e-310",
                                                 "4.9e-324",
                                                 "1.7976931348623157e308",
                                                 "1.7976931348623159e308",
                                                 "-0",
                                                 "-0.0",
                                                 "+0",
                                                 "0",
                                                 "00",
                                                 "-1",
                                                 "+1",
                                                 "+-1",
                                                 "--1",
                                                 "-+1",
                                                 "- 1",
                                                 ".5",
                                                 "5.",
                                                 ".",
                                                 "-.",
                                                 "-.5",
                                                 "+.5",
                                                 "..5",
                                                 "1.2.3",
                                                 "1..2",
                                                 "1e5.5",
                                                 "1.5e+3x",
                                                 "abc",
                                                 "x",
                                                 "e5",
                                                 "-",
                                                 "+",
                                                 "#",
                                                 "\"1\"",
                                                 "'",
                                                 "1 2",
                                                 "1_000",
                                                 "1'000",
                                                 "0.1234565",
                                                 "0.12345650000000000001",
                                                 "0.1234564999999999999",
                                                 "999999.5",
                                                 "999999.4999999999",
                                                 "9999995",
                                                 "99999.95",
                                                 "0.0001",
                                                 "0.00009999995",
                                                 "9.9999995e-5",
                                                 "1234565",
                                                 "1234575",
                                                 "2147483648",
                                                 "1e22",
                                                 "1e23",
                                                 "9007199254740993",
                                                 "123456789012345678",
                                                 "0.99999949999999",
                                                 "0.9999995",
                                                 "\xef\xbb\xbf"
                                                 "1",
                                                 "\xc2\xa0"
                                                 "1",
                                                 "\xff",
                                                 "1\xff"};
  switch (random.below(8)) {
    case 0:
      return digits(random, 1 + random.below(40))
          .append(".")
          .append(digits(random, random.below(40)));
    case 1: {
      const std::string number = digits(random, 6) + "5" + (random.one_in(2) ? "" : "0000001");
      return std::string(random.one_in(2) ? "0." : "0.00") + number;
    }
    case 2: {
      char text[64];
      std::snprintf(text, sizeof text, "%.*g", static_cast<int>(1 + random.below(19)),
                    std::bit_cast<double>(random.bits()));
      return text;
    }
    case 3: {
      std::string text;
      static constexpr std::string_view kAlphabet = "0123456789.-+eExXpPnaif() \t\v\f\r";
      for (std::size_t i = 1 + random.below(8); i > 0; --i) text += random.pick(kAlphabet);
      return text;
    }
    default:
      return std::string(random.pick(kShapes));
  }
}

/// A field of a table. `hostility` is 0 to 3.
inline std::string field(Random& random, std::size_t hostility) {
  if (hostility == 0 || !random.one_in(std::size_t{1} << (4 - hostility)))
    return usual_number(random);
  std::string text = hostile_number(random);
  static constexpr std::string_view kBlanks[] = {" ", "  ", "\t", "\v", "\f", "\r", " \t "};
  if (random.one_in(4)) text.insert(0, random.pick(kBlanks));
  if (random.one_in(4)) text += random.pick(kBlanks);
  if (random.one_in(30)) text.insert(random.below(text.size() + 1), 1, '\0');
  if (random.one_in(60)) text.insert(0, random.below(3000), random.one_in(2) ? ' ' : '0');
  if (random.one_in(60)) text += digits(random, random.below(3000));
  return text;
}

/// A line of `columns` fields, or a few more or fewer.
inline std::string line(Random& random, std::size_t columns, std::size_t hostility) {
  std::size_t count = columns;
  if (hostility > 0 && random.one_in(16)) count = 1 + random.below(columns + 3);
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) text += ',';
    if (hostility > 1 && random.one_in(columns * 60)) continue;  // an empty field
    text += field(random, hostility);
  }
  if (hostility > 0 && random.one_in(100)) text.insert(0, 1 + random.below(3), ',');
  if (hostility > 1 && random.one_in(200)) text += std::string(1 + random.below(3), ',');
  if (hostility > 2 && random.one_in(200)) text = std::string(1 + random.below(2 * columns), ',');
  return text;
}

/// A whole table. Sets `columns` to the intended number of columns.
inline std::string table(Random& random, std::size_t& columns) {
  columns = random.one_in(12) ? 1
                              : 2 + random.below(random.one_in(50)  ? 300
                                                 : random.one_in(3) ? 12
                                                                    : 3);
  const std::size_t hostility = random.below(4);
  if (hostility == 3 && random.one_in(10)) {  // no table at all
    std::string text;
    static constexpr std::string_view kFew = "0123456789.,,,,-e \n\n\r";
    const bool any_byte = random.one_in(2);
    for (std::size_t i = random.below(400); i > 0; --i) {
      text += any_byte ? static_cast<char>(random.below(256)) : random.pick(kFew);
    }
    return text;
  }
  const std::size_t lines = random.one_in(40) ? random.below(800) : random.below(30);
  const std::string ending = random.one_in(6) ? "\r\n" : "\n";
  std::string text;
  if (hostility > 0 && random.one_in(40)) text += "\xef\xbb\xbf";
  if (random.one_in(4)) {
    for (std::size_t i = 0; i < columns; ++i) text += (i > 0 ? ",c" : "c") + std::to_string(i);
    text += ending;
  }
  // A few fields so long that the lines around them cross a block boundary.
  const bool long_fields = random.one_in(100);
  for (std::size_t i = 0; i < lines; ++i) {
    if (hostility > 0 && random.one_in(300)) text += ending;  // an empty line, or one with a return
    std::string next = line(random, columns, hostility);
    if (long_fields && random.one_in(4)) {
      const std::size_t comma = next.find(',');
      const std::size_t at = random.one_in(2) || comma == std::string::npos ? 0 : comma + 1;
      const std::size_t size = random.one_in(2) ? random.below(300000) : 131072 - random.below(64);
      next.insert(at, size, random.one_in(2) ? ' ' : '0');
    }
    text += next;
    if (i + 1 < lines || !random.one_in(4)) text += ending;
  }
  return text;
}

/// Many rows of usual numbers, with an odd field now and then. They take several blocks, and some
/// tables have more objects than the statistics keep.
inline std::string long_table(Random& random, std::size_t& columns) {
  columns = 2 + random.below(3);
  const std::size_t lines = 6000 + random.below(6000);
  std::string text;
  for (std::size_t i = 0; i < lines; ++i) {
    text += line(random, columns, random.one_in(50) ? 1 : 0) + "\n";
  }
  return text;
}

#endif  // VOSTREL_TESTS_RELIABILITY_TABLES_H
