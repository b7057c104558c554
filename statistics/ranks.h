// The values of given ranks among values that come in blocks, several times over.

#ifndef VOSTREL_STATISTICS_RANKS_H
#define VOSTREL_STATISTICS_RANKS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vostrel {

/// Finds the values that stand at given places of the ascending order, without ordering or keeping
/// all values:
///
///     vostrel::Ranks ranks(n, {n / 2});
///     do {
///       for (each block of the values) ranks.add(block);
///     } while (ranks.end_pass());
///     const double upper_middle = ranks.values()[0];
///
/// Each pass counts the values by the next twelve bits of those that share the leading bits of a
/// wanted one. When it takes less memory to keep such values than to count them, they are kept and
/// the pass is the last. There are at most six passes, and three for most data.
class Ranks {
 public:
  /// @param n      how many values there are.
  /// @param ranks  places in the ascending order, counted from 0, ascending themselves and below n.
  Ranks(std::uint64_t n, std::vector<std::uint64_t> ranks);

  /// Adds a block of the values. The same values must come in each pass, in any order. They must
  /// not be NaN.
  void add(std::span<const double> values);

  /// Ends the pass.
  /// @return whether another pass is needed.
  /// @throws std::invalid_argument when this pass had other values than the one before.
  bool end_pass();

  /// The values of the ranks, when no other pass is needed. A zero may have either sign.
  const std::vector<double>& values() const { return values_; }

 private:
  // The values that share the bits above those that are settled next.
  struct Group {
    std::uint64_t leading;  // the bits that they share, the others 0
    std::uint64_t size;
    std::uint64_t before;                    // values that are smaller than the group's
    std::size_t first_rank;                  // the wanted ranks in the group
    std::size_t last_rank;                   // one behind
    std::vector<std::uint64_t> counts = {};  // by the next bits
    std::vector<std::uint32_t> inner = {};  // by the next bits: the group of a later pass, or kNone
    std::vector<std::uint64_t> kept = {};   // in the last pass
  };

  Group* find(std::uint64_t order);
  void start_pass(std::size_t first_open);
  void count(std::span<const double> values);
  void keep(std::span<const double> values);
  void refine();
  void take_kept();
  void finish();

  std::vector<std::uint64_t> ranks_;
  std::vector<double> values_;
  std::vector<Group> groups_;  // the groups of a pass stand behind those of the passes before
  std::size_t first_open_ = 0;
  int depth_ = 0;  // how often twelve bits have been settled
  bool keeping_ = false;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_RANKS_H
