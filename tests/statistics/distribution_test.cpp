// What a bracket counts in cells. The tests of the passes hold the medians that follow.

#include "statistics/distribution.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "statistics/bytes.h"
#include "tests/support/random.h"

namespace vostrel {
namespace {

using Runs = std::vector<Bracket::Run>;

Bracket sent(const Bracket& bracket) {
  ByteWriter out;
  bracket.write(out);
  const std::string bytes = out.take();
  ByteReader in(bytes);
  return Bracket::read(in);
}

// Each part has more values than a bracket keeps. The last has few, which it keeps.
TEST(Bracket, MergesItsCells) {
  Random random;
  for (const std::optional<double> center : {std::optional<double>(), std::optional(0.875)}) {
    Bracket whole(1, 2, 0.5, 4, 7, center);
    Runs all;
    std::vector<Bracket> parts;
    for (const int size : {60'000, 50'000, 100}) {
      Runs runs;
      for (int i = 0; i < size; ++i) {
        runs.push_back({0.4 + 2 * random.fraction(), 1 + random.below(3)});
      }
      parts.push_back(whole.fresh());
      parts.back().sift(runs);
      all.insert(all.end(), runs.begin(), runs.end());
    }
    whole.sift(all);
    Bracket merged = sent(parts[1]);
    merged.merge(sent(parts[2]));
    merged.merge(parts[0]);

    EXPECT_EQ(merged.below(), whole.below());
    EXPECT_EQ(merged.inside(), whole.inside());
    ASSERT_EQ(merged.cells().size(), whole.cells().size());
    for (std::size_t i = 0; i < whole.cells().size(); ++i) {
      EXPECT_EQ(merged.cells()[i].count, whole.cells()[i].count);
      EXPECT_EQ(merged.cells()[i].low, whole.cells()[i].low);
      EXPECT_EQ(merged.cells()[i].high, whole.cells()[i].high);
    }

    // Counts are exact at the ends of cells, and unknown inside.
    std::uint64_t below = 7;
    for (const Bracket::Run& run : all) below += run.value >= 0.5 && run.value < 1 ? run.count : 0;
    EXPECT_EQ(whole.below(), below);
    for (const Bracket::Cell& cell : whole.cells()) {
      if (cell.count == 0) continue;
      EXPECT_EQ(whole.count_below(cell.low, false), below);
      below += cell.count;
      EXPECT_EQ(whole.count_below(cell.high, true), below);
      if (cell.low < cell.high) {
        EXPECT_EQ(whole.count_below(cell.high, false), std::nullopt);
      }
    }
    EXPECT_EQ(whole.count_below(2.5, false), std::nullopt);
  }
}

TEST(Bracket, MergesOnlyItsLike) {
  const Bracket bracket(1, 2, 0.5, 4, 7, 0.875);
  for (const Bracket& other :
       {Bracket(1.1, 2, 0.5, 4, 7, 0.875), Bracket(1, 2.1, 0.5, 4, 7, 0.875),
        Bracket(1, 2, 0.6, 4, 7, 0.875), Bracket(1, 2, 0.5, 4.1, 7, 0.875),
        Bracket(1, 2, 0.5, 4, 8, 0.875), Bracket(1, 2, 0.5, 4, 7, std::nullopt)}) {
    EXPECT_THROW(bracket.fresh().merge(other), std::invalid_argument);
  }
}

}  // namespace
}  // namespace vostrel
