// The passes, compared bit by bit with the class UTILS on the same doubles. The class computes each
// statistic by its definition from a vector of residuals.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "statistics/basic_accumulator.h"
#include "tests/support/bits.h"
#include "tests/support/data.h"
#include "tests/support/open_utils.h"
#include "tests/support/random.h"
#include "tests/support/sorted_stretches.h"
#include "utils/lines.h"

namespace {

using Values = std::vector<double>;

vostrel::PointStatistics of_the_class(const Data& data) {
  OpenUtils run = loaded(data.reference, data.estimate);
  calculate_each(run);
  return statistics_of(run);
}

// In blocks of random sizes, which differ from pass to pass.
vostrel::PointStatistics in_blocks(const Data& data, Random& random, int& passes) {
  vostrel::InOrderAccumulator state;
  for (passes = 0; state.needs_another_pass(); ++passes) {
    std::span<const double> reference = data.reference;
    std::span<const double> estimate = data.estimate;
    while (!reference.empty()) {
      const std::size_t count = std::min(reference.size(), random.below(3000));
      state.add(reference.first(count), estimate.first(count));
      reference = reference.subspan(count);
      estimate = estimate.subspan(count);
    }
    state.end_pass();
    if (passes > 20) throw std::logic_error("the passes don't end");
  }
  return state.result().point();
}

void expect_same(const vostrel::ResidualStatistics& actual,
                 const vostrel::ResidualStatistics& expected, const std::string& what) {
  for (const auto& statistic : vostrel::kStatistics) {
    const double is = actual.*statistic.member;
    const double should = expected.*statistic.member;
    if (std::isnan(is) && std::isnan(should)) continue;
    ASSERT_EQ(bits_of(is), bits_of(should))
        << what << ": " << statistic.label << ' ' << is << ' ' << should;
  }
}

// Returns the number of passes.
int expect_the_class(const Data& data, Random& random, const std::string& what) {
  int passes = 0;
  const auto expected = of_the_class(data);
  SCOPED_TRACE(what);
  const auto actual = in_blocks(data, random, passes);
  EXPECT_EQ(actual.n, expected.n);
  expect_same(actual.delta, expected.delta, what + " delta");
  expect_same(actual.norm, expected.norm, what + " norm");
  return passes;
}

// Data with residuals that are hard for brackets: repeats, gaps, one bucket, all buckets.
Data drawn(Random& random, std::size_t n, std::size_t kind) {
  Data data{Values(n), Values(n)};
  const double shift = random.one_in(2) ? 0 : random.fraction() * 0.1;
  const double grid = std::ldexp(1.0, -static_cast<int>(random.below(30)));
  const double zeros = random.one_in(4) ? 1 : random.fraction();  // the share of zeros
  for (std::size_t i = 0; i < n; ++i) {
    double residual = 0;
    double reference = 3 * random.fraction();
    switch (kind) {
      case 0:
        residual = shift + 0.03 * random.normal();
        break;
      case 1:
        residual = shift + 0.03 * random.normal() / random.fraction();
        break;
      case 2:
        residual = grid * std::floor(random.normal() / grid / 8);
        reference = 0;
        break;
      case 3:
        residual = 0.1;
        reference = 0;
        break;
      case 4:
        residual = random.one_in(2) ? 0.1 : -0.3;
        reference = 0;
        break;
      case 5:
        residual = std::nextafter(0.15, random.one_in(2) ? 0 : 1);
        reference = 0;
        break;
      case 6:
        residual = 1 + static_cast<double>(random.below(1 << 20)) * 0x1p-52;
        reference = 0;
        break;
      case 7:
        residual = 1 + random.normal() * 1e-9;
        reference = 0;
        break;
      case 8:
        residual = std::ldexp(random.normal(), static_cast<int>(random.below(1900)) - 950);
        reference = 0;
        break;
      case 9:
        residual = random.fraction() > zeros       ? 1e-3 * random.normal()
                   : random.fraction() > zeros / 2 ? 0.0
                                                   : -0.0;
        reference = -0.0;
        break;
      case 10:
        residual = random.one_in(100) ? kInfinity : random.normal();
        break;
      case 11:
        residual = random.one_in(2) ? -kInfinity : random.normal();
        break;
      case 12:
        residual = random.one_in(50) ? kNaN : random.normal();
        break;
      case 13:
        reference = random.one_in(20) ? -1 : random.normal();
        residual = random.one_in(9) ? 0 : random.normal();
        break;
      case 14:
        residual = static_cast<double>(i) / static_cast<double>(n);
        reference = 0;
        break;  // sorted
      case 15:
        residual = i < n / 2 ? -1 - random.normal() * 1e-12 : 1 + random.normal() * 1e-12;
        reference = 0;
        break;
      case 16:
        residual =
            std::ldexp(1.0, -static_cast<int>(random.below(8))) * (random.one_in(2) ? 1 : -1);
        reference = 0;
        break;
      case 17:  // the median is 1; rounding leaves few distances to the values near 0
        residual = i % 5 == 0 ? 1 : random.one_in(2) ? 3 : (random.fraction() - 0.5) * 0x1p-48;
        reference = 0;
        break;
      default:
        residual = 1e5 * random.normal();
        reference = 1e6 * random.fraction();
        break;
    }
    data.reference[i] = reference;
    data.estimate[i] = reference - residual;
  }
  return data;
}

constexpr std::size_t kKinds = 19;

TEST(InOrderAccumulator, MatchesUtilsForFewObjects) {
  Random random;
  for (int round = 0; round < rounds(20000); ++round) {
    const std::size_t kind = random.below(kKinds);
    const Data data = drawn(random, random.below(60), kind);
    expect_the_class(data, random, "kind " + std::to_string(kind));
    if (HasFatalFailure()) return;
  }
}

TEST(InOrderAccumulator, MatchesUtilsForManyObjects) {
  Random random;
  for (int round = 0; round < rounds(400); ++round) {
    const std::size_t kind = static_cast<std::size_t>(round) % kKinds;
    const Data data = drawn(random, 8180 + random.below(random.one_in(4) ? 90000 : 9000), kind);
    expect_the_class(
        data, random,
        "kind " + std::to_string(kind) + " of " + std::to_string(data.reference.size()));
    if (HasFatalFailure()) return;
  }
}

// More values than a bracket keeps: they differ, but their distances from the median hardly do.
TEST(InOrderAccumulator, TerminatesForNearlyEqualDistances) {
  Random random(25);
  expect_the_class(drawn(random, 75000, 15), random, "two groups");
  expect_the_class(drawn(random, 100000, 17), random, "rounded distances");
}

// Distances from it are NaN for one half, so the order of the objects decides.
TEST(InOrderAccumulator, MatchesUtilsForAMedianOfAnInfinityAndANumber) {
  Random random;
  Data both{Values(20000, 1), Values(20000)};
  for (double& estimate : both.estimate) estimate = random.fraction();
  Data norm = both;
  for (std::size_t i = 0; i < 20000; ++i) {
    if (i / 5000 % 3 != 0) continue;
    both.estimate[i] = -kInfinity;
    norm.reference[i] = -1;  // only the normalized residual is infinite
  }
  expect_the_class(both, random, "half of both infinite");
  expect_the_class(norm, random, "half of one infinite");
}

// A few groups of values near 1, and at about the same distance to both sides. Each is in one or
// two buckets, which tell little of where its values are.
Data groups(Random& random) {
  const double distance = random.one_in(2) ? 0.03 : random.one_in(2) ? 0.008 : 0.25;
  Data data;
  for (std::size_t group = 3 + random.below(4); group > 0; --group) {
    const double side = static_cast<double>(random.below(3)) - 1;
    const double middle = 1 + side * distance + (random.fraction() - 0.5) / 128;
    const double width = std::pow(10, -2 - 6 * random.fraction());
    for (std::size_t i = 1000 + random.below(4000); i > 0; --i) {
      data.estimate.push_back(-middle - width * (random.fraction() - 0.5));
    }
  }
  data.estimate.resize(std::max<std::size_t>(data.estimate.size(), 8193), -1);
  data.reference.resize(data.estimate.size());
  return data;
}

TEST(InOrderAccumulator, FindsDistancesThatAreHardToGuess) {
  Random random;
  for (int round = 0; round < rounds(100); ++round) {
    expect_the_class(groups(random), random, "groups");
    if (HasFatalFailure()) return;
  }
}

TEST(InOrderAccumulator, OrdinaryDataTakesTwoPasses) {
  Random random(1);
  EXPECT_EQ(expect_the_class(drawn(random, 100000, 0), random, "normal"), 2);
  EXPECT_LE(expect_the_class(drawn(random, 100000, 1), random, "heavy tails"), 3);
  EXPECT_EQ(expect_the_class(drawn(random, 8000, 0), random, "few"), 1);
}

// ---- exact sums ----

Data shuffled(Data data, Random& random) {
  for (std::size_t i = data.reference.size(); i > 1; --i) {
    const std::size_t k = random.below(i);
    std::swap(data.reference[i - 1], data.reference[k]);
    std::swap(data.estimate[i - 1], data.estimate[k]);
  }
  return data;
}

// By several workers, which exchange their states as bytes.
vostrel::Accumulator merged(vostrel::Accumulator whole, const Data& data, std::size_t workers,
                            Random& random) {
  for (int passes = 0; whole.needs_another_pass(); ++passes) {
    std::vector<vostrel::Accumulator> states(workers, whole.fresh());
    for (std::size_t first = 0; first < data.reference.size();) {
      const std::size_t count = std::min(data.reference.size() - first, random.below(5000));
      states[random.below(workers)].add(std::span(data.reference).subspan(first, count),
                                        std::span(data.estimate).subspan(first, count));
      first += count;
    }
    vostrel::Accumulator together = whole.fresh();
    for (const vostrel::Accumulator& state : states) {
      together.merge(vostrel::Accumulator::from_bytes(state.to_bytes()));
    }
    together.end_pass();
    whole = vostrel::Accumulator::from_bytes(together.to_bytes());
    if (passes > 20) throw std::logic_error("the passes don't end");
  }
  return whole;
}

vostrel::PointStatistics by_workers(const Data& data, std::size_t workers, Random& random) {
  return merged(vostrel::Accumulator(), data, workers, random).result();
}

TEST(Accumulator, IsIndependentOfOrderAndWorkers) {
  Random random;
  for (int round = 0; round < rounds(100); ++round) {
    const std::size_t kind = random.below(kKinds);
    const Data data = drawn(random, random.below(random.one_in(4) ? 60000 : 12000), kind);
    const auto expected = by_workers(data, 1, random);
    const auto actual = by_workers(shuffled(data, random), 1 + random.below(5), random);
    const std::string what = "kind " + std::to_string(kind);
    EXPECT_EQ(actual.n, data.reference.size());
    expect_same(actual.delta, expected.delta, what + " delta");
    expect_same(actual.norm, expected.norm, what + " norm");
    if (HasFatalFailure()) return;
  }
}

// Each worker has more values in a bracket than it keeps.
TEST(Accumulator, MergesHistograms) {
  Random random;
  for (const std::size_t kind : {7U, 15U, 17U}) {
    const Data data = drawn(random, 150000, kind);
    const auto actual = by_workers(data, 2, random);
    const auto expected = of_the_class(data);
    EXPECT_EQ(bits_of(actual.delta.mad), bits_of(expected.delta.mad)) << "kind " << kind;
    EXPECT_EQ(bits_of(actual.delta.mad_delta), bits_of(expected.delta.mad_delta)) << kind;
  }
}

TEST(Accumulator, MatchesUtilsUpToTheRoundingOfSums) {
  Random random;
  for (int round = 0; round < rounds(60); ++round) {
    const Data data = drawn(random, 20000, random.below(3));
    const auto actual = by_workers(data, 2, random);
    const auto expected = of_the_class(data);
    for (const auto& [is, should] :
         {std::pair(actual.delta, expected.delta), {actual.norm, expected.norm}}) {
      EXPECT_EQ(bits_of(is.mad), bits_of(should.mad));
      EXPECT_EQ(bits_of(is.nmad), bits_of(should.nmad));
      EXPECT_EQ(bits_of(is.mad_delta), bits_of(should.mad_delta));
      EXPECT_EQ(bits_of(is.outliers_015), bits_of(should.outliers_015));
      EXPECT_NEAR(is.bias, should.bias, 1e-12 * should.rms);
      EXPECT_NEAR(is.sigma, should.sigma, 1e-12 * should.sigma);
      EXPECT_NEAR(is.rms, should.rms, 1e-12 * should.rms);
    }
  }
}

TEST(Accumulator, ReturnsNaNForMediansOfNaN) {
  const Values reference = {kInfinity, 1, 2};
  const Values estimate = {kInfinity, 0.5, 1.9};
  vostrel::Accumulator passes;
  passes.add(reference, estimate);
  EXPECT_FALSE(passes.end_pass());
  const auto s = passes.result();
  EXPECT_TRUE(std::isnan(s.delta.mad));
  EXPECT_TRUE(std::isnan(s.delta.mad_delta));
  EXPECT_EQ(s.delta.outliers_015, 1.0 / 3 * 100);
}

TEST(Accumulator, FindsMediansBetweenInfinities) {
  for (const int times : {1, 2000}) {
    Values residuals;
    for (int i = 0; i < times; ++i) {
      residuals.insert(residuals.end(), {kInfinity, 1, 2, 3, -kInfinity});
    }
    vostrel::Accumulator passes;
    do {
      passes.add(residuals, Values(residuals.size()));
    } while (passes.end_pass());
    EXPECT_EQ(passes.result().delta.mad, 3);
    EXPECT_EQ(passes.result().delta.mad_delta, 1);
  }
}

TEST(Accumulator, ReturnsNaNForManyNaNResiduals) {
  const Values minus_one(9000, -1);  // the residual is 0, the normalized one 0 / 0
  vostrel::Accumulator passes(vostrel::Extras{{}, {0.1}});
  do {
    passes.add(minus_one, minus_one);
  } while (passes.end_pass());
  EXPECT_EQ(passes.result().delta.mad, 0);
  EXPECT_TRUE(std::isnan(passes.result().norm.mad));
  EXPECT_TRUE(std::isnan(passes.result().norm.mad_delta));
  EXPECT_EQ(passes.extended_result().norm.outliers, Values{0});
}

// A bracket of the median reaches to kInfinity.
TEST(Accumulator, FindsAMedianNearTheLargestDouble) {
  const double middle = 0x1.ffffffffffff4p+1023;
  Values negative(32767, -kInfinity);
  std::fill_n(negative.begin(), 16382, 0);
  negative[16382] = -0x1.ffffffff4d1c6p+1023;
  negative[16383] = -middle;
  const Values zeros(negative.size());
  vostrel::Accumulator passes;
  do {
    passes.add(zeros, negative);
    passes = vostrel::Accumulator::from_bytes(passes.to_bytes());
  } while (passes.end_pass());
  EXPECT_EQ(passes.result().delta.mad, middle);
  EXPECT_EQ(passes.result().delta.mad_delta, middle);
}

TEST(Accumulator, FindsInfiniteDistancesAmongFiniteOnes) {
  Values residuals(20000, kInfinity);
  for (std::size_t i = 0; i < 9000; ++i) residuals[i] = i % 2 == 0 ? 0 : 8e307;
  for (std::size_t i = 9000; i < 14000; ++i) residuals[i] = -kInfinity;
  vostrel::Accumulator passes;
  do {
    passes.add(residuals, Values(residuals.size()));
  } while (passes.end_pass());
  EXPECT_EQ(passes.result().delta.mad, kInfinity);
  EXPECT_EQ(passes.result().delta.mad_delta, kInfinity);
}

TEST(Accumulator, RejectsStatesOfOtherPassesAndInvalidBytes) {
  Random random(1);
  const Data data = drawn(random, 20000, 0);
  vostrel::Accumulator second;
  second.add(data.reference, data.estimate);
  second.end_pass();
  vostrel::Accumulator first;
  EXPECT_THROW(second.merge(first), std::invalid_argument);
  EXPECT_THROW(first.merge(vostrel::Accumulator(vostrel::Extras())), std::invalid_argument);

  const std::string bytes = second.to_bytes();
  EXPECT_THROW(vostrel::Accumulator::from_bytes(bytes + "x"), std::invalid_argument);
  for (std::size_t size = 0; size < bytes.size(); size += 1 + size / 8) {
    EXPECT_THROW(vostrel::Accumulator::from_bytes(bytes.substr(0, size)), std::invalid_argument);
  }
}

// The states before and after each pass.
std::vector<std::string> states_of(const Data& data) {
  std::vector<std::string> states;
  vostrel::Accumulator passes(vostrel::Extras{{5, 95}, {0.2}});
  do {
    states.push_back(passes.to_bytes());
    passes.add(data.reference, data.estimate);
    states.push_back(passes.to_bytes());
  } while (passes.end_pass());
  states.push_back(passes.to_bytes());
  return states;
}

TEST(Accumulator, RejectsCorruptBytes) {
  Random random;
  const std::vector<std::string> states = states_of(drawn(random, 9000, 2));
  ASSERT_GE(states.size(), 5U);
  const char* const sample = std::getenv("VOSTREL_LONG_SAMPLES");
  const bool is_long = sample != nullptr && std::string(sample) == "ON";
  for (int round = 0; round < (is_long ? 1'000'000 : rounds(6000)); ++round) {
    const std::string& bytes = random.pick(states);
    std::string damaged = bytes;
    // Half of the damages are at the start, where the version and the counts are.
    const std::size_t place = random.below(random.one_in(2) ? 40 : bytes.size());
    switch (random.below(5)) {
      case 0:
      case 1:
        damaged[place] = static_cast<char>(damaged[place] ^ (1 << random.below(8)));
        break;
      case 2:
        damaged.resize(place);
        break;
      case 3:
        damaged.insert(place, 1 + random.below(9), static_cast<char>(random.bits()));
        break;
      default:
        damaged += bytes.substr(place);
        break;
    }
    ASSERT_NE(damaged, bytes);
    ASSERT_THROW(vostrel::Accumulator::from_bytes(damaged), std::invalid_argument) << round;
  }
}

// ---- data that change ----

// Each keeps the number of objects.
TEST(Accumulator, RejectsDataThatChangeBetweenPasses) {
  Random random;
  Data data = drawn(random, 150000, 17);
  data.reference[1] = 1;  // the others are 0
  std::vector<Data> changes(6, data);
  changes[0].estimate[77] += 1e-9;
  std::swap(changes[1].reference[5], changes[1].estimate[5]);
  std::swap(changes[2].estimate[0], changes[2].estimate[1]);
  std::copy_n(data.reference.begin(), 70000, changes[3].reference.begin() + 70000);
  std::copy_n(data.estimate.begin(), 70000, changes[3].estimate.begin() + 70000);
  changes[4].estimate[3] = kNaN;
  for (double& estimate : changes[5].estimate) estimate += 5;
  int passes = 1;
  vostrel::Accumulator same;
  const auto added_by_a_worker = [&](const Data& objects) {
    vostrel::Accumulator worker = same.fresh();
    worker.add(objects.reference, objects.estimate);
    vostrel::Accumulator whole = same.fresh();
    whole.merge(worker);
    return whole;
  };
  same = added_by_a_worker(data);
  for (; same.end_pass(); ++passes) {
    for (std::size_t k = 0; k < changes.size(); ++k) {
      vostrel::Accumulator changed = added_by_a_worker(changes[k]);
      try {
        changed.end_pass();
        ADD_FAILURE() << "change " << k << " in pass " << passes + 1;
      } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "the data changed between passes");
      }
    }
    same = added_by_a_worker(data);
  }
  EXPECT_GE(passes, 3);
  const double sigma = of_the_class(data).delta.sigma;
  EXPECT_NEAR(same.result().delta.sigma, sigma, 1e-9 * sigma);
}

// Columns in memory have no checksum to detect changes.
TEST(InOrderAccumulator, TerminatesWhenTheDataChange) {
  Random random;
  for (int round = 0; round < rounds(100); ++round) {
    const std::size_t n = 9000 + random.below(30000);
    vostrel::InOrderAccumulator passes;
    int count = 0;
    try {
      do {
        ASSERT_LE(++count, 10);
        const Data data = drawn(random, n, random.below(kKinds));
        passes.add(data.reference, data.estimate);
      } while (passes.end_pass());
      passes.result();
    } catch (const std::invalid_argument&) {
    }
  }
}

// ---- the further numbers ----

Values sorted(Values values) {
  std::sort(values.begin(), values.end());
  return values;
}

double percentile_of(const Values& ascending, double percent) {
  const double place = percent / 100 * static_cast<double>(ascending.size() - 1);
  const auto lower = static_cast<std::size_t>(place);
  const double part = place - std::floor(place);
  const double low = ascending[lower];
  const double high = ascending[std::min(lower + 1, ascending.size() - 1)];
  return part >= 0.5 ? high - (high - low) * (1 - part) : low + (high - low) * part;
}

double share_beyond(const Values& values, double bound) {
  const auto beyond =
      std::count_if(values.begin(), values.end(), [=](double v) { return std::fabs(v) > bound; });
  return static_cast<double>(beyond) / static_cast<double>(values.size());
}

const vostrel::Extras kExtras = {{0, 2.5, 40, 99.9, 100}, {0, 0.05, 0.15}};

void expect_plain(const vostrel::Quantiles& found, const Values& residuals) {
  const Values ascending = sorted(residuals);
  EXPECT_EQ(found.median, middle_of(ascending));
  EXPECT_EQ(found.sigma_68, (percentile_of(ascending, 84) - percentile_of(ascending, 16)) / 2);
  EXPECT_EQ(found.sigma_iqr, (percentile_of(ascending, 75) - percentile_of(ascending, 25)) / 1.349);
  for (std::size_t k = 0; k < kExtras.percentiles.size(); ++k) {
    EXPECT_EQ(found.percentiles[k], percentile_of(ascending, kExtras.percentiles[k]));
  }
  for (std::size_t k = 0; k < kExtras.outliers.size(); ++k) {
    EXPECT_EQ(found.outliers[k], share_beyond(residuals, kExtras.outliers[k]) * 100);
  }
}

void expect_plain(const vostrel::LsstMetrics& found, const Values& errors) {
  const Values ascending = sorted(errors);
  const double iqr = (percentile_of(ascending, 75) - percentile_of(ascending, 25)) / 1.349;
  EXPECT_EQ(found.bias, middle_of(ascending));
  EXPECT_EQ(found.sigma_iqr, iqr);
  EXPECT_EQ(found.sigma_mad, middle_of(sorted(distances(errors, found.bias))) * 1.4826);
  EXPECT_EQ(found.outlier_rate, share_beyond(errors, std::max(0.06, 3 * iqr)));
}

TEST(ExtendedStatistics, AreNegativeZeroOnlyIfAllZerosAre) {
  for (const std::size_t n : {3U, 20000U}) {
    for (const double zero : {0.0, -0.0}) {
      Values residuals = {zero};
      residuals.insert(residuals.end(), n - 2, -0.0);
      residuals.push_back(1);
      const Values zeros(n);
      vostrel::Accumulator passes(vostrel::Extras{});
      do {
        passes.add(residuals, zeros);
        passes = vostrel::Accumulator::from_bytes(passes.to_bytes());
      } while (passes.end_pass());
      const auto in_memory = vostrel::extended_statistics(residuals, zeros, {});
      EXPECT_EQ(bits_of(in_memory.delta.median), bits_of(zero));
      EXPECT_EQ(bits_of(passes.extended_result().delta.median), bits_of(zero));
    }
  }
}

TEST(ExtendedStatistics, MatchSortingInMemoryAndInBlocks) {
  Random random;
  for (int round = 0; round < rounds(100); ++round) {
    const std::size_t kind =
        random.pick(std::vector<std::size_t>{0, 1, 2, 3, 4, 5, 6, 7, 9, 14, 15, 17});
    const std::size_t n = 1 + random.below(random.one_in(3) ? 100 : 30000);
    SCOPED_TRACE("kind " + std::to_string(kind) + " of " + std::to_string(n));
    const Data data = drawn(random, n, kind);
    Values deltas;
    Values norms;
    Values errors;
    for (std::size_t i = 0; i < n; ++i) {
      deltas.push_back(data.reference[i] - data.estimate[i]);
      norms.push_back(deltas[i] / (1 + data.reference[i]));
      errors.push_back((data.estimate[i] - data.reference[i]) / (1 + data.reference[i]));
    }
    const auto in_memory = vostrel::extended_statistics(data.reference, data.estimate, kExtras);
    const auto in_blocks = merged(vostrel::Accumulator(kExtras), data, 3, random).extended_result();
    for (const auto& found : {in_memory, in_blocks}) {
      expect_plain(found.delta, deltas);
      expect_plain(found.norm, norms);
      expect_plain(found.lsst, errors);
    }
    if (HasFailure()) return;
  }
}

TEST(ExtendedStatistics, AreNaNWithoutObjectsAndWithANaN) {
  Random random;
  Values many(10'000, 1);
  many[1] = kNaN;
  for (const Values& residuals : {Values{}, Values{1, kNaN, 2}, many}) {
    const Data data = {residuals, Values(residuals.size())};
    const auto in_memory = vostrel::extended_statistics(data.reference, data.estimate, kExtras);
    const auto in_blocks = merged(vostrel::Accumulator(kExtras), data, 2, random).extended_result();
    EXPECT_TRUE(std::isnan(in_blocks.point.norm.mad));
    for (const auto& found : {in_memory, in_blocks}) {
      const auto& [bias, sigma_iqr, sigma_mad, outlier_rate] = found.lsst;
      Values numbers = {found.norm.median, found.norm.sigma_68, found.norm.sigma_iqr, bias,
                        sigma_iqr,         sigma_mad,           outlier_rate};
      numbers.insert(numbers.end(), found.norm.percentiles.begin(), found.norm.percentiles.end());
      EXPECT_EQ(numbers.size(), 7 + kExtras.percentiles.size());
      for (const double number : numbers) EXPECT_TRUE(std::isnan(number));
      EXPECT_EQ(found.norm.outliers.size(), kExtras.outliers.size());
    }
  }
}

// The sum of two such numbers would overflow.
TEST(ExtendedStatistics, TheMedianIsThatOfOneOrTwoObjectsAndBetweenInfinities) {
  const auto one = vostrel::extended_statistics(Values{0}, Values{-1e308}, {});
  EXPECT_EQ(one.delta.median, 1e308);
  EXPECT_EQ(one.lsst.bias, -1e308);
  EXPECT_EQ(vostrel::extended_statistics(Values{1, 2}, Values{0, 0}, {}).delta.median, 1.5);
  const Values infinities = {kInfinity, 1, -kInfinity};
  EXPECT_EQ(vostrel::extended_statistics(infinities, Values(3), {}).delta.median, 1);
}

// The difference, 2^53 + 1, rounds to 2^53. NumPy subtracts half of it from the upper value.
TEST(ExtendedStatistics, APercentileHalfwayIsNumPys) {
  const auto found = vostrel::extended_statistics(Values{1, 0x1p53 + 2}, Values(2), {{50}, {}});
  EXPECT_EQ(found.delta.percentiles, Values{0x1p52 + 2});
}

// (a + b) / 2 overflows, so all distances from the median are infinite. Those of infinities from
// themselves are NaN.
TEST(ExtendedStatistics, MeasureDistancesFromAnInfiniteMedian) {
  const auto sigma_mad = [](double estimate) {
    const Values zeros(10'000);
    const Values estimates(zeros.size(), estimate);
    vostrel::Accumulator passes(vostrel::Extras{});
    do {
      passes.add(zeros, estimates);
    } while (passes.end_pass());
    const auto in_memory = vostrel::extended_statistics(zeros, estimates, {});
    return std::pair(in_memory.lsst.sigma_mad, passes.extended_result().lsst.sigma_mad);
  };
  EXPECT_EQ(sigma_mad(1.7e308), std::pair(kInfinity, kInfinity));
  EXPECT_TRUE(std::isnan(sigma_mad(kInfinity).first));
  EXPECT_TRUE(std::isnan(sigma_mad(kInfinity).second));
}

// Two passes don't find one quartile, which is among many values at the far end of their bucket.
// LSST's bound follows from it, and ten errors lie next to the bound.
TEST(ExtendedStatistics, CountOutliersOnceTheQuartilesAreKnown) {
  Values errors(10, 7);
  for (int i = 0; i < 1 << 16; ++i) {
    errors.insert(errors.end(), {1 + i * 0x1p-15, -1.0078 - i * 0x1p-50});
  }
  const auto lsst = [&errors] {
    vostrel::Accumulator passes(vostrel::Extras{});
    do {
      passes.add(Values(errors.size()), errors);
    } while (passes.end_pass());
    return passes.extended_result().lsst;
  };
  const double bound = 3 * lsst().sigma_iqr;
  std::fill_n(errors.begin(), 10, bound * (1 - 1e-12));
  EXPECT_EQ(lsst().outlier_rate, 0);
  std::fill_n(errors.begin(), 10, bound * (1 + 1e-12));
  EXPECT_EQ(lsst().outlier_rate, 10 / static_cast<double>(errors.size()));
}

TEST(ExtendedStatistics, RejectBadPercentilesAndBounds) {
  for (const double percent : {-1.0, 100.1, kNaN}) {
    EXPECT_THROW(vostrel::extended_statistics({}, {}, {{percent}, {}}), std::invalid_argument);
  }
  for (const double bound : {-0.1, kNaN}) {
    EXPECT_THROW(vostrel::extended_statistics({}, {}, {{}, {bound}}), std::invalid_argument);
  }
}

TEST(PointStatistics, AreNaNWithoutObjects) {
  const auto none = vostrel::point_statistics({}, {});
  EXPECT_EQ(none.n, 0U);
  for (const auto& statistic : vostrel::kStatistics) {
    EXPECT_TRUE(std::isnan(none.delta.*statistic.member)) << statistic.label;
    EXPECT_TRUE(std::isnan(none.norm.*statistic.member)) << statistic.label;
  }
}

TEST(PointStatistics, EndIfACheckpointThrows) {
  struct Cancelled {};
  const Values many(20000);
  for (const int calls : {1, 2, 4}) {
    int left = calls;
    const auto checkpoint = [&] {
      if (--left == 0) throw Cancelled();
    };
    EXPECT_THROW(vostrel::point_statistics(many, many, checkpoint), Cancelled);
    left = calls;
    EXPECT_THROW(vostrel::extended_statistics(many, many, {}, checkpoint), Cancelled);
  }
}

TEST(InOrderAccumulator, RejectsMismatchedData) {
  const Values one = {1};
  const Values two = {1, 2};
  EXPECT_THROW(vostrel::point_statistics(one, two), std::invalid_argument);
  EXPECT_THROW(vostrel::point_statistics({}, two), std::invalid_argument);
  EXPECT_THROW(vostrel::point_statistics(one, {}), std::invalid_argument);
  vostrel::InOrderAccumulator passes;
  EXPECT_THROW(passes.result(), std::logic_error);
  EXPECT_THROW(passes.add(one, two), std::invalid_argument);
  EXPECT_THROW(passes.add(two, one), std::invalid_argument);
  const Values many(20000);
  passes.add(many, many);
  EXPECT_TRUE(passes.end_pass());
  passes.add(one, one);
  EXPECT_EQ(passes.size(), many.size());  // that of the first pass
  EXPECT_THROW(passes.end_pass(), std::invalid_argument);
}

}  // namespace
