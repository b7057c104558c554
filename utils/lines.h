// The lines of statistics on the console and in the report.

#ifndef VOSTREL_UTILS_LINES_H
#define VOSTREL_UTILS_LINES_H

#include <iosfwd>

#include "statistics/statistics.h"
#include "utils/utils.h"

/// What the getters of `run` return.
vostrel::PointStatistics statistics_of(const UTILS& run);

namespace vostrel {

/// Writes a line "label = value" for each statistic, with the "=" in one column. Flushes each line.
void write_lines(std::ostream& out, const ResidualStatistics& statistics,
                 const char* Statistic::*label);

}  // namespace vostrel

#endif  // VOSTREL_UTILS_LINES_H
