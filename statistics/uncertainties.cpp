#include "statistics/uncertainties.h"

#include "statistics/basic_accumulator.h"

namespace vostrel {

std::array<Spread, 2> spreads(std::span<const double> reference, std::span<const double> estimate,
                              std::span<const std::uint64_t> ranks, const Checkpoint& checkpoint) {
  Wanted wanted;
  wanted.has_fourth = true;
  wanted.absolute.assign(ranks.begin(), ranks.end());
  const FoundOfBoth found = find_in_order(reference, estimate, wanted, checkpoint);
  return {found.delta.spread, found.norm.spread};
}

}  // namespace vostrel
