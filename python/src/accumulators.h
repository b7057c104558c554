// vostrel._core.Accumulator and BinnedAccumulator, which Python's classes of these names use.

#ifndef VOSTREL_PYTHON_SRC_ACCUMULATORS_H
#define VOSTREL_PYTHON_SRC_ACCUMULATORS_H

#include <pybind11/pybind11.h>

#include <cstdint>
#include <vector>

#include "analysis/binned.h"
#include "python/src/rows.h"

namespace vostrel::python {

/// Adds all rows, and calls `checkpoint` before each block. Returns for each bin how many of its
/// objects have NaN in reference or estimate. Requires: the rows omit NaN, and the GIL is released.
template <class Binned>
std::vector<std::uint64_t> add_to_bins(
    Binned& passes, Rows& rows, const Checkpoint& checkpoint = [] {});

/// Adds both classes to the module.
void define_accumulators(pybind11::module_& module);

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_ACCUMULATORS_H
