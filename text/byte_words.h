// Eight characters of text as one 64-bit number, the first character in the lowest byte: the
// common ground of the digit and comma scanners, which look at eight characters per step with
// ordinary integer arithmetic and so need no vector instructions.

#ifndef VOSTREL_TEXT_BYTE_WORDS_H
#define VOSTREL_TEXT_BYTE_WORDS_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vostrel {

/// How many bytes must be readable behind a text that is scanned in steps of eight characters.
inline constexpr std::size_t kTextPadding = 16;

/// The same byte in all eight places.
constexpr std::uint64_t repeat_byte(unsigned char byte) { return 0x0101010101010101u * byte; }

/// The bytes in the opposite order: the first character comes to the highest byte. Compilers know
/// this pattern and make one instruction of it.
constexpr std::uint64_t reverse_bytes(std::uint64_t word) {
  word = (word & 0x00000000ffffffff) << 32 | word >> 32;
  word = (word & 0x0000ffff0000ffff) << 16 | (word >> 16 & 0x0000ffff0000ffff);
  return (word & 0x00ff00ff00ff00ff) << 8 | (word >> 8 & 0x00ff00ff00ff00ff);
}

namespace internal {

// std::memcpy is already in the right order on a little-endian machine, which is nearly every one.
constexpr std::uint64_t in_reading_order(std::uint64_t word) {
  return std::endian::native == std::endian::little ? word : reverse_bytes(word);
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

#endif  // VOSTREL_TEXT_BYTE_WORDS_H
