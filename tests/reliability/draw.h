// Random choices, and tables that are anything from clean to malicious.

#ifndef VOSTREL_TESTS_RELIABILITY_DRAW_H
#define VOSTREL_TESTS_RELIABILITY_DRAW_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>

class Draw {
 public:
  explicit Draw(std::uint64_t seed) : engine_(seed) {}

  std::uint64_t bits() { return engine_(); }
  /// 0 to count - 1.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(engine_() % count); }
  bool one_in(std::size_t count) { return below(count) == 0; }
  double fraction() { return static_cast<double>(bits() >> 11) * 0x1p-53; }

  template <typename Container>
  const auto& pick(const Container& container) {
    return container[below(std::size(container))];
  }

 private:
  std::mt19937_64 engine_;
};

inline std::string digits(Draw& draw, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += static_cast<char>('0' + draw.below(10));
  return text;
}

/// A number as tables have them.
inline std::string usual_number(Draw& draw) {
  std::string text = draw.one_in(8) ? "-" : "";
  text += draw.one_in(3) ? digits(draw, 1 + draw.below(4)) : std::to_string(draw.below(4));
  if (!draw.one_in(10)) text.append(".").append(digits(draw, 1 + draw.below(9)));
  return text;
}

/// Text where a number is wanted, of every shape that number reading knows, and of none.
inline std::string hostile_number(Draw& draw) {
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
  switch (draw.below(8)) {
    case 0:
      return digits(draw, 1 + draw.below(40)).append(".").append(digits(draw, draw.below(40)));
    case 1: {
      const std::string number = digits(draw, 6) + "5" + (draw.one_in(2) ? "" : "0000001");
      return std::string(draw.one_in(2) ? "0." : "0.00") + number;
    }
    case 2: {
      char text[64];
      std::snprintf(text, sizeof text, "%.*g", static_cast<int>(1 + draw.below(19)),
                    std::bit_cast<double>(draw.bits()));
      return text;
    }
    case 3: {
      std::string text;
      static constexpr std::string_view kAlphabet = "0123456789.-+eExXpPnaif() \t\v\f\r";
      for (std::size_t i = 1 + draw.below(8); i > 0; --i) text += draw.pick(kAlphabet);
      return text;
    }
    default:
      return std::string(draw.pick(kShapes));
  }
}

/// A field of a table. `hostility` is 0 to 3.
inline std::string field(Draw& draw, std::size_t hostility) {
  if (hostility == 0 || !draw.one_in(std::size_t{1} << (4 - hostility))) return usual_number(draw);
  std::string text = hostile_number(draw);
  static constexpr std::string_view kBlanks[] = {" ", "  ", "\t", "\v", "\f", "\r", " \t "};
  if (draw.one_in(4)) text.insert(0, draw.pick(kBlanks));
  if (draw.one_in(4)) text += draw.pick(kBlanks);
  if (draw.one_in(30)) text.insert(draw.below(text.size() + 1), 1, '\0');
  if (draw.one_in(60)) text.insert(0, draw.below(3000), draw.one_in(2) ? ' ' : '0');
  if (draw.one_in(60)) text += digits(draw, draw.below(3000));
  return text;
}

/// A line of `columns` fields, or nearly so.
inline std::string line(Draw& draw, std::size_t columns, std::size_t hostility) {
  std::size_t count = columns;
  if (hostility > 0 && draw.one_in(16)) count = 1 + draw.below(columns + 3);
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) text += ',';
    if (hostility > 1 && draw.one_in(columns * 60)) continue;  // an empty field
    text += field(draw, hostility);
  }
  if (hostility > 0 && draw.one_in(100)) text.insert(0, 1 + draw.below(3), ',');
  if (hostility > 1 && draw.one_in(200)) text += std::string(1 + draw.below(3), ',');
  if (hostility > 2 && draw.one_in(200)) text = std::string(1 + draw.below(2 * columns), ',');
  return text;
}

/// A whole table; `columns` is set to how many its first line was to have.
inline std::string table(Draw& draw, std::size_t& columns) {
  columns = draw.one_in(12) ? 1 : 2 + draw.below(draw.one_in(50) ? 300 : draw.one_in(3) ? 12 : 3);
  const std::size_t hostility = draw.below(4);
  if (hostility == 3 && draw.one_in(10)) {  // no table at all
    std::string text;
    static constexpr std::string_view kFew = "0123456789.,,,,-e \n\n\r";
    const bool any_byte = draw.one_in(2);
    for (std::size_t i = draw.below(400); i > 0; --i) {
      text += any_byte ? static_cast<char>(draw.below(256)) : draw.pick(kFew);
    }
    return text;
  }
  const std::size_t lines = draw.one_in(40) ? draw.below(800) : draw.below(30);
  const std::string ending = draw.one_in(6) ? "\r\n" : "\n";
  std::string text;
  if (hostility > 0 && draw.one_in(40)) text += "\xef\xbb\xbf";
  if (draw.one_in(4)) {
    for (std::size_t i = 0; i < columns; ++i) text += (i > 0 ? ",c" : "c") + std::to_string(i);
    text += ending;
  }
  // A few fields so long that the lines around them meet the edge of a block that is read.
  const bool long_fields = draw.one_in(100);
  for (std::size_t i = 0; i < lines; ++i) {
    if (hostility > 0 && draw.one_in(300)) text += ending;  // an empty line, or one with a return
    std::string next = line(draw, columns, hostility);
    if (long_fields && draw.one_in(4)) {
      const std::size_t comma = next.find(',');
      const std::size_t at = draw.one_in(2) || comma == std::string::npos ? 0 : comma + 1;
      const std::size_t size = draw.one_in(2) ? draw.below(300000) : 131072 - draw.below(64);
      next.insert(at, size, draw.one_in(2) ? ' ' : '0');
    }
    text += next;
    if (i + 1 < lines || !draw.one_in(4)) text += ending;
  }
  return text;
}

/// Many rows of usual numbers, several blocks of them, now and then a field that is not usual.
inline std::string long_table(Draw& draw, std::size_t& columns) {
  columns = 2 + draw.below(3);
  const std::size_t lines = 4000 + draw.below(4000);
  std::string text;
  for (std::size_t i = 0; i < lines; ++i) {
    text += line(draw, columns, draw.one_in(50) ? 1 : 0) + "\n";
  }
  return text;
}

#endif  // VOSTREL_TESTS_RELIABILITY_DRAW_H
