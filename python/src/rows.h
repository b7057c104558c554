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

/// Some objects: their first two columns, and what they are binned by.
struct Block {
  std::span<const double> reference;
  std::span<const double> estimate;  ///< Empty if there is one column.
  std::span<const double> by;        ///< The third column, or the reference if there is none.
  std::span<const double> nan_by;    ///< `by` of the objects that are left out as NaN.
};

/// Reads columns of one length block by block, repeatedly if needed.
///
///     do { rows.rewind(); while (rows.next()) use(rows.block()); } while (...);
class Rows {
 public:
  /// @param columns   one or more. The first three are those of Block.
  /// @param masks     an object is left out if one of them is true for it.
  /// @param omit_nan  leave out objects with a NaN in one of the columns.
  Rows(std::size_t size, std::vector<Column> columns, std::vector<Mask> masks, bool omit_nan);

  /// Skips the search for NaN from now on.
  void expect_no_nan() { look_for_nan_ = false; }
  /// Starts anew, with a search for NaN.
  void look_for_nan() {
    look_for_nan_ = true;
    passed_ = false;
  }

  /// Starts another pass.
  void rewind();
  /// Skips the rest of the pass, whose counts are of no use then.
  void skip_rest() { position_ = size_; }

  /// Moves to the next block, which may be empty. Returns false at the end.
  /// @throws std::runtime_error at the end of a pass that saw another number of objects than the
  ///         one before: the arrays have changed.
  bool next();

  // The current block. Valid until next() or rewind().
  const Block& block() const { return block_; }
  std::span<const double> column(std::size_t i) const { return {values_[i], block_kept_}; }
  std::size_t first() const { return first_; }  ///< The index of its first object, left out or not.
  std::span<const bool> left_out() const { return left_out_; }  ///< Empty if no object is left out.

  /// All numbers of a column if they are contiguous doubles, else a null pointer.
  const double* in_place(std::size_t i) const { return columns_[i].in_place(); }

  /// The number of objects, left out or not.
  std::size_t size() const { return size_; }

  /// The largest number of objects in a block.
  static constexpr std::size_t kBlock = Accumulator::kBlockSize;

  // Counts of the current pass, up to the current block. A masked object doesn't count as NaN.
  std::size_t kept() const { return kept_; }      ///< Objects given out.
  std::size_t masked() const { return masked_; }  ///< Objects left out by a mask.
  std::size_t nan() const { return nan_; }        ///< Objects with NaN, left out or not.

 private:
  std::size_t choose(std::size_t count);
  void compact(std::size_t count);

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

  // Of the current block.
  std::size_t first_ = 0;
  std::size_t block_kept_ = 0;
  std::vector<const double*> values_;
  std::vector<double> nan_by_;
  std::span<const bool> left_out_;
  Block block_;
  std::vector<std::array<double, kBlock>> room_;
  std::array<bool, kBlock> left_out_room_;
};

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_ROWS_H
