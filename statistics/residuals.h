// The two residuals of an object.

#ifndef VOSTREL_STATISTICS_RESIDUALS_H
#define VOSTREL_STATISTICS_RESIDUALS_H

#include "floating_point.h"

namespace vostrel {

/// reference - estimate.
constexpr double residual(double reference, double estimate) { return reference - estimate; }

/// (reference - estimate) / (1 + reference). A reference of -1 gives an infinity, or NaN if the
/// estimate is -1 too.
constexpr double normalized_residual(double reference, double estimate) {
  return (reference - estimate) / (1.0 + reference);
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_RESIDUALS_H
