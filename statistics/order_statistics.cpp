// Medians without sorting. A random sample brackets the median, one pass counts the keys below the
// bracket and collects those inside it, and the median is selected among the few that are inside.
//
// Why this equals the bubble sort of statistics.h: no comparison with NaN is true, so a NaN is
// never swapped and no value moves past it. The values between two NaN are a stretch. It is sorted
// by itself: the passes k = last ... first + 1 sort it, and earlier passes only begin to. Equal
// values keep their order, which shows in the sign of a zero.

#include "statistics/order_statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "floating_point.h"
#include "statistics/statistics.h"

namespace vostrel {

namespace {

// A key is what is ordered: the value, its magnitude, or its distance from a center. A key is
// computed each time it is needed, which saves a second array.

struct Value {
  std::span<const double> values;
  static constexpr bool kHasNegativeZeros = true;
  double operator()(std::size_t i) const { return values[i]; }
};

struct Absolute {
  std::span<const double> values;
  static constexpr bool kHasNegativeZeros = false;
  double operator()(std::size_t i) const { return std::fabs(values[i]); }
};

struct Distance {
  std::span<const double> values;
  double center;
  static constexpr bool kHasNegativeZeros = false;
  double operator()(std::size_t i) const { return std::fabs(values[i] - center); }
};

// The positions first ... last - 1.
struct Range {
  std::size_t first;
  std::size_t last;
  std::size_t size() const { return last - first; }
};

// The keys of a rank and of the rank before it. For rank 0, `before` is unspecified.
struct Neighbours {
  double before;
  double at;
};

// Smaller ranges are copied whole.
constexpr std::size_t kSmall = std::size_t{1} << 16;

Neighbours select_among(double* keys, std::size_t count, std::size_t rank) {
  std::nth_element(keys, keys + rank, keys + count);
  return {rank == 0 ? 0 : *std::max_element(keys, keys + rank), keys[rank]};
}

// Selects in a copy of all keys of the range. Returns nothing if one of them is NaN.
template <class Key>
std::optional<Neighbours> select_in_copy(Range range, std::size_t rank, Key key) {
  std::vector<double> keys;
  keys.reserve(range.size());
  for (std::size_t i = range.first; i < range.last; ++i) {
    keys.push_back(key(i));
    if (std::isnan(keys.back())) return std::nullopt;
  }
  return select_among(keys.data(), keys.size(), rank);
}

// Returns the neighbours if `value` is the key of `rank`, else nothing. Takes one pass.
template <class Key>
std::optional<Neighbours> neighbours_at(Range range, std::size_t rank, Key key, double value) {
  std::size_t less = 0;
  std::size_t equal = 0;
  double largest_less = -kInfinity;
  for (std::size_t i = range.first; i < range.last; ++i) {
    const double k = key(i);
    less += k < value;
    equal += k == value;
    largest_less = k < value && k > largest_less ? k : largest_less;
  }
  if (rank < less || rank >= less + equal) return std::nullopt;
  return Neighbours{rank > less ? value : largest_less, value};
}

struct Bounds {
  double low;
  double high;
};

// Returns two keys that almost certainly bracket the key of `rank`. Draws one key from each of
// `count` equal parts of the range. The standard deviation of a rank in such a sample is at most
// sqrt(count) / 2. The bracket allows for four of those. Returns nothing if the sample has NaN.
template <class Key>
std::optional<Bounds> take_bracket(Range range, std::size_t rank, Key key) {
  const std::size_t count = std::clamp<std::size_t>(range.size() / 64, 2048, 65536);
  const std::size_t part = range.size() / count;
  std::vector<double> sample(count);
  std::uint64_t state = 1;
  for (std::size_t i = 0; i < count; ++i) {
    state = state * 6364136223846793005u + 1442695040888963407u;  // Knuth's generator
    sample[i] = key(range.first + i * part + (state >> 33) % part);
    if (std::isnan(sample[i])) return std::nullopt;
  }
  const std::size_t middle = std::min(rank / part, count - 1);
  const auto spread = static_cast<std::size_t>(2 * std::sqrt(static_cast<double>(count)));
  const auto low = sample.begin() + static_cast<std::ptrdiff_t>(middle - std::min(middle, spread));
  const auto high =
      sample.begin() + static_cast<std::ptrdiff_t>(std::min(middle + spread, count - 1));
  Bounds bracket{};
  std::nth_element(sample.begin(), low, sample.end());
  bracket.low = *low;  // before the next line moves it
  std::nth_element(low, high, sample.end());
  bracket.high = *high;
  if (!(bracket.low < bracket.high)) {  // one value fills the middle: make it one of two bounds
    if (bracket.high < kInfinity) {
      bracket.high = std::nextafter(bracket.high, kInfinity);
    } else {
      bracket.low = std::nextafter(bracket.low, 0);
    }
  }
  return bracket;
}

// The keys of a range, divided by a bracket: how many are at most `low`, and those strictly between
// the bounds, NaN among them. Incomplete if too many are inside.
struct Partition {
  std::size_t below = 0;
  std::size_t inside = 0;
  std::unique_ptr<double[]> collected;
  bool complete = true;
};

template <class Key>
Partition partition(Range range, Key key, Bounds bracket) {
  const std::size_t room = range.size() / 8;
  // Not make_unique, which takes a pass over the memory to fill it with zeros.
  std::unique_ptr<double[]> collected(new double[room]);
  std::size_t below = 0;
  std::size_t inside = 0;
  constexpr std::size_t kPiece = 1024;
  for (std::size_t first = range.first; first < range.last; first += kPiece) {
    const std::size_t last = std::min(first + kPiece, range.last);
    if (inside + kPiece > room) return {below, inside, nullptr, false};
    // Every key is written and stays if it is inside. A branch would be mispredicted.
    for (std::size_t i = first; i < last; ++i) {
      const double k = key(i);
      collected[inside] = k;
      const std::size_t is_below = k <= bracket.low;
      const std::size_t is_above = k >= bracket.high;
      below += is_below;
      inside += 1 - is_below - is_above;
    }
  }
  return {below, inside, std::move(collected), true};
}

// The neighbours, except for the signs of zeros. Returns nothing if a key of the range is NaN.
template <class Key>
std::optional<Neighbours> select_up_to_signs(Range range, std::size_t rank, Key key) {
  if (range.size() < kSmall) return select_in_copy(range, rank, key);

  const std::optional<Bounds> bracket = take_bracket(range, rank, key);
  if (!bracket) return std::nullopt;
  Partition parts = partition(range, key, *bracket);
  if (parts.complete) {
    double* const inside = parts.collected.get();
    if (std::any_of(inside, inside + parts.inside, [](double k) { return std::isnan(k); })) {
      return std::nullopt;
    }
    if (rank > parts.below && rank < parts.below + parts.inside) {
      return select_among(inside, parts.inside, rank - parts.below);
    }
    // Many equal keys may sit on a bound of the bracket.
    const double bound = rank < parts.below ? bracket->low : bracket->high;
    const std::optional<Neighbours> found = neighbours_at(range, rank, key, bound);
    if (found) return found;
    parts.collected.reset();
  }
  return select_in_copy(range, rank, key);
}

// Gives zeros among the neighbours their signs. Equal values keep their order, so the zero of a
// rank is found by its place among the zeros.
template <class Key>
void settle_signs(Range range, std::size_t rank, Key key, Neighbours& neighbours) {
  std::size_t negatives = 0;
  std::size_t negative_zeros = 0;
  for (std::size_t i = range.first; i < range.last; ++i) {
    const double k = key(i);
    negatives += k < 0;
    negative_zeros += k == 0 && std::signbit(k);
  }
  if (neighbours.before == 0) neighbours.before = 0.0;
  if (neighbours.at == 0) neighbours.at = 0.0;
  if (negative_zeros == 0) return;
  std::size_t place = negatives;
  for (std::size_t i = range.first; i < range.last && place <= rank; ++i) {
    const double k = key(i);
    if (k != 0) continue;
    if (place + 1 == rank) neighbours.before = k;
    if (place == rank) neighbours.at = k;
    ++place;
  }
}

template <class Key>
std::optional<Neighbours> select(Range range, std::size_t rank, Key key) {
  std::optional<Neighbours> found = select_up_to_signs(range, rank, key);
  if (Key::kHasNegativeZeros && found && (found->at == 0 || (rank > 0 && found->before == 0))) {
    settle_signs(range, rank, key, *found);
  }
  return found;
}

// The two middle keys of an array with NaN.
template <class Key>
Neighbours select_in_stretch(std::size_t n, std::size_t middle, Key key) {
  // If the middle is NaN, so is the result. Its neighbour matters only if it is NaN too.
  const double before = middle > 0 ? key(middle - 1) : 0;
  if (std::isnan(key(middle))) return {std::isnan(before) ? before : 0, key(middle)};
  Range stretch{middle, middle + 1};
  while (stretch.first > 0 && !std::isnan(key(stretch.first - 1))) --stretch.first;
  while (stretch.last < n && !std::isnan(key(stretch.last))) ++stretch.last;
  Neighbours found = *select(stretch, middle - stretch.first, key);
  if (stretch.first == middle) found.before = before;
  return found;
}

template <class Key>
double middle_of(std::size_t n, Key key) {
  if (n == 0) return kNaN;
  const std::size_t middle = n / 2;
  const std::optional<Neighbours> ordered = select({0, n}, middle, key);
  const Neighbours found = ordered ? *ordered : select_in_stretch(n, middle, key);
  return n % 2 == 0 ? (found.at + found.before) / 2.0 : found.at;
}

}  // namespace

double median(std::span<const double> values) { return middle_of(values.size(), Value{values}); }

double absolute_median(std::span<const double> values) {
  return middle_of(values.size(), Absolute{values});
}

double median_of_distances(std::span<const double> values, double center) {
  return middle_of(values.size(), Distance{values, center});
}

double mad_about_median(std::span<const double> values) {
  return median_of_distances(values, median(values));
}

}  // namespace vostrel
