#include "statistics/checksum.h"

#include <bit>

#include "floating_point.h"
#include "statistics/accumulator.h"

// Clang takes several of the plain products at once by itself.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define VOSTREL_AVX2 [[gnu::target("avx2")]]
#include <immintrin.h>

#include <cstring>
#endif

namespace vostrel {

namespace {

constexpr std::uint64_t kOffset = 0x243f6a8885a308d3;  // the leading digits of pi

std::uint64_t swap_halves(std::uint64_t word) { return std::rotl(word, 32); }

// The product of the lower halves.
std::uint64_t product(std::uint64_t a, std::uint64_t b) {
  return (a & 0xffffffff) * (b & 0xffffffff);
}

std::uint64_t cross(std::uint64_t word) {
  return product(word, swap_halves(word)) + swap_halves(word);
}

// Requires: a column `by` if kHasBy.
template <bool kHasBy>
std::uint64_t sum_of_hashes(const double* reference, const double* estimate, const double* by,
                            std::size_t size) {
  const auto word = [](double value) { return std::bit_cast<std::uint64_t>(value); };
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < size; ++i) {
    std::uint64_t hash = hash_of(word(reference[i]), word(estimate[i]));
    if constexpr (kHasBy) hash = hash_of(hash, word(by[i]));
    sum += hash;
  }
  return sum;
}

#ifdef VOSTREL_AVX2

// The same of four words.
using Four [[gnu::vector_size(32)]] = std::uint64_t;

VOSTREL_AVX2 inline Four swap_halves(Four words) {
  return reinterpret_cast<Four>(_mm256_shuffle_epi32(reinterpret_cast<__m256i>(words), 0xb1));
}

VOSTREL_AVX2 inline Four product(Four a, Four b) {
  const auto left = reinterpret_cast<__m256i>(a);
  const auto right = reinterpret_cast<__m256i>(b);
  return reinterpret_cast<Four>(_mm256_mul_epu32(left, right));
}

VOSTREL_AVX2 inline Four cross(Four words) {
  const Four swapped = swap_halves(words);
  return product(words, swapped) + swapped;
}

VOSTREL_AVX2 inline Four hash_of(Four first, Four second) {
  first ^= kOffset;
  const Four mixed = product(first + swap_halves(second), swap_halves(first) ^ second) ^ first;
  return cross(cross(mixed) ^ second) + first;
}

// Loads four values, and fetches four of the next block: callers look through a block for NaN
// before they add it, which is too fast for the memory.
VOSTREL_AVX2 inline Four load(const double* values) {
  __builtin_prefetch(values + Accumulator::kBlockSize);
  Four words;
  std::memcpy(&words, values, sizeof(words));
  return words;
}

// Requires: as above, and a multiple of four objects.
template <bool kHasBy>
VOSTREL_AVX2 std::uint64_t sum_of_hashes_by_four(const double* reference, const double* estimate,
                                                 const double* by, std::size_t size) {
  Four sum{};
  for (std::size_t i = 0; i < size; i += 4) {
    Four hash = hash_of(load(reference + i), load(estimate + i));
    if constexpr (kHasBy) hash = hash_of(hash, load(by + i));
    sum += hash;
  }
  return sum[0] + sum[1] + sum[2] + sum[3];
}

#endif

template <bool kHasBy>
std::uint64_t checksum_of(const double* reference, const double* estimate, const double* by,
                          std::size_t size) {
#ifdef VOSTREL_AVX2
  if (size >= 4 && __builtin_cpu_supports("avx2")) {
    const std::size_t fours = size / 4 * 4;
    const std::uint64_t sum = sum_of_hashes_by_four<kHasBy>(reference, estimate, by, fours);
    if (fours == size) return sum;
    return sum + sum_of_hashes<kHasBy>(reference + fours, estimate + fours,
                                       kHasBy ? by + fours : nullptr, size - fours);
  }
#endif
  return sum_of_hashes<kHasBy>(reference, estimate, by, size);
}

}  // namespace

std::uint64_t hash_of(std::uint64_t first, std::uint64_t second) {
  first ^= kOffset;
  const std::uint64_t mixed =
      product(first + swap_halves(second), swap_halves(first) ^ second) ^ first;
  return cross(cross(mixed) ^ second) + first;
}

std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate) {
  return checksum_of<false>(reference.data(), estimate.data(), nullptr, reference.size());
}

std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate,
                       std::span<const double> by) {
  return checksum_of<true>(reference.data(), estimate.data(), by.data(), reference.size());
}

}  // namespace vostrel
