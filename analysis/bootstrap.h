// The statistics of bootstrap resamples.

#ifndef VOSTREL_ANALYSIS_BOOTSTRAP_H
#define VOSTREL_ANALYSIS_BOOTSTRAP_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "analysis/quantile_windows.h"
#include "analysis/windows.h"
#include "statistics/accumulator.h"
#include "statistics/basic_accumulator.h"
#include "statistics/statistics.h"

namespace vostrel {

/// The standard errors of three statistics of one residual, from the moments of the objects or of
/// the groups that are drawn.
struct MomentErrors {
  double bias;
  double log_sigma;  ///< Of the logarithm of sigma: its relative error.
  double log_rms;
};

/// The statistics of a resample.
struct Replicate {
  PointStatistics statistics;
  std::array<Quantiles, 2> quantiles;  ///< Of both residuals, if they are asked for.
  LsstMetrics lsst;                    ///< If the quantiles are asked for.
  std::array<MomentErrors, 2> errors;  ///< Of the residual and of the normalized residual.
};

/// The statistics of resamples of n objects (B. Efron, "Bootstrap methods: another look at the
/// jackknife", 1979). Resample k has the objects of resample_indices(seed, k, n).
///
/// Each result equals point_statistics() of the resample's objects in their order: medians and
/// outlier counts bit for bit, bias, sigma and RMS within rounding errors, which are at most
/// 2e-11 + 1e-15 n of the RMS.
///
/// A resample is represented by counts: the number of draws of each object. A median of a resample
/// lies near that of all objects. Therefore only the objects in a window about each median, and
/// about each multiple of sigma, are sorted, and only once. For each window, the objects drawn from
/// below its middle are counted. The answer is a few entries from there. If an answer isn't in its
/// window, or if rounding could decide it, Accumulator computes the resample.
///
/// If groups are drawn, the sums and the counts of each group are computed once, and those of a
/// resample are the sums over its groups.
class Bootstrap {
 public:
  /// Draws objects, or group_count whole groups: each draw of a group draws all its objects.
  /// @param groups  the group of each object, from 0 to group_count - 1, or nothing.
  /// Requires: both columns have the same length, from 1 to 2^32 - 1. Each group has an object. All
  /// arrays stay valid and unchanged.
  Bootstrap(std::span<const double> reference, std::span<const double> estimate, std::uint64_t seed,
            std::span<const std::uint32_t> groups = {}, std::size_t group_count = 0);

  /// Asks for the quantiles and LSST's metrics of the resamples, before they are ordered.
  /// @throws std::invalid_argument as extended_statistics().
  void ask(const Extras& extras);

  /// Orders the residuals, or the normalized residuals. If both are ordered, run() is much faster.
  /// Two threads may do that at the same time.
  void order(
      bool normalized, const Checkpoint& checkpoint = [] {});

  /// How many resamples run() should make in one call, for speed. Changes with order().
  std::size_t batch() const;

  /// Computes the resamples `first`, `first` + 1, ... Several threads may call this at the same
  /// time. Takes batch() bytes of memory for each object.
  /// @param with_errors  whether the errors of the resamples are needed, too.
  /// Returns how many of them Accumulator computed, which is slow.
  std::size_t run(
      std::uint64_t first, std::span<Replicate> results, bool with_errors,
      const Checkpoint& checkpoint = [] {}) const;

  /// Computes the statistics of all objects but `first`, of all but `first` + 1, ..., or of all
  /// groups but one.
  void leave_out(
      std::uint64_t first, std::span<Replicate> results,
      const Checkpoint& checkpoint = [] {}) const;

  /// The errors of all objects, whose bias, sigma and RMS are `values`.
  MomentErrors errors(
      bool normalized, const ResidualStatistics& values,
      const Checkpoint& checkpoint = [] {}) const;

  /// How many objects or groups would make up the fourth moment if all had the same part of it:
  /// (sum of u)^2 / (sum of u^2), where u is the square of an object's or a group's part of the
  /// variance of the mean square about a center. Found for sigma and for RMS.
  std::array<double, 2> effective_units(
      bool normalized, const Checkpoint& checkpoint = [] {}) const;

 private:
  template <class T, std::size_t N>
  struct Vector;
  struct Items;
  struct Drawn;
  struct Sums;
  struct State;

  // One residual.
  struct Part {
    Part(std::span<const double> reference, std::span<const double> estimate, bool normalized)
        : residuals(reference, estimate, normalized) {}

    ResidualColumn residuals;
    bool usable = false;
    Windows windows;
    std::vector<DrawnSums> groups;  // the sums of each group
    bool has_quantiles = false;     // the quantiles come from windows, too
    QuantileWindows quantiles;
    std::vector<std::uint32_t> group_marks;  // how many objects of each group have each mark
  };

  bool is_fast() const { return parts_[0].usable && parts_[1].usable; }
  // The number of words of marks of each object for the quantiles.
  std::size_t words() const;
  void order_quantiles(Part& part, const WindowGuess& guess, const Checkpoint& checkpoint);
  std::uint64_t size_of(std::size_t unit) const;
  std::uint64_t size_of(std::span<const std::uint8_t> counts) const;
  template <bool kPowers>
  static void add(std::span<const std::uint8_t> positions, const Items& items, std::uint8_t* counts,
                  Sums& sums);
  void load(std::size_t first, std::size_t count, bool with_powers, Items& items) const;
  std::size_t draw(std::uint64_t first, std::span<Replicate> results, bool with_errors,
                   const Checkpoint& checkpoint) const;
  static void draw_items(std::span<const std::uint8_t> positions, const Items& items,
                         bool with_errors, std::size_t start, Sums& sums, State& state);
  void draw_groups(State& state) const;
  void add_marks_of(std::size_t unit, int times, State& state) const;
  DrawnSums sums_of(const Part& part, std::size_t unit) const;
  bool judge(const State& state, std::uint64_t size, bool fast, Replicate& result,
             const Checkpoint& checkpoint) const;
  bool judge_quantiles(const State& state, std::uint64_t size, Replicate& result) const;
  FoundOfBoth find_by_passes(std::span<const std::uint8_t> counts,
                             const Checkpoint& checkpoint) const;
  void compute_by_passes(std::span<const std::uint8_t> counts, Replicate& result,
                         const Checkpoint& checkpoint) const;
  MomentErrors errors_from_sums(const Part& part, const DrawnSums& sums,
                                std::span<const std::uint8_t> counts,
                                const ResidualStatistics& values, std::uint64_t size) const;
  template <class Function, class Use>
  void for_each_unit(const Part& part, const Checkpoint& checkpoint, Function function,
                     Use use) const;
  MomentErrors errors_by_definition(const Part& part, std::span<const std::uint8_t> counts,
                                    const ResidualStatistics& values,
                                    const Checkpoint& checkpoint) const;

  std::span<const double> reference_;
  std::span<const double> estimate_;
  std::uint64_t seed_;
  Units units_;
  std::vector<std::uint64_t> group_sizes_;
  Wanted wanted_;
  std::array<Part, 2> parts_;
};

}  // namespace vostrel

#endif  // VOSTREL_ANALYSIS_BOOTSTRAP_H
