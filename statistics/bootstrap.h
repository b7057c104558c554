// The statistics of bootstrap resamples.

#ifndef VOSTREL_STATISTICS_BOOTSTRAP_H
#define VOSTREL_STATISTICS_BOOTSTRAP_H

#include <array>
#include <atomic>
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
/// Each equals point_statistics() of its objects in their order: medians and outlier counts bit for
/// bit, bias, sigma and RMS within rounding errors of 1e-12 of the RMS.
///
/// A resample is made as counts: how often each object is drawn. The residuals are ordered once. A
/// median of a resample lies near that of all objects, so what is sorted are the objects in a
/// window about each median, and about each multiple of sigma. For each window it is counted how
/// many are drawn from below the middle of the window; from there it is a short walk. Where an
/// answer isn't in its window, or where rounding could decide it, the resample is handed to Passes
/// as it is.
class Bootstrap {
 public:
  /// Requires: both have the same length from 1 to 2^32 - 1, and stay as they are and where they
  ///           are.
  Bootstrap(std::span<const double> reference, std::span<const double> estimate,
            std::uint64_t seed);

  /// Draws whole groups, as many as there are: an object is in a resample as often as its group.
  /// @param groups  the group of each object, from 0 to the number of groups - 1.
  /// Requires: as above; every group has an object; `groups` stays too.
  Bootstrap(std::span<const double> reference, std::span<const double> estimate, std::uint64_t seed,
            std::span<const std::uint32_t> groups, std::size_t group_count);

  /// How many resamples are best made in one go.
  std::size_t batch() const;

  /// Makes the resamples `first`, `first` + 1, ... Several threads may do so at the same time.
  /// Takes batch() bytes an object.
  /// @param stop  ends the work early, with some results not made, when it becomes true.
  void run(std::uint64_t first, std::span<PointStatistics> results,
           const std::atomic<bool>& stop) const;

 private:
  struct Entry {
    double key;
    std::uint32_t object;
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
    double center = 0;  // the bias, subtracted before sums are taken
    Window median;      // by residual
    Window absolute;    // by |residual|

    // By residual: those about as far from the median as the MAD(Delta). Nearer ones are left out
    // if has_gap.
    Window distant;
    bool has_gap = false;
    double gap_low = 0;
    double gap_high = 0;
    std::size_t gap = 0;  // where it is among the entries
    double near = -1;     // the MAD(Delta), or any distance close to it
    double near_low = 0;  // the objects that near to the median: from here to before near_high
    double near_high = 0;
    std::size_t near_start = 0;  // their entries, to before near_end
    std::size_t near_end = 0;
    void place_near();

    std::array<Window, 4> beyond;  // by |residual|: about 1 to 4 sigma
    void mark(std::span<const double> residuals, std::uint64_t* marks) const;
  };

  struct Item;
  struct Drawn;
  struct Sums;
  class Walk;

  template <class Residual>
  bool order(Residual residual, Windows& windows) const;
  template <class Residual>
  bool fill(Residual residual, Windows& windows) const;
  static void add(std::span<const std::uint8_t> positions, const Item* items, std::uint8_t* counts,
                  std::array<Drawn, 2>& drawn);
  void load(std::size_t first, std::span<Item> items) const;
  bool evaluate(const Windows& windows, const Sums& sums, std::span<const std::uint8_t> counts,
                ResidualStatistics& result) const;
  std::optional<double> median_distance(const Windows& windows, double median, std::uint64_t near,
                                        std::span<const std::uint8_t> counts) const;
  void draw(std::uint64_t first, std::span<PointStatistics> results,
            const std::atomic<bool>& stop) const;
  PointStatistics compute_plainly(std::span<const std::uint8_t> counts,
                                  std::span<const std::uint32_t> groups,
                                  const std::atomic<bool>& stop) const;

  std::span<const double> reference_;
  std::span<const double> estimate_;
  std::uint64_t seed_;
  std::span<const std::uint32_t> groups_;
  std::size_t drawn_from_;  // objects, or groups
  bool fast_ = false;
  Windows delta_;
  Windows norm_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_BOOTSTRAP_H
