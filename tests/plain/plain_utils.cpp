// The plain object: settings and accessors.

#include "plain_utils.h"

namespace plain {

UTILS::UTILS(int header_flag, const char* input, const char* output_name, int first, int second) {
  headerFlag = header_flag;
  nameInputFile = input;
  nameInternalFile = "internal.txt";
  nameOutputFile = output_name;
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
  delta.clear();
  deltaNorm.clear();
}

int UTILS::getDataSize() const { return static_cast<int>(id.size()); }

void UTILS::setNameInputFile(const char* name) { nameInternalFile = name; }

}  // namespace plain
