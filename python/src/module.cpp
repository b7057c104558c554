// vostrel._core: takes the columns and masks that vostrel._inputs prepares, and returns tuples and
// arrays, from which Python makes the results that the user sees.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "analysis/binned.h"
#include "floating_point.h"
#include "python/src/calls.h"
#include "statistics/also_for_avx2.h"
#include "statistics/basic_accumulator.h"
#include "statistics/bracket.h"
#include "statistics/search.h"
#include "statistics/statistics.h"
#include "version.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

// Makes all passes. Returns nothing, early, if there is NaN and it isn't left out. Requires: the
// GIL is released.
std::optional<FoundOfBoth> find_in_rows(Rows& rows, const Wanted& wanted, bool omit_nan,
                                        bool has_nan) {
  InOrderAccumulator passes(wanted);
  const auto make_pass = [&](bool until_nan = false) {
    for_each_block(rows, [&](const Block& block) {
      if (omit_nan || rows.nan() == 0) passes.add(block.reference, block.estimate);
      if (until_nan && passes.has_nan()) rows.skip_rest();
    });
  };
  // A search of all values takes a sixth of the time. The residuals tell if it is needed.
  rows.expect_no_nan();
  make_pass(has_nan);
  if (has_nan && passes.has_nan()) {
    passes = InOrderAccumulator(wanted);
    rows.look_for_nan();
    make_pass();
  }
  if (!omit_nan && rows.nan() != 0) return std::nullopt;
  while (passes.end_pass()) make_pass();
  return passes.result(check_signals);
}

// Returns (n, n_masked, n_nan, numbers): (delta, norm, lsst), or None if there is NaN that isn't
// left out. Without `has_nan` nothing looks for NaN, which then counts as in the program.
py::tuple compute_point_statistics(const Numbers& columns, const Arrays& masks, bool omit_nan,
                                   const std::vector<double>& percentiles,
                                   const std::vector<double>& outliers, bool has_nan) {
  Rows rows = rows_of(columns, masks, omit_nan);
  const Wanted wanted({percentiles, outliers});
  std::optional<FoundOfBoth> found;
  {
    const py::gil_scoped_release release;
    found = find_in_rows(rows, wanted, omit_nan, has_nan);
  }
  return py::make_tuple(rows.kept(), rows.masked(), rows.nan(),
                        found ? py::object(numbers_of(*found)) : py::object(py::none()));
}

// Whether the values lie in a range, none of them NaN.
VOSTREL_ALSO_FOR_AVX2 bool are_inside(const double* values, std::size_t count, Interval range) {
  // Bools would keep the compiler from comparing several numbers at once.
  const auto is_false = [](bool condition) { return std::uint64_t{!condition}; };
  std::uint64_t outside = 0;
  for (std::size_t i = 0; i < count; ++i) {
    outside |= is_false(values[i] >= range.low) | is_false(values[i] <= range.high);
  }
  return outside == 0;
}

// Widens a range to hold the values. NaN doesn't count.
void widen(Interval& range, std::span<const double> values) {
  if (are_inside(values.data(), values.size(), range)) return;  // as most blocks are
  for (const double value : values) {
    if (value < range.low) range.low = value;
    if (value > range.high) range.high = value;
  }
}

// Returns (n, n_masked, n_nan, low, high). The last two are the range of the third column, or of
// the first if there are fewer, without NaN. n_nan is 0 unless it looks for NaN.
py::tuple survey(const Numbers& columns, const Arrays& masks, bool omit_nan, bool looks_for_nan) {
  Rows rows = rows_of(columns, masks, omit_nan);
  if (!looks_for_nan) rows.expect_no_nan();
  Interval range = {kInfinity, -kInfinity};
  {
    const py::gil_scoped_release release;
    for_each_block(rows, [&](const Block& block) { widen(range, block.by); });
  }
  return py::make_tuple(rows.kept(), rows.masked(), rows.nan(), range.low, range.high);
}

// Returns the values of some ranks in the third column, or in the first if there are two. `has_nan`
// is false if it is known that there is none.
py::array_t<double> order_values(const Numbers& columns, const Arrays& masks, std::uint64_t n,
                                 const std::vector<std::uint64_t>& places, bool has_nan) {
  // The ranks of one search: the time to plan a pass grows with their square, and Ctrl-C waits.
  constexpr std::size_t kMost = 256;
  Rows rows = rows_of(columns, masks, true);
  if (!has_nan) rows.expect_no_nan();
  std::vector<double> values;
  std::array<double, Rows::kBlock> needed;  // the values of a block that a pass needs
  {
    const py::gil_scoped_release release;
    Search counted;
    for_each_block(rows, [&](const Block& block) {
      for (const double value : block.by) counted.count(value);
    });
    counted.end_count();
    if (counted.size() != n)
      throw std::runtime_error("the arrays were changed while they were read");
    for (std::size_t first = 0; first < places.size(); first += kMost) {
      const std::size_t end = std::min(first + kMost, places.size());
      Search search = counted;
      for (std::size_t k = first; k < end; ++k) search.rank(places[k]);
      while (search.start_pass()) {
        for_each_block(rows, [&](const Block& block) {
          // Every value is written and stays if it is needed: a branch would be mispredicted.
          std::size_t count = 0;
          for (const double value : block.by) {
            needed[count] = value;
            count += search.needs(value);
          }
          search.sift({needed.data(), count});
        });
        search.end_pass();
      }
      for (std::size_t k = first; k < end; ++k) values.push_back(search.value(k - first));
    }
  }
  return array_of(values);
}

// Returns (n, n_masked, n_nan, counts, nan_counts, n_outside, numbers, lsst): for each bin the
// number of objects, and how many of them have NaN; the number of objects in no bin; the numbers of
// both residuals as an array of shape (2, numbers, bins), and LSST's in shape (4, bins). Objects
// with NaN are left out, or make the numbers of their bin NaN. Throws ValueError if there is NaN,
// or a residual is NaN, unless it looks for NaN.
py::tuple compute_binned_statistics(const Numbers& columns, const Arrays& masks, bool omit_nan,
                                    std::vector<double> edges,
                                    const std::vector<double>& percentiles,
                                    const std::vector<double>& outliers, bool looks_for_nan) {
  Rows rows = rows_of(columns, masks, true);
  if (!looks_for_nan) rows.expect_no_nan();
  std::uint64_t outside = 0;
  std::vector<std::uint64_t> nan_counts;
  std::vector<FoundOfBoth> found;
  {
    const py::gil_scoped_release release;
    InOrderBins passes(Bins(std::move(edges)), Wanted({percentiles, outliers}), check_signals);
    passes.reserve(rows.size());
    bool is_done = false;
    while (!is_done) {
      nan_counts = add_to_bins(passes, rows, !looks_for_nan);
      is_done = !passes.end_pass(check_signals);
      // Beside a mask, rows find NaN without looking for it.
      if (!looks_for_nan && (passes.has_nan() || rows.nan() != 0)) {
        throw std::invalid_argument("there is NaN");
      }
    }
    found = passes.results(check_signals);
    outside = passes.outside();
  }

  const std::size_t size = found.size();
  py::array_t<std::uint64_t> counts(static_cast<py::ssize_t>(size));
  py::array_t<double> numbers({std::size_t{2}, numbers_of(found.front().delta).size(), size});
  py::array_t<double> lsst({std::size_t{4}, size});
  for (std::size_t bin = 0; bin < size; ++bin) {
    const FoundOfBoth& of_bin = found[bin];
    const std::uint64_t nan_count = omit_nan ? 0 : nan_counts[bin];
    counts.mutable_data()[bin] = of_bin.n + nan_count;
    const auto set_column = [&](double* row, const std::vector<double>& values) {
      for (std::size_t i = 0; i < values.size(); ++i) {
        row[i * size + bin] = nan_count != 0 ? kNaN : values[i];
      }
    };
    set_column(numbers.mutable_data(0), numbers_of(of_bin.delta));
    set_column(numbers.mutable_data(1), numbers_of(of_bin.norm));
    set_column(lsst.mutable_data(), numbers_of(of_bin.norm.lsst));
  }
  return py::make_tuple(rows.kept() + (omit_nan ? 0 : rows.nan()), rows.masked(), rows.nan(),
                        counts, array_of(nan_counts), outside, numbers, lsst);
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
#if PYBIND11_VERSION_HEX < 0x020C0000
  const auto numpy = py::module_::import("numpy").attr("__version__").cast<std::string>();
  if (numpy[0] != '1') {
    throw py::import_error(
        "vostrel was built with pybind11 before 2.12, which doesn't know NumPy " + numpy +
        ": build it again with a newer one");
  }
#endif
  module.attr("VERSION") = std::string(vostrel::kVersion);
  module.attr("STATISTICS") = list_statistics();
  module.attr("NMAD_FACTOR") = vostrel::kNmadFactor;
  module.attr("OUTLIER_BOUND") = vostrel::kOutlierBound;
  add_accumulators(module);
  add_arrow(module);
  add_bins(module);
  add_bootstrap(module);
  add_dlpack(module);
  add_plot(module);
  const auto columns = py::arg("columns");
  const auto masks = py::arg("masks");
  const auto omit_nan = py::arg("omit_nan");
  const auto percentiles = py::arg("percentiles");
  const auto outliers = py::arg("outliers");
  module.def("point_statistics", compute_point_statistics, columns, masks, omit_nan, percentiles,
             outliers, py::arg("has_nan") = true);
  module.def("binned_statistics", compute_binned_statistics, columns, masks, omit_nan,
             py::arg("edges"), percentiles, outliers, py::arg("looks_for_nan"));
  module.def("survey", survey, columns, masks, omit_nan, py::arg("looks_for_nan"));
  module.def("order_values", order_values, columns, masks, py::arg("n"), py::arg("ranks"),
             py::arg("has_nan") = true);
}
