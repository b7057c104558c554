// The objects of a call, block by block, without those that are masked or left out as NaN.

#ifndef VOSTREL_PYTHON_SRC_ROWS_H
#define VOSTREL_PYTHON_SRC_ROWS_H

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include "python/src/columns.h"
#include "statistics/accumulator.h"

namespace vostrel::python {

/// Reference and estimate of some objects, and the quantity they are binned by, if there is one.
struct Block {
  std::span<const double> reference;
  std::span<const double> estimate;
  std::span<const double> by;
};

/// Reads columns of one length block by block, as often as needed.
///
///     do { rows.rewind(); while (rows.next()) use(rows.block()); } while (...);
class Rows {
 public:
  /// @param columns   two or three: reference, estimate, and what the objects are binned by.
  /// @param masks     an object is left out if one of them is true for it.
  /// @param omit_nan  leave out objects with a NaN in one of the columns.
  Rows(std::size_t size, std::vector<Column> columns, std::vector<Mask> masks, bool omit_nan);

  /// Skips the search for NaN from now on.
  void expect_no_nan() { look_for_nan_ = false; }

  /// Starts another pass.
  /// @throws std::runtime_error if the last pass had another number of objects than the one before:
  ///         then the arrays have changed.
  void rewind();

  /// Goes on to the next block, which may be empty. Returns false at the end.
  bool next();

  /// The current block. Valid until next() or rewind().
  const Block& block() const { return block_; }

  /// The largest number of objects in a block.
  static constexpr std::size_t kBlock = Accumulator::kBlockSize;

  // Counts of the current pass, up to the current block. A masked object doesn't count as NaN.
  std::size_t kept() const { return kept_; }      ///< Objects given out.
  std::size_t masked() const { return masked_; }  ///< Objects left out by a mask.
  std::size_t nan() const { return nan_; }        ///< Objects with NaN, left out or not.

 private:
  std::size_t size_;
  std::vector<Column> columns_;
  std::vector<Mask> masks_;
  bool omit_nan_;
  bool look_for_nan_ = true;  // not after a whole pass without one
  bool passed_ = false;
  std::size_t kept_before_ = 0;

  std::size_t position_ = 0;
  std::size_t kept_ = 0;
  std::size_t masked_ = 0;
  std::size_t nan_ = 0;
  Block block_;
  std::vector<std::array<double, kBlock>> room_;
};

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_ROWS_H
