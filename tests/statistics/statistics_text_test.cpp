// The lines that console report and report file have in common.

#include "statistics/statistics_text.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/bits.h"

namespace {

const vostrel::Statistics kStatistics = {-0.0,       0.01234567, 2.5e-05, 12.5, 3,   kInfinity,
                                         12.3456789, 100,        25,      kNaN, 1e-7};

TEST(StatisticsText, OfThePlainResidualIsElevenLines) {
  std::ostringstream out;
  vostrel::write_statistics(out, kStatistics);
  EXPECT_EQ(out.str(),
            "bias             = -0\n"
            "sigma            = 0.0123457\n"
            "RMS              = 2.5e-05\n"
            "MAD              = 12.5\n"
            "NMAD             = 3\n"
            "MAD(Delta)       = inf\n"
            "outliers >0.15   = 12.3457%\n"
            "outliers >1sigma = 100%\n"
            "outliers >2sigma = 25%\n"
            "outliers >3sigma = nan%\n"
            "outliers >4sigma = 1e-07%\n");
}

TEST(StatisticsText, OfTheNormalizedResidualIsElevenLinesOneOfThemNamedByTheCaller) {
  std::ostringstream out;
  vostrel::write_normalized_statistics(out, kStatistics, "the label = ");
  EXPECT_EQ(out.str(),
            "bias norm             = -0\n"
            "sigma norm            = 0.0123457\n"
            "RMS norm              = 2.5e-05\n"
            "MAD norm              = 12.5\n"
            "NMAD norm             = 3\n"
            "the label = inf\n"
            "outliers norm >0.15   = 12.3457%\n"
            "outliers norm >1sigma = 100%\n"
            "outliers norm >2sigma = 25%\n"
            "outliers norm >3sigma = nan%\n"
            "outliers norm >4sigma = 1e-07%\n");
}

}  // namespace
