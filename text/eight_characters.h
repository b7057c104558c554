// Eight characters of text in one 64-bit word, the first character in the lowest byte. Digits and
// commas are found eight at a time with integer arithmetic, without vector instructions.

#ifndef VOSTREL_TEXT_EIGHT_CHARACTERS_H
#define VOSTREL_TEXT_EIGHT_CHARACTERS_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vostrel {

/// Functions that take a `const char*` may read up to this many bytes past the end of what they
/// look for. Those bytes must be readable.
inline constexpr std::size_t kTextPadding = 16;

// ---- words --------------------------------------------------------------------------------------

/// A word of eight equal bytes.
constexpr std::uint64_t repeat_byte(unsigned char byte) { return 0x0101010101010101u * byte; }

/// The bytes in the opposite order. Compilers turn this into one instruction.
constexpr std::uint64_t reverse_bytes(std::uint64_t word) {
  word = (word & 0x00000000ffffffff) << 32 | word >> 32;
  word = (word & 0x0000ffff0000ffff) << 16 | (word >> 16 & 0x0000ffff0000ffff);
  return (word & 0x00ff00ff00ff00ff) << 8 | (word >> 8 & 0x00ff00ff00ff00ff);
}

namespace internal {

constexpr std::uint64_t to_or_from_little_endian(std::uint64_t word) {
  return std::endian::native == std::endian::little ? word : reverse_bytes(word);
}

}  // namespace internal

/// Reads eight characters at `text`.
inline std::uint64_t load_eight(const char* text) {
  std::uint64_t word;
  std::memcpy(&word, text, sizeof word);
  return internal::to_or_from_little_endian(word);
}

/// Writes eight characters to `text`.
inline void store_eight(char* text, std::uint64_t word) {
  word = internal::to_or_from_little_endian(word);
  std::memcpy(text, &word, sizeof word);
}

// A flag is the top bit of a byte. All other bits of a word of flags are 0.

/// Flags the bytes that equal `character`.
inline std::uint64_t flag_equal(std::uint64_t word, char character) {
  // A byte that differs keeps a bit after the exclusive or: the top one, or a lower one that the
  // addition carries into the top one.
  word ^= repeat_byte(static_cast<unsigned char>(character));
  constexpr std::uint64_t kLow = repeat_byte(0x7f);
  return ~(((word & kLow) + kLow) | word | kLow);
}

/// The number of flags.
inline int count_flags(std::uint64_t flags) {
  return static_cast<int>((flags >> 7) * repeat_byte(1) >> 56);
}

// ---- digits -------------------------------------------------------------------------------------

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// Eight characters of which the first are digits.
struct DigitWord {
  std::uint64_t values;  ///< '0' as 0, ..., '9' as 9; others are unspecified.
  /// The lowest flag is at the first character that is not a digit; 0 if there is none. Higher
  /// flags are unspecified.
  std::uint64_t end;
};

/// Reads eight characters at `text` as digits.
inline DigitWord load_digits(const char* text) {
  const std::uint64_t values = load_eight(text) ^ repeat_byte('0');
  // Adding 0x76 takes a value above 9 to the top bit. The carry can only spoil later bytes.
  return {values, (values | (values + repeat_byte(0x76))) & repeat_byte(0x80)};
}

/// How many digits there are, 0 to 8.
inline unsigned count_digits(DigitWord digits) {
  return static_cast<unsigned>(std::countr_zero(digits.end)) / 8;
}

/// The values of the digits, with 0 in place of everything after them.
inline std::uint64_t digits_then_zeros(DigitWord digits) {
  const std::uint64_t first_flag = digits.end & (0 - digits.end);
  return digits.values & ((first_flag >> 7) - 1);
}

/// The number written by eight digits, the first of which is the lowest byte.
inline std::uint64_t join_digits(std::uint64_t values) {
  // First pairs of digits are joined, then the four pairs.
  values = values * 10 + (values >> 8);
  constexpr std::uint64_t kEveryFourth = 0x000000ff000000ff;
  const std::uint64_t upper = (values & kEveryFourth) * (100 + (std::uint64_t{1000000} << 32));
  const std::uint64_t lower = ((values >> 16) & kEveryFourth) * (1 + (std::uint64_t{10000} << 32));
  return (upper + lower) >> 32;
}

/// Up to eight digits at the start of a text.
struct Digits {
  std::uint64_t value;
  unsigned count;
};

/// Reads up to eight digits as an integer.
inline Digits leading_integer(const char* text) {
  const DigitWord digits = load_digits(text);
  const unsigned count = count_digits(digits);
  if (count == 0) return {0, 0};
  // Shifted to the end of the word, the digits have zeros before them.
  return {join_digits(digits.values << (64 - 8 * count)), count};
}

/// Reads up to eight digits as decimals, in units of 10^-8.
inline Digits leading_decimals(const char* text) {
  const DigitWord digits = load_digits(text);
  return {join_digits(digits_then_zeros(digits)), count_digits(digits)};
}

/// The first character that is not a digit.
inline const char* skip_digits(const char* text) {
  while (true) {
    const unsigned count = count_digits(load_digits(text));
    text += count;
    if (count < 8) return text;
  }
}

/// Reads integers of one to eight digits whose length seldom changes.
///
/// Takes the length to be that of the integer before, and corrects it if it is wrong. So the
/// processor can go on with the text that follows before it knows the length.
class SteadyIntegers {
 public:
  /// Reads the integer at `text`.
  /// @return its end, or nullptr if there is no digit. Of more than eight digits, eight are read.
  const char* read(const char* text, std::uint64_t& value) {
    const DigitWord digits = load_digits(text);
    const std::uint64_t first_flag = digits.end & (0 - digits.end);
    if (first_flag != first_flag_) [[unlikely]] {
      const unsigned count = count_digits(digits);
      if (count == 0) return nullptr;
      first_flag_ = first_flag;
      count_ = count;
    }
    value = join_digits(digits.values << (64 - 8 * count_));
    return text + count_;
  }

 private:
  std::uint64_t first_flag_ = 0;  // of the DigitWord
  unsigned count_ = 8;
};

}  // namespace vostrel

#endif  // VOSTREL_TEXT_EIGHT_CHARACTERS_H
