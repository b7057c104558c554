// Arrow's arrays as NumPy's, without a copy of the numbers.

#include <pybind11/numpy.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "python/src/calls.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

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

// Owns a struct of Arrow, and releases it.
template <class Struct>
class Owned {
 public:
  Owned() = default;
  Owned(Owned&& other) noexcept : value_(std::exchange(other.value_, {})) {}
  Owned& operator=(Owned&&) = delete;
  ~Owned() {
    if (value_.release != nullptr) value_.release(&value_);
  }

  // Takes the struct out of a capsule of this name.
  static Owned from(const py::handle& capsule, const char* name) {
    if (PyCapsule_IsValid(capsule.ptr(), name) == 0) {
      throw std::invalid_argument("it gave no capsule named " + std::string(name));
    }
    auto* const given = static_cast<Struct*>(PyCapsule_GetPointer(capsule.ptr(), name));
    if (given->release == nullptr) {
      throw std::invalid_argument("it was read before, and can be read only once");
    }
    Owned result;
    result.value_ = *given;
    given->release = nullptr;
    return result;
  }

  Struct* get() { return &value_; }
  const Struct* operator->() const { return &value_; }
  const Struct& operator*() const { return value_; }

 private:
  Struct value_{};
};

void require(bool condition, const char* otherwise) {
  if (!condition)
    throw std::invalid_argument(std::string("its Arrow data are malformed: ") + otherwise);
}

// ---- schemas ------------------------------------------------------------------------------------

struct ArrowType {
  std::string_view format;
  const char* dtype;  // as NumPy calls it
  std::size_t size;   // of a value in bytes, or 0 for bits
};

constexpr std::array kArrowTypes = {
    ArrowType{"g", "f8", 8}, ArrowType{"f", "f4", 4}, ArrowType{"e", "f2", 2},
    ArrowType{"c", "i1", 1}, ArrowType{"s", "i2", 2}, ArrowType{"i", "i4", 4},
    ArrowType{"l", "i8", 8}, ArrowType{"C", "u1", 1}, ArrowType{"S", "u2", 2},
    ArrowType{"I", "u4", 4}, ArrowType{"L", "u8", 8}, ArrowType{"b", "?", 0},
};

// What is in a column of another type, by the beginning of its format.
constexpr std::array<std::pair<std::string_view, const char*>, 11> kOtherTypes = {{
    {"vu", "text"},
    {"u", "text"},
    {"U", "text"},
    {"vz", "bytes"},
    {"z", "bytes"},
    {"Z", "bytes"},
    {"w", "bytes"},
    {"t", "times"},
    {"d", "decimals: cast them to float64"},
    {"n", "the type null: cast it to float64"},
    {"+", "nested values"},
}};

// Columns of numbers, alone or the only one of a table.
struct Form {
  ArrowType type;
  bool in_table;
};

// Refuses a table of several columns, or of none.
[[noreturn]] void refuse_table(const ArrowSchema& schema) {
  if (schema.n_children == 0) throw NotNumbers("a table without columns");
  constexpr std::int64_t kMost = 3;
  std::string names;
  for (std::int64_t i = 0; i < std::min(schema.n_children, kMost); ++i) {
    require(schema.children[i] != nullptr, "a column is missing");
    const char* const name = schema.children[i]->name;
    names += std::string(i == 0 ? "'" : ", '") +
             std::string(name == nullptr ? "" : name).substr(0, 30) + "'";
  }
  if (schema.n_children > kMost) names += ", ...";
  throw NotNumbers("a table with the columns " + names + ": pass one of them");
}

ArrowType type_of(const ArrowSchema& schema) {
  require(schema.format != nullptr, "a type is missing");
  if (schema.dictionary != nullptr) throw NotNumbers("categories (a dictionary of Arrow)");
  const std::string_view format = schema.format;
  for (const ArrowType& type : kArrowTypes) {
    if (format == type.format) return type;
  }
  for (const auto& [beginning, found] : kOtherTypes) {
    if (format.starts_with(beginning)) throw NotNumbers(found);
  }
  throw NotNumbers("values of an unknown type of Arrow");
}

Form form_of(const ArrowSchema& schema) {
  require(schema.format != nullptr, "a type is missing");
  if (schema.format != std::string_view("+s")) return {type_of(schema), false};
  require(schema.n_children >= 0 && (schema.n_children == 0 || schema.children != nullptr),
          "the columns are missing");
  if (schema.n_children != 1) refuse_table(schema);
  require(schema.children[0] != nullptr, "a column is missing");
  return {type_of(*schema.children[0]), true};
}

// ---- arrays -------------------------------------------------------------------------------------

// Bits of an array, the lowest of each byte first.
struct Bits {
  const unsigned char* bytes;
  std::size_t offset;

  bool operator[](std::size_t i) const {
    return (bytes[(offset + i) / 8] >> (offset + i) % 8 & 1) != 0;
  }
};

void check_numbers(const ArrowArray& array, std::int64_t buffers, std::int64_t children) {
  // Of doubles: no index of a byte overflows.
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / 16;
  require(array.length >= 0, "the length is negative");
  require(array.offset >= 0, "the offset is negative");
  require(array.length <= kMost && array.offset <= kMost, "length or offset is too large");
  require(array.null_count >= -1 && array.null_count <= array.length, "the NULL count is wrong");
  require(array.n_buffers == buffers && array.buffers != nullptr, "the buffers are missing");
  require(array.n_children == children && (children == 0 || array.children != nullptr),
          "the columns are missing");
  require(array.dictionary == nullptr, "there is a dictionary");
}

// Adds the validity bits of an array, if it may have NULL.
void add_validity(const ArrowArray& array, std::size_t offset, std::vector<Bits>& validity) {
  if (array.null_count == 0) return;
  if (array.buffers[0] != nullptr) {
    validity.push_back({static_cast<const unsigned char*>(array.buffers[0]), offset});
  } else {
    require(array.null_count < 0, "the validity bits are missing");
  }
}

// Returns which values are NULL, or None if none are.
py::object mask_of(const std::vector<Bits>& validity, std::size_t length) {
  if (validity.empty()) return py::none();
  py::array_t<bool> mask(static_cast<py::ssize_t>(length));
  bool* const masked = mask.mutable_data();
  bool any = false;
  {
    const py::gil_scoped_release release;
    std::fill_n(masked, length, false);
    for (const Bits& valid : validity) {
      for (std::size_t i = 0; i < length; ++i) masked[i] |= !valid[i];
    }
    any = std::find(masked, masked + length, true) != masked + length;
  }
  return any ? py::object(mask) : py::object(py::none());
}

py::array values_of(const ArrowType& type, const void* data, std::size_t offset, std::size_t length,
                    const py::capsule& owner) {
  const auto size = static_cast<py::ssize_t>(length);
  if (type.size != 0) {
    return {py::dtype(type.dtype),
            {size},
            {static_cast<py::ssize_t>(type.size)},
            static_cast<const char*>(data) + offset * type.size,
            owner};
  }
  const Bits bits{static_cast<const unsigned char*>(data), offset};
  py::array_t<bool> values(size);
  bool* const result = values.mutable_data();
  {
    const py::gil_scoped_release release;
    for (std::size_t i = 0; i < length; ++i) result[i] = bits[i];
  }
  return std::move(values);
}

// Adds (values, mask) to the list. The mask is None if there is no NULL.
void append(py::list& chunks, const Form& form, Owned<ArrowArray> given) {
  auto held = std::make_unique<Owned<ArrowArray>>(std::move(given));
  const ArrowArray* array = held->get();
  std::size_t offset = 0;
  std::vector<Bits> validity;
  const std::int64_t length = array->length;
  if (form.in_table) {
    check_numbers(*array, 1, 1);
    offset = static_cast<std::size_t>(array->offset);
    add_validity(*array, offset, validity);
    const std::int64_t end = array->offset + length;
    array = array->children[0];
    require(array != nullptr && array->length >= end, "a column is too short");
  }
  check_numbers(*array, 2, 0);
  if (length == 0) return;
  offset += static_cast<std::size_t>(array->offset);
  add_validity(*array, offset, validity);
  const void* const data = array->buffers[1];
  require(data != nullptr, "the values are missing");

  const py::capsule owner(held.get(),
                          [](void* owned) { delete static_cast<Owned<ArrowArray>*>(owned); });
  static_cast<void>(held.release());
  const auto size = static_cast<std::size_t>(length);
  py::array values = values_of(form.type, data, offset, size, owner);
  values.attr("flags").attr("writeable") = false;
  chunks.append(py::make_tuple(values, mask_of(validity, size)));
}

py::list read_array(const py::handle& schema_capsule, const py::handle& array_capsule) {
  const auto schema = Owned<ArrowSchema>::from(schema_capsule, "arrow_schema");
  auto array = Owned<ArrowArray>::from(array_capsule, "arrow_array");
  py::list chunks;
  append(chunks, form_of(*schema), std::move(array));
  return chunks;
}

// Throws if a call of the stream failed.
void check_call(int code, ArrowArrayStream* stream) {
  if (code == 0) return;
  const char* const message = stream->get_last_error(stream);
  throw std::runtime_error(message == nullptr ? "its Arrow stream failed"
                                              : std::string(message).substr(0, 200));
}

// The functions of the stream may compute for long, in threads that want the GIL.
py::list read_stream(const py::handle& capsule) {
  py::list chunks;
  auto given = Owned<ArrowArrayStream>::from(capsule, "arrow_array_stream");
  const py::gil_scoped_release release;
  auto stream = std::move(given);
  require(stream->get_schema != nullptr && stream->get_next != nullptr &&
              stream->get_last_error != nullptr,
          "a function is missing");
  Owned<ArrowSchema> schema;
  check_call(stream->get_schema(stream.get(), schema.get()), stream.get());
  require(schema->release != nullptr, "the schema is missing");
  const Form form = form_of(*schema);
  while (true) {
    check_signals();
    Owned<ArrowArray> array;
    check_call(stream->get_next(stream.get(), array.get()), stream.get());
    if (array->release == nullptr) return chunks;
    const py::gil_scoped_acquire hold;
    append(chunks, form, std::move(array));
  }
}

}  // namespace

void add_arrow(py::module_& module) {
  py::register_exception<NotNumbers>(module, "NotNumbers", PyExc_TypeError);
  module.def("read_arrow_array", read_array, py::arg("schema"), py::arg("array"));
  module.def("read_arrow_stream", read_stream, py::arg("stream"));
}

}  // namespace vostrel::python
