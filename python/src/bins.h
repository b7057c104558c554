// vostrel._core.ObjectsInBins, and counts of values in bins and cells.

#ifndef VOSTREL_PYTHON_SRC_BINS_H
#define VOSTREL_PYTHON_SRC_BINS_H

#include <pybind11/pybind11.h>

namespace vostrel::python {

/// Adds the class and the functions to the module.
void add_bins(pybind11::module_& module);

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_BINS_H
