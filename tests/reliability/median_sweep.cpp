// The medians of large arrays, where another way of finding them begins than for small ones, held
// against a stable sort of each stretch between not-a-numbers, which is what the bubble sort leaves
// (the small sizes are held against the bubble sort itself, here once more and in the fuzz target).
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
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "draw.h"
#include "runs.h"
#include "statistics/order_statistics.h"
#include "tests/plain/plain_utils.h"

namespace {

using Values = std::vector<double>;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

void sort_stretches(Values& values) {
  const auto is_nan = [](double value) { return std::isnan(value); };
  auto begin = values.begin();
  while (begin != values.end()) {
    const auto end = std::find_if(begin, values.end(), is_nan);
    std::stable_sort(begin, end);
    begin = std::find_if_not(end, values.end(), is_nan);
  }
}

double middle_of_sorted(const Values& values) {
  const std::size_t half = values.size() / 2;
  // Two values are in order already, so that the plain median only adds and halves them.
  if (values.size() % 2 == 0) return plain::median({values[half - 1], values[half]}, 2);
  return values[half];
}

double yardstick(Values values) {
  if (values.empty()) return kNaN;
  sort_stretches(values);
  return middle_of_sorted(values);
}

std::uint64_t bits_of(double value) {
  if (std::isnan(value)) return std::signbit(value) ? 1 : 2;
  return std::bit_cast<std::uint64_t>(value);
}

// Sizes around those where something changes, and any others.
std::size_t draw_size(Draw& draw) {
  static constexpr std::array<std::size_t, 6> kEdges = {1024,   65536,  131072,
                                                        262144, 524288, 1048576};
  if (draw.one_in(3)) return draw.pick(kEdges) - 3 + draw.below(7);
  if (draw.one_in(4)) return draw.below(2000);
  return 60000 + draw.below(draw.one_in(8) ? 2000000 : 300000);
}

// Places where a sample of the values may be taken: the first, every 64th, 128th, ...
void mislead(Draw& draw, Values& values) {
  const std::size_t step = std::size_t{1} << (4 + draw.below(8));
  for (std::size_t i = draw.below(step); i < values.size(); i += step) values[i] = 1e9;
}

constexpr std::array<std::string_view, 12> kKinds = {
    "random", "any bits",   "sorted",   "reversed",      "constant", "two values",
    "zeros",  "few values", "sawtooth", "with outliers", "infinite", "misleading"};

Values draw_values(Draw& draw, std::size_t kind, std::size_t size) {
  static constexpr std::array<double, 2> kZeros = {0.0, -0.0};
  static constexpr std::array<double, 7> kFew = {0.0, -0.0, 1, -1, 2, kInfinity, -kInfinity};
  Values values(size);
  const double shift = draw.one_in(2) ? 0.5 : 0;
  for (std::size_t i = 0; i < size; ++i) {
    double& value = values[i];
    switch (kind) {
      case 1:
        do value = std::bit_cast<double>(draw.bits());
        while (std::isnan(value));
        break;
      case 4:
        value = shift;
        break;
      case 5:
        value = draw.one_in(2) ? 1 : 2;
        break;
      case 6:
        value = draw.pick(kZeros);
        break;
      case 7:
        value = draw.pick(kFew);
        break;
      case 8:
        value = static_cast<double>(i % 1000) / 7;
        break;
      case 9:
        value = draw.one_in(1000) ? std::bit_cast<double>(draw.bits() & ~(std::uint64_t{1} << 62))
                                  : draw.fraction();
        break;
      case 10:
        value = draw.one_in(3) ? draw.fraction() : draw.one_in(2) ? kInfinity : -kInfinity;
        break;
      default:
        value = std::round((draw.fraction() - shift) * 1e6) / 1e6;
    }
  }
  if (kind == 2) std::sort(values.begin(), values.end());
  if (kind == 3) std::sort(values.rbegin(), values.rend());
  if (kind == 11) mislead(draw, values);
  return values;
}

void add_not_numbers(Draw& draw, Values& values) {
  if (values.empty() || !draw.one_in(3)) return;
  const std::size_t one_in = draw.one_in(4) ? 2 : std::size_t{1} << draw.below(20);
  for (std::size_t i = draw.below(one_in); i < values.size(); i += 1 + draw.below(2 * one_in)) {
    values[i] = draw.one_in(2) ? kNaN : -kNaN;
  }
  if (draw.one_in(8)) values[values.size() / 2] = kNaN;
}

bool alike(const Values& values) {
  Values absolutes = values;
  for (double& value : absolutes) value = std::fabs(value);
  const double median = yardstick(values);
  Values distances = values;
  for (double& value : distances) value = std::fabs(value - median);
  if (values.size() <= 2000) {
    Values sorted = values;
    plain::bubble_sort(sorted);
    if (!sorted.empty() && bits_of(median) != bits_of(middle_of_sorted(sorted))) return false;
  }
  const double* const data = values.data();
  return bits_of(vostrel::median(data, values.size())) == bits_of(median) &&
         bits_of(vostrel::median_of_absolutes(data, values.size())) ==
             bits_of(yardstick(absolutes)) &&
         bits_of(vostrel::median_of_distances(data, values.size(), median)) ==
             bits_of(yardstick(distances));
}

int run(std::uint64_t arrays) {
  const std::uint64_t seed = chosen_seed();
  const auto begin = std::chrono::steady_clock::now();
  std::uint64_t numbers = 0;
  for (std::uint64_t i = 0; i < arrays; ++i) {
    Draw draw(seed + i);
    const std::size_t kind = draw.below(kKinds.size());
    Values values = draw_values(draw, kind, draw_size(draw));
    add_not_numbers(draw, values);
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
