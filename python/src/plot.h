// Helpers of vostrel.plot: rows of the intermediate file, normalized residuals, and the program's
// numbers for values with NaN.

#ifndef VOSTREL_PYTHON_SRC_PLOT_H
#define VOSTREL_PYTHON_SRC_PLOT_H

#include <pybind11/pybind11.h>

namespace vostrel::python {

/// Adds the functions to the module.
void add_plot(pybind11::module_& module);

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_PLOT_H
