// The further numbers of resamples: percentiles, outliers beyond fixed bounds, LSST's metrics.

#ifndef VOSTREL_ANALYSIS_QUANTILE_WINDOWS_H
#define VOSTREL_ANALYSIS_QUANTILE_WINDOWS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "analysis/windows.h"
#include "statistics/tally.h"

namespace vostrel {

/// The windows of one residual for the quantiles: one for each percentile, as Windows has for its
/// medians, and one for LSST's bound. For each object it marks whether it is below the middle of
/// each window and whether it is beyond each bound that was asked for.
class QuantileWindows {
 public:
  /// The marks in a word: one in each byte, so up to 255 words can be added.
  static constexpr std::size_t kMarksInWord = 8;

  /// Finds the windows and their entries. Returns false if they can't be used.
  /// Requires: the residuals are finite.
  bool find(const ResidualColumn& residuals, const Units& units, const WindowGuess& guess,
            const Wanted& wanted, const Checkpoint& checkpoint);

  /// The number of words of marks of each object.
  std::size_t words() const;

  /// Makes one word of marks for each residual.
  void mark(std::span<const double> residuals, std::size_t word, std::uint64_t* marks) const;

  /// The quantiles and LSST's metrics of a resample, whose mad_delta is known. Returns false if the
  /// windows don't give them.
  /// @param marked  the number of drawn objects with each mark.
  /// @param counts  how often each unit is drawn.
  /// @param size    how many objects are drawn.
  bool evaluate(std::span<const std::uint64_t> marked, std::span<const std::uint8_t> counts,
                std::uint64_t size, Found& found) const;

 private:
  bool fill(const ResidualColumn& residuals, const Units& units, const Checkpoint& checkpoint);
  std::size_t nearest(std::uint64_t rank, std::uint64_t size) const;

  Wanted wanted_;
  std::vector<double> percents_;
  std::vector<Window> ranks_;  // by residual: one for each of percents_
  Window lsst_;                // by |residual|
};

}  // namespace vostrel

#endif  // VOSTREL_ANALYSIS_QUANTILE_WINDOWS_H
