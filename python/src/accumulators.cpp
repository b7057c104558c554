// vostrel._core.Accumulator and BinnedAccumulator, which Python's classes of these names use.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <atomic>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "analysis/binned.h"
#include "python/src/calls.h"
#include "statistics/accumulator.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

// What was left out of a chunk: n_masked, n_nan, and the number of objects with NaN in each bin.
using LeftOut = std::vector<std::uint64_t>;

// So many objects are worth a state of their own, which is thrown away if there is NaN.
constexpr std::size_t kMany = 100000;

// Ends calls of add() in other threads.
class Stop {
 public:
  void set() { is_set_ = true; }
  void look() const {
    if (is_set_) throw std::runtime_error("the pass was stopped");
  }

 private:
  std::atomic<bool> is_set_ = false;
};

// Adds all rows. Returns the number of objects with NaN in each bin.
LeftOut add_rows(ExactAccumulator& passes, Rows& rows, const Stop& stop) {
  const auto add_to = [&](ExactAccumulator& some, bool until_nan) {
    for_each_block(rows, [&](const Block& block) {
      stop.look();
      some.add(block.reference, block.estimate);
      if (until_nan && some.has_nan()) rows.skip_rest();
    });
  };
  if (passes.is_in_first_pass() && rows.size() >= kMany) {
    rows.expect_no_nan();
    ExactAccumulator added = passes.fresh();
    add_to(added, true);
    if (!added.has_nan()) {
      passes.merge(added);
      return {};
    }
    rows.look_for_nan();
  }
  add_to(passes, false);
  return {};
}
LeftOut add_rows(ExactBins& passes, Rows& rows, const Stop& stop) {
  return add_to_bins(passes, rows, false, [&] { stop.look(); });
}

template <class SomePasses>
LeftOut add(SomePasses& passes, const Numbers& columns, const Arrays& masks, bool has_nan,
            const Stop& stop) {
  Rows rows = rows_of(columns, masks, true);
  if (!has_nan) rows.expect_no_nan();
  const py::gil_scoped_release release;
  const LeftOut in_bins = add_rows(passes, rows, stop);
  LeftOut left_out = {rows.masked(), rows.nan()};
  left_out.insert(left_out.end(), in_bins.begin(), in_bins.end());
  return left_out;
}

// (n, delta, norm, lsst)
py::tuple with_count(const FoundOfBoth& found) {
  return py::make_tuple(found.n) + numbers_of(found);
}

py::tuple result(const ExactAccumulator& passes) {
  FoundOfBoth found;
  {
    const py::gil_scoped_release release;
    found = passes.result(check_signals);
  }
  return with_count(found);
}

py::list results(const ExactBins& passes) {
  std::vector<FoundOfBoth> found;
  {
    const py::gil_scoped_release release;
    found = passes.results(check_signals);
  }
  py::list list;
  for (const FoundOfBoth& bin : found) list.append(with_count(bin));
  return list;
}

template <class SomePasses>
py::bytes to_bytes(const SomePasses& passes) {
  return py::bytes(passes.to_bytes());
}

template <class SomePasses>
SomePasses from_bytes(const py::bytes& bytes) {
  return SomePasses::from_bytes(static_cast<std::string_view>(bytes));
}

bool end_pass(ExactAccumulator& passes) { return passes.end_pass(); }
bool end_pass(ExactBins& passes) { return passes.end_pass(check_signals); }

ExactAccumulator fresh(const ExactAccumulator& passes) { return passes.fresh(); }
ExactBins fresh(const ExactBins& passes) { return passes.fresh(check_signals); }

// Defines what both classes have in common.
template <class SomePasses>
py::class_<SomePasses> define(py::module_& module, const char* name) {
  using WithoutGil = py::call_guard<py::gil_scoped_release>;
  return py::class_<SomePasses>(module, name)
      .def("add", add<SomePasses>, py::arg("columns"), py::arg("masks"), py::arg("has_nan"),
           py::arg("stop"))
      .def("merge", &SomePasses::merge, py::arg("other"), WithoutGil())
      .def("end_pass", py::overload_cast<SomePasses&>(&end_pass), WithoutGil())
      .def("needs_another_pass", &SomePasses::needs_another_pass)
      .def("fresh", py::overload_cast<const SomePasses&>(&fresh), WithoutGil())
      .def("size", &SomePasses::size)
      .def("to_bytes", to_bytes<SomePasses>)
      .def_static("from_bytes", from_bytes<SomePasses>, py::arg("bytes"));
}

}  // namespace

void add_accumulators(py::module_& module) {
  using Numbers = std::vector<double>;
  const auto percentiles = py::arg("percentiles");
  const auto outliers = py::arg("outliers");
  py::class_<Stop>(module, "Stop").def(py::init()).def("set", &Stop::set);
  define<ExactAccumulator>(module, "Accumulator")
      .def(py::init([](const Numbers& percents, const Numbers& bounds) {
             return ExactAccumulator(Wanted({percents, bounds}));
           }),
           percentiles, outliers)
      .def("result", result);
  define<ExactBins>(module, "BinnedAccumulator")
      .def(py::init([](Numbers edges, const Numbers& percents, const Numbers& bounds) {
             const py::gil_scoped_release release;
             return ExactBins(Bins(std::move(edges)), Wanted({percents, bounds}), check_signals);
           }),
           py::arg("edges"), percentiles, outliers)
      .def("edges", [](const ExactBins& passes) { return passes.bins().edges(); })
      .def("outside", &ExactBins::outside)
      .def("results", results);
}

}  // namespace vostrel::python
