// Statistics of data that are added block by block, in several passes, from files or on a cluster.

#ifndef VOSTREL_STATISTICS_ACCUMULATOR_H
#define VOSTREL_STATISTICS_ACCUMULATOR_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "statistics.h"  // beside this header, also where they are installed

namespace vostrel {

/// Long computations call this regularly. It may throw to cancel them.
using Checkpoint = std::function<void()>;

/// The statistics of two columns, which are added block by block, once in each pass:
///
///     vostrel::Accumulator accumulator;
///     while (accumulator.needs_another_pass()) {
///       for (each block of the data) accumulator.add(reference, estimate);
///       accumulator.end_pass();
///     }
///     const vostrel::PointStatistics statistics = accumulator.result();
///
/// Every pass must see the same objects, in any order and in any blocks. Sums are exact and rounded
/// once at the end, so the results are the same bits for any order and any blocks. Ordinary data
/// take two passes; up to 8192 objects take one; no data take more than nine. No array of residuals
/// is kept: a state takes a few megabytes at most.
class Accumulator {
 public:
  /// A good block size: its columns fit a core's own cache.
  static constexpr std::size_t kBlockSize = 4096;

  /// Begins the first pass, for result() alone.
  Accumulator();
  /// Begins the first pass, for extended_result(), too.
  /// @throws std::invalid_argument as extended_statistics().
  explicit Accumulator(const Extras& extras);
  Accumulator(const Accumulator&);      ///< Copies the state.
  Accumulator(Accumulator&&) noexcept;  ///< The other may only be destroyed or assigned to.
  Accumulator& operator=(Accumulator) noexcept;  ///< Copies or moves the state.
  ~Accumulator();

  /// Adds a block of the pass.
  /// @throws std::invalid_argument if the arrays differ in length.
  void add(std::span<const double> reference, std::span<const double> estimate);

  /// Ends the pass.
  /// @return needs_another_pass().
  /// @throws std::invalid_argument if the objects differ from those of the first pass, which a
  ///         64-bit checksum detects.
  bool end_pass();

  /// Whether another pass over the data is needed. True for a new object.
  bool needs_another_pass() const;

  /// The number of objects: during the first pass those added so far, later all.
  std::uint64_t size() const;

  /// Returns an empty state from the same pass. If several workers share a pass, each starts from
  /// such a state, and one state merges them all and ends the pass.
  Accumulator fresh() const;

  /// Adds the data of another state from the same pass.
  /// @throws std::invalid_argument if the other is not in the same pass over the same data, or has
  ///         other extras.
  void merge(const Accumulator& other);

  /// Returns the state as bytes, the same on every machine. A few megabytes at most.
  std::string to_bytes() const;

  /// Returns the state that to_bytes() wrote.
  /// @throws std::invalid_argument on any other bytes.
  static Accumulator from_bytes(std::string_view bytes);

  /// The statistics. Medians are NaN if a residual is NaN, and mad_delta if the median is infinite.
  /// @throws std::logic_error if another pass is needed.
  PointStatistics result(const Checkpoint& checkpoint = [] {}) const;

  /// The statistics with the further numbers.
  /// @throws std::logic_error if another pass is needed, or if the state has no Extras.
  ExtendedStatistics extended_result(const Checkpoint& checkpoint = [] {}) const;

  class State;  ///< Opaque.

 private:
  explicit Accumulator(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

/// Like point_statistics(reference, estimate), but calls `checkpoint` regularly.
PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate, const Checkpoint& checkpoint);

/// Like extended_statistics(reference, estimate, extras), but calls `checkpoint` regularly.
ExtendedStatistics extended_statistics(std::span<const double> reference,
                                       std::span<const double> estimate, const Extras& extras,
                                       const Checkpoint& checkpoint);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_ACCUMULATOR_H
