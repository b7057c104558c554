// vostrel._core.ObjectsInBins, and counts of values in bins and cells.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "analysis/binned.h"
#include "python/src/calls.h"
#include "statistics/accumulator.h"
#include "statistics/residuals.h"
#include "statistics/statistics.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

// The number of objects in each bin. Requires: the GIL is released.
std::vector<std::uint64_t> count_objects(Rows& rows, const Bins& bins) {
  std::vector<std::uint64_t> counts(bins.size());
  for_each_block(rows, [&](const Block& block) {
    for (const double by : block.by) {
      const std::size_t bin = bins(by);
      if (bin != Bins::kOutside) ++counts[bin];
    }
  });
  return counts;
}

// The objects of each bin in their order, without those with NaN. Takes 16 bytes for each.
class ObjectsInBins {
 public:
  ObjectsInBins(const Numbers& columns, const Arrays& masks, std::vector<double> edges) {
    Rows rows = rows_of(columns, masks, true);
    const Bins bins(std::move(edges));
    const py::gil_scoped_release release;
    const std::vector<std::uint64_t> counts = count_objects(rows, bins);
    parts_.resize(bins.size());
    for_each_block(rows, [&](const Block& block) {
      for (std::size_t i = 0; i < block.by.size(); ++i) {
        const std::size_t bin = bins(block.by[i]);
        if (bin == Bins::kOutside) continue;
        Part& part = parts_[bin];
        // Only the first call allocates. Filling so much memory at once would take long.
        part.reference.reserve(counts[bin]);
        part.estimate.reserve(counts[bin]);
        part.reference.push_back(block.reference[i]);
        part.estimate.push_back(block.estimate[i]);
      }
    });
  }

  std::size_t count(std::size_t bin) const { return part(bin).reference.size(); }

  py::tuple statistics(std::size_t bin, const std::vector<double>& percentiles,
                       const std::vector<double>& outliers,
                       const std::vector<std::uint64_t>& absolute,
                       const std::vector<std::uint64_t>& values) const {
    return numbers_with_spreads(part(bin).reference, part(bin).estimate, {percentiles, outliers},
                                absolute, values);
  }

  // Returns the median of the reference, the median of the normalized residual, and its values of
  // the ranks.
  py::tuple medians(std::size_t bin, const std::vector<std::uint64_t>& ranks) const {
    const auto& [references, estimates] = part(bin);
    check_ranks(ranks, references.size());
    double of_reference = 0;
    double of_residual = 0;
    std::vector<double> found;
    {
      const py::gil_scoped_release release;
      of_reference = median(references);
      check_signals();
      std::vector<double> residuals(references.size());
      std::transform(references.begin(), references.end(), estimates.begin(), residuals.begin(),
                     normalized_residual);
      check_signals();
      of_residual = median(residuals);
      for (const std::uint64_t rank : ranks) {
        check_signals();
        const auto place = residuals.begin() + static_cast<std::ptrdiff_t>(rank);
        std::nth_element(residuals.begin(), place, residuals.end());
        found.push_back(*place);
      }
    }
    return py::make_tuple(of_reference, of_residual, found);
  }

 private:
  struct Part {
    std::vector<double> reference;
    std::vector<double> estimate;
  };

  const Part& part(std::size_t bin) const {
    if (bin >= parts_.size()) throw py::index_error("there is no such bin");
    return parts_[bin];
  }

  std::vector<Part> parts_;  // by bin
};

// Returns the number of values in each bin.
py::array_t<std::uint64_t> count_in_bins(const py::array& values, std::vector<double> edges) {
  Rows rows = rows_of({values}, {}, false);
  const Bins bins(std::move(edges));
  std::vector<std::uint64_t> counts;
  {
    const py::gil_scoped_release release;
    counts = count_objects(rows, bins);
  }
  return array_of(counts);
}

// Returns the number of points in each cell, in shape (rows, columns): rows by y, columns by x.
py::array_t<std::uint64_t> count_in_cells(const py::array& x, const py::array& y,
                                          std::vector<double> x_edges,
                                          std::vector<double> y_edges) {
  Rows points = rows_of({x, y}, {}, false);
  const Bins columns(std::move(x_edges));
  const Bins rows(std::move(y_edges));
  py::array_t<std::uint64_t> counts({rows.size(), columns.size()});
  std::uint64_t* const count = counts.mutable_data();
  std::fill_n(count, rows.size() * columns.size(), 0);
  {
    const py::gil_scoped_release release;
    for_each_block(points, [&](const Block& block) {
      for (std::size_t i = 0; i < block.reference.size(); ++i) {
        const std::size_t column = columns(block.reference[i]);
        const std::size_t row = rows(block.estimate[i]);
        if (column != Bins::kOutside && row != Bins::kOutside) {
          ++count[row * columns.size() + column];
        }
      }
    });
  }
  return counts;
}

}  // namespace

void add_bins(py::module_& module) {
  py::class_<ObjectsInBins>(module, "ObjectsInBins")
      .def(py::init<const Numbers&, const Arrays&, std::vector<double>>(), py::arg("columns"),
           py::arg("masks"), py::arg("edges"))
      .def("count", &ObjectsInBins::count, py::arg("bin"))
      .def("statistics", &ObjectsInBins::statistics, py::arg("bin"), py::arg("percentiles"),
           py::arg("outliers"), py::arg("absolute"), py::arg("values"))
      .def("medians", &ObjectsInBins::medians, py::arg("bin"), py::arg("ranks"));
  module.def("count_in_bins", count_in_bins, py::arg("values"), py::arg("edges"));
  module.def("count_in_cells", count_in_cells, py::arg("x"), py::arg("y"), py::arg("x_edges"),
             py::arg("y_edges"));
}

}  // namespace vostrel::python
