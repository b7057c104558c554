#include "statistics/exact_sum.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

#include "floating_point.h"
#include "statistics/also_for_avx2.h"

namespace vostrel {

namespace {

constexpr int kLowestExponent = -1152;  // of word 0: more than 53 bits below the smallest double
constexpr std::int64_t kLowHalf = 0xffffffff;

std::uint64_t bits_of(double value) { return std::bit_cast<std::uint64_t>(value); }

// Splits each value into a multiple of 2^(exponent - 51), a multiple of 2^(exponent - 102), and a
// rest. The unit of the last place of `large` is 2^(exponent - 51), so adding `large` to the value
// rounds it to such a multiple, and the difference from the value is exact. The integers fit, since
// there are at most 2^11 of them and none is above 2^51. Requires: values below 2^exponent.
struct Split {
  explicit Split(int exponent)
      : large(std::ldexp(1.5, exponent + 1)), small(std::ldexp(large, -51)) {}

  // Returns the bits of value + large.
  std::uint64_t add(double value) {
    const double leading = value + large;
    const double next = value - (leading - large);
    const double following = next + small;
    large_sum += bits_of(leading);
    small_sum += bits_of(following);
    rests |= bits_of(next - (following - small));
    return bits_of(leading);
  }

  // The sums of the two multiples, in units of 2^(exponent - 51) and of 2^(exponent - 102).
  std::int64_t large_integer(std::size_t count) const {
    return static_cast<std::int64_t>(large_sum - count * bits_of(large));
  }
  std::int64_t small_integer(std::size_t count) const {
    return static_cast<std::int64_t>(small_sum - count * bits_of(small));
  }

  bool has_rest() const { return rests << 1 != 0; }

  double large;
  double small;
  std::uint64_t large_sum = 0;
  std::uint64_t small_sum = 0;
  std::uint64_t rests = 0;
};

struct Splits {
  // A square that is too large, or NaN, gives its sum a greater exponent.
  bool has_too_large() const { return leading >> 52 != bits_of(squares.large) >> 52; }

  Split values;
  Split squares;
  std::uint64_t leading;  // the bits that are set in the leading sum of any square
};

VOSTREL_ALSO_FOR_AVX2 Splits split_with_squares(std::span<const double> values, int exponent) {
  Split plain(exponent);
  Split squares(2 * exponent);
  std::uint64_t leading = 0;
  for (const double value : values) {
    plain.add(value);
    leading |= squares.add(value * value);
  }
  return {plain, squares, leading};
}

VOSTREL_ALSO_FOR_AVX2 Splits split_squares_about(double center, std::span<const double> values,
                                                 int exponent) {
  Split squares(2 * exponent);
  std::uint64_t leading = 0;
  for (const double value : values) leading |= squares.add((value - center) * (value - center));
  return {Split(exponent), squares, leading};
}

}  // namespace

void ExactSum::add(double value) {
  if (!std::isfinite(value)) {
    not_finite_ += value;
    return;
  }
  int exponent = 0;
  const double fraction = std::frexp(value, &exponent);
  add_integer(static_cast<std::int64_t>(std::ldexp(fraction, 53)), exponent - 53);
}

bool ExactSum::add_with_squares(std::span<const double> values, ExactSum& sum, ExactSum& squares) {
  return squares.add_block(values, 0.0, &sum);
}

bool ExactSum::add_squares_about(double center, std::span<const double> values) {
  return add_block(values, center, nullptr);
}

bool ExactSum::add_block(std::span<const double> values, double center, ExactSum* sum) {
  if (add_split(values, center, sum)) return true;
  double largest = 0;
  for (const double value : values) largest = std::max(largest, std::fabs(value - center));
  std::frexp(largest, &exponent_);
  if (add_split(values, center, sum)) return true;
  for (const double value : values) {
    if (sum != nullptr) sum->add(value);
    add((value - center) * (value - center));
  }
  return false;
}

// Returns false and adds nothing if there is a rest, or if a value is not below 2^exponent_. If the
// splitting overflows, there is a rest: NaN.
bool ExactSum::add_split(std::span<const double> values, double center, ExactSum* sum) {
  if (exponent_ < -400) return false;  // splitting must not meet subnormal numbers
  const Splits splits = sum != nullptr ? split_with_squares(values, exponent_)
                                       : split_squares_about(center, values, exponent_);
  if (splits.has_too_large() || splits.squares.has_rest()) return false;
  if (sum != nullptr) {
    if (splits.values.has_rest()) return false;
    sum->add_integer(splits.values.large_integer(values.size()), exponent_ - 51);
    sum->add_integer(splits.values.small_integer(values.size()), exponent_ - 102);
  }
  add_integer(splits.squares.large_integer(values.size()), 2 * exponent_ - 51);
  add_integer(splits.squares.small_integer(values.size()), 2 * exponent_ - 102);
  return true;
}

void ExactSum::add_integer(std::int64_t integer, int exponent) {
  const int offset = exponent - kLowestExponent;
  const auto word = static_cast<std::size_t>(offset / 32);
  const int shift = offset % 32;
  const std::int64_t low = (integer & kLowHalf) << shift;
  const std::int64_t high = (integer >> 32) * (std::int64_t{1} << shift);
  words_[word] += low & kLowHalf;
  words_[word + 1] += (low >> 32 & kLowHalf) + (high & kLowHalf);
  words_[word + 2] += high >> 32;
  if (++additions_ >= std::int64_t{1} << 28) carry();
}

// Brings every word except the last into the range of 32 bits.
void ExactSum::carry() {
  for (std::size_t i = 0; i + 1 < kWords; ++i) {
    words_[i + 1] += words_[i] >> 32;
    words_[i] &= kLowHalf;
  }
  additions_ = 0;
}

void ExactSum::merge(const ExactSum& other) {
  carry();
  for (std::size_t i = 0; i < kWords; ++i) words_[i] += other.words_[i];
  additions_ = other.additions_ + 1;
  not_finite_ += other.not_finite_;
}

void ExactSum::write(ByteWriter& out) const {
  ExactSum sum = *this;
  sum.carry();
  for (const std::int64_t word : sum.words_) out.integer(static_cast<std::uint64_t>(word));
  out.number(not_finite_);
}

ExactSum ExactSum::read(ByteReader& in) {
  ExactSum sum;
  for (std::int64_t& word : sum.words_) {
    word = static_cast<std::int64_t>(in.integer());
    const bool is_top = &word == &sum.words_.back();
    in.require(is_top ? word > -kLowHalf - 1 && word < kLowHalf - 1 : word >> 32 == 0);
  }
  sum.not_finite_ = in.number();
  return sum;
}

double ExactSum::total() const {
  if (not_finite_ != 0) return not_finite_;  // NaN is not 0 either
  ExactSum sum = *this;
  sum.carry();
  const bool negative = sum.words_.back() < 0;
  if (negative) {
    for (std::int64_t& word : sum.words_) word = -word;
    sum.carry();
  }
  std::size_t top = kWords;
  while (top > 0 && sum.words_[top - 1] == 0) --top;
  if (top == 0) return 0.0;
  --top;
  const auto word = [&](std::size_t below) {
    return below <= top ? static_cast<std::uint64_t>(sum.words_[top - below]) : 0;
  };

  // The leading 64 bits, and whether a bit below them is set.
  const int leading = std::countl_zero(static_cast<std::uint32_t>(word(0)));
  const std::uint64_t bits = (word(0) << 32 | word(1)) << leading | (word(2) << leading >> 32);
  bool more = (word(2) << leading & 0xffffffff) != 0;
  for (std::size_t below = 3; below <= top && !more; ++below) more = word(below) != 0;

  // Rounds to 53 bits. If the sum is subnormal, no bits are lost: it is a multiple of the smallest
  // double, as each value is.
  const int exponent = 32 * (static_cast<int>(top) - 1) + kLowestExponent - leading;  // of a bit
  constexpr int kDropped = 11;
  constexpr std::uint64_t kHalf = std::uint64_t{1} << (kDropped - 1);
  const std::uint64_t kept = bits >> kDropped;
  const std::uint64_t rest = bits & (2 * kHalf - 1);
  const bool up = rest > kHalf || (rest == kHalf && (more || kept % 2 == 1));
  const double magnitude = std::ldexp(static_cast<double>(kept + up), exponent + kDropped);
  return negative ? -magnitude : magnitude;
}

}  // namespace vostrel
