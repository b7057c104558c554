#include "text/table_line.h"

#include <bit>
#include <cstdint>

#include "text/byte_words.h"

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
    const std::uint64_t commas = places_of(word, ',');
    // What must not be passed: two commas together, and control characters, the line's end above
    // all, which have neither of two bits set (nor have some other bytes, which do no harm here).
    const std::uint64_t obstacles =
        (commas & (commas << 8 | comma_before)) | (~(word | word << 1) & repeat_byte(0x40));
    const int found = count_places(commas);
    if (found >= count) {
      std::uint64_t last = commas;
      for (int k = 1; k < count; ++k) last &= last - 1;
      const std::uint64_t passed = last ^ (last - 1);  // all bits up to the comma looked for
      if ((obstacles & passed) != 0) return nullptr;
      return text + (std::countr_zero(last) + 1) / 8;
    }
    if (obstacles != 0) return nullptr;
    count -= found;
    comma_before = commas >> 56;
    text += 8;
  }
}

}  // namespace vostrel
