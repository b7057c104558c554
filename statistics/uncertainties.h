// The moments and order statistics from which errors follow by formula.

#ifndef VOSTREL_STATISTICS_UNCERTAINTIES_H
#define VOSTREL_STATISTICS_UNCERTAINTIES_H

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "statistics/accumulator.h"
#include "statistics/tally.h"

namespace vostrel {

/// The spreads of the residual and of the normalized residual. No array of residuals is made.
/// @param ranks  ranks of |r|, from 0 (the smallest) to n - 1.
/// Requires: both arrays have the same length, which is not 0. There is no NaN.
std::array<Spread, 2> spreads(
    std::span<const double> reference, std::span<const double> estimate,
    std::span<const std::uint64_t> ranks, const Checkpoint& checkpoint = [] {});

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_UNCERTAINTIES_H
