// The checksums of objects and of bytes detect changes.

#include "statistics/checksum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "statistics/bytes.h"
#include "statistics/residuals.h"
#include "tests/support/bits.h"
#include "tests/support/data.h"
#include "tests/support/random.h"

namespace vostrel {
namespace {

std::uint64_t sum_of(const Data& data) { return checksum(data.reference, data.estimate); }

TEST(ChecksumOfObjects, IsIndependentOfOrder) {
  EXPECT_EQ(sum_of({{1, 2, 3}, {4, 5, 6}}), sum_of({{3, 1, 2}, {6, 4, 5}}));
}

std::uint64_t hash_of_values(double first, double second) {
  return hash_of(bits_of(first), bits_of(second));
}

// Processors with AVX2 take four objects at once, and the rest one by one.
TEST(ChecksumOfObjects, IsTheSumOfTheHashes) {
  EXPECT_EQ(hash_of_values(1.0, 2.0), 0x2806432a1b37dd2bU);  // also on a big-endian machine
  Random random;
  const auto drawn = [&] { return std::bit_cast<double>(random.bits()); };
  std::vector<double> columns[3];
  std::uint64_t sum = 0;
  std::uint64_t sum_with_by = 0;
  for (std::size_t size = 0; size < 70; ++size) {
    EXPECT_EQ(checksum(columns[0], columns[1]), sum);
    EXPECT_EQ(checksum(columns[0], columns[1], columns[2]), sum_with_by);
    std::vector<double> deltas(size + 1, 7.0);
    std::vector<double> norms(size + 1, 7.0);
    EXPECT_EQ(checksum_and_residuals(columns[0], columns[1], deltas.data(), norms.data()), sum);
    for (std::size_t i = 0; i < size; ++i) {
      EXPECT_EQ(bits_of(deltas[i]), bits_of(residual(columns[0][i], columns[1][i])));
      EXPECT_EQ(bits_of(norms[i]), bits_of(normalized_residual(columns[0][i], columns[1][i])));
    }
    EXPECT_EQ(deltas[size] + norms[size], 14.0);
    for (std::vector<double>& column : columns) column.push_back(drawn());
    const std::uint64_t hash = hash_of_values(columns[0].back(), columns[1].back());
    sum += hash;
    sum_with_by += hash_of(hash, bits_of(columns[2].back()));
  }
}

// The bits of each object, in ascending order.
std::vector<std::pair<std::uint64_t, std::uint64_t>> objects_of(const Data& data) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> objects;
  for (std::size_t i = 0; i < data.reference.size(); ++i) {
    objects.emplace_back(bits_of(data.reference[i]), bits_of(data.estimate[i]));
  }
  std::sort(objects.begin(), objects.end());
  return objects;
}

// As catalogues have them: few bits of the columns differ.
TEST(ChecksumOfObjects, DetectsEveryChange) {
  Random random;
  const auto drawn = [&] { return static_cast<double>(random.below(1000)) / 100; };
  for (int round = 0; round < rounds(1'000'000); ++round) {
    Data data;
    for (std::size_t i = 0; i < 3; ++i) {
      data.reference.push_back(drawn());
      data.estimate.push_back(drawn());
    }
    const std::uint64_t sum = sum_of(data);
    Data changed = data;
    switch (random.below(5)) {
      case 0:
        changed.reference[0] = random.one_in(2) ? drawn() : -changed.reference[0];
        break;
      case 1:
        changed.estimate[1] = random.one_in(9) ? kNaN : drawn();
        break;
      case 2:
        std::swap(changed.estimate[0], changed.estimate[1]);
        break;
      case 3:  // an object twice instead of another
        changed.reference[2] = changed.reference[0];
        changed.estimate[2] = changed.estimate[0];
        break;
      default:
        std::swap(changed.reference, changed.estimate);
        break;
    }
    if (objects_of(changed) == objects_of(data)) continue;
    ASSERT_NE(sum_of(changed), sum) << round;
  }
}

// How many pairs of numbers are equal in some window of 20 bits, for the worst window, divided by
// how many would be among random numbers.
double most_equal(const std::vector<std::uint64_t>& numbers) {
  double most = 0;
  for (int shift = 0; shift < 64; shift += 16) {
    std::vector<std::uint64_t> windows;
    for (const std::uint64_t number : numbers) {
      windows.push_back(std::rotr(number, shift) & 0xfffff);
    }
    std::sort(windows.begin(), windows.end());
    double equal = 0;
    double run = 0;
    for (std::size_t i = 1; i < windows.size(); ++i) {
      run = windows[i] == windows[i - 1] ? run + 1 : 0;
      equal += run;
    }
    most = std::max(most, equal);
  }
  const auto n = static_cast<double>(numbers.size());
  return most / (n * (n - 1) / 2 / 0x1p20);
}

void expect_random(std::vector<std::uint64_t> amounts, const char* what) {
  EXPECT_GT(amounts.size(), 5'000U) << what;
  EXPECT_LT(most_equal(amounts), 1.8) << what;
  std::sort(amounts.begin(), amounts.end());
  EXPECT_EQ(std::adjacent_find(amounts.begin(), amounts.end()), amounts.end()) << what;
  EXPECT_NE(amounts.front(), 0U) << what;
}

// Values of few digits, as template codes write them, as floats of 32 bits, with few bits anywhere.
TEST(ChecksumOfObjects, RegularChangesLookRandom) {
  constexpr std::size_t kSize = 24;
  const std::vector<double (*)(double)> grids = {
      [](double i) { return 1 + i; },
      [](double i) { return 0.01 * i; },
      [](double i) { return 1 + i / 64; },
      [](double i) { return 1 + i * 0x1p-20; },
      [](double i) { return 1 + i * 0x1p-52; },
      [](double i) { return std::exp2(i - 12); },
      [](double i) { return static_cast<double>(0.3F + 0.01F * static_cast<float>(i)); },
  };
  for (const auto grid : grids) {
    SCOPED_TRACE(grid(1));
    const auto value = [&](std::size_t i) { return grid(static_cast<double>(i)); };
    const auto hash = [&](std::size_t i, std::size_t k) {
      return hash_of_values(value(i), value(k));
    };
    std::vector<std::uint64_t> replaced;  // one column of an object
    std::vector<std::uint64_t> swapped;   // the estimates of two objects
    std::vector<std::uint64_t> moved;     // two references up, two down, by as much
    std::vector<std::uint64_t> scaled;    // or with other signs
    for (std::size_t a = 0; a < kSize; ++a) {
      for (std::size_t b = 0; b < kSize; ++b) {
        for (int power = 1; power < 12; ++power) {
          const double factor = std::exp2(power);
          scaled.push_back(hash(a, b) - hash_of_values(value(a) * factor, value(b) * -factor));
          scaled.push_back(hash(a, b) - hash_of_values(value(a) * -factor, value(b) * factor));
        }
        for (std::size_t c = 0; c < b; ++c) {
          replaced.push_back(hash(b, a) - hash(c, a));
          replaced.push_back(hash(a, b) - hash(a, c));
          for (std::size_t d = 0; d < a; ++d) {
            swapped.push_back(hash(a, b) + hash(d, c) - hash(a, c) - hash(d, b));
          }
          for (std::size_t d = 1; d <= c && b + d < kSize; ++d) {
            moved.push_back(hash(b + d, a) + hash(c - d, a) - hash(b, a) - hash(c, a));
            moved.push_back(hash(a, b + d) + hash(a, c - d) - hash(a, b) - hash(a, c));
          }
        }
      }
    }
    expect_random(replaced, "replaced");
    expect_random(swapped, "swapped");
    expect_random(moved, "moved");
    if (value(0) != 0) expect_random(scaled, "scaled");
  }
}

TEST(ChecksumOfBytes, DetectsEveryChangedByte) {
  const std::string bytes = "a state";
  const std::uint64_t sum = checksum(bytes);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string changed = bytes;
      changed[i] = static_cast<char>(byte);
      EXPECT_EQ(checksum(changed) == sum, changed == bytes);
    }
  }
}

}  // namespace
}  // namespace vostrel
