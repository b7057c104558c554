// Counts values by their leading bits.

#ifndef VOSTREL_STATISTICS_HISTOGRAM_H
#define VOSTREL_STATISTICS_HISTOGRAM_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "statistics/bytes.h"

namespace vostrel {

/// Counts values in buckets. A bucket holds the values that share sign, exponent and the first
/// seven bits of the fraction, so its width is 1/128 of its values or less. Buckets have the order
/// of their values.
///
/// Takes a kilobyte of memory for each exponent that occurs. buckets() leaves NaN out if it is
/// quiet, as every computed NaN is.
class Histogram {
 public:
  /// Counts a value.
  void add(double value) { ++counts_[place_or_new(value)]; }

  /// Whether an infinity has been counted.
  bool has(double infinity) const { return counts_[place(infinity)] != 0; }

  /// Adds the counts of another histogram.
  void merge(const Histogram& other);

  void write(ByteWriter& out) const;
  static Histogram read(ByteReader& in);

  /// The index of the bucket of `value`, below places(). For an exponent that has not occurred, an
  /// index below 128, which no bucket uses.
  std::size_t place(double value) const {
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value) >> kShift;
    return (std::size_t{row_of_[bits >> kFractionBits]} << kFractionBits) + (bits & (kRow - 1));
  }
  /// One more than the highest index.
  std::size_t places() const { return counts_.size(); }

  /// A bucket that holds values.
  struct Bucket {
    double low;   // the smallest value that it can hold
    double high;  // the largest value that it can hold
    std::uint64_t count;
    std::uint64_t before;  // how many values are in all buckets below
    std::size_t place;
  };

  /// The buckets that hold values, in ascending order.
  std::vector<Bucket> buckets() const;

 private:
  static constexpr int kFractionBits = 7;
  static constexpr int kShift = 52 - kFractionBits;
  static constexpr std::size_t kRow = std::size_t{1} << kFractionBits;

  std::size_t place_or_new(double value) {
    const std::size_t found = place(value);
    if (found >= kRow) [[likely]]
      return found;
    add_row(std::bit_cast<std::uint64_t>(value) >> 52);
    return place(value);
  }
  void add_row(std::size_t exponent);

  std::array<std::uint16_t, 4096> row_of_{};  // by sign and exponent; 0 where none has occurred
  std::vector<std::uint64_t> counts_ = std::vector<std::uint64_t>(kRow);
};

/// Estimates from the buckets of a histogram. Assumes a linear density of values inside a bucket,
/// with a slope from its neighbours.
class Guess {
 public:
  explicit Guess(const std::vector<Histogram::Bucket>& buckets) : buckets_(buckets) {}

  /// The number of values below `value`.
  double below(double value) const;

  /// The value below which `rank` values lie.
  double value(double rank) const;

  /// The values per unit near `value`, and the number of values in its bucket.
  std::pair<double, double> density(double value) const;

 private:
  double slope(std::size_t i) const;

  const std::vector<Histogram::Bucket>& buckets_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_HISTOGRAM_H
