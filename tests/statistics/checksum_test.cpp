// The checksums of objects and of bytes detect changes.

#include "statistics/checksum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/bits.h"
#include "tests/support/data.h"
#include "tests/support/random.h"

namespace vostrel {
namespace {

TEST(Product, HalvesGiveTheSameProduct) {
  constexpr std::uint64_t kAll = ~std::uint64_t{0};
  EXPECT_EQ(product(kAll, kAll), (Product{kAll - 1, 1}));
  Random random;
  for (int round = 0; round < 100'000; ++round) {
    const std::uint64_t a = random.one_in(9) ? ~(random.bits() >> random.below(64)) : random.bits();
    const std::uint64_t b = random.one_in(9) ? kAll : random.bits();
    ASSERT_EQ(product_by_halves(a, b), product(a, b)) << a << ' ' << b;
  }
}

std::uint64_t sum_of(const Data& data) { return checksum(data.reference, data.estimate); }

TEST(ChecksumOfObjects, IsIndependentOfOrder) {
  EXPECT_EQ(sum_of({{1, 2, 3}, {4, 5, 6}}), sum_of({{3, 1, 2}, {6, 4, 5}}));
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
    std::size_t same = 0;  // objects, in their places
    for (std::size_t i = 0; i < 3; ++i) {
      same += bits_of(changed.reference[i]) == bits_of(data.reference[i]) &&
              bits_of(changed.estimate[i]) == bits_of(data.estimate[i]);
    }
    if (same == 3) continue;
    const bool swaps_equal = data.reference[0] == data.reference[1] &&
                             data.estimate[0] == changed.estimate[1] && same == 1;
    if (swaps_equal) continue;
    ASSERT_NE(sum_of(changed), sum) << round;
  }
}

// All swaps of two estimates among values of a grid, as template codes write them.
TEST(ChecksumOfObjects, DetectsSwapsOfValuesWithFewDigits) {
  for (const double step : {0.01, 0.0625, 0x1p-52}) {
    constexpr std::size_t kSize = 100;
    std::vector<std::uint64_t> sums(kSize * kSize);
    for (std::size_t i = 0; i < sums.size(); ++i) {
      const double reference = 1 + static_cast<double>(i / kSize) * step;
      const double estimate = 1 + static_cast<double>(i % kSize) * step;
      sums[i] = checksum({&reference, 1}, {&estimate, 1});
    }
    // The difference that the swap of two references makes, for each estimate.
    for (std::size_t a = 0; a < kSize; ++a) {
      for (std::size_t b = 0; b < a; ++b) {
        std::vector<std::uint64_t> differences;
        for (std::size_t i = 0; i < kSize; ++i) {
          differences.push_back(sums[a * kSize + i] - sums[b * kSize + i]);
        }
        std::sort(differences.begin(), differences.end());
        ASSERT_EQ(std::adjacent_find(differences.begin(), differences.end()), differences.end());
      }
    }
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
