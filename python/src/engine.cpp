// All of analysis/ and statistics/ as one source, which compiles in half the time. So a name in an
// anonymous namespace must be unique in all of them.

#include "analysis/binned.cpp"
#include "analysis/bootstrap.cpp"
#include "analysis/quantile_windows.cpp"
#include "analysis/resample.cpp"
#include "analysis/windows.cpp"
#include "statistics/accumulator.cpp"
#include "statistics/bracket.cpp"
#include "statistics/checksum.cpp"
#include "statistics/exact_sum.cpp"
#include "statistics/histogram.cpp"
#include "statistics/search.cpp"
#include "statistics/statistics.cpp"
#include "statistics/tally.cpp"
