// Very many numbers as text: reading must match std::atof and std::atoi, writing must match a
// stream in its default state, and copying must match reading followed by writing.
//
//     number_sweep STRINGS DOUBLES
//
// A stream would take most of the time. So writing is compared with snprintf's "%.6g", and one
// number in a hundred is written by a stream, too.

#include <array>
#include <bit>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "tests/support/bits.h"
#include "tests/support/random.h"
#include "text/copy_number.h"
#include "text/write_number.h"

namespace {

// A text, and space after it for what may follow in a line.
struct Text {
  std::array<char, 160> at;
  std::size_t size = 0;
  void add(char c) { at[size++] = c; }
  void add(std::string_view text) {
    std::memcpy(at.data() + size, text.data(), text.size());
    size += text.size();
  }
  std::string_view view() const { return {at.data(), size}; }
};

void add_digits(Random& random, Text& text, std::uint64_t count) {
  for (; count > 0; --count) text.add(static_cast<char>('0' + random.below(10)));
}

// Digits, a point, digits, as most fields are.
void add_usual(Random& random, Text& text) {
  if (random.one_in(4)) text.add('-');
  add_digits(random, text, random.below(10));
  if (!random.one_in(8)) text.add('.');
  add_digits(random, text, random.below(11));
}

// A redshift, and often one whose seventh digit is hard to round.
void add_redshift(Random& random, Text& text) {
  add_digits(random, text, 1);
  text.add('.');
  add_digits(random, text, random.below(9));
  static constexpr std::string_view kTails[] = {"499999", "500000", "49999999999999999999",
                                                "50000000000000000000"};
  if (random.one_in(2)) text.add(kTails[random.below(4)]);
  if (random.one_in(2)) add_digits(random, text, random.below(20));
  if (random.one_in(3)) {
    text.add(random.one_in(2) ? "e-0" : "e+0");
    add_digits(random, text, 1);
  }
}

// Up to 25 digits on each side, and an exponent.
void add_long(Random& random, Text& text) {
  if (random.one_in(4)) text.add(random.one_in(2) ? '-' : '+');
  add_digits(random, text, random.below(26));
  text.add('.');
  add_digits(random, text, random.below(26));
  if (random.one_in(2)) {
    text.add(random.one_in(2) ? 'e' : 'E');
    if (random.one_in(2)) text.add(random.one_in(2) ? '-' : '+');
    add_digits(random, text, 1 + random.below(3));
  }
}

// The shortest text of a number of any bits.
void add_any_number(Random& random, Text& text) {
  char* const begin = text.at.data() + text.size;
  const double value = std::bit_cast<double>(random.bits());
  text.size += static_cast<std::size_t>(std::to_chars(begin, begin + 40, value).ptr - begin);
}

// The middle between two neighbouring numbers, to the last digit or with one more or less.
void add_middle(Random& random, Text& text) {
  const double value =
      std::ldexp(static_cast<double>(random.bits() >> 11), static_cast<int>(random.below(60)) - 70);
  const auto next = static_cast<long double>(std::nextafter(value, 1e300));
  std::array<char, 120> exact{};
  std::snprintf(exact.data(), exact.size(), "%.90Lf", (static_cast<long double>(value) + next) / 2);
  std::string_view middle(exact.data());
  text.add(middle);
  if (random.one_in(3)) text.add('1');
  if (random.one_in(3)) --text.size;
}

// Pieces of odd numbers, as a fuzzer would join them.
void add_odd(Random& random, Text& text) {
  static constexpr std::string_view kPieces[] = {
      "nan", "NAN", "nan(", ")",   "inf", "INF",    "infinity",    "Infinit", "0x",
      "0X",  "p",   "P+",   "e",   "E-",  "+",      "-",           ".",       " ",
      "\t",  "\r",  "\v",   "\f",  "0",   "00",     "1",           "9",       "a",
      "F",   "x",   "308",  "309", "324", "999999", "000000000000"};
  for (std::uint64_t i = 1 + random.below(6); i > 0; --i) {
    text.add(kPieces[random.below(std::size(kPieces))]);
  }
}

Text draw_text(Random& random) {
  Text text;
  if (random.one_in(16)) text.add(random.one_in(2) ? ' ' : '\t');
  switch (random.below(16)) {
    case 0:
    case 1:
      add_long(random, text);
      break;
    case 2:
      add_any_number(random, text);
      break;
    case 3:
      random.one_in(20) ? add_middle(random, text) : add_long(random, text);
      break;
    case 4:
    case 5:
      add_odd(random, text);
      break;
    case 6:
    case 7:
    case 8:
      add_redshift(random, text);
      break;
    default:
      add_usual(random, text);
  }
  if (random.one_in(16)) text.add(random.one_in(2) ? ' ' : 'x');
  return text;
}

// The number that copying finds in a field before `separator`, or "nothing".
std::string_view copied(const char* field, char separator, std::array<char, 64>& room) {
  const vostrel::CopiedNumber copy = vostrel::copy_number(field, separator, room.data());
  if (copy.read_end == nullptr) return "nothing";
  return {room.data(), static_cast<std::size_t>(copy.write_end - room.data())};
}

std::string_view expected_copy(std::string_view field, double value, std::array<char, 64>& room) {
  if (field.empty()) return "nothing";
  const int size = std::snprintf(room.data(), room.size(), "%.6g", value);
  return {room.data(), static_cast<std::size_t>(size)};
}

bool read_alike(Random& random) {
  Text text = draw_text(random);
  const std::size_t size = text.size;
  static constexpr char kEnds[] = {',', ' ', '\n', '\0'};
  const char end = kEnds[random.below(4)];
  text.add(end);
  const std::uint64_t behind = random.one_in(2) ? random.bits() : 0x3938373635343332;
  std::memcpy(text.at.data() + text.size, &behind, sizeof behind);
  std::memcpy(text.at.data() + text.size + sizeof behind, &behind, sizeof behind);
  const std::string_view field(text.at.data(), size);
  const double value = vostrel::read_double(field);
  const int integer = vostrel::read_int(field);
  const bool copies = end == ',' || end == '\n';
  std::array<char, 64> room;
  const std::string_view copy = copies ? copied(field.data(), end, room) : "";

  text.at[size] = '\0';
  const double expected = std::atof(text.at.data());
  std::array<char, 64> expected_room;
  if (bits_of(value) == bits_of(expected) && integer == std::atoi(text.at.data()) &&
      (!copies || copy == expected_copy(field, expected, expected_room))) {
    return true;
  }
  std::cout << "DIFFERENCE in reading [" << field << "]: " << value << ", " << integer << ", "
            << copy << std::endl;
  return false;
}

constexpr std::array<double, 23> kPowers = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                            1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                            1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Six digits and a five, anywhere from 1e-11 to 1e11, exact or rounded.
double draw_tie(Random& random) {
  const auto digits = static_cast<double>((100000 + random.below(900000)) * 10 + 5);
  const double power = kPowers[random.below(18)];
  double tie = random.one_in(3) ? digits * power : digits / power;
  if (random.one_in(2)) tie = std::nextafter(tie, random.one_in(2) ? 0 : 1e300);
  return random.one_in(8) ? -tie : tie;
}

double draw_number(Random& random) {
  switch (random.below(4)) {
    case 0:
      return std::bit_cast<double>(random.bits());
    case 1: {  // from 2^-17, below 1e-5, to 2^24, above 1e7
      const std::uint64_t exponent = 1023 - 17 + random.below(41);
      return std::bit_cast<double>((random.bits() & 0x800fffffffffffff) | exponent << 52);
    }
    case 2: {  // four to nine decimals
      const std::uint64_t decimals = 4 + random.below(6);
      const auto digits = static_cast<double>(random.bits() >> (20 + random.below(40)));
      return digits / kPowers[decimals];
    }
    default:
      return draw_tie(random);
  }
}

bool write_alike(double value, bool by_stream_too, std::ostringstream& stream) {
  std::array<char, vostrel::kNumberRoom> room;
  const char* const end = vostrel::write_double(value, room.data());
  const std::string_view text(room.data(), static_cast<std::size_t>(end - room.data()));
  std::array<char, 40> reference;
  const int size = std::snprintf(reference.data(), reference.size(), "%.6g", value);
  const std::string_view expected(reference.data(), static_cast<std::size_t>(size));
  bool alike = text == expected;
  if (by_stream_too) {
    stream.str("");
    stream << value;
    alike = alike && stream.view() == expected;
  }
  if (!alike) {
    std::cout << "DIFFERENCE in writing " << std::hexfloat << value << ": " << text << " for "
              << expected << std::endl;
  }
  return alike;
}

double since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

int run(std::uint64_t strings, std::uint64_t doubles) {
  Random random;
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t i = 0; i < strings; ++i) {
    if (!read_alike(random)) return 1;
  }
  std::cout << strings << " strings read, no difference, " << since(begin) << " s" << std::endl;

  const auto middle = std::chrono::steady_clock::now();
  std::ostringstream stream;
  std::uint64_t by_stream = 0;
  for (std::uint64_t i = 0; i < doubles; ++i) {
    const bool by_stream_too = i % 100 == 0;
    by_stream += by_stream_too;
    if (!write_alike(draw_number(random), by_stream_too, stream)) return 1;
  }
  std::cout << doubles << " doubles written, " << by_stream
            << " of them by a stream too, no difference, " << since(middle) << " s" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 3) {
    std::cout << "usage: number_sweep STRINGS DOUBLES" << std::endl;
    return 2;
  }
  return run(std::strtoull(argv[1], nullptr, 10), std::strtoull(argv[2], nullptr, 10));
}
