// Sums that don't depend on the order of what is added.

#ifndef VOSTREL_STATISTICS_EXACT_SUM_H
#define VOSTREL_STATISTICS_EXACT_SUM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "statistics/bytes.h"

namespace vostrel {

/// A sum of doubles without rounding, until total() rounds it once.
///
/// The sum is a fixed-point number wide enough for all doubles (R. M. Neal, "Fast exact summation
/// using small and large superaccumulators", 2015). A block of values is first added up in two
/// 64-bit integers, one of the leading bits of all values and one of the next 51 bits, by the
/// error-free splitting of S. M. Rump, T. Ogita and S. Oishi, "Accurate floating-point summation,
/// part I" (2008). Where that does not take in all bits, the values are added one by one.
class ExactSum {
 public:
  /// Adds a value.
  void add(double value);

  /// Adds up to 2^11 values, faster than one by one.
  void add(std::span<const double> values);

  /// Adds another sum.
  void merge(const ExactSum& other);

  /// The double nearest to the sum, ties to even. Infinities and NaN among the values give what a
  /// sum of doubles gives.
  double total() const;

  void write(ByteWriter& out) const;
  static ExactSum read(ByteReader& in);

 private:
  static constexpr std::size_t kWords = 72;

  bool add_split(std::span<const double> values);
  void add_integer(std::int64_t integer, int exponent);
  void carry();

  std::array<std::int64_t, kWords> words_{};  // word i counts 2^(32 * i - 1152)
  std::int64_t additions_ = 0;                // since the last carry()
  double not_finite_ = 0;
  int exponent_ = 0;  // of the bound of magnitudes that the last block suggests
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_EXACT_SUM_H
