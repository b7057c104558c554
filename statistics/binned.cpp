#include "statistics/binned.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace vostrel {

namespace {

// Bins per unit of the value, when equal ones would have nearly these edges; else 0.
double scale_of(const std::vector<double>& edges) {
  const double first = edges.front();
  const auto count = static_cast<double>(edges.size() - 1);
  const double scale = count / (edges.back() - first);
  if (!std::isfinite(scale) || scale <= 0) return 0;
  for (std::size_t i = 1; i < edges.size(); ++i) {
    if (std::fabs((edges[i] - first) * scale - static_cast<double>(i)) > 0.5) return 0;
  }
  return scale;
}

}  // namespace

Bins::Bins(std::vector<double> edges) : edges_(std::move(edges)), scale_(0) {
  const bool ascending = std::is_sorted(edges_.begin(), edges_.end());
  const bool nan =
      std::any_of(edges_.begin(), edges_.end(), [](double e) { return std::isnan(e); });
  if (edges_.size() < 2 || !ascending || nan) {
    throw std::invalid_argument("edges must be two or more numbers, none below the one before");
  }
  scale_ = scale_of(edges_);
}

std::size_t Bins::operator()(double value) const {
  if (!(value >= edges_.front() && value <= edges_.back())) return kOutside;
  const std::size_t last = size() - 1;
  if (scale_ == 0) {
    const auto above = std::upper_bound(edges_.begin(), edges_.end(), value);
    return std::min(static_cast<std::size_t>(above - edges_.begin()) - 1, last);
  }
  // Near enough; the edges have the last word.
  auto bin = std::min(static_cast<std::size_t>((value - edges_.front()) * scale_), last);
  while (value < edges_[bin]) --bin;
  while (bin < last && value >= edges_[bin + 1]) ++bin;
  return bin;
}

BinnedPasses::BinnedPasses(Bins bins, Sums sums)
    : bins_(std::move(bins)),
      room_(std::clamp<std::size_t>(65536 / bins_.size(), 16, 256)),
      waiting_(bins_.size()),
      passes_(bins_.size(), Passes(sums)) {}

void BinnedPasses::add(std::span<const double> reference, std::span<const double> estimate,
                       std::span<const double> by) {
  if (reference.size() != by.size() || estimate.size() != by.size()) {
    throw std::invalid_argument("reference, estimate and by differ in length");
  }
  for (std::size_t i = 0; i < by.size(); ++i) {
    const std::size_t bin = bins_(by[i]);
    if (bin == Bins::kOutside) {
      outside_ += first_pass_;
      continue;
    }
    Waiting& waiting = waiting_[bin];
    if (waiting.reference.empty()) {
      waiting.reference.resize(room_);
      waiting.estimate.resize(room_);
    }
    waiting.reference[waiting.count] = reference[i];
    waiting.estimate[waiting.count] = estimate[i];
    if (++waiting.count == room_) hand_over(bin);
  }
}

void BinnedPasses::hand_over(std::size_t bin) {
  Waiting& waiting = waiting_[bin];
  if (passes_[bin].needs_another_pass()) {
    passes_[bin].add({waiting.reference.data(), waiting.count},
                     {waiting.estimate.data(), waiting.count});
  }
  waiting.count = 0;
}

bool BinnedPasses::end_pass() {
  bool another = false;
  for (std::size_t bin = 0; bin < passes_.size(); ++bin) {
    hand_over(bin);
    if (passes_[bin].needs_another_pass()) another |= passes_[bin].end_pass();
  }
  first_pass_ = false;
  return another;
}

std::vector<PointStatistics> BinnedPasses::results() const {
  std::vector<PointStatistics> results;
  results.reserve(passes_.size());
  for (const Passes& passes : passes_) results.push_back(passes.result());
  return results;
}

}  // namespace vostrel
