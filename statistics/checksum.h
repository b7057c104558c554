// Checksums of objects.

#ifndef VOSTREL_STATISTICS_CHECKSUM_H
#define VOSTREL_STATISTICS_CHECKSUM_H

#include <cstddef>
#include <cstdint>
#include <span>

namespace vostrel {

/// A hash of two words, which behaves like a random number. It takes nothing but integers, so it is
/// the same on every machine.
///
/// AVX2 takes four of its products at once. In the first two, each half of a word meets a half of
/// the other (as in J. Black and others, "UMAC: fast and secure message authentication", 1999); the
/// word is added since the other half may be 0. These alone would not do: where values have few
/// digits, they are linear in each word, and regular differences cancel. cross() is quadratic and
/// moves the upper bits down. One of them still lets some of 10^12 pairs of swaps cancel. After
/// two, nothing regular is left.
std::uint64_t hash_of(std::uint64_t first, std::uint64_t second);

/// A checksum of objects that doesn't depend on their order: the sum of their hashes.
///
/// Other objects have the same sum with a probability of about 2^-64; below 10^-15 = 2^-50 would
/// do. There is no secret key, so this can't be proved. It was measured: swaps, progressions,
/// flipped signs and factors of 2 among values of few digits, and neighbouring doubles, change the
/// sum by amounts of which no more are equal than of random numbers, in any 17 to 40 of the 64
/// bits. The same hash of words of half the size also gives equal sums only as random numbers do.
std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate);

/// The same of objects with the quantity that they are binned by.
std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate,
                       std::span<const double> by);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_CHECKSUM_H
