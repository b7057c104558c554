// The answers of a search, compared with sorting, and how many passes they take.

#include "statistics/search.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "statistics/bytes.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"
#include "tests/support/sorted_stretches.h"

namespace vostrel {
namespace {

using Values = std::vector<double>;

// ---- how a pass is made ----

Search sent(const Search& search) {
  ByteWriter out;
  search.write(out);
  const std::string bytes = out.take();
  ByteReader in(bytes);
  Search read = Search::read(in);
  if (!in.at_end()) throw std::logic_error("bytes are left");
  return read;
}

// All values in one block, those that aren't needed too.
void sift_whole(Search& search, std::span<const double> values) { search.sift(values); }

// Two workers that send bytes have a part each. The values that aren't needed are left out.
void sift_by_workers(Search& search, std::span<const double> values) {
  const std::size_t cut = values.size() / 3;
  for (const auto part : {values.first(cut), values.subspan(cut)}) {
    Search worker = sent(search.fresh());
    for (const double value : part) {
      if (worker.needs(value) != 0) worker.sift({&value, 1});
    }
    search.merge(sent(worker));
  }
  search = sent(search);
}

// ---- all kinds of questions ----

struct Passes {
  Search search;
  int count = 1;
};

Values sorted(Values values) {
  std::sort(values.begin(), values.end());
  return values;
}

void expect_value(const Search& search, Search::Question question, double expected) {
  ASSERT_TRUE(search.is_known(question));
  const double found = search.value(question);
  ASSERT_TRUE(found == expected || (std::isnan(found) && std::isnan(expected)))
      << found << " is not " << expected;
}

// Asks everything. The bounds are known only after the second pass, and guessed up to `error`.
// Returns the number of passes.
template <class Sift>
int expect_sorted(const Values& values, double error, Sift sift) {
  const std::size_t n = values.size();
  const Values by_value = sorted(values);
  const Values by_size = sorted(absolutes(values));
  const double center = middle_of(by_value);
  const Values by_distance = sorted(distances(values, center));
  const std::vector<std::size_t> ranks = {n / 2, (n - 1) / 2, n / 4, n - 1 - n / 6, 0, n - 1};

  Search search;
  for (const double value : values) search.count(value);
  search.end_count();
  std::vector<Search::Question> questions;
  for (const std::size_t rank : ranks) questions.push_back(search.rank(rank));
  const auto size = search.distance(n / 2, 0.0);
  const auto lower = search.distance((n - 1) / 2, questions[1], questions[0]);
  const auto upper = search.distance(n / 2, questions[1], questions[0]);
  const auto nearest = search.distance(0, questions[1], questions[0]);
  std::vector<double> bounds = {0.15, by_size[n - 1 - n / 10], by_size[n / 2], kNaN};
  std::vector<Search::Question> beyond;
  for (const double bound : bounds) {
    beyond.push_back(search.beyond({bound * (1 - error), bound * (1 + error / 2)}));
  }

  int passes = 1;
  while (search.start_pass()) {
    sift(search, std::span(values));
    search.end_pass();
    for (std::size_t k = 0; k < bounds.size(); ++k) search.count_beyond(beyond[k], bounds[k]);
    ++passes;
  }
  for (std::size_t k = 0; k < ranks.size(); ++k) {
    expect_value(search, questions[k], by_value[ranks[k]]);
  }
  expect_value(search, size, by_size[n / 2]);
  const bool has_center = std::isfinite(center);
  expect_value(search, lower, has_center ? by_distance[(n - 1) / 2] : kNaN);
  expect_value(search, upper, has_center ? by_distance[n / 2] : kNaN);
  expect_value(search, nearest, has_center ? by_distance[0] : kNaN);
  for (std::size_t k = 0; k < bounds.size(); ++k) {
    const auto count =
        std::count_if(by_size.begin(), by_size.end(), [&](double v) { return v > bounds[k]; });
    EXPECT_EQ(search.counted(beyond[k]), static_cast<std::uint64_t>(count)) << bounds[k];
  }
  return passes;
}

// ---- kinds of values ----

struct Kind {
  const char* name;
  std::function<double(Random&, std::size_t)> value;
};

const std::vector<Kind> kKinds = {
    {"normal", [](Random& r, std::size_t) { return 0.01 + 0.03 * r.normal(); }},
    {"heavy tails", [](Random& r, std::size_t) { return r.normal() / r.fraction(); }},
    {"a grid", [](Random& r, std::size_t) { return 0.01 * std::floor(30 * r.normal()); }},
    {"constant", [](Random&, std::size_t) { return 0.1; }},
    {"two values", [](Random& r, std::size_t) { return r.one_in(2) ? 0.1 : -0.3; }},
    {"three neighbours",
     [](Random& r, std::size_t) {
       return std::nextafter(0.15, static_cast<double>(r.below(3)) * 0.15);
     }},
    {"neighbouring doubles",
     [](Random& r, std::size_t) { return 1 + static_cast<double>(r.below(1 << 20)) * 0x1p-52; }},
    {"a narrow cluster", [](Random& r, std::size_t) { return 1 + 1e-9 * r.normal(); }},
    {"all exponents",
     [](Random& r, std::size_t) {
       return std::ldexp(r.normal(), static_cast<int>(r.below(1900)) - 950);
     }},
    {"zeros of both signs", [](Random& r, std::size_t) { return r.one_in(2) ? 0.0 : -0.0; }},
    {"zeros among others",
     [](Random& r, std::size_t) {
       return r.one_in(3) ? 1e-3 * r.normal() : r.one_in(2) ? 0.0 : -0.0;
     }},
    {"infinities", [](Random& r, std::size_t) { return r.one_in(3) ? kInfinity : r.normal(); }},
    {"an infinite median",
     [](Random& r, std::size_t i) { return i % 5 < 3 ? -kInfinity : r.normal(); }},
    {"the ends of the doubles",
     [](Random& r, std::size_t i) { return i % 3 == 0 ? r.normal() : 1.7e308 * r.normal(); }},
    {"two narrow clusters",
     [](Random& r, std::size_t i) {
       return i % 2 == 0 ? -1 - 1e-12 * r.normal() : 1 + 1e-12 * r.normal();
     }},
    {"rounded distances",
     [](Random& r, std::size_t i) {
       return i % 5 == 0 ? 1 : r.one_in(2) ? 3 : (r.fraction() - 0.5) * 0x1p-48;
     }},
};

TEST(Search, MatchesSorting) {
  Random random;
  for (int round = 0; round < rounds(400); ++round) {
    const Kind& kind = kKinds[static_cast<std::size_t>(round) % kKinds.size()];
    const std::size_t n = 1 + random.below(random.one_in(2)   ? 200
                                           : random.one_in(4) ? 200'000
                                                              : 20'000);
    SCOPED_TRACE(kind.name + (" of " + std::to_string(n)));
    Values values(n);
    for (std::size_t i = 0; i < n; ++i) values[i] = kind.value(random, i);
    const double error = random.one_in(2) ? 0 : random.fraction() / 10;
    if (random.one_in(2)) {
      expect_sorted(values, error, sift_whole);
    } else {
      expect_sorted(values, error, sift_by_workers);
    }
    if (HasFatalFailure() || HasNonfatalFailure()) return;
  }
}

// Answers all questions that have been asked. Returns the answer to one.
double answer(Search& search, const Values& values, Search::Question question) {
  while (search.start_pass()) {
    sift_by_workers(search, std::span(values));
    search.end_pass();
  }
  return search.value(question);
}

// Each value is counted by a worker of its own.
Search counted(const Values& values) {
  Search search;
  for (const double value : values) {
    Search worker;
    worker.count(value);
    search.merge(sent(worker));
  }
  search.end_count();
  return search;
}

TEST(Search, AZeroIsNegativeOnlyIfAllZerosAre) {
  for (const double zero : {0.0, -0.0}) {
    const Values values = {zero, -0.0, -0.0, -0.0};
    Search search = counted(values);
    EXPECT_EQ(bits_of(answer(search, values, search.rank(2))), bits_of(zero));
  }
}

TEST(Search, FindsTheEndsOfBuckets) {
  const Values values = {-0x1p-1074, 0, 0x1p-1074, std::nextafter(1, 0), 1};
  for (std::size_t rank = 0; rank < values.size(); ++rank) {
    Search search = counted(values);
    EXPECT_EQ(answer(search, values, search.rank(rank)), values[rank]);
  }
}

TEST(Search, AnswersQuestionsBetweenPasses) {
  const Values values = {1, 2, 4, 8};
  Search search = counted(values);
  EXPECT_EQ(answer(search, values, search.rank(3)), 8);
  EXPECT_EQ(answer(search, values, search.rank(1)), 2);
  EXPECT_EQ(answer(search, values, search.distance(1, 5.0)), 3);
}

// One is found at once. The other is the first of many in its bucket, which all lie at its far end.
TEST(Search, WaitsForBothMiddleValues) {
  for (const double sign : {1.0, -1.0}) {
    Values values;
    for (int i = 0; i < 1 << 16; ++i) values.push_back(-sign * (1 + i * 0x1p-15));
    for (int i = 0; i < 1 << 16; ++i) values.push_back(sign * (1.0078 + i * 0x1p-50));
    Search search;
    for (const double value : values) search.count(value);
    search.end_count();
    const auto lower = search.rank((1 << 16) - 1);
    const auto upper = search.rank(1 << 16);
    const auto farthest = search.distance((1 << 17) - 1, lower, upper);
    EXPECT_EQ(answer(search, values, farthest), 1 + 0xffff * 0x1p-15 + (1.0078 - 1) / 2);
  }
}

// The middle of the bucket from 1 to 1 + 1/128 is the first guess of the center.
TEST(Search, FindsACenterThatIsGuessed) {
  const Values values = {1, 1 + 0x1p-8, 1 + 0x1.1p-8};
  Search search = counted(values);
  const auto middle = search.rank(1);
  EXPECT_EQ(answer(search, values, search.distance(0, middle, middle)), 0);
}

// The bucket from 1 to 1 + 1/128 contains the center. Ten values lie at its far end, ten just below
// 1, and ten in the next bucket, between them in distance.
TEST(Search, FindsDistancesInTheBucketOfTheCenter) {
  for (const double sign : {1.0, -1.0}) {
    Values values(10, sign * 0.9999);
    values.insert(values.end(), 10, sign * 0.996);
    values.insert(values.end(), 10, sign * 1.0078);
    values.push_back(sign * 0.98);
    Search search = counted(values);
    EXPECT_EQ(answer(search, values, search.distance(9, sign * 1.001)), 1.001 - 0.9999);
    EXPECT_EQ(answer(search, values, search.distance(10, sign * 1.001)), 1.001 - 0.996);
    EXPECT_EQ(answer(search, values, search.distance(20, sign * 1.001)), 1.0078 - 1.001);
    EXPECT_EQ(answer(search, values, search.distance(30, sign * 1.001)), 1.001 - 0.98);
  }
}

// ---- passes ----

Values drawn(const Kind& kind, Random& random, std::size_t n) {
  Values values(n);
  for (std::size_t i = 0; i < n; ++i) values[i] = kind.value(random, i);
  return values;
}

TEST(Search, TakesTwoPassesOverOrdinaryValues) {
  Random random;
  for (const std::size_t n : {10'000U, 100'000U, 1'000'000U}) {
    for (int round = 0; round < (n > 100'000 ? 1 : 10); ++round) {
      EXPECT_EQ(expect_sorted(drawn(kKinds[0], random, n), 1e-9, sift_whole), 2) << n;
    }
  }
}

// Many values in few buckets, as of 10^9 ordinary ones. Their density rises linearly.
TEST(Search, TakesTwoPassesOverCrowdedBuckets) {
  Random random;
  const std::size_t n = 400'000;
  Values values(n);
  for (double& value : values) value = 1 + 10.0 / 128 * std::sqrt(random.fraction());
  Search search;
  for (const double value : values) search.count(value);
  search.end_count();
  const auto lower = search.rank((n - 1) / 2);
  const auto upper = search.rank(n / 2);
  search.rank(n / 6);
  search.distance(n / 2, 0.0);
  search.distance(n / 2, lower, upper);
  search.start_pass();
  search.sift(values);
  search.end_pass();
  EXPECT_TRUE(search.is_done());
}

TEST(Search, TakesAtMostThreePassesOverAGrid) {
  Random random;
  for (const std::size_t n : {10'000U, 100'000U, 1'000'000U}) {
    EXPECT_LE(expect_sorted(drawn(kKinds[2], random, n), 1e-9, sift_whole), 3) << n;
  }
}

// Sets made to mislead the guesses: their density in a bucket is anything but linear.
const std::vector<Kind> kMisleading = {
    {"all at the low end of a bucket",
     [](Random& r, std::size_t) {
       return 1 + std::ldexp(r.fraction(), -7 - static_cast<int>(r.below(40)));
     }},
    {"all at the high end of a bucket",
     [](Random& r, std::size_t) {
       return 1 - std::ldexp(r.fraction(), -8 - static_cast<int>(r.below(40)));
     }},
    {"around the end of a bucket, to both sides",
     [](Random& r, std::size_t) {
       return 1 + std::ldexp(r.fraction() - 0.5, -7 - static_cast<int>(r.below(44)));
     }},
    {"a Cantor set",
     [](Random& r, std::size_t) {
       double value = 1;
       for (int digit = 8; digit < 52; digit += 2) value += r.one_in(2) ? std::ldexp(1, -digit) : 0;
       return value;
     }},
    {"clusters of neighbouring doubles",
     [](Random& r, std::size_t) {
       return 1 + static_cast<double>(r.below(8)) * 0x1p-11 +
              static_cast<double>(r.below(30'000)) * 0x1p-52;
     }},
    {"a dense run and a few far away",
     [](Random& r, std::size_t) {
       return r.one_in(50) ? 1 + r.fraction() / 128
                           : 1 + 0x1p-9 + static_cast<double>(r.below(1 << 18)) * 0x1p-52;
     }},
    {"a median in a gap",
     [](Random& r, std::size_t i) {
       return 1 + (i % 2 == 0 ? 0 : 0x1.fffp-8) + std::ldexp(r.fraction(), -30);
     }},
    {"groups at one distance to both sides",
     [](Random& r, std::size_t i) {
       return 1 + (static_cast<double>(i % 3) - 1) * 0.03 +
              (r.fraction() - 0.5) * std::pow(10, -2 - static_cast<int>(i % 7));
     }},
    {"distances that collapse by rounding",
     [](Random& r, std::size_t i) {
       return i % 5 < 2 ? 1 + static_cast<double>(r.below(1 << 20)) * 0x1p-52
                        : std::ldexp(1 + r.fraction(), -10 - static_cast<int>(r.below(900)));
     }},
    {"tiny ones, whose center is large",
     [](Random& r, std::size_t i) {
       return i % 100 < 51 ? 1e10 + static_cast<double>(r.below(100'000)) * 0x1p-19
                           : r.normal() * 1e-6;
     }},
    {"squeezed to the smallest doubles",
     [](Random& r, std::size_t) { return static_cast<double>(r.below(1 << 22)) * 5e-324; }},
    {"geometric about the median",
     [](Random& r, std::size_t) {
       return 1 + std::ldexp(r.one_in(2) ? 1 : -1, -1 - static_cast<int>(r.below(52))) *
                      (1 + r.fraction());
     }},
};

TEST(Search, TakesAtMostSixPassesOverMisleadingSets) {
  Random random;
  for (int round = 0; round < rounds(48); ++round) {
    const Kind& kind = kMisleading[static_cast<std::size_t>(round) % kMisleading.size()];
    const std::size_t n =
        random.one_in(2) ? 9'000 + random.below(100'000) : 300'000 + random.below(300'000);
    SCOPED_TRACE(kind.name + (" of " + std::to_string(n)));
    const double error = random.one_in(2) ? 0.1 : 1e-9;
    EXPECT_LE(expect_sorted(drawn(kind, random, n), error, sift_whole), 6);
    if (HasFatalFailure() || HasNonfatalFailure()) return;
  }
}

// Without a checksum, as for columns in memory that another thread changes.
TEST(Search, TerminatesWhenValuesChangeBetweenPasses) {
  Random random;
  std::vector<Kind> kinds = kKinds;
  kinds.insert(kinds.end(), kMisleading.begin(), kMisleading.end());
  int refused = 0;
  for (int round = 0; round < rounds(400); ++round) {
    Kind kind = random.pick(kinds);
    const std::size_t n = 1 + random.below(40'000);
    Search search;
    for (const double value : drawn(kind, random, n)) search.count(value);
    search.end_count();
    const auto lower = search.rank((n - 1) / 2);
    const auto upper = search.rank(n / 2);
    search.distance(n / 3, lower, upper);
    const auto beyond = search.beyond({0.1, 0.2});
    const bool stays_near = random.one_in(2);
    int passes = 0;
    try {
      while (search.start_pass()) {
        ASSERT_LE(++passes, Search::kMostPasses);
        if (!stays_near) kind = random.pick(kinds);
        Values values = drawn(kind, random, n);
        if (random.one_in(3)) values[random.below(n)] = kNaN;
        search.sift(values);
        search.end_pass();
        search.count_beyond(beyond, random.fraction());
      }
    } catch (const std::invalid_argument& error) {
      ++refused;
      EXPECT_STREQ(error.what(), "the data changed between passes");
    }
  }
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace vostrel
