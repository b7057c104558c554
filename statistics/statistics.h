// Error statistics of estimates against reference values.
//
//     std::vector<double> zspec = ..., zphot = ...;
//     const vostrel::PointStatistics s = vostrel::point_statistics(zspec, zphot);
//     std::cout << s.norm.nmad << " " << s.norm.outliers_015 << "%\n";
//
// This header includes only the standard library. All arithmetic is in double precision.

#ifndef VOSTREL_STATISTICS_STATISTICS_H
#define VOSTREL_STATISTICS_STATISTICS_H

#include <array>
#include <cstdint>
#include <span>
#include <vector>

/// The statistics of arrays in memory, and of data that come in chunks.
namespace vostrel {

/// The statistics of one residual r of n objects. Outliers are percentages, 0 to 100. The others
/// have the unit of the residual; redshifts are dimensionless. All are NaN if n is 0.
struct ResidualStatistics {
  double bias;             ///< Mean of r.
  double sigma;            ///< Standard deviation about the bias, with divisor n.
  double rms;              ///< Root mean square of r, about zero.
  double mad;              ///< Median of |r|: about zero, not about the median.
  double nmad;             ///< 1.4826 * mad.
  double mad_delta;        ///< Median of |r - median(r)|.
  double outliers_015;     ///< Objects with |r| > 0.15.
  double outliers_1sigma;  ///< Objects with |r| > sigma. Measured from zero, not from the bias.
  double outliers_2sigma;  ///< Objects with |r| > 2 sigma.
  double outliers_3sigma;  ///< Objects with |r| > 3 sigma.
  double outliers_4sigma;  ///< Objects with |r| > 4 sigma.
};

/// The statistics of n objects.
struct PointStatistics {
  std::uint64_t n;           ///< Number of objects.
  ResidualStatistics delta;  ///< Of the residual: reference - estimate.
  ResidualStatistics norm;   ///< Of the normalized residual: delta / (1 + reference).
};

/// How one statistic is printed.
struct Statistic {
  const char* label;                   ///< For the residual.
  const char* normalized_label;        ///< For the normalized residual.
  double ResidualStatistics::*member;  ///< The value.
  const char* unit;                    ///< "%", or empty for the unit of the residual.
  /// For the normalized residual on the console, where one label differs from the report's.
  const char* normalized_console_label = normalized_label;
};

/// The statistics in the order in which they are reported.
inline constexpr std::array<Statistic, 11> kStatistics = {{
    {"bias", "bias norm", &ResidualStatistics::bias, ""},
    {"sigma", "sigma norm", &ResidualStatistics::sigma, ""},
    {"RMS", "RMS norm", &ResidualStatistics::rms, ""},
    {"MAD", "MAD norm", &ResidualStatistics::mad, ""},
    {"NMAD", "NMAD norm", &ResidualStatistics::nmad, ""},
    {"MAD(Delta)", "MAD(Delta norm)", &ResidualStatistics::mad_delta, "", "MAD(Delta_norm)"},
    {"outliers >0.15", "outliers norm >0.15", &ResidualStatistics::outliers_015, "%"},
    {"outliers >1sigma", "outliers norm >1sigma", &ResidualStatistics::outliers_1sigma, "%"},
    {"outliers >2sigma", "outliers norm >2sigma", &ResidualStatistics::outliers_2sigma, "%"},
    {"outliers >3sigma", "outliers norm >3sigma", &ResidualStatistics::outliers_3sigma, "%"},
    {"outliers >4sigma", "outliers norm >4sigma", &ResidualStatistics::outliers_4sigma, "%"},
}};

/// All statistics of both residuals. Entry i of both arrays belongs to the same object.
///
/// Sums run in index order. NaN and infinities propagate into the results. If a residual is NaN,
/// the medians are those of median() below. The time is proportional to n. Needs little memory
/// beyond the arrays unless a residual is NaN.
///
/// @throws std::invalid_argument if the arrays differ in length.
PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate);

// ---- further numbers ----------------------------------------------------------------------------

/// Additional numbers to compute.
struct Extras {
  std::vector<double> percentiles;  ///< From 0 to 100.
  std::vector<double> outliers;     ///< Bounds of |r|, 0 or more.
};

/// Order statistics of one residual r. All are NaN if n is 0 or an r is NaN, except `outliers`,
/// which then count a NaN as no outlier.
struct Quantiles {
  double median;                    ///< As numpy.median.
  double sigma_68;                  ///< (P84 - P16) / 2, percentiles as numpy.percentile.
  double sigma_iqr;                 ///< (P75 - P25) / 1.349.
  std::vector<double> percentiles;  ///< Those of Extras.
  std::vector<double> outliers;     ///< Percentage of objects beyond each bound of Extras.
};

/// The metrics of the error e = (estimate - reference) / (1 + reference), as in Graham et al. 2018,
/// AJ 155, 1. All are dimensionless. All are NaN if an e is NaN or there are no objects.
struct LsstMetrics {
  double bias;          ///< Median of e.
  double sigma_iqr;     ///< (75th - 25th percentile of e) / 1.349.
  double sigma_mad;     ///< 1.4826 * median of |e - median(e)|.
  double outlier_rate;  ///< Fraction of objects with |e| > max(0.06, 3 sigma_iqr), 0 to 1.
};

/// The statistics of n objects, with the further numbers.
struct ExtendedStatistics {
  PointStatistics point;  ///< The statistics that are always there.
  Quantiles delta;        ///< Of the residual.
  Quantiles norm;         ///< Of the normalized residual.
  LsstMetrics lsst;       ///< Of the error e.
};

/// Like point_statistics(), with the further numbers, from the same passes over the arrays.
///
/// @throws std::invalid_argument if the arrays differ in length, a percentile is not between 0 and
///         100, or a bound is negative or NaN.
ExtendedStatistics extended_statistics(std::span<const double> reference,
                                       std::span<const double> estimate, const Extras& extras = {});

// ---- single statistics --------------------------------------------------------------------------
//
// The medians order the values as this sort does:
//
//     for (k = n - 1; k >= 1; --k)
//       for (j = 0; j < k; ++j)
//         if (a[j] > a[j + 1]) swap(a[j], a[j + 1]);
//
// The median is the middle value, or half the sum of the two middle values if n is even. Without
// NaN that is the usual median. A NaN stays where it is and no value moves past it: the values
// before and after it are sorted separately.
// All four take linear time, don't change the values, and return NaN if there are none.

/// The median of the values.
double median(std::span<const double> values);

/// The median of |value|. Of residuals, this is MAD.
double absolute_median(std::span<const double> values);

/// The median of |value - center|.
double median_of_distances(std::span<const double> values, double center);

/// The median of |value - median(values)|. Of residuals, this is MAD(Delta).
double mad_about_median(std::span<const double> values);

/// NMAD / MAD. Turns the MAD of normally distributed residuals into their standard deviation.
inline constexpr double kNmadFactor = 1.4826;

/// The bound of outliers_015.
inline constexpr double kOutlierBound = 0.15;

/// The bounds of the five outlier fractions in the order of kStatistics: 0.15 and 1 to 4 sigma.
constexpr std::array<double, 5> outlier_bounds(double sigma) {
  return {kOutlierBound, sigma, 2.0 * sigma, 3.0 * sigma, 4.0 * sigma};
}

/// For each of the outlier_bounds, the number of values with |value| > bound. A comparison with NaN
/// is false.
/// @param values  residuals.
/// @param sigma  their standard deviation.
std::array<std::uint64_t, 5> count_outliers(std::span<const double> values, double sigma);

/// `count` of `n` in percent, computed as (count / n) * 100. NaN if both are 0.
constexpr double percentage(double count, std::uint64_t n) {
  return count / static_cast<double>(n) * 100.0;
}

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_STATISTICS_H
