// The passes over two columns, with sums in order or exact. Accumulator is the public class.

#ifndef VOSTREL_STATISTICS_BASIC_ACCUMULATOR_H
#define VOSTREL_STATISTICS_BASIC_ACCUMULATOR_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "statistics/accumulator.h"
#include "statistics/tally.h"

namespace vostrel {

/// The numbers of both residuals of n objects.
struct FoundOfBoth {
  std::uint64_t n;
  Found delta;
  Found norm;

  PointStatistics point() const { return {n, delta.statistics, norm.statistics}; }
  ExtendedStatistics extended() const {
    return {point(), delta.quantiles, norm.quantiles, norm.lsst};
  }
};

/// Calls use(block, ...) for blocks of `most` values or fewer of some spans of one length.
template <class Use, class... Spans>
void in_blocks(std::size_t most, Use use, std::span<const double> first, Spans... others) {
  while (!first.empty()) {
    const std::size_t count = std::min(most, first.size());
    use(first.first(count), others.first(count)...);
    first = first.subspan(count);
    ((others = others.subspan(count)), ...);
  }
}

/// Like Accumulator, with a choice of sums, `Sum`. With sums in order, each pass must see the
/// objects in the same order, states can't be merged or written, the numbers are those of
/// point_statistics(), and if a residual is NaN, all objects are kept.
template <class Sum>
class BasicAccumulator {
 public:
  explicit BasicAccumulator(Wanted wanted = {}) : wanted_(std::move(wanted)) {}

  void add(std::span<const double> reference, std::span<const double> estimate);
  bool end_pass();
  bool is_in_first_pass() const { return step_ == Step::kFirst; }
  bool needs_another_pass() const { return step_ != Step::kDone; }
  std::uint64_t size() const { return step_ == Step::kFirst ? seen_ : size_; }
  /// Whether there is NaN among the residuals of the first pass. Those of a NaN are NaN.
  bool has_nan() const;
  /// The same, but without looking at objects that are kept.
  bool sums_have_nan() const { return delta_.has_nan() || norm_.has_nan(); }
  FoundOfBoth result(const Checkpoint& checkpoint = [] {}) const;
  const Wanted& wanted() const { return wanted_; }

  // Requires: exact sums.
  BasicAccumulator fresh() const;
  void merge(const BasicAccumulator& other);
  std::string to_bytes() const;
  static BasicAccumulator from_bytes(std::string_view bytes);

 private:
  enum class Step { kFirst, kSecond, kLater, kKeepAll, kDone };

  void take(std::span<const double> reference, std::span<const double> estimate);
  void keep_no_more();
  Step next_step();
  bool must_keep_all() const { return !kIsExact<Sum> && sums_have_nan(); }
  Step keep_all();

  Wanted wanted_;
  Step step_ = Step::kFirst;
  std::uint64_t size_ = 0;           // of the first pass
  std::uint64_t checksum_ = 0;       // of the first pass
  std::uint64_t seen_ = 0;           // in this pass
  std::uint64_t seen_checksum_ = 0;  // in this pass
  bool keeps_ = true;                // few objects are kept
  // The columns of the kept objects. After the last pass, their residuals, in the same memory.
  std::array<std::vector<double>, 2> kept_;
  Tally<Sum> delta_;
  Tally<Sum> norm_;
};

using InOrderAccumulator = BasicAccumulator<InOrderSum>;
using ExactAccumulator = BasicAccumulator<ExactSum>;

/// The numbers of two arrays in memory, with sums in order.
/// @throws std::invalid_argument if the arrays differ in length.
FoundOfBoth find_in_order(std::span<const double> reference, std::span<const double> estimate,
                          const Wanted& wanted, const Checkpoint& checkpoint);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_BASIC_ACCUMULATOR_H
