#include "python/src/rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "statistics/also_for_avx2.h"

namespace vostrel::python {

namespace {

// A bool would keep the compiler from comparing several numbers at once.
VOSTREL_ALSO_FOR_AVX2 bool has_nan(const double* values, std::size_t count) {
  std::uint64_t found = 0;
  for (std::size_t i = 0; i < count; ++i) found |= std::isnan(values[i]) ? 1 : 0;
  return found != 0;
}

}  // namespace

Rows::Rows(std::size_t size, std::vector<Column> columns, std::vector<Mask> masks, bool omit_nan)
    : size_(size),
      columns_(std::move(columns)),
      masks_(std::move(masks)),
      omit_nan_(omit_nan),
      values_(columns_.size()),
      room_(columns_.size()) {}

void Rows::rewind() { position_ = kept_ = masked_ = nan_ = 0; }

bool Rows::next() {
  if (position_ == size_) {
    if (passed_ && kept_ != kept_before_) {
      throw std::runtime_error("the arrays were changed while they were read");
    }
    passed_ = true;
    kept_before_ = kept_;
    look_for_nan_ = nan_ != 0;
    return false;
  }
  first_ = position_;
  const std::size_t count = std::min(kBlock, size_ - first_);
  position_ += count;

  bool found_nan = false;
  for (std::size_t c = 0; c < columns_.size(); ++c) {
    values_[c] = columns_[c].read(first_, count, room_[c].data());
    if (look_for_nan_) found_nan |= has_nan(values_[c], count);
  }

  block_kept_ = count;
  left_out_ = {};
  nan_by_.clear();
  if (!masks_.empty() || found_nan) block_kept_ = choose(count);
  if (block_kept_ != count) {
    left_out_ = {left_out_room_.data(), count};
    compact(count);
  }
  kept_ += block_kept_;
  block_.reference = column(0);
  if (columns_.size() > 1) block_.estimate = column(1);
  block_.by = column(columns_.size() > 2 ? 2 : 0);
  block_.nan_by = nan_by_;
  return true;
}

// Finds the objects to be left out, and returns how many are kept.
std::size_t Rows::choose(std::size_t count) {
  const double* const by = values_[columns_.size() > 2 ? 2 : 0];
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; ++i) {
    bool masked = false;
    for (const Mask& mask : masks_) masked |= mask[first_ + i];
    bool is_nan = false;
    for (const double* const values : values_) is_nan |= std::isnan(values[i]);
    is_nan &= !masked;
    masked_ += masked;
    nan_ += is_nan;
    if (is_nan && omit_nan_) nan_by_.push_back(by[i]);
    left_out_room_[i] = masked || (is_nan && omit_nan_);
    kept += !left_out_room_[i];
  }
  return kept;
}

// Copies the kept objects to the front of the buffer.
void Rows::compact(std::size_t count) {
  for (std::size_t c = 0; c < columns_.size(); ++c) {
    std::size_t kept = 0;
    for (std::size_t i = 0; i < count; ++i) {
      // Never overwrites what is still to be read: kept <= i.
      if (!left_out_[i]) room_[c][kept++] = values_[c][i];
    }
    values_[c] = room_[c].data();
  }
}

}  // namespace vostrel::python
