// The statistics of data that come in blocks, several times over: files, streams, clusters.

#ifndef VOSTREL_STATISTICS_PASSES_H
#define VOSTREL_STATISTICS_PASSES_H

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "statistics/statistics.h"

namespace vostrel {

/// How sums are taken.
enum class Sums {
  /// In index order, with one rounding an addition: the bits of point_statistics().
  kInOrder,
  /// Exactly, with one rounding at the end: the same bits for any blocks in any order.
  kExact,
};

/// The statistics of two columns that are handed over block by block, once in each pass:
///
///     vostrel::Passes passes(vostrel::Sums::kExact);
///     while (passes.needs_another_pass()) {
///       for (each block of the data) passes.add(reference, estimate);
///       passes.end_pass();
///     }
///     const vostrel::PointStatistics statistics = passes.result();
///
/// Two passes are enough for nearly all data, and one for up to some thousand objects. Every pass
/// must see the same objects. No array of residuals is kept, so that a state takes a few megabytes
/// at most, except that with sums in order a NaN residual makes it keep all of them.
class Passes {
 public:
  /// Nothing added yet, before the first pass.
  explicit Passes(Sums sums);
  Passes(const Passes&);
  Passes(Passes&&) noexcept;
  Passes& operator=(Passes) noexcept;
  ~Passes();

  /// Adds a block. With sums in order, the objects must come in the same order in each pass. The
  /// blocks may differ.
  /// @throws std::invalid_argument when the arrays differ in length.
  void add(std::span<const double> reference, std::span<const double> estimate);

  /// Ends the pass.
  /// @return needs_another_pass().
  /// @throws std::invalid_argument when this pass had another number of objects than the first.
  bool end_pass();

  /// Whether the data are needed once more. True for a fresh object.
  bool needs_another_pass() const;

  /// The number of objects: so far in the first pass, and in all from then on.
  std::uint64_t size() const;

  /// The same pass with nothing added yet. Where several workers share a pass, each starts from
  /// this, and their states are merged into one that ends the pass.
  Passes fresh() const;

  /// Adds what another state has taken in the same pass.
  /// @throws std::invalid_argument when the other is not in the same pass, or with sums in order,
  ///         which can't be merged.
  void merge(const Passes& other);

  /// The state as bytes, the same on every machine. A few megabytes at most.
  std::string to_bytes() const;

  /// The state that to_bytes() was called on.
  /// @throws std::invalid_argument when the bytes are anything else.
  static Passes from_bytes(std::string_view bytes);

  /// The statistics. With exact sums, the medians of residuals with NaN are NaN.
  /// @throws std::logic_error when another pass is needed.
  PointStatistics result() const;

 private:
  class State;
  template <class Sum>
  class StateWith;
  explicit Passes(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_PASSES_H
