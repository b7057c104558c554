#include "statistics/exact_sum.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

namespace vostrel {

namespace {

constexpr int kLowestExponent = -1088;  // of limb 0

std::int64_t bits_of(double value) { return std::bit_cast<std::int64_t>(value); }

// Splits each value, all below 2^exponent, into a multiple of 2^(exponent - 51) and a rest, which
// takes the value's place. Both are exact: 1.5 * 2^(exponent + 1) is so large that the sum has just
// those multiples as its last bits.
// Returns the sum of the multiples in units of 2^(exponent - 51). It fits as long as there are at
// most 2^11 values.
std::int64_t split_off(std::span<double> values, int exponent, std::uint64_t& rest) {
  const double large = std::ldexp(1.5, exponent + 1);
  std::uint64_t sum = 0;
  std::uint64_t rests = 0;
  for (double& value : values) {
    const double rounded = value + large;
    sum += static_cast<std::uint64_t>(bits_of(rounded));
    value -= rounded - large;
    rests |= static_cast<std::uint64_t>(bits_of(value));
  }
  rest = rests << 1;  // without the sign
  return static_cast<std::int64_t>(sum -
                                   values.size() * static_cast<std::uint64_t>(bits_of(large)));
}

}  // namespace

void ExactSum::flush() {
  add_block({block_.data(), used_});
  used_ = 0;
}

void ExactSum::add_block(std::span<double> values) {
  double largest = 0;
  for (const double value : values) largest = std::max(largest, std::fabs(value));
  int exponent = 0;
  std::frexp(largest, &exponent);
  constexpr int kMost = 1000;  // a splitting must not overflow, nor lose bits below 2^-1074
  double not_numbers = 0;
  for (const double value : values) not_numbers += value * 0;
  if (!(not_numbers == 0)) exponent = kMost + 1;
  if (exponent > kMost || exponent < -kMost + 200) {
    for (const double value : values) {
      if (!std::isfinite(value)) {
        not_finite_ += value;
        continue;
      }
      int e = 0;
      const double fraction = std::frexp(value, &e);
      add_integer(static_cast<std::int64_t>(std::ldexp(fraction, 53)), e - 53);
    }
    return;
  }
  for (std::uint64_t rest = 1; rest != 0; exponent -= 51) {
    const std::int64_t sum = split_off(values, exponent, rest);
    add_integer(sum, exponent - 51);
  }
}

void ExactSum::add_integer(std::int64_t integer, int exponent) {
  // Whole multiples of 32 bits tell the limb, the rest shifts the integer.
  const int offset = exponent - kLowestExponent;
  const auto limb = static_cast<std::size_t>(offset / 32);
  const int shift = offset % 32;
  const std::int64_t low = (integer & 0xffffffff) << shift;
  const std::int64_t high = (integer >> 32) * (std::int64_t{1} << shift);
  limbs_[limb] += low & 0xffffffff;
  limbs_[limb + 1] += (low >> 32) + (high & 0xffffffff);
  limbs_[limb + 2] += high >> 32;
  if (++additions_ == std::int64_t{1} << 28) carry();
}

void ExactSum::carry() {
  for (std::size_t i = 0; i + 1 < kLimbs; ++i) {
    limbs_[i + 1] += limbs_[i] >> 32;
    limbs_[i] &= 0xffffffff;
  }
  additions_ = 0;
}

void ExactSum::merge(const ExactSum& other) {
  ExactSum more = other;
  more.flush();
  more.carry();
  carry();
  for (std::size_t i = 0; i < kLimbs; ++i) limbs_[i] += more.limbs_[i];
  additions_ = 1;
  not_finite_ += more.not_finite_;
}

double ExactSum::total() const {
  ExactSum sum = *this;
  sum.flush();
  if (!(sum.not_finite_ == 0)) return sum.not_finite_;
  sum.carry();
  auto& limbs = sum.limbs_;
  const bool negative = limbs[kLimbs - 1] < 0;
  if (negative) {
    for (std::int64_t& limb : limbs) limb = -limb;
    sum.carry();
  }
  std::size_t top = kLimbs;
  while (top > 0 && limbs[top - 1] == 0) --top;
  if (top == 0) return 0.0;
  // The leading 64 bits or more of three limbs, the last bit set if there are any bits below.
  --top;
  const auto limb = [&](std::size_t below) {
    return below <= top ? static_cast<std::uint64_t>(limbs[top - below]) : 0;
  };
  const int leading = std::countl_zero(limb(0)) - 32;  // of the 32 bits of the top limb
  std::uint64_t bits = limb(0) << 32 | limb(1);
  bits = leading == 0 ? bits : bits << leading | limb(2) >> (32 - leading);
  bool more = leading == 0 ? limb(2) != 0 : (limb(2) << (32 + leading)) != 0;
  for (std::size_t below = 3; below <= top && !more; ++below) more = limb(below) != 0;
  // Below 2^-1022 fewer bits count.
  const int exponent = 32 * static_cast<int>(top) + kLowestExponent - 32 - leading;  // of bits
  const int dropped = std::max(11, -1074 - exponent);
  if (dropped > 64) return negative ? -0.0 : 0.0;
  const std::uint64_t kept = dropped == 64 ? 0 : bits >> dropped;
  const std::uint64_t half = std::uint64_t{1} << (dropped - 1);
  const std::uint64_t rest = bits & (half | (half - 1));
  const bool up = rest > half || (rest == half && (more || (kept & 1) != 0));
  const double magnitude = std::ldexp(static_cast<double>(kept + up), exponent + dropped);
  return negative ? -magnitude : magnitude;
}

}  // namespace vostrel
