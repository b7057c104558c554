// DLPack's tensors as NumPy's arrays, without a copy of the numbers.

#ifndef VOSTREL_PYTHON_SRC_DLPACK_H
#define VOSTREL_PYTHON_SRC_DLPACK_H

#include <pybind11/pybind11.h>

#include <cstdint>

namespace vostrel::python {

// The structs of DLPack 1.0 and before: https://dmlc.github.io/dlpack/latest/c_api.html.
// Who owns a managed tensor calls its deleter once, unless that is null.

struct DLTensor {
  void* data;
  std::int32_t device_type;
  std::int32_t device_id;
  std::int32_t ndim;
  std::uint8_t code;
  std::uint8_t bits;
  std::uint16_t lanes;
  std::int64_t* shape;
  std::int64_t* strides;  // in numbers; null if the last index runs fastest and there are no gaps
  std::uint64_t byte_offset;
};

struct DLManagedTensor {
  DLTensor tensor;
  void* manager_context;
  void (*deleter)(DLManagedTensor*);
};

struct DLManagedTensorVersioned {
  std::uint32_t major;
  std::uint32_t minor;
  void* manager_context;
  void (*deleter)(DLManagedTensorVersioned*);
  std::uint64_t flags;
  DLTensor tensor;
};

/// Adds read_dlpack to the module.
void add_dlpack(pybind11::module_& module);

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_DLPACK_H
