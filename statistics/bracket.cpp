#include "statistics/bracket.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

#include "floating_point.h"

namespace vostrel {

namespace {

// The most values that a bracket keeps.
constexpr std::size_t kMostKept = 32768;

// The value of a rank among runs.
template <class Runs, class Key>
double select_run(Runs& runs, std::uint64_t rank, Key key) {
  const bool all_single =
      std::all_of(runs.begin(), runs.end(), [](const auto& run) { return run.count == 1; });
  const auto less = [&](const auto& a, const auto& b) { return key(a.value) < key(b.value); };
  if (all_single) {
    const auto place = runs.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(runs.begin(), place, runs.end(), less);
    return key(place->value);
  }
  std::sort(runs.begin(), runs.end(), less);
  auto run = runs.begin();
  for (; run->count <= rank; ++run) rank -= run->count;
  return key(run->value);
}

}  // namespace

void Bracket::extend(Interval keys) {
  keys_.low = std::min(keys_.low, keys.low);
  keys_.high = std::max(keys_.high, keys.high);
}

void Bracket::start(std::uint64_t before, std::uint64_t most, int bits) {
  before_ = before;
  first_ = static_cast<std::uint64_t>(order_of(keys_.low));
  const std::uint64_t span = static_cast<std::uint64_t>(order_of(keys_.high)) - first_;
  const auto span_bits = static_cast<int>(std::bit_width(span));
  const bool keeps_all = most <= kMostKept;
  shift_ = keeps_all ? std::min(span_bits, 63) : std::max(span_bits - bits, 0);
  const auto cells = static_cast<std::size_t>(span >> shift_) + 1;
  counts_.assign(cells, 0);
  keeps_.assign(cells, keeps_all);
  for (const Interval& keys : std::exchange(wanted_, {})) {
    if (!(keys.low <= keys_.high && keys.high >= keys_.low)) continue;
    const auto from = static_cast<std::ptrdiff_t>(cell_of(std::max(keys.low, keys_.low)));
    const auto to = static_cast<std::ptrdiff_t>(cell_of(std::min(keys.high, keys_.high)));
    std::fill(keeps_.begin() + from, keeps_.begin() + to + 1, std::uint8_t{1});
  }
}

Interval Bracket::keys_of(std::size_t cell) const {
  const std::uint64_t first = first_ + (std::uint64_t{cell} << shift_);
  const std::uint64_t last = first + ((std::uint64_t{1} << shift_) - 1);
  return {cell == 0 ? keys_.low : value_of(static_cast<std::int64_t>(first)),
          cell + 1 == counts_.size() ? keys_.high : value_of(static_cast<std::int64_t>(last))};
}

void Bracket::take_inside(double key, double value, std::uint64_t count) {
  inside_ += count;
  const std::size_t cell = cell_of(key);
  counts_[cell] += count;
  if (value == 0) (std::signbit(value) ? has_negative_zero_ : has_positive_zero_) = true;
  if (keeps_[cell] != 0) keep_value(value, count);
}

void Bracket::keep_value(double value, std::uint64_t count) {
  if (!runs_.empty()) {
    const auto found = std::lower_bound(runs_.begin(), runs_.end(), value,
                                        [](const Run& run, double v) { return run.value < v; });
    if (found != runs_.end() && found->value == value) {
      found->count += count;
      return;
    }
  }
  if (count > kMostKept - values_.size() - runs_.size()) {
    sort_runs();
    if (runs_.size() > kMostKept / 2) {  // too many different values
      keeps_.assign(keeps_.size(), 0);
      runs_ = std::vector<Run>();
      return;
    }
    runs_.push_back({value, count});
    sort_runs();
    return;
  }
  values_.insert(values_.end(), static_cast<std::size_t>(count), value);
}

// Makes runs of all values.
void Bracket::sort_runs() {
  for (const double value : std::exchange(values_, {})) runs_.push_back({value, 1});
  std::sort(runs_.begin(), runs_.end(),
            [](const Run& a, const Run& b) { return a.value < b.value; });
  std::size_t last = 0;
  for (std::size_t i = 1; i < runs_.size(); ++i) {
    if (runs_[i].value == runs_[last].value) {
      runs_[last].count += runs_[i].count;
    } else {
      runs_[++last] = runs_[i];
    }
  }
  if (!runs_.empty()) runs_.resize(last + 1);
}

// ---- states ----

Bracket Bracket::fresh() const {
  Bracket fresh = *this;
  fresh.below_ = fresh.inside_ = 0;
  fresh.has_negative_zero_ = fresh.has_positive_zero_ = false;
  fresh.counts_.assign(counts_.size(), 0);
  fresh.values_ = std::vector<double>();
  fresh.runs_ = std::vector<Run>();
  return fresh;
}

void Bracket::merge(const Bracket& other) {
  if (!(key_ == other.key_ && keys_.low == other.keys_.low && keys_.high == other.keys_.high &&
        before_ == other.before_ && shift_ == other.shift_)) {
    throw std::invalid_argument("states belong to different passes");
  }
  below_ += other.below_;
  inside_ += other.inside_;
  has_negative_zero_ |= other.has_negative_zero_;
  has_positive_zero_ |= other.has_positive_zero_;
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    counts_[i] += other.counts_[i];
    keeps_[i] = keeps_[i] != 0 && other.keeps_[i] != 0;
  }
  const auto keep = [&](double value, std::uint64_t count) {
    if (keeps_[cell_of(key_(value))] != 0) keep_value(value, count);
  };
  for (const double value : other.values_) keep(value, 1);
  for (const Run& run : other.runs_) keep(run.value, run.count);
}

void Bracket::write(ByteWriter& out) const {
  out.integer(key_.center.has_value());
  if (key_.center) out.number(*key_.center);
  for (const double bound : {keys_.low, keys_.high}) out.number(bound);
  out.integer(static_cast<std::uint64_t>(shift_));
  for (const std::uint64_t count : {before_, below_, inside_}) out.integer(count);
  out.integer(has_negative_zero_);
  out.integer(has_positive_zero_);
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    out.integer(counts_[i]);
    out.integer(keeps_[i]);
  }
  out.numbers(values_);
  out.integer(runs_.size());
  for (const Run& run : runs_) {
    out.number(run.value);
    out.integer(run.count);
  }
}

Bracket Bracket::read(ByteReader& in) {
  Key key;
  if (in.index(2) == 1) {
    key.center = in.number();
    in.require(std::isfinite(*key.center));
  }
  const Interval keys{in.number(), in.number()};  // in this order
  in.require(keys.low <= keys.high);
  Bracket bracket(key, keys);
  bracket.first_ = static_cast<std::uint64_t>(order_of(keys.low));
  const std::uint64_t span = static_cast<std::uint64_t>(order_of(keys.high)) - bracket.first_;
  bracket.shift_ = static_cast<int>(in.index(64));
  in.require(span >> bracket.shift_ <= std::uint64_t{1} << kMostBits);
  bracket.before_ = in.integer();
  bracket.below_ = in.integer();
  bracket.inside_ = in.integer();
  bracket.has_negative_zero_ = in.index(2) == 1;
  bracket.has_positive_zero_ = in.index(2) == 1;
  bracket.counts_.resize(static_cast<std::size_t>(span >> bracket.shift_) + 1);
  bracket.keeps_.resize(bracket.counts_.size());
  std::uint64_t inside = 0;
  for (std::size_t i = 0; i < bracket.counts_.size(); ++i) {
    inside += bracket.counts_[i] = in.integer();
    bracket.keeps_[i] = static_cast<std::uint8_t>(in.index(2));
  }
  in.require(inside == bracket.inside_);
  std::vector<std::uint64_t> kept(bracket.counts_.size());
  const auto expect_kept = [&](double value, std::uint64_t count) {
    const double k = key(value);
    in.require(k >= keys.low && k <= keys.high);
    kept[bracket.cell_of(k)] += count;
  };
  bracket.values_ = in.numbers();
  for (const double value : bracket.values_) expect_kept(value, 1);
  bracket.runs_.resize(in.count());
  for (Run& run : bracket.runs_) {
    run.value = in.number();
    run.count = in.integer();
    expect_kept(run.value, run.count);
  }
  in.require(bracket.values_.size() + bracket.runs_.size() <= kMostKept);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    in.require(bracket.keeps_[i] == 0 || kept[i] == bracket.counts_[i]);
  }
  return bracket;
}

// ---- answers ----

// The cell that holds a rank among the keys inside, and how many keys are in lower cells.
std::pair<std::size_t, std::uint64_t> Bracket::cell_at(std::uint64_t rank) const {
  std::size_t cell = 0;
  std::uint64_t lower = 0;
  for (; lower + counts_[cell] <= rank; ++cell) lower += counts_[cell];
  return {cell, lower};
}

// The kept values in some cells.
std::vector<Bracket::Run> Bracket::runs_in(std::size_t first, std::size_t last) const {
  std::vector<Run> runs;
  const auto add = [&](Run run) {
    const std::size_t cell = cell_of(key_(run.value));
    if (cell >= first && cell <= last) runs.push_back(run);
  };
  for (const double value : values_) add({value, 1});
  for (const Run& run : runs_) add(run);
  return runs;
}

Interval Bracket::find(std::uint64_t rank) const {
  const auto [cell, lower] = cell_at(rank);
  Interval keys = keys_of(cell);
  if (keeps_[cell] != 0) {
    std::vector<Run> runs = runs_in(cell, cell);
    keys.low = keys.high = select_run(runs, rank - lower, key_);
  }
  if (keys.low == 0 && keys.high == 0) {
    const bool all_negative = has_negative_zero_ && !has_positive_zero_ && !key_.center;
    keys.low = keys.high = all_negative ? -0.0 : 0.0;
  }
  return keys;
}

// Values on both sides of the kept cells may change places with kept ones, as their distances from
// `center` differ from their keys. A value x with |x - c| < low rounded has |x - c| < low, and so
// |x - center| < low + |c - center|. The same holds for the values beyond the cells.
std::optional<double> Bracket::find_about(double center, std::uint64_t rank,
                                          std::uint64_t n) const {
  const auto up = [](double value) { return std::nextafter(value, kInfinity); };
  const auto down = [](double value) { return std::nextafter(value, -kInfinity); };
  auto [first, nearer] = cell_at(rank);
  if (keeps_[first] == 0) return std::nullopt;
  std::size_t last = first;
  while (first > 0 && keeps_[first - 1] != 0) nearer -= counts_[--first];
  while (last + 1 < counts_.size() && keeps_[last + 1] != 0) ++last;
  std::vector<Run> runs = runs_in(first, last);
  std::uint64_t size = 0;
  for (const Run& run : runs) size += run.count;
  const double found =
      select_run(runs, rank - nearer, [center](double value) { return std::fabs(value - center); });
  const double moved = center == *key_.center ? 0 : up(std::fabs(center - *key_.center));
  if (moved == 0) return found;
  nearer += below();
  const bool has_farther = nearer + size < n;
  if (nearer != 0 && found < up(keys_of(first).low + moved)) return std::nullopt;
  if (has_farther && found > down(keys_of(last).high - moved)) return std::nullopt;
  return found;
}

std::optional<std::uint64_t> Bracket::count_up_to(double bound) const {
  const std::size_t cell = cell_of(bound);
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < cell; ++i) count += counts_[i];
  if (keys_of(cell).high == bound) return count + counts_[cell];
  if (keeps_[cell] == 0) return std::nullopt;
  for (const Run& run : runs_in(cell, cell)) {
    if (key_(run.value) <= bound) count += run.count;
  }
  return count;
}

}  // namespace vostrel
