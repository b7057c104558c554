#include "statistics/checksum.h"

#include <bit>

#include "floating_point.h"
#include "statistics/accumulator.h"
#include "statistics/residuals.h"

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

enum class With { kNothing, kBy, kResiduals };

struct Objects {
  const double* reference;
  const double* estimate;
  std::size_t size;
  const double* by = nullptr;  // read with kBy
  double* deltas = nullptr;    // written with kResiduals
  double* norms = nullptr;
};

// Of all objects from the first on.
template <With kWith>
std::uint64_t sum_of_hashes(Objects o, std::size_t first) {
  const auto word = [](double value) { return std::bit_cast<std::uint64_t>(value); };
  std::uint64_t sum = 0;
  for (std::size_t i = first; i < o.size; ++i) {
    std::uint64_t hash = hash_of(word(o.reference[i]), word(o.estimate[i]));
    if constexpr (kWith == With::kBy) hash = hash_of(hash, word(o.by[i]));
    sum += hash;
    if constexpr (kWith == With::kResiduals) {
      o.deltas[i] = residual(o.reference[i], o.estimate[i]);
      o.norms[i] = normalized_residual(o.reference[i], o.estimate[i]);
    }
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

// Loads four values, and fetches four of the next block, while the memory is idle.
VOSTREL_AVX2 inline Four load(const double* values) {
  __builtin_prefetch(values + Accumulator::kBlockSize);
  Four words;
  std::memcpy(&words, values, sizeof(words));
  return words;
}

// As normalized_residual() and residual().
VOSTREL_AVX2 inline void write_residuals(Four reference, Four estimate, double* delta,
                                         double* norm) {
  const auto deltas = reinterpret_cast<__m256d>(reference) - reinterpret_cast<__m256d>(estimate);
  const auto norms = deltas / (1.0 + reinterpret_cast<__m256d>(reference));
  std::memcpy(delta, &deltas, sizeof(deltas));
  std::memcpy(norm, &norms, sizeof(norms));
}

// Of the first objects, whose number is a multiple of four.
template <With kWith>
VOSTREL_AVX2 std::uint64_t sum_of_hashes_by_four(Objects o, std::size_t count) {
  Four sum{};
  for (std::size_t i = 0; i < count; i += 4) {
    const Four reference = load(o.reference + i);
    const Four estimate = load(o.estimate + i);
    Four hash = hash_of(reference, estimate);
    if constexpr (kWith == With::kBy) hash = hash_of(hash, load(o.by + i));
    sum += hash;
    if constexpr (kWith == With::kResiduals) {
      write_residuals(reference, estimate, o.deltas + i, o.norms + i);
    }
  }
  return sum[0] + sum[1] + sum[2] + sum[3];
}

#endif

template <With kWith>
std::uint64_t checksum_of(Objects o) {
#ifdef VOSTREL_AVX2
  if (o.size >= 4 && __builtin_cpu_supports("avx2")) {
    const std::size_t fours = o.size / 4 * 4;
    return sum_of_hashes_by_four<kWith>(o, fours) + sum_of_hashes<kWith>(o, fours);
  }
#endif
  return sum_of_hashes<kWith>(o, 0);
}

}  // namespace

std::uint64_t hash_of(std::uint64_t first, std::uint64_t second) {
  first ^= kOffset;
  const std::uint64_t mixed =
      product(first + swap_halves(second), swap_halves(first) ^ second) ^ first;
  return cross(cross(mixed) ^ second) + first;
}

std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate) {
  return checksum_of<With::kNothing>({reference.data(), estimate.data(), reference.size()});
}

std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate,
                       std::span<const double> by) {
  return checksum_of<With::kBy>({reference.data(), estimate.data(), reference.size(), by.data()});
}

std::uint64_t checksum_and_residuals(std::span<const double> reference,
                                     std::span<const double> estimate, double* deltas,
                                     double* norms) {
  return checksum_of<With::kResiduals>(
      {reference.data(), estimate.data(), reference.size(), nullptr, deltas, norms});
}

}  // namespace vostrel
