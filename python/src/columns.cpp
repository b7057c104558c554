#include "python/src/columns.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "floating_point.h"

namespace vostrel::python {

namespace {

// IEEE 754 binary16: sign, five bits of exponent, ten of fraction.
struct Half {
  std::uint16_t bits;

  explicit operator double() const {
    const int exponent = bits >> 10 & 31;
    const int fraction = bits & 1023;
    double magnitude = 0;
    if (exponent == 31) {
      // NOLINTNEXTLINE(bugprone-narrowing-conversions): it means "from double to double"
      magnitude = fraction == 0 ? kInfinity : kNaN;
    } else if (exponent == 0) {
      magnitude = std::ldexp(fraction, -24);
    } else {
      magnitude = std::ldexp(fraction + 1024, exponent - 25);
    }
    return (bits & 0x8000) != 0 ? -magnitude : magnitude;
  }
};

// The array may be unaligned, so each number is copied out.
template <class Number, bool kSwapped>
void convert(const char* data, std::ptrdiff_t stride, std::size_t count, double* result) {
  for (std::size_t i = 0; i < count; ++i) {
    std::array<char, sizeof(Number)> bytes;
    std::memcpy(bytes.data(), data + static_cast<std::ptrdiff_t>(i) * stride, sizeof(Number));
    if constexpr (kSwapped) std::reverse(bytes.begin(), bytes.end());
    Number number;
    std::memcpy(&number, bytes.data(), sizeof(Number));
    result[i] = static_cast<double>(number);
  }
}

struct Type {
  char kind;
  std::size_t size;
  void (*native)(const char*, std::ptrdiff_t, std::size_t, double*);
  void (*swapped)(const char*, std::ptrdiff_t, std::size_t, double*);
};

template <class Number>
constexpr Type type(char kind) {
  return {kind, sizeof(Number), convert<Number, false>, convert<Number, true>};
}

constexpr std::array kTypes = {
    type<double>('f'),
    type<float>('f'),
    type<Half>('f'),
    type<std::int8_t>('i'),
    type<std::int16_t>('i'),
    type<std::int32_t>('i'),
    type<std::int64_t>('i'),
    type<std::uint8_t>('u'),
    type<std::uint16_t>('u'),
    type<std::uint32_t>('u'),
    type<std::uint64_t>('u'),
    type<std::uint8_t>('b'),
    Type{'f', sizeof(long double), convert<long double, false>, nullptr},
};

}  // namespace

Column::Column(Source source) : source_(std::move(source)) {}

Column::Column(const char* data, std::ptrdiff_t stride, char kind, std::size_t size, bool swapped)
    : data_(data), stride_(stride) {
  for (const Type& type : kTypes) {
    if (type.kind == kind && type.size == size) {
      convert_ = swapped ? type.swapped : type.native;
      break;
    }
  }
  if (convert_ == nullptr) throw std::invalid_argument("numbers of a type that can't be read");
  const bool aligned = reinterpret_cast<std::uintptr_t>(data) % alignof(double) == 0;
  is_in_place_ = kind == 'f' && size == sizeof(double) && !swapped && aligned &&
                 stride == static_cast<std::ptrdiff_t>(sizeof(double));
}

const double* Column::read(std::size_t first, std::size_t count, double* buffer) const {
  if (source_) return source_(first, count, buffer);
  const char* const start = data_ + static_cast<std::ptrdiff_t>(first) * stride_;
  if (is_in_place_) return reinterpret_cast<const double*>(start);
  convert_(start, stride_, count, buffer);
  return buffer;
}

const double* Column::in_place() const {
  return is_in_place_ ? reinterpret_cast<const double*>(data_) : nullptr;
}

}  // namespace vostrel::python
