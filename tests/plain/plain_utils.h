// The class UTILS, written a second time in the plainest way: streams, strings, the bubble sort. It
// is slow on purpose and shares no code with the product.
//
// Tests and fuzzers compare the product with it. The program vostrel-plain uses it. It has the same
// standard output, files and exit status as vostrel, byte for byte.

#ifndef VOSTREL_TESTS_PLAIN_PLAIN_UTILS_H
#define VOSTREL_TESTS_PLAIN_PLAIN_UTILS_H

#include <string>
#include <vector>

namespace plain {

/// std::atof, std::atoi, and the text a stream in its default state writes.
double read_double(const std::string& text);
int read_int(const std::string& text);
std::string write_double(double value);

/// The median of the first n values, or of their magnitudes, by a bubble sort. NaN if n is 0.
/// Throws std::bad_array_new_length if n is negative.
double median(std::vector<double> values, int n);
double abs_median(std::vector<double> values, int n);

/// Never swaps equal values, or a value with a NaN.
void bubble_sort(std::vector<double>& values);

/// The next row number. -2147483648 follows 2147483647.
int next_row(int row);

/// The part of the product's class that the program and the tests use, with all members public.
class UTILS {
 public:
  UTILS(int header_flag, const char* input, const char* output_name, int first, int second);

  int loadInputFile();
  int loadInternalFile();
  void storeStatistics() const;

  void CalculateDelta();
  void CalculateDeltaNorm();
  void CalculateBias();
  void CalculateBiasNorm();
  void CalculateSigma();
  void CalculateSigmaNorm();
  void CalculateRMS();
  void CalculateRMSNorm();
  double CalculateMedian(std::vector<double> values, int n) const;
  double CalculateAbsMedian(std::vector<double> values, int n) const;
  void CalculateMAD();
  void CalculateMADNorm();
  void CalculateNMAD();
  void CalculateNMADNorm();
  void CalculateMADDeltaz();
  void CalculateMADDeltazNorm();
  void CalculateOutliers();
  void CalculateOutliersNorm();

  void clearData();
  int getDataSize() const;
  void setNameInputFile(const char* name);

  double getBias() const { return bias; }
  double getSigma() const { return sigma; }
  double getBiasNorm() const { return biasNorm; }
  double getSigmaNorm() const { return sigmaNorm; }
  double getRMS() const { return rms; }
  double getRMSNorm() const { return rmsNorm; }
  double getMAD() const { return mad; }
  double getMADNorm() const { return madNorm; }
  double getNMAD() const { return nmad; }
  double getNMADNorm() const { return nmadNorm; }
  double getMADDeltaz() const { return madDeltaz; }
  double getMADDeltazNorm() const { return madDeltazNorm; }
  double getOutliers1() const { return outliers1; }
  double getOutliers2() const { return outliers2; }
  double getOutliers3() const { return outliers3; }
  double getOutliers4() const { return outliers4; }
  double getOutliersConstant() const { return outliersConstant; }
  double getOutliers1Norm() const { return outliers1Norm; }
  double getOutliers2Norm() const { return outliers2Norm; }
  double getOutliers3Norm() const { return outliers3Norm; }
  double getOutliers4Norm() const { return outliers4Norm; }
  double getOutliersConstantNorm() const { return outliersConstantNorm; }

  int headerFlag;
  double sigma;
  double sigmaNorm;
  double bias;
  double biasNorm;
  double mad;
  double madNorm;
  double nmad;
  double nmadNorm;
  double madDeltaz;
  double madDeltazNorm;
  double rms;
  double rmsNorm;
  double outliers1;
  double outliers2;
  double outliers3;
  double outliers4;
  double outliersConstant;
  double outliersConstantNorm;
  double outliers1Norm;
  double outliers2Norm;
  double outliers3Norm;
  double outliers4Norm;
  const char* nameInputFile;
  const char* nameInternalFile;
  const char* nameOutputFile;
  int col1;
  int col2;
  std::vector<int> id;
  std::vector<double> zspec;
  std::vector<double> zphot;
  std::vector<double> delta;
  std::vector<double> deltaNorm;
};

}  // namespace plain

#endif  // VOSTREL_TESTS_PLAIN_PLAIN_UTILS_H
