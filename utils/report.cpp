// The statistics report file.

#include <fstream>
#include <iostream>

#include "statistics/statistics_text.h"
#include "utils/utils.h"

void UTILS::storeStatistics() const {
  std::ofstream file(nameOutputFile);
  file << "Data size  = " << id.size() << std::endl << std::endl;
  file << "Statistics on delta [col" << col1 << " - col" << col2 << "]:" << std::endl;
  vostrel::write_statistics(file, {.bias = bias,
                                   .sigma = sigma,
                                   .rms = rms,
                                   .mad = mad,
                                   .nmad = nmad,
                                   .madDelta = madDeltaz,
                                   .outliersConstant = outliersConstant,
                                   .outliers1 = outliers1,
                                   .outliers2 = outliers2,
                                   .outliers3 = outliers3,
                                   .outliers4 = outliers4});
  file << std::endl;
  file << "Statistics on normalized delta [(col" << col1 << " - col" << col2 << ") / (1 + col"
       << col1 << ")]:" << std::endl;
  vostrel::write_normalized_statistics(file,
                                       {.bias = biasNorm,
                                        .sigma = sigmaNorm,
                                        .rms = rmsNorm,
                                        .mad = madNorm,
                                        .nmad = nmadNorm,
                                        .madDelta = madDeltazNorm,
                                        .outliersConstant = outliersConstantNorm,
                                        .outliers1 = outliers1Norm,
                                        .outliers2 = outliers2Norm,
                                        .outliers3 = outliers3Norm,
                                        .outliers4 = outliers4Norm},
                                       "MAD(Delta norm)       = ");
  file.close();

  std::cout << std::endl;
  std::cout << "Statistics stored in the file " << nameOutputFile << std::endl;
  std::cout << std::endl;
}
