#include "statistics/uncertainties.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "statistics/residuals.h"

namespace vostrel {

namespace {

Spread spread(std::vector<double>& residuals, std::span<const std::uint64_t> ranks) {
  const auto n = static_cast<double>(residuals.size());
  double sum = 0;
  for (const double residual : residuals) sum += residual;
  const double bias = sum / n;
  Spread result{};
  for (const double residual : residuals) {
    const double square = residual * residual;
    const double square_about = (residual - bias) * (residual - bias);
    result.second += square;
    result.fourth += square * square;
    result.second_about += square_about;
    result.fourth_about += square_about * square_about;
  }
  result.second /= n;
  result.fourth /= n;
  result.second_about /= n;
  result.fourth_about /= n;
  for (double& residual : residuals) residual = std::fabs(residual);
  for (const std::uint64_t rank : ranks) {
    const auto place = residuals.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(residuals.begin(), place, residuals.end());
    result.absolute.push_back(*place);
  }
  return result;
}

}  // namespace

std::array<Spread, 2> spreads(std::span<const double> reference, std::span<const double> estimate,
                              std::span<const std::uint64_t> ranks) {
  std::vector<double> residuals(reference.size());
  const auto spread_of = [&](auto residual) {
    for (std::size_t i = 0; i < residuals.size(); ++i) {
      residuals[i] = residual(reference[i], estimate[i]);
    }
    return spread(residuals, ranks);
  };
  Spread delta = spread_of(residual);
  return {std::move(delta), spread_of(normalized_residual)};
}

}  // namespace vostrel
