// The plain object itself: settings, accessors, random numbers.

#include "plain_utils.h"

#include <cstdlib>
#include <iostream>

namespace plain {

UTILS::UTILS(int header_flag, const char* input, const char* output_name, int first, int second) {
  headerFlag = header_flag;
  nameInputFile = input;
  nameInternalFile = "internal.txt";
  nameOutputFile = output_name;
  presetB = 0.03;
  presetA = 0.001;
  outliers1 = 0.0;
  outliers2 = 0.0;
  outliers3 = 0.0;
  outliers4 = 0.0;
  outliersConstant = 0.0;
  outliers1Norm = 0.0;
  outliers2Norm = 0.0;
  outliers3Norm = 0.0;
  outliers4Norm = 0.0;
  outliersConstantNorm = 0.0;
  col1 = first;
  col2 = second;

  sigma = 0.0;
  sigmaNorm = 0.0;
  bias = 0.0;
  biasNorm = 0.0;
  mad = 0.0;
  madNorm = 0.0;
  nmad = 0.0;
  nmadNorm = 0.0;
  madDeltaz = 0.0;
  madDeltazNorm = 0.0;
  rms = 0.0;
  rmsNorm = 0.0;
}

void UTILS::clearData() {
  id.clear();
  zspec.clear();
  zphot.clear();
  output.clear();
  delta.clear();
  deltaNorm.clear();
}

int UTILS::getDataSize() const { return static_cast<int>(id.size()); }

void UTILS::setNameInputFile(const char* name) { nameInternalFile = name; }

void UTILS::setNameOutputFile(const char* name) { nameOutputFile = name; }

void UTILS::AssignOutput() {
  for (std::size_t i = 0; i < id.size(); i++) {
    output.push_back(zphot[i]);
  }
}

double UTILS::doubleRangeRand(double lo, double hi) const {
  const double span = hi - lo;
  const double r = static_cast<double>(std::rand());
  return span * (r / 2147483647.0) + lo;
}

int UTILS::idRand() const {
  if (id.empty()) {
    std::cout << "*** no data loaded: there is no position to draw ***" << std::endl;
    std::abort();
  }
  const int r = std::rand();
  return static_cast<int>(static_cast<std::size_t>(r) % id.size());
}

}  // namespace plain
