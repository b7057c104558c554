// Refuses compilers and options that would change the last bits of results, and names the two
// special values. Each source that computes includes this.

#ifndef VOSTREL_FLOATING_POINT_H
#define VOSTREL_FLOATING_POINT_H

#include <cfloat>
#include <limits>

// clang-format off
#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__) || \
    (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__ != 0)
#error "vostrel needs NaN, infinities and exact rounding: compile without -ffast-math or any part of it"
#elif FLT_EVAL_METHOD < 0 || FLT_EVAL_METHOD == 2
#error "vostrel needs arithmetic that rounds to double, unlike x87's: compile with -msse2 -mfpmath=sse"
#elif DBL_MANT_DIG != 53
#error "vostrel needs IEEE 754 doubles"
#endif
// clang-format on

// Each operation rounds by itself, also when the sources are compiled without -ffp-contract=off.
#if defined(__clang__)
#pragma STDC FP_CONTRACT OFF
#elif defined(__FP_FAST_FMA)
#pragma GCC optimize("-ffp-contract=off")
#endif

namespace vostrel {

inline constexpr double kInfinity = std::numeric_limits<double>::infinity();
inline constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

}  // namespace vostrel

#endif  // VOSTREL_FLOATING_POINT_H
