// All numbers of one residual, from several passes over blocks of its values.

#ifndef VOSTREL_STATISTICS_TALLY_H
#define VOSTREL_STATISTICS_TALLY_H

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <vector>

#include "floating_point.h"
#include "statistics/accumulator.h"
#include "statistics/bytes.h"
#include "statistics/exact_sum.h"
#include "statistics/lsst.h"
#include "statistics/moments.h"
#include "statistics/quantiles.h"
#include "statistics/residuals.h"
#include "statistics/search.h"
#include "statistics/statistics.h"

namespace vostrel {

template <class Sum>
inline constexpr bool kIsExact = std::is_same_v<Sum, ExactSum>;

/// The most objects in a block.
inline constexpr std::size_t kMostInBlock = 1024;

/// The residuals of a block of objects. Sums in order compute them at the moment of use: a division
/// takes long, and other work fills the time.
struct ResidualsOfObjects {
  std::span<const double> reference;
  std::span<const double> estimate;

  std::size_t size() const { return reference.size(); }
  double delta(std::size_t i) const { return residual(reference[i], estimate[i]); }
  double norm(std::size_t i) const { return normalized_residual(reference[i], estimate[i]); }
};

/// The numbers to compute for a residual beyond its 11 statistics.
struct Wanted {
  Wanted() = default;
  /// Asks for the quantiles.
  /// @throws std::invalid_argument as extended_statistics().
  explicit Wanted(Extras asked_for);

  Extras extras = {};
  bool has_quantiles = false;                // median, percentiles, LSST's metrics
  bool has_fourth = false;                   // means of fourth powers
  std::vector<std::uint64_t> absolute = {};  // ranks of |residual|, below n
  std::vector<std::uint64_t> values = {};    // ranks of the residual, below n

  /// The percentiles that the quantiles need, in any order. The median isn't among them.
  std::vector<double> percents() const;

  /// The ranks whose values are wanted, ascending.
  std::vector<std::uint64_t> ranks(std::uint64_t n) const;

  bool operator==(const Wanted& other) const;

  /// The extras. The rest is for sums in order, which have no bytes.
  void write(ByteWriter& out) const;
  static Wanted read(ByteReader& in);
};

/// The moments and order statistics from which errors follow by formula.
struct Spread {
  double second;                 ///< Mean of r^2.
  double fourth;                 ///< Mean of r^4.
  double second_about;           ///< Mean of (r - bias)^2.
  double fourth_about;           ///< Mean of (r - bias)^4.
  std::vector<double> absolute;  ///< The |r| of the ranks that are wanted.
  std::vector<double> values;    ///< The r of the ranks that are wanted.
};

/// The numbers of one residual. Those that are not wanted are 0 or empty.
struct Found {
  ResidualStatistics statistics{};
  Quantiles quantiles{};
  LsstMetrics lsst{};
  Spread spread{};
};

/// Sets the quantiles and LSST's metrics that follow from ranks.
/// @param value  returns the residual of a rank, from 0 to n - 1.
template <class Value>
void set_order_statistics(Found& found, std::uint64_t n, const Wanted& wanted, Value value) {
  Quantiles& q = found.quantiles;
  q.median = middle_value(n, value);
  q.sigma_68 = sigma_68(n, value);
  q.sigma_iqr = sigma_iqr(n, value);
  for (const double percent : wanted.extras.percentiles) {
    q.percentiles.push_back(percentile(n, percent, value));
  }
  const auto error = lsst_errors(n, value);
  found.lsst.bias = middle_value(n, error) + 0.0;  // never -0, as numpy.median
  found.lsst.sigma_iqr = sigma_iqr(n, error);
}

/// The numbers by their definitions. If residuals, or distances from an infinite median, are NaN,
/// the medians depend on the order of the residuals. With exact sums, those medians are NaN.
template <class Sum>
Found by_definition(std::span<const double> residuals, const Wanted& wanted,
                    const Checkpoint& checkpoint);

/// The state of all passes for one residual.
template <class Sum>
class Tally {
 public:
  /// Takes a block of the first pass. Returns the checksum of the objects, with exact sums.
  static std::uint64_t add_first(Tally& delta, Tally& norm, ResidualsOfObjects r,
                                 const Wanted& wanted);
  /// Takes a block of the second or a later pass. Returns as above.
  static std::uint64_t add_later(Tally& delta, Tally& norm, ResidualsOfObjects r,
                                 const Wanted& wanted, bool is_second);

  void end_first_pass(std::uint64_t n, const Wanted& wanted);

  void end_second_pass(std::uint64_t n);

  /// Ends the second or a later pass. Returns whether another one is needed.
  bool end_later_pass(const Wanted& wanted);

  /// Squares can't cancel, so their sum is NaN if and only if a residual is.
  bool has_nan() const { return std::isnan(squares_.total()); }
  bool has_infinite_median(const Wanted& wanted) const;

  Found found(std::uint64_t n, const Wanted& wanted) const;

  Tally fresh() const;
  // Requires: exact sums.
  void merge(const Tally& other);
  void write(ByteWriter& out) const;
  static Tally read(ByteReader& in);
  /// Whether a state that was read fits the pass.
  bool fits(bool first_pass, bool is_done, const Wanted& wanted) const;

 private:
  using Question = Search::Question;

  // The questions, in the order in which they are asked.
  struct Questions {
    std::vector<std::uint64_t> ranks;  // of the values: questions 0, 1, ...
    std::array<Question, 2> absolute;  // the middle of |r|
    std::array<Question, 2> about;     // the middle of |r - median|
    std::array<Question, 5> beyond;    // outlier_bounds()
    Question beyond_asked;             // the first of Extras::outliers
    Question beyond_lsst;
    Question absolute_asked;  // the first of Wanted::absolute
    std::size_t count;

    Question rank(std::uint64_t rank) const;
  };

  static Questions questions(std::uint64_t n, const Wanted& wanted);
  void ask(std::uint64_t n, const Wanted& wanted);
  Interval expected_lsst_bound(std::uint64_t n, const Questions& questions) const;
  void count_outliers(const Questions& questions, std::uint64_t n, const Wanted& wanted);
  void set_quantiles(Found& found, std::uint64_t n, const Wanted& wanted) const;

  Sum sum_;
  Sum squares_;
  Sum deviations_;  // squares of the deviations from the bias
  InOrderSum fourth_;
  InOrderSum fourth_about_;
  double bias_ = 0;
  double rms_ = 0;
  double sigma_ = 0;
  bool has_nan_ = false;
  Search search_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_TALLY_H
