// The medians of large arrays, compared with a stable sort of each stretch between NaNs. Up to 2000
// values are compared with the bubble sort, too.
//
//     median_sweep ARRAYS

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "statistics/statistics.h"
#include "tests/plain/plain_utils.h"
#include "tests/support/bits.h"
#include "tests/support/random.h"
#include "tests/support/sorted_stretches.h"

namespace {

using Values = std::vector<double>;

// Sizes around those at which the method may change, and any others.
std::size_t draw_size(Random& random) {
  static constexpr std::array<std::size_t, 6> kEdges = {1024,   65536,  131072,
                                                        262144, 524288, 1048576};
  if (random.one_in(3)) return random.pick(kEdges) - 3 + random.below(7);
  if (random.one_in(4)) return random.below(2000);
  return 60000 + random.below(random.one_in(8) ? 2000000 : 300000);
}

// Puts outliers where a sample of the values may be taken: at every 16th, 32nd, ... 2048th place.
void mislead(Random& random, Values& values) {
  const std::size_t step = std::size_t{1} << (4 + random.below(8));
  for (std::size_t i = random.below(step); i < values.size(); i += step) values[i] = 1e9;
}

constexpr std::array<std::string_view, 12> kKinds = {
    "random", "any bits",   "sorted",   "reversed",      "constant", "two values",
    "zeros",  "few values", "sawtooth", "with outliers", "infinite", "misleading"};

Values draw_values(Random& random, std::size_t kind, std::size_t size) {
  static constexpr std::array<double, 2> kZeros = {0.0, -0.0};
  static constexpr std::array<double, 7> kFew = {0.0, -0.0, 1, -1, 2, kInfinity, -kInfinity};
  Values values(size);
  const double shift = random.one_in(2) ? 0.5 : 0;
  for (std::size_t i = 0; i < size; ++i) {
    double& value = values[i];
    switch (kind) {
      case 1:
        do value = std::bit_cast<double>(random.bits());
        while (std::isnan(value));
        break;
      case 4:
        value = shift;
        break;
      case 5:
        value = random.one_in(2) ? 1 : 2;
        break;
      case 6:
        value = random.pick(kZeros);
        break;
      case 7:
        value = random.pick(kFew);
        break;
      case 8:
        value = static_cast<double>(i % 1000) / 7;
        break;
      case 9:
        value = random.one_in(1000)
                    ? std::bit_cast<double>(random.bits() & ~(std::uint64_t{1} << 62))
                    : random.fraction();
        break;
      case 10:
        value = random.one_in(3) ? random.fraction() : random.one_in(2) ? kInfinity : -kInfinity;
        break;
      default:
        value = std::round((random.fraction() - shift) * 1e6) / 1e6;
    }
  }
  if (kind == 2) std::sort(values.begin(), values.end());
  if (kind == 3) std::sort(values.rbegin(), values.rend());
  if (kind == 11) mislead(random, values);
  return values;
}

void add_nans(Random& random, Values& values) {
  if (values.empty() || !random.one_in(3)) return;
  const std::size_t one_in = random.one_in(4) ? 2 : std::size_t{1} << random.below(20);
  for (std::size_t i = random.below(one_in); i < values.size(); i += 1 + random.below(2 * one_in)) {
    values[i] = random.one_in(2) ? kNaN : -kNaN;
  }
  if (random.one_in(8)) values[values.size() / 2] = kNaN;
}

bool alike(const Values& values) {
  const double median = median_by_stretches(values);
  if (values.size() <= 2000) {
    Values sorted = values;
    plain::bubble_sort(sorted);
    if (bits_without_payload(median) != bits_without_payload(middle_of(sorted))) return false;
  }
  const double mad = median_by_stretches(absolutes(values));
  const double mad_delta = median_by_stretches(distances(values, median));
  const auto same = [](double a, double b) {
    return bits_without_payload(a) == bits_without_payload(b);
  };
  // The program takes its medians from passes over the residuals. Those of estimates 0 are the
  // values.
  const vostrel::ResidualStatistics statistics =
      vostrel::point_statistics(values, Values(values.size())).delta;
  return same(vostrel::median(values), median) && same(vostrel::absolute_median(values), mad) &&
         same(vostrel::median_of_distances(values, median), mad_delta) &&
         same(statistics.mad, mad) && same(statistics.mad_delta, mad_delta);
}

int run(std::uint64_t arrays) {
  const std::uint64_t seed = chosen_seed();
  const auto begin = std::chrono::steady_clock::now();
  std::uint64_t numbers = 0;
  for (std::uint64_t i = 0; i < arrays; ++i) {
    Random random(seed + i);
    const std::size_t kind = random.below(kKinds.size());
    Values values = draw_values(random, kind, draw_size(random));
    add_nans(random, values);
    numbers += values.size();
    if (!alike(values)) {
      std::cout << "DIFFERENCE for " << values.size() << " values, " << kKinds[kind]
                << "; to repeat it: VOSTREL_TEST_SEED=" << seed + i << " and 1 array" << std::endl;
      return 1;
    }
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  std::cout << arrays << " arrays of " << numbers << " numbers in all, no difference, "
            << time.count() << " s" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::cout << "usage: median_sweep ARRAYS" << std::endl;
    return 2;
  }
  return run(std::strtoull(argv[1], nullptr, 10));
}
