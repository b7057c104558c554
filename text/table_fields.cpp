#include "text/table_fields.h"

#include <bit>
#include <cstdint>

#include "text/eight_characters.h"

namespace vostrel {

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
      // The end of a round. All later rounds are the same.
      position = (position - 1) % passed + 1;
      passed = 0;
      scan = 0;
    } else {
      scan = comma + 1;
    }
  }
}

const char* internal::skip_some_commas(const char* text, int count) {
  std::uint64_t comma_before = 0x80;  // the start of the line counts as a comma
  while (true) {
    const std::uint64_t word = load_eight(text);
    const std::uint64_t commas = flag_equal(word, ',');
    // Flags a comma after a comma, and bytes with neither 0x40 nor 0x20 set. Those bytes are the
    // control characters, newline and NUL among them, and a few others. field_at handles them.
    const std::uint64_t obstacles =
        (commas & (commas << 8 | comma_before)) | (~(word | word << 1) & repeat_byte(0x40));
    const int found = count_flags(commas);
    if (found >= count) {
      std::uint64_t last = commas;
      for (int k = 1; k < count; ++k) last &= last - 1;
      const std::uint64_t passed = last ^ (last - 1);  // all bits up to the last comma's flag
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
