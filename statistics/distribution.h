// The order statistics of values that come in blocks, several times over.

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

/// The values from `low` to `high`, and how many there are below. They are kept, or counted in
/// cells when there are too many.
class Bracket {
 public:
  /// @param from, to  the bounds of the buckets that the bracket touches.
  /// @param before    how many values there are below `from`.
  Bracket(double low, double high, double from, double to, std::uint64_t before)
      : low_(low), high_(high), from_(from), to_(to), before_(before) {}

  /// A value and how often it comes in a row.
  struct Run {
    double value;
    std::uint64_t count;
  };

  /// Takes values, of which those outside `from` and `to` don't matter.
  void sift(std::span<const Run> runs);

  /// Adds what another bracket with the same bounds has taken.
  /// @throws std::invalid_argument when the bounds differ.
  void merge(const Bracket& other);

  /// The same bracket with nothing taken.
  Bracket fresh() const { return {low_, high_, from_, to_, before_}; }

  void write(ByteWriter& out) const;
  static Bracket read(ByteReader& in);

  double low() const { return low_; }
  double high() const { return high_; }
  double from() const { return from_; }
  double to() const { return to_; }

  /// How many values are below `low`, and from `low` to `high`.
  std::uint64_t below() const { return before_ + below_; }
  std::uint64_t inside() const { return inside_; }

  /// How many values there are below `bound`, or up to and including it. Nothing when that is not
  /// known: the bound is not in the bracket, or one cell holds such values and others.
  std::optional<std::uint64_t> count_below(double bound, bool including) const;

  /// A group of values of which the smallest, the largest and the count are known.
  struct Cell {
    double low = 0;
    double high = 0;
    std::uint64_t count = 0;
  };

  /// The values inside, if all of them are kept, and otherwise none.
  std::span<const double> values() const { return values_; }

  /// The cells of the values inside, if not all are kept, and otherwise none. Some may be empty.
  std::span<const Cell> cells() const { return cells_; }

 private:
  void take(Run run);
  void start_cells();
  void count_in_cell(Run run);

  double low_;
  double high_;
  double from_;
  double to_;
  std::uint64_t before_;
  std::uint64_t below_ = 0;  // from `from` to below `low`
  std::uint64_t inside_ = 0;
  std::vector<double> values_;
  std::vector<Cell> cells_;
  int cell_shift_ = 0;  // bits that values of one cell may differ in
};

/// The exact median, MAD, MAD about the median and outlier counts of values that are not kept.
///
/// The first pass makes a histogram of the values' leading bits. That gives exact counts between
/// bucket bounds, and good guesses of all answers. The second pass keeps the values in narrow
/// brackets about the guesses. What lies in its bracket is then exact. For anything else a further
/// pass takes a bracket that is certain to hold it. So guesses decide how many passes there are,
/// and never what comes out.
///
/// The values may come in any order and any blocks, the same ones in each pass. Quiet NaN are left
/// out. Infinities are values like others, except that an infinite median has no distances from it.
class Distribution {
 public:
  /// Takes a value of the first pass.
  void count(double value) { histogram_.add(value); }

  /// Ends the first pass.
  /// @param sigma_low, sigma_high  a guess of bounds for the standard deviation.
  void plan(double sigma_low, double sigma_high);

  /// Whether a later pass needs the value: 0 or 1.
  std::size_t needs(double value) const { return flags_[histogram_.place(value)]; }

  /// Takes values of a later pass, at least all that it needs.
  void sift(std::span<const double> values);

  /// Ends a later pass.
  /// @param sigma  the standard deviation.
  /// @return whether all answers are known. If not, another pass is needed.
  bool resolve(double sigma);

  /// Adds what another distribution has taken in the same pass.
  /// @throws std::invalid_argument when the other is not in the same pass.
  void merge(const Distribution& other);

  /// The same pass with nothing taken.
  Distribution fresh() const;

  void write(ByteWriter& out) const;
  static Distribution read(ByteReader& in);

  /// The number of values of the first pass, once it has ended.
  std::uint64_t size() const {
    return buckets_.empty() ? 0 : buckets_.back().before + buckets_.back().count;
  }

  // The answers, once resolve() has returned true.

  /// The median. Its sign is not defined when it is 0.
  double median() const { return median_.median(); }
  /// The median of |value|.
  double absolute_median() const { return absolute_.median(); }
  /// The median of |value - median()|. NaN when the median is infinite.
  double mad_about_median() const { return about_median_.median(); }
  /// For each of outlier_bounds(sigma), how many values have |value| > bound.
  std::array<std::uint64_t, 5> outliers() const;

 private:
  // A value to be found by its rank, among the values or among their distances from a center.
  struct Place {
    std::uint64_t rank = 0;
    std::optional<double> value;
    // Brackets of the values at that distance on the two sides of the center. One is enough among
    // the values themselves, and where the two would overlap.
    std::optional<std::size_t> left;
    std::size_t right = 0;
  };

  // The two middle values, which are one for an odd number of values.
  struct Middle {
    Place lower;
    Place upper;
    bool is_known() const { return lower.value && upper.value; }
    double median() const;
  };

  std::size_t add_bracket(double low, double high);
  void guess_median();
  void guess_distances(Middle& middle, double center, double uncertainty);
  void bracket_distances(Place& place, double center, double low, double high);
  void bracket_surely(Place& place, std::optional<double> center);
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
  std::vector<Histogram::Bucket> buckets_;
  std::vector<Bracket::Run> runs_;   // room for sift()
  std::vector<std::uint8_t> flags_;  // by place: whether the bucket touches a bracket
  std::vector<Bracket> brackets_;    // of this pass
  std::vector<Bracket> next_;        // of the next one
  Middle median_;
  Middle absolute_;
  Middle about_median_;
  std::array<std::optional<std::uint64_t>, 5> outliers_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_DISTRIBUTION_H
