// Finds the order statistics of resamples near those of all objects.

#ifndef VOSTREL_ANALYSIS_WINDOWS_H
#define VOSTREL_ANALYSIS_WINDOWS_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

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

/// The windows of one residual: where its medians lie in resamples, and the multiples of sigma.
class Windows {
 public:
  /// Finds the windows and their entries. Returns false if they can't be used.
  bool find(const ResidualColumn& residuals, const Units& units, const Checkpoint& checkpoint);

  /// The bias of all objects, which is subtracted before sums are taken.
  double center() const { return center_; }

  /// Makes eight marks of 0 or 1 for each residual, one in each byte, so that up to 255 can be
  /// added: whether it is below the middle of each window, and beyond 0.15.
  void mark(std::span<const double> residuals, std::uint64_t* marks) const;

  /// The statistics of a resample. Returns false if the windows don't give them.
  /// @param counts  how often each unit is drawn.
  /// @param size    how many objects are drawn.
  bool evaluate(const DrawnSums& sums, std::span<const std::uint8_t> counts, std::uint64_t size,
                ResidualStatistics& result) const;

 private:
  // The bytes of the marks.
  enum Mark : std::size_t { kBelowMedian, kBelowAbsolute, kNear, kBeyondFixed, kBeyondSigma };

  class Guess;
  struct Gap {
    double low = 0;
    double high = 0;
    bool has(double key) const { return (key > low) & (key < high); }
  };
  template <class Use>
  void for_each_window(Use use);
  void place_near();
  bool fill(const ResidualColumn& residuals, const Units& units, const Checkpoint& checkpoint);
  bool set_middles(std::array<std::uint64_t, 3> below, std::size_t units, std::uint64_t size);
  bool moments(const DrawnSums& sums, std::uint64_t size, ResidualStatistics& result) const;
  bool medians(const DrawnSums& sums, std::span<const std::uint8_t> counts, std::uint64_t size,
               ResidualStatistics& result) const;
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
