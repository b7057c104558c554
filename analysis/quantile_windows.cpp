#include "analysis/quantile_windows.h"

#include <algorithm>
#include <cmath>

#include "floating_point.h"
#include "statistics/also_for_avx2.h"
#include "statistics/lsst.h"
#include "statistics/quantiles.h"

namespace vostrel {

namespace {

// The percentiles that have windows, ascending.
std::vector<double> percents_of(const Wanted& wanted) {
  std::vector<double> percents = wanted.percents();
  percents.push_back(50);
  std::sort(percents.begin(), percents.end());
  percents.erase(std::unique(percents.begin(), percents.end()), percents.end());
  return percents;
}

// Moves marks by a byte, and adds a bit to them if a < b: the sign of the difference, since both
// are finite.
std::uint64_t with_next(std::uint64_t marks, double a, double b) {
  return marks >> 8 | (std::bit_cast<std::uint64_t>(a - b) & std::uint64_t{1} << 63);
}

}  // namespace

std::size_t QuantileWindows::words() const {
  const std::size_t marks = percents_.size() + 1 + wanted_.extras.outliers.size();
  return (marks + kMarksInWord - 1) / kMarksInWord;
}

bool QuantileWindows::find(const ResidualColumn& residuals, const Units& units,
                           const WindowGuess& guess, const Wanted& wanted,
                           const Checkpoint& checkpoint) {
  wanted_ = wanted;
  percents_ = percents_of(wanted);
  ranks_.assign(percents_.size(), {});
  for (std::size_t k = 0; k < ranks_.size(); ++k) {
    guess.place(ranks_[k], kItself, percents_[k] / 100);
    guess.reserve(ranks_[k], kItself);
  }
  const auto window_of = [&](double percent) -> const Window& {
    const auto place = std::find(percents_.begin(), percents_.end(), percent);
    return ranks_[static_cast<std::size_t>(place - percents_.begin())];
  };
  const Window& lower = window_of(25);
  const Window& upper = window_of(75);
  lsst_ = {};
  lsst_.low = lsst_bound((upper.low - lower.high) / kIqrFactor);
  lsst_.middle = lsst_bound((upper.middle - lower.middle) / kIqrFactor);
  lsst_.high = lsst_bound((upper.high - lower.low) / kIqrFactor);
  guess.reserve(lsst_, kMagnitude);
  return fill(residuals, units, checkpoint);
}

// Finds the entries of the windows. Returns false if there are too many, or zeros of both signs,
// between which a resample must choose.
bool QuantileWindows::fill(const ResidualColumn& residuals, const Units& units,
                           const Checkpoint& checkpoint) {
  const std::size_t size = residuals.size();
  const std::size_t windows = ranks_.size() + 1;
  const std::size_t most = size < 100'000       ? windows * size
                           : units.are_groups() ? windows * size / 2
                                                : windows * size / 16;
  std::size_t entries = 0;
  bool has_zero = false;
  bool has_negative_zero = false;
  std::vector<std::uint64_t> below(ranks_.size());
  residuals.for_each_block(checkpoint, [&](std::size_t first, std::span<const double> block) {
    for (const double value : block) {
      has_zero |= std::bit_cast<std::uint64_t>(value) == 0;
      has_negative_zero |= std::bit_cast<std::uint64_t>(value) == std::uint64_t{1} << 63;
    }
    if (entries > most) return;
    for (std::size_t k = 0; k < ranks_.size(); ++k) {
      for (const double value : block) below[k] += value < ranks_[k].middle;
      entries += ranks_[k].add(block, first, units, kItself);
    }
    entries += lsst_.add(block, first, units, kMagnitude);
  });
  if (entries > most || (has_zero && has_negative_zero)) return false;

  lsst_.sort();
  const std::vector<std::uint8_t> ones(units.count, 1);
  for (std::size_t k = 0; k < ranks_.size(); ++k) {
    ranks_[k].sort();
    const std::uint64_t rank = percentile_place(size, percents_[k]).lower;
    const auto middle = Window::Walk(ranks_[k], ones, below[k]).value(rank);
    if (!middle) return false;
    ranks_[k].set_middle(*middle);
  }
  return true;
}

// The marks are those of percents_, that of LSST's bound, and those of the bounds that were asked
// for. Written without comparisons: the compiler then vectorizes the loops.
VOSTREL_ALSO_FOR_AVX2 void QuantileWindows::mark(std::span<const double> residuals,
                                                 std::size_t word, std::uint64_t* marks) const {
  const std::size_t ranks = percents_.size();
  const std::vector<double>& bounds = wanted_.extras.outliers;
  std::fill_n(marks, residuals.size(), 0);
  for (std::size_t k = word * kMarksInWord; k < (word + 1) * kMarksInWord; ++k) {
    if (k < ranks) {
      const double middle = ranks_[k].middle;
      for (std::size_t i = 0; i < residuals.size(); ++i) {
        marks[i] = with_next(marks[i], residuals[i] + 0.0, middle);  // -0 becomes 0
      }
    } else if (k == ranks) {
      for (std::size_t i = 0; i < residuals.size(); ++i) {
        marks[i] = with_next(marks[i], std::fabs(residuals[i]), lsst_.middle);
      }
    } else {
      double bound = kInfinity;
      if (k <= ranks + bounds.size()) bound = bounds[k - ranks - 1];
      for (std::size_t i = 0; i < residuals.size(); ++i) {
        marks[i] = with_next(marks[i], bound, std::fabs(residuals[i]));
      }
    }
  }
  for (std::size_t i = 0; i < residuals.size(); ++i) marks[i] >>= 7;  // to the ends of the bytes
}

// The window that a rank is nearest to.
std::size_t QuantileWindows::nearest(std::uint64_t rank, std::uint64_t size) const {
  const double percent = 100 * static_cast<double>(rank) / static_cast<double>(size - 1);
  const auto above = std::lower_bound(percents_.begin(), percents_.end(), percent);
  if (above == percents_.begin()) return 0;
  const bool is_lower = above == percents_.end() || percent - above[-1] < *above - percent;
  return static_cast<std::size_t>(above - percents_.begin()) - is_lower;
}

bool QuantileWindows::evaluate(std::span<const std::uint64_t> marked,
                               std::span<const std::uint8_t> counts, std::uint64_t size,
                               Found& found) const {
  std::vector<Window::Walk> walks;
  walks.reserve(ranks_.size());
  for (std::size_t k = 0; k < ranks_.size(); ++k) walks.emplace_back(ranks_[k], counts, marked[k]);
  bool has_all = true;
  set_order_statistics(found, size, wanted_, [&](std::uint64_t rank) {
    const auto value = walks[nearest(rank, size)].value(rank);
    has_all &= value.has_value();
    return value.value_or(kNaN);
  });
  if (!has_all) return false;

  marked = marked.subspan(ranks_.size());
  const double bound = lsst_bound(found.lsst.sigma_iqr);
  const auto beyond = lsst_.beyond(bound, 0, counts, size - marked.front());
  if (!beyond) return false;
  found.lsst.sigma_mad = found.statistics.mad_delta * kNmadFactor;
  found.lsst.outlier_rate = static_cast<double>(*beyond) / static_cast<double>(size);
  for (std::size_t k = 0; k < wanted_.extras.outliers.size(); ++k) {
    found.quantiles.outliers.push_back(percentage(static_cast<double>(marked[k + 1]), size));
  }
  return true;
}

}  // namespace vostrel
