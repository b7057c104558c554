// Counts the values between two bounds in cells, and keeps those near the expected answers.

#ifndef VOSTREL_STATISTICS_BRACKET_H
#define VOSTREL_STATISTICS_BRACKET_H

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "statistics/bytes.h"
#include "statistics/order_of.h"

namespace vostrel {

/// The sort key of values: themselves, or their distance from a center. A rounded subtraction
/// preserves the order: a key never decreases away from the center.
struct Key {
  std::optional<double> center;

  double operator()(double value) const { return center ? std::fabs(value - *center) : value; }
  bool operator==(const Key& other) const = default;
};

/// From `low` to `high`, both included.
struct Interval {
  double low;
  double high;
};

/// Counts the values whose keys lie between two bounds.
///
/// The keys are divided into cells, each a range of neighbouring doubles. All cells are counted.
/// Cells with an expected answer also keep their values. If there are too many different ones, they
/// are dropped, and the counts remain.
class Bracket {
 public:
  Bracket(Key key, Interval keys) : key_(key), keys_(keys) {}

  // ---- before the pass ----

  const Key& key() const { return key_; }
  const Interval& keys() const { return keys_; }

  /// Makes the bracket wide enough for other keys.
  void extend(Interval keys);
  /// Keeps the values with these keys.
  void keep(Interval keys) { wanted_.push_back(keys); }
  /// Lays out the cells.
  /// @param before  the number of values with keys below the bracket.
  /// @param most    the largest number of values that can be added.
  /// @param bits    makes about 2^bits cells. At most kMostBits.
  void start(std::uint64_t before, std::uint64_t most, int bits);
  static constexpr int kMostBits = 16;

  // ---- during the pass ----

  /// Takes a value that occurs `count` times in succession. Values above the bracket are ignored.
  void take(double value, std::uint64_t count) {
    const double key = key_(value);
    if (key < keys_.low) {
      below_ += count;
    } else if (key <= keys_.high) {
      take_inside(key, value, count);
    }
  }

  /// Adds the values of another bracket.
  /// @throws std::invalid_argument unless both have the same cells.
  void merge(const Bracket& other);

  /// An empty bracket with the same cells.
  Bracket fresh() const;

  void write(ByteWriter& out) const;
  static Bracket read(ByteReader& in);

  // ---- after the pass ----

  /// How many values have keys below the bracket, and how many inside.
  std::uint64_t below() const { return before_ + below_; }
  std::uint64_t inside() const { return inside_; }

  /// Bounds of the key of a rank among the keys inside, which are equal if it is known. A value of
  /// 0 is -0 if all zeros are. Requires: rank < inside().
  Interval find(std::uint64_t rank) const;

  /// Like find(), for the distances from another center. Nothing if the kept values don't decide.
  std::optional<double> find_about(double center, std::uint64_t rank, std::uint64_t n) const;

  /// How many keys inside are at most `bound`, or nothing if that is not known. Requires: the bound
  /// lies in keys().
  std::optional<std::uint64_t> count_up_to(double bound) const;

 private:
  struct Run {
    double value;
    std::uint64_t count;
  };

  std::size_t cell_of(double key) const {
    return static_cast<std::size_t>((static_cast<std::uint64_t>(order_of(key)) - first_) >> shift_);
  }
  Interval keys_of(std::size_t cell) const;
  void take_inside(double key, double value, std::uint64_t count);
  void keep_value(double value, std::uint64_t count);
  void sort_runs();
  std::pair<std::size_t, std::uint64_t> cell_at(std::uint64_t rank) const;
  std::vector<Run> runs_in(std::size_t first, std::size_t last) const;

  Key key_;
  Interval keys_;
  std::vector<Interval> wanted_;  // before start()
  std::uint64_t first_ = 0;       // the order of the lowest key
  int shift_ = 0;                 // a cell has 2^shift_ keys
  std::uint64_t before_ = 0;
  std::uint64_t below_ = 0;
  std::uint64_t inside_ = 0;
  bool has_negative_zero_ = false;
  bool has_positive_zero_ = false;
  std::vector<std::uint64_t> counts_;  // by cell
  std::vector<std::uint8_t> keeps_;    // by cell
  std::vector<double> values_;         // kept, in the order of their arrival
  std::vector<Run> runs_;              // kept, sorted and different; not among `values_`
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_BRACKET_H
