// Random numbers for tests, and how many rounds a random test makes.

#ifndef VOSTREL_TESTS_SUPPORT_RANDOM_H
#define VOSTREL_TESTS_SUPPORT_RANDOM_H

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <random>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(undefined_behavior_sanitizer)
#define VOSTREL_TESTS_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VOSTREL_TESTS_SANITIZED 1
#endif

/// n in an optimized build, fewer if each round is slow.
constexpr int rounds(int n) {
#if defined(VOSTREL_TESTS_SANITIZED)
  return n / 20;
#elif !defined(NDEBUG)
  return n / 4;
#else
  return n;
#endif
}

/// VOSTREL_TEST_SEED, or else a new seed. Prints the seed, to repeat the run.
inline std::uint64_t chosen_seed() {
  const char* const chosen = std::getenv("VOSTREL_TEST_SEED");
  const std::uint64_t seed =
      chosen != nullptr ? std::strtoull(chosen, nullptr, 10) : std::random_device{}();
  std::cout << "VOSTREL_TEST_SEED=" << seed << std::endl;
  return seed;
}

/// A source of random numbers: xorshift64*, fast enough for a billion of them.
class Random {
 public:
  Random() : Random(chosen_seed()) {}
  /// Neighbouring seeds give unrelated numbers.
  explicit Random(std::uint64_t seed) : state_(seed + 1) {
    for (int i = 0; i < 2; ++i) state_ = (state_ ^ state_ >> 31) * 0x9e3779b97f4a7c15u;
    if (state_ == 0) state_ = 1;
    for (int i = 0; i < 4; ++i) bits();
  }

  /// 64 random bits.
  std::uint64_t bits() {
    state_ ^= state_ >> 12;
    state_ ^= state_ << 25;
    state_ ^= state_ >> 27;
    return state_ * 2685821657736338717u;
  }
  /// 0 to count - 1. Requires: count < 2^32.
  std::size_t below(std::size_t count) {
    return static_cast<std::size_t>((bits() >> 32) * count >> 32);
  }
  /// True once in `count` times.
  bool one_in(std::size_t count) { return below(count) == 0; }

  template <typename Container>
  const auto& pick(const Container& container) {
    return container[below(std::size(container))];
  }

  /// A double of any bits.
  double any_double() { return std::bit_cast<double>(bits()); }
  /// A double from 0 to 1.
  double fraction() { return static_cast<double>(bits() >> 11) * 0x1p-53; }
  /// A double of the normal distribution with sigma 1.
  double normal() {
    return std::sqrt(-2 * std::log(1 - fraction())) * std::cos(6.283185307179586 * fraction());
  }

 private:
  std::uint64_t state_;
};

#endif  // VOSTREL_TESTS_SUPPORT_RANDOM_H
