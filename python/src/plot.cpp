// Rows of the intermediate file, for vostrel.plot.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <charconv>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "python/src/calls.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

// Reads "NUMBER NUMBER NUMBER\n" and moves `at` past it. Returns false for anything else.
bool read_row(const char*& at, const char* end, double& second, double& third) {
  double first = 0.0;
  const std::pair<double*, char> fields[] = {{&first, ' '}, {&second, ' '}, {&third, '\n'}};
  for (const auto& [value, separator] : fields) {
    const auto [behind, error] = std::from_chars(at, end, *value);
    if (error != std::errc() || behind == end || *behind != separator) return false;
    at = behind + 1;
  }
  return true;
}

// Returns the second and third numbers of the rows from `start` on, up to the first row that
// doesn't have the program's form, and where that row starts.
py::tuple read_rows(const py::bytes& block, std::size_t start) {
  const auto text = static_cast<std::string_view>(block);
  if (start > text.size()) throw py::value_error("the start lies beyond the block");
  std::vector<double> reference;
  std::vector<double> estimate;
  const char* at = text.data() + start;
  const char* const end = text.data() + text.size();
  {
    const py::gil_scoped_release release;
    for (const char* row = at; row != end; at = row) {
      double second = 0.0;
      double third = 0.0;
      if (!read_row(row, end, second, third)) break;
      reference.push_back(second);
      estimate.push_back(third);
    }
  }
  return py::make_tuple(array_of(reference), array_of(estimate), at - text.data());
}

}  // namespace

void add_plot(py::module_& module) {
  module.def("read_rows", read_rows, py::arg("block"), py::arg("start"));
}

}  // namespace vostrel::python
