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
#include "tests/support/bits.h"
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

// It keeps no more than 2^14 different values, twice each. A new one shares the cell of the first.
TEST(Bracket, CountsMoreValuesOnceItIsFull) {
  Bracket bracket(Key{}, {0.5, 1.5});
  bracket.keep({1, 1.5});
  bracket.start(0, 1 << 20, 16);
  for (int i = 0; i < 1 << 14; ++i) bracket.take(1 + i * 0x1p-15, 2);
  bracket.take(1, 2);
  bracket.take(1 + 0x1p-16, 1);
  const Bracket merged = [&] {
    Bracket twice = bracket.fresh();
    twice.merge(sent(bracket));
    twice.merge(sent(bracket));
    return twice;
  }();
  for (const double i : {0, 1, 100, (1 << 14) - 1}) {
    const double value = 1 + i * 0x1p-15;
    const auto up_to = static_cast<std::uint64_t>(2 * i) + (i == 0 ? 4 : 5);
    EXPECT_EQ(bracket.count_up_to(value), up_to);
    EXPECT_EQ(merged.count_up_to(value), 2 * up_to);
    EXPECT_EQ(bracket.find(up_to - 1).low, value);
    EXPECT_EQ(bracket.find(up_to - 1).high, value);
  }
}

TEST(Bracket, ExtendsToBothSides) {
  Bracket bracket(Key{}, {-1, 1});
  bracket.extend({-kInfinity, 0});
  bracket.extend({0, kInfinity});
  bracket.start(0, 3, 8);
  for (const double value : {2.0, -kInfinity, kInfinity}) bracket.take(value, 1);
  EXPECT_EQ(bracket.inside(), 3U);
  EXPECT_EQ(bracket.find(1).low, 2);
}

// The cells begin at 0.5, 0.625, 0.75, 0.875, 1, 1.25, and 1.5. All keep their values except those
// from 0.625 and from 1. Values of other cells, or from outside, may come as near as the kept ones.
TEST(Bracket, FindsDistancesFromANearbyCenter) {
  Bracket bracket(Key{0.0}, {0.5, 1.5});
  for (const double kept : {0.55, 0.8, 0.9, 1.3}) bracket.keep({kept, kept});
  bracket.start(1, 1 << 20, 3);
  for (const double value : {0.3, 0.55, 0.65, -0.78, 0.8, 0.95, 1.1, 1.5, 2.0}) {
    bracket.take(value, 1);
  }
  const auto about = [&](double center, std::uint64_t rank) {
    return bracket.find_about(center, rank, 10);
  };
  EXPECT_EQ(bracket.count_up_to(0.875), 4U);
  EXPECT_EQ(about(0, 1), std::nullopt);
  EXPECT_EQ(about(0, 4), 0.95);
  EXPECT_EQ(about(0, 5), std::nullopt);
  EXPECT_EQ(about(0.02, 2), 0.8 - 0.02);
  EXPECT_EQ(about(0.02, 3), 0.78 + 0.02);
  EXPECT_EQ(about(-0.01, 4), 0.95 + 0.01);
  EXPECT_EQ(about(0.04, 2), std::nullopt);   // 0.76, as one from just below 0.75 may be
  EXPECT_EQ(about(-0.03, 4), std::nullopt);  // 0.98, as one from just above 1 may be
  EXPECT_EQ(about(0.04, 0), std::nullopt);   // 0.51, as one from just below 0.5 may be
  EXPECT_EQ(about(-0.1, 0), std::nullopt);   // 0.65, as one from just above 0.625 may be
}

TEST(Bracket, FindsTheFarthestDistances) {
  Bracket bracket(Key{0.0}, {0.5, 1.5});
  bracket.keep({0.8, 0.9});
  bracket.start(0, 1 << 20, 3);
  for (const double value : {0.55, 0.8, 0.95}) bracket.take(value, 1);
  EXPECT_EQ(bracket.find_about(-0.1, 2, 3), 0.95 + 0.1);
  EXPECT_EQ(bracket.find_about(-0.1, 2, 4), std::nullopt);  // one lies beyond
  EXPECT_EQ(bracket.find_about(0.06, 1, 3), std::nullopt);  // 0.74
}

TEST(Bracket, BoundsACellOfNegativeValues) {
  Bracket bracket(Key{}, {-2, -1});
  bracket.start(0, 1 << 20, 1);
  bracket.take(-1.5, 1);
  EXPECT_EQ(bracket.find(0).low, -2);
  EXPECT_EQ(bracket.find(0).high, std::nextafter(-1, -2));
}

TEST(Bracket, ACellThatEndsAtZeroIsNotZero) {
  for (const double side : {-1.0, 1.0}) {
    Bracket bracket(Key{}, {std::min(side, 0.0), std::max(side, 0.0)});
    bracket.start(0, 1 << 20, 8);
    const double value = side * 0x1p-1020;
    bracket.take(value, 1);
    EXPECT_LE(bracket.find(0).low, value);
    EXPECT_GE(bracket.find(0).high, value);
  }
}

TEST(Bracket, AFreshOneHasSeenNoZero) {
  Bracket bracket(Key{}, {-1, 1});
  bracket.start(0, 2, 8);
  bracket.take(0.0, 1);
  Bracket fresh = bracket.fresh();
  fresh.take(-0.0, 1);
  EXPECT_EQ(bits_of(fresh.find(0).low), bits_of(-0.0));
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
