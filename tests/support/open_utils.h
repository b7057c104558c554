// The class UTILS with all members public, and objects to test.

#ifndef VOSTREL_TESTS_SUPPORT_OPEN_UTILS_H
#define VOSTREL_TESTS_SUPPORT_OPEN_UTILS_H

#include <cstddef>
#include <vector>

#include "utils/utils.h"

struct OpenUtils : UTILS {
  using UTILS::UTILS;

  using UTILS::col1;
  using UTILS::col2;
  using UTILS::headerFlag;
  using UTILS::nameInputFile;
  using UTILS::nameInternalFile;
  using UTILS::nameOutputFile;
  using UTILS::presetA;
  using UTILS::presetB;

  using UTILS::delta;
  using UTILS::deltaNorm;
  using UTILS::id;
  using UTILS::output;
  using UTILS::zphot;
  using UTILS::zspec;

  using UTILS::bias;
  using UTILS::biasNorm;
  using UTILS::mad;
  using UTILS::madDeltaz;
  using UTILS::madDeltazNorm;
  using UTILS::madNorm;
  using UTILS::nmad;
  using UTILS::nmadNorm;
  using UTILS::outliers1;
  using UTILS::outliers1Norm;
  using UTILS::outliers2;
  using UTILS::outliers2Norm;
  using UTILS::outliers3;
  using UTILS::outliers3Norm;
  using UTILS::outliers4;
  using UTILS::outliers4Norm;
  using UTILS::outliersConstant;
  using UTILS::outliersConstantNorm;
  using UTILS::rms;
  using UTILS::rmsNorm;
  using UTILS::sigma;
  using UTILS::sigmaNorm;
};

/// An object without data, for table.csv, report.txt and the columns 1 and 2.
inline OpenUtils empty_set() { return OpenUtils(0, "table.csv", "report.txt", 1, 2); }

/// An object with the IDs 0, 1, 2, ... and these two columns.
inline OpenUtils loaded(std::vector<double> reference, std::vector<double> estimate) {
  OpenUtils run = empty_set();
  for (std::size_t i = 0; i < reference.size(); ++i) run.id.push_back(static_cast<int>(i));
  run.zspec = std::move(reference);
  run.zphot = std::move(estimate);
  return run;
}

/// Calls all methods that calculate one statistic, each after those whose results it reads.
/// @tparam Class  UTILS, or the plain class of that name.
template <class Class>
void calculate_each(Class& run) {
  run.CalculateDelta();
  run.CalculateDeltaNorm();
  run.CalculateBias();
  run.CalculateBiasNorm();
  run.CalculateSigma();
  run.CalculateSigmaNorm();
  run.CalculateRMS();
  run.CalculateRMSNorm();
  run.CalculateMADDeltaz();
  run.CalculateMADDeltazNorm();
  run.CalculateMAD();
  run.CalculateMADNorm();
  run.CalculateNMAD();
  run.CalculateNMADNorm();
  run.CalculateOutliers();
  run.CalculateOutliersNorm();
}

#endif  // VOSTREL_TESTS_SUPPORT_OPEN_UTILS_H
