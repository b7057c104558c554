// The lines of statistics that the console report and the report file share.

#ifndef VOSTREL_STATISTICS_STATISTICS_TEXT_H
#define VOSTREL_STATISTICS_STATISTICS_TEXT_H

#include <iosfwd>

namespace vostrel {

/// The statistics of one residual, in the order in which they are reported. Outliers in percent.
struct Statistics {
  double bias;
  double sigma;
  double rms;
  double mad;
  double nmad;
  double madDelta;
  double outliersConstant;
  double outliers1;
  double outliers2;
  double outliers3;
  double outliers4;
};

/// Writes the eleven lines of the plain residual, each flushed.
void write_statistics(std::ostream& out, const Statistics& statistics);

/// Writes the eleven lines of the normalized residual, each flushed. The label of MAD(Delta) is the
/// one that console and report do not share.
void write_normalized_statistics(std::ostream& out, const Statistics& statistics,
                                 const char* madDeltaLabel);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_STATISTICS_TEXT_H
