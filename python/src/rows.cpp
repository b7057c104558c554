#include "python/src/rows.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace vostrel::python {

namespace {

std::size_t count_nan(const double* values, std::size_t count) {
  std::size_t found = 0;
  for (std::size_t i = 0; i < count; ++i) found += std::isnan(values[i]);
  return found;
}

}  // namespace

Rows::Rows(std::size_t size, std::vector<Column> columns, std::vector<Mask> masks, bool omit_nan)
    : size_(size),
      columns_(std::move(columns)),
      masks_(std::move(masks)),
      omit_nan_(omit_nan),
      room_(columns_.size()) {}

void Rows::rewind() {
  const bool whole = position_ == size_;
  if (whole && passed_ && kept_ != kept_before_) {
    throw std::runtime_error("the arrays were changed while they were read");
  }
  if (whole) {
    passed_ = true;
    kept_before_ = kept_;
    look_for_nan_ = nan_ != 0;
  }
  position_ = kept_ = masked_ = nan_ = 0;
}

bool Rows::next() {
  if (position_ == size_) return false;
  const std::size_t first = position_;
  const std::size_t count = std::min(kBlock, size_ - first);
  position_ += count;

  std::array<const double*, 3> values{};
  std::size_t nan = 0;
  for (std::size_t c = 0; c < columns_.size(); ++c) {
    values[c] = columns_[c].read(first, count, room_[c].data());
    if (look_for_nan_) nan += count_nan(values[c], count);
  }

  std::size_t kept = count;
  if (!masks_.empty() || nan != 0) {
    kept = 0;
    for (std::size_t i = 0; i < count; ++i) {
      bool masked = false;
      for (const Mask& mask : masks_) masked |= mask[first + i];
      if (masked) {
        ++masked_;
        continue;
      }
      bool is_nan = false;
      for (std::size_t c = 0; c < columns_.size(); ++c) is_nan |= std::isnan(values[c][i]);
      nan_ += is_nan;
      if (is_nan && omit_nan_) continue;
      // Never overwrites what is still to be read: kept <= i.
      for (std::size_t c = 0; c < columns_.size(); ++c) room_[c][kept] = values[c][i];
      ++kept;
    }
    for (std::size_t c = 0; c < columns_.size(); ++c) values[c] = room_[c].data();
  }
  kept_ += kept;
  block_ = {{values[0], kept}, {values[1], kept}, {values[2], values[2] == nullptr ? 0 : kept}};
  return true;
}

}  // namespace vostrel::python
