// The functions of vostrel._core as one source: compiled separately, each file would take ten
// seconds for pybind11's headers. So a name in an anonymous namespace must be unique in all of
// them.

#include "python/src/accumulators.cpp"
#include "python/src/arrow.cpp"
#include "python/src/bins.cpp"
#include "python/src/bootstrap_samples.cpp"
#include "python/src/calls.cpp"
#include "python/src/columns.cpp"
#include "python/src/dlpack.cpp"
#include "python/src/module.cpp"
#include "python/src/plot.cpp"
#include "python/src/rows.cpp"
