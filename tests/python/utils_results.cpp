// Reads data sets from standard input and writes all results of UTILS for each, for the tests of
// the Python package. Both are binary. A data set is the count (64 bits), the references and the
// estimates. A result is the statistics of the residual, then those of the normalized residual.

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <utility>
#include <vector>

#include "statistics/statistics.h"
#include "tests/support/open_utils.h"
#include "utils/lines.h"

namespace {

template <class Value>
bool read(Value* values, std::size_t count) {
  const auto bytes = static_cast<std::streamsize>(count * sizeof(Value));
  return static_cast<bool>(std::cin.read(reinterpret_cast<char*>(values), bytes));
}

std::vector<double> results_of(std::vector<double> reference, std::vector<double> estimate) {
  OpenUtils utils = loaded(std::move(reference), std::move(estimate));
  calculate_each(utils);
  const vostrel::PointStatistics statistics = statistics_of(utils);
  std::vector<double> results;
  for (const auto* residual : {&statistics.delta, &statistics.norm}) {
    for (const auto& statistic : vostrel::kStatistics) {
      results.push_back(residual->*statistic.member);
    }
  }
  return results;
}

}  // namespace

int main() {
  std::uint64_t n = 0;
  while (read(&n, 1)) {
    std::vector<double> reference(n);
    std::vector<double> estimate(n);
    if (!read(reference.data(), n) || !read(estimate.data(), n)) return 1;
    const std::vector<double> results = results_of(std::move(reference), std::move(estimate));
    std::cout.write(reinterpret_cast<const char*>(results.data()),
                    static_cast<std::streamsize>(results.size() * sizeof(double)));
  }
  return std::cout.flush() ? 0 : 1;
}
