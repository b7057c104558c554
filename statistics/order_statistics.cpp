#include "statistics/order_statistics.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace vostrel {

namespace {

// What is ordered: the values themselves, or a number made of each. Made again whenever it is
// looked at, so that no second array is needed.

struct Plain {
  const double* values;
  static constexpr bool kHasNegativeZeros = true;
  double operator()(std::size_t i) const { return values[i]; }
};

struct Absolute {
  const double* values;
  static constexpr bool kHasNegativeZeros = false;
  double operator()(std::size_t i) const { return std::fabs(values[i]); }
};

struct Distance {
  const double* values;
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

// The keys of some rank and of the rank before it; of no meaning where there is no rank before.
struct Neighbours {
  double before;
  double at;
};

// Ranges below this size are copied and searched by std::nth_element.
constexpr std::size_t kSmall = std::size_t{1} << 16;

// Splits `keys` at `rank` and takes the two neighbours there.
Neighbours split_at(double* keys, std::size_t count, std::size_t rank) {
  std::nth_element(keys, keys + rank, keys + count);
  return {rank == 0 ? 0 : *std::max_element(keys, keys + rank), keys[rank]};
}

// Whether `value` is the key of `rank`, and if so, with its neighbour: one pass.
template <class Key>
std::optional<Neighbours> confirm(Range range, std::size_t rank, Key key, double value) {
  std::size_t less = 0;
  std::size_t equal = 0;
  double largest_less = -std::numeric_limits<double>::infinity();
  for (std::size_t i = range.first; i < range.last; ++i) {
    const double k = key(i);
    less += k < value;
    equal += k == value;
    largest_less = k < value && k > largest_less ? k : largest_less;
  }
  if (rank < less || rank >= less + equal) return std::nullopt;
  return Neighbours{rank > less ? value : largest_less, value};
}

// ---- in four passes, whatever the data ----

constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

// An integer that orders as the number does, the same for both zeros.
std::uint64_t order_of(double value) {
  const auto bits = std::bit_cast<std::uint64_t>(value == 0 ? 0.0 : value);
  return (bits & kSignBit) != 0 ? ~bits : bits | kSignBit;
}

double number_of(std::uint64_t order) {
  return std::bit_cast<double>((order & kSignBit) != 0 ? order ^ kSignBit : ~order);
}

// The key of a rank, found by counting: each pass settles sixteen bits more of it.
template <class Key>
double select_by_counting(Range range, std::size_t rank, Key key) {
  std::vector<std::size_t> counts(std::size_t{1} << 16);
  std::uint64_t found = 0;
  for (int shift = 48; shift >= 0; shift -= 16) {
    std::fill(counts.begin(), counts.end(), 0);
    for (std::size_t i = range.first; i < range.last; ++i) {
      const std::uint64_t order = order_of(key(i)) >> shift;
      if (order >> 16 == found) ++counts[order & 0xffff];
    }
    std::uint64_t digit = 0;
    while (rank >= counts[digit]) rank -= counts[digit++];
    found = found << 16 | digit;
  }
  return number_of(found);
}

// ---- in one pass, for nearly all data ----

// Two numbers, low < high, between which the key of some rank is likely to be found.
struct Bracket {
  double low;
  double high;
};

// Takes a bracket from a sample: a key from each of 2,048 to 65,536 equal parts of the range, at a
// place in the part that no pattern of the data will follow. The rank within the sample strays by
// half the square root of its size at the most (one standard deviation); the bracket allows for
// four of those. Nothing when a not-a-number turns up.
template <class Key>
std::optional<Bracket> take_bracket(Range range, std::size_t rank, Key key) {
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
  Bracket bracket{};
  std::nth_element(sample.begin(), low, sample.end());
  bracket.low = *low;  // before the next line moves it
  std::nth_element(low, high, sample.end());
  bracket.high = *high;
  if (!(bracket.low < bracket.high)) {  // one value fills the middle: have it as one of the bounds
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    if (bracket.high < kInfinity) {
      bracket.high = std::nextafter(bracket.high, kInfinity);
    } else {
      bracket.low = std::nextafter(bracket.low, 0);
    }
  }
  return bracket;
}

// How the keys of a range lie about a bracket: how many are at most low; and those strictly
// between its bounds, unless they are too many. Not-a-numbers are among the latter.
struct Partition {
  std::size_t below = 0;
  std::size_t inside = 0;
  std::unique_ptr<double[]> collected;
  bool complete = true;
};

template <class Key>
Partition partition(Range range, Key key, Bracket bracket) {
  const std::size_t room = range.size() / 8;
  auto collected = std::make_unique_for_overwrite<double[]>(room);
  std::size_t below = 0;
  std::size_t inside = 0;
  constexpr std::size_t kPiece = 1024;
  for (std::size_t first = range.first; first < range.last; first += kPiece) {
    const std::size_t last = std::min(first + kPiece, range.last);
    if (inside + kPiece > room) return {below, inside, nullptr, false};
    // Every key is written, and stays if it is inside: no branch that the data could mislead.
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

// ---- the selection ----

// The keys of `rank` and of the rank before it, but for the sign of a zero. Nothing when there is a
// not-a-number in the range.
template <class Key>
std::optional<Neighbours> select_up_to_signs(Range range, std::size_t rank, Key key) {
  if (range.size() < kSmall) {
    std::vector<double> keys(range.size());
    for (std::size_t i = 0; i < keys.size(); ++i) {
      keys[i] = key(range.first + i);
      if (std::isnan(keys[i])) return std::nullopt;
    }
    return split_at(keys.data(), keys.size(), rank);
  }

  const std::optional<Bracket> bracket = take_bracket(range, rank, key);
  if (!bracket) return std::nullopt;
  Partition parts = partition(range, key, *bracket);
  if (parts.complete) {
    double* const inside = parts.collected.get();
    for (std::size_t i = 0; i < parts.inside; ++i) {
      if (std::isnan(inside[i])) return std::nullopt;
    }
    if (rank > parts.below && rank < parts.below + parts.inside) {
      return split_at(inside, parts.inside, rank - parts.below);
    }
    const double bound = rank < parts.below ? bracket->low : bracket->high;
    const std::optional<Neighbours> found = confirm(range, rank, key, bound);
    if (found) return found;
    parts.collected.reset();
  }
  for (std::size_t i = range.first; i < range.last; ++i) {
    if (std::isnan(key(i))) return std::nullopt;
  }
  return confirm(range, rank, key, select_by_counting(range, rank, key));
}

// Gives zeros the sign that they have in the order: equal values keep theirs, so the zero of a rank
// is found by its place among the zeros.
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

// The two middle keys of an array with not-a-numbers.
template <class Key>
Neighbours select_in_stretch(std::size_t n, std::size_t middle, Key key) {
  // When the middle itself is one, so is the result; its neighbour matters only as another one.
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
  if (n == 0) return std::numeric_limits<double>::quiet_NaN();
  const std::size_t middle = n / 2;
  const std::optional<Neighbours> ordered = select({0, n}, middle, key);
  const Neighbours found = ordered ? *ordered : select_in_stretch(n, middle, key);
  return n % 2 == 0 ? (found.at + found.before) / 2.0 : found.at;
}

}  // namespace

double median(const double* values, std::size_t n) { return middle_of(n, Plain{values}); }

double median_of_absolutes(const double* values, std::size_t n) {
  return middle_of(n, Absolute{values});
}

double median_of_distances(const double* values, std::size_t n, double center) {
  return middle_of(n, Distance{values, center});
}

}  // namespace vostrel
