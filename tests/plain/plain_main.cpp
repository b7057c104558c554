// vostrel-plain: the whole program, written a second time on top of the plain class.

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>

#include "plain_utils.h"
#include "version.h"

namespace {

void signal_handler(int /*signal_number*/) {
  std::cout << "SIGINT catched!" << std::endl;
  std::exit(0);
}

void print_usage() {
  std::cout << std::endl;
  std::cout << "specify the following line command at prompt:" << std::endl;
  std::cout
      << "vostrel --stats <input file name> <output file name> <header flag 0/1> <col1> <col2>"
      << std::endl;
  std::cout << "where" << std::endl;
  std::cout << "<input file name> is a three column ASCII file (space separated)" << std::endl;
  std::cout << "<output file name> is a user specified statistics output file name" << std::endl;
  std::cout << "<header flag 0/1> is the header presence (0 not present, 1 present) in the input "
               "file"
            << std::endl;
  std::cout << "<col1> is the index of the first column to be used to calculate statistics"
            << std::endl;
  std::cout << "<col2> is the index of the second column to be used to calculate statistics"
            << std::endl;
}

void print_report(const plain::UTILS& run) {
  std::cout << "Data size  = " << run.getDataSize() << std::endl;
  std::cout << std::endl;
  std::cout << "Statistics:" << std::endl;
  std::cout << "bias             = " << run.getBias() << std::endl;
  std::cout << "sigma            = " << run.getSigma() << std::endl;
  std::cout << "RMS              = " << run.getRMS() << std::endl;
  std::cout << "MAD              = " << run.getMAD() << std::endl;
  std::cout << "NMAD             = " << run.getNMAD() << std::endl;
  std::cout << "MAD(Delta)       = " << run.getMADDeltaz() << std::endl;
  std::cout << "outliers >0.15   = " << run.getOutliersConstant() << "%" << std::endl;
  std::cout << "outliers >1sigma = " << run.getOutliers1() << "%" << std::endl;
  std::cout << "outliers >2sigma = " << run.getOutliers2() << "%" << std::endl;
  std::cout << "outliers >3sigma = " << run.getOutliers3() << "%" << std::endl;
  std::cout << "outliers >4sigma = " << run.getOutliers4() << "%" << std::endl;
  std::cout << std::endl;
  std::cout << "bias norm             = " << run.getBiasNorm() << std::endl;
  std::cout << "sigma norm            = " << run.getSigmaNorm() << std::endl;
  std::cout << "RMS norm              = " << run.getRMSNorm() << std::endl;
  std::cout << "MAD norm              = " << run.getMADNorm() << std::endl;
  std::cout << "NMAD norm             = " << run.getNMADNorm() << std::endl;
  std::cout << "MAD(Delta_norm)       = " << run.getMADDeltazNorm() << std::endl;
  std::cout << "outliers norm >0.15   = " << run.getOutliersConstantNorm() << "%" << std::endl;
  std::cout << "outliers norm >1sigma = " << run.getOutliers1Norm() << "%" << std::endl;
  std::cout << "outliers norm >2sigma = " << run.getOutliers2Norm() << "%" << std::endl;
  std::cout << "outliers norm >3sigma = " << run.getOutliers3Norm() << "%" << std::endl;
  std::cout << "outliers norm >4sigma = " << run.getOutliers4Norm() << "%" << std::endl;
  std::cout << std::endl;
}

}  // namespace

int main(int argc, char* argv[]) {
  std::cout << std::endl;
  std::cout << "+++ Program to generate regression statistics on machine learning experiments +++"
            << std::endl;
  std::cout << "by the vostrel developers, " << vostrel::kReleaseDate << ", release "
            << vostrel::kRelease << std::endl;
  std::cout << std::endl;

  if (argc > 7) {
    std::cout << std::endl;
    std::cout << "too many arguments on command line. Program Aborted" << std::endl;
    return -1;
  }
  if (argc < 2) {
    print_usage();
    return -1;
  }

  std::srand(static_cast<unsigned int>(std::time(nullptr)));
  std::signal(SIGINT, signal_handler);

  const std::string first = argv[1];
  if (first != "--stats") {
    std::cout << std::endl;
    std::cout << "bad first argument on command line. Program Aborted" << std::endl;
    return -1;
  }
  if (argc < 7) {
    print_usage();
    return -1;
  }

  {
    plain::UTILS run(std::atoi(argv[4]), argv[2], argv[3], std::atoi(argv[5]), std::atoi(argv[6]));
    if (run.loadInputFile() != 0) {
      std::ofstream log("error.log", std::ios::app);
      log << "FATAL ERROR OCCURRED. Statistics output not created! ***" << std::endl;
      log.close();
      return -1;
    }
    run.loadInternalFile();
    run.CalculateDelta();
    run.CalculateDeltaNorm();
    run.CalculateBias();
    run.CalculateBiasNorm();
    run.CalculateSigma();
    run.CalculateSigmaNorm();
    run.CalculateRMS();
    run.CalculateRMSNorm();
    run.CalculateMADDeltaz();
    run.CalculateMADDeltazNorm();
    run.CalculateMAD();
    run.CalculateMADNorm();
    run.CalculateNMAD();
    run.CalculateNMADNorm();
    run.CalculateOutliers();
    run.CalculateOutliersNorm();
    print_report(run);
    run.storeStatistics();
    run.clearData();
  }

  std::cout << "Execution completed. Bye Bye!" << std::endl;
  std::cout << std::endl;
  return 0;
}
