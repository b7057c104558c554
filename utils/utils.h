// The class UTILS: one data set of reference and estimated values (spectroscopic and photometric
// redshifts, as a rule), its residuals, and every statistic that judges the estimate.
//
// A program uses it in this order (main.cpp is the shortest example):
//
//     UTILS run(0, "table.csv", "report.txt", 2, 3);
//     if (run.loadInputFile() == 0) {      // table -> internal.txt
//       run.loadInternalFile();            // internal.txt -> id, zspec, zphot
//       run.CalculateDelta();              // residuals first,
//       run.CalculateBias();               // then the statistics that read them
//       ...
//       run.storeStatistics();             // report.txt
//     }
//
// This header includes nothing but the standard library.

#ifndef VOSTREL_UTILS_UTILS_H
#define VOSTREL_UTILS_UTILS_H

#include <vector>

/// One data set, its residuals and their statistics.
///
/// Units: the values of both columns and every residual are dimensionless (redshifts), and so are
/// bias, sigma, RMS and the three median statistics; the outlier members are percentages, 0 to 100.
/// Arithmetic is in double precision, on values that have passed through the intermediate file's
/// six significant digits when loadInputFile wrote it.
///
/// Every statistic exists twice: for the residual `delta` = reference - estimate, and, with the
/// suffix `Norm`, for the normalized residual `deltaNorm` = delta / (1 + reference).
///
/// A method tells below which members it reads and which it writes; it touches no others. Those
/// that compute have no preconditions but the order of calls that is told with them, check nothing
/// and report nothing: not-a-numbers and infinities are carried on into the results.
///
/// All methods work on the members directly and none of them locks: use an object from one thread
/// at a time. No method throws on its own account but the two readers (std::out_of_range on a line
/// without text in a column that is needed) and the medians (std::bad_array_new_length on a count
/// that does not fit an int). Running out of memory raises std::bad_alloc. Nothing is caught.
///
/// Messages go to standard output. Files that can't be written are not reported.
class UTILS {
 public:
  /// Stores the settings and starts with an empty data set; no argument is checked here.
  ///
  /// Writes: headerFlag, nameInputFile, nameInternalFile, nameOutputFile, col1, col2. The
  /// intermediate file is "internal.txt" in the working directory until setNameInputFile says
  /// otherwise. All 22 statistics start at 0.
  ///
  /// The two names are borrowed, neither copied nor freed: they must outlive their use.
  ///
  /// @param header           1 when the table begins with a header line; any other value: it does
  ///                         not.
  /// @param inputFile        the user's comma-separated table.
  /// @param outputFile       the file that storeStatistics writes (and storeORMEDAOutput).
  /// @param referenceColumn  the table's column of reference values, counted from 1.
  /// @param estimateColumn   the table's column of estimated values; must be the greater one.
  UTILS(int header, const char* inputFile, const char* outputFile, int referenceColumn,
        int estimateColumn);

  /// Releases the vectors. The borrowed names are left alone.
  ~UTILS();

  // ---- files ------------------------------------------------------------------------------------

  /// Copies the columns col1 and col2 of the user's table, with a row number, into the
  /// intermediate file; the vectors are not touched.
  ///
  /// Reads: headerFlag, nameInputFile, nameInternalFile, col1, col2. Writes the intermediate file,
  /// one line in error.log, and messages on standard output.
  /// Columns are counted on the first data line; the header line, when there is one, is left out
  /// of that count only and becomes row 0 like any other line. The first empty line ends the table.
  /// A line with fewer fields than the first one is read round and round from its own start.
  /// A field without a number counts as 0. docs/files.md tells the whole story.
  ///
  /// @return 0 when the file was written; -1 when the table can't be opened; -10 when col1 or col2
  ///         exceeds the number of columns; -20 when col1 is below 1 or not below col2. Except on 0
  ///         an intermediate file that is already there stays as it was.
  /// @throws std::out_of_range when a needed field would begin beyond the end of its line (nothing
  ///         but commas is left there). The rows before that line are in the intermediate file.
  int loadInputFile();

  /// Appends the rows of the intermediate file ("ID zspec zphot", single spaces) to id, zspec and
  /// zphot; the vectors are not emptied first. The first empty line ends the file.
  ///
  /// Reads: nameInternalFile. Writes: id, zspec, zphot, and messages on standard output.
  /// @return 0 when the file was read; -1 when it can't be opened (the vectors stay as they were).
  /// @throws std::out_of_range on a line whose first or second field has no text.
  int loadInternalFile();

  /// Writes the three-column file "# ID zspec zphot" from id, zspec and output (not zphot) to
  /// nameOutputFile, replacing what is there. Failures are silent.
  ///
  /// Reads: id, zspec, output, nameOutputFile. Changes no member.
  /// Values are written with six significant digits, one row for each entry of id.
  /// Precondition: output is filled, as AssignOutput does; rows stop at the shortest vector.
  void storeORMEDAOutput() const;

  /// Writes the 27-line report of both residuals to nameOutputFile, replacing what is there, and
  /// names the file on standard output.
  ///
  /// Reads: id (count), col1, col2, nameOutputFile, all 22 statistics. Changes no member.
  /// Values are written with six significant digits, outliers with a "%".
  /// A report that can't be written is silent: standard output says the same as after success.
  void storeStatistics() const;

  // ---- residuals --------------------------------------------------------------------------------

  /// Appends zspec[i] - zphot[i], reference minus estimate, to delta, for each entry of id.
  ///
  /// Reads: id (count), zspec, zphot. Writes: delta, which is not emptied first: a second call
  /// appends a second copy. Precondition: zspec and zphot have as many entries as id, as after
  /// loadInternalFile.
  void CalculateDelta();

  /// Appends (zspec[i] - zphot[i]) / (1 + zspec[i]) to deltaNorm, for each entry of id. A reference
  /// of -1 gives an infinity, or a not-a-number when the estimate is -1 too.
  ///
  /// Reads: id (count), zspec, zphot. Writes: deltaNorm, which is not emptied first. Precondition:
  /// as for CalculateDelta, which need not have run.
  void CalculateDeltaNorm();

  // ---- moments ----------------------------------------------------------------------------------
  //
  // Over the first n residuals, n being the count of id, and summed in index order. Precondition:
  // the residual vector has at least n entries. With n = 0 each of them is a not-a-number.

  /// bias = (sum of delta) / n: the mean residual, where n is the count of id.
  ///
  /// Reads: id (count), delta (its first n). Writes: bias, dimensionless; a not-a-number when n
  /// is 0. Precondition: CalculateDelta has run.
  void CalculateBias();
  /// biasNorm = (sum of deltaNorm) / n, the mean normalized residual.
  ///
  /// Reads: id (count), deltaNorm. Writes: biasNorm, dimensionless; a not-a-number when n is 0.
  /// Precondition: CalculateDeltaNorm has run.
  void CalculateBiasNorm();

  /// sigma = sqrt((sum of (delta - bias)^2) / n): the population standard deviation (n, not n - 1)
  /// about the stored bias, where n is the count of id.
  ///
  /// Reads: id (count), delta (its first n), bias. Writes: sigma, dimensionless; a not-a-number
  /// when n is 0. Precondition: CalculateDelta and CalculateBias have run.
  void CalculateSigma();
  /// sigmaNorm = sqrt((sum of (deltaNorm - biasNorm)^2) / n), about the stored biasNorm.
  ///
  /// Reads: id (count), deltaNorm, biasNorm. Writes: sigmaNorm, dimensionless; a not-a-number when
  /// n is 0. Precondition: CalculateDeltaNorm and CalculateBiasNorm have run.
  void CalculateSigmaNorm();

  /// rms = sqrt((sum of delta^2) / n): the root mean square about zero, where n is the count of id.
  ///
  /// Reads: id (count), delta (its first n). Writes: rms, dimensionless; a not-a-number when n is
  /// 0. Precondition: CalculateDelta has run.
  void CalculateRMS();
  /// rmsNorm = sqrt((sum of deltaNorm^2) / n), about zero.
  ///
  /// Reads: id (count), deltaNorm. Writes: rmsNorm, dimensionless; a not-a-number when n is 0.
  /// Precondition: CalculateDeltaNorm has run.
  void CalculateRMSNorm();

  // ---- medians ----------------------------------------------------------------------------------
  //
  // Over the whole residual vector, whatever the count of id.

  /// The median of the first n values: the middle one in ascending order, or half the sum of the
  /// two middle ones when n is even.
  ///
  /// The order is the one a bubble sort leaves: a not-a-number stays where it is and nothing moves
  /// past it, so it divides the values into stretches that are sorted each by itself; equal values
  /// (the two zeros) keep their order. The object is neither read nor changed.
  ///
  /// @param values  the values, taken by value; entries beyond n are ignored.
  /// @param n       how many of them count; must not exceed the size of values.
  /// @return the median; a not-a-number when n is 0.
  /// @throws std::bad_array_new_length when n is negative.
  double CalculateMedian(std::vector<double> values, int n) const;

  /// The median of the absolute values of the first n values; otherwise as CalculateMedian.
  ///
  /// @param values  the values, taken by value; entries beyond n are ignored.
  /// @param n       how many of them count; must not exceed the size of values.
  /// @return the median; a not-a-number when n is 0.
  /// @throws std::bad_array_new_length when n is negative.
  double CalculateAbsMedian(std::vector<double> values, int n) const;

  /// mad = median of |delta|: about zero, not about the median.
  ///
  /// Reads: delta. Writes: mad, dimensionless; a not-a-number without residuals. Precondition:
  /// CalculateDelta has run.
  /// @throws std::bad_array_new_length when delta has more than 2147483647 entries.
  void CalculateMAD();
  /// madNorm = median of |deltaNorm|.
  ///
  /// Reads: deltaNorm. Writes: madNorm, dimensionless; a not-a-number without residuals.
  /// Precondition: CalculateDeltaNorm has run.
  /// @throws std::bad_array_new_length when deltaNorm has more than 2147483647 entries.
  void CalculateMADNorm();

  /// nmad = 1.4826 * mad, which estimates the standard deviation of normally distributed residuals.
  ///
  /// Reads: mad. Writes: nmad, dimensionless. Precondition: CalculateMAD has run.
  void CalculateNMAD();
  /// nmadNorm = 1.4826 * madNorm.
  ///
  /// Reads: madNorm. Writes: nmadNorm, dimensionless. Precondition: CalculateMADNorm has run.
  void CalculateNMADNorm();

  /// madDeltaz = median of |delta - median(delta)|: what textbooks call the median absolute
  /// deviation, reported as MAD(Delta).
  ///
  /// Reads: delta. Writes: madDeltaz, dimensionless; a not-a-number without residuals.
  /// Precondition: CalculateDelta has run.
  /// @throws std::bad_array_new_length when delta has more than 2147483647 entries.
  void CalculateMADDeltaz();
  /// madDeltazNorm = median of |deltaNorm - median(deltaNorm)|.
  ///
  /// Reads: deltaNorm. Writes: madDeltazNorm, dimensionless; a not-a-number without residuals.
  /// Precondition: CalculateDeltaNorm has run.
  /// @throws std::bad_array_new_length when deltaNorm has more than 2147483647 entries.
  void CalculateMADDeltazNorm();

  // ---- outliers: over the whole residual vector -------------------------------------------------

  /// The percentages of residuals with |delta| > 1, 2, 3 and 4 times sigma and with |delta| > 0.15:
  /// measured from zero, strictly greater; a residual beyond 4 sigma counts in all four.
  ///
  /// Reads: delta, sigma, and the five members it writes: outliers1 to outliers4, outliersConstant;
  /// percentages of the size of delta, not-a-numbers without residuals. Precondition:
  /// CalculateDelta and CalculateSigma have run, and this method has not: it counts onto what the
  /// members hold, so a second call adds to the percentages of the first and divides the sum.
  void CalculateOutliers();
  /// The percentages of residuals with |deltaNorm| > 1, 2, 3 and 4 times sigmaNorm and with
  /// |deltaNorm| > 0.15; otherwise as CalculateOutliers.
  ///
  /// Reads: deltaNorm, sigmaNorm, and the five members it writes: outliers1Norm to outliers4Norm,
  /// outliersConstantNorm. Precondition: CalculateDeltaNorm and CalculateSigmaNorm have run, and
  /// this method has not.
  void CalculateOutliersNorm();

  // ---- synthetic output -------------------------------------------------------------------------

  /// Appends the estimated values to output, one for each entry of id.
  ///
  /// Reads: id (count), zphot. Writes: output, which is not emptied first. Precondition: zphot has
  /// as many entries as id.
  void AssignOutput();

  /// A pseudo-random number between lo and hi, both ends included:
  /// (hi - lo) * (rand() / 2147483647) + lo. With hi below lo the result still lies between them.
  ///
  /// Reads and writes no member, but the state of std::rand, which the caller seeds by std::srand.
  ///
  /// @param lo  one end of the range.
  /// @param hi  the other end.
  /// @return the number, in the units of lo and hi.
  double doubleRangeRand(double lo, double hi) const;

  /// A pseudo-random position in the data set: rand() modulo the count of id.
  ///
  /// Reads: id (count), and the state of std::rand, which the caller seeds by std::srand.
  /// Precondition: the data set is not empty; on an empty one the program is ended by std::abort
  /// after a message on standard output.
  ///
  /// @return the position, from 0 to the count of id less 1.
  int idRand() const;

  // ---- accessors --------------------------------------------------------------------------------

  /// Empties the six vectors; they keep their storage. Settings, names and all 22 statistics keep
  /// their values - the outlier percentages too, onto which the next CalculateOutliers would count:
  /// use a fresh object for a second data set, or set those ten to 0 in a derived class.
  ///
  /// Writes: id, zspec, zphot, output, delta, deltaNorm.
  void clearData();

  /// The number of objects.
  /// @return the count of id, as an int; 0 before loadInternalFile and after clearData.
  int getDataSize() const;

  /// Replaces the name of the *intermediate* file, the one loadInputFile writes and
  /// loadInternalFile reads; the table's name stays. Writes: nameInternalFile.
  /// @param name  borrowed: must outlive its use.
  void setNameInputFile(const char* name);

  /// Replaces the name of the file that storeStatistics and storeORMEDAOutput write. Writes:
  /// nameOutputFile.
  /// @param name  borrowed: must outlive its use.
  void setNameOutputFile(const char* name);

  // Each getter returns its member as it stands, 0 before it was computed; it computes nothing and
  // checks nothing.

  double getBias() const;       ///< Mean residual, dimensionless.
  double getSigma() const;      ///< Standard deviation about the bias, dimensionless.
  double getBiasNorm() const;   ///< Mean normalized residual, dimensionless.
  double getSigmaNorm() const;  ///< Standard deviation of the normalized residual, dimensionless.
  double getRMS() const;        ///< Root mean square residual, dimensionless.
  double getRMSNorm() const;    ///< Root mean square normalized residual, dimensionless.
  double getMAD() const;        ///< Median of |delta|, dimensionless.
  double getMADNorm() const;    ///< Median of |deltaNorm|, dimensionless.
  double getNMAD() const;       ///< 1.4826 times getMAD, dimensionless.
  double getNMADNorm() const;   ///< 1.4826 times getMADNorm, dimensionless.
  double getMADDeltaz() const;  ///< Median of |delta - median(delta)|, dimensionless.
  double getMADDeltazNorm() const;  ///< Median of |deltaNorm - median(deltaNorm)|, dimensionless.
  double getOutliers1() const;      ///< Objects with |delta| > sigma, in percent.
  double getOutliers2() const;      ///< Objects with |delta| > 2 sigma, in percent.
  double getOutliers3() const;      ///< Objects with |delta| > 3 sigma, in percent.
  double getOutliers4() const;      ///< Objects with |delta| > 4 sigma, in percent.
  double getOutliersConstant() const;      ///< Objects with |delta| > 0.15, in percent.
  double getOutliers1Norm() const;         ///< Objects with |deltaNorm| > sigmaNorm, in percent.
  double getOutliers2Norm() const;         ///< Objects with |deltaNorm| > 2 sigmaNorm, in percent.
  double getOutliers3Norm() const;         ///< Objects with |deltaNorm| > 3 sigmaNorm, in percent.
  double getOutliers4Norm() const;         ///< Objects with |deltaNorm| > 4 sigmaNorm, in percent.
  double getOutliersConstantNorm() const;  ///< Objects with |deltaNorm| > 0.15, in percent.

 protected:
  // Open to a derived class, so that a program can fill or alter the vectors itself (`output` above
  // all, before storeORMEDAOutput). Entry i of every vector belongs to the same object.

  double presetA = 0.001;  ///< Fixed parameter, 0.001; kept, though nothing reads it.
  int headerFlag;          ///< 1 when the table begins with a header line.
  double presetB = 0.03;   ///< Fixed parameter, 0.03; kept, though nothing reads it.

  double sigma = 0.0;          ///< Standard deviation of delta.
  double sigmaNorm = 0.0;      ///< Standard deviation of deltaNorm.
  double bias = 0.0;           ///< Mean of delta.
  double biasNorm = 0.0;       ///< Mean of deltaNorm.
  double mad = 0.0;            ///< Median of |delta|.
  double madNorm = 0.0;        ///< Median of |deltaNorm|.
  double nmad = 0.0;           ///< 1.4826 * mad.
  double nmadNorm = 0.0;       ///< 1.4826 * madNorm.
  double madDeltaz = 0.0;      ///< Median of |delta - median(delta)|.
  double madDeltazNorm = 0.0;  ///< Median of |deltaNorm - median(deltaNorm)|.
  double rms = 0.0;            ///< Root mean square of delta.
  double rmsNorm = 0.0;        ///< Root mean square of deltaNorm.

  // What CalculateOutliers finds here it takes for the count so far.
  double outliers1 = 0.0;             ///< |delta| > sigma, in percent.
  double outliers2 = 0.0;             ///< |delta| > 2 sigma, in percent.
  double outliers3 = 0.0;             ///< |delta| > 3 sigma, in percent.
  double outliers4 = 0.0;             ///< |delta| > 4 sigma, in percent.
  double outliersConstant = 0.0;      ///< |delta| > 0.15, in percent.
  double outliersConstantNorm = 0.0;  ///< |deltaNorm| > 0.15, in percent.
  double outliers1Norm = 0.0;         ///< |deltaNorm| > sigmaNorm, in percent.
  double outliers2Norm = 0.0;         ///< |deltaNorm| > 2 sigmaNorm, in percent.
  double outliers3Norm = 0.0;         ///< |deltaNorm| > 3 sigmaNorm, in percent.
  double outliers4Norm = 0.0;         ///< |deltaNorm| > 4 sigmaNorm, in percent.

  const char* nameInputFile;                      ///< The user's table; borrowed.
  const char* nameInternalFile = "internal.txt";  ///< The intermediate file; borrowed.
  const char* nameOutputFile;  ///< The report, or the file of storeORMEDAOutput; borrowed.
  int col1;                    ///< The table's column of reference values, from 1.
  int col2;                    ///< The table's column of estimated values, from 1.

  std::vector<int> id;            ///< Identifiers; their count is the data size.
  std::vector<double> zspec;      ///< Reference values.
  std::vector<double> zphot;      ///< Estimated values.
  std::vector<double> output;     ///< A model's output, for storeORMEDAOutput.
  std::vector<double> delta;      ///< Residuals, reference minus estimate.
  std::vector<double> deltaNorm;  ///< Residuals divided by 1 + reference.
};

#endif  // VOSTREL_UTILS_UTILS_H
