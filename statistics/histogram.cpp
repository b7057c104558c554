#include "statistics/histogram.h"

#include <algorithm>
#include <cmath>

#include "floating_point.h"

namespace vostrel {

namespace {

constexpr std::size_t kNegative = 1024;  // the rows of negative values begin here

double width(const Histogram::Bucket& bucket) { return bucket.high - bucket.low; }

// The position in a bucket, from 0 to 1, below which the fraction `part` of its values lies, if the
// density is 1 + slope * (position - 1/2).
double position_of(double part, double slope) {
  const double b = 1 - slope / 2;
  return 2 * part / (b + std::sqrt(std::max(b * b + 2 * slope * part, 0.0)));
}

}  // namespace

void Histogram::add_row(std::size_t row) {
  to_place_[row] += static_cast<std::uint32_t>(counts_.size());
  counts_.resize(counts_.size() + kRow);
}

void Histogram::merge(const Histogram& other) {
  for (std::size_t row = 0; row < to_place_.size(); ++row) {
    const std::size_t from = other.first_of(row);
    if (from == 0) continue;
    if (first_of(row) == 0) add_row(row);
    const std::size_t to = first_of(row);
    for (std::size_t i = 0; i < kRow; ++i) counts_[to + i] += other.counts_[from + i];
  }
}

void Histogram::write(ByteWriter& out) const {
  out.integer(counts_.size() >> kRowBits);
  for (std::size_t row = 0; row < to_place_.size(); ++row) {
    const std::size_t first = first_of(row);
    if (first == 0) continue;
    out.integer(row);
    for (std::size_t i = 0; i < kRow; ++i) out.integer(counts_[first + i]);
  }
}

Histogram Histogram::read(ByteReader& in) {
  Histogram histogram;
  for (std::size_t rows = in.count(); rows > 1; --rows) {
    const std::size_t row = in.index(histogram.to_place_.size());
    in.require(histogram.first_of(row) == 0);
    histogram.add_row(row);
    const std::size_t first = histogram.first_of(row);
    for (std::size_t i = 0; i < kRow; ++i) histogram.counts_[first + i] = in.integer();
  }
  return histogram;
}

std::vector<Histogram::Bucket> Histogram::buckets() const {
  std::vector<Bucket> buckets;
  std::uint64_t before = 0;
  const auto add = [&](std::size_t row, std::size_t i) {
    const std::size_t place = first_of(row) + i;
    if (counts_[place] == 0) return;
    const std::uint64_t first = std::uint64_t{row % kNegative << kRowBits | i} << kShift;
    const std::uint64_t last = first + (std::uint64_t{1} << kShift) - 1;
    double low = std::bit_cast<double>(first);
    if (std::isnan(low)) return;
    double high = std::isinf(low) ? low : std::bit_cast<double>(last);
    if (row >= kNegative) low = -std::exchange(high, -low);
    buckets.push_back({low, high, counts_[place], before, place});
    before += counts_[place];
  };
  for (std::size_t row = 2 * kNegative; row-- > kNegative;) {
    if (first_of(row) == 0) continue;
    for (std::size_t i = kRow; i-- > 0;) add(row, i);
  }
  for (std::size_t row = 0; row < kNegative; ++row) {
    if (first_of(row) == 0) continue;
    for (std::size_t i = 0; i < kRow; ++i) add(row, i);
  }
  return buckets;
}

double Guess::slope(std::size_t i) const {
  const auto& lower = buckets_[i > 0 ? i - 1 : i];
  const auto& upper = buckets_[std::min(i + 1, buckets_.size() - 1)];
  const auto density = [](const auto& b) { return static_cast<double>(b.count) / width(b); };
  const double run = (upper.high - lower.high + upper.low - lower.low) / 2;
  const double slope =
      (density(upper) - density(lower)) / run * width(buckets_[i]) / density(buckets_[i]);
  return std::isfinite(slope) ? std::clamp(slope, -1.0, 1.0) : 0;
}

// The first bucket that isn't below the value, or one more than the last.
std::size_t Guess::first_not_below(double value) const {
  const auto is_below = [](const Histogram::Bucket& b, double v) { return b.high < v; };
  const auto found = std::lower_bound(buckets_.begin(), buckets_.end(), value, is_below);
  return static_cast<std::size_t>(found - buckets_.begin());
}

double Guess::below(double value) const {
  const std::size_t i = first_not_below(value);
  if (i == buckets_.size()) {
    return static_cast<double>(buckets_.back().before + buckets_.back().count);
  }
  const auto& bucket = buckets_[i];
  const auto before = static_cast<double>(bucket.before);
  if (value <= bucket.low || !(width(bucket) > 0)) return before;
  const double u = (value - bucket.low) / width(bucket);
  return before + static_cast<double>(bucket.count) * (u + slope(i) / 2 * (u * u - u));
}

double Guess::value(double rank) const {
  auto bucket = std::upper_bound(buckets_.begin(), buckets_.end(), rank,
                                 [](double r, const Histogram::Bucket& b) {
                                   return r < static_cast<double>(b.before + b.count);
                                 });
  if (bucket == buckets_.end()) --bucket;
  if (!(width(*bucket) > 0)) return bucket->low;
  const double part =
      (rank - static_cast<double>(bucket->before)) / static_cast<double>(bucket->count);
  const double s = slope(static_cast<std::size_t>(bucket - buckets_.begin()));
  const double u = position_of(std::clamp(part, 0.0, 1.0), s);
  return std::clamp(bucket->low + u * width(*bucket), bucket->low, bucket->high);
}

std::pair<double, double> Guess::density(double value) const {
  const std::size_t i = first_not_below(value);
  if (i == buckets_.size() || value < buckets_[i].low || !(width(buckets_[i]) > 0)) return {0, 0};
  const auto count = static_cast<double>(buckets_[i].count);
  return {count / width(buckets_[i]), count};
}

}  // namespace vostrel
