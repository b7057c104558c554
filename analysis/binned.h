// Statistics of objects in bins of a quantity.

#ifndef VOSTREL_ANALYSIS_BINNED_H
#define VOSTREL_ANALYSIS_BINNED_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "floating_point.h"
#include "statistics/accumulator.h"
#include "statistics/basic_accumulator.h"
#include "statistics/statistics.h"

namespace vostrel {

/// Bins between edges: bin i holds values from edges[i] up to but not including edges[i + 1], and
/// the last bin its upper edge too.
class Bins {
 public:
  static constexpr std::uint32_t kOutside = 0xffffffff;

  /// A bin between equal edges is empty, except the last bin, which holds its edge.
  ///
  /// @param edges  two or more, none NaN, none smaller than the one before.
  /// @throws std::invalid_argument on other edges.
  explicit Bins(std::vector<double> edges);

  /// Returns the bin that holds the value, counted from 0, or kOutside. NaN is outside.
  std::uint32_t operator()(double value) const {
    const std::uint32_t bin = cells_[static_cast<std::size_t>(scale_.cell_of(value))].bin_of(value);
    return bin != kSearch ? bin : search(value);
  }

  /// Finds the bins of some values. Bytes hold up to kMostInByte bins, and 255 for kOutside.
  template <class Number>
  void find(std::span<const double> values, Number* bins) const {
    // Local copies: a write to `bins` could change the members.
    const Cell* const cells = cells_.data();
    const Scale scale = scale_;
    // The cells first: a processor finds several at once.
    std::array<std::int32_t, 256> places;
    for (std::size_t first = 0; first < values.size(); first += places.size()) {
      const std::size_t count = std::min(places.size(), values.size() - first);
      find_cells(values.subspan(first, count), scale, places.data());
      for (std::size_t i = 0; i < count; ++i) {
        const Cell& cell = cells[static_cast<std::size_t>(places[i])];
        bins[first + i] = static_cast<Number>(cell.bin_of(values[first + i]));
      }
    }
    for (std::size_t i = 0; is_crowded_ && i < values.size(); ++i) {
      if (bins[i] == static_cast<Number>(kSearch)) bins[i] = static_cast<Number>(search(values[i]));
    }
  }
  static constexpr std::size_t kMostInByte = 254;

  std::size_t size() const { return edges_.size() - 1; }

  const std::vector<double>& edges() const { return edges_; }

 private:
  static constexpr std::uint32_t kSearch = kOutside - 1;

  // The range is cut into cells of equal width. Most hold one edge or none, and tell the bin after
  // one comparison. Rounded subtraction and multiplication are monotonic, so a larger value never
  // gets a lower cell: a value lies above all edges in lower cells, and below all in higher ones.
  struct Cell {
    double edge;                        // the only edge in the cell, or infinity
    std::array<std::uint32_t, 2> bins;  // below and from the edge, or kSearch for several edges

    // Returns the bin or kSearch, without a branch to mispredict.
    std::uint32_t bin_of(double value) const { return bins[value >= edge]; }
  };

  struct Scale {
    double lowest;
    double cells_per_unit;  // or 0 for all in the first cell
    double last_cell;

    // A value outside the edges, or NaN, gets the first or the last cell.
    std::int32_t cell_of(double value) const {
      double place = (value - lowest) * cells_per_unit;
      place = place > 0 ? place : 0;
      place = place < last_cell ? place : last_cell;
      return static_cast<std::int32_t>(place);
    }
  };

  static void find_cells(std::span<const double> values, const Scale& scale, std::int32_t* cells);
  std::uint32_t bin_above(std::size_t edges) const;
  std::uint32_t search(double value) const;

  std::vector<double> edges_;
  std::vector<Cell> cells_;
  Scale scale_ = {};
  bool is_crowded_ = false;  // whether a cell has several edges
};

/// The numbers of the objects in each bin. The columns are added block by block, once in each pass:
///
///     vostrel::InOrderBins binned(bins, wanted);
///     do {
///       for (each block of the columns) binned.add(reference, estimate, by);
///     } while (binned.end_pass());
///     const std::vector<vostrel::FoundOfBoth> found = binned.results();
template <class Sum>
class BinnedAccumulator {
 public:
  /// Calls `checkpoint` for each bin: many bins take a second.
  explicit BinnedAccumulator(
      Bins bins, const Wanted& wanted = {}, const Checkpoint& checkpoint = [] {});

  const Bins& bins() const { return bins_; }

  /// Makes room for the bins of `size` objects, if it keeps them.
  void reserve(std::size_t size) {
    if (keeps_bins()) found_.reserve(size);
  }

  /// Adds a block: the objects, and the quantity that they are binned by. All passes must see the
  /// same objects, and with sums in order they must see them in the same order.
  /// @throws std::invalid_argument if the arrays differ in length.
  void add(std::span<const double> reference, std::span<const double> estimate,
           std::span<const double> by);

  /// Ends the pass. If `checkpoint` throws, don't use the object any more.
  /// @return needs_another_pass().
  /// @throws std::invalid_argument if the objects differ from those of the first pass.
  bool end_pass(const Checkpoint& checkpoint = [] {});

  /// Whether another pass over the data is needed. True for a new object.
  bool needs_another_pass() const;

  /// The number of objects, in bins or not: during the first pass those added so far, later all.
  std::uint64_t size() const;

  /// These are like those of Accumulator. Requires: exact sums.
  BinnedAccumulator fresh(const Checkpoint& checkpoint = [] {}) const;
  void merge(const BinnedAccumulator& other);
  std::string to_bytes() const;
  static BinnedAccumulator from_bytes(std::string_view bytes);

  /// The numbers of each bin: with sums in order, bit for bit those of point_statistics() of the
  /// bin's objects in their order.
  /// @throws std::logic_error if another pass is needed.
  std::vector<FoundOfBoth> results(const Checkpoint& checkpoint = [] {}) const;

  /// Whether there is NaN in the three columns or the residuals, once the first pass has ended. May
  /// tell it earlier. Requires: sums in order.
  bool has_nan() const { return has_nan_; }

  /// The number of objects in no bin.
  std::uint64_t outside() const { return outside_; }

 private:
  // Objects that come in the same order in each pass have their bins found in the first alone.
  bool keeps_bins() const { return !kIsExact<Sum> && bins_.size() <= Bins::kMostInByte; }
  // Exact sums would take long to tell.
  bool tells_nan() const { return !kIsExact<Sum> && first_pass_; }
  const std::uint8_t* find_or_recall(std::span<const double> by);
  template <class Number>
  void distribute(const Number* bins, std::span<const double> reference,
                  std::span<const double> estimate, std::span<const double> by);
  void hand_over(std::size_t bin);
  void add_waiting(const BinnedAccumulator& other, std::size_t bin);

  // Makes the accumulator of each bin by make(bin).
  template <class Make>
  BinnedAccumulator(Bins bins, const Checkpoint& checkpoint, Make make);

  Bins bins_;
  // The objects of each bin that are not yet handed to its accumulator.
  std::size_t room_;  // for the objects of a bin, a power of two
  std::vector<double> reference_;
  std::vector<double> estimate_;
  std::vector<std::size_t> next_;  // the place of each bin's next object
  std::vector<BasicAccumulator<Sum>> accumulators_;
  std::vector<std::uint8_t> found_;  // the bin of each object, if it keeps bins
  std::size_t position_ = 0;         // in `found_`, of the next object
  bool first_pass_ = true;
  bool has_nan_ = false;
  std::uint64_t outside_ = 0;        // of the first pass
  std::uint64_t checksum_ = 0;       // of the first pass, with what the objects are binned by
  std::uint64_t seen_outside_ = 0;   // in this pass
  std::uint64_t seen_checksum_ = 0;  // in this pass
};

using InOrderBins = BinnedAccumulator<InOrderSum>;
using ExactBins = BinnedAccumulator<ExactSum>;

}  // namespace vostrel

#endif  // VOSTREL_ANALYSIS_BINNED_H
