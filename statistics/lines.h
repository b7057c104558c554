// The lines of statistics on the console and in the report.

#ifndef VOSTREL_STATISTICS_LINES_H
#define VOSTREL_STATISTICS_LINES_H

#include <iosfwd>

#include "statistics/statistics.h"

namespace vostrel {

/// Which labels a block of lines has.
enum class Labels { kDelta, kNormalized, kNormalizedOnConsole };

/// Writes a line for each statistic, "label = value", the "=" of a block below each other. Each
/// line is flushed.
void write_lines(std::ostream& out, const ResidualStatistics& statistics, Labels labels);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_LINES_H
