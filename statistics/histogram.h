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
/// Two exponents share a row of buckets. Takes two kilobytes of memory for each row with values.
/// buckets() leaves NaN out if it is quiet, as every computed NaN is.
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

  /// The index of the bucket of `value`, below places(). For a row that has no values, an index
  /// below 256, which no bucket uses.
  std::size_t place(double value) const {
    const std::uint32_t bits = leading_bits(value);
    return bits + to_place_[bits >> kRowBits];
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
  static constexpr int kShift = 45;   // to the sign, the exponent and seven bits of the fraction
  static constexpr int kRowBits = 8;  // one of the exponent, and the seven
  static constexpr std::size_t kRow = std::size_t{1} << kRowBits;
  using ToPlace = std::array<std::uint32_t, (std::size_t{1} << (64 - kShift)) / kRow>;

  static std::uint32_t leading_bits(double value) {
    return static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(value) >> kShift);
  }

  // All rows at the index 0.
  static constexpr ToPlace no_rows() {
    ToPlace to_place{};
    for (std::size_t row = 0; row < to_place.size(); ++row) {
      to_place[row] = 0 - static_cast<std::uint32_t>(row << kRowBits);
    }
    return to_place;
  }

  std::size_t place_or_new(double value) {
    const std::size_t found = place(value);
    if (found >= kRow) [[likely]]
      return found;
    add_row(leading_bits(value) >> kRowBits);
    return place(value);
  }
  void add_row(std::size_t row);

  // The index of the first bucket of a row, or 0 if it has no values.
  std::size_t first_of(std::size_t row) const {
    return static_cast<std::uint32_t>(row << kRowBits) + to_place_[row];
  }

  // By row, what to add to leading bits, modulo 2^32. It takes fewer instructions than a table of
  // first indices.
  ToPlace to_place_ = no_rows();
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
  std::size_t first_not_below(double value) const;

  const std::vector<Histogram::Bucket>& buckets_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_HISTOGRAM_H
