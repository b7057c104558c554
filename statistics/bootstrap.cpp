#include "statistics/bootstrap.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <functional>
#include <memory>
#include <queue>

#include "floating_point.h"
#include "statistics/accumulator.h"
#include "statistics/resample.h"
#include "statistics/residuals.h"

namespace vostrel {

namespace {

// Windows reach this many standard errors to either side.
constexpr double kReach = 4.5;

// How many of the largest residuals may be missing from a resample.
constexpr std::size_t kMissing = 16;

// With at least this many objects, windows with too many entries are not used, to save memory.
constexpr std::size_t kMany = 100'000;

// The value of a rank, from 0 on. Reorders the values.
double value_at(std::span<double> values, std::size_t rank) {
  const auto place = values.begin() + static_cast<std::ptrdiff_t>(rank);
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

// The values of three ranks, in ascending order.
std::array<double, 3> values_at(std::span<double> values, std::array<std::size_t, 3> ranks) {
  const double middle = value_at(values, ranks[1]);
  const double low = ranks[0] == ranks[1] ? middle : value_at(values.first(ranks[1]), ranks[0]);
  const double high = ranks[2] == ranks[1]
                          ? middle
                          : value_at(values.subspan(ranks[1] + 1), ranks[2] - ranks[1] - 1);
  return {low, middle, high};
}

}  // namespace

// A number for the residual and one for the normalized residual. The compiler adds an aligned pair
// in memory to one in a register by one vector instruction.
template <class T>
struct alignas(2 * sizeof(T)) Bootstrap::Pair {
  std::array<T, 2> values{};

  void add(const Pair& other) {
    const T* added = other.values.data();
#ifdef __cpp_lib_assume_aligned  // libc++ 14 lacks it
    added = std::assume_aligned<alignof(Pair)>(added);
#endif
    for (std::size_t k = 0; k < 2; ++k) values[k] += added[k];
  }
};

// The objects of a block.
struct Bootstrap::Items {
  std::array<Pair<double>, Resample::kBlock> residuals;
  std::array<Pair<double>, Resample::kBlock> squares;
  std::array<Pair<std::uint64_t>, Resample::kBlock> marks;
};

// The sums of some draws. An addition waits for the one before, so two of these are faster.
struct Bootstrap::Drawn {
  Pair<double> residuals;
  Pair<double> squares;
  Pair<std::uint64_t> marks;

  void add(const Items& items, std::size_t i) {
    residuals.add(items.residuals[i]);
    squares.add(items.squares[i]);
    marks.add(items.marks[i]);
  }
};

// The sums of one residual over a resample.
struct Bootstrap::Sums {
  double sum = 0;
  double squares = 0;
  std::array<std::uint64_t, 8> marked{};  // how many drawn objects have each mark

  // Adds the sums of at most 255 draws.
  void add(double residuals, double residual_squares, std::uint64_t marks) {
    sum += residuals;
    squares += residual_squares;
    for (std::size_t k = 0; k < marked.size(); ++k) marked[k] += marks >> (8 * k) & 0xff;
  }
};

// Makes eight marks of 0 or 1 for each residual, one in each byte, so that up to 255 can be added.
// Written without comparisons, so that the compiler vectorizes the loop.
void Bootstrap::Windows::mark(std::span<const double> residuals, std::uint64_t* marks) const {
  // 1 at `place` if a < b: the sign of the difference, since both are finite.
  const auto is_below = [](double a, double b, int place) {
    return std::bit_cast<std::uint64_t>(a - b) >> 63 << (8 * place);
  };
  const double middle = median.middle;
  const double middle_size = absolute.middle;
  const double from = near_low;
  const double to = near_high;
  const std::array<double, 4> bounds = {beyond[0].middle, beyond[1].middle, beyond[2].middle,
                                        beyond[3].middle};
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    const double value = residuals[i] + 0.0;  // -0 becomes 0: -0 - 0 would have the sign of a minus
    const double size = std::fabs(value);
    marks[i] = is_below(value, middle, 0) | is_below(size, middle_size, 1) |
               (is_below(value, to, 2) ^ is_below(value, from, 2)) |
               is_below(kOutlierBound, size, 3) | is_below(size, bounds[0], 4) |
               is_below(size, bounds[1], 5) | is_below(size, bounds[2], 6) |
               is_below(size, bounds[3], 7);
  }
}

// The place of the first entry whose key isn't below `key`.
std::size_t Bootstrap::Window::first_from(double key) const {
  const auto below = [](const Entry& entry, double bound) { return entry.key() < bound; };
  return static_cast<std::size_t>(std::lower_bound(entries.begin(), entries.end(), key, below) -
                                  entries.begin());
}

void Bootstrap::Window::set_middle(double key) {
  middle = key;
  start = first_from(key);
}

void Bootstrap::Window::sort() {
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.key() < b.key(); });
  set_middle(middle);
}

void Bootstrap::Windows::place_near() {
  near_start = distant.first_from(near_low);
  near_end = distant.first_from(near_high);
}

// Walks along the entries of a window, in the order of their keys.
class Bootstrap::Walk {
 public:
  // @param before  how many drawn objects are below the middle.
  Walk(const Window& window, std::span<const std::uint8_t> counts, std::uint64_t before)
      : entries_(window.entries), counts_(counts), place_(window.start), before_(before) {}

  // The median of a resample, or nothing if it isn't in the window.
  std::optional<double> median(std::uint64_t size) {
    const std::optional<double> lower = key_of((size - 1) / 2);
    const std::optional<double> upper = lower ? key_of(size / 2) : std::nullopt;
    if (!upper) return std::nullopt;
    return size % 2 == 0 ? (*upper + *lower) / 2.0 : *upper;
  }

 private:
  std::uint64_t count_of(std::size_t place) const { return counts_[entries_[place].object()]; }

  std::optional<double> key_of(std::uint64_t rank) {
    while (before_ > rank && place_ > 0) before_ -= count_of(--place_);
    while (place_ < entries_.size() && before_ + count_of(place_) <= rank) {
      before_ += count_of(place_++);
    }
    if (before_ > rank || place_ == entries_.size()) return std::nullopt;
    return entries_[place_].key();
  }

  std::span<const Entry> entries_;
  std::span<const std::uint8_t> counts_;
  std::size_t place_;
  std::uint64_t before_;
};

Bootstrap::Bootstrap(std::span<const double> reference, std::span<const double> estimate,
                     std::uint64_t seed)
    : reference_(reference), estimate_(estimate), seed_(seed), drawn_from_(reference.size()) {}

Bootstrap::Bootstrap(std::span<const double> reference, std::span<const double> estimate,
                     std::uint64_t seed, std::span<const std::uint32_t> groups,
                     std::size_t group_count)
    : reference_(reference),
      estimate_(estimate),
      seed_(seed),
      groups_(groups),
      drawn_from_(group_count) {}

void Bootstrap::order(bool normalized) {
  if (!groups_.empty()) return;
  if (normalized) {
    norm_.usable = order([](double r, double e) { return normalized_residual(r, e); }, norm_);
  } else {
    delta_.usable = order([](double r, double e) { return residual(r, e); }, delta_);
  }
}

// Finds the bounds of the windows, then their entries. Returns false if windows can't be used.
template <class Residual>
bool Bootstrap::order(Residual residual, Windows& windows) const {
  const std::size_t size = reference_.size();
  const auto n = static_cast<double>(size);
  const auto compute = [&](std::size_t i) { return residual(reference_[i], estimate_[i]); };

  double sum = 0;
  std::priority_queue<double, std::vector<double>, std::greater<>> largest;
  for (std::size_t i = 0; i < size; ++i) {
    const double value = compute(i);
    if (!std::isfinite(value)) return false;
    sum += value;
    if (largest.size() == kMissing) {
      if (std::fabs(value) <= largest.top()) continue;
      largest.pop();
    }
    largest.push(std::fabs(value));
  }
  windows.center = sum / n;

  // The square of a resample's sigma scatters by the root of (m4 - m2^2) / n. The lower bound
  // leaves out the largest residuals, which may make up most of sigma.
  double second = 0;
  double fourth = 0;
  double core_second = 0;
  double core_fourth = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const double value = compute(i);
    const double square = (value - windows.center) * (value - windows.center);
    second += square / n;
    fourth += square / n * square;
    if (std::fabs(value) < largest.top()) {
      core_second += square / n;
      core_fourth += square / n * square;
    }
  }
  if (!std::isfinite(fourth)) return false;
  const auto scatter = [n](double m2, double m4) {
    return kReach * std::sqrt(std::max(m4 - m2 * m2, 0.0) / n) + kReach * kReach * m2 / n;
  };
  const double sigma_low =
      std::sqrt(std::max(core_second - scatter(core_second, core_fourth), 0.0));
  const double sigma_high = std::sqrt(second + scatter(second, fourth));
  for (std::size_t k = 0; k < 4; ++k) {
    const auto multiple = static_cast<double>(k + 1);
    windows.beyond[k].low = sigma_low * multiple;
    windows.beyond[k].middle = std::sqrt(second) * multiple;
    windows.beyond[k].high = sigma_high * multiple;
  }

  // Finds the medians of a sample of the residuals, one drawn at random from each `step`. The
  // windows are as wide as those medians scatter.
  const auto step = static_cast<std::size_t>(std::max(1.0, std::cbrt(n) / 8));
  std::vector<double> values;
  values.reserve(size / step);
  RandomWords random(0, 0, 0);
  std::array<std::uint64_t, 4> words{};
  for (std::size_t first = 0; first + step <= size; first += step) {
    random.next(words);
    values.push_back(compute(first + words[0] % step));
  }
  const std::size_t middle = values.size() / 2;
  const auto half_width =
      static_cast<std::size_t>(kReach * std::sqrt(static_cast<double>(values.size())) / 2) + 2;
  const std::array<std::size_t, 3> ranks = {middle - std::min(middle, half_width), middle,
                                            std::min(middle + half_width, values.size() - 1)};
  const auto find = [&](Window& window) {
    const auto [low, mid, high] = values_at(values, ranks);
    window.low = low;
    window.middle = mid;
    window.high = high;
  };
  find(windows.median);

  // For the distances from a resample's median: the median moves, and so does the middle distance.
  const double median = windows.median.middle;
  std::vector<double> distances = values;
  for (double& distance : distances) distance = std::fabs(distance - median);
  const auto [inner, near, outer] = values_at(distances, ranks);
  const double moves = std::max(median - windows.median.low, windows.median.high - median);
  windows.has_gap = ranks[0] != 0 && inner > moves;
  if (windows.has_gap) {
    windows.gap_low = median - (inner - moves);
    windows.gap_high = median + (inner - moves);
    windows.near = near;
    windows.near_low = median - near;
    windows.near_high = median + near;
  }
  const bool all = ranks[2] == values.size() - 1;
  windows.distant.low = all ? -kInfinity : median - outer - moves;
  windows.distant.high = all ? kInfinity : median + outer + moves;

  distances = std::vector<double>();  // frees the memory; {} would not

  // The sample predicts the number of entries closely. Growing would take twice the memory.
  const auto reserve = [&](Window& window, double gap_low, double gap_high) {
    const auto found = std::count_if(values.begin(), values.end(), [&](double value) {
      return value >= window.low && value <= window.high && !(value > gap_low && value < gap_high);
    });
    const auto expected = static_cast<std::size_t>(found) * step;
    window.entries.reserve(expected + expected / 16 + 16);
  };
  reserve(windows.median, 0, 0);
  reserve(windows.distant, windows.gap_low, windows.gap_high);
  for (double& value : values) value = std::fabs(value);
  find(windows.absolute);
  reserve(windows.absolute, 0, 0);
  for (Window& window : windows.beyond) reserve(window, 0, 0);
  values = std::vector<double>();
  return fill(residual, windows);
}

// Finds the entries of the windows. Returns false if there are too many.
template <class Residual>
bool Bootstrap::fill(Residual residual, Windows& windows) const {
  const std::size_t size = reference_.size();
  const std::size_t most = size < kMany ? 7 * size : size * 2 / 3;
  const auto itself = [](double value) { return value; };
  const auto magnitude = [](double value) { return std::fabs(value); };
  std::array<double, Resample::kBlock> values;
  std::array<std::size_t, Resample::kBlock> places;
  std::size_t entries = 0;
  std::uint64_t below = 0;
  std::uint64_t smaller = 0;
  std::uint64_t near = 0;
  for (std::size_t first = 0; first < size; first += values.size()) {
    const std::size_t count = std::min(values.size(), size - first);
    for (std::size_t i = 0; i < count; ++i) {
      const double value = residual(reference_[first + i], estimate_[first + i]);
      values[i] = value;
      below += value < windows.median.middle;
      smaller += std::fabs(value) < windows.absolute.middle;
      near += value >= windows.near_low && value < windows.near_high;
    }
    const auto take = [&](Window& window, auto key_of, double gap_low, double gap_high) {
      std::size_t found = 0;
      for (std::size_t i = 0; i < count; ++i) {  // without branches, which would be hard to predict
        const double key = key_of(values[i]);
        const bool is_in_gap = (key > gap_low) & (key < gap_high);
        places[found] = i;
        found += (key >= window.low) & (key <= window.high) & !is_in_gap;
      }
      for (std::size_t k = 0; k < found; ++k) {
        const std::size_t i = places[k];
        window.entries.emplace_back(key_of(values[i]), first + i);
      }
      entries += found;
    };
    take(windows.median, itself, 0, 0);
    take(windows.absolute, magnitude, 0, 0);
    take(windows.distant, itself, windows.gap_low, windows.gap_high);
    for (Window& window : windows.beyond) take(window, magnitude, 0, 0);
    if (entries > most) return false;
  }

  windows.median.sort();
  windows.absolute.sort();
  windows.distant.sort();
  for (Window& window : windows.beyond) window.sort();
  windows.gap = windows.distant.first_from(windows.gap_high);
  windows.place_near();

  // So far the middles are those of a sample. Replaces them by those of all objects, where walks
  // start.
  const std::vector<std::uint8_t> ones(size, 1);
  const auto median = Walk(windows.median, ones, below).median(size);
  const auto absolute = Walk(windows.absolute, ones, smaller).median(size);
  const auto distance = median ? median_distance(windows, *median, near, ones) : std::nullopt;
  if (!absolute || !distance) return false;
  windows.median.set_middle(*median);
  windows.absolute.set_middle(*absolute);
  if (windows.has_gap) {
    windows.near = *distance;
    windows.near_low = *median - *distance;
    windows.near_high = *median + *distance;
    windows.place_near();
  }
  return true;
}

std::size_t Bootstrap::batch() const {
  if (!is_fast()) return 1;
  return std::clamp<std::size_t>((std::size_t{1} << 20) / reference_.size(), 4, 64);
}

void Bootstrap::load(std::size_t first, std::size_t count, Items& items) const {
  std::array<double, Resample::kBlock> deltas;
  std::array<double, Resample::kBlock> norms;
  for (std::size_t i = 0; i < count; ++i) {
    deltas[i] = residual(reference_[first + i], estimate_[first + i]);
    norms[i] = normalized_residual(reference_[first + i], estimate_[first + i]);
  }
  std::array<std::uint64_t, Resample::kBlock> delta_marks;
  std::array<std::uint64_t, Resample::kBlock> norm_marks;
  delta_.mark({deltas.data(), count}, delta_marks.data());
  norm_.mark({norms.data(), count}, norm_marks.data());
  for (std::size_t i = 0; i < count; ++i) {
    const double delta = deltas[i] - delta_.center;
    const double norm = norms[i] - norm_.center;
    items.residuals[i] = {{delta, norm}};
    items.squares[i] = {{delta * delta, norm * norm}};
    items.marks[i] = {{delta_marks[i], norm_marks[i]}};
  }
}

// Adds the drawn items of a block to their counts, and returns their sums.
Bootstrap::Drawn Bootstrap::add(std::span<const std::uint8_t> positions, const Items& items,
                                std::uint8_t* counts) {
  static_assert(BlockDraws::kMost <= 255);
  Drawn even;
  Drawn odd;
  std::size_t i = 0;
  for (; i + 1 < positions.size(); i += 2) {
    const std::size_t one = positions[i];
    const std::size_t other = positions[i + 1];
    ++counts[one];
    ++counts[other];
    even.add(items, one);
    odd.add(items, other);
  }
  if (i < positions.size()) {
    ++counts[positions[i]];
    even.add(items, positions[i]);
  }
  even.residuals.add(odd.residuals);
  even.squares.add(odd.squares);
  even.marks.add(odd.marks);
  return even;
}

std::size_t Bootstrap::run(std::uint64_t first, std::span<PointStatistics> results,
                           const std::atomic<bool>& stop) const {
  std::size_t by_passes = 0;
  while (!results.empty() && !stop) {
    const std::size_t count = std::min(batch(), results.size());
    by_passes += draw(first, results.first(count), stop);
    first += count;
    results = results.subspan(count);
  }
  return by_passes;
}

std::size_t Bootstrap::draw(std::uint64_t first, std::span<PointStatistics> results,
                            const std::atomic<bool>& stop) const {
  struct State {
    Resample resample;
    std::uint8_t* counts;
    std::array<Sums, 2> sums;
  };
  // 8 bits are enough: more than 255 draws of one object have a probability below 10^-500.
  std::vector<std::uint8_t> all_counts(results.size() * drawn_from_);
  std::vector<State> states;
  for (std::size_t k = 0; k < results.size(); ++k) {
    states.push_back(
        {Resample(seed_, first + k, drawn_from_), all_counts.data() + k * drawn_from_, {}});
  }

  const bool fast = is_fast();
  Items items;
  for (std::size_t start = 0; start < drawn_from_; start += Resample::kBlock) {
    if (stop) return 0;
    const std::size_t count = std::min(Resample::kBlock, drawn_from_ - start);
    if (fast) load(start, count, items);
    for (State& state : states) {
      std::uint8_t* const counts = state.counts + start;
      BlockDraws draws = state.resample.draw(start / Resample::kBlock);
      for (auto some = draws.next(); !some.empty(); some = draws.next()) {
        if (!fast) {
          for (const std::uint8_t position : some) ++counts[position];
          continue;
        }
        const Drawn drawn = add(some, items, counts);
        state.sums[0].add(drawn.residuals.values[0], drawn.squares.values[0],
                          drawn.marks.values[0]);
        state.sums[1].add(drawn.residuals.values[1], drawn.squares.values[1],
                          drawn.marks.values[1]);
      }
    }
  }

  std::size_t by_passes = 0;
  for (std::size_t k = 0; k < results.size() && !stop; ++k) {
    PointStatistics& result = results[k];
    const std::span<const std::uint8_t> counts(states[k].counts, drawn_from_);
    result.n = drawn_from_;
    if (!fast || !evaluate(delta_, states[k].sums[0], counts, result.delta) ||
        !evaluate(norm_, states[k].sums[1], counts, result.norm)) {
      result = compute_by_passes(counts, groups_, stop);
      ++by_passes;
    }
  }
  return by_passes;
}

// Returns false if the windows don't give the result.
bool Bootstrap::evaluate(const Windows& windows, const Sums& sums,
                         std::span<const std::uint8_t> counts, ResidualStatistics& result) const {
  const std::uint64_t size = drawn_from_;
  const auto n = static_cast<double>(size);

  // Cancellation costs digits, here or in sums in order. Then Accumulator must decide.
  const double mean = sums.sum / n;
  const double square = sums.squares / n;
  const double variance = square - mean * mean;
  result.bias = windows.center + mean;
  result.sigma = std::sqrt(variance);
  result.rms = std::sqrt(result.bias * result.bias + variance);
  const double rounding = 1e-12 + n * 0x1p-52;
  if (!(variance > 1e-3 * square) || !(result.sigma > 1e-3 * result.rms)) return false;

  const auto median_in = [&](const Window& window, std::uint64_t below) {
    return Walk(window, counts, below).median(size);
  };
  const auto median = median_in(windows.median, sums.marked[0]);
  const auto absolute = median_in(windows.absolute, sums.marked[1]);
  const auto distant =
      median ? median_distance(windows, *median, sums.marked[2], counts) : std::nullopt;
  if (!absolute || !distant) return false;
  result.mad = *absolute;
  result.nmad = result.mad * kNmadFactor;
  result.mad_delta = *distant;

  const auto percent = [&](std::uint64_t count) {
    return percentage(static_cast<double>(count), size);
  };
  const auto bounds = outlier_bounds(result.sigma);
  std::array<std::uint64_t, 4> outliers{};
  for (std::size_t k = 0; k < outliers.size(); ++k) {
    const Window& window = windows.beyond[k];
    const auto& entries = window.entries;
    const double low = bounds[k + 1] * (1 - rounding);
    const double high = bounds[k + 1] * (1 + rounding);
    if (low < window.low || high > window.high) return false;
    outliers[k] = size - sums.marked[4 + k];
    std::size_t i = window.start;
    for (; i < entries.size() && entries[i].key() <= low; ++i)
      outliers[k] -= counts[entries[i].object()];
    if (i < entries.size() && entries[i].key() <= high && entries[i].key() > low) return false;
    for (; i > 0 && entries[i - 1].key() > low; --i) {
      if (entries[i - 1].key() <= high) return false;
      outliers[k] += counts[entries[i - 1].object()];
    }
  }
  result.outliers_015 = percent(sums.marked[3]);
  result.outliers_1sigma = percent(outliers[0]);
  result.outliers_2sigma = percent(outliers[1]);
  result.outliers_3sigma = percent(outliers[2]);
  result.outliers_4sigma = percent(outliers[3]);
  return true;
}

// The median of |r - median| of a resample, or nothing if the windows don't give it.
std::optional<double> Bootstrap::median_distance(const Windows& windows, double median,
                                                 std::uint64_t near,
                                                 std::span<const std::uint8_t> counts) const {
  const auto& entries = windows.distant.entries;
  const std::uint64_t lower = (drawn_from_ - 1) / 2;
  const std::uint64_t upper = drawn_from_ / 2;
  const auto distance = [&](std::size_t i) { return std::fabs(entries[i].key() - median); };
  const auto count = [&](std::size_t i) { return counts[entries[i].object()]; };

  // `near` drawn objects are taken: those in the gap, and the entries from `left` to before
  // `right`.
  std::size_t left = windows.near_start;
  std::size_t right = windows.near_end;
  std::size_t gap = windows.gap;
  if (!windows.has_gap) {
    gap = windows.distant.first_from(median);
    left = gap;
    right = gap;
    near = 0;
  }
  const auto next_left = [&] { return left == 0 ? kInfinity : distance(left - 1); };
  const auto next_right = [&] { return right == entries.size() ? kInfinity : distance(right); };

  // Moves both ends to the same distance.
  while (left < gap && distance(left) > windows.near) near -= count(left++);
  while (next_left() <= windows.near) near += count(--left);
  while (right > gap && distance(right - 1) > windows.near) near -= count(--right);
  while (next_right() <= windows.near) near += count(right++);

  // Gives back the most distant ones while there are too many.
  while (near > lower) {
    const double last_left = left < gap ? distance(left) : -1;
    const double last_right = right > gap ? distance(right - 1) : -1;
    if (std::max(last_left, last_right) < 0) return std::nullopt;
    near -= count(last_left >= last_right ? left++ : --right);
  }

  // Takes the nearest ones, until the middle is among them.
  double value = 0;
  double lower_value = 0;
  bool has_lower = false;
  while (near <= upper) {
    const double to_left = next_left();
    const double to_right = next_right();
    value = std::min(to_left, to_right);
    if (value == kInfinity) return std::nullopt;
    near += count(to_left <= to_right ? --left : right++);
    if (near > lower && !has_lower) {
      lower_value = value;
      has_lower = true;
    }
  }

  // Both middle distances must lie where the window has all objects.
  if (windows.has_gap &&
      lower_value < std::max(median - windows.gap_low, windows.gap_high - median)) {
    return std::nullopt;
  }
  if (value > std::min(median - windows.distant.low, windows.distant.high - median)) {
    return std::nullopt;
  }
  return drawn_from_ % 2 == 0 ? (value + lower_value) / 2.0 : value;
}

PointStatistics Bootstrap::compute_by_passes(std::span<const std::uint8_t> counts,
                                             std::span<const std::uint32_t> groups,
                                             const std::atomic<bool>& stop) const {
  constexpr std::size_t kMost = 255;  // times that an object can be drawn
  std::vector<double> reference(Accumulator::kBlockSize + kMost);
  std::vector<double> estimate(Accumulator::kBlockSize + kMost);
  Accumulator passes(vostrel::Sums::kInOrder);
  do {
    std::size_t filled = 0;
    const auto add_filled = [&] {
      passes.add({reference.data(), filled}, {estimate.data(), filled});
      filled = 0;
    };
    for (std::size_t i = 0; i < reference_.size(); ++i) {
      const std::size_t count = counts[groups.empty() ? i : groups[i]];
      // Mostly an object is drawn at most three times. Three copies without a branch, which would
      // be hard to predict, are faster. The next object overwrites those that are too many.
      const std::size_t copies = std::max<std::size_t>(count, 3);
      for (std::size_t k = 0; k < copies; ++k) {
        reference[filled + k] = reference_[i];
        estimate[filled + k] = estimate_[i];
      }
      filled += count;
      if (filled >= Accumulator::kBlockSize) {
        if (stop) return {};
        add_filled();
      }
    }
    if (stop) return {};
    add_filled();
  } while (passes.end_pass());
  return passes.result();
}

}  // namespace vostrel
