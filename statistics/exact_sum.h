// Sums that don't depend on the order of what is added.

#ifndef VOSTREL_STATISTICS_EXACT_SUM_H
#define VOSTREL_STATISTICS_EXACT_SUM_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vostrel {

/// A sum of doubles without rounding, until total() rounds it once.
///
/// The sum is a fixed-point number wide enough for all doubles (R. M. Neal, "Fast exact summation
/// using small and large superaccumulators", 2015). Values are first added up in blocks, as two
/// 64-bit integers each: one of the block's leading bits, and one of the 51 bits below. That is the
/// error-free splitting of S. M. Rump, T. Ogita and S. Oishi, "Accurate floating-point summation"
/// (2008). A block with more bits than that is split further.
class ExactSum {
 public:
  void add(double value) {
    block_[used_++] = value;
    if (used_ == kBlock) flush();
  }

  /// Adds another sum.
  void merge(const ExactSum& other);

  /// The double nearest to the sum, ties to even. Infinities and NaN among the values give what a
  /// sum of doubles gives.
  double total() const;

 private:
  static constexpr std::size_t kBlock = 1024;
  static constexpr std::size_t kLimbs = 68;

  void flush();
  void add_block(std::span<double> values);
  void add_integer(std::int64_t integer, int exponent);
  void carry();

  std::array<double, kBlock> block_;
  std::size_t used_ = 0;
  std::array<std::int64_t, kLimbs> limbs_{};  // limb i counts 2^(32 * i - 1088)
  std::int64_t additions_ = 0;                // since the last carry()
  double not_finite_ = 0;                     // the sum of the infinities and NaN
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_EXACT_SUM_H
