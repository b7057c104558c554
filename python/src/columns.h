// The caller's numbers, read block by block as doubles.

#ifndef VOSTREL_PYTHON_SRC_COLUMNS_H
#define VOSTREL_PYTHON_SRC_COLUMNS_H

#include <cstddef>
#include <functional>

namespace vostrel::python {

/// A one-dimensional array of numbers of some type, or another source of numbers. It owns neither.
class Column {
 public:
  /// Returns the numbers first ... first + count - 1: where they are, or written to `buffer`.
  using Source = std::function<const double*(std::size_t first, std::size_t count, double* buffer)>;

  explicit Column(Source source);

  /// @param stride    bytes from one number to the next.
  /// @param kind      the type as NumPy names it: 'f', 'i', 'u' or 'b'.
  /// @param size      bytes of a number: 2, 4, 8 or sizeof(long double) for 'f', 1 for 'b',
  ///                  1, 2, 4 or 8 for 'i' and 'u'.
  /// @param swapped   whether the bytes are in the other order than this machine's.
  /// @throws std::invalid_argument if there is no such type.
  Column(const char* data, std::ptrdiff_t stride, char kind, std::size_t size, bool swapped);

  /// Returns the numbers first ... first + count - 1: in place if they are contiguous doubles, else
  /// converted into `buffer`, which must hold `count`.
  const double* read(std::size_t first, std::size_t count, double* buffer) const;

  /// Returns all numbers if they are contiguous doubles, else a null pointer.
  const double* in_place() const;

 private:
  using Convert = void (*)(const char* data, std::ptrdiff_t stride, std::size_t count,
                           double* result);

  Source source_;  // empty for an array
  const char* data_ = nullptr;
  std::ptrdiff_t stride_ = 0;
  Convert convert_ = nullptr;
  bool is_in_place_ = false;
};

/// A one-dimensional array of truth values, which is not owned: true leaves the object out.
struct Mask {
  const char* data;
  std::ptrdiff_t stride;

  bool operator[](std::size_t i) const {
    return data[static_cast<std::ptrdiff_t>(i) * stride] != 0;
  }
};

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_COLUMNS_H
