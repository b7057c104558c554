#include "analysis/windows.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <queue>

#include "analysis/resample.h"
#include "floating_point.h"
#include "statistics/also_for_avx2.h"
#include "statistics/residuals.h"

namespace vostrel {

namespace {

// How many of the largest residuals may be missing from a resample.
constexpr std::size_t kMissing = 16;

// With at least this many objects, windows with too many entries are not used, to save memory.
constexpr std::size_t kMany = 100'000;

// The mean, and the size beyond which the kMissing largest lie.
struct Center {
  double mean;
  double largest;
};

// Returns nothing if a residual isn't finite.
std::optional<Center> find_center(const ResidualColumn& residuals, const Checkpoint& checkpoint) {
  double sum = 0;
  bool finite = true;
  std::priority_queue<double, std::vector<double>, std::greater<>> largest;
  residuals.for_each_block(checkpoint, [&](std::size_t, std::span<const double> block) {
    for (const double value : block) {
      finite &= std::isfinite(value);
      sum += value;
      if (largest.size() == kMissing) {
        if (std::fabs(value) <= largest.top()) continue;
        largest.pop();
      }
      largest.push(std::fabs(value));
    }
  });
  if (!finite) return std::nullopt;
  return Center{sum / static_cast<double>(residuals.size()), largest.top()};
}

// A mean square, and how it scatters among resamples: by the root of (m4 - m2^2) / n if objects
// are drawn. Groups scatter by their sums.
class MeanSquare {
 public:
  MeanSquare(const Units& units, double n) : units_(units), n_(n), sums_(groups()), parts_(sums_) {}

  void add(std::size_t object, double square) {
    second_ += square / n_;
    fourth_ += square / n_ * square;
    if (!units_.are_groups()) return;
    sums_[units_.of(object)] += square / n_;
    parts_[units_.of(object)] += 1 / n_;
  }

  double value() const { return second_; }
  bool is_finite() const { return std::isfinite(fourth_); }

  double reach() const {
    double variance = std::max(fourth_ - second_ * second_, 0.0) / n_;
    if (units_.are_groups()) {
      variance = 0;
      for (std::size_t g = 0; g < sums_.size(); ++g) {
        const double excess = sums_[g] - parts_[g] * second_;
        variance += excess * excess;
      }
    }
    const auto drawn = static_cast<double>(units_.count);
    return kReach * std::sqrt(variance) + kReach * kReach * second_ / drawn;
  }

 private:
  std::size_t groups() const { return units_.are_groups() ? units_.count : 0; }

  const Units& units_;
  double n_;
  double second_ = 0;
  double fourth_ = 0;
  std::vector<double> sums_;
  std::vector<double> parts_;
};

// The sigma of all objects, and where that of a resample may lie.
struct SigmaRange {
  double low;
  double middle;
  double high;
};

// Returns nothing if the fourth moment overflows.
std::optional<SigmaRange> find_sigma(const ResidualColumn& residuals, const Units& units,
                                     const Center& center, const Checkpoint& checkpoint) {
  const auto n = static_cast<double>(residuals.size());
  MeanSquare all(units, n);
  MeanSquare core(units, n);  // without the largest residuals, which may make up most of sigma
  residuals.for_each_block(checkpoint, [&](std::size_t first, std::span<const double> block) {
    for (std::size_t i = 0; i < block.size(); ++i) {
      const double square = (block[i] - center.mean) * (block[i] - center.mean);
      all.add(first + i, square);
      core.add(first + i, std::fabs(block[i]) < center.largest ? square : 0);
    }
  });
  if (!all.is_finite()) return std::nullopt;
  return SigmaRange{std::sqrt(std::max(core.value() - core.reach(), 0.0)), std::sqrt(all.value()),
                    std::sqrt(all.value() + all.reach())};
}

}  // namespace

double ResidualColumn::operator[](std::size_t i) const {
  return normalized_ ? normalized_residual(reference_[i], estimate_[i])
                     : residual(reference_[i], estimate_[i]);
}

void ResidualColumn::read(std::size_t first, std::span<double> block) const {
  const double* const reference = reference_.data() + first;
  const double* const estimate = estimate_.data() + first;
  if (normalized_) {
    for (std::size_t i = 0; i < block.size(); ++i) {
      block[i] = normalized_residual(reference[i], estimate[i]);
    }
  } else {
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = residual(reference[i], estimate[i]);
  }
}

// The place of the first entry whose key isn't below `key`.
std::size_t Window::first_from(double key) const {
  const auto below = [](const Entry& entry, double bound) { return entry.key() < bound; };
  return static_cast<std::size_t>(std::lower_bound(entries.begin(), entries.end(), key, below) -
                                  entries.begin());
}

void Window::set_middle(double key) {
  middle = key;
  start = first_from(key);
}

void Window::sort() {
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.key() < b.key(); });
  set_middle(middle);
}

std::optional<double> Window::Walk::value(std::uint64_t rank) {
  const std::vector<Entry>& ordered = window_->entries;
  const auto count_of = [&](std::size_t i) -> std::uint64_t { return counts_[ordered[i].unit()]; };
  while (below_ > rank && place_ > 0) below_ -= count_of(--place_);
  while (place_ < ordered.size() && below_ + count_of(place_) <= rank) below_ += count_of(place_++);
  if (below_ > rank || place_ == ordered.size()) return std::nullopt;
  return ordered[place_].key();
}

std::optional<double> Window::median(std::span<const std::uint8_t> counts, std::uint64_t below,
                                     std::uint64_t size) const {
  Walk walk(*this, counts, below);
  const std::optional<double> lower = walk.value((size - 1) / 2);
  const std::optional<double> upper = lower ? walk.value(size / 2) : std::nullopt;
  if (!upper) return std::nullopt;
  return size % 2 == 0 ? (*upper + *lower) / 2.0 : *upper;
}

std::optional<std::uint64_t> Window::beyond(double bound, double rounding,
                                            std::span<const std::uint8_t> counts,
                                            std::uint64_t beyond) const {
  const double least = bound * (1 - rounding);
  const double greatest = bound * (1 + rounding);
  if (least < low || greatest > high) return std::nullopt;
  std::size_t i = start;
  for (; i < entries.size() && entries[i].key() <= least; ++i) beyond -= counts[entries[i].unit()];
  if (i < entries.size() && entries[i].key() <= greatest && entries[i].key() > least) {
    return std::nullopt;
  }
  for (; i > 0 && entries[i - 1].key() > least; --i) {
    if (entries[i - 1].key() <= greatest) return std::nullopt;
    beyond += counts[entries[i - 1].unit()];
  }
  return beyond;
}

WindowGuess::WindowGuess(const ResidualColumn& residuals, const Units& units) : units_(units) {
  const std::size_t size = residuals.size();
  step_ = static_cast<std::size_t>(std::max(1.0, std::cbrt(static_cast<double>(size)) / 8));
  values_.reserve(size / step_);
  RandomWords random(0, 0, 0);
  std::array<std::uint64_t, 4> words{};
  for (std::size_t first = 0; first + step_ <= size; first += step_) {
    random.next(words);
    const std::size_t object = first + words[0] % step_;
    values_.push_back(residuals[object]);
    if (units.are_groups()) groups_.push_back(units.of(object));
  }
  // Quantiles of sorted values are found faster. Values of groups keep their places.
  const auto is_nan = [](double value) { return std::isnan(value); };
  if (!units.are_groups() && std::none_of(values_.begin(), values_.end(), is_nan)) {
    std::sort(values_.begin(), values_.end());
  }
}

template <class Use>
void Windows::for_each_window(Use use) {
  use(median_, kItself, Gap{});
  use(absolute_, kMagnitude, Gap{});
  use(distant_, kItself, gap_);
  for (Window& window : beyond_) use(window, kMagnitude, Gap{});
}

bool Windows::find(const ResidualColumn& residuals, const Units& units, const WindowGuess& guess,
                   const Checkpoint& checkpoint) {
  const auto center = find_center(residuals, checkpoint);
  if (!center) return false;
  const auto sigma = find_sigma(residuals, units, *center, checkpoint);
  if (!sigma) return false;
  center_ = center->mean;
  for (std::size_t k = 0; k < beyond_.size(); ++k) {
    const auto multiple = static_cast<double>(k + 1);
    beyond_[k].low = sigma->low * multiple;
    beyond_[k].middle = sigma->middle * multiple;
    beyond_[k].high = sigma->high * multiple;
  }

  guess.place(median_, kItself);
  guess.place(absolute_, kMagnitude);
  // For the distances from a resample's median: the median moves, and so does the middle distance.
  const double median = median_.middle;
  const auto distance =
      guess.quantile([median](double value) { return std::fabs(value - median); });
  const double moves = std::max(median - median_.low, median_.high - median);
  has_gap_ = !distance.has_least && distance.low > moves;
  if (has_gap_) {
    gap_ = {median - (distance.low - moves), median + (distance.low - moves)};
    near_ = distance.middle;
    near_low_ = median - near_;
    near_high_ = median + near_;
  }
  const bool all = distance.has_greatest;
  distant_.low = all ? -kInfinity : median - distance.high - moves;
  distant_.high = all ? kInfinity : median + distance.high + moves;
  for_each_window(
      [&](Window& window, auto key_of, const Gap& gap) { guess.reserve(window, key_of, gap); });
  return fill(residuals, units, checkpoint);
}

// Finds the entries of the windows. Returns false if there are too many.
bool Windows::fill(const ResidualColumn& residuals, const Units& units,
                   const Checkpoint& checkpoint) {
  const std::size_t size = residuals.size();
  const std::size_t most = size < kMany ? 7 * size : units.are_groups() ? 3 * size : size * 2 / 3;
  std::size_t entries = 0;
  std::array<std::uint64_t, 3> below{};
  residuals.for_each_block(checkpoint, [&](std::size_t first, std::span<const double> block) {
    for (const double value : block) {
      below[0] += value < median_.middle;
      below[1] += std::fabs(value) < absolute_.middle;
      below[2] += value >= near_low_ && value < near_high_;
    }
    if (entries > most) return;
    for_each_window([&](Window& window, auto key_of, const Gap& gap) {
      entries += window.add(block, first, units, key_of, gap);
    });
  });
  if (entries > most) return false;

  for_each_window([&](Window& window, auto, const Gap&) { window.sort(); });
  gap_place_ = distant_.first_from(gap_.high);
  place_near();
  return set_middles(below, units.count, size);
}

void Windows::place_near() {
  near_start_ = distant_.first_from(near_low_);
  near_end_ = distant_.first_from(near_high_);
}

// Written without comparisons: the compiler then vectorizes the loop.
VOSTREL_ALSO_FOR_AVX2 void Windows::mark(std::span<const double> residuals,
                                         std::uint64_t* marks) const {
  // 1 at `place` if a < b: the sign of the difference, since both are finite.
  const auto is_below = [](double a, double b, std::size_t place) {
    return std::bit_cast<std::uint64_t>(a - b) >> 63 << (8 * place);
  };
  const double median = median_.middle;
  const double absolute = absolute_.middle;
  const double from = near_low_;
  const double to = near_high_;
  const std::array<double, 4> bounds = {beyond_[0].middle, beyond_[1].middle, beyond_[2].middle,
                                        beyond_[3].middle};
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    const double value = residuals[i] + 0.0;  // -0 becomes 0: -0 - 0 would have the sign of a minus
    const double size = std::fabs(value);
    marks[i] =
        is_below(value, median, kBelowMedian) | is_below(size, absolute, kBelowAbsolute) |
        (is_below(value, to, kNear) ^ is_below(value, from, kNear)) |
        is_below(kOutlierBound, size, kBeyondFixed) | is_below(size, bounds[0], kBeyondSigma) |
        is_below(size, bounds[1], kBeyondSigma + 1) | is_below(size, bounds[2], kBeyondSigma + 2) |
        is_below(size, bounds[3], kBeyondSigma + 3);
  }
}

bool Windows::evaluate(const DrawnSums& sums, std::span<const std::uint8_t> counts,
                       std::uint64_t size, ResidualStatistics& result) const {
  if (!moments(sums, size, result)) return false;
  const auto found = medians(sums.marked, counts, size);
  if (!found) return false;
  result.mad = found->absolute;
  result.nmad = result.mad * kNmadFactor;
  result.mad_delta = found->distance;
  return outliers(sums, counts, size, result);
}

// Cancellation costs digits, here or in sums in order. Then Accumulator must decide.
bool Windows::moments(const DrawnSums& sums, std::uint64_t size, ResidualStatistics& result) const {
  const auto n = static_cast<double>(size);
  const double mean = sums.x / n;
  const double square = sums.x2 / n;
  const double variance = square - mean * mean;
  result.bias = center_ + mean;
  result.sigma = std::sqrt(variance);
  result.rms = std::sqrt(result.bias * result.bias + variance);
  return variance > 0.1 * square && result.sigma > 1e-3 * result.rms;
}

bool Windows::outliers(const DrawnSums& sums, std::span<const std::uint8_t> counts,
                       std::uint64_t size, ResidualStatistics& result) const {
  const auto percent = [&](std::uint64_t count) {
    return percentage(static_cast<double>(count), size);
  };
  const double rounding = 1e-12 + static_cast<double>(size) * 0x1p-52;
  const auto bounds = outlier_bounds(result.sigma);
  constexpr std::array kBeyond = {
      &ResidualStatistics::outliers_1sigma, &ResidualStatistics::outliers_2sigma,
      &ResidualStatistics::outliers_3sigma, &ResidualStatistics::outliers_4sigma};
  result.outliers_015 = percent(sums.marked[kBeyondFixed]);
  for (std::size_t k = 0; k < kBeyond.size(); ++k) {
    const auto count =
        beyond_[k].beyond(bounds[k + 1], rounding, counts, size - sums.marked[kBeyondSigma + k]);
    if (!count) return false;
    result.*kBeyond[k] = percent(*count);
  }
  return true;
}

// Takes the objects nearest to the median of a resample, one entry after the other.
class Windows::Distances {
 public:
  // `near` drawn objects are taken: those in the gap, and the entries from left_ to before right_.
  Distances(const Windows& windows, double median, std::span<const std::uint8_t> counts,
            std::uint64_t near)
      : windows_(windows),
        entries_(windows.distant_.entries),
        median_(median),
        counts_(counts),
        near_(near),
        left_(windows.near_start_),
        right_(windows.near_end_),
        gap_(windows.gap_place_) {
    if (windows.has_gap_) return;
    gap_ = windows.distant_.first_from(median);
    left_ = gap_;
    right_ = gap_;
    near_ = 0;
  }

  // The median distance, or nothing if the window doesn't give it.
  std::optional<double> median(std::uint64_t size) {
    const std::uint64_t lower = (size - 1) / 2;
    level();
    if (!give_back(lower)) return std::nullopt;
    const std::optional<double> lower_value = take(lower);
    const std::optional<double> value = lower_value ? take(size / 2) : std::nullopt;
    if (!value || !has_all(*lower_value, *value)) return std::nullopt;
    return size % 2 == 0 ? (*value + *lower_value) / 2.0 : *value;
  }

 private:
  double distance(std::size_t i) const { return std::fabs(entries_[i].key() - median_); }
  std::uint64_t count(std::size_t i) const { return counts_[entries_[i].unit()]; }
  double next_left() const { return left_ == 0 ? kInfinity : distance(left_ - 1); }
  double next_right() const { return right_ == entries_.size() ? kInfinity : distance(right_); }

  // Moves both ends to the same distance.
  void level() {
    while (left_ < gap_ && distance(left_) > windows_.near_) near_ -= count(left_++);
    while (next_left() <= windows_.near_) near_ += count(--left_);
    while (right_ > gap_ && distance(right_ - 1) > windows_.near_) near_ -= count(--right_);
    while (next_right() <= windows_.near_) near_ += count(right_++);
  }

  // Gives back the most distant ones while there are more than `most`.
  bool give_back(std::uint64_t most) {
    while (near_ > most) {
      const double last_left = left_ < gap_ ? distance(left_) : -1;
      const double last_right = right_ > gap_ ? distance(right_ - 1) : -1;
      if (std::max(last_left, last_right) < 0) return false;
      near_ -= count(last_left >= last_right ? left_++ : --right_);
    }
    return true;
  }

  // Takes the nearest ones, until the one of this rank is among them. Returns its distance.
  std::optional<double> take(std::uint64_t rank) {
    while (near_ <= rank) {
      const double to_left = next_left();
      const double to_right = next_right();
      last_ = std::min(to_left, to_right);
      if (last_ == kInfinity) return std::nullopt;
      near_ += count(to_left <= to_right ? --left_ : right_++);
    }
    return last_;
  }

  // Whether both middle distances lie where the window has all objects.
  bool has_all(double lower, double upper) const {
    const Gap& gap = windows_.gap_;
    const Window& window = windows_.distant_;
    if (windows_.has_gap_ && lower < std::max(median_ - gap.low, gap.high - median_)) return false;
    return upper <= std::min(median_ - window.low, window.high - median_);
  }

  const Windows& windows_;
  std::span<const Window::Entry> entries_;
  double median_;
  std::span<const std::uint8_t> counts_;
  std::uint64_t near_;
  std::size_t left_;
  std::size_t right_;
  std::size_t gap_;
  double last_ = 0;
};

// Returns nothing if the windows don't have them.
std::optional<Windows::Medians> Windows::medians(std::span<const std::uint64_t> marked,
                                                 std::span<const std::uint8_t> counts,
                                                 std::uint64_t size) const {
  const auto median = median_.median(counts, marked[kBelowMedian], size);
  const auto absolute = absolute_.median(counts, marked[kBelowAbsolute], size);
  if (!median || !absolute) return std::nullopt;
  const auto distance = Distances(*this, *median, counts, marked[kNear]).median(size);
  if (!distance) return std::nullopt;
  return Medians{*median, *absolute, *distance};
}

// So far the middles are those of a sample. Replaces them by those of all objects, where walks
// start.
bool Windows::set_middles(std::array<std::uint64_t, 3> below, std::size_t units,
                          std::uint64_t size) {
  const std::vector<std::uint8_t> ones(units, 1);
  const auto found = medians(below, ones, size);
  if (!found) return false;
  median_.set_middle(found->median);
  absolute_.set_middle(found->absolute);
  if (has_gap_) {
    near_ = found->distance;
    near_low_ = found->median - near_;
    near_high_ = found->median + near_;
    place_near();
  }
  return true;
}

}  // namespace vostrel
