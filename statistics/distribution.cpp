#include "statistics/distribution.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "floating_point.h"
#include "statistics/order_of.h"
#include "statistics/statistics.h"

namespace vostrel {

namespace {

constexpr double kLargest = std::numeric_limits<double>::max();

// How many values a bracket keeps. More are counted in cells.
constexpr std::size_t kMostKept = 16384;
// How many values a bracket about a guess should hold at most.
constexpr double kExpected = 8192;
constexpr std::size_t kCells = 4096;

double nearest_finite(double value) { return std::clamp(value, -kLargest, kLargest); }
double next_above(double value) { return std::nextafter(value, kInfinity); }
double next_below(double value) { return std::nextafter(value, -kInfinity); }

// The largest value that is `distance` or less above the center. A rounded subtraction keeps the
// order, so bisection finds it. Requires: the center is finite, and distance >= 0.
double farthest_above(double center, double distance) {
  std::int64_t within = order_of(center);
  std::int64_t end = order_of(kInfinity);
  while (within < end) {
    const std::int64_t middle = std::midpoint(end, within);  // rounds towards `end`
    if (value_of(middle) - center <= distance) {
      within = middle;
    } else {
      end = middle - 1;
    }
  }
  return value_of(within);
}

// How many doubles apart two values are.
std::uint64_t steps_between(double low, double high) {
  return static_cast<std::uint64_t>(order_of(high)) - static_cast<std::uint64_t>(order_of(low));
}

// How many values a bracket should hold, if the bucket of the wanted value has `count` values: ten
// standard deviations of a rank inside the bucket, and some more for the error of the density.
double expected_count(double count) {
  return std::min(16 + 10 * std::sqrt(count) + count / 64, kExpected);
}

using Cell = Bracket::Cell;

// Bounds of the value of `rank` among the values of all cells.
std::pair<double, double> bounds_of_rank(std::vector<Cell>& cells, std::uint64_t rank) {
  std::erase_if(cells, [](const Cell& cell) { return cell.count == 0; });
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

// Turns each cell of values into a cell of their distances from a center.
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

void Bracket::sift(std::span<const Run> runs) {
  for (const Run& run : runs) {
    if (!(run.value >= from_ && run.value <= high_)) continue;
    if (run.value < low_) {
      below_ += run.count;
    } else {
      take(run);
    }
  }
}

void Bracket::take(Run run) {
  inside_ += run.count;
  if (cells_.empty()) {
    if (run.count <= kMostKept - values_.size()) {
      values_.insert(values_.end(), static_cast<std::size_t>(run.count), run.value);
      return;
    }
    start_cells();
  }
  count_in_cell(run);
}

double Bracket::key(double value) const { return center_ ? std::fabs(value - *center_) : value; }

void Bracket::start_cells() {
  const auto [lowest, highest] = std::minmax({key(low_), key(high_)});
  lowest_key_ = lowest;
  const auto bits = static_cast<int>(std::bit_width(steps_between(lowest, highest)));
  cell_shift_ = std::max(bits - static_cast<int>(std::bit_width(kCells - 1)), 0);
  cells_.resize(kCells);
  for (const double value : std::exchange(values_, {})) count_in_cell({value, 1});
}

void Bracket::count_in_cell(Run run) {
  Cell& cell = cells_[steps_between(lowest_key_, key(run.value)) >> cell_shift_];
  cell.low = cell.count == 0 ? run.value : std::min(cell.low, run.value);
  cell.high = cell.count == 0 ? run.value : std::max(cell.high, run.value);
  cell.count += run.count;
}

void Bracket::merge(const Bracket& other) {
  if (!(low_ == other.low_ && high_ == other.high_ && from_ == other.from_ && to_ == other.to_ &&
        before_ == other.before_ && center_ == other.center_)) {
    throw std::invalid_argument("these states are not of the same pass");
  }
  below_ += other.below_;
  for (const double value : other.values_) take({value, 1});
  if (other.cells_.empty()) return;
  inside_ += other.inside_;
  if (cells_.empty()) start_cells();
  for (std::size_t i = 0; i < cells_.size(); ++i) {
    Cell& cell = cells_[i];
    const Cell& more = other.cells_[i];
    if (more.count == 0) continue;
    cell.low = cell.count == 0 ? more.low : std::min(cell.low, more.low);
    cell.high = cell.count == 0 ? more.high : std::max(cell.high, more.high);
    cell.count += more.count;
  }
}

void Bracket::write(ByteWriter& out) const {
  for (const double bound : {low_, high_, from_, to_}) out.number(bound);
  for (const std::uint64_t count : {before_, below_, inside_}) out.integer(count);
  out.integer(center_.has_value());
  if (center_) out.number(*center_);
  out.integer(values_.size());
  for (const double value : values_) out.number(value);
  out.integer(cells_.size());
  for (const Cell& cell : cells_) {
    out.integer(cell.count);
    if (cell.count == 0) continue;
    out.number(cell.low);
    out.number(cell.high);
  }
}

Bracket Bracket::read(ByteReader& in) {
  Bracket bracket{in.number(), in.number(), in.number(), in.number(), 0, {}};  // in this order
  bracket.before_ = in.integer();
  bracket.below_ = in.integer();
  bracket.inside_ = in.integer();
  if (in.index(2) == 1) {
    bracket.center_ = in.number();
    in.require(std::isfinite(*bracket.center_) &&
               (bracket.low_ >= *bracket.center_ || bracket.high_ <= *bracket.center_));
  }
  bracket.values_.resize(in.count());
  in.require(!std::isnan(bracket.low_) && !std::isnan(bracket.high_));
  const auto is_inside = [&](double value) {
    return value >= bracket.low_ && value <= bracket.high_;
  };
  for (double& value : bracket.values_) {
    value = in.number();
    in.require(is_inside(value));
  }
  std::vector<Cell> cells(in.count());
  in.require(cells.empty() || (cells.size() == kCells && bracket.values_.empty()));
  if (!cells.empty()) bracket.start_cells();
  std::uint64_t inside = bracket.values_.size();
  for (Cell& cell : cells) {
    cell.count = in.integer();
    inside += cell.count;
    if (cell.count == 0) continue;
    cell.low = in.number();
    cell.high = in.number();
    in.require(is_inside(cell.low) && is_inside(cell.high));
  }
  in.require(bracket.inside_ == inside);
  bracket.cells_ = std::move(cells);
  return bracket;
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

// ---- the plan ----

std::size_t Distribution::add_bracket(double low, double high, std::optional<double> center) {
  const auto first =
      std::lower_bound(buckets_.begin(), buckets_.end(), low,
                       [](const Histogram::Bucket& b, double value) { return b.high < value; });
  const auto last =
      std::upper_bound(first, buckets_.end(), high,
                       [](double value, const Histogram::Bucket& b) { return value < b.low; });
  if (first == last) {
    const std::uint64_t before = first == buckets_.end() ? size() : first->before;
    next_.emplace_back(low, high, kInfinity, -kInfinity, before, center);
  } else {
    // -0 is in the bucket before that of 0. A bracket that takes the one takes the other.
    const bool cuts_zeros = first != buckets_.begin() && (first - 1)->high == first->low;
    const auto from = cuts_zeros ? first - 1 : first;
    next_.emplace_back(low, high, from->low, (last - 1)->high, from->before, center);
  }
  return next_.size() - 1;
}

void Distribution::guess_median() {
  const Guess guess(buckets_);
  const double center = guess.value(static_cast<double>(size()) / 2);
  const auto [density, count] = guess.density(center);
  double width = expected_count(count) / 2 / density;
  if (!std::isfinite(width)) width = 0;
  median_.lower.right = median_.upper.right = add_bracket(center - width, center + width);
  guess_distances(about_median_, nearest_finite(center), width);
}

// Brackets the median of the distances from a center that is known to within `uncertainty`.
void Distribution::guess_distances(Middle& middle, double center, double uncertainty) {
  const Guess guess(buckets_);
  const double rank = static_cast<double>(size()) / 2;
  double low = 0;
  double high = 0;  // of the finite values
  for (const auto* bucket : {&buckets_.front(), &buckets_.back()}) {
    for (const double bound : {bucket->low, bucket->high}) {
      if (std::isfinite(bound)) high = std::max(high, std::fabs(bound - center));
    }
  }
  high = nearest_finite(high);
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
  bracket_distances(middle.lower, center, std::max(high - width, 0.0), high + width);
  middle.upper.left = middle.lower.left;
  middle.upper.right = middle.lower.right;
}

// Brackets exactly the values at distances from `low` to `high`.
void Distribution::bracket_distances(Place& place, double center, double low, double high) {
  double left_high = center;
  double right_low = next_above(center);
  if (low > 0) {
    left_high = -next_above(farthest_above(-center, next_below(low)));
    right_low = next_above(farthest_above(center, next_below(low)));
  }
  place.left = add_bracket(-farthest_above(-center, high), left_high, center);
  place.right = add_bracket(right_low, farthest_above(center, high), center);
}

// Brackets the place by bounds that follow from those of the buckets, so they are certain.
void Distribution::bracket_surely(Place& place, std::optional<double> center) {
  std::vector<Cell> cells;
  for (const auto& bucket : buckets_) cells.push_back({bucket.low, bucket.high, bucket.count});
  if (center) make_distances(cells, *center);
  const auto [low, high] = bounds_of_rank(cells, place.rank);
  if (center) {
    bracket_distances(place, *center, low, high);
  } else {
    place.right = add_bracket(low, high);
  }
}

void Distribution::plan(double sigma_low, double sigma_high) {
  is_planned_ = true;
  find_buckets();
  if (size_ == 0) {
    start_pass();
    return;
  }
  for (Middle* middle : {&median_, &absolute_, &about_median_}) {
    middle->lower.rank = (size() - 1) / 2;
    middle->upper.rank = size() / 2;
  }
  guess_median();
  guess_distances(absolute_, 0, 0);
  const auto lows = outlier_bounds(sigma_low);
  const auto highs = outlier_bounds(sigma_high);
  for (std::size_t k = 0; k < lows.size(); ++k) {
    if (!(lows[k] <= highs[k])) continue;  // nothing is beyond NaN
    add_bracket(lows[k], highs[k]);
    add_bracket(-highs[k], -lows[k]);
  }
  start_pass();
  buckets_ = std::vector<Histogram::Bucket>();
}

void Distribution::find_buckets() {
  buckets_ = histogram_.buckets();
  size_ = buckets_.empty() ? 0 : buckets_.back().before + buckets_.back().count;
}

void Distribution::start_pass() {
  brackets_ = std::exchange(next_, {});
  flag_buckets();
}

void Distribution::flag_buckets() {
  flags_.assign(histogram_.places(), 0);
  for (const auto& bucket : buckets_) {
    for (const Bracket& bracket : brackets_) {
      if (bucket.high >= bracket.from() && bucket.low <= bracket.to()) flags_[bucket.place] = 1;
    }
  }
}

void Distribution::sift(std::span<const double> values) {
  std::array<Bracket::Run, 256> runs;
  while (!values.empty()) {
    const std::size_t most = std::min(values.size(), runs.size());
    std::size_t count = 0;
    for (const double value : values.first(most)) {
      if (count > 0 && runs[count - 1].value == value) {
        ++runs[count - 1].count;
      } else {
        runs[count++] = {value, 1};
      }
    }
    for (Bracket& bracket : brackets_) bracket.sift({runs.data(), count});
    values = values.subspan(most);
  }
}

// ---- states ----

void Distribution::merge(const Distribution& other) {
  if (!is_planned_) {
    histogram_.merge(other.histogram_);
    return;
  }
  if (brackets_.size() != other.brackets_.size()) {
    throw std::invalid_argument("these states are not of the same pass");
  }
  for (std::size_t i = 0; i < brackets_.size(); ++i) brackets_[i].merge(other.brackets_[i]);
}

Distribution Distribution::fresh() const {
  if (!is_planned_) return {};
  Distribution fresh = *this;
  for (Bracket& bracket : fresh.brackets_) bracket = bracket.fresh();
  return fresh;
}

void Distribution::write(ByteWriter& out) const {
  histogram_.write(out);
  out.integer(is_planned_);
  if (!is_planned_) return;
  out.integer(brackets_.size());
  for (const Bracket& bracket : brackets_) bracket.write(out);
  for (const Middle* middle : {&median_, &absolute_, &about_median_}) {
    for (const Place* place : {&middle->lower, &middle->upper}) {
      out.integer(place->rank);
      out.integer(place->value.has_value());
      if (place->value) {
        out.number(*place->value);
      } else {
        out.integer(place->left ? *place->left + 1 : 0);
        out.integer(place->right);
      }
    }
  }
  for (const auto& count : outliers_) {
    out.integer(count.has_value());
    if (count) out.integer(*count);
  }
}

Distribution Distribution::read(ByteReader& in) {
  Distribution distribution;
  distribution.histogram_ = Histogram::read(in);
  distribution.is_planned_ = in.index(2) == 1;
  if (!distribution.is_planned_) return distribution;
  distribution.find_buckets();
  auto& brackets = distribution.brackets_;
  for (std::size_t count = in.count(); count > 0; --count) brackets.push_back(Bracket::read(in));
  for (Middle* middle :
       {&distribution.median_, &distribution.absolute_, &distribution.about_median_}) {
    for (Place* place : {&middle->lower, &middle->upper}) {
      place->rank = in.integer();
      in.require(place->rank <= distribution.size());
      if (in.index(2) == 1) {
        place->value = in.number();
        continue;
      }
      const std::size_t left = in.index(brackets.size() + 1);
      in.require(brackets.empty() || (left == 0) == (middle == &distribution.median_));
      if (left > 0) place->left = left - 1;
      place->right = in.index(std::max<std::size_t>(brackets.size(), 1));
    }
  }
  for (auto& count : distribution.outliers_) {
    if (in.index(2) == 1) count = in.integer();
  }
  in.require(brackets.empty() == (distribution.size() == 0));
  distribution.flag_buckets();
  distribution.buckets_ = std::vector<Histogram::Bucket>();
  return distribution;
}

// ---- the answers ----

bool Distribution::is_known() const {
  const bool has_medians = median_.is_known() && absolute_.is_known() && about_median_.is_known();
  const bool has_outliers =
      std::all_of(outliers_.begin(), outliers_.end(), [](const auto& o) { return o.has_value(); });
  return has_outliers && (size_ == 0 || has_medians);
}

double Distribution::Middle::median() const {
  // The same sum as in order_statistics.cpp.
  return lower.rank == upper.rank ? *upper.value : (*upper.value + *lower.value) / 2.0;
}

bool Distribution::resolve(double sigma) {
  if (size_ == 0) {
    outliers_.fill(0);
    return true;
  }
  find_buckets();
  resolve(absolute_, 0.0);
  if (!median_.is_known()) {
    resolve(median_, std::nullopt);
    if (!median_.is_known()) {
      const Place& open = median_.lower.value ? median_.upper : median_.lower;
      const Bracket& bracket = next_[open.right];
      const double center = nearest_finite(bracket.low()) / 2 + nearest_finite(bracket.high()) / 2;
      guess_distances(about_median_, center, bracket.high() - center);
    }
  }
  if (median_.is_known()) {
    if (std::isfinite(median())) {
      resolve(about_median_, median());
    } else {
      about_median_.lower.value = about_median_.upper.value = kNaN;
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
  const bool done = next_.empty();
  if (!done) start_pass();
  buckets_ = std::vector<Histogram::Bucket>();
  return done;
}

std::array<std::uint64_t, 5> Distribution::outliers() const {
  std::array<std::uint64_t, 5> counts{};
  for (std::size_t k = 0; k < counts.size(); ++k) counts[k] = *outliers_[k];
  return counts;
}

void Distribution::resolve(Middle& middle, std::optional<double> center) {
  resolve(middle.upper, center);
  if (middle.lower.rank == middle.upper.rank) {
    middle.lower = middle.upper;
  } else {
    resolve(middle.lower, center);
  }
}

// Without a center, the place is a rank among the values themselves.
void Distribution::resolve(Place& place, std::optional<double> center) {
  if (place.value) return;
  const auto bounds = bounds_of(place, center);
  if (!bounds) {
    bracket_surely(place, center);
  } else if (bounds->first == bounds->second) {
    place.value = bounds->first;
  } else if (center) {
    bracket_distances(place, *center, bounds->first, bounds->second);
  } else {
    place.right = add_bracket(bounds->first, bounds->second);
  }
}

// Bounds of the value of a place. They are equal if it is known. Nothing if the value is not in its
// brackets.
//
// The two brackets of a distance may have been made about a guessed center. Values between them are
// nearer to the center, and values outside are farther away, unless the center itself is outside.
// How near and how far follows from the nearest doubles outside the brackets, because a rounded
// subtraction keeps the order. Between these two limits, the brackets hold every distance. So the
// rank of a distance there is its rank in the brackets plus the number of values between them.
std::optional<std::pair<double, double>> Distribution::bounds_of(
    const Place& place, std::optional<double> center) const {
  const Bracket& right = brackets_[place.right];
  std::vector<const Bracket*> brackets = {&right};
  std::uint64_t before = right.below();
  double nearest = -kInfinity;
  double farthest = kInfinity;
  if (center) {
    const Bracket& left = brackets_[*place.left];
    if (*center < left.low() || *center > right.high()) return std::nullopt;
    brackets.push_back(&left);
    before = right.below() - (left.below() + left.inside());
    const auto distance = [&](double value) { return std::fabs(value - *center); };
    const double above_left = next_above(left.high());
    if (above_left < right.low()) {
      nearest = std::max(distance(above_left), distance(next_below(right.low())));
    }
    farthest = std::min(distance(next_below(left.low())), distance(next_above(right.high())));
  }
  std::uint64_t inside = 0;
  bool all_kept = true;
  for (const Bracket* bracket : brackets) {
    inside += bracket->inside();
    all_kept = all_kept && bracket->cells().empty();
  }
  if (place.rank < before || place.rank >= before + inside) return std::nullopt;
  const std::uint64_t rank = place.rank - before;

  std::pair<double, double> bounds;
  if (all_kept) {
    std::vector<double> values;
    values.reserve(inside);
    for (const Bracket* bracket : brackets) {
      for (const double value : bracket->values()) {
        values.push_back(center ? std::fabs(value - *center) : value);
      }
    }
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), at, values.end());
    bounds = {*at, *at};
  } else {
    std::vector<Cell> cells;
    for (const Bracket* bracket : brackets) {
      for (const double value : bracket->values()) cells.push_back({value, value, 1});
      cells.insert(cells.end(), bracket->cells().begin(), bracket->cells().end());
    }
    if (center) make_distances(cells, *center);
    bounds = bounds_of_rank(cells, rank);
  }
  if (bounds.first < nearest || bounds.second > farthest) return std::nullopt;
  return bounds;
}

std::optional<std::uint64_t> Distribution::count_below(double bound, bool including) const {
  // The bucket that the bound divides, if there is one.
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
