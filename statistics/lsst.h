// The four metrics by which LSST's photometric-redshift pipelines judge point estimates.

#ifndef VOSTREL_STATISTICS_LSST_H
#define VOSTREL_STATISTICS_LSST_H

#include <cstdint>
#include <span>

#include "statistics/ranks.h"

namespace vostrel {

/// The metrics of e = (estimate - reference) / (1 + reference). All are dimensionless, and NaN when
/// an e is NaN or there is none. Defined by Graham et al. 2018, AJ 155, 1.
struct LsstMetrics {
  double bias;          ///< Median of e.
  double sigma_iqr;     ///< (75th - 25th percentile of e) / 1.349.
  double sigma_mad;     ///< 1.4826 * median of |e - median(e)|.
  double outlier_rate;  ///< Fraction, 0 to 1, of the objects with |e| > max(0.06, 3 sigma_iqr).
};

/// Finds the metrics of columns that come in blocks, several times over:
///
///     vostrel::LsstPasses passes(n);
///     do {
///       for (each block of the columns) passes.add(reference, estimate);
///     } while (passes.end_pass());
///     const vostrel::LsstMetrics metrics = passes.result();
///
/// Percentiles are interpolated linearly, as NumPy does it. There are six passes for most data.
class LsstPasses {
 public:
  /// @param n  how many objects there are.
  explicit LsstPasses(std::uint64_t n);

  /// Adds a block of both columns. The same objects must come in each pass, in any order.
  void add(std::span<const double> reference, std::span<const double> estimate);

  /// Ends the pass.
  /// @return whether another pass is needed.
  /// @throws std::invalid_argument when this pass had other values than the one before.
  bool end_pass();

  /// The metrics, when no other pass is needed.
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
