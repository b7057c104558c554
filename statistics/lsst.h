// The four metrics of point estimates in LSST's photometric-redshift pipelines.

#ifndef VOSTREL_STATISTICS_LSST_H
#define VOSTREL_STATISTICS_LSST_H

#include <algorithm>
#include <cstdint>

#include "statistics/quantiles.h"
#include "statistics/statistics.h"

namespace vostrel {

/// The smallest bound of LSST's outliers.
inline constexpr double kLsstSmallestBound = 0.06;

/// LSST's outliers are |e| beyond this.
inline double lsst_bound(double sigma_iqr) { return std::max(kLsstSmallestBound, 3 * sigma_iqr); }

/// LSST's error e = (estimate - reference) / (1 + reference) is the normalized residual with the
/// other sign, and its order is reversed. Turns a function that returns the normalized residual of
/// a rank into one that returns e of a rank. A zero keeps its sign.
template <class Value>
auto lsst_errors(std::uint64_t n, Value value) {
  return [n, value](std::uint64_t rank) {
    const double residual = value(n - 1 - rank);
    return residual == 0 ? residual : -residual;
  };
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_LSST_H
