// storeStatistics: the 27 lines of the report file.

#include <gtest/gtest.h>

#include <string>

#include "tests/support/bits.h"
#include "tests/support/open_utils.h"
#include "tests/support/scratch.h"

namespace {

class Report : public InScratchFolder {
 protected:
  static std::string stored(const UTILS& run) {
    EXPECT_EQ(printed_by([&] { run.storeStatistics(); }),
              "\nStatistics stored in the file report.txt\n\n");
    EXPECT_FALSE(exists("error.log"));
    return read_file("report.txt");
  }
};

const char kZeroReport[] =
    "Data size  = 0\n"
    "\n"
    "Statistics on delta [col1 - col2]:\n"
    "bias             = 0\n"
    "sigma            = 0\n"
    "RMS              = 0\n"
    "MAD              = 0\n"
    "NMAD             = 0\n"
    "MAD(Delta)       = 0\n"
    "outliers >0.15   = 0%\n"
    "outliers >1sigma = 0%\n"
    "outliers >2sigma = 0%\n"
    "outliers >3sigma = 0%\n"
    "outliers >4sigma = 0%\n"
    "\n"
    "Statistics on normalized delta [(col1 - col2) / (1 + col1)]:\n"
    "bias norm             = 0\n"
    "sigma norm            = 0\n"
    "RMS norm              = 0\n"
    "MAD norm              = 0\n"
    "NMAD norm             = 0\n"
    "MAD(Delta norm)       = 0\n"
    "outliers norm >0.15   = 0%\n"
    "outliers norm >1sigma = 0%\n"
    "outliers norm >2sigma = 0%\n"
    "outliers norm >3sigma = 0%\n"
    "outliers norm >4sigma = 0%\n";

TEST_F(Report, WritesEachStatisticOnItsOwnLine) {
  OpenUtils run(0, "table.csv", "report.txt", 2, -3);
  run.id = {1, 2, 3};
  run.bias = 0.01234567;
  run.sigma = 2.5e-05;
  run.rms = 12.5;
  run.mad = 100;
  run.nmad = -0.0;
  run.madDeltaz = 1234567;
  run.outliersConstant = 25;
  run.outliers1 = 12.3456789;
  run.outliers2 = 12.5;
  run.outliers3 = 1e-7;
  run.outliers4 = 100;
  run.biasNorm = kInfinity;
  run.sigmaNorm = -kInfinity;
  run.rmsNorm = kNaN;
  run.madNorm = -kNaN;
  run.nmadNorm = 0.5;
  run.madDeltazNorm = 999999.5;
  run.outliersConstantNorm = kNaN;
  run.outliers1Norm = 1;
  run.outliers2Norm = 2;
  run.outliers3Norm = 3;
  run.outliers4Norm = kInfinity;
  EXPECT_EQ(stored(run),
            "Data size  = 3\n"
            "\n"
            "Statistics on delta [col2 - col-3]:\n"
            "bias             = 0.0123457\n"
            "sigma            = 2.5e-05\n"
            "RMS              = 12.5\n"
            "MAD              = 100\n"
            "NMAD             = -0\n"
            "MAD(Delta)       = 1.23457e+06\n"
            "outliers >0.15   = 25%\n"
            "outliers >1sigma = 12.3457%\n"
            "outliers >2sigma = 12.5%\n"
            "outliers >3sigma = 1e-07%\n"
            "outliers >4sigma = 100%\n"
            "\n"
            "Statistics on normalized delta [(col2 - col-3) / (1 + col2)]:\n"
            "bias norm             = inf\n"
            "sigma norm            = -inf\n"
            "RMS norm              = nan\n"
            "MAD norm              = -nan\n"
            "NMAD norm             = 0.5\n"
            "MAD(Delta norm)       = 1e+06\n"
            "outliers norm >0.15   = nan%\n"
            "outliers norm >1sigma = 1%\n"
            "outliers norm >2sigma = 2%\n"
            "outliers norm >3sigma = 3%\n"
            "outliers norm >4sigma = inf%\n");
}

TEST_F(Report, ReplacesAnOlderReport) {
  write_file("report.txt", std::string(5000, 'x'));
  EXPECT_EQ(stored(empty_set()), kZeroReport);
  EXPECT_EQ(stored(empty_set()), kZeroReport);
}

TEST_F(Report, ShowsTheCountOfIdentifiersAsDataSize) {
  OpenUtils run = empty_set();
  run.id = std::vector<int>(1000);
  run.delta = {1};
  EXPECT_EQ(stored(run).substr(0, 19), "Data size  = 1000\n\n");
}

TEST_F(Report, LooksLikeSuccessWhenItCannotBeWritten) {
  std::filesystem::create_directory("folder");
  for (const std::string name : {"no such folder/report.txt", "", "folder"}) {
    const OpenUtils run(0, "table.csv", name.c_str(), 1, 2);
    EXPECT_EQ(printed_by([&] { run.storeStatistics(); }),
              "\nStatistics stored in the file " + name + "\n\n");
  }
  EXPECT_FALSE(exists("error.log"));
  EXPECT_TRUE(std::filesystem::is_empty("folder"));
}

}  // namespace
