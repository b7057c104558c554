#include "statistics/lines.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/bits.h"

namespace {

const vostrel::ResidualStatistics kValues = {-0.0,       0.01234567, 1.5e-05, 12.5, 3,   kInfinity,
                                             12.3456789, 100,        25,      kNaN, 1e-7};

std::string lines(vostrel::Labels labels) {
  std::ostringstream out;
  vostrel::write_lines(out, kValues, labels);
  return out.str();
}

TEST(WriteLines, LabelsDelta) {
  EXPECT_EQ(lines(vostrel::Labels::kDelta),
            "bias             = -0\n"
            "sigma            = 0.0123457\n"
            "RMS              = 1.5e-05\n"
            "MAD              = 12.5\n"
            "NMAD             = 3\n"
            "MAD(Delta)       = inf\n"
            "outliers >0.15   = 12.3457%\n"
            "outliers >1sigma = 100%\n"
            "outliers >2sigma = 25%\n"
            "outliers >3sigma = nan%\n"
            "outliers >4sigma = 1e-07%\n");
}

TEST(WriteLines, LabelsDeltaNormOnReportAndConsole) {
  const std::string report =
      "bias norm             = -0\n"
      "sigma norm            = 0.0123457\n"
      "RMS norm              = 1.5e-05\n"
      "MAD norm              = 12.5\n"
      "NMAD norm             = 3\n"
      "MAD(Delta norm)       = inf\n"
      "outliers norm >0.15   = 12.3457%\n"
      "outliers norm >1sigma = 100%\n"
      "outliers norm >2sigma = 25%\n"
      "outliers norm >3sigma = nan%\n"
      "outliers norm >4sigma = 1e-07%\n";
  EXPECT_EQ(lines(vostrel::Labels::kNormalized), report);
  std::string console = report;
  console.replace(console.find("Delta norm"), 10, "Delta_norm");
  EXPECT_EQ(lines(vostrel::Labels::kNormalizedOnConsole), console);
}

}  // namespace
