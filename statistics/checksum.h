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
/// AVX2 takes four of its products at once. In the first, halves of both words meet (as in J. Black
/// and others, "UMAC: fast and secure message authentication", 1999). This alone would not do:
/// where values have few digits, it is linear in each word, and regular differences cancel.
/// cross() is quadratic; after two of them nothing regular is left. A product can be the same for
/// two objects that differ in two bits, or 0. So each word is added again, behind another product.
std::uint64_t hash_of(std::uint64_t first, std::uint64_t second);

/// A checksum of objects that doesn't depend on their order: the sum of their hashes.
///
/// Other objects have the same sum with a probability of about 2^-64; below 10^-15 = 2^-50 would
/// do. There is no secret key, so this can't be proved. It was measured. Swaps, progressions,
/// flipped signs and factors of 2 among values of few digits, and neighbouring doubles, change the
/// sum by amounts of which no more are equal than of random numbers, in several windows of 20 bits.
/// The amounts of 10^10 pairs of swaps are all different. With words of half the size, none of
/// 2 x 10^8 objects kept its hash when one or two of its bits changed, or when small multiples of
/// powers of 2 were added to its words.
std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate);

/// The same of objects with the quantity that they are binned by.
std::uint64_t checksum(std::span<const double> reference, std::span<const double> estimate,
                       std::span<const double> by);

/// The checksum of objects, and their residuals. Both together take less than one after the other:
/// divisions leave a processor much time.
/// @param deltas, norms  room for a residual of each object.
std::uint64_t checksum_and_residuals(std::span<const double> reference,
                                     std::span<const double> estimate, double* deltas,
                                     double* norms);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_CHECKSUM_H
