// AssignOutput, doubleRangeRand, idRand.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <vector>

#include "tests/support/open_utils.h"

namespace {

TEST(AssignOutput, CopiesTheEstimates) {
  OpenUtils run = loaded({1, 2, 3}, {4, 5, 6});
  run.AssignOutput();
  EXPECT_EQ(run.output, (std::vector<double>{4, 5, 6}));
}

TEST(AssignOutput, AppendsASecondCopyOnASecondCall) {
  OpenUtils run = loaded({1, 2}, {4, 5});
  run.AssignOutput();
  run.AssignOutput();
  EXPECT_EQ(run.output, (std::vector<double>{4, 5, 4, 5}));
}

TEST(AssignOutput, GoesByTheCountOfIdentifiers) {
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

TEST(DoubleRangeRand, IsTheSpanTimesTheShareOfTheLargestDrawPlusTheLowerEnd) {
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

TEST(IdRand, OfOneObjectIsAlwaysZero) {
  const OpenUtils run = loaded({1}, {2});
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(run.idRand(), 0);
}

TEST(IdRand, IsTheDrawModuloTheDataSize) {
  const OpenUtils run = loaded({1, 2, 3, 4, 5, 6, 7}, {1, 2, 3, 4, 5, 6, 7});
  std::srand(20261121);
  std::vector<int> draws;
  for (int i = 0; i < 100; ++i) draws.push_back(std::rand());
  std::srand(20261121);
  for (const int draw : draws) EXPECT_EQ(run.idRand(), draw % 7);
}

TEST(IdRandDeathTest, WithoutDataEndsTheProgramWithAMessageOnStandardOutput) {
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
