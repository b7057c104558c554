// vostrel._core: takes NumPy arrays that vostrel._inputs has made ready, gives plain tuples and
// arrays. What the user sees is made of them in Python.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "python/src/passes_for_now.h"
#include "python/src/rows.h"
#include "statistics/statistics.h"
#include "version.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

// How many objects are worked on before a look whether the user has pressed Ctrl-C: some ten
// milliseconds.
constexpr std::size_t kObjectsUntilLook = std::size_t{1} << 20;

// Requires that the GIL is released.
void look_for_signals() {
  const py::gil_scoped_acquire hold;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

// One pass: calls use(block) for each block.
template <class Use>
void for_each_block(Rows& rows, Use use) {
  rows.rewind();
  std::size_t since_look = 0;
  while (rows.next()) {
    use(rows.block());
    since_look += Rows::kBlock;
    if (since_look >= kObjectsUntilLook) {
      look_for_signals();
      since_look = 0;
    }
  }
}

// The arrays must outlive the column: the caller's list holds them.
Column column_of(const py::array& values) {
  if (values.ndim() != 1) throw py::value_error("an array must have one dimension");
  const py::dtype type = values.dtype();
  const bool swapped = !type.attr("isnative").cast<bool>();
  return {static_cast<const char*>(values.data()), values.strides(0), type.kind(),
          static_cast<std::size_t>(type.itemsize()), swapped};
}

using Arrays = std::vector<py::array>;

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

// (n, n_masked, n_nan, delta, norm), the last two None when there is a NaN that isn't left out.
py::tuple compute_point_statistics(const Arrays& columns, const Arrays& masks, bool omit_nan) {
  Rows rows = rows_of(columns, masks, omit_nan);
  std::optional<PointStatistics> statistics;
  {
    const py::gil_scoped_release release;
    Passes passes(Passes::Sums::kInOrder);
    const auto has_nan = [&] { return !omit_nan && rows.nan() != 0; };
    do {
      for_each_block(rows, [&](const Block& block) {
        if (!has_nan()) passes.add(block.reference, block.estimate);
      });
    } while (!has_nan() && passes.end_pass());
    if (!has_nan()) statistics = passes.result();
  }
  const py::object none = py::none();
  return py::make_tuple(rows.kept(), rows.masked(), rows.nan(),
                        statistics ? py::object(tuple_of(statistics->delta)) : none,
                        statistics ? py::object(tuple_of(statistics->norm)) : none);
}

py::tuple list_statistics() {
  py::tuple result(kStatistics.size());
  for (std::size_t i = 0; i < kStatistics.size(); ++i) {
    const Statistic& statistic = kStatistics[i];
    result[i] = py::make_tuple(statistic.label, statistic.normalized_label,
                               statistic.normalized_console_label, statistic.unit);
  }
  return result;
}

}  // namespace

}  // namespace vostrel::python

PYBIND11_MODULE(_core, module) {
  using namespace vostrel::python;
  module.attr("VERSION") = std::string(vostrel::kVersion);
  module.attr("STATISTICS") = list_statistics();
  module.def("point_statistics", compute_point_statistics, py::arg("columns"), py::arg("masks"),
             py::arg("omit_nan"));
}
