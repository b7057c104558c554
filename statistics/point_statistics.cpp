#include <stdexcept>
#include <vector>

#include "statistics/moments.h"
#include "statistics/residuals.h"
#include "statistics/statistics.h"

namespace vostrel {

namespace {

ResidualStatistics statistics_of(std::span<const double> residuals) {
  ResidualStatistics s{};
  s.bias = mean(residuals);
  s.sigma = standard_deviation(residuals, s.bias);
  s.rms = root_mean_square(residuals);
  s.mad = absolute_median(residuals);
  s.nmad = s.mad * kNmadFactor;
  s.mad_delta = mad_about_median(residuals);
  const auto counts = count_outliers(residuals, s.sigma);
  const auto n = residuals.size();
  s.outliers_015 = percentage(static_cast<double>(counts[0]), n);
  s.outliers_1sigma = percentage(static_cast<double>(counts[1]), n);
  s.outliers_2sigma = percentage(static_cast<double>(counts[2]), n);
  s.outliers_3sigma = percentage(static_cast<double>(counts[3]), n);
  s.outliers_4sigma = percentage(static_cast<double>(counts[4]), n);
  return s;
}

}  // namespace

PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate) {
  if (reference.size() != estimate.size()) {
    throw std::invalid_argument("reference and estimate differ in length");
  }
  std::vector<double> residuals(reference.size());
  PointStatistics s{reference.size(), {}, {}};
  for (std::size_t i = 0; i < residuals.size(); ++i)
    residuals[i] = residual(reference[i], estimate[i]);
  s.delta = statistics_of(residuals);
  for (std::size_t i = 0; i < residuals.size(); ++i) {
    residuals[i] = normalized_residual(reference[i], estimate[i]);
  }
  s.norm = statistics_of(residuals);
  return s;
}

}  // namespace vostrel
