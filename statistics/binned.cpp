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
#include "statistics/checksum.h"

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

template <class Sum>
BinnedAccumulator<Sum>::BinnedAccumulator(Bins bins, const Wanted& wanted)
    : bins_(std::move(bins)),
      room_(std::clamp<std::size_t>(65536 / bins_.size(), 16, 256)),
      waiting_(bins_.size()),
      accumulators_(bins_.size(), BasicAccumulator<Sum>(wanted)) {}

template <class Sum>
void BinnedAccumulator<Sum>::add(std::span<const double> reference,
                                 std::span<const double> estimate, std::span<const double> by) {
  if (reference.size() != by.size() || estimate.size() != by.size()) {
    throw std::invalid_argument("reference, estimate and by differ in length");
  }
  if constexpr (kIsExact<Sum>) {
    seen_checksum_ += checksum(reference, estimate) + checksum(by, reference);
  }
  for (std::size_t i = 0; i < by.size(); ++i) {
    const std::size_t bin = bins_(by[i]);
    if (bin == Bins::kOutside) {
      ++seen_outside_;
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

template <class Sum>
void BinnedAccumulator<Sum>::hand_over(std::size_t bin) {
  Waiting& waiting = waiting_[bin];
  if (accumulators_[bin].needs_another_pass()) {
    accumulators_[bin].add({waiting.reference.data(), waiting.count},
                           {waiting.estimate.data(), waiting.count});
  }
  waiting.count = 0;
}

template <class Sum>
void BinnedAccumulator<Sum>::hand_over_all() {
  for (std::size_t bin = 0; bin < accumulators_.size(); ++bin) hand_over(bin);
}

template <class Sum>
bool BinnedAccumulator<Sum>::end_pass(const Checkpoint& checkpoint) {
  hand_over_all();
  if (first_pass_) {
    outside_ = seen_outside_;
    checksum_ = seen_checksum_;
  } else if (outside_ != seen_outside_ || checksum_ != seen_checksum_) {
    throw std::invalid_argument("the data changed between passes");
  }
  seen_outside_ = seen_checksum_ = 0;
  for (auto& accumulator : accumulators_) {
    if (accumulator.needs_another_pass()) accumulator.end_pass();
    checkpoint();
  }
  first_pass_ = false;
  return needs_another_pass();
}

template <class Sum>
bool BinnedAccumulator<Sum>::needs_another_pass() const {
  return std::any_of(accumulators_.begin(), accumulators_.end(),
                     [](const auto& accumulator) { return accumulator.needs_another_pass(); });
}

template <class Sum>
std::uint64_t BinnedAccumulator<Sum>::size() const {
  std::uint64_t size = first_pass_ ? seen_outside_ : outside_;
  for (const auto& accumulator : accumulators_) size += accumulator.size();
  if (first_pass_) {
    for (const Waiting& waiting : waiting_) size += waiting.count;
  }
  return size;
}

template <class Sum>
BinnedAccumulator<Sum> BinnedAccumulator<Sum>::fresh() const requires kIsExact<Sum> {
  BinnedAccumulator fresh(bins_);
  for (std::size_t bin = 0; bin < accumulators_.size(); ++bin) {
    const auto& accumulator = accumulators_[bin];
    fresh.accumulators_[bin] = accumulator.needs_another_pass() ? accumulator.fresh() : accumulator;
  }
  fresh.first_pass_ = first_pass_;
  fresh.outside_ = outside_;
  fresh.checksum_ = checksum_;
  return fresh;
}

template <class Sum>
void BinnedAccumulator<Sum>::merge(const BinnedAccumulator& other) requires kIsExact<Sum> {
  if (other.bins_.edges() != bins_.edges()) {
    throw std::invalid_argument("states have different bins");
  }
  if (other.first_pass_ != first_pass_ || other.checksum_ != checksum_) {
    throw std::invalid_argument("states belong to different passes");
  }
  for (std::size_t bin = 0; bin < accumulators_.size(); ++bin) {
    auto& accumulator = accumulators_[bin];
    if (!accumulator.needs_another_pass()) continue;
    const Waiting& waiting = other.waiting_[bin];
    accumulator.merge(other.accumulators_[bin]);
    accumulator.add({waiting.reference.data(), waiting.count},
                    {waiting.estimate.data(), waiting.count});
  }
  seen_outside_ += other.seen_outside_;
  seen_checksum_ += other.seen_checksum_;
}

template <class Sum>
std::string BinnedAccumulator<Sum>::to_bytes() const requires kIsExact<Sum> {
  BinnedAccumulator whole(*this);
  whole.hand_over_all();
  ByteWriter out;
  out.numbers(bins_.edges());
  out.integer(first_pass_);
  for (const std::uint64_t number : {outside_, checksum_, seen_outside_, seen_checksum_}) {
    out.integer(number);
  }
  for (const auto& accumulator : whole.accumulators_) out.text(accumulator.to_bytes());
  return out.take();
}

template <class Sum>
BinnedAccumulator<Sum> BinnedAccumulator<Sum>::from_bytes(
    std::string_view bytes) requires kIsExact<Sum> {
  ByteReader in(bytes);
  BinnedAccumulator state(Bins(in.numbers()));
  state.first_pass_ = in.index(2) != 0;
  for (std::uint64_t* number :
       {&state.outside_, &state.checksum_, &state.seen_outside_, &state.seen_checksum_}) {
    *number = in.integer();
  }
  for (auto& accumulator : state.accumulators_) {
    accumulator = BasicAccumulator<Sum>::from_bytes(in.text());
  }
  in.require(in.at_end());
  return state;
}

template <class Sum>
std::vector<FoundOfBoth> BinnedAccumulator<Sum>::results(const Checkpoint& checkpoint) const {
  std::vector<FoundOfBoth> results;
  results.reserve(accumulators_.size());
  for (const auto& accumulator : accumulators_) {
    results.push_back(accumulator.result(checkpoint));
    checkpoint();
  }
  return results;
}

template class BinnedAccumulator<InOrderSum>;
template class BinnedAccumulator<ExactSum>;

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
