#include "statistics/lsst.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "floating_point.h"
#include "statistics/statistics.h"

namespace vostrel {

namespace {

constexpr double kIqrFactor = 1.349;  // interquartile range of a normal distribution with sigma 1
constexpr double kSmallestBound = 0.06;

std::vector<std::uint64_t> middle_ranks(std::uint64_t n) {
  if (n == 0) return {};
  return {(n - 1) / 2, n / 2};
}

// The median from the two values of middle_ranks, as numpy.median computes it.
double median_of(std::uint64_t n, double low, double high) {
  return n % 2 == 1 ? low : (low + high) / 2;
}

// A place in the ascending order between two values, or on one.
struct Place {
  std::uint64_t rank;
  double part;  // of the way to the next rank
};

Place place_of(std::uint64_t n, double quantile) {
  const double place = quantile * static_cast<double>(n - 1);
  const double floor = std::floor(place);
  return {static_cast<std::uint64_t>(floor), place - floor};
}

// Both quartiles, each between two ranks, and the median.
std::vector<std::uint64_t> quartile_ranks(std::uint64_t n) {
  if (n == 0) return {};
  const std::uint64_t low = place_of(n, 0.25).rank;
  const std::uint64_t high = place_of(n, 0.75).rank;
  std::vector<std::uint64_t> ranks = {low,  std::min(low + 1, n - 1), (n - 1) / 2, n / 2,
                                      high, std::min(high + 1, n - 1)};
  std::sort(ranks.begin(), ranks.end());
  return ranks;
}

// Rounds as numpy.percentile does.
double interpolate(double low, double high, double part) {
  const double distance = high - low;
  return part >= 0.5 ? high - distance * (1 - part) : low + distance * part;
}

}  // namespace

LsstPasses::LsstPasses(std::uint64_t n)
    : n_(n),
      search_(n == 0 ? Search::kNothing : Search::kQuartiles),
      ranks_(n, quartile_ranks(n)),
      metrics_{kNaN, kNaN, kNaN, kNaN} {}

void LsstPasses::add(std::span<const double> reference, std::span<const double> estimate) {
  if (reference.size() != estimate.size()) {
    throw std::invalid_argument("reference and estimate differ in length");
  }
  if (search_ == Search::kNothing || has_nan_) return;
  std::array<double, 1024> room;
  for (std::size_t first = 0; first < reference.size(); first += room.size()) {
    const std::size_t count = std::min(room.size(), reference.size() - first);
    for (std::size_t i = 0; i < count; ++i) {
      const double z = reference[first + i];
      room[i] = (estimate[first + i] - z) / (1 + z);
      has_nan_ |= std::isnan(room[i]);
    }
    if (has_nan_) return;
    const std::span<double> errors(room.data(), count);
    if (search_ == Search::kQuartiles) {
      ranks_.add(errors);
    } else {
      add_distances(errors);
    }
  }
}

void LsstPasses::add_distances(std::span<double> errors) {
  const double bound = std::max(kSmallestBound, 3 * metrics_.sigma_iqr);
  for (double& error : errors) {
    outliers_ += counts_outliers_ && std::fabs(error) > bound;
    error = std::fabs(error - metrics_.bias);
    has_nan_distance_ |= std::isnan(error);  // of an infinity from the same infinity
  }
  ranks_.add(errors);
}

bool LsstPasses::end_pass() {
  if (has_nan_) {
    metrics_ = {kNaN, kNaN, kNaN, kNaN};
    search_ = Search::kNothing;
  }
  if (search_ == Search::kNothing) return false;
  if (counts_outliers_) {
    metrics_.outlier_rate = static_cast<double>(outliers_) / static_cast<double>(n_);
    counts_outliers_ = false;
  }
  if (ranks_.end_pass()) return true;
  if (search_ == Search::kQuartiles) {
    take_quartiles();
    return true;
  }
  metrics_.sigma_mad = has_nan_distance_
                           ? kNaN
                           : median_of(n_, ranks_.values()[0], ranks_.values()[1]) * kNmadFactor;
  search_ = Search::kNothing;
  return false;
}

// Takes the median and the interquartile range. The next passes find the middle distance from the
// median.
void LsstPasses::take_quartiles() {
  const std::vector<std::uint64_t> ranks = quartile_ranks(n_);
  const auto value_of = [&](std::uint64_t rank) {
    const auto place = std::lower_bound(ranks.begin(), ranks.end(), std::min(rank, n_ - 1));
    return ranks_.values()[static_cast<std::size_t>(place - ranks.begin())];
  };
  const auto quantile = [&](double fraction) {
    const Place place = place_of(n_, fraction);
    return interpolate(value_of(place.rank), value_of(place.rank + 1), place.part);
  };
  metrics_.bias = median_of(n_, value_of((n_ - 1) / 2), value_of(n_ / 2));
  metrics_.sigma_iqr = (quantile(0.75) - quantile(0.25)) / kIqrFactor;
  ranks_ = Ranks(n_, middle_ranks(n_));
  search_ = Search::kDistances;
  counts_outliers_ = true;
}

}  // namespace vostrel
