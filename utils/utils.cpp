// The object itself: constructor, destructor, accessors.

#include "utils/utils.h"

UTILS::UTILS(int header, const char* inputFile, const char* outputFile, int referenceColumn,
             int estimateColumn)
    : headerFlag(header),
      nameInputFile(inputFile),
      nameOutputFile(outputFile),
      col1(referenceColumn),
      col2(estimateColumn) {}

UTILS::~UTILS() = default;

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

double UTILS::getBias() const { return bias; }
double UTILS::getSigma() const { return sigma; }
double UTILS::getBiasNorm() const { return biasNorm; }
double UTILS::getSigmaNorm() const { return sigmaNorm; }
double UTILS::getRMS() const { return rms; }
double UTILS::getRMSNorm() const { return rmsNorm; }
double UTILS::getMAD() const { return mad; }
double UTILS::getMADNorm() const { return madNorm; }
double UTILS::getNMAD() const { return nmad; }
double UTILS::getNMADNorm() const { return nmadNorm; }
double UTILS::getMADDeltaz() const { return madDeltaz; }
double UTILS::getMADDeltazNorm() const { return madDeltazNorm; }
double UTILS::getOutliers1() const { return outliers1; }
double UTILS::getOutliers2() const { return outliers2; }
double UTILS::getOutliers3() const { return outliers3; }
double UTILS::getOutliers4() const { return outliers4; }
double UTILS::getOutliersConstant() const { return outliersConstant; }
double UTILS::getOutliers1Norm() const { return outliers1Norm; }
double UTILS::getOutliers2Norm() const { return outliers2Norm; }
double UTILS::getOutliers3Norm() const { return outliers3Norm; }
double UTILS::getOutliers4Norm() const { return outliers4Norm; }
double UTILS::getOutliersConstantNorm() const { return outliersConstantNorm; }
