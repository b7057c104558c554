// The four metrics by which LSST's photometric-redshift pipelines judge point estimates.

#ifndef VOSTREL_STATISTICS_LSST_H
#define VOSTREL_STATISTICS_LSST_H

#include <cstdint>
#include <span>

#include "statistics/ranks.h"

namespace vostrel {

/// The metrics of the error e = (estimate - reference) / (1 + reference), as in Graham et al. 2018,
/// AJ 155, 1. All are dimensionless. All are NaN if an e is NaN or there are no objects.
struct LsstMetrics {
  double bias;          ///< Median of e.
  double sigma_iqr;     ///< (75th - 25th percentile of e) / 1.349.
  double sigma_mad;     ///< 1.4826 * median of |e - median(e)|.
  double outlier_rate;  ///< Fraction of objects with |e| > max(0.06, 3 sigma_iqr), 0 to 1.
};

/// Finds the metrics of two columns, which are added block by block, once in each pass:
///
///     vostrel::LsstPasses passes(n);
///     do {
///       for (each block of the columns) passes.add(reference, estimate);
///     } while (passes.end_pass());
///     const vostrel::LsstMetrics metrics = passes.result();
///
/// Percentiles are interpolated linearly, as NumPy does it. Most data take six passes.
class LsstPasses {
 public:
  /// @param n  the number of objects.
  explicit LsstPasses(std::uint64_t n);

  /// Adds a block of both columns. Each pass must see the same objects, in any order.
  /// @throws std::invalid_argument if the arrays differ in length.
  void add(std::span<const double> reference, std::span<const double> estimate);

  /// Ends the pass.
  /// @return whether another pass is needed.
  /// @throws std::invalid_argument if this pass saw other values than the one before.
  bool end_pass();

  /// The metrics. Requires: no other pass is needed.
  const LsstMetrics& result() const { return metrics_; }

 private:
  enum class Search { kQuartiles, kDistances, kNothing };

  void take_quartiles();
  void add_distances(std::span<double> errors);

  std::uint64_t n_;
  Search search_;
  Ranks ranks_;
  bool has_nan_ = false;
  bool has_nan_distance_ = false;
  bool counts_outliers_ = false;
  std::uint64_t outliers_ = 0;
  LsstMetrics metrics_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_LSST_H
