// Sums that are independent of order.

#ifndef VOSTREL_STATISTICS_EXACT_SUM_H
#define VOSTREL_STATISTICS_EXACT_SUM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "statistics/bytes.h"

namespace vostrel {

/// A sum of doubles that is rounded only once, by total().
///
/// The sum is a fixed-point number wide enough for all doubles (R. M. Neal, "Fast exact summation
/// using small and large superaccumulators", 2015). A block of values is first added up in two
/// 64-bit integers, one of the leading bits of all values and one of the next 51 bits, by the
/// error-free splitting of S. M. Rump, T. Ogita and S. Oishi, "Accurate floating-point summation,
/// part I" (2008). If bits are left over, the values are added one by one.
class ExactSum {
 public:
  /// Adds a value.
  void add(double value);

  /// Adds each value to `sum` and its square to `squares`.
  /// Requires: at most 2^11 values.
  /// Returns whether splitting was enough, which is much faster than one by one.
  static bool add_with_squares(std::span<const double> values, ExactSum& sum, ExactSum& squares);

  /// Adds (value - center)^2 for each value.
  /// Requires and Returns: as above.
  bool add_squares_about(double center, std::span<const double> values);

  /// Adds another sum.
  void merge(const ExactSum& other);

  /// Returns the double nearest to the sum, ties to even. Infinities and NaN among the values give
  /// what a sum of doubles gives.
  double total() const;

  /// Writes the sum, and reads it back.
  void write(ByteWriter& out) const;
  static ExactSum read(ByteReader& in);

 private:
  static constexpr std::size_t kWords = 72;

  bool add_split(std::span<const double> values, double center, ExactSum* sum);
  bool add_block(std::span<const double> values, double center, ExactSum* sum);
  void add_integer(std::int64_t integer, int exponent);
  void carry();

  std::array<std::int64_t, kWords> words_{};  // word i counts 2^(32 * i - 1152)
  std::int64_t additions_ = 0;                // since the last carry()
  double not_finite_ = 0;
  int exponent_ = 0;  // of a sum of squares: the next roots are expected to be below 2^exponent_
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_EXACT_SUM_H
