// All statistics of a UTILS object in the form that console and report print.

#ifndef VOSTREL_UTILS_STATISTICS_OF_H
#define VOSTREL_UTILS_STATISTICS_OF_H

#include "statistics/statistics.h"
#include "utils/utils.h"

/// What the getters of `run` return.
vostrel::PointStatistics statistics_of(const UTILS& run);

#endif  // VOSTREL_UTILS_STATISTICS_OF_H
