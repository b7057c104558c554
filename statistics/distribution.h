// The order statistics of values that are added block by block, in several passes.

#ifndef VOSTREL_STATISTICS_DISTRIBUTION_H
#define VOSTREL_STATISTICS_DISTRIBUTION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "statistics/histogram.h"

namespace vostrel {

/// The values from `low` to `high`, and how many values are below. The values are kept, or counted
/// in cells if there are too many.
class Bracket {
 public:
  /// @param from, to  the bounds of the buckets that the bracket touches.
  /// @param before    how many values are below `from`.
  /// @param center    if given, cells are ranges of distances from this value, which must be
  ///                  finite and not between `low` and `high`.
  Bracket(double low, double high, double from, double to, std::uint64_t before,
          std::optional<double> center)
      : low_(low), high_(high), from_(from), to_(to), before_(before), center_(center) {}

  /// A value and how often it occurs in succession.
  struct Run {
    double value;
    std::uint64_t count;
  };

  /// Takes the values between `from` and `high`. Ignores all others.
  void sift(std::span<const Run> runs);

  /// Adds what another bracket with the same bounds has taken.
  /// @throws std::invalid_argument when the bounds differ.
  void merge(const Bracket& other);

  /// The same bracket with nothing taken.
  Bracket fresh() const { return {low_, high_, from_, to_, before_, center_}; }

  void write(ByteWriter& out) const;
  static Bracket read(ByteReader& in);

  double low() const { return low_; }
  double high() const { return high_; }
  double from() const { return from_; }
  double to() const { return to_; }

  /// How many values are below `low`, and how many from `low` to `high`.
  std::uint64_t below() const { return before_ + below_; }
  std::uint64_t inside() const { return inside_; }

  /// How many values are below `bound`, or with `including`, at most `bound`. Returns
  /// nothing if the bound lies outside the bracket or inside a cell.
  std::optional<std::uint64_t> count_below(double bound, bool including) const;

  /// The smallest and the largest of some values, and their count.
  struct Cell {
    double low = 0;
    double high = 0;
    std::uint64_t count = 0;
  };

  /// The values inside, if all of them are kept. Otherwise none.
  std::span<const double> values() const { return values_; }

  /// The cells of the values inside, if not all of them are kept. Otherwise none. Cells may be
  /// empty.
  std::span<const Cell> cells() const { return cells_; }

 private:
  void take(Run run);
  // What the cells are ranges of: the value, or its distance from the center.
  double key(double value) const;
  void start_cells();
  void count_in_cell(Run run);

  double low_;
  double high_;
  double from_;
  double to_;
  std::uint64_t before_;
  std::optional<double> center_;
  std::uint64_t below_ = 0;  // from `from` to below `low`
  std::uint64_t inside_ = 0;
  std::vector<double> values_;
  std::vector<Cell> cells_;
  double lowest_key_ = 0;  // where the first cell begins
  int cell_shift_ = 0;     // a cell spans 2^cell_shift_ keys
};

/// The exact median, MAD, MAD about the median and outlier counts of values that are not kept.
///
/// The first pass makes a histogram of the values' leading bits. That gives exact counts between
/// bucket bounds, and good guesses of all answers. The second pass keeps the values in narrow
/// brackets about the guesses. An answer that lies in its bracket is then exact. For any other, a
/// further pass takes a bracket that is certain to hold it. So guesses decide how many passes are
/// needed, never the results.
///
/// The values may come in any order and in any blocks. Each pass must see the same values. NaN
/// is left out. Infinities count like other values, but the MAD about an infinite median is NaN.
class Distribution {
 public:
  /// Takes a value of the first pass.
  void count(double value) { histogram_.add(value); }

  /// Ends the first pass.
  /// @param sigma_low, sigma_high  guessed bounds of the standard deviation.
  void plan(double sigma_low, double sigma_high);

  /// 1 if a later pass needs the value, else 0.
  std::size_t needs(double value) const { return flags_[histogram_.place(value)]; }

  /// Takes values of a later pass. Requires: each value that the pass needs.
  void sift(std::span<const double> values);

  /// Ends a later pass.
  /// @param sigma  the standard deviation.
  /// @return true if all answers are known, false if another pass is needed.
  bool resolve(double sigma);

  /// Adds what another distribution has taken in the same pass.
  /// @throws std::invalid_argument if the other is not in the same pass.
  void merge(const Distribution& other);

  /// The same pass with nothing taken.
  Distribution fresh() const;

  void write(ByteWriter& out) const;
  static Distribution read(ByteReader& in);

  /// The number of values, once the first pass has ended.
  std::uint64_t size() const { return size_; }
  /// Whether the first pass has ended.
  bool is_planned() const { return is_planned_; }
  /// Whether all answers are known. Without values there are no medians.
  bool is_known() const;

  // The answers, once is_known().

  /// The median. If it is 0, its sign is unspecified.
  double median() const { return median_.median(); }
  /// The median of |value|.
  double absolute_median() const { return absolute_.median(); }
  /// The median of |value - median()|. NaN if the median is infinite.
  double mad_about_median() const { return about_median_.median(); }
  /// For each of outlier_bounds(sigma), the number of values with |value| > bound.
  std::array<std::uint64_t, 5> outliers() const;

 private:
  // A rank among the values, or among their distances from a center, and its value once found.
  struct Place {
    std::uint64_t rank = 0;
    std::optional<double> value;
    // The brackets of the values on the two sides of the center. A rank among the values themselves
    // has only the right one.
    std::optional<std::size_t> left;
    std::size_t right = 0;
  };

  // The two middle values. They are the same one if the number of values is odd.
  struct Middle {
    Place lower;
    Place upper;
    bool is_known() const { return lower.value && upper.value; }
    double median() const;
  };

  std::size_t add_bracket(double low, double high, std::optional<double> center = {});
  void guess_median();
  void guess_distances(Middle& middle, double center, double uncertainty);
  void bracket_distances(Place& place, double center, double low, double high);
  void bracket_surely(Place& place, std::optional<double> center);
  void find_buckets();
  void start_pass();
  void flag_buckets();
  void resolve(Middle& middle, std::optional<double> center);
  void resolve(Place& place, std::optional<double> center);
  std::optional<std::pair<double, double>> bounds_of(const Place& place,
                                                     std::optional<double> center) const;
  std::optional<std::uint64_t> count_below(double bound, bool including) const;
  std::optional<std::uint64_t> count_beyond(double bound) const;

  Histogram histogram_;
  bool is_planned_ = false;
  std::uint64_t size_ = 0;
  std::vector<Histogram::Bucket> buckets_;  // only between passes: they take much memory
  std::vector<std::uint8_t> flags_;         // by place: whether the bucket touches a bracket
  std::vector<Bracket> brackets_;           // of this pass
  std::vector<Bracket> next_;               // of the next one
  Middle median_;
  Middle absolute_;
  Middle about_median_;
  std::array<std::optional<std::uint64_t>, 5> outliers_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_DISTRIBUTION_H
