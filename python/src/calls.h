// Shared by the bound functions: NumPy's arrays as rows, numbers as lists, and Ctrl-C.

#ifndef VOSTREL_PYTHON_SRC_CALLS_H
#define VOSTREL_PYTHON_SRC_CALLS_H

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

#include "analysis/binned.h"
#include "python/src/columns.h"
#include "python/src/rows.h"
#include "statistics/basic_accumulator.h"
#include "statistics/statistics.h"

namespace vostrel::python {

// The parts of the module, one in each source.
void add_accumulators(pybind11::module_& module);
void add_arrow(pybind11::module_& module);
void add_bins(pybind11::module_& module);
void add_bootstrap(pybind11::module_& module);
void add_dlpack(pybind11::module_& module);
void add_plot(pybind11::module_& module);

/// Thrown for values that are no real numbers. what() says what they are.
class NotNumbers : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

using Arrays = std::vector<pybind11::array>;

/// Arrays of numbers, or Slices or Chunks of vostrel._inputs.
using Numbers = std::vector<pybind11::object>;

/// The objects of columns and masks of one dimension and one length. Requires: both outlive the
/// result. Throws ValueError if the shapes differ, TypeError if a mask holds no truth values.
Rows rows_of(const Numbers& columns, const Arrays& masks, bool omit_nan);

/// An array with a copy of the values.
template <class Values>
auto array_of(const Values& values) {
  return pybind11::array_t<typename Values::value_type>(
      static_cast<pybind11::ssize_t>(values.size()), values.data());
}

/// Throws ValueError unless the ranks are below n.
void check_ranks(const std::vector<std::uint64_t>& ranks, std::size_t n);

/// The numbers in the order of kStatistics, then the median, sigma_68, sigma_iqr, the percentiles
/// and the outlier percentages.
std::vector<double> numbers_of(const ResidualStatistics& statistics, const Quantiles& quantiles);
inline std::vector<double> numbers_of(const Found& found) {
  return numbers_of(found.statistics, found.quantiles);
}

/// LSST's metrics in the order of their declaration.
std::vector<double> numbers_of(const LsstMetrics& metrics);

/// (delta, norm, lsst): the numbers of both residuals, and LSST's.
pybind11::tuple numbers_of(const FoundOfBoth& found);

/// As numbers_of() of two columns, then for each residual what errors follow from: (second, fourth,
/// second_about, fourth_about, absolute, values), the last two of the ranks.
pybind11::tuple numbers_with_spreads(std::span<const double> reference,
                                     std::span<const double> estimate, const Extras& extras,
                                     const std::vector<std::uint64_t>& absolute,
                                     const std::vector<std::uint64_t>& values);

/// Throws Python's KeyboardInterrupt if the user has pressed Ctrl-C. Looks every 50 ms
/// at most. Requires: the GIL is released.
void check_signals();

/// One pass: calls use(block) for each block. Requires: the GIL is released.
template <class Use>
void for_each_block(Rows& rows, Use use) {
  rows.rewind();
  while (rows.next()) {
    use(rows.block());
    check_signals();
  }
}

/// Adds all rows to bins, or those until NaN is found. Calls `checkpoint` before each block.
/// Returns for each bin how many of its objects have NaN in reference or estimate. Requires: the
/// rows omit NaN, and the GIL is released.
template <class Binned>
std::vector<std::uint64_t> add_to_bins(
    Binned& passes, Rows& rows, bool until_nan, const Checkpoint& checkpoint = [] {}) {
  std::vector<std::uint64_t> nan_counts(passes.bins().size());
  for_each_block(rows, [&](const Block& block) {
    checkpoint();
    for (const double by : block.nan_by) {
      const std::size_t bin = passes.bins()(by);
      if (bin != Bins::kOutside) ++nan_counts[bin];
    }
    passes.add(block.reference, block.estimate, block.by);
    if (until_nan && passes.has_nan()) rows.skip_rest();
  });
  return nan_counts;
}

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_CALLS_H
