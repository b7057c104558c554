// Prints error statistics of a three-column file (ID, reference, estimate; separated by spaces).

#include <vostrel/utils.h>

#include <iostream>

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::cout << "usage: consumer <three-column file>\n";
    return 2;
  }
  // No table is read and no report is written, so their names and the columns don't matter.
  UTILS run(0, "", "", 1, 2);
  run.setNameInputFile(argv[1]);
  if (run.loadInternalFile() != 0) return 1;

  run.CalculateDeltaNorm();
  run.CalculateBiasNorm();
  run.CalculateSigmaNorm();
  run.CalculateMADNorm();
  run.CalculateNMADNorm();
  run.CalculateOutliersNorm();

  std::cout << "objects   " << run.getDataSize() << '\n'
            << "bias      " << run.getBiasNorm() << '\n'
            << "NMAD      " << run.getNMADNorm() << '\n'
            << "outliers  " << run.getOutliersConstantNorm() << "%\n";
}
