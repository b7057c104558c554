#include "statistics/binned.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "floating_point.h"
#include "statistics/bytes.h"

namespace vostrel {

Bins::Bins(std::vector<double> edges) : edges_(std::move(edges)) {
  const bool ascending = std::is_sorted(edges_.begin(), edges_.end());
  const bool nan =
      std::any_of(edges_.begin(), edges_.end(), [](double e) { return std::isnan(e); });
  if (edges_.size() < 2 || !ascending || nan) {
    throw std::invalid_argument("edges must be two or more numbers, none below the one before");
  }
  constexpr std::size_t kCellsPerBin = 16;  // so that most cells have no edge
  const std::size_t cells = kCellsPerBin * size();
  const double scale = static_cast<double>(cells) / (edges_.back() - edges_.front());
  if (std::isfinite(scale)) scale_ = scale;
  edges_below_.assign(cells + 1, 0);
  for (const double edge : edges_) ++edges_below_[cell_of(edge) + 1];
  std::partial_sum(edges_below_.begin(), edges_below_.end(), edges_below_.begin());
}

// Requires: the value lies within the edges.
std::size_t Bins::cell_of(double value) const {
  if (scale_ == 0) return 0;  // infinitely wide, or too narrow
  const std::size_t last = edges_below_.size() - 2;
  return std::min(static_cast<std::size_t>((value - edges_.front()) * scale_), last);
}

std::size_t Bins::operator()(double value) const {
  if (!(value >= edges_.front() && value <= edges_.back())) return kOutside;
  const std::size_t cell = cell_of(value);
  const auto first = edges_.begin();
  const auto above =
      std::upper_bound(first + static_cast<std::ptrdiff_t>(edges_below_[cell]),
                       first + static_cast<std::ptrdiff_t>(edges_below_[cell + 1]), value);
  return std::min(static_cast<std::size_t>(above - first) - 1, size() - 1);
}

BinnedAccumulator::BinnedAccumulator(Bins bins, Sums sums)
    : bins_(std::move(bins)),
      room_(std::clamp<std::size_t>(65536 / bins_.size(), 16, 256)),
      waiting_(bins_.size()),
      passes_(bins_.size(), Accumulator(sums)) {}

void BinnedAccumulator::add(std::span<const double> reference, std::span<const double> estimate,
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

void BinnedAccumulator::hand_over(std::size_t bin) {
  Waiting& waiting = waiting_[bin];
  if (passes_[bin].needs_another_pass()) {
    passes_[bin].add({waiting.reference.data(), waiting.count},
                     {waiting.estimate.data(), waiting.count});
  }
  waiting.count = 0;
}

void BinnedAccumulator::hand_over_all() {
  for (std::size_t bin = 0; bin < passes_.size(); ++bin) hand_over(bin);
}

bool BinnedAccumulator::end_pass(const Checkpoint& checkpoint) {
  hand_over_all();
  for (Accumulator& passes : passes_) {
    if (passes.needs_another_pass()) passes.end_pass();
    checkpoint();
  }
  first_pass_ = false;
  return needs_another_pass();
}

bool BinnedAccumulator::needs_another_pass() const {
  return std::any_of(passes_.begin(), passes_.end(),
                     [](const Accumulator& passes) { return passes.needs_another_pass(); });
}

std::uint64_t BinnedAccumulator::size() const {
  std::uint64_t size = outside_;
  for (const Accumulator& passes : passes_) size += passes.size();
  if (first_pass_) {
    for (const Waiting& waiting : waiting_) size += waiting.count;
  }
  return size;
}

BinnedAccumulator BinnedAccumulator::fresh() const {
  BinnedAccumulator fresh(bins_, Sums::kExact);
  for (std::size_t bin = 0; bin < passes_.size(); ++bin) {
    const Accumulator& passes = passes_[bin];
    fresh.passes_[bin] = passes.needs_another_pass() ? passes.fresh() : passes;
  }
  fresh.first_pass_ = first_pass_;
  if (!first_pass_) fresh.outside_ = outside_;
  return fresh;
}

void BinnedAccumulator::merge(const BinnedAccumulator& other) {
  if (other.bins_.edges() != bins_.edges() || other.first_pass_ != first_pass_) {
    throw std::invalid_argument("these states have other bins or are not in the same pass");
  }
  for (std::size_t bin = 0; bin < passes_.size(); ++bin) {
    Accumulator& passes = passes_[bin];
    if (!passes.needs_another_pass()) continue;
    const Waiting& waiting = other.waiting_[bin];
    passes.merge(other.passes_[bin]);
    passes.add({waiting.reference.data(), waiting.count}, {waiting.estimate.data(), waiting.count});
  }
  if (first_pass_) outside_ += other.outside_;
}

std::string BinnedAccumulator::to_bytes() const {
  BinnedAccumulator whole(*this);
  whole.hand_over_all();
  ByteWriter writer;
  writer.integer(bins_.edges().size());
  for (const double edge : bins_.edges()) writer.number(edge);
  writer.integer(first_pass_);
  writer.integer(outside_);
  for (const Accumulator& passes : whole.passes_) writer.text(passes.to_bytes());
  return writer.take();
}

BinnedAccumulator BinnedAccumulator::from_bytes(std::string_view bytes) {
  ByteReader reader(bytes);
  std::vector<double> edges(reader.count());
  for (double& edge : edges) edge = reader.number();
  BinnedAccumulator passes(Bins(std::move(edges)), Sums::kExact);
  passes.first_pass_ = reader.index(2) != 0;
  passes.outside_ = reader.integer();
  for (Accumulator& part : passes.passes_) part = Accumulator::from_bytes(reader.text());
  reader.require(reader.at_end());
  return passes;
}

std::vector<PointStatistics> BinnedAccumulator::results(const Checkpoint& checkpoint) const {
  std::vector<PointStatistics> results;
  results.reserve(passes_.size());
  for (const Accumulator& passes : passes_) {
    results.push_back(passes.result(checkpoint));
    checkpoint();
  }
  return results;
}

BinnedObjects::BinnedObjects(Bins bins) : bins_(std::move(bins)), parts_(bins_.size()) {}

void BinnedObjects::count(std::span<const double> by) {
  for (const double value : by) {
    const std::size_t bin = bins_(value);
    if (bin != Bins::kOutside) ++parts_[bin].size;
  }
}

void BinnedObjects::add(std::span<const double> reference, std::span<const double> estimate,
                        std::span<const double> by) {
  if (reference.size() != by.size() || estimate.size() != by.size()) {
    throw std::invalid_argument("reference, estimate and by differ in length");
  }
  for (std::size_t i = 0; i < by.size(); ++i) {
    const std::size_t bin = bins_(by[i]);
    if (bin == Bins::kOutside) continue;
    Part& part = parts_[bin];
    if (part.reference.size() == part.size) throw std::invalid_argument("the values have changed");
    // Only the first call allocates. Filling so much memory at once would take long.
    part.reference.reserve(part.size);
    part.estimate.reserve(part.size);
    part.reference.push_back(reference[i]);
    part.estimate.push_back(estimate[i]);
  }
}

}  // namespace vostrel
