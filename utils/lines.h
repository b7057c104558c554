// Writes the lines of statistics on the console and in the report.

#ifndef VOSTREL_UTILS_LINES_H
#define VOSTREL_UTILS_LINES_H

#include <iosfwd>

#include "statistics/statistics.h"

namespace vostrel {

/// The labels of a block of lines.
enum class Labels { kDelta, kNormalized, kNormalizedOnConsole };

/// Writes a line "label = value" for each statistic, with the "=" in one column. Flushes each line.
void write_lines(std::ostream& out, const ResidualStatistics& statistics, Labels labels);

}  // namespace vostrel

#endif  // VOSTREL_UTILS_LINES_H
