// Arrow's arrays as NumPy's, without a copy of the numbers.

#ifndef VOSTREL_PYTHON_SRC_ARROW_H
#define VOSTREL_PYTHON_SRC_ARROW_H

#include <pybind11/pybind11.h>

#include <cstdint>

namespace vostrel::python {

// The structs of Arrow's C data interface and C stream interface, which never change:
// https://arrow.apache.org/docs/format/CDataInterface.html. Who owns one calls its `release` once.
// A `release` of null marks a struct that is released or moved from, or the end of a stream.

struct ArrowSchema {
  const char* format;
  const char* name;
  const char* metadata;
  std::int64_t flags;
  std::int64_t n_children;
  ArrowSchema** children;
  ArrowSchema* dictionary;
  void (*release)(ArrowSchema*);
  void* private_data;
};

struct ArrowArray {
  std::int64_t length;
  std::int64_t null_count;  // -1 if it is not known
  std::int64_t offset;
  std::int64_t n_buffers;
  std::int64_t n_children;
  const void** buffers;  // validity bits, which may be null, and values
  ArrowArray** children;
  ArrowArray* dictionary;
  void (*release)(ArrowArray*);
  void* private_data;
};

struct ArrowArrayStream {
  int (*get_schema)(ArrowArrayStream*, ArrowSchema* result);
  int (*get_next)(ArrowArrayStream*, ArrowArray* result);
  const char* (*get_last_error)(ArrowArrayStream*);
  void (*release)(ArrowArrayStream*);
  void* private_data;
};

/// Adds read_arrow_array and read_arrow_stream to the module.
void add_arrow(pybind11::module_& module);

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_ARROW_H
