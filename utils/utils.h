// The class UTILS: one data set of reference and estimated values (usually spectroscopic and
// photometric redshifts), its residuals, and their error statistics.
//
// A program uses it in this order:
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
// This header includes only the standard library.

#ifndef VOSTREL_UTILS_UTILS_H
#define VOSTREL_UTILS_UTILS_H

#include <vector>

/// One data set, its residuals and their statistics.
///
/// Every statistic exists twice: for the residual `delta` = reference - estimate, and, with the
/// suffix `Norm`, for the normalized residual `deltaNorm` = delta / (1 + reference).
///
/// Units: both columns and all residuals are dimensionless (redshifts), and so are bias, sigma, RMS
/// and the median statistics. The outlier members are percentages, 0 to 100. Arithmetic is in
/// double precision. loadInputFile rounds the values to six significant digits.
///
/// Each method lists the members it reads and writes; it uses no others. The computing methods
/// check nothing and report nothing. NaN and infinities propagate into the results.
///
/// Messages go to standard output. A file that can't be written is not reported.
///
/// Throws: the two readers throw std::out_of_range on a line without text in a needed column. The
/// medians and CalculateStatistics throw std::bad_array_new_length on a count that doesn't fit an
/// int. Anything may throw std::bad_alloc. Nothing is caught.
///
/// Nothing is locked: use an object from one thread at a time. Text is read and written in the
/// host's locale; keep the classic "C" locale (docs/library.md).
class UTILS {
 public:
  /// Stores the settings; the data set is empty and all statistics are 0. No argument is
  /// checked.
  ///
  /// Writes: headerFlag, nameInputFile, nameInternalFile ("internal.txt" in the working directory,
  /// until setNameInputFile changes it), nameOutputFile, col1, col2.
  ///
  /// The two names are borrowed, not copied and not freed: they must outlive the object.
  ///
  /// @param header           1 if the table begins with a header line; any other value if not.
  /// @param inputFile        the user's comma-separated table.
  /// @param outputFile       the file that storeStatistics and storeORMEDAOutput write.
  /// @param referenceColumn  the table's column of reference values, counted from 1.
  /// @param estimateColumn   the table's column of estimated values, right of referenceColumn.
  UTILS(int header, const char* inputFile, const char* outputFile, int referenceColumn,
        int estimateColumn);

  /// Releases the vectors, but not the borrowed names.
  ~UTILS();

  /// @name Files
  /// Values are written with six significant digits. Files that are already there are replaced.
  /// docs/files.md has the rules of all four files.
  /// @{

  /// Copies the columns col1 and col2 of the user's table, with a row number, to the intermediate
  /// file. Doesn't touch the vectors.
  ///
  /// Columns are counted on the first data line. A header line is skipped there, but becomes row 0
  /// like any other line. The first empty line ends the table. A line that runs out of fields
  /// starts over at its first field. A field without a number counts as 0.
  ///
  /// Reads: headerFlag, nameInputFile, nameInternalFile, col1, col2. Writes: the intermediate file,
  /// one line of error.log, and messages on standard output.
  ///
  /// @return 0 if the table was copied; -1 if it can't be opened; -10 if col1 or col2 exceeds the
  ///         number of columns; -20 if col1 is below 1 or not below col2. Unless 0 is returned, an
  ///         existing intermediate file stays as it was.
  /// @throws std::out_of_range if a chosen field would begin after the last comma of a line. The
  ///         rows before that line are in the intermediate file.
  int loadInputFile();

  /// Appends the rows of the intermediate file ("ID zspec zphot", single spaces) to id, zspec and
  /// zphot. The first empty line ends the file.
  ///
  /// Reads: nameInternalFile. Writes: id, zspec, zphot, and messages on standard output.
  /// @return 0 if the file was read; -1 if it can't be opened (the vectors stay as they were).
  /// @throws std::out_of_range on a line whose first or second field has no text.
  int loadInternalFile();

  /// Writes the three-column file "# ID zspec zphot" from id, zspec and output (not zphot) to
  /// nameOutputFile, one row for each entry of id.
  ///
  /// Reads: id, zspec, output, nameOutputFile.
  /// Requires: output is filled, as by AssignOutput; rows stop at the shortest vector.
  void storeORMEDAOutput() const;

  /// Writes the 27-line report of both residuals to nameOutputFile, and names that file on standard
  /// output, even if it can't be written. Outliers are written with a "%".
  ///
  /// Reads: id (count), col1, col2, nameOutputFile, all statistics.
  void storeStatistics() const;
  /// @}

  /// @name Residuals
  /// Each call appends one residual for each entry of id: a second call appends a second copy.
  /// Requires: zspec and zphot have as many entries as id, as after loadInternalFile. The two
  /// methods don't depend on each other.
  /// @{

  /// Appends zspec[i] - zphot[i], reference minus estimate, to delta.
  ///
  /// Reads: id (count), zspec, zphot. Writes: delta.
  void CalculateDelta();

  /// Appends (zspec[i] - zphot[i]) / (1 + zspec[i]) to deltaNorm. A reference of -1 gives an
  /// infinity, or NaN if the estimate is -1 too.
  ///
  /// Reads: id (count), zspec, zphot. Writes: deltaNorm.
  void CalculateDeltaNorm();
  /// @}

  /// @name Moments
  /// Of the first n residuals, where n is the count of id. Sums run in index order. The result is
  /// NaN if n is 0. Requires: the residuals have been calculated.
  /// @{

  /// bias = (sum of delta) / n, the mean.
  ///
  /// Reads: id (count), delta. Writes: bias.
  void CalculateBias();
  /// biasNorm = (sum of deltaNorm) / n.
  ///
  /// Reads: id (count), deltaNorm. Writes: biasNorm.
  void CalculateBiasNorm();

  /// sigma = sqrt((sum of (delta - bias)^2) / n): the population standard deviation (n, not n - 1)
  /// about the stored bias.
  ///
  /// Reads: id (count), delta, bias. Writes: sigma. Requires: CalculateBias has run.
  void CalculateSigma();
  /// sigmaNorm = sqrt((sum of (deltaNorm - biasNorm)^2) / n).
  ///
  /// Reads: id (count), deltaNorm, biasNorm. Writes: sigmaNorm. Requires: CalculateBiasNorm has
  /// run.
  void CalculateSigmaNorm();

  /// rms = sqrt((sum of delta^2) / n): the root mean square about zero.
  ///
  /// Reads: id (count), delta. Writes: rms.
  void CalculateRMS();
  /// rmsNorm = sqrt((sum of deltaNorm^2) / n).
  ///
  /// Reads: id (count), deltaNorm. Writes: rmsNorm.
  void CalculateRMSNorm();
  /// @}

  /// @name Medians
  /// Of all residuals, regardless of the count of id. The median is the middle value in ascending
  /// order, or half the sum of the two middle values. The order is that of a bubble sort: a NaN
  /// stays where it is and nothing moves past it, and the values before and after it are sorted
  /// separately; equal values (the two zeros) keep their order. Without values the median is NaN.
  /// Requires: the residuals have been calculated.
  /// Throws: std::bad_array_new_length for more than 2147483647 residuals or a negative n.
  /// @{

  /// The median of the first n values. Doesn't touch the object.
  ///
  /// @param values  the values; entries beyond n are ignored.
  /// @param n       the number of values to use; must not exceed the size of values.
  /// @return the median; NaN if n is 0.
  /// @throws std::bad_array_new_length if n is negative.
  double CalculateMedian(std::vector<double> values, int n) const;

  /// The median of the absolute values of the first n values. Doesn't touch the object.
  ///
  /// @param values  the values; entries beyond n are ignored.
  /// @param n       the number of values to use; must not exceed the size of values.
  /// @return the median; NaN if n is 0.
  /// @throws std::bad_array_new_length if n is negative.
  double CalculateAbsMedian(std::vector<double> values, int n) const;

  /// mad = median of |delta|: about zero, not about the median.
  ///
  /// Reads: delta. Writes: mad.
  void CalculateMAD();
  /// madNorm = median of |deltaNorm|.
  ///
  /// Reads: deltaNorm. Writes: madNorm.
  void CalculateMADNorm();

  /// nmad = 1.4826 * mad, which estimates the standard deviation of normally distributed residuals.
  ///
  /// Reads: mad. Writes: nmad. Requires: CalculateMAD has run.
  void CalculateNMAD();
  /// nmadNorm = 1.4826 * madNorm.
  ///
  /// Reads: madNorm. Writes: nmadNorm. Requires: CalculateMADNorm has run.
  void CalculateNMADNorm();

  /// madDeltaz = median of |delta - median(delta)|: the textbook's median absolute deviation,
  /// reported as MAD(Delta).
  ///
  /// Reads: delta. Writes: madDeltaz.
  void CalculateMADDeltaz();
  /// madDeltazNorm = median of |deltaNorm - median(deltaNorm)|.
  ///
  /// Reads: deltaNorm. Writes: madDeltazNorm.
  void CalculateMADDeltazNorm();
  /// @}

  /// @name Outliers
  /// Percentages of all residuals, regardless of the count of id: (count / n) * 100. Measured from
  /// zero, strictly greater; a residual beyond 4 sigma counts in all four. NaN without residuals.
  /// Requires: the residuals and their sigma have been calculated, and this method has not run. The
  /// count starts from the values of the five members: a second call adds to the percentages of the
  /// first and divides the sums by n again.
  /// @{

  /// The percentages of residuals with |delta| > 1, 2, 3 and 4 times sigma, and |delta| > 0.15.
  ///
  /// Reads: delta, sigma, and the members it writes. Writes: outliers1 to outliers4,
  /// outliersConstant.
  void CalculateOutliers();
  /// The percentages of residuals with |deltaNorm| > 1, 2, 3 and 4 times sigmaNorm, and
  /// |deltaNorm| > 0.15.
  ///
  /// Reads: deltaNorm, sigmaNorm, and the members it writes. Writes: outliers1Norm to
  /// outliers4Norm, outliersConstantNorm.
  void CalculateOutliersNorm();
  /// @}

  /// Calculates all statistics at once: the numbers that the methods above give on a new object.
  /// Faster, and keeps no residuals: delta and deltaNorm stay as they are.
  ///
  /// Reads: id (count), zspec, zphot. Writes: all statistics. Requires: zspec and zphot have as
  /// many entries as id.
  /// @throws std::bad_array_new_length for more than 2147483647 entries of id.
  void CalculateStatistics();

  /// @name Synthetic output
  /// Random numbers come from std::rand, which the caller seeds with std::srand.
  /// @{

  /// Appends the estimated values to output, one for each entry of id: a second call appends a
  /// second copy.
  ///
  /// Reads: id (count), zphot. Writes: output. Requires: zphot has as many entries as id.
  void AssignOutput();

  /// A pseudo-random number between lo and hi, both included:
  /// (hi - lo) * (rand() / 2147483647) + lo. hi may be below lo. Doesn't touch the object.
  ///
  /// @param lo  one end of the range.
  /// @param hi  the other end.
  /// @return the number, in the units of lo and hi.
  double doubleRangeRand(double lo, double hi) const;

  /// A pseudo-random position in the data set: rand() modulo the count of id.
  ///
  /// Reads: id (count). Requires: the data set is not empty. Otherwise it prints a message and
  /// calls std::abort.
  ///
  /// @return the position, from 0 to the count of id minus 1.
  int idRand() const;
  /// @}

  /// @name Accessors
  /// A getter returns its member, which is 0 before it is computed. The outliers are percentages of
  /// objects; all other statistics are dimensionless.
  /// @{

  /// Empties the six vectors, which keep their storage. Settings, names and all statistics keep
  /// their values. The next CalculateOutliers would add to the outlier percentages: for a second
  /// data set use a new object, or set those ten to 0 in a derived class.
  ///
  /// Writes: id, zspec, zphot, output, delta, deltaNorm.
  void clearData();

  /// The number of objects.
  /// @return the count of id: 0 before loadInternalFile and after clearData.
  int getDataSize() const;

  /// Replaces the name of the *intermediate* file, which loadInputFile writes and loadInternalFile
  /// reads; the table's name stays. Writes: nameInternalFile.
  /// @param name  borrowed: must outlive its use.
  void setNameInputFile(const char* name);

  /// Replaces the name of the file that storeStatistics and storeORMEDAOutput write. Writes:
  /// nameOutputFile.
  /// @param name  borrowed: must outlive its use.
  void setNameOutputFile(const char* name);

  double getBias() const;                  ///< Mean residual.
  double getSigma() const;                 ///< Standard deviation about the bias.
  double getBiasNorm() const;              ///< Mean normalized residual.
  double getSigmaNorm() const;             ///< Standard deviation of the normalized residual.
  double getRMS() const;                   ///< Root mean square residual.
  double getRMSNorm() const;               ///< Root mean square normalized residual.
  double getMAD() const;                   ///< Median of |delta|.
  double getMADNorm() const;               ///< Median of |deltaNorm|.
  double getNMAD() const;                  ///< 1.4826 times getMAD.
  double getNMADNorm() const;              ///< 1.4826 times getMADNorm.
  double getMADDeltaz() const;             ///< Median of |delta - median(delta)|.
  double getMADDeltazNorm() const;         ///< Median of |deltaNorm - median(deltaNorm)|.
  double getOutliers1() const;             ///< Objects with |delta| > sigma.
  double getOutliers2() const;             ///< Objects with |delta| > 2 sigma.
  double getOutliers3() const;             ///< Objects with |delta| > 3 sigma.
  double getOutliers4() const;             ///< Objects with |delta| > 4 sigma.
  double getOutliersConstant() const;      ///< Objects with |delta| > 0.15.
  double getOutliers1Norm() const;         ///< Objects with |deltaNorm| > sigmaNorm.
  double getOutliers2Norm() const;         ///< Objects with |deltaNorm| > 2 sigmaNorm.
  double getOutliers3Norm() const;         ///< Objects with |deltaNorm| > 3 sigmaNorm.
  double getOutliers4Norm() const;         ///< Objects with |deltaNorm| > 4 sigmaNorm.
  double getOutliersConstantNorm() const;  ///< Objects with |deltaNorm| > 0.15.

  /// @}

 protected:
  // Protected: a derived class can fill or alter the vectors (above all `output`, before
  // storeORMEDAOutput). Entry i of every vector belongs to the same object.

  double presetA = 0.001;  ///< Fixed parameter; nothing reads it.
  int headerFlag;          ///< 1 if the table begins with a header line.
  double presetB = 0.03;   ///< Fixed parameter; nothing reads it.

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

  // Percentages of objects. CalculateOutliers and CalculateOutliersNorm start from these values.
  double outliers1 = 0.0;             ///< |delta| > sigma.
  double outliers2 = 0.0;             ///< |delta| > 2 sigma.
  double outliers3 = 0.0;             ///< |delta| > 3 sigma.
  double outliers4 = 0.0;             ///< |delta| > 4 sigma.
  double outliersConstant = 0.0;      ///< |delta| > 0.15.
  double outliersConstantNorm = 0.0;  ///< |deltaNorm| > 0.15.
  double outliers1Norm = 0.0;         ///< |deltaNorm| > sigmaNorm.
  double outliers2Norm = 0.0;         ///< |deltaNorm| > 2 sigmaNorm.
  double outliers3Norm = 0.0;         ///< |deltaNorm| > 3 sigmaNorm.
  double outliers4Norm = 0.0;         ///< |deltaNorm| > 4 sigmaNorm.

  const char* nameInputFile;                      ///< The user's table; borrowed.
  const char* nameInternalFile = "internal.txt";  ///< The intermediate file; borrowed.
  const char* nameOutputFile;  ///< The report, or the file of storeORMEDAOutput; borrowed.
  int col1;                    ///< The table's column of reference values, counted from 1.
  int col2;                    ///< The table's column of estimated values, counted from 1.

  std::vector<int> id;            ///< Identifiers; their count is the data size.
  std::vector<double> zspec;      ///< Reference values.
  std::vector<double> zphot;      ///< Estimated values.
  std::vector<double> output;     ///< A model's output, for storeORMEDAOutput.
  std::vector<double> delta;      ///< Residuals, reference minus estimate.
  std::vector<double> deltaNorm;  ///< Residuals divided by 1 + reference.
};

#endif  // VOSTREL_UTILS_UTILS_H
