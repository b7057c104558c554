// vostrel._core.Sample and Bootstrap, which uncertainties() and bootstrap() use.

#ifndef VOSTREL_PYTHON_SRC_BOOTSTRAP_SAMPLES_H
#define VOSTREL_PYTHON_SRC_BOOTSTRAP_SAMPLES_H

#include <pybind11/pybind11.h>

namespace vostrel::python {

/// Adds the classes behind uncertainties() and bootstrap() to the module.
void add_bootstrap(pybind11::module_& module);

}  // namespace vostrel::python

#endif  // VOSTREL_PYTHON_SRC_BOOTSTRAP_SAMPLES_H
