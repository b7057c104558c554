#include "analysis/binned.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "floating_point.h"
#include "statistics/also_for_avx2.h"
#include "statistics/bytes.h"
#include "statistics/checksum.h"

namespace vostrel {

Bins::Bins(std::vector<double> edges) : edges_(std::move(edges)) {
  const bool ascending = std::is_sorted(edges_.begin(), edges_.end());
  const bool nan =
      std::any_of(edges_.begin(), edges_.end(), [](double e) { return std::isnan(e); });
  if (edges_.size() < 2 || !ascending || nan) {
    throw std::invalid_argument("edges must be two or more numbers in ascending order");
  }
  constexpr std::size_t kCellsPerBin = 16;  // then most cells have no edge
  cells_.resize(kCellsPerBin * size());
  const double scale = static_cast<double>(cells_.size()) / (edges_.back() - edges_.front());
  scale_ = {edges_.front(), std::isfinite(scale) ? scale : 0,
            static_cast<double>(cells_.size() - 1)};
  std::size_t below = 0;  // edges in lower cells
  for (std::size_t i = 0; i < cells_.size(); ++i) {
    std::size_t end = below;
    while (end < edges_.size() && static_cast<std::size_t>(scale_.cell_of(edges_[end])) == i) ++end;
    Cell& cell = cells_[i];
    if (end - below > 1) {
      cell = {kInfinity, {kSearch, kSearch}};
      is_crowded_ = true;
    } else {
      cell = {kInfinity, {bin_above(below), bin_above(end)}};
      if (end > below) cell.edge = edges_[below];
      // The upper edge itself belongs to the last bin.
      if (end > below && end == edges_.size()) cell.edge = std::nextafter(cell.edge, kInfinity);
    }
    below = end;
  }
}

VOSTREL_ALSO_FOR_AVX2 void Bins::find_cells(std::span<const double> values, const Scale& scale,
                                            std::int32_t* cells) {
  for (std::size_t i = 0; i < values.size(); ++i) cells[i] = scale.cell_of(values[i]);
}

// The bin above some of the edges, counted from the lowest.
std::uint32_t Bins::bin_above(std::size_t edges) const {
  return edges == 0 || edges > size() ? kOutside : static_cast<std::uint32_t>(edges - 1);
}

std::uint32_t Bins::search(double value) const {
  if (value == edges_.back()) return static_cast<std::uint32_t>(size() - 1);
  const auto above = std::upper_bound(edges_.begin(), edges_.end(), value);
  return std::isnan(value) ? kOutside : bin_above(static_cast<std::size_t>(above - edges_.begin()));
}

template <class Sum>
BinnedAccumulator<Sum>::BinnedAccumulator(Bins bins, const Wanted& wanted,
                                          const Checkpoint& checkpoint)
    : BinnedAccumulator(std::move(bins), checkpoint,
                        [&](std::size_t /*bin*/) { return BasicAccumulator<Sum>(wanted); }) {}

template <class Sum>
template <class Make>
BinnedAccumulator<Sum>::BinnedAccumulator(Bins bins, const Checkpoint& checkpoint, Make make)
    : bins_(std::move(bins)),
      room_(std::bit_floor(std::clamp<std::size_t>(65536 / bins_.size(), 16, 1024))),
      reference_(bins_.size() * room_),
      estimate_(bins_.size() * room_),
      next_(bins_.size()) {
  for (std::size_t bin = 0; bin < bins_.size(); ++bin) next_[bin] = bin * room_;
  accumulators_.reserve(bins_.size());
  for (std::size_t bin = 0; bin < bins_.size(); ++bin) {
    accumulators_.push_back(make(bin));
    checkpoint();
  }
}

template <class Sum>
void BinnedAccumulator<Sum>::add(std::span<const double> reference,
                                 std::span<const double> estimate, std::span<const double> by) {
  if (reference.size() != by.size() || estimate.size() != by.size()) {
    throw std::invalid_argument("reference, estimate and by differ in length");
  }
  if constexpr (kIsExact<Sum>) seen_checksum_ += checksum(reference, estimate, by);
  if (keeps_bins() && first_pass_) found_.resize(position_ + by.size());
  // The bins of a block are found first: a processor finds several at once.
  std::array<std::uint32_t, 256> bins;
  const auto add_block = [&](std::span<const double> block_by,
                             std::span<const double> block_reference,
                             std::span<const double> block_estimate) {
    if (keeps_bins()) {
      distribute(find_or_recall(block_by), block_reference, block_estimate, block_by);
    } else {
      bins_.find(block_by, bins.data());
      distribute(bins.data(), block_reference, block_estimate, block_by);
    }
  };
  in_blocks(bins.size(), add_block, by, reference, estimate);
}

// Lets each object wait for its bin, and hands over those of a bin whose room is full.
template <class Sum>
template <class Number>
void BinnedAccumulator<Sum>::distribute(const Number* bins, std::span<const double> reference,
                                        std::span<const double> estimate,
                                        std::span<const double> by) {
  // Local copies: a write to `next` could change the members.
  const std::size_t last = room_ - 1;
  double* const references = reference_.data();
  double* const estimates = estimate_.data();
  std::size_t* const next = next_.data();
  const std::size_t size = bins_.size();
  const auto take = [&](std::size_t i) __attribute__((always_inline)) {
    const std::size_t bin = bins[i];
    if (bin >= size) {
      ++seen_outside_;
      has_nan_ |= std::isnan(reference[i] - estimate[i] + by[i]);
      return;
    }
    const std::size_t place = next[bin];
    references[place] = reference[i];
    estimates[place] = estimate[i];
    next[bin] = place + 1;
    if ((place & last) == last) hand_over(bin);
  };
  constexpr std::size_t kLine = 8;  // of a cache, in numbers
  std::size_t i = 0;
  for (; i + kLine <= by.size(); i += kLine) {
    // Of the next block, while the memory is idle.
    for (const double* const numbers : {&reference[i], &estimate[i], &by[i]}) {
      __builtin_prefetch(numbers + Accumulator::kBlockSize);
    }
    [&]<std::size_t... k>(std::index_sequence<k...>) { (take(i + k), ...); }
    (std::make_index_sequence<kLine>());
  }
  for (; i < by.size(); ++i) take(i);
}

template <class Sum>
const std::uint8_t* BinnedAccumulator<Sum>::find_or_recall(std::span<const double> by) {
  const std::size_t first = std::exchange(position_, position_ + by.size());
  if (first_pass_) {
    bins_.find(by, &found_[first]);
  } else if (position_ > found_.size()) {
    throw std::invalid_argument("the data changed between passes");
  }
  return &found_[first];
}

template <class Sum>
void BinnedAccumulator<Sum>::hand_over(std::size_t bin) {
  if (accumulators_[bin].needs_another_pass()) add_waiting(*this, bin);
  has_nan_ |= tells_nan() && accumulators_[bin].sums_have_nan();
  next_[bin] = bin * room_;
}

// Adds the objects that wait in another accumulator, or in this one.
template <class Sum>
void BinnedAccumulator<Sum>::add_waiting(const BinnedAccumulator& other, std::size_t bin) {
  const std::size_t first = bin * room_;
  accumulators_[bin].add({other.reference_.data() + first, other.next_[bin] - first},
                         {other.estimate_.data() + first, other.next_[bin] - first});
}

template <class Sum>
bool BinnedAccumulator<Sum>::end_pass(const Checkpoint& checkpoint) {
  if (first_pass_) {
    outside_ = seen_outside_;
    checksum_ = seen_checksum_;
  } else if (outside_ != seen_outside_ || checksum_ != seen_checksum_) {
    throw std::invalid_argument("the data changed between passes");
  }
  seen_outside_ = seen_checksum_ = position_ = 0;
  for (std::size_t bin = 0; bin < accumulators_.size(); ++bin) {
    hand_over(bin);
    has_nan_ |= tells_nan() && accumulators_[bin].has_nan();
    if (accumulators_[bin].needs_another_pass()) accumulators_[bin].end_pass();
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
    for (std::size_t bin = 0; bin < next_.size(); ++bin) size += next_[bin] - bin * room_;
  }
  return size;
}

template <class Sum>
BinnedAccumulator<Sum> BinnedAccumulator<Sum>::fresh(const Checkpoint& checkpoint) const {
  BinnedAccumulator fresh(bins_, checkpoint, [this](std::size_t bin) {
    const auto& accumulator = accumulators_[bin];
    return accumulator.needs_another_pass() ? accumulator.fresh() : accumulator;
  });
  fresh.first_pass_ = first_pass_;
  fresh.outside_ = outside_;
  fresh.checksum_ = checksum_;
  return fresh;
}

template <class Sum>
void BinnedAccumulator<Sum>::merge(const BinnedAccumulator& other) {
  if (other.bins_.edges() != bins_.edges()) {
    throw std::invalid_argument("states have different bins");
  }
  if (other.first_pass_ != first_pass_ || other.checksum_ != checksum_) {
    throw std::invalid_argument("states belong to different passes");
  }
  for (std::size_t bin = 0; bin < accumulators_.size(); ++bin) {
    auto& accumulator = accumulators_[bin];
    if (!accumulator.needs_another_pass()) continue;
    accumulator.merge(other.accumulators_[bin]);
    add_waiting(other, bin);
  }
  seen_outside_ += other.seen_outside_;
  seen_checksum_ += other.seen_checksum_;
}

template <class Sum>
std::string BinnedAccumulator<Sum>::to_bytes() const {
  BinnedAccumulator whole(*this);
  for (std::size_t bin = 0; bin < bins_.size(); ++bin) whole.hand_over(bin);
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
BinnedAccumulator<Sum> BinnedAccumulator<Sum>::from_bytes(std::string_view bytes) {
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

}  // namespace vostrel
