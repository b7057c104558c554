// The caller's numbers, read block by block as doubles.

#ifndef VOSTREL_PYTHON_SRC_COLUMNS_H
#define VOSTREL_PYTHON_SRC_COLUMNS_H

#include <cstddef>
#include <functional>

namespace vostrel::python {

/// A one-dimensional array of numbers of some type, or another source of numbers. It owns neither.
class Column {
 public:
  /// Puts the numbers first ... first + count - 1 into `room`.
  using Source = std::function<void(std::size_t first, std::size_t count, double* room)>;

  explicit Column(Source source);

  /// @param kind      the type as NumPy names it: 'f', 'i', 'u' or 'b'.
  /// @param size      bytes of a number: 2, 4, 8 or that of long double; 1, 2, 4, 8; 1.
  /// @param swapped   the bytes of a number are in the other order than this machine's.
  /// @param stride    bytes from one number to the next.
  /// @throws std::invalid_argument when there is no such type of numbers.
  Column(const char* data, std::ptrdiff_t stride, char kind, std::size_t size, bool swapped);

  /// The numbers first ... first + count - 1. They are in the array itself when it is made of
  /// doubles, one after the other; else they are converted into `room`, which has `count` places.
  const double* read(std::size_t first, std::size_t count, double* room) const;

 private:
  using Convert = void (*)(const char* data, std::ptrdiff_t stride, std::size_t count,
                           double* result);

  Source source_;  // empty for an array
  const char* data_ = nullptr;
  std::ptrdiff_t stride_ = 0;
  Convert convert_ = nullptr;
  bool in_place_ = false;
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
