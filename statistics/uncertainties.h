// What the formulas for standard errors and intervals are made of.

#ifndef VOSTREL_STATISTICS_UNCERTAINTIES_H
#define VOSTREL_STATISTICS_UNCERTAINTIES_H

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace vostrel {

/// Of one residual r of n objects.
struct Spread {
  double second;                 ///< Mean of r^2.
  double fourth;                 ///< Mean of r^4.
  double second_about;           ///< Mean of (r - bias)^2.
  double fourth_about;           ///< Mean of (r - bias)^4.
  std::vector<double> absolute;  ///< The |r| of the ranks that were asked for.
};

/// The spread of the residual, and of the normalized residual. Takes 8 bytes an object.
/// @param ranks  from 0, the smallest |r|, to n - 1.
/// Requires: both arrays have the same length, which is not 0, and there are no NaN.
std::array<Spread, 2> spreads(std::span<const double> reference, std::span<const double> estimate,
                              std::span<const std::uint64_t> ranks);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_UNCERTAINTIES_H
