// The program: checks the command line, runs one UTILS object, prints the console report.

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>

#include "utils/lines.h"
#include "utils/utils.h"
#include "version.h"

namespace {

constexpr int kAborted = -1;  // the shell sees 255

// Ends the run with status 0: the user asked for it.
//
// The interrupted code may hold the lock of stdio. std::exit, or a std::cout synchronized with
// stdio, would wait for it forever. So main turns the synchronization off, and the handler calls
// _Exit. Nothing is lost: std::cout is flushed here, and no function is registered to run at exit.
void signal_handler(int /*signal*/) {
  std::cout << "SIGINT catched!" << std::endl;
  std::_Exit(0);
}

// Ends the run by the signal itself. The default action would cut a write short; with a handler the
// system completes the block of whole rows first.
void end_by(int signal) {
  static_cast<void>(std::signal(signal, SIG_DFL));
  static_cast<void>(std::raise(signal));
}

// The signals by which batch systems end a run. A signal that the parent ignores stays ignored, as
// SIGHUP under nohup.
void finish_rows_before_the_end() {
  for (const int signal : {
           SIGTERM,
#ifdef SIGHUP
           SIGHUP,
#endif
#ifdef SIGXCPU
           SIGXCPU,
#endif
       }) {
    if (std::signal(signal, end_by) == SIG_IGN) static_cast<void>(std::signal(signal, SIG_IGN));
  }
}

void print_banner() {
  std::cout << std::endl;
  std::cout << "+++ Program to generate regression statistics on machine learning experiments +++"
            << std::endl;
  std::cout << "by the vostrel developers, " << vostrel::kReleaseDate << ", release "
            << vostrel::kRelease << std::endl;
  std::cout << std::endl;
}

int print_usage() {
  std::cout << std::endl;
  std::cout << "specify the following line command at prompt:" << std::endl;
  std::cout
      << "vostrel --stats <input file name> <output file name> <header flag 0/1> <col1> <col2>"
      << std::endl;
  std::cout << "where" << std::endl;
  std::cout << "<input file name> is a three column ASCII file (space separated)" << std::endl;
  std::cout << "<output file name> is a user specified statistics output file name" << std::endl;
  std::cout
      << "<header flag 0/1> is the header presence (0 not present, 1 present) in the input file"
      << std::endl;
  std::cout << "<col1> is the index of the first column to be used to calculate statistics"
            << std::endl;
  std::cout << "<col2> is the index of the second column to be used to calculate statistics"
            << std::endl;
  return kAborted;
}

int abort_run(const char* message) {
  std::cout << std::endl;
  std::cout << message << std::endl;
  return kAborted;
}

void print_report(const UTILS& run) {
  const vostrel::PointStatistics statistics = statistics_of(run);
  std::cout << "Data size  = " << run.getDataSize() << std::endl;
  std::cout << std::endl;
  std::cout << "Statistics:" << std::endl;
  vostrel::write_lines(std::cout, statistics.delta, &vostrel::Statistic::label);
  std::cout << std::endl;
  vostrel::write_lines(std::cout, statistics.norm, &vostrel::Statistic::normalized_console_label);
  std::cout << std::endl;
}

// Loads, computes and reports.
int run_statistics(int headerFlag, const char* input, const char* output, int col1, int col2) {
  UTILS run(headerFlag, input, output, col1, col2);
  if (run.loadInputFile() != 0) {
    std::ofstream log("error.log", std::ios::app);
    log << "FATAL ERROR OCCURRED. Statistics output not created! ***" << std::endl;
    return kAborted;
  }
  run.loadInternalFile();  // if it fails, the report is about 0 objects
  run.CalculateStatistics();
  print_report(run);
  run.storeStatistics();
  run.clearData();
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  std::ios_base::sync_with_stdio(false);  // see signal_handler
  print_banner();
  if (argc > 7) return abort_run("too many arguments on command line. Program Aborted");
  if (argc < 2) return print_usage();

  std::srand(static_cast<unsigned int>(std::time(nullptr)));
  static_cast<void>(std::signal(SIGINT, signal_handler));
  finish_rows_before_the_end();

  if (std::string(argv[1]) != "--stats") {
    return abort_run("bad first argument on command line. Program Aborted");
  }
  if (argc < 7) return print_usage();

  const int status =
      run_statistics(std::atoi(argv[4]), argv[2], argv[3], std::atoi(argv[5]), std::atoi(argv[6]));
  if (status == 0) {
    std::cout << "Execution completed. Bye Bye!" << std::endl;
    std::cout << std::endl;
  }
  return status;
}
