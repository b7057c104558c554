// Medians by the order that statistics.h defines.
//
// Why the medians equal that bubble sort: no comparison with NaN is true, so a NaN is never swapped
// and no value moves past it. The values between two NaN are a stretch. It is sorted by itself: the
// passes k = last ... first + 1 sort it, and earlier passes only begin to. Equal values keep their
// order, which shows in the sign of a zero.

#include "statistics/statistics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <vector>

#include "floating_point.h"
#include "statistics/accumulator.h"
#include "statistics/basic_accumulator.h"
#include "statistics/search.h"

namespace vostrel {

namespace {

// A key(i) is what is ordered: the value of an object, its magnitude, or its distance from a
// center. It is computed each time it is needed, which saves a second array.

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

// Selects in a copy of all keys of the range. Returns nothing if one of them is NaN.
template <class Key>
std::optional<Neighbours> select_in_copy(Range range, std::size_t rank, Key key) {
  std::vector<double> keys;
  keys.reserve(range.size());
  for (std::size_t i = range.first; i < range.last; ++i) {
    keys.push_back(key(i));
    if (std::isnan(keys.back())) return std::nullopt;
  }
  const auto at = keys.begin() + static_cast<std::ptrdiff_t>(rank);
  std::nth_element(keys.begin(), at, keys.end());
  return Neighbours{rank == 0 ? 0 : *std::max_element(keys.begin(), at), *at};
}

// The neighbours, except for the signs of zeros. Returns nothing if a key of the range is NaN.
template <class Key>
std::optional<Neighbours> select_up_to_signs(Range range, std::size_t rank, Key key) {
  if (range.size() < kSmall) return select_in_copy(range, rank, key);
  Search search;
  for (std::size_t i = range.first; i < range.last; ++i) search.count(key(i));
  search.end_count();
  if (search.size() != range.size()) return std::nullopt;
  const auto at = search.rank(rank);
  const auto before = rank > 0 ? search.rank(rank - 1) : at;
  std::array<double, 1024> needed;
  while (search.start_pass()) {
    std::size_t count = 0;
    for (std::size_t i = range.first; i < range.last; ++i) {
      needed[count] = key(i);
      count += search.needs(needed[count]);
      if (count < needed.size() && i + 1 < range.last) continue;
      search.sift({needed.data(), count});
      count = 0;
    }
    search.end_pass();
  }
  return Neighbours{search.value(before), search.value(at)};
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
  // The sign of a zero before another number does not affect their middle.
  if (found && found->at == 0) settle_signs(range, rank, key, *found);
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

double median(std::span<const double> values) {
  return middle_of(values.size(), [values](std::size_t i) { return values[i]; });
}

double absolute_median(std::span<const double> values) { return median_of_distances(values, 0.0); }

double median_of_distances(std::span<const double> values, double center) {
  return middle_of(values.size(), [=](std::size_t i) { return std::fabs(values[i] - center); });
}

double mad_about_median(std::span<const double> values) {
  return median_of_distances(values, median(values));
}

std::array<std::uint64_t, 5> count_outliers(std::span<const double> values, double sigma) {
  const std::array<double, 5> bounds = outlier_bounds(sigma);
  std::array<std::uint64_t, 5> counts{};
  for (const double value : values) {
    for (std::size_t k = 0; k < bounds.size(); ++k) counts[k] += std::fabs(value) > bounds[k];
  }
  return counts;
}

// ---- all statistics ----

FoundOfBoth find_in_order(std::span<const double> reference, std::span<const double> estimate,
                          const Wanted& wanted, const Checkpoint& checkpoint) {
  if (reference.size() != estimate.size()) {
    throw std::invalid_argument("reference and estimate differ in length");
  }
  if (reference.empty()) {  // takes no memory: a run may have none left
    return {0, by_definition<InOrderSum>({}, wanted, [] {}),
            by_definition<InOrderSum>({}, wanted, [] {})};
  }
  InOrderAccumulator accumulator(wanted);
  do {
    in_blocks(
        Accumulator::kBlockSize,
        [&](std::span<const double> references, std::span<const double> estimates) {
          accumulator.add(references, estimates);
          checkpoint();
        },
        reference, estimate);
  } while (accumulator.end_pass());
  return accumulator.result(checkpoint);
}

PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate) {
  return point_statistics(reference, estimate, [] {});
}

PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate, const Checkpoint& checkpoint) {
  return find_in_order(reference, estimate, {}, checkpoint).point();
}

ExtendedStatistics extended_statistics(std::span<const double> reference,
                                       std::span<const double> estimate, const Extras& extras) {
  return extended_statistics(reference, estimate, extras, [] {});
}

ExtendedStatistics extended_statistics(std::span<const double> reference,
                                       std::span<const double> estimate, const Extras& extras,
                                       const Checkpoint& checkpoint) {
  return find_in_order(reference, estimate, Wanted(extras), checkpoint).extended();
}
}  // namespace vostrel
