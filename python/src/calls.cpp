#include "python/src/calls.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

void check_shape(const py::array& array, py::ssize_t size) {
  if (array.ndim() != 1 || array.size() != size) {
    throw py::value_error("arrays must have one dimension and one length");
  }
}

}  // namespace

std::vector<Column> columns_of(const Arrays& arrays) {
  std::vector<Column> columns;
  for (const py::array& array : arrays) {
    check_shape(array, arrays.front().size());
    const py::dtype type = array.dtype();
    const bool swapped = !type.attr("isnative").cast<bool>();
    columns.push_back({static_cast<const char*>(array.data()), array.strides(0), type.kind(),
                       static_cast<std::size_t>(type.itemsize()), swapped});
  }
  return columns;
}

std::vector<Mask> masks_of(const Arrays& arrays, py::ssize_t size) {
  std::vector<Mask> masks;
  for (const py::array& array : arrays) {
    check_shape(array, size);
    if (array.dtype().kind() != 'b') throw py::type_error("a mask must hold truth values");
    masks.push_back({static_cast<const char*>(array.data()), array.strides(0)});
  }
  return masks;
}

Rows rows_of(const Arrays& columns, const Arrays& masks, bool omit_nan) {
  const auto size = columns.at(0).size();
  return {static_cast<std::size_t>(size), columns_of(columns), masks_of(masks, size), omit_nan};
}

py::tuple tuple_of(const ResidualStatistics& statistics) {
  py::tuple result(kStatistics.size());
  for (std::size_t i = 0; i < kStatistics.size(); ++i) {
    result[i] = statistics.*kStatistics[i].member;
  }
  return result;
}

void look_for_signals() {
  const py::gil_scoped_acquire hold;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

}  // namespace vostrel::python
