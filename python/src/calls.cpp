#include "python/src/calls.h"

#include <utility>

namespace py = pybind11;

namespace vostrel::python {

namespace {

// The arrays must outlive the column: the caller's list holds them.
Column column_of(const py::array& values) {
  if (values.ndim() != 1) throw py::value_error("an array must have one dimension");
  const py::dtype type = values.dtype();
  const bool swapped = !type.attr("isnative").cast<bool>();
  return {static_cast<const char*>(values.data()), values.strides(0), type.kind(),
          static_cast<std::size_t>(type.itemsize()), swapped};
}

}  // namespace

Rows rows_of(const Arrays& columns, const Arrays& masks, bool omit_nan) {
  const auto size = columns.at(0).size();
  const auto check = [size](const py::array& array) {
    if (array.ndim() != 1 || array.size() != size) {
      throw py::value_error("arrays must have one dimension and one length");
    }
  };
  std::vector<Column> parts;
  for (const py::array& values : columns) {
    check(values);
    parts.push_back(column_of(values));
  }
  std::vector<Mask> conditions;
  for (const py::array& mask : masks) {
    check(mask);
    if (mask.dtype().kind() != 'b') throw py::type_error("a mask must hold truth values");
    conditions.push_back({static_cast<const char*>(mask.data()), mask.strides(0)});
  }
  return {static_cast<std::size_t>(size), std::move(parts), std::move(conditions), omit_nan};
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
