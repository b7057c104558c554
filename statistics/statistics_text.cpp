#include "statistics/statistics_text.h"

#include <ostream>

namespace vostrel {

void write_statistics(std::ostream& out, const Statistics& statistics) {
  out << "bias             = " << statistics.bias << std::endl;
  out << "sigma            = " << statistics.sigma << std::endl;
  out << "RMS              = " << statistics.rms << std::endl;
  out << "MAD              = " << statistics.mad << std::endl;
  out << "NMAD             = " << statistics.nmad << std::endl;
  out << "MAD(Delta)       = " << statistics.madDelta << std::endl;
  out << "outliers >0.15   = " << statistics.outliersConstant << "%" << std::endl;
  out << "outliers >1sigma = " << statistics.outliers1 << "%" << std::endl;
  out << "outliers >2sigma = " << statistics.outliers2 << "%" << std::endl;
  out << "outliers >3sigma = " << statistics.outliers3 << "%" << std::endl;
  out << "outliers >4sigma = " << statistics.outliers4 << "%" << std::endl;
}

void write_normalized_statistics(std::ostream& out, const Statistics& statistics,
                                 const char* madDeltaLabel) {
  out << "bias norm             = " << statistics.bias << std::endl;
  out << "sigma norm            = " << statistics.sigma << std::endl;
  out << "RMS norm              = " << statistics.rms << std::endl;
  out << "MAD norm              = " << statistics.mad << std::endl;
  out << "NMAD norm             = " << statistics.nmad << std::endl;
  out << madDeltaLabel << statistics.madDelta << std::endl;
  out << "outliers norm >0.15   = " << statistics.outliersConstant << "%" << std::endl;
  out << "outliers norm >1sigma = " << statistics.outliers1 << "%" << std::endl;
  out << "outliers norm >2sigma = " << statistics.outliers2 << "%" << std::endl;
  out << "outliers norm >3sigma = " << statistics.outliers3 << "%" << std::endl;
  out << "outliers norm >4sigma = " << statistics.outliers4 << "%" << std::endl;
}

}  // namespace vostrel
