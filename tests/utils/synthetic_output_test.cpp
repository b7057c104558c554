// AssignOutput, storeORMEDAOutput, doubleRangeRand, idRand.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/open_utils.h"
#include "tests/support/scratch.h"

namespace {

TEST(AssignOutput, CopiesTheEstimates) {
  OpenUtils run = loaded({1, 2, 3}, {4, 5, 6});
  run.AssignOutput();
  EXPECT_EQ(run.output, (std::vector<double>{4, 5, 6}));
}

TEST(AssignOutput, SecondCallAppends) {
  OpenUtils run = loaded({1, 2}, {4, 5});
  run.AssignOutput();
  run.AssignOutput();
  EXPECT_EQ(run.output, (std::vector<double>{4, 5, 4, 5}));
}

TEST(AssignOutput, CopiesOneEstimatePerIdentifier) {
  OpenUtils run = loaded({1, 2, 3}, {4, 5, 6});
  run.id = {0, 1};
  run.AssignOutput();
  EXPECT_EQ(run.output, (std::vector<double>{4, 5}));
}

TEST(AssignOutput, DoesNothingWithoutData) {
  OpenUtils run = empty_set();
  run.AssignOutput();
  EXPECT_TRUE(run.output.empty());
}

class StoreOutput : public InScratchFolder {
 protected:
  static std::string stored(const OpenUtils& run) {
    EXPECT_EQ(printed_by([&] { run.storeORMEDAOutput(); }), "");
    EXPECT_FALSE(exists("error.log"));
    return read_file("report.txt");
  }
};

TEST_F(StoreOutput, WritesAHeadingAndTheOutputVector) {
  OpenUtils run = loaded({0.1, 0.12345678, 1234567}, {7, 8, 9});
  run.output = {0.00001, -0.0, 2};
  run.id = {5, -6, 2147483647};
  EXPECT_EQ(stored(run),
            "# ID zspec zphot\n5 0.1 1e-05\n-6 0.123457 -0\n2147483647 1.23457e+06 2\n");
}

TEST_F(StoreOutput, WritesTheHeadingAloneWithoutData) {
  write_file("report.txt", "something old and longer\n");
  EXPECT_EQ(stored(empty_set()), "# ID zspec zphot\n");
}

TEST_F(StoreOutput, StopsAtTheShortestVector) {
  OpenUtils run = loaded({1, 2, 3}, {4, 5, 6});
  run.output = {7, 8};
  EXPECT_EQ(stored(run), "# ID zspec zphot\n0 1 7\n1 2 8\n");
  run.output = {7, 8, 9, 10};
  EXPECT_EQ(stored(run), "# ID zspec zphot\n0 1 7\n1 2 8\n2 3 9\n");
  run.zspec = {1};
  EXPECT_EQ(stored(run), "# ID zspec zphot\n0 1 7\n");
}

TEST_F(StoreOutput, IgnoresAFileItCannotCreate) {
  OpenUtils run = loaded({1}, {2});
  run.output = {3};
  run.setNameOutputFile("no such folder/report.txt");
  EXPECT_EQ(stored(run), "");
}

TEST_F(StoreOutput, WritesAHeadingThatReadsAsZeros) {
  OpenUtils run = loaded({0.5}, {9});
  run.output = {0.25};
  stored(run);
  OpenUtils again = empty_set();
  again.setNameInputFile("report.txt");
  printed_by([&] { EXPECT_EQ(again.loadInternalFile(), 0); });
  EXPECT_EQ(again.id, (std::vector<int>{0, 0}));
  EXPECT_EQ(again.zspec, (std::vector<double>{0, 0.5}));
  EXPECT_EQ(again.zphot, (std::vector<double>{0, 0.25}));
}

TEST(DoubleRangeRand, MatchesItsFormula) {
  const OpenUtils run = empty_set();
  std::srand(20261121);
  std::vector<int> draws;
  for (int i = 0; i < 100; ++i) draws.push_back(std::rand());
  std::srand(20261121);
  for (const int draw : draws) {
    EXPECT_EQ(run.doubleRangeRand(-1.5, 4.0), 5.5 * (draw / 2147483647.0) + -1.5);
  }
}

TEST(DoubleRangeRand, StaysBetweenItsEnds) {
  const OpenUtils run = empty_set();
  for (int i = 0; i < 10000; ++i) {
    const double unit = run.doubleRangeRand(0.0, 1.0);
    EXPECT_TRUE(unit >= 0.0 && unit <= 1.0);
    const double reversed = run.doubleRangeRand(3.0, 2.0);
    EXPECT_TRUE(reversed >= 2.0 && reversed <= 3.0);
    EXPECT_EQ(run.doubleRangeRand(0.7, 0.7), 0.7);
  }
}

TEST(IdRand, IsZeroForOneObject) {
  const OpenUtils run = loaded({1}, {2});
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(run.idRand(), 0);
}

TEST(IdRand, MatchesItsFormula) {
  const OpenUtils run = loaded({1, 2, 3, 4, 5, 6, 7}, {1, 2, 3, 4, 5, 6, 7});
  std::srand(20261121);
  std::vector<int> draws;
  for (int i = 0; i < 100; ++i) draws.push_back(std::rand());
  std::srand(20261121);
  for (const int draw : draws) EXPECT_EQ(run.idRand(), draw % 7);
}

TEST(IdRandDeathTest, AbortsWithAMessageWithoutData) {
  const OpenUtils run = empty_set();
  EXPECT_EXIT(
      {
        // Death tests look at standard error, so let standard output end there too.
        dup2(STDERR_FILENO, STDOUT_FILENO);
        run.idRand();
      },
      testing::KilledBySignal(SIGABRT),
      "\\*\\*\\* no data loaded: there is no position to draw \\*\\*\\*");
}

}  // namespace
