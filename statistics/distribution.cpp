#include "statistics/distribution.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>

#include "statistics/statistics.h"

namespace vostrel {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// So many values a bracket keeps before it counts them in cells.
constexpr std::size_t kMostKept = 16384;
// So many values a bracket is made to hold if the guess is good.
constexpr double kExpected = 8192;
constexpr std::size_t kCells = 4096;

// An integer that orders as the value does.
std::int64_t order_of(double value) {
  const auto bits = std::bit_cast<std::int64_t>(value);
  return bits < 0 ? std::numeric_limits<std::int64_t>::min() - bits : bits;
}

// How many values a bracket should hold, if `count` values share the bucket of what is looked for:
// ten standard deviations of a rank inside the bucket, and a bit for the guess of the density.
double expected_count(double count) {
  return std::min(16 + 10 * std::sqrt(count) + count / 64, kExpected);
}

// The middle ranks of n values: the same one twice when n is odd.
struct Ranks {
  std::uint64_t lower;
  std::uint64_t upper;
  explicit Ranks(std::uint64_t n) : lower(n % 2 == 0 ? n / 2 - 1 : n / 2), upper(n / 2) {}
  double middle() const {
    return (static_cast<double>(lower) + static_cast<double>(upper)) / 2 + 0.5;
  }
  // The values of the two ranks, of which `below` values are not among `values`.
  std::pair<double, double> select(std::vector<double>& values, std::uint64_t below) const {
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(lower - below);
    std::nth_element(values.begin(), at, values.end());
    return {*at, lower == upper ? *at : *std::min_element(at + 1, values.end())};
  }
  // The same sum as in order_statistics.cpp.
  double median_of(double at_lower, double at_upper) const {
    return lower == upper ? at_upper : (at_upper + at_lower) / 2.0;
  }
};

// A group of values of which only bounds and count are known, as in Bracket.
using Cell = Bracket::Cell;

// Bounds of the value of `rank` among the values of the cells.
std::pair<double, double> bounds_of_rank(std::vector<Cell>& cells, std::uint64_t rank) {
  const auto first_beyond = [&](double Cell::*bound) {
    std::sort(cells.begin(), cells.end(),
              [bound](const Cell& a, const Cell& b) { return a.*bound < b.*bound; });
    std::uint64_t passed = 0;
    for (const Cell& cell : cells) {
      passed += cell.count;
      if (passed > rank) return cell.*bound;
    }
    return kInfinity;
  };
  const double low = first_beyond(&Cell::low);
  return {low, first_beyond(&Cell::high)};
}

// Makes each cell of values one of their distances from a center.
void make_distances(std::vector<Cell>& cells, double center) {
  for (Cell& cell : cells) {
    const double low = std::fabs(cell.low - center);
    const double high = std::fabs(cell.high - center);
    const bool around = cell.low <= center && center <= cell.high;
    cell.low = around ? 0 : std::min(low, high);
    cell.high = std::max(low, high);
  }
}

}  // namespace

// ---- brackets ----

void Bracket::sift(std::span<const double> values) {
  for (const double value : values) {
    if (!(value >= from_ && value <= high_)) continue;
    if (value < low_) {
      ++below_;
    } else if (++inside_; cells_.empty() && values_.size() < kMostKept) {
      values_.push_back(value);
    } else {
      count_in_cell(value);
    }
  }
}

void Bracket::count_in_cell(double value) {
  const std::int64_t first = order_of(low_);
  const auto width =
      static_cast<std::uint64_t>(order_of(high_)) - static_cast<std::uint64_t>(first);
  // The smallest shift with which the last cell is one of kCells.
  const int bits = static_cast<int>(std::bit_width(width));
  const int shift = std::max(bits - static_cast<int>(std::bit_width(kCells - 1)), 0);
  const auto add = [&](double v) {
    const auto offset = static_cast<std::uint64_t>(order_of(v)) - static_cast<std::uint64_t>(first);
    Cell& cell = cells_[offset >> shift];
    cell.low = cell.count == 0 ? v : std::min(cell.low, v);
    cell.high = cell.count == 0 ? v : std::max(cell.high, v);
    ++cell.count;
  };
  if (cells_.empty()) {
    cells_.resize(kCells);
    for (const double kept : values_) add(kept);
    values_ = {};
  }
  add(value);
}

void Bracket::merge(const Bracket& other) {
  below_ += other.below_;
  if (other.cells_.empty()) {
    for (const double value : other.values_) {
      if (++inside_; cells_.empty() && values_.size() < kMostKept) {
        values_.push_back(value);
      } else {
        count_in_cell(value);
      }
    }
    return;
  }
  inside_ += other.inside_;
  if (cells_.empty()) {
    const std::vector<double> kept = std::move(values_);
    values_ = {};
    cells_ = other.cells_;
    for (const double value : kept) count_in_cell(value);
    return;
  }
  for (std::size_t i = 0; i < kCells; ++i) {
    Cell& cell = cells_[i];
    const Cell& more = other.cells_[i];
    if (more.count == 0) continue;
    cell.low = cell.count == 0 ? more.low : std::min(cell.low, more.low);
    cell.high = cell.count == 0 ? more.high : std::max(cell.high, more.high);
    cell.count += more.count;
  }
}

std::optional<std::uint64_t> Bracket::count_below(double bound, bool including) const {
  if (!(bound >= low_ && bound <= high_)) return std::nullopt;
  const auto is_below = [&](double value) { return including ? value <= bound : value < bound; };
  std::uint64_t count = below();
  for (const double value : values_) count += is_below(value);
  for (const Cell& cell : cells_) {
    if (cell.count == 0 || !is_below(cell.low)) continue;
    if (!is_below(cell.high)) return std::nullopt;
    count += cell.count;
  }
  return count;
}

std::vector<Cell> Bracket::cells() const {
  std::vector<Cell> cells;
  for (const double value : values_) cells.push_back({value, value, 1});
  for (const Cell& cell : cells_) {
    if (cell.count != 0) cells.push_back(cell);
  }
  return cells;
}

// ---- the plan ----

std::size_t Distribution::add_bracket(double low, double high) {
  const auto first =
      std::lower_bound(buckets_.begin(), buckets_.end(), low,
                       [](const Histogram::Bucket& b, double value) { return b.high < value; });
  const auto last =
      std::upper_bound(first, buckets_.end(), high,
                       [](double value, const Histogram::Bucket& b) { return value < b.low; });
  if (first == last) {
    const std::uint64_t before = first == buckets_.end() ? size() : first->before;
    next_.emplace_back(low, high, kInfinity, -kInfinity, before);
  } else {
    next_.emplace_back(low, high, first->low, (last - 1)->high, first->before);
  }
  return next_.size() - 1;
}

void Distribution::guess_median() {
  const Guess guess(buckets_);
  const double center = guess.value(Ranks(size()).middle());
  const auto [density, count] = guess.density(center);
  double width = expected_count(count) / 2 / density;
  if (!std::isfinite(width)) width = 0;
  median_.right = add_bracket(center - width, center + width);
  if (std::isfinite(center)) guess_distances(about_median_, center, width);
}

// Brackets for the median of the distances from a center that is known up to `uncertainty`.
void Distribution::guess_distances(Middle& middle, double center, double uncertainty) {
  const Guess guess(buckets_);
  const double rank = Ranks(size()).middle();
  double low = 0;
  double high = 0;  // of the finite values
  for (const auto* bucket : {&buckets_.front(), &buckets_.back()}) {
    for (const double bound : {bucket->low, bucket->high}) {
      if (std::isfinite(bound)) high = std::max(high, std::fabs(bound - center));
    }
  }
  if (!std::isfinite(high)) high = std::numeric_limits<double>::max();
  for (int step = 0; step < 80; ++step) {
    const double distance = low + (high - low) / 2;
    const double inside = guess.below(center + distance) - guess.below(center - distance);
    (inside < rank ? low : high) = distance;
  }
  const auto [right_density, right_count] = guess.density(center + high);
  const auto [left_density, left_count] = guess.density(center - high);
  const double half = expected_count(right_count + left_count) / 2;
  double width = half / (right_density + left_density) + uncertainty;
  if (!std::isfinite(width)) width = uncertainty;
  bracket_distances(middle, center, std::max(high - width, 0.0), high + width);
}

// Brackets for the values at distances from `low` to `high`, a few roundings wider.
void Distribution::bracket_distances(Middle& middle, double center, double low, double high) {
  const double slack = 4 * std::numeric_limits<double>::epsilon() * (std::fabs(center) + high);
  low -= slack;
  high += slack;
  if (low > 0 && center - low < center + low) {
    middle.left = add_bracket(center - high, center - low);
    middle.right = add_bracket(center + low, center + high);
  } else {
    middle.left.reset();
    middle.right = add_bracket(center - high, center + high);
  }
}

// Brackets that hold the median of the distances for certain, since the buckets' bounds do.
void Distribution::bracket_distances_surely(Middle& middle, double center) {
  std::vector<Cell> cells;
  for (const auto& bucket : buckets_) cells.push_back({bucket.low, bucket.high, bucket.count});
  make_distances(cells, center);
  const Ranks ranks(size());
  const double low = bounds_of_rank(cells, ranks.lower).first;
  bracket_distances(middle, center, low, bounds_of_rank(cells, ranks.upper).second);
}

void Distribution::plan(double sigma_low, double sigma_high) {
  buckets_ = histogram_.buckets();
  guess_median();
  guess_distances(absolute_, 0, 0);
  const auto lows = outlier_bounds(sigma_low);
  const auto highs = outlier_bounds(sigma_high);
  for (std::size_t k = 0; k < lows.size(); ++k) {
    add_bracket(lows[k], highs[k]);
    add_bracket(-highs[k], -lows[k]);
  }
  start_pass();
}

void Distribution::start_pass() {
  brackets_ = std::move(next_);
  next_.clear();
  flags_.assign(histogram_.places(), 0);
  for (const auto& bucket : buckets_) {
    for (const Bracket& bracket : brackets_) {
      if (bucket.high >= bracket.from() && bucket.low <= bracket.to()) flags_[bucket.place] = 1;
    }
  }
}

void Distribution::sift(std::span<const double> values) {
  for (Bracket& bracket : brackets_) bracket.sift(values);
}

void Distribution::merge(const Distribution& other) {
  if (buckets_.empty()) {
    histogram_.merge(other.histogram_);
  } else {
    for (std::size_t i = 0; i < brackets_.size(); ++i) brackets_[i].merge(other.brackets_[i]);
  }
}

// ---- the answers ----

bool Distribution::resolve(double sigma) {
  if (!median_.answer) resolve_median();
  if (!absolute_.answer) resolve_distances(absolute_, 0);
  if (!about_median_.answer && median_.answer) {
    if (std::isfinite(*median_.answer)) {
      resolve_distances(about_median_, *median_.answer);
    } else {
      about_median_.answer = std::numeric_limits<double>::quiet_NaN();
    }
  }
  const auto bounds = outlier_bounds(sigma);
  for (std::size_t k = 0; k < bounds.size(); ++k) {
    if (outliers_[k]) continue;
    outliers_[k] = count_beyond(bounds[k]);
    if (outliers_[k]) continue;
    add_bracket(bounds[k], bounds[k]);
    add_bracket(-bounds[k], -bounds[k]);
  }
  if (next_.empty()) return true;
  start_pass();
  return false;
}

std::array<std::uint64_t, 5> Distribution::outliers() const {
  std::array<std::uint64_t, 5> counts{};
  for (std::size_t k = 0; k < counts.size(); ++k) counts[k] = *outliers_[k];
  return counts;
}

void Distribution::resolve_median() {
  const Ranks ranks(size());
  const Bracket& bracket = brackets_[median_.right];
  const std::uint64_t below = bracket.below();
  if (ranks.lower < below || ranks.upper >= below + bracket.inside()) {
    // The guess was wrong. The buckets of the two ranks hold the median for certain.
    const auto bucket_of = [&](std::uint64_t rank) {
      return *std::upper_bound(
          buckets_.begin(), buckets_.end(), rank,
          [](std::uint64_t r, const Histogram::Bucket& b) { return r < b.before + b.count; });
    };
    median_.right = add_bracket(bucket_of(ranks.lower).low, bucket_of(ranks.upper).high);
  } else if (bracket.keeps_values()) {
    std::vector<double> values(bracket.values().begin(), bracket.values().end());
    const auto [at_lower, at_upper] = ranks.select(values, below);
    median_.answer = ranks.median_of(at_lower, at_upper);
    return;
  } else {
    std::vector<Cell> cells = bracket.cells();
    const auto lower = bounds_of_rank(cells, ranks.lower - below);
    const auto upper = bounds_of_rank(cells, ranks.upper - below);
    if (lower.first == lower.second && upper.first == upper.second) {
      median_.answer = ranks.median_of(lower.first, upper.first);
      return;
    }
    median_.right = add_bracket(lower.first, upper.second);
  }
  // The brackets of the distances from the median depend on it.
  const Bracket& again = next_[median_.right];
  const double center = again.low() / 2 + again.high() / 2;
  if (std::isfinite(center)) {
    guess_distances(about_median_, center, again.high() / 2 - again.low() / 2);
  }
}

// Inside the two brackets lie values nearer to the center, outside of them more distant ones. How
// near and how distant is told by the distances of the bounds, since subtraction and its rounding
// keep the order. A distance between those limits has its rank among all distances for certain.
void Distribution::resolve_distances(Middle& middle, double center) {
  const Ranks ranks(size());
  const Bracket& right = brackets_[middle.right];
  const Bracket* const left = middle.left ? &brackets_[*middle.left] : nullptr;
  std::uint64_t nearer = 0;
  double nearest = 0;
  if (left != nullptr) {
    nearer = right.below() - (left->below() + left->inside());
    nearest = std::max(std::fabs(left->high() - center), std::fabs(right.low() - center));
  }
  const double lowest = left != nullptr ? left->low() : right.low();
  const double farthest = std::min(std::fabs(lowest - center), std::fabs(right.high() - center));
  const std::uint64_t inside = right.inside() + (left != nullptr ? left->inside() : 0);

  if (ranks.lower >= nearer && ranks.upper < nearer + inside) {
    if (right.keeps_values() && (left == nullptr || left->keeps_values())) {
      std::vector<double> distances;
      distances.reserve(inside);
      for (const Bracket* bracket : {left, &right}) {
        if (bracket == nullptr) continue;
        for (const double value : bracket->values()) distances.push_back(std::fabs(value - center));
      }
      const auto [at_lower, at_upper] = ranks.select(distances, nearer);
      if (at_lower >= nearest && at_upper <= farthest) {
        middle.answer = ranks.median_of(at_lower, at_upper);
        return;
      }
    } else {
      std::vector<Cell> cells = right.cells();
      if (left != nullptr) {
        for (const Cell& cell : left->cells()) cells.push_back(cell);
      }
      make_distances(cells, center);
      const auto lower = bounds_of_rank(cells, ranks.lower - nearer);
      const auto upper = bounds_of_rank(cells, ranks.upper - nearer);
      if (lower.first >= nearest && upper.second <= farthest) {
        if (lower.first == lower.second && upper.first == upper.second) {
          middle.answer = ranks.median_of(lower.first, upper.first);
        } else {
          bracket_distances(middle, center, lower.first, upper.second);
        }
        return;
      }
    }
  }
  bracket_distances_surely(middle, center);
}

std::optional<std::uint64_t> Distribution::count_below(double bound, bool including) const {
  // The bucket that the bound cuts.
  auto bucket = std::lower_bound(buckets_.begin(), buckets_.end(), bound,
                                 [&](const Histogram::Bucket& b, double value) {
                                   return including ? b.high <= value : b.high < value;
                                 });
  if (bucket == buckets_.end()) return size();
  if (including ? bucket->low > bound : bucket->low >= bound) return bucket->before;
  for (const Bracket& bracket : brackets_) {
    if (const auto count = bracket.count_below(bound, including)) return count;
  }
  return std::nullopt;
}

std::optional<std::uint64_t> Distribution::count_beyond(double bound) const {
  if (std::isnan(bound)) return 0;
  const auto at_most = count_below(bound, true);
  const auto below = count_below(-bound, false);
  if (!at_most || !below) return std::nullopt;
  return size() - *at_most + *below;
}

}  // namespace vostrel
