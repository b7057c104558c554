// The bin that holds a value, and the statistics of bins against point_statistics of their objects.

#include "analysis/binned.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "statistics/statistics.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"

namespace vostrel {
namespace {

TEST(Bins, AnEdgeBelongsToTheBinAboveExceptTheLastEdge) {
  for (const std::vector<double>& edges : {std::vector<double>{1, 2, 3}, {1, 2, 9}}) {
    const Bins bins(edges);
    EXPECT_EQ(bins.size(), 2U);
    EXPECT_EQ(bins(1), 0U);
    EXPECT_EQ(bins(std::nextafter(2.0, 0)), 0U);
    EXPECT_EQ(bins(2), 1U);
    EXPECT_EQ(bins(edges[2]), 1U);
    EXPECT_EQ(bins(std::nextafter(1.0, 0)), Bins::kOutside);
    EXPECT_EQ(bins(std::nextafter(edges[2], 99)), Bins::kOutside);
    for (const double value : {kNaN, kInfinity, -kInfinity}) EXPECT_EQ(bins(value), Bins::kOutside);
  }
}

TEST(Bins, ABinBetweenEqualEdgesIsEmpty) {
  const Bins bins({1, 2, 2, 3, 3});
  EXPECT_EQ(bins(1.5), 0U);
  EXPECT_EQ(bins(2), 2U);
  EXPECT_EQ(bins(3), 3U);
}

TEST(Bins, EdgesMayBeInfiniteOrExtreme) {
  EXPECT_EQ(Bins({-kInfinity, 0, kInfinity})(kInfinity), 1U);
  EXPECT_EQ(Bins({-1e308, 0, 1e308})(-1e300), 0U);
  EXPECT_EQ(Bins({0, 5e-324, 1e-323})(5e-324), 1U);
}

TEST(Bins, FindsBinsAmongCrowdedEdges) {
  Random random;
  for (int round = 0; round < 200; ++round) {
    std::vector<double> edges(2 + random.below(40));
    for (double& edge : edges)
      edge = random.fraction() * static_cast<double>(1 << random.below(30));
    std::sort(edges.begin(), edges.end());
    const Bins bins(edges);
    for (std::size_t i = 0; i + 1 < edges.size(); ++i) {
      for (const double value :
           {edges[i], std::nextafter(edges[i + 1], -1e9), (edges[i] + edges[i + 1]) / 2}) {
        ASSERT_LE(edges[bins(value)], value);
        ASSERT_TRUE(value < edges[bins(value) + 1] || value == edges.back());
      }
    }
  }
}

TEST(Bins, ABlockOfValuesHasTheBinsOfEach) {
  for (const double crowded : {0.0, 1e-9}) {
    std::vector<double> edges(Bins::kMostInByte + 1);
    for (std::size_t i = 0; i < edges.size(); ++i) {
      edges[i] = static_cast<double>(i) * (i < 9 && crowded > 0 ? crowded : 1);
    }
    const Bins bins(edges);
    std::vector<double> values = {kNaN, -1, 1e-10, 3e-9, 300, edges.back()};
    for (const double edge : edges) {
      for (const double towards : {-1.0, 999.0}) values.push_back(std::nextafter(edge, towards));
    }
    std::vector<std::uint32_t> found(values.size());
    std::vector<std::uint8_t> bytes(values.size());
    bins.find(values, found.data());
    bins.find(values, bytes.data());
    for (std::size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ(found[i], bins(values[i]));
      EXPECT_EQ(bytes[i], bins(values[i]) == Bins::kOutside ? 255U : bins(values[i]));
    }
  }
}

TEST(Bins, BadEdgesAreRejected) {
  EXPECT_THROW(Bins({1}), std::invalid_argument);
  EXPECT_THROW(Bins({2, 1}), std::invalid_argument);
  EXPECT_THROW(Bins({1, kNaN, 2}), std::invalid_argument);
}

struct Objects {
  std::vector<double> reference;
  std::vector<double> estimate;
  std::vector<double> by;
};

Objects drawn(std::size_t n) {
  Random random;
  Objects objects{std::vector<double>(n), std::vector<double>(n), std::vector<double>(n)};
  for (std::size_t i = 0; i < n; ++i) {
    objects.reference[i] = 3 * random.fraction();
    objects.estimate[i] = objects.reference[i] + 0.1 * random.fraction();
    objects.by[i] = 17 + 7 * random.fraction();
  }
  return objects;
}

void expect_same(const PointStatistics& found, const PointStatistics& expected) {
  EXPECT_EQ(found.n, expected.n);
  for (const Statistic& statistic : kStatistics) {
    EXPECT_EQ(bits_of(found.delta.*statistic.member), bits_of(expected.delta.*statistic.member));
    EXPECT_EQ(bits_of(found.norm.*statistic.member), bits_of(expected.norm.*statistic.member));
  }
}

TEST(InOrderBins, EachBinMatchesPointStatistics) {
  const std::size_t n = 20'000;
  const auto [reference, estimate, by] = drawn(n);
  const Bins bins({18, 20, 20.001, 23});
  InOrderBins passes(bins);
  std::size_t first = 1;  // the objects of the first block
  do {
    passes.add(std::span(reference).first(first), std::span(estimate).first(first),
               std::span(by).first(first));
    passes.add(std::span(reference).subspan(first), std::span(estimate).subspan(first),
               std::span(by).subspan(first));
    first += 1000;
  } while (passes.end_pass());
  EXPECT_GT(first, 2000U);

  std::uint64_t inside = 0;
  const std::vector<FoundOfBoth> results = passes.results();
  for (std::size_t bin = 0; bin < bins.size(); ++bin) {
    std::vector<double> references;
    std::vector<double> estimates;
    for (std::size_t i = 0; i < n; ++i) {
      if (bins(by[i]) != bin) continue;
      references.push_back(reference[i]);
      estimates.push_back(estimate[i]);
    }
    const PointStatistics expected = point_statistics(references, estimates);
    expect_same(results[bin].point(), expected);
    inside += expected.n;
  }
  EXPECT_EQ(passes.outside(), n - inside);
}

// One bin has too many objects for a single pass, another has not.
TEST(ExactBins, ThreeWorkersThatSendBytesGiveTheSameBits) {
  const std::size_t n = 20'000;
  const Objects objects = drawn(n);
  const auto add = [&](ExactBins& passes, std::size_t first, std::size_t count) {
    passes.add(std::span(objects.reference).subspan(first, count),
               std::span(objects.estimate).subspan(first, count),
               std::span(objects.by).subspan(first, count));
  };
  ExactBins alone(Bins({18, 22, 23}));
  ExactBins shared = alone.fresh();
  int passes = 0;
  for (bool another = true; another; ++passes) {
    add(alone, 0, n);
    ExactBins merged = shared.fresh();
    for (const std::size_t third : {2U, 0U, 1U}) {
      ExactBins worker = shared.fresh();
      const std::size_t count = (third + 1) * n / 3 - third * n / 3;
      add(worker, third * n / 3, count);
      EXPECT_EQ(worker.size(), passes == 0 ? count : n);
      merged.merge(third == 0 ? worker : ExactBins::from_bytes(worker.to_bytes()));
    }
    EXPECT_EQ(merged.size(), n);
    EXPECT_EQ(merged.outside(), alone.outside());
    EXPECT_THROW(merged.merge(ExactBins(Bins({18, 22, 24}))), std::invalid_argument);
    another = merged.end_pass();
    EXPECT_EQ(alone.end_pass(), another);
    shared = std::move(merged);
  }
  EXPECT_GE(passes, 2);
  EXPECT_EQ(shared.size(), n);
  for (std::size_t bin = 0; bin < 2; ++bin) {
    expect_same(shared.results()[bin].point(), alone.results()[bin].point());
  }
  EXPECT_THROW(shared.merge(ExactBins(Bins({18, 22, 23}))), std::invalid_argument);
  const std::string bytes = shared.to_bytes();
  EXPECT_THROW(ExactBins::from_bytes(bytes + "x"), std::invalid_argument);
}

// The objects are the same in every pass, but two of equal references, or of equal estimates, swap
// their quantities and stay in one bin.
TEST(ExactBins, AQuantityThatChangesIsRejected) {
  for (const auto column : {&Objects::reference, &Objects::estimate}) {
    Objects objects = drawn(20'000);
    (objects.*column)[1] = (objects.*column)[0];
    std::vector<double> changed = objects.by;
    std::swap(changed[0], changed[1]);
    const auto add_by_workers = [&](ExactBins& whole, const std::vector<double>& quantity) {
      for (const std::size_t first : {0U, 10'000U}) {
        ExactBins worker = whole.fresh();
        for (const std::size_t block : {first, first + 5'000}) {
          worker.add(std::span(objects.reference).subspan(block, 5'000),
                     std::span(objects.estimate).subspan(block, 5'000),
                     std::span(quantity).subspan(block, 5'000));
        }
        whole.merge(worker);
      }
    };
    ExactBins whole(Bins({17, 24}));
    add_by_workers(whole, objects.by);
    ASSERT_TRUE(whole.end_pass());
    ExactBins other(Bins({17, 24}));
    add_by_workers(other, changed);
    ASSERT_TRUE(other.end_pass());
    EXPECT_THROW(whole.merge(other.fresh()), std::invalid_argument);
    add_by_workers(whole, changed);
    EXPECT_THROW(whole.end_pass(), std::invalid_argument);
  }
}

TEST(InOrderBins, ColumnsOfDifferentLengthsAreRejected) {
  InOrderBins passes(Bins({0, 1}));
  const std::vector<double> one = {0.5};
  EXPECT_THROW(passes.add({}, one, one), std::invalid_argument);
  EXPECT_THROW(passes.add(one, {}, one), std::invalid_argument);
}

TEST(InOrderBins, MoreObjectsInALaterPassAreRejected) {
  InOrderBins passes(Bins({17, 24}));
  const auto [reference, estimate, by] = drawn(10'000);
  passes.add(reference, estimate, by);
  ASSERT_TRUE(passes.end_pass());
  passes.add(reference, estimate, by);
  EXPECT_THROW(passes.add(reference, estimate, by), std::invalid_argument);
}

TEST(InOrderBins, AnEmptyBinIsNaN) {
  InOrderBins passes(Bins({0, 1, 2}));
  const std::vector<double> column = {0.5};
  do {
    passes.add(column, column, column);
  } while (passes.end_pass());
  EXPECT_EQ(passes.results()[1].n, 0U);
  EXPECT_TRUE(std::isnan(passes.results()[1].point().norm.bias));
}

}  // namespace
}  // namespace vostrel
