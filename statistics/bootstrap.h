// The statistics of bootstrap resamples.

#ifndef VOSTREL_STATISTICS_BOOTSTRAP_H
#define VOSTREL_STATISTICS_BOOTSTRAP_H

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "statistics/statistics.h"

namespace vostrel {

/// The statistics of resamples of n objects (B. Efron, "Bootstrap methods: another look at the
/// jackknife", 1979). Resample k has the objects of resample_indices(seed, k, n).
///
/// Each result equals point_statistics() of the resample's objects in their order: medians and
/// outlier counts bit for bit, bias, sigma and RMS within rounding errors of 1e-12 of the RMS.
///
/// A resample is represented by counts: how often each object is drawn. A median of a resample lies
/// near that of all objects. So only the objects in a window about each median, and about each
/// multiple of sigma, are sorted, and only once. For each window, the objects drawn from below its
/// middle are counted. The answer is a few entries from there. If an answer isn't in its
/// window, or if rounding could decide it, Accumulator computes the resample.
class Bootstrap {
 public:
  /// Requires: both have the same length, from 1 to 2^32 - 1. Both stay valid and unchanged.
  Bootstrap(std::span<const double> reference, std::span<const double> estimate,
            std::uint64_t seed);

  /// Draws whole groups, as many as there are. An object is in a resample as often as its group.
  /// @param groups  the group of each object, from 0 to group_count - 1.
  /// Requires: as above. Each group has an object. `groups` stays valid, too.
  Bootstrap(std::span<const double> reference, std::span<const double> estimate, std::uint64_t seed,
            std::span<const std::uint32_t> groups, std::size_t group_count);

  /// Orders the residuals, or the normalized residuals, unless groups are drawn. If both are
  /// ordered, run() is much faster. Two threads may do that at the same time.
  void order(bool normalized);

  /// How many resamples run() should make in one call, for speed. Changes with order().
  std::size_t batch() const;

  /// Computes the statistics of the resamples `first`, `first` + 1, ... Several threads may call
  /// this at the same time. Takes batch() bytes of memory for each object.
  /// @param stop  once it is true, the call ends early, and some results are missing.
  /// Returns how many of them Accumulator computed, which is slow.
  std::size_t run(std::uint64_t first, std::span<PointStatistics> results,
                  const std::atomic<bool>& stop) const;

 private:
  // The key is in two parts: with an aligned double, an entry would take 16 bytes, not 12.
  class Entry {
   public:
    Entry(double key, std::size_t object)
        : key_(std::bit_cast<std::array<std::uint32_t, 2>>(key)),
          object_(static_cast<std::uint32_t>(object)) {}
    double key() const { return std::bit_cast<double>(key_); }
    std::size_t object() const { return object_; }

   private:
    std::array<std::uint32_t, 2> key_;
    std::uint32_t object_;
  };

  // Objects ordered by a key: all whose keys are from `low` to `high`.
  struct Window {
    double low = 0;
    double middle = 0;
    double high = 0;
    std::vector<Entry> entries;
    std::size_t start = 0;  // the first entry that isn't below the middle

    void sort();
    void set_middle(double key);
    std::size_t first_from(double key) const;
  };

  // The windows of one residual.
  struct Windows {
    bool usable = false;
    double center = 0;  // the bias, subtracted before sums are taken
    Window median;      // by residual
    Window absolute;    // by |residual|

    // By residual: those about as far from the median as MAD(Delta). If has_gap, nearer ones are
    // left out.
    Window distant;
    bool has_gap = false;
    double gap_low = 0;
    double gap_high = 0;
    std::size_t gap = 0;  // the place of the gap among the entries
    double near = -1;     // MAD(Delta), or a distance close to it
    double near_low = 0;  // objects at most that far from the median: from here to before near_high
    double near_high = 0;
    std::size_t near_start = 0;  // their entries: from here to before near_end
    std::size_t near_end = 0;
    void place_near();

    std::array<Window, 4> beyond;  // by |residual|: about 1 to 4 sigma
    void mark(std::span<const double> residuals, std::uint64_t* marks) const;
  };

  template <class T>
  struct Pair;
  struct Items;
  struct Drawn;
  struct Sums;
  class Walk;

  bool is_fast() const { return delta_.usable && norm_.usable; }
  template <class Residual>
  bool order(Residual residual, Windows& windows) const;
  template <class Residual>
  bool fill(Residual residual, Windows& windows) const;
  static Drawn add(std::span<const std::uint8_t> positions, const Items& items,
                   std::uint8_t* counts);
  void load(std::size_t first, std::size_t count, Items& items) const;
  bool evaluate(const Windows& windows, const Sums& sums, std::span<const std::uint8_t> counts,
                ResidualStatistics& result) const;
  std::optional<double> median_distance(const Windows& windows, double median, std::uint64_t near,
                                        std::span<const std::uint8_t> counts) const;
  std::size_t draw(std::uint64_t first, std::span<PointStatistics> results,
                   const std::atomic<bool>& stop) const;
  PointStatistics compute_by_passes(std::span<const std::uint8_t> counts,
                                    std::span<const std::uint32_t> groups,
                                    const std::atomic<bool>& stop) const;

  std::span<const double> reference_;
  std::span<const double> estimate_;
  std::uint64_t seed_;
  std::span<const std::uint32_t> groups_;
  std::size_t drawn_from_;  // objects, or groups
  Windows delta_;
  Windows norm_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_BOOTSTRAP_H
