#include "helpers/table_line.h"

#include <bit>
#include <cstdint>

#include "helpers/byte_words.h"

namespace vostrel {

namespace {

// The top bit of each byte of `word` that is below 0x80 and equal to `character`, and no other bit:
// a byte that differs has a bit set below its top one, or its top bit itself.
std::uint64_t places_of(std::uint64_t word, char character) {
  word ^= repeat_byte(static_cast<unsigned char>(character));
  constexpr std::uint64_t kLow = repeat_byte(0x7f);
  return ~(((word & kLow) + kLow) | word | kLow);
}

// How many of the bytes' top bits are set, and nothing else is.
int count_places(std::uint64_t places) {
  return static_cast<int>((places >> 7) * repeat_byte(1) >> 56);
}

}  // namespace

std::optional<std::string_view> field_at(std::string_view line, int position) {
  int passed = 0;
  std::size_t scan = 0;
  while (true) {
    const std::size_t start = line.find_first_not_of(',', scan);
    const std::size_t comma = line.find(',', start);
    if (++passed == position) {
      if (start == std::string_view::npos) return std::nullopt;
      return line.substr(start, comma - start);
    }
    if (comma == std::string_view::npos) {
      // The round is complete: all further ones are like it.
      position = (position - 1) % passed + 1;
      passed = 0;
      scan = 0;
    } else {
      scan = comma + 1;
    }
  }
}

const char* internal::skip_some_commas(const char* text, int count) {
  std::uint64_t comma_before = 0x80;  // the line's start is no better than a comma
  while (true) {
    const std::uint64_t word = load_word(text);
    std::uint64_t commas = places_of(word, ',');
    const int found = count_places(commas);
    std::uint64_t passed = ~std::uint64_t{0};  // the bytes up to the comma that is looked for
    if (found >= count) {
      std::uint64_t last = commas;
      for (int k = 1; k < count; ++k) last &= last - 1;
      passed = last ^ (last - 1);
    }
    const std::uint64_t ends = places_of(word, '\n') | places_of(word, '\0');
    const std::uint64_t empty = commas & (commas << 8 | comma_before);
    if (((ends | empty) & passed) != 0) return nullptr;
    if (found >= count) return text + (std::countr_one(passed) + 7) / 8;
    count -= found;
    comma_before = commas >> 63 << 7;
    text += 8;
  }
}

}  // namespace vostrel
