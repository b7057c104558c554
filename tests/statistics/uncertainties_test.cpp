// The spreads against plain loops over all residuals. The Python tests hold the errors that follow.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "statistics/basic_accumulator.h"
#include "tests/support/bits.h"
#include "tests/support/data.h"
#include "tests/support/random.h"

namespace vostrel {
namespace {

std::vector<std::uint64_t> some_ranks(std::size_t n) { return {700, 0, n - 1, 4321, 0}; }

Spread plain(const std::vector<double>& residuals) {
  const auto n = static_cast<double>(residuals.size());
  double sum = 0;
  for (const double r : residuals) sum += r;
  const double bias = sum / n;
  Spread spread{};
  for (const double r : residuals) {
    const double about = r - bias;
    spread.second += r * r;
    spread.fourth += (r * r) * (r * r);
    spread.second_about += about * about;
    spread.fourth_about += (about * about) * (about * about);
  }
  for (double* mean :
       {&spread.second, &spread.fourth, &spread.second_about, &spread.fourth_about}) {
    *mean /= n;
  }
  std::vector<double> sizes = residuals;
  for (double& size : sizes) size = std::fabs(size);
  std::sort(sizes.begin(), sizes.end());
  std::vector<double> ordered = residuals;
  std::sort(ordered.begin(), ordered.end());
  for (const std::uint64_t rank : some_ranks(residuals.size())) {
    spread.absolute.push_back(sizes[rank]);
    spread.values.push_back(ordered[rank]);
  }
  return spread;
}

void expect_same(const Spread& found, const Spread& expected) {
  EXPECT_EQ(bits_of(found.second), bits_of(expected.second));
  EXPECT_EQ(bits_of(found.fourth), bits_of(expected.fourth));
  EXPECT_EQ(bits_of(found.second_about), bits_of(expected.second_about));
  EXPECT_EQ(bits_of(found.fourth_about), bits_of(expected.fourth_about));
  EXPECT_EQ(found.absolute, expected.absolute);
  EXPECT_EQ(found.values, expected.values);
}

Wanted spreads(std::size_t n) {
  Wanted wanted;
  wanted.has_fourth = true;
  wanted.absolute = some_ranks(n);
  wanted.values = some_ranks(n);
  return wanted;
}

void expect_plain_loops(std::size_t n, double width) {
  Random random;
  Data data;
  std::vector<double> deltas;
  std::vector<double> norms;
  for (std::size_t i = 0; i < n; ++i) {
    const double z = 3 * random.fraction();
    data.reference.push_back(z);
    data.estimate.push_back(z + 0.02 + width * random.normal());
    deltas.push_back(z - data.estimate.back());
    norms.push_back(deltas.back() / (1 + z));
  }
  const FoundOfBoth found = find_in_order(data.reference, data.estimate, spreads(n), [] {});
  expect_same(found.delta.spread, plain(deltas));
  expect_same(found.norm.spread, plain(norms));
}

TEST(Spreads, MatchPlainLoopsByDefinition) { expect_plain_loops(5'000, 0.1); }
TEST(Spreads, MatchPlainLoopsInTwoPasses) { expect_plain_loops(10'000, 0.1); }
TEST(Spreads, MatchPlainLoopsInMorePasses) { expect_plain_loops(100'000, 1e-12); }

TEST(Spreads, CanBeCancelled) {
  const std::vector<double> values(10'000, 0.5);
  int calls = 0;
  const auto cancel = [&] {
    if (++calls == 4) throw std::runtime_error("cancelled");
  };
  EXPECT_THROW(find_in_order(values, values, spreads(values.size()), cancel), std::runtime_error);
}

}  // namespace
}  // namespace vostrel
