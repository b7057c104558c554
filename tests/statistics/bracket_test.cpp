// What a bracket counts in cells. The tests of the search hold the answers that follow.

#include "statistics/bracket.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "statistics/bytes.h"
#include "tests/support/random.h"

namespace vostrel {
namespace {

Bracket sent(const Bracket& bracket) {
  ByteWriter out;
  bracket.write(out);
  const std::string bytes = out.take();
  ByteReader in(bytes);
  return Bracket::read(in);
}

struct Repeated {
  double value;
  std::uint64_t count;
};

Bracket started(Key key) {
  Bracket bracket(key, {0.5, 1.5});
  bracket.keep({1.0, 1.001});
  bracket.start(7, 1 << 20, 8);
  return bracket;
}

void take(Bracket& bracket, const std::vector<Repeated>& runs) {
  for (const Repeated& run : runs) bracket.take(run.value, run.count);
}

// Each answer of the bracket holds the sorted key. In the cells that are kept it is the key.
void expect_sorted(const Bracket& bracket, const std::vector<Repeated>& runs) {
  std::vector<double> inside;
  std::uint64_t below = 7;
  for (const Repeated& run : runs) {
    const double key = bracket.key()(run.value);
    if (key < 0.5) below += run.count;
    if (key >= 0.5 && key <= 1.5) inside.insert(inside.end(), run.count, key);
  }
  std::sort(inside.begin(), inside.end());
  ASSERT_EQ(bracket.below(), below);
  ASSERT_EQ(bracket.inside(), inside.size());
  for (std::size_t rank = 0; rank < inside.size(); rank += 1 + rank / 64) {
    const Interval found = bracket.find(rank);
    ASSERT_LE(found.low, inside[rank]);
    ASSERT_GE(found.high, inside[rank]);
    const bool is_kept = inside[rank] >= 1.0 && inside[rank] <= 1.001;
    ASSERT_EQ(found.low == found.high, is_kept || found.low == inside[rank]) << inside[rank];
    const std::uint64_t up_to = static_cast<std::uint64_t>(
        std::upper_bound(inside.begin(), inside.end(), inside[rank]) - inside.begin());
    if (is_kept) {
      ASSERT_EQ(bracket.count_up_to(inside[rank]), up_to);
    }
  }
  EXPECT_EQ(bracket.count_up_to(1.5), inside.size());
  EXPECT_EQ(bracket.count_up_to(1.2345), std::nullopt);  // inside a cell
}

TEST(Bracket, PartsCountAllValuesAndKeepSome) {
  Random random;
  for (const Key key : {Key{}, Key{0.875}}) {
    Bracket whole = started(key);
    std::vector<Repeated> all;
    std::vector<Bracket> parts;
    for (const int size : {60'000, 50'000, 100}) {
      std::vector<Repeated> runs;
      for (int i = 0; i < size; ++i) {
        runs.push_back({0.4 + 2.2 * random.fraction(), 1 + random.below(3)});
      }
      parts.push_back(whole.fresh());
      take(parts.back(), runs);
      all.insert(all.end(), runs.begin(), runs.end());
    }
    take(whole, all);
    Bracket merged = sent(parts[1]);
    merged.merge(sent(parts[2]));
    merged.merge(parts[0]);
    expect_sorted(whole, all);
    expect_sorted(merged, all);
  }
}

TEST(Bracket, RejectsMergeOfDifferentBounds) {
  const auto bracket = [](Key key, Interval keys, std::uint64_t before, int bits) {
    Bracket started(key, keys);
    started.start(before, 1 << 20, bits);
    return started;
  };
  const Bracket one = bracket(Key{0.875}, {1, 2}, 7, 8);
  EXPECT_NO_THROW(one.fresh().merge(bracket(Key{0.875}, {1, 2}, 7, 8)));
  for (const Bracket& other :
       {bracket(Key{0.876}, {1, 2}, 7, 8), bracket(Key{}, {1, 2}, 7, 8),
        bracket(Key{0.875}, {1.1, 2}, 7, 8), bracket(Key{0.875}, {1, 2.1}, 7, 8),
        bracket(Key{0.875}, {1, 2}, 8, 8), bracket(Key{0.875}, {1, 2}, 7, 9)}) {
    EXPECT_THROW(one.fresh().merge(other), std::invalid_argument);
  }
}

}  // namespace
}  // namespace vostrel
