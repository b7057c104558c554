// Checksums of objects and of bytes.

#ifndef VOSTREL_STATISTICS_CHECKSUM_H
#define VOSTREL_STATISTICS_CHECKSUM_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vostrel {

/// The 128 bits of a product.
struct Product {
  std::uint64_t high;
  std::uint64_t low;
  bool operator==(const Product& other) const = default;
};

/// Like product(), for compilers without integers of 128 bits.
constexpr Product product_by_halves(std::uint64_t a, std::uint64_t b) {
  constexpr std::uint64_t kLow = 0xffffffff;
  const std::uint64_t low = (a & kLow) * (b & kLow);
  const std::uint64_t left = (a >> 32) * (b & kLow) + (low >> 32);
  const std::uint64_t right = (a & kLow) * (b >> 32) + (left & kLow);
  const std::uint64_t high = (a >> 32) * (b >> 32) + (left >> 32) + (right >> 32);
  return {high, right << 32 | (low & kLow)};
}

constexpr Product product(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
  __extension__ using Wide = unsigned __int128;
  const Wide wide = static_cast<Wide>(a) * b;
  return {static_cast<std::uint64_t>(wide >> 64), static_cast<std::uint64_t>(wide)};
#else
  return product_by_halves(a, b);
#endif
}

/// A hash of two words, which behaves like a random number. The product alone would not do: its
/// differences are regular, so among values with few digits one swap of two estimates in 10^9 keeps
/// the sum. x (2 x + 1) (R. L. Rivest and others, "The RC6 block cipher", 1998) maps 64 bits one to
/// one, and is quadratic: where differences cancel, their products remain.
inline std::uint64_t hash_of(std::uint64_t first, std::uint64_t second) {
  // The leading digits of pi.
  const Product both = product(first ^ 0x243f6a8885a308d3, second ^ 0x13198a2e03707345);
  const std::uint64_t folded = both.high ^ both.low;
  return folded * (2 * folded + 1);
}

/// A hash of an object.
inline std::uint64_t hash_of(double reference, double estimate) {
  return hash_of(std::bit_cast<std::uint64_t>(reference), std::bit_cast<std::uint64_t>(estimate));
}

/// A checksum of objects that doesn't depend on their order: the sum of their hashes. Another set
/// of objects has the same sum with a probability of about 2^-64.
inline std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < reference.size(); ++i) sum += hash_of(reference[i], estimate[i]);
  return sum;
}

/// The same of objects with the quantity that they are binned by.
inline std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate,
                              std::span<const double> by) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < reference.size(); ++i) {
    sum += hash_of(hash_of(reference[i], estimate[i]), std::bit_cast<std::uint64_t>(by[i]));
  }
  return sum;
}

/// A checksum of bytes (G. Fowler, L. C. Noll and K.-P. Vo, FNV-1a). Every change of a single byte
/// changes it.
constexpr std::uint64_t checksum(std::string_view bytes) {
  std::uint64_t sum = 0xcbf29ce484222325;
  for (const char byte : bytes) {
    sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  }
  return sum;
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_CHECKSUM_H
