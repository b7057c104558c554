// Random tests: how many rounds, from which seed, and doubles compared bit by bit.

#ifndef VOSTREL_TESTS_RANDOM_H
#define VOSTREL_TESTS_RANDOM_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(undefined_behavior_sanitizer)
#define VOSTREL_TESTS_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define VOSTREL_TESTS_SANITIZED 1
#endif

/// n, or a part of it where each round takes several times as long.
constexpr int rounds(int n) {
#if defined(VOSTREL_TESTS_SANITIZED)
  return n / 20;
#elif !defined(NDEBUG)
  return n / 4;
#else
  return n;
#endif
}

/// A source of random numbers. Its seed is printed; VOSTREL_TEST_SEED repeats a run.
class Random {
 public:
  Random() {
    const char* chosen = std::getenv("VOSTREL_TEST_SEED");
    const std::uint64_t seed =
        chosen != nullptr ? std::strtoull(chosen, nullptr, 10) : std::random_device{}();
    std::cout << "VOSTREL_TEST_SEED=" << seed << std::endl;
    engine_.seed(seed);
  }

  /// 64 random bits.
  std::uint64_t bits() { return engine_(); }
  /// 0 to count - 1.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(engine_() % count); }
  /// True once in `count` times.
  bool one_in(std::size_t count) { return below(count) == 0; }

  template <typename Container>
  const auto& pick(const Container& container) {
    return container[below(std::size(container))];
  }

  /// Any double whatever.
  double any_double() { return std::bit_cast<double>(bits()); }
  /// A double from 0 to 1.
  double fraction() { return static_cast<double>(bits() >> 11) * 0x1p-53; }

 private:
  std::mt19937_64 engine_;
};

inline std::uint64_t bits_of(double value) { return std::bit_cast<std::uint64_t>(value); }

/// Not-a-numbers of both signs, quiet and with payloads.
inline const std::array<double, 6> kNotNumbers = {
    std::bit_cast<double>(0x7ff8000000000000u), std::bit_cast<double>(0xfff8000000000000u),
    std::bit_cast<double>(0x7ff8000000000123u), std::bit_cast<double>(0xfff8abcdef012345u),
    std::bit_cast<double>(0x7fffffffffffffffu), std::bit_cast<double>(0xffffffffffffffffu)};

inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
inline constexpr double kInfinity = std::numeric_limits<double>::infinity();

#endif  // VOSTREL_TESTS_RANDOM_H
