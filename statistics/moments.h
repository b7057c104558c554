// Mean, standard deviation and root mean square. All three are NaN if there are no values.
//
// `Sum` decides how sums are taken: InOrderSum, or ExactSum of exact_sum.h.

#ifndef VOSTREL_STATISTICS_MOMENTS_H
#define VOSTREL_STATISTICS_MOMENTS_H

#include <cmath>
#include <span>

#include "floating_point.h"

namespace vostrel {

/// A sum in index order. Each addition rounds.
class InOrderSum {
 public:
  void add(double value) { total_ += value; }
  double total() const { return total_; }

 private:
  double total_ = 0.0;
};

/// (sum of values) / n.
template <class Sum = InOrderSum>
double mean(std::span<const double> values) {
  Sum sum;
  for (const double value : values) sum.add(value);
  return sum.total() / static_cast<double>(values.size());
}

/// sqrt((sum of (value - center)^2) / n).
template <class Sum = InOrderSum>
double standard_deviation(std::span<const double> values, double center) {
  Sum sum;
  for (const double value : values) sum.add((value - center) * (value - center));
  return std::sqrt(sum.total() / static_cast<double>(values.size()));
}

/// sqrt((sum of value^2) / n).
template <class Sum = InOrderSum>
double root_mean_square(std::span<const double> values) {
  Sum sum;
  for (const double value : values) sum.add(value * value);
  return std::sqrt(sum.total() / static_cast<double>(values.size()));
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_MOMENTS_H
