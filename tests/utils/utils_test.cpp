// The object itself: settings, accessors, clearData.

#include "utils/utils.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/support/open_utils.h"
#include "tests/support/scratch.h"

namespace {

struct Getter {
  const char* name;
  double (UTILS::*get)() const;
  double OpenUtils::*member;
};

const Getter kOutlierGetters[] = {
    {"getOutliers1", &UTILS::getOutliers1, &OpenUtils::outliers1},
    {"getOutliers2", &UTILS::getOutliers2, &OpenUtils::outliers2},
    {"getOutliers3", &UTILS::getOutliers3, &OpenUtils::outliers3},
    {"getOutliers4", &UTILS::getOutliers4, &OpenUtils::outliers4},
    {"getOutliersConstant", &UTILS::getOutliersConstant, &OpenUtils::outliersConstant},
    {"getOutliers1Norm", &UTILS::getOutliers1Norm, &OpenUtils::outliers1Norm},
    {"getOutliers2Norm", &UTILS::getOutliers2Norm, &OpenUtils::outliers2Norm},
    {"getOutliers3Norm", &UTILS::getOutliers3Norm, &OpenUtils::outliers3Norm},
    {"getOutliers4Norm", &UTILS::getOutliers4Norm, &OpenUtils::outliers4Norm},
    {"getOutliersConstantNorm", &UTILS::getOutliersConstantNorm, &OpenUtils::outliersConstantNorm},
};

const Getter kOtherGetters[] = {
    {"getBias", &UTILS::getBias, &OpenUtils::bias},
    {"getSigma", &UTILS::getSigma, &OpenUtils::sigma},
    {"getBiasNorm", &UTILS::getBiasNorm, &OpenUtils::biasNorm},
    {"getSigmaNorm", &UTILS::getSigmaNorm, &OpenUtils::sigmaNorm},
    {"getRMS", &UTILS::getRMS, &OpenUtils::rms},
    {"getRMSNorm", &UTILS::getRMSNorm, &OpenUtils::rmsNorm},
    {"getMAD", &UTILS::getMAD, &OpenUtils::mad},
    {"getMADNorm", &UTILS::getMADNorm, &OpenUtils::madNorm},
    {"getNMAD", &UTILS::getNMAD, &OpenUtils::nmad},
    {"getNMADNorm", &UTILS::getNMADNorm, &OpenUtils::nmadNorm},
    {"getMADDeltaz", &UTILS::getMADDeltaz, &OpenUtils::madDeltaz},
    {"getMADDeltazNorm", &UTILS::getMADDeltazNorm, &OpenUtils::madDeltazNorm},
};

TEST(Utils, StoresItsSettings) {
  const char* const input = "in";
  const char* const output = "out";
  const OpenUtils run(-7, input, output, 9, -3);
  EXPECT_EQ(run.headerFlag, -7);
  EXPECT_EQ(run.nameInputFile, input);
  EXPECT_STREQ(run.nameInternalFile, "internal.txt");
  EXPECT_EQ(run.nameOutputFile, output);
  EXPECT_EQ(run.col1, 9);
  EXPECT_EQ(run.col2, -3);
  EXPECT_EQ(run.presetA, 0.001);
  EXPECT_EQ(run.presetB, 0.03);
}

TEST(Utils, StartsWithoutDataAndWithZeroStatistics) {
  const OpenUtils run = empty_set();
  EXPECT_EQ(run.getDataSize(), 0);
  for (const auto* vector : {&run.zspec, &run.zphot, &run.output, &run.delta, &run.deltaNorm}) {
    EXPECT_TRUE(vector->empty());
  }
  EXPECT_TRUE(run.id.empty());
  for (const Getter& getter : kOutlierGetters) EXPECT_EQ((run.*getter.get)(), 0.0) << getter.name;
  for (const Getter& getter : kOtherGetters) EXPECT_EQ((run.*getter.get)(), 0.0) << getter.name;
}

TEST(Utils, GettersReturnTheirMembers) {
  OpenUtils run = empty_set();
  double value = 1.5;
  for (const Getter& getter : kOutlierGetters) run.*getter.member = value++;
  for (const Getter& getter : kOtherGetters) run.*getter.member = value++;
  value = 1.5;
  for (const Getter& getter : kOutlierGetters)
    EXPECT_EQ((run.*getter.get)(), value++) << getter.name;
  for (const Getter& getter : kOtherGetters) EXPECT_EQ((run.*getter.get)(), value++) << getter.name;
}

TEST(Utils, DataSizeIsTheCountOfIdentifiers) {
  OpenUtils run = empty_set();
  run.id = {4, 4, 4};
  run.zspec = {1};
  EXPECT_EQ(run.getDataSize(), 3);
}

TEST(ClearData, EmptiesTheSixVectorsAndKeepsTheirStorage) {
  OpenUtils run = loaded({1, 2}, {3, 4});
  run.output = {5, 6};
  run.delta = {7, 8};
  run.deltaNorm = {9, 10};
  run.clearData();
  EXPECT_EQ(run.getDataSize(), 0);
  EXPECT_GE(run.id.capacity(), 2u);
  for (const auto* vector : {&run.zspec, &run.zphot, &run.output, &run.delta, &run.deltaNorm}) {
    EXPECT_TRUE(vector->empty());
    EXPECT_GE(vector->capacity(), 2u);
  }
}

TEST(ClearData, KeepsSettingsAndStatistics) {
  OpenUtils run(1, "a", "b", 3, 4);
  run.setNameInputFile("c");
  double value = 1.5;
  for (const Getter& getter : kOutlierGetters) run.*getter.member = value++;
  for (const Getter& getter : kOtherGetters) run.*getter.member = value++;
  run.clearData();
  EXPECT_EQ(run.headerFlag, 1);
  EXPECT_STREQ(run.nameInputFile, "a");
  EXPECT_STREQ(run.nameOutputFile, "b");
  EXPECT_STREQ(run.nameInternalFile, "c");
  EXPECT_EQ(run.col1, 3);
  EXPECT_EQ(run.col2, 4);
  value = 1.5;
  for (const Getter& getter : kOutlierGetters)
    EXPECT_EQ((run.*getter.get)(), value++) << getter.name;
  for (const Getter& getter : kOtherGetters) EXPECT_EQ((run.*getter.get)(), value++) << getter.name;
}

using FileNames = InScratchFolder;

TEST_F(FileNames, AreBorrowed) {
  write_file("one", "1,2\n");
  char name[] = "two";
  OpenUtils run(0, name, "report.txt", 1, 2);
  std::strcpy(name, "one");
  int result = -99;
  printed_by([&] { result = run.loadInputFile(); });
  EXPECT_EQ(result, 0);
}

TEST_F(FileNames, SetNameInputFileRedirectsTheIntermediateFileOnly) {
  write_file("table.csv", "1,2\n");
  OpenUtils run = empty_set();
  const char* const table = run.nameInputFile;
  run.setNameInputFile("other.txt");
  EXPECT_EQ(run.nameInputFile, table);
  EXPECT_STREQ(run.nameInternalFile, "other.txt");
  printed_by([&] {
    EXPECT_EQ(run.loadInputFile(), 0);
    EXPECT_EQ(run.loadInternalFile(), 0);
  });
  EXPECT_EQ(read_file("other.txt"), "0 1 2\n");
  EXPECT_FALSE(exists("internal.txt"));
  EXPECT_EQ(run.getDataSize(), 1);
}

TEST_F(FileNames, SetNameOutputFileRedirectsTheReport) {
  OpenUtils run = empty_set();
  run.setNameOutputFile("other report");
  EXPECT_STREQ(run.nameOutputFile, "other report");
  EXPECT_EQ(printed_by([&] { run.storeStatistics(); }),
            "\nStatistics stored in the file other report\n\n");
  EXPECT_TRUE(exists("other report"));
  EXPECT_FALSE(exists("report.txt"));
}

}  // namespace
