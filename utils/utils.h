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
///
/// Every statistic exists twice: for the residual `delta` = reference - estimate, and, with the
/// suffix `Norm`, for the normalized residual `deltaNorm` = delta / (1 + reference).
///
/// All methods work on the members directly and none of them locks: use an object from one thread
/// at a time. No method throws on its own account but the two readers (std::out_of_range on a line
/// without text in a column that is needed) and the medians (std::bad_array_new_length on a count
/// that does not fit an int). Running out of memory raises std::bad_alloc. Nothing is caught.
class UTILS {
 public:
  /// Stores the settings and starts with an empty data set; no argument is checked here.
  ///
  /// @param headerFlag      1 when the table begins with a header line; any other value: it does
  /// not.
  /// @param nameInputFile   the user's comma-separated table.
  /// @param nameOutputFile  the report file that storeStatistics writes (and storeORMEDAOutput).
  /// @param col1            column of the reference values, counted from 1.
  /// @param col2            column of the estimated values, counted from 1, greater than col1.
  ///
  /// The two names are borrowed, neither copied nor freed: they must outlive the object.
  /// The intermediate file is "internal.txt" in the working directory until setNameInputFile
  /// says otherwise. The ten outlier percentages start at 0, and so do the other statistics.
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
  /// Precondition: output is filled, as AssignOutput does; rows stop at the shortest vector.
  void storeORMEDAOutput() const;

  /// Writes the 27-line report of both residuals to nameOutputFile, replacing what is there, and
  /// names the file on standard output.
  ///
  /// Reads: the count of id, col1, col2, all 22 statistics. Changes no member. A report that
  /// can't be written is silent: standard output says the same as after success.
  void storeStatistics() const;

  // ---- residuals --------------------------------------------------------------------------------

  /// Appends zspec[i] - zphot[i] to delta, for each entry of id. Not emptied first: a second call
  /// appends a second copy. Precondition: a loaded data set.
  void CalculateDelta();

  /// Appends (zspec[i] - zphot[i]) / (1 + zspec[i]) to deltaNorm, for each entry of id. A reference
  /// of -1 gives an infinity, or a not-a-number when the estimate is -1 too. Not emptied first.
  void CalculateDeltaNorm();

  // ---- moments: over the first n residuals, n = the count of id; sums in index order
  // ------------- With n = 0 each of them is a not-a-number.

  /// bias = (sum of delta) / n, the mean residual. Reads: id (count), delta. Writes: bias.
  void CalculateBias();
  /// The bias of deltaNorm. Reads: id (count), deltaNorm. Writes: biasNorm.
  void CalculateBiasNorm();

  /// sigma = sqrt((sum of (delta - bias)^2) / n): the population standard deviation about the
  /// stored bias, so CalculateBias comes first. Reads: id (count), delta, bias. Writes: sigma.
  void CalculateSigma();
  /// The sigma of deltaNorm. Reads: id (count), deltaNorm, biasNorm. Writes: sigmaNorm.
  void CalculateSigmaNorm();

  /// rms = sqrt((sum of delta^2) / n), about zero. Reads: id (count), delta. Writes: rms.
  void CalculateRMS();
  /// The RMS of deltaNorm. Reads: id (count), deltaNorm. Writes: rmsNorm.
  void CalculateRMSNorm();

  // ---- medians: over the whole residual vector --------------------------------------------------

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
  double CalculateAbsMedian(std::vector<double> values, int n) const;

  /// mad = median of |delta|, about zero (not about the median). Reads: delta. Writes: mad.
  void CalculateMAD();
  /// The MAD of deltaNorm. Reads: deltaNorm. Writes: madNorm.
  void CalculateMADNorm();

  /// nmad = 1.4826 * mad, which estimates the standard deviation of normally distributed
  /// residuals. Reads the stored mad, so CalculateMAD comes first. Writes: nmad.
  void CalculateNMAD();
  /// The NMAD of deltaNorm. Reads: madNorm. Writes: nmadNorm.
  void CalculateNMADNorm();

  /// madDeltaz = median of |delta - median(delta)|, the textbook's median absolute deviation,
  /// reported as MAD(Delta). Reads: delta. Writes: madDeltaz.
  void CalculateMADDeltaz();
  /// The MAD(Delta) of deltaNorm. Reads: deltaNorm. Writes: madDeltazNorm.
  void CalculateMADDeltazNorm();

  // ---- outliers: over the whole residual vector -------------------------------------------------

  /// The percentages of residuals with |delta| > 1, 2, 3, 4 times sigma and > 0.15, measured from
  /// zero and strictly greater. Reads: delta, the stored sigma. Writes: outliers1 to outliers4,
  /// outliersConstant. Meant to run once: it counts onto what those members hold, so a second call
  /// adds to the percentages of the first. With no residuals they become not-a-numbers.
  void CalculateOutliers();
  /// The outlier percentages of deltaNorm in units of sigmaNorm, and beyond 0.15. Reads: deltaNorm,
  /// sigmaNorm. Writes: the same members with the suffix Norm.
  void CalculateOutliersNorm();

  // ---- synthetic output -------------------------------------------------------------------------

  /// Appends zphot to output, one entry for each entry of id. Not emptied first.
  void AssignOutput();

  /// A pseudo-random number between lo and hi, both ends included: (hi - lo) * (rand() /
  /// 2147483647) + lo. With hi below lo the result still lies between them. The caller seeds
  /// std::srand; main does so with the time.
  double doubleRangeRand(double lo, double hi) const;

  /// A pseudo-random position in the data set: rand() modulo the count of id.
  /// Precondition: the data set is not empty; on an empty one the program is ended by std::abort
  /// after a message on standard output.
  int idRand() const;

  // ---- accessors --------------------------------------------------------------------------------

  /// Empties the six vectors; they keep their storage. Settings, names and all 22 statistics keep
  /// their values - the outlier percentages too, onto which the next CalculateOutliers would count:
  /// use a fresh object for a second data set unless outliers are of no interest.
  void clearData();

  /// The number of objects: the count of id, as an int.
  int getDataSize() const;

  /// Replaces the name of the *intermediate* file, the one loadInputFile writes and
  /// loadInternalFile reads; the table's name stays. Borrowed: name must outlive its use.
  void setNameInputFile(const char* name);

  /// Replaces the name of the report file. Borrowed: name must outlive its use.
  void setNameOutputFile(const char* name);

  // Each getter returns its member as it stands; it computes nothing and checks nothing.

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
  int headerFlag;
  double presetB = 0.03;  ///< Fixed parameter, 0.03; kept, though nothing reads it.

  double sigma = 0.0;
  double sigmaNorm = 0.0;
  double bias = 0.0;
  double biasNorm = 0.0;
  double mad = 0.0;
  double madNorm = 0.0;
  double nmad = 0.0;
  double nmadNorm = 0.0;
  double madDeltaz = 0.0;
  double madDeltazNorm = 0.0;
  double rms = 0.0;
  double rmsNorm = 0.0;

  // Counts while CalculateOutliers runs, percentages after it.
  double outliers1 = 0.0;
  double outliers2 = 0.0;
  double outliers3 = 0.0;
  double outliers4 = 0.0;
  double outliersConstant = 0.0;
  double outliersConstantNorm = 0.0;
  double outliers1Norm = 0.0;
  double outliers2Norm = 0.0;
  double outliers3Norm = 0.0;
  double outliers4Norm = 0.0;

  const char* nameInputFile;
  const char* nameInternalFile;
  const char* nameOutputFile;
  int col1;
  int col2;

  std::vector<int> id;
  std::vector<double> zspec;
  std::vector<double> zphot;
  std::vector<double> output;
  std::vector<double> delta;
  std::vector<double> deltaNorm;
};

#endif  // VOSTREL_UTILS_UTILS_H
