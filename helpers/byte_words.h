// Eight characters of text as one 64-bit number, the first character in the lowest byte: the
// common ground of the digit and comma scanners, which look at eight characters per step with
// ordinary integer arithmetic and so need no vector instructions.

#ifndef VOSTREL_HELPERS_BYTE_WORDS_H
#define VOSTREL_HELPERS_BYTE_WORDS_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vostrel {

/// How many bytes must be readable behind a text that is scanned in steps of eight characters.
inline constexpr std::size_t kTextPadding = 16;

/// The same byte in all eight places.
constexpr std::uint64_t repeat_byte(unsigned char byte) { return 0x0101010101010101u * byte; }

namespace internal {

// std::memcpy is already in the right order on a little-endian machine, which is nearly every one.
constexpr std::uint64_t in_reading_order(std::uint64_t word) {
  if constexpr (std::endian::native == std::endian::little) return word;
  std::uint64_t reversed = 0;
  for (int i = 0; i < 8; ++i) reversed |= (word >> (8 * i) & 0xff) << (56 - 8 * i);
  return reversed;
}

}  // namespace internal

/// The eight characters at `text`, all of which must be readable.
inline std::uint64_t load_word(const char* text) {
  std::uint64_t word;
  std::memcpy(&word, text, sizeof word);
  return internal::in_reading_order(word);
}

/// Writes eight characters to `text`, all of which must be writable.
inline void store_word(char* text, std::uint64_t word) {
  word = internal::in_reading_order(word);
  std::memcpy(text, &word, sizeof word);
}

}  // namespace vostrel

#endif  // VOSTREL_HELPERS_BYTE_WORDS_H
