// Finds the order statistics of resamples near those of all objects.

#ifndef VOSTREL_ANALYSIS_WINDOWS_H
#define VOSTREL_ANALYSIS_WINDOWS_H

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "floating_point.h"
#include "statistics/accumulator.h"
#include "statistics/statistics.h"

namespace vostrel {

/// What a resample draws: objects, or whole groups of them.
struct Units {
  std::size_t count;                        ///< How many there are.
  std::span<const std::uint32_t> group_of;  ///< The group of each object. Empty: objects are drawn.

  bool are_groups() const { return !group_of.empty(); }
  std::size_t of(std::size_t object) const { return are_groups() ? group_of[object] : object; }
};

/// The residuals of two columns, or their normalized residuals.
class ResidualColumn {
 public:
  ResidualColumn(std::span<const double> reference, std::span<const double> estimate,
                 bool normalized)
      : reference_(reference), estimate_(estimate), normalized_(normalized) {}

  std::size_t size() const { return reference_.size(); }
  double operator[](std::size_t i) const;

  /// Puts the residuals from `first` on into `block`, as many as it holds.
  void read(std::size_t first, std::span<double> block) const;

  /// Calls use(first, residuals) for each block.
  template <class Use>
  void for_each_block(const Checkpoint& checkpoint, Use use) const {
    std::array<double, 256> room;
    for (std::size_t first = 0; first < size(); first += room.size()) {
      const std::span<double> block(room.data(), std::min(room.size(), size() - first));
      read(first, block);
      use(first, std::span<const double>(block));
      checkpoint();
    }
  }

 private:
  std::span<const double> reference_;
  std::span<const double> estimate_;
  bool normalized_;
};

/// The sums over some draws of one residual. Powers are those of x = residual - center.
struct DrawnSums {
  double x = 0;
  double x2 = 0;
  double x3 = 0;
  double x4 = 0;
  std::array<std::uint64_t, 8> marked{};  ///< How many drawn objects have each mark.

  /// Adds other sums some times, which may be negative.
  void add(const DrawnSums& other, int times) {
    x += times * other.x;
    x2 += times * other.x2;
    x3 += times * other.x3;
    x4 += times * other.x4;
    for (std::size_t k = 0; k < marked.size(); ++k) {
      marked[k] += static_cast<std::uint64_t>(times) * other.marked[k];
    }
  }

  /// Adds the marks of at most 255 draws.
  void add_marks(std::uint64_t marks) {
    for (std::size_t k = 0; k < marked.size(); ++k) marked[k] += marks >> (8 * k) & 0xff;
  }
};

/// The keys of windows.
inline constexpr auto kItself = [](double value) { return value; };
inline constexpr auto kMagnitude = [](double value) { return std::fabs(value); };

/// A part of a window that has no entries.
struct Gap {
  double low = 0;
  double high = 0;
  bool has(double key) const { return (key > low) & (key < high); }
};

/// Objects ordered by a key: all whose keys are from `low` to `high`.
class Window {
 public:
  // The key is in two parts: with an aligned double, an entry would take 16 bytes, not 12.
  class Entry {
   public:
    Entry(double key, std::size_t unit)
        : key_(std::bit_cast<std::array<std::uint32_t, 2>>(key)),
          unit_(static_cast<std::uint32_t>(unit)) {}
    double key() const { return std::bit_cast<double>(key_); }
    std::size_t unit() const { return unit_; }

   private:
    std::array<std::uint32_t, 2> key_;
    std::uint32_t unit_;
  };

  double low = 0;
  double middle = 0;
  double high = 0;
  std::vector<Entry> entries;
  std::size_t start = 0;  ///< The first entry that isn't below the middle.

  /// Goes along the entries of a resample from the middle.
  class Walk {
   public:
    /// @param counts  how often each unit is drawn.
    /// @param below   how many drawn objects are below the middle.
    Walk(const Window& window, std::span<const std::uint8_t> counts, std::uint64_t below)
        : window_(&window), counts_(counts), below_(below), place_(window.start) {}

    /// The key of a rank of the resample, or nothing if it isn't in the window.
    std::optional<double> value(std::uint64_t rank);

   private:
    const Window* window_;
    std::span<const std::uint8_t> counts_;
    std::uint64_t below_;  // how many are drawn from before place_
    std::size_t place_;
  };

  /// Adds the objects of a block whose keys are in the window, the first of which is `first`.
  /// Returns how many.
  /// Requires: 256 residuals at most.
  template <class Key>
  std::size_t add(std::span<const double> residuals, std::size_t first, const Units& units,
                  Key key_of, const Gap& gap = {}) {
    std::array<std::size_t, 256> places;
    std::size_t found = 0;
    for (std::size_t i = 0; i < residuals.size(); ++i) {  // branches would be hard to predict
      const double key = key_of(residuals[i]);
      places[found] = i;
      found += static_cast<std::size_t>((key >= low) & (key <= high) & !gap.has(key));
    }
    for (std::size_t k = 0; k < found; ++k) {
      entries.emplace_back(key_of(residuals[places[k]]), units.of(first + places[k]));
    }
    return found;
  }

  void sort();
  void set_middle(double key);
  std::size_t first_from(double key) const;

  /// The median of a resample, or nothing if it isn't in the window.
  /// @param counts  how often each unit is drawn.
  /// @param below   how many drawn objects are below the middle.
  /// @param size    how many are drawn.
  std::optional<double> median(std::span<const std::uint8_t> counts, std::uint64_t below,
                               std::uint64_t size) const;

  /// How many drawn objects are beyond a bound, or nothing if that isn't known.
  /// @param beyond    how many are not below the middle.
  /// @param rounding  the relative error of the bound.
  std::optional<std::uint64_t> beyond(double bound, double rounding,
                                      std::span<const std::uint8_t> counts,
                                      std::uint64_t beyond) const;
};

/// Windows reach this many standard errors to either side.
inline constexpr double kReach = 4.5;

/// A sample of the residuals, one drawn at random from each `step`. Shows where quantiles of
/// resamples may lie, and how many entries windows will have.
class WindowGuess {
 public:
  WindowGuess(const ResidualColumn& residuals, const Units& units);

  struct Range {
    double low;
    double middle;
    double high;
    bool has_least;
    bool has_greatest;
  };

  /// The quantile of some key, and where that of a resample may lie.
  /// @param part  of the objects that are below the quantile: 0.5 for the median.
  template <class Key>
  Range quantile(Key key_of, double part = 0.5) const {
    std::vector<double> keys(values_.size());
    std::transform(values_.begin(), values_.end(), keys.begin(), key_of);
    const auto rank = std::min(static_cast<std::size_t>(part * static_cast<double>(keys.size())),
                               keys.size() - 1);
    const double middle = value_at(keys, rank);
    const std::size_t half = half_width(key_of, middle, part);
    const std::size_t low = rank - std::min(rank, half);
    const std::size_t high = std::min(rank + half, keys.size() - 1);
    const std::span<double> lower = std::span(keys).first(rank);
    const std::span<double> upper = std::span(keys).subspan(rank + 1);
    return {low == rank ? middle : value_at(lower, low), middle,
            high == rank ? middle : value_at(upper, high - rank - 1), low == 0,
            high == keys.size() - 1};
  }

  /// Places a window about a quantile.
  template <class Key>
  void place(Window& window, Key key_of, double part = 0.5) const {
    const Range range = quantile(key_of, part);
    window.low = range.low;
    window.middle = range.middle;
    window.high = range.high;
    if (step_ == 1) return;
    if (range.has_least) window.low = -kInfinity;
    if (range.has_greatest) window.high = kInfinity;
  }

  /// The sample predicts the number of entries closely. Growing would need twice the memory.
  template <class Key>
  void reserve(Window& window, Key key_of, const Gap& gap = {}) const {
    const auto found = std::count_if(values_.begin(), values_.end(), [&](double value) {
      const double key = key_of(value);
      return key >= window.low && key <= window.high && !gap.has(key);
    });
    const auto expected = static_cast<std::size_t>(found) * step_;
    window.entries.reserve(expected + expected / 16 + 16);
  }

 private:
  // Reorders the values.
  static double value_at(std::span<double> values, std::size_t rank) {
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), place, values.end());
    return *place;
  }

  // How many ranks a quantile scatters. With groups, it scatters by how many more objects of each
  // are below it than that part of them. Near the ends the scatter is Poisson's, which is skewed.
  template <class Key>
  std::size_t half_width(Key key_of, double middle, double part) const {
    double scatter = std::sqrt(part * (1 - part) * static_cast<double>(values_.size()));
    if (units_.are_groups()) {
      std::vector<double> excess(units_.count);
      for (std::size_t i = 0; i < values_.size(); ++i) {
        excess[groups_[i]] += key_of(values_[i]) < middle ? 1 - part : -part;
      }
      double variance = 0;
      for (const double value : excess) variance += value * value;
      scatter = std::sqrt(variance);
    }
    const double skewed = kReach * kReach * std::fabs(0.5 - part);
    return static_cast<std::size_t>(kReach * scatter + skewed) + 2;
  }

  const Units& units_;
  std::size_t step_;
  std::vector<double> values_;
  std::vector<std::size_t> groups_;
};

/// The windows of one residual: where its medians lie in resamples, and the multiples of sigma.
class Windows {
 public:
  /// Finds the windows and their entries. Returns false if they can't be used.
  bool find(const ResidualColumn& residuals, const Units& units, const WindowGuess& guess,
            const Checkpoint& checkpoint);

  /// The bias of all objects, which is subtracted before anything is summed.
  double center() const { return center_; }

  /// Makes eight marks of 0 or 1 for each residual: whether it is below the middle of each window,
  /// and beyond 0.15. Each has a byte, so up to 255 can be added.
  void mark(std::span<const double> residuals, std::uint64_t* marks) const;

  /// The statistics of a resample. Returns false if the windows don't give them.
  /// @param counts  how often each unit is drawn.
  /// @param size    how many objects are drawn.
  bool evaluate(const DrawnSums& sums, std::span<const std::uint8_t> counts, std::uint64_t size,
                ResidualStatistics& result) const;

 private:
  struct Medians {
    double median;
    double absolute;
    double distance;  // from the median
  };

  // The bytes of the marks.
  enum Mark : std::size_t { kBelowMedian, kBelowAbsolute, kNear, kBeyondFixed, kBeyondSigma };

  template <class Use>
  void for_each_window(Use use);
  void place_near();
  bool fill(const ResidualColumn& residuals, const Units& units, const Checkpoint& checkpoint);
  bool set_middles(std::array<std::uint64_t, 3> below, std::size_t units, std::uint64_t size);
  bool moments(const DrawnSums& sums, std::uint64_t size, ResidualStatistics& result) const;
  std::optional<Medians> medians(std::span<const std::uint64_t> marked,
                                 std::span<const std::uint8_t> counts, std::uint64_t size) const;
  bool outliers(const DrawnSums& sums, std::span<const std::uint8_t> counts, std::uint64_t size,
                ResidualStatistics& result) const;
  class Distances;

  double center_ = 0;
  Window median_;    // by residual
  Window absolute_;  // by |residual|

  // By residual: those about as far from the median as MAD(Delta). If there is a gap, nearer ones
  // are left out.
  Window distant_;
  bool has_gap_ = false;
  Gap gap_;
  std::size_t gap_place_ = 0;  // among the entries
  double near_ = -1;           // MAD(Delta), or a distance close to it
  double near_low_ = 0;  // objects at most that far from the median: from here to before near_high_
  double near_high_ = 0;
  std::size_t near_start_ = 0;  // their entries: from here to before near_end_
  std::size_t near_end_ = 0;

  std::array<Window, 4> beyond_;  // by |residual|: about 1 to 4 sigma
};

}  // namespace vostrel

#endif  // VOSTREL_ANALYSIS_WINDOWS_H
