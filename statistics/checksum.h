// Checksums of objects and of bytes.

#ifndef VOSTREL_STATISTICS_CHECKSUM_H
#define VOSTREL_STATISTICS_CHECKSUM_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vostrel {

/// As folded_product(), for compilers without integers of 128 bits.
constexpr std::uint64_t folded_product_by_halves(std::uint64_t a, std::uint64_t b) {
  constexpr std::uint64_t kLow = 0xffffffff;
  const std::uint64_t low = (a & kLow) * (b & kLow);
  const std::uint64_t left = (a >> 32) * (b & kLow) + (low >> 32);
  const std::uint64_t right = (a & kLow) * (b >> 32) + (left & kLow);
  const std::uint64_t high = (a >> 32) * (b >> 32) + (left >> 32) + (right >> 32);
  return high ^ (right << 32 | (low & kLow));
}

/// The product of two integers, its high half xor its low half.
constexpr std::uint64_t folded_product(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product >> 64) ^ static_cast<std::uint64_t>(product);
#else
  return folded_product_by_halves(a, b);
#endif
}

/// A checksum of objects that doesn't depend on their order: the sum of a hash of each object.
/// The hash mixes all bits of both columns, so it behaves like a random number, and another set of
/// objects has the same sum with a probability of 2^-64.
inline std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate) {
  // The leading digits of pi.
  constexpr std::uint64_t kReferenceKey = 0x243f6a8885a308d3;
  constexpr std::uint64_t kEstimateKey = 0x13198a2e03707345;
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < reference.size(); ++i) {
    sum += folded_product(std::bit_cast<std::uint64_t>(reference[i]) ^ kReferenceKey,
                          std::bit_cast<std::uint64_t>(estimate[i]) ^ kEstimateKey);
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
