// Reads data sets from standard input and writes for each the 22 results of UTILS, for the tests of
// the Python package. Both in binary: a data set is the count (64 bits), the references and the
// estimates; a result is eleven doubles for the residual and eleven for the normalized one.

#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <utility>
#include <vector>

#include "tests/support/open_utils.h"

namespace {

template <class Value>
bool read(Value* values, std::size_t count) {
  const auto bytes = static_cast<std::streamsize>(count * sizeof(Value));
  return static_cast<bool>(std::cin.read(reinterpret_cast<char*>(values), bytes));
}

std::array<double, 22> results_of(std::vector<double> reference, std::vector<double> estimate) {
  OpenUtils utils = loaded(std::move(reference), std::move(estimate));
  utils.CalculateDelta();
  utils.CalculateDeltaNorm();
  utils.CalculateBias();
  utils.CalculateBiasNorm();
  utils.CalculateSigma();
  utils.CalculateSigmaNorm();
  utils.CalculateRMS();
  utils.CalculateRMSNorm();
  utils.CalculateMADDeltaz();
  utils.CalculateMADDeltazNorm();
  utils.CalculateMAD();
  utils.CalculateMADNorm();
  utils.CalculateNMAD();
  utils.CalculateNMADNorm();
  utils.CalculateOutliers();
  utils.CalculateOutliersNorm();
  return {utils.getBias(),
          utils.getSigma(),
          utils.getRMS(),
          utils.getMAD(),
          utils.getNMAD(),
          utils.getMADDeltaz(),
          utils.getOutliersConstant(),
          utils.getOutliers1(),
          utils.getOutliers2(),
          utils.getOutliers3(),
          utils.getOutliers4(),
          utils.getBiasNorm(),
          utils.getSigmaNorm(),
          utils.getRMSNorm(),
          utils.getMADNorm(),
          utils.getNMADNorm(),
          utils.getMADDeltazNorm(),
          utils.getOutliersConstantNorm(),
          utils.getOutliers1Norm(),
          utils.getOutliers2Norm(),
          utils.getOutliers3Norm(),
          utils.getOutliers4Norm()};
}

}  // namespace

int main() {
  std::uint64_t n = 0;
  while (read(&n, 1)) {
    std::vector<double> reference(n);
    std::vector<double> estimate(n);
    if (!read(reference.data(), n) || !read(estimate.data(), n)) return 1;
    const auto results = results_of(std::move(reference), std::move(estimate));
    std::cout.write(reinterpret_cast<const char*>(results.data()), sizeof results);
  }
  return std::cout.flush() ? 0 : 1;
}
