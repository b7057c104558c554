// Decimal digits, eight or three at a time.

#ifndef VOSTREL_TEXT_DIGITS_H
#define VOSTREL_TEXT_DIGITS_H

#include <array>
#include <bit>
#include <cstdint>

#include "text/byte_words.h"

namespace vostrel {

// The functions that take a text look at eight characters: kTextPadding bytes must be readable
// behind the digits.

inline bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// The eight characters at `text`, '0' becoming 0 and so on, and where they are not digits: the top
/// bit of the first such byte is set in `others`, no bit below it, and what is above means nothing.
struct DigitWord {
  std::uint64_t word;
  std::uint64_t others;
};

inline DigitWord load_digits(const char* text) {
  const std::uint64_t word = load_word(text) ^ repeat_byte('0');
  // A byte above 9 sets its top bit here. It may carry into the bytes behind it, which is harmless.
  return {word, (word | (word + repeat_byte(0x76))) & repeat_byte(0x80)};
}

/// The number that eight digits make, the first one (in the lowest byte) counting most.
inline std::uint64_t join_digits(std::uint64_t word) {
  // Neighbours make four numbers below 100, and two multiplications put those in their places.
  word = word * 10 + (word >> 8);
  constexpr std::uint64_t kEveryFourth = 0x000000ff000000ff;
  const std::uint64_t upper = (word & kEveryFourth) * (100 + (std::uint64_t{1000000} << 32));
  const std::uint64_t lower = ((word >> 16) & kEveryFourth) * (1 + (std::uint64_t{10000} << 32));
  return (upper + lower) >> 32;
}

/// Up to eight decimal digits at the start of a text.
struct Digits {
  std::uint64_t value;
  unsigned count;
};

/// Reads the digits at `text`, eight at the most, as a whole number.
inline Digits leading_digits(const char* text) {
  auto [word, others] = load_digits(text);
  if (others == 0) return {join_digits(word), 8};
  const auto bits = static_cast<unsigned>(std::countr_zero(others));  // 7, 15, ... 63
  if (bits == 7) return {0, 0};
  // The digits move to the end of the word, so that zeros stand in front of them.
  return {join_digits(word << (71 - bits)), bits / 8};
}

/// The digits in front of the first byte that is none, zeros behind them.
inline std::uint64_t digits_only(DigitWord digits) {
  return digits.word & (((digits.others & (0 - digits.others)) >> 7) - 1);
}

/// How many digits stand in front of the first byte that is none.
inline unsigned count_digits(DigitWord digits) {
  return static_cast<unsigned>(std::countr_zero(digits.others)) / 8;
}

/// Reads the digits at `text`, eight at the most, as decimals: their number of 10^-8.
inline Digits leading_decimals(const char* text) {
  const DigitWord digits = load_digits(text);
  return {join_digits(digits_only(digits)), count_digits(digits)};
}

/// The first character from `text` on that is no digit.
inline const char* skip_digits(const char* text) {
  while (true) {
    const unsigned count = count_digits(load_digits(text));
    text += count;
    if (count < 8) return text;
  }
}

/// Reads whole numbers of one to eight digits, one after another, that seldom change their length.
///
/// Taking the last number's length for granted until it is found wrong spares the processor waiting
/// for the length of each before it can go on to what stands behind it.
class SteadyDigits {
 public:
  /// Reads the number at `text`.
  /// @return its end, with `value` set; nullptr when there is no digit. Of more than eight digits
  ///         the first eight are read.
  const char* read(const char* text, std::uint64_t& value) {
    const DigitWord digits = load_digits(text);
    const std::uint64_t mark = digits.others & (0 - digits.others);
    if (mark != mark_) [[unlikely]] {
      const unsigned count = count_digits(digits);
      if (count == 0) return nullptr;
      mark_ = mark;
      count_ = count;
    }
    value = join_digits(digits.word << (64 - 8 * count_));
    return text + count_;
  }

 private:
  std::uint64_t mark_ = 0;  // where load_digits marks the end of the digits; 0 behind eight
  unsigned count_ = 8;
};

/// The three digits of each number below 1000 as characters, the first one lowest, and in the top
/// byte how many of them there are up to the last one that is not 0.
struct Triples {
  std::array<std::uint32_t, 1000> of{};

  constexpr Triples() {
    for (std::uint32_t n = 0; n < 1000; ++n) {
      const std::uint32_t significant = n % 10 != 0 ? 3 : n % 100 != 0 ? 2 : n != 0 ? 1 : 0;
      of[n] = (n / 100 | n / 10 % 10 << 8 | n % 10 << 16 | significant << 24) + 0x303030;
    }
  }
};
inline constexpr Triples kTriples;

}  // namespace vostrel

#endif  // VOSTREL_TEXT_DIGITS_H
