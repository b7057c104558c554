// All of vostrel._core as one source. Compiled one by one, each takes ten seconds for pybind11's
// headers.

#include "python/src/bins.cpp"
#include "python/src/bootstrap.cpp"
#include "python/src/calls.cpp"
#include "python/src/columns.cpp"
#include "python/src/module.cpp"
#include "python/src/passes.cpp"
#include "python/src/plot.cpp"
#include "python/src/rows.cpp"
