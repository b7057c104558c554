#include "statistics/bootstrap.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <utility>

#include "statistics/passes.h"
#include "statistics/resample.h"
#include "statistics/residuals.h"

namespace vostrel {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Windows are as wide as this many standard errors to either side.
constexpr double kWidth = 4.5;

// How many of the largest residuals may be missing from a resample.
constexpr std::size_t kLargest = 16;

// Windows take 12 bytes an entry. From this number of objects on they have fewer entries than
// objects in all, or there are none.
constexpr std::size_t kMany = 100'000;

// The value of a rank, from 0 on. Reorders the values.
double value_of(std::span<double> values, std::size_t rank) {
  const auto place = values.begin() + static_cast<std::ptrdiff_t>(rank);
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

// The values of three ranks, in ascending order.
std::array<double, 3> values_of(std::span<double> values, std::array<std::size_t, 3> ranks) {
  const double middle = value_of(values, ranks[1]);
  const double low = ranks[0] == ranks[1] ? middle : value_of(values.first(ranks[1]), ranks[0]);
  const double high = ranks[2] == ranks[1]
                          ? middle
                          : value_of(values.subspan(ranks[1] + 1), ranks[2] - ranks[1] - 1);
  return {low, middle, high};
}

// The middle of a resample: the values of the ranks (n - 1) / 2 and n / 2.
struct Middle {
  double lower;
  double upper;
  double median(std::uint64_t n) const { return n % 2 == 0 ? (upper + lower) / 2.0 : upper; }
};

// Takes values in ascending order with their counts, until the middle ones are known.
class MiddleSearch {
 public:
  // @param below  how many values are smaller than those to come.
  MiddleSearch(std::uint64_t n, std::uint64_t below)
      : lower_((n - 1) / 2), upper_(n / 2), seen_(below), possible_(below <= lower_) {}

  // Returns whether that was the last one needed.
  bool take(double value, std::uint64_t count) {
    seen_ += count;
    if (seen_ <= lower_) return false;
    if (!has_lower_) {
      middle_.lower = value;
      has_lower_ = true;
    }
    if (seen_ <= upper_) return false;
    middle_.upper = value;
    found_ = possible_;
    return true;
  }

  std::optional<Middle> result() const {
    return found_ ? std::optional<Middle>(middle_) : std::nullopt;
  }

 private:
  std::uint64_t lower_;
  std::uint64_t upper_;
  std::uint64_t seen_;
  bool possible_;
  bool has_lower_ = false;
  bool found_ = false;
  Middle middle_{};
};

}  // namespace

// One object of a block.
struct Bootstrap::Item {
  double delta;
  double norm;
  std::uint64_t delta_marks;
  std::uint64_t norm_marks;
};

// What some draws add up to. An addition waits for the one before, so two of these are faster.
struct Bootstrap::Drawn {
  double delta = 0;
  double norm = 0;
  double delta_squares = 0;
  double norm_squares = 0;
  std::uint64_t delta_marks = 0;
  std::uint64_t norm_marks = 0;

  void add(const Item& item) {
    delta += item.delta;
    norm += item.norm;
    delta_squares += item.delta * item.delta;
    norm_squares += item.norm * item.norm;
    delta_marks += item.delta_marks;
    norm_marks += item.norm_marks;
  }
};

// What is known of a residual of a resample without looking at single objects.
struct Bootstrap::Sums {
  double sum = 0;
  double squares = 0;
  std::array<std::uint64_t, 8> marked{};  // how many drawn objects have each mark

  // Adds what some draws make, of which there are 255 at the most.
  void add(double residuals, double residual_squares, std::uint64_t marks) {
    sum += residuals;
    squares += residual_squares;
    for (std::size_t k = 0; k < marked.size(); ++k) marked[k] += marks >> (8 * k) & 0xff;
  }
};

// Eight yes or no, each as the lowest bit of a byte, so that up to 255 of them can be added. The
// compiler makes vectors of this loop.
void Bootstrap::Windows::mark(std::span<const double> residuals, std::uint64_t* marks) const {
  const auto mark = [](bool is, int place) { return is ? std::uint64_t{1} << (8 * place) : 0; };
  const double below = median.low;
  const double nearer = absolute.low;
  const double from = inner_low;
  const double to = inner_high;
  const std::array<double, 4> bounds = {beyond[0].high, beyond[1].high, beyond[2].high,
                                        beyond[3].high};
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    const double value = residuals[i];
    const double size = std::fabs(value);
    marks[i] = mark(value < below, 0) | mark(size < nearer, 1) |
               (mark(value > from, 2) & mark(value < to, 2)) | mark(size > kOutlierBound, 3) |
               mark(size > bounds[0], 4) | mark(size > bounds[1], 5) | mark(size > bounds[2], 6) |
               mark(size > bounds[3], 7);
  }
}

Bootstrap::Bootstrap(std::span<const double> reference, std::span<const double> estimate,
                     std::uint64_t seed)
    : reference_(reference), estimate_(estimate), seed_(seed), drawn_from_(reference.size()) {
  fast_ = order([](double r, double e) { return residual(r, e); }, delta_) &&
          order([](double r, double e) { return normalized_residual(r, e); }, norm_);
}

Bootstrap::Bootstrap(std::span<const double> reference, std::span<const double> estimate,
                     std::uint64_t seed, std::span<const std::uint32_t> groups,
                     std::size_t group_count)
    : reference_(reference),
      estimate_(estimate),
      seed_(seed),
      groups_(groups),
      drawn_from_(group_count) {}

// Finds the windows. Returns false when there should be none.
template <class Residual>
bool Bootstrap::order(Residual residual, Windows& windows) const {
  const std::size_t size = reference_.size();
  const auto n = static_cast<double>(size);
  std::vector<double> values(size);
  const auto compute = [&](std::size_t i) { return residual(reference_[i], estimate_[i]); };
  for (std::size_t i = 0; i < size; ++i) {
    values[i] = compute(i);
    if (!std::isfinite(values[i])) return false;
  }

  const auto half_width = static_cast<std::size_t>(kWidth * std::sqrt(n) / 2) + 2;
  const std::size_t middle = size / 2;
  const std::array<std::size_t, 3> ranks = {middle - std::min(middle, half_width), middle,
                                            std::min(middle + half_width, size - 1)};

  double sum = 0;
  for (const double value : values) sum += value;
  windows.center = sum / n;
  const auto [median_low, median, median_high] = values_of(values, ranks);
  windows.median.low = median_low;
  windows.median.high = median_high;

  // Sigma of a resample: its square scatters by the root of (m4 - m2^2) / n. A lower bound leaves
  // out the largest residuals, which may make up most of sigma.
  for (double& value : values) value = std::fabs(value);
  const auto absolute = values_of(values, ranks);
  windows.absolute.low = absolute[0];
  windows.absolute.high = absolute[2];
  const double largest = value_of(values, size - std::min(size, kLargest));
  double second = 0;
  double fourth = 0;
  double core_second = 0;
  double core_fourth = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const double value = compute(i);
    const double square = (value - windows.center) * (value - windows.center);
    second += square / n;
    fourth += square / n * square;
    if (std::fabs(value) < largest) {
      core_second += square / n;
      core_fourth += square / n * square;
    }
  }
  if (!std::isfinite(fourth)) return false;
  const auto scatter = [n](double m2, double m4) {
    return kWidth * std::sqrt(std::max(m4 - m2 * m2, 0.0) / n) + kWidth * kWidth * m2 / n;
  };
  const double sigma_low =
      std::sqrt(std::max(core_second - scatter(core_second, core_fourth), 0.0));
  const double sigma_high = std::sqrt(second + scatter(second, fourth));
  for (std::size_t k = 0; k < 4; ++k) {
    windows.beyond[k].low = sigma_low * static_cast<double>(k + 1);
    windows.beyond[k].high = sigma_high * static_cast<double>(k + 1);
  }

  // The distances from a resample's median: the median moves, and so does the middle distance.
  for (std::size_t i = 0; i < size; ++i) values[i] = std::fabs(compute(i) - median);
  const auto distances = values_of(values, ranks);
  const double moves = std::max(median - median_low, median_high - median);
  const bool all_below = ranks[0] == 0;
  const bool all_above = ranks[2] == size - 1;
  const double inner = all_below ? -1 : distances[0] - moves;
  const double outer = all_above ? kInfinity : distances[2] + moves;
  windows.has_inner = inner > 0;
  windows.inner_low = windows.has_inner ? median - inner : median;
  windows.inner_high = windows.has_inner ? median + inner : median;
  windows.distant.low = median - outer;
  windows.distant.high = median + outer;
  values = {};

  const std::size_t most = size < kMany ? 7 * size : size * 2 / 3;
  std::size_t entries = 0;
  const auto fill = [&](Window& window, auto key, auto is_left_out) {
    std::vector<std::pair<double, std::uint32_t>> found;
    for (std::size_t i = 0; i < size; ++i) {
      const double value = key(compute(i));
      if (value >= window.low && value <= window.high && !is_left_out(value)) {
        if (++entries > most) return false;
        found.emplace_back(value, static_cast<std::uint32_t>(i));
      }
    }
    std::sort(found.begin(), found.end());
    for (const auto& [value, object] : found) {
      window.keys.push_back(value);
      window.objects.push_back(object);
    }
    return true;
  };
  const auto itself = [](double value) { return value; };
  const auto absolute_value = [](double value) { return std::fabs(value); };
  const auto none = [](double) { return false; };
  const auto is_inner = [&](double value) {
    return value > windows.inner_low && value < windows.inner_high;
  };
  if (!fill(windows.median, itself, none) || !fill(windows.absolute, absolute_value, none) ||
      !fill(windows.distant, itself, is_inner)) {
    return false;
  }
  return std::all_of(windows.beyond.begin(), windows.beyond.end(),
                     [&](Window& window) { return fill(window, absolute_value, none); });
}

std::size_t Bootstrap::batch() const {
  if (!fast_) return 1;
  return std::clamp<std::size_t>((std::size_t{1} << 20) / reference_.size(), 6, 64);
}

void Bootstrap::load(std::size_t first, std::span<Item> items) const {
  const std::size_t count = items.size();
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
    items[i] = {deltas[i] - delta_.center, norms[i] - norm_.center, delta_marks[i], norm_marks[i]};
  }
}

void Bootstrap::run(std::uint64_t first, std::span<PointStatistics> results,
                    const std::atomic<bool>& stop) const {
  while (!results.empty() && !stop) {
    const std::size_t count = std::min(batch(), results.size());
    draw(first, results.first(count), stop);
    first += count;
    results = results.subspan(count);
  }
}

void Bootstrap::draw(std::uint64_t first, std::span<PointStatistics> results,
                     const std::atomic<bool>& stop) const {
  struct State {
    Resample resample;
    Counts counts;  // an object is drawn more than 255 times in none of 10^500 resamples
    Sums delta;
    Sums norm;
  };
  std::vector<State> states;
  for (std::size_t k = 0; k < results.size(); ++k) {
    states.push_back({Resample(seed_, first + k, drawn_from_), Counts(drawn_from_), {}, {}});
  }

  std::vector<Item> items(fast_ ? Resample::kBlock : 0);
  for (std::size_t start = 0; start < drawn_from_; start += Resample::kBlock) {
    if (stop) return;
    const std::size_t count = std::min(Resample::kBlock, drawn_from_ - start);
    if (fast_) load(start, std::span(items).first(count));
    for (State& state : states) {
      std::uint8_t* const counts = state.counts.data() + start;
      state.resample.draw(start / Resample::kBlock, [&](std::span<const std::uint16_t> positions) {
        for (const std::uint16_t position : positions) ++counts[position];
        if (!fast_) return;
        static_assert(Resample::kDraws <= 255);
        Drawn even;
        Drawn odd;
        const std::size_t pairs = positions.size() / 2;
        for (std::size_t i = 0; i < pairs; ++i) {
          even.add(items[positions[2 * i]]);
          odd.add(items[positions[2 * i + 1]]);
        }
        if (positions.size() % 2 != 0) even.add(items[positions.back()]);
        state.delta.add(even.delta + odd.delta, even.delta_squares + odd.delta_squares,
                        even.delta_marks + odd.delta_marks);
        state.norm.add(even.norm + odd.norm, even.norm_squares + odd.norm_squares,
                       even.norm_marks + odd.norm_marks);
      });
    }
  }

  for (std::size_t k = 0; k < results.size() && !stop; ++k) {
    PointStatistics& result = results[k];
    result.n = drawn_from_;
    if (!fast_ || !evaluate(delta_, states[k].delta, states[k].counts, result.delta) ||
        !evaluate(norm_, states[k].norm, states[k].counts, result.norm)) {
      result = compute_plainly(states[k].counts, groups_, stop);
    }
  }
}

// Returns false when the windows don't tell the result.
bool Bootstrap::evaluate(const Windows& windows, const Sums& sums,
                         std::span<const std::uint8_t> counts, ResidualStatistics& result) const {
  const std::uint64_t size = drawn_from_;
  const auto n = static_cast<double>(size);

  // What cancels costs digits, here or in the plain sums.
  const double mean = sums.sum / n;
  const double square = sums.squares / n;
  const double variance = square - mean * mean;
  result.bias = windows.center + mean;
  result.sigma = std::sqrt(variance);
  result.rms = std::sqrt(result.bias * result.bias + variance);
  const double rounding = 1e-12 + n * 0x1p-52;
  if (!(variance > 1e-3 * square) || !(result.sigma > 1e-3 * result.rms)) return false;

  const auto find_middle = [&](const Window& window, std::uint64_t below) {
    MiddleSearch search(size, below);
    for (std::size_t i = 0; i < window.keys.size(); ++i) {
      if (search.take(window.keys[i], counts[window.objects[i]])) break;
    }
    return search.result();
  };
  const auto middle = find_middle(windows.median, sums.marked[0]);
  const auto absolute = find_middle(windows.absolute, sums.marked[1]);
  if (!middle || !absolute) return false;
  result.mad = absolute->median(size);
  result.nmad = result.mad * kNmadFactor;

  // Walks from the median to both sides, to the nearer object next.
  const double median = middle->median(size);
  const Window& distant = windows.distant;
  std::size_t right = static_cast<std::size_t>(
      std::upper_bound(distant.keys.begin(), distant.keys.end(), median) - distant.keys.begin());
  std::size_t left = right;
  MiddleSearch search(size, sums.marked[2]);
  for (bool done = false; !done;) {
    const double to_left = left == 0 ? kInfinity : median - distant.keys[left - 1];
    const double to_right = right == distant.keys.size() ? kInfinity : distant.keys[right] - median;
    if (to_left == kInfinity && to_right == kInfinity) return false;
    const bool goes_left = to_left <= to_right;
    const std::size_t next = goes_left ? --left : right++;
    done = search.take(std::fabs(distant.keys[next] - median), counts[distant.objects[next]]);
  }
  const auto about = search.result();
  if (!about) return false;
  const double nearest = std::max(median - windows.inner_low, windows.inner_high - median);
  const double farthest = std::min(median - distant.low, distant.high - median);
  if ((windows.has_inner && about->lower < nearest) || about->upper > farthest) return false;
  result.mad_delta = about->median(size);

  const auto percent = [&](std::uint64_t count) {
    return percentage(static_cast<double>(count), size);
  };
  const auto bounds = outlier_bounds(result.sigma);
  std::array<std::uint64_t, 4> outliers{};
  for (std::size_t k = 0; k < outliers.size(); ++k) {
    const Window& window = windows.beyond[k];
    const double bound = bounds[k + 1];
    const double low = bound * (1 - rounding);
    const double high = bound * (1 + rounding);
    if (low < window.low || high > window.high) return false;
    const auto place = std::upper_bound(window.keys.begin(), window.keys.end(), low);
    if (place != window.keys.end() && *place <= high) return false;
    outliers[k] = sums.marked[4 + k];
    for (auto i = static_cast<std::size_t>(place - window.keys.begin()); i < window.keys.size();
         ++i) {
      outliers[k] += counts[window.objects[i]];
    }
  }
  result.outliers_015 = percent(sums.marked[3]);
  result.outliers_1sigma = percent(outliers[0]);
  result.outliers_2sigma = percent(outliers[1]);
  result.outliers_3sigma = percent(outliers[2]);
  result.outliers_4sigma = percent(outliers[3]);
  return true;
}

PointStatistics Bootstrap::compute_plainly(std::span<const std::uint8_t> counts,
                                           std::span<const std::uint32_t> groups,
                                           const std::atomic<bool>& stop) const {
  constexpr std::size_t kBlock = 4096;
  std::vector<double> reference;
  std::vector<double> estimate;
  Passes passes(vostrel::Sums::kInOrder);
  do {
    for (std::size_t start = 0; start < reference_.size(); start += kBlock) {
      if (stop) return {};
      reference.clear();
      estimate.clear();
      for (std::size_t i = start; i < std::min(start + kBlock, reference_.size()); ++i) {
        const std::uint8_t count = counts[groups.empty() ? i : groups[i]];
        reference.insert(reference.end(), count, reference_[i]);
        estimate.insert(estimate.end(), count, estimate_[i]);
      }
      passes.add(reference, estimate);
    }
  } while (passes.end_pass());
  return passes.result();
}

}  // namespace vostrel
