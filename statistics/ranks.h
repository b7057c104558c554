// The values of given ranks among values that are added block by block, in several passes.

#ifndef VOSTREL_STATISTICS_RANKS_H
#define VOSTREL_STATISTICS_RANKS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vostrel {

/// Finds the values of given ranks, without sorting or keeping all values:
///
///     vostrel::Ranks ranks(n, {n / 2});
///     do {
///       for (each block of the values) ranks.add(block);
///     } while (ranks.end_pass());
///     const double upper_middle = ranks.values()[0];
///
/// The values that share the leading bits of a wanted value form a group. Each pass counts the
/// values of each group by their next twelve bits. Once it takes less memory to keep the values of
/// the groups than to count them, they are kept, and that pass is the last. Most data take three
/// passes, and none take more than six.
class Ranks {
 public:
  /// @param n      the number of values.
  /// @param ranks  the ranks wanted, from 0 to n - 1, sorted ascending.
  Ranks(std::uint64_t n, std::vector<std::uint64_t> ranks);

  /// Adds a block of the values. Each pass must see the same values, in any order. Requires: no
  /// NaN.
  void add(std::span<const double> values);

  /// Ends the pass.
  /// @return whether another pass is needed.
  /// @throws std::invalid_argument if this pass saw other values than the one before.
  bool end_pass();

  /// The values of the ranks. A zero may have either sign. Requires: no other pass is needed.
  const std::vector<double>& values() const { return values_; }

 private:
  // Values that share their leading bits. Values are handled as sortable integers.
  struct Group {
    std::uint64_t leading;  // the bits that they share; the other bits are 0
    std::uint64_t size;
    std::uint64_t before;                    // how many values are smaller than the group's
    std::size_t first_rank;                  // the wanted ranks in the group
    std::size_t last_rank;                   // one past the last of them
    std::vector<std::uint64_t> counts = {};  // by the next bits
    std::vector<std::uint32_t> inner =
        {};                                // by the next bits: the group of the next pass, or kNone
    std::vector<std::uint64_t> kept = {};  // in the last pass
  };

  Group* find(std::uint64_t sortable);
  void start_pass(std::size_t first_open);
  void count(std::span<const double> values);
  void keep(std::span<const double> values);
  void refine();
  void take_kept();
  void finish();

  std::vector<std::uint64_t> ranks_;
  std::vector<double> values_;
  std::vector<Group> groups_;   // those of earlier passes first
  std::size_t first_open_ = 0;  // the first group of this pass
  int depth_ = 0;               // the number of earlier passes, each of which settled twelve bits
  bool keeping_ = false;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_RANKS_H
