// The values of ranks, compared with sorting.

#include "statistics/ranks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/random.h"

namespace vostrel {
namespace {

// The values of the ranks, and how many passes it took.
struct Found {
  std::vector<double> values;
  int passes;
};

Found find(const std::vector<double>& values, const std::vector<std::uint64_t>& places) {
  Ranks ranks(values.size(), places);
  int passes = 0;
  bool another = true;
  while (another) {
    const std::size_t half = values.size() / 2;
    ranks.add({values.data(), half});
    ranks.add({values.data() + half, values.size() - half});
    another = ranks.end_pass();
    ++passes;
  }
  return {ranks.values(), passes};
}

void expect_sorted(std::vector<double> values, const std::vector<std::uint64_t>& places) {
  const Found found = find(values, places);
  EXPECT_LE(found.passes, 6);
  std::sort(values.begin(), values.end());
  ASSERT_EQ(found.values.size(), places.size());
  for (std::size_t i = 0; i < places.size(); ++i) {
    EXPECT_EQ(found.values[i], values[places[i]]) << "rank " << places[i];
  }
}

TEST(Ranks, FewValuesAreKept) {
  const Found found = find({3, -1, 2}, {0, 1, 1, 2});
  EXPECT_EQ(found.values, (std::vector<double>{-1, 2, 2, 3}));
  EXPECT_EQ(found.passes, 1);
}

TEST(Ranks, NoRanksHaveNoValues) { EXPECT_TRUE(find({1, 2}, {}).values.empty()); }

TEST(Ranks, ManyValuesMatchSorting) {
  Random random;
  std::vector<double> values(100'000);
  for (double& value : values) value = std::log(random.fraction());
  expect_sorted(values, {0, 1, 25'000, 49'999, 50'000, 99'998, 99'999});
}

TEST(Ranks, NeighboursOfRepeatedValuesAreFound) {
  std::vector<double> values(50'000, 1.0);
  values[7] = std::nextafter(1.0, 2);
  values[9] = std::nextafter(1.0, 0);
  expect_sorted(values, {0, 1, 25'000, 49'998, 49'999});
}

TEST(Ranks, AllKindsOfNumbersMatchSorting) {
  std::vector<double> values;
  for (int i = 0; i < 3000; ++i) {
    values.insert(values.end(), {kInfinity, -kInfinity, 0.0, -0.0, 5e-324, -5e-324, 1e308, -1e308,
                                 static_cast<double>(i)});
  }
  expect_sorted(values, {0, 2999, 3000, 8999, 9000, 13'500, 15'000, 20'000, 26'999});
}

TEST(Ranks, ChangedValuesThrow) {
  const std::vector<double> before(20'000, 1.0);
  const std::vector<double> after(20'000, 1e6);
  Ranks ranks(before.size(), {10'000});
  ranks.add(before);
  ASSERT_TRUE(ranks.end_pass());
  ranks.add(after);
  EXPECT_THROW(ranks.end_pass(), std::invalid_argument);
}

}  // namespace
}  // namespace vostrel
