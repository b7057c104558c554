// The statistics of data that are added block by block, in several passes, from files or on a
// cluster.

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

/// How sums are taken.
enum class Sums {
  /// In index order. Each addition rounds: the bits of point_statistics().
  kInOrder,
  /// Exactly, and rounded once at the end: the same bits for any blocks in any order.
  kExact,
};

/// Long computations call this regularly. It may throw to cancel them.
using Checkpoint = std::function<void()>;

/// The statistics of two columns, which are added block by block, once in each pass:
///
///     vostrel::Accumulator passes(vostrel::Sums::kExact);
///     while (passes.needs_another_pass()) {
///       for (each block of the data) passes.add(reference, estimate);
///       passes.end_pass();
///     }
///     const vostrel::PointStatistics statistics = passes.result();
///
/// Nearly all data take two passes; up to 8192 objects take one. Every pass must see the same
/// objects. No array of residuals is kept, so a state takes a few megabytes at most. The exception:
/// with sums in order, a NaN residual makes it keep all of them.
class Accumulator {
 public:
  /// A good number of objects for a block: its columns fit the fastest cache.
  static constexpr std::size_t kBlockSize = 4096;

  /// Begins the first pass.
  explicit Accumulator(Sums sums);
  Accumulator(const Accumulator&);      ///< Copies the state.
  Accumulator(Accumulator&&) noexcept;  ///< The other may only be destroyed or assigned to.
  Accumulator& operator=(Accumulator) noexcept;  ///< Copies or moves the state.
  ~Accumulator();

  /// Adds a block of the pass. With sums in order, each pass must see the objects in the same
  /// order. The blocks may differ from pass to pass.
  /// @throws std::invalid_argument if the arrays differ in length.
  void add(std::span<const double> reference, std::span<const double> estimate);

  /// Ends the pass.
  /// @return needs_another_pass().
  /// @throws std::invalid_argument if this pass had another number of objects than the first, or
  ///         NaN where the first had none.
  bool end_pass();

  /// Whether the data are needed once more. True for a fresh object.
  bool needs_another_pass() const;

  /// The number of objects: during the first pass those so far, then all.
  std::uint64_t size() const;

  /// Returns a state in the same pass with nothing added. If several workers share a pass, each
  /// starts from such a state, and one state merges them all and ends the pass.
  Accumulator fresh() const;

  /// Adds what was added to another state in the same pass.
  /// @throws std::invalid_argument if the other is not in the same pass, or if sums are in order:
  ///         those can't be merged.
  void merge(const Accumulator& other);

  /// Returns the state as bytes, the same on every machine. A few megabytes at most.
  /// @throws std::invalid_argument if sums are in order.
  std::string to_bytes() const;

  /// Returns the state that to_bytes() was called on.
  /// @throws std::invalid_argument if the bytes are anything else.
  static Accumulator from_bytes(std::string_view bytes);

  /// The statistics. With exact sums, medians are NaN if a residual is NaN.
  /// @throws std::logic_error if another pass is needed.
  PointStatistics result(const Checkpoint& checkpoint = [] {}) const;

  class State;  ///< Opaque.

 private:
  explicit Accumulator(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

/// As point_statistics(reference, estimate), but calls `checkpoint` regularly.
PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate, const Checkpoint& checkpoint);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_ACCUMULATOR_H
