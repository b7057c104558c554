// DLPack's tensors as NumPy's arrays, without a copy of the numbers.

#include <pybind11/numpy.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "python/src/calls.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

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

struct DeleteTensor {
  template <class Managed>
  void operator()(Managed* managed) const {
    if (managed->deleter != nullptr) managed->deleter(managed);
  }
};

template <class Managed>
using OwnedTensor = std::unique_ptr<Managed, DeleteTensor>;

void require_tensor(bool condition, const char* otherwise) {
  if (!condition) {
    throw std::invalid_argument(std::string("its DLPack tensor is malformed: ") + otherwise);
  }
}

py::dtype dtype_of(const DLTensor& tensor) {
  enum : std::uint8_t { kInt = 0, kUint = 1, kFloat = 2, kBfloat = 4, kComplex = 5, kBool = 6 };
  if (tensor.code == kBfloat) throw NotNumbers("bfloat16: convert it to float32 first");
  if (tensor.code == kComplex) throw NotNumbers("complex numbers");
  constexpr std::array kKinds = {std::pair{kInt, 'i'}, std::pair{kUint, 'u'},
                                 std::pair{kFloat, 'f'}, std::pair{kBool, 'b'}};
  constexpr std::array kSizes = {1, 2, 4, 8};
  for (const auto& [code, kind] : kKinds) {
    for (const int size : kSizes) {
      const bool exists = (kind != 'f' || size > 1) && (kind != 'b' || size == 1);
      if (exists && tensor.code == code && tensor.bits == 8 * size && tensor.lanes == 1) {
        return py::dtype(kind + std::to_string(size));
      }
    }
  }
  throw NotNumbers("values of an unknown type of DLPack");
}

// The memory of the numbers as an array of the tensor's shape.
py::array array_of_tensor(const DLTensor& tensor, const py::capsule& owner) {
  enum : std::int32_t { kCpu = 1, kCudaHost = 3, kRocmHost = 11 };
  require_tensor(tensor.device_type == kCpu || tensor.device_type == kCudaHost ||
                     tensor.device_type == kRocmHost,
                 "it is on a device");
  const py::dtype type = dtype_of(tensor);
  const py::ssize_t size = type.itemsize();
  // Of bytes. What lies beyond the first number is at most this far away, in either direction.
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / 64;
  constexpr std::int32_t kMostDimensions = 32;  // as in NumPy
  require_tensor(tensor.ndim >= 0 && tensor.ndim <= kMostDimensions, "the dimensions are wrong");
  require_tensor(tensor.ndim == 0 || tensor.shape != nullptr, "the shape is missing");
  require_tensor(tensor.byte_offset <= kMost, "the offset is too large");

  std::vector<py::ssize_t> shape(tensor.shape, tensor.shape + tensor.ndim);
  std::vector<py::ssize_t> strides(shape.size());
  std::int64_t count = 1;
  bool empty = false;
  for (std::size_t i = shape.size(); i-- > 0;) {
    const std::int64_t length = shape[i];
    require_tensor(length >= 0, "a length is negative");
    require_tensor(length <= kMost / size / count, "the shape is too large");
    const std::int64_t stride = tensor.strides == nullptr ? count : tensor.strides[i];
    const std::int64_t least = std::max<std::int64_t>(length, 1);
    require_tensor(stride <= kMost / size / least && stride >= -kMost / size / least,
                   "a stride is too large");
    strides[i] = stride * size;
    count *= least;
    empty |= length == 0;
  }
  if (empty) return {type, shape};
  require_tensor(tensor.data != nullptr, "the numbers are missing");
  return {type, shape, strides, static_cast<const char*>(tensor.data) + tensor.byte_offset, owner};
}

template <class Managed>
py::array take(const py::handle& capsule, const char* name, const char* used_name) {
  auto* const managed = static_cast<Managed*>(PyCapsule_GetPointer(capsule.ptr(), name));
  PyCapsule_SetName(capsule.ptr(), used_name);
  OwnedTensor<Managed> held(managed);
  if constexpr (requires { managed->major; }) {
    require_tensor(managed->major == 1, "its version is unknown");
  }
  const py::capsule owner(managed,
                          [](void* owned) { DeleteTensor()(static_cast<Managed*>(owned)); });
  static_cast<void>(held.release());
  py::array result = array_of_tensor(managed->tensor, owner);
  result.attr("flags").attr("writeable") = false;
  return result;
}

py::array read_dlpack(const py::handle& capsule) {
  constexpr const char* kVersioned = "dltensor_versioned";
  if (PyCapsule_IsValid(capsule.ptr(), kVersioned) != 0) {
    return take<DLManagedTensorVersioned>(capsule, kVersioned, "used_dltensor_versioned");
  }
  if (PyCapsule_IsValid(capsule.ptr(), "dltensor") == 0) {
    throw std::invalid_argument("it gave no capsule named dltensor");
  }
  return take<DLManagedTensor>(capsule, "dltensor", "used_dltensor");
}

}  // namespace

void add_dlpack(py::module_& module) { module.def("read_dlpack", read_dlpack, py::arg("capsule")); }

}  // namespace vostrel::python
