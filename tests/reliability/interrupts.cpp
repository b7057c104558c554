// Interrupts at random moments of a run, small tables and large, standard output a pipe or a file.
//
//     interrupts PROGRAM ROUNDS
//
// Each run must end with status 0, either finished or with "SIGINT catched!" after what it has
// printed, and leave only whole lines that the uninterrupted run has too. Until the banner is
// printed an interrupt has its default action, and no file has been touched.

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "runs.h"
#include "tables.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr std::string_view kNotice = "SIGINT catched!\n";
constexpr int kPatience = 60;  // seconds until a run counts as one that hangs
const std::vector<std::string> kArguments = {"--stats", "table.csv", "report.txt", "0", "1", "2"};

// A table and what its uninterrupted run prints, writes and takes.
struct Table {
  std::string text;
  std::string banner;
  std::string console;
  std::map<std::string, std::string> files;
  nanoseconds time{};
};

struct Ends {
  std::uint64_t finished = 0;
  std::uint64_t interrupted = 0;
  std::uint64_t too_early = 0;
  std::uint64_t repeated = 0;  // among those interrupted
};

std::string read_pipe(int pipe, nanoseconds patience) {
  std::string text;
  const auto deadline = Clock::now() + patience;
  std::array<char, 4096> some;
  while (true) {
    pollfd waiting{pipe, POLLIN, 0};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0 || poll(&waiting, 1, static_cast<int>(left.count())) <= 0) break;
    const ssize_t count = read(pipe, some.data(), some.size());
    if (count <= 0) break;
    text.append(some.data(), static_cast<std::size_t>(count));
  }
  return text;
}

// Waits for the end of a run. Kills a run that hangs.
bool finish_in_time(pid_t child, int& status) {
  const auto deadline = Clock::now() + std::chrono::seconds(kPatience);
  while (Clock::now() < deadline) {
    if (waitpid(child, &status, WNOHANG) == child) return true;
    const timespec pause{0, 200000};
    nanosleep(&pause, nullptr);
  }
  kill(child, SIGKILL);
  status = finish(child);
  return false;
}

Table make_table(const std::string& program, const Folder& folder, std::size_t rows,
                 Random& random) {
  Table table;
  for (std::size_t i = 0; i < rows; ++i) {
    table.text.append(usual_number(random)).append(",").append(usual_number(random)).append("\n");
  }
  const Stream output;
  const Stream error;
  table.time = nanoseconds::max();
  for (int i = 0; i < 5; ++i) {
    folder.clear();
    output.clear();
    folder.write("table.csv", table.text);
    const auto begin = Clock::now();
    require(finish(start(program, kArguments, folder, output.file(), error.file())) == 0, "a run");
    table.time = std::min<nanoseconds>(table.time, Clock::now() - begin);
  }
  table.console = output.text();
  table.files = folder.files();
  table.banner = table.console.substr(0, table.console.find("col number"));
  return table;
}

struct Left {
  int status = 0;
  bool hangs = false;
  std::string console;
  std::string error;
  std::map<std::string, std::string> files;
};

Left interrupt(const std::string& program, const Folder& folder, nanoseconds moment, bool to_pipe) {
  const Stream file;
  const Stream error;
  std::array<int, 2> ends{-1, -1};
  if (to_pipe) require(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe2");
  for (const std::string& name : folder.names()) {
    if (name != "table.csv") unlink(folder.path_of(name).c_str());
  }
  const pid_t child =
      start(program, kArguments, folder, to_pipe ? ends[1] : file.file(), error.file());
  if (to_pipe) close(ends[1]);
  const timespec pause{moment.count() / 1000000000, moment.count() % 1000000000};
  nanosleep(&pause, nullptr);
  kill(child, SIGINT);
  Left left;
  if (to_pipe) left.console = read_pipe(ends[0], std::chrono::seconds(kPatience));
  left.hangs = !finish_in_time(child, left.status);
  if (to_pipe) close(ends[0]);
  if (!to_pipe) left.console = file.text();
  left.error = error.text();
  left.files = folder.files();
  return left;
}

// The notice goes through the buffer of standard output. A line that was written, but was still in
// the buffer when the interrupt came, is written again.
bool last_line_is_repeated(std::string_view console) {
  if (console.size() < 2 || console.back() != '\n') return false;
  const std::string_view before = console.substr(0, console.rfind('\n', console.size() - 2) + 1);
  const std::string_view last = console.substr(before.size());
  return before.ends_with(last);
}

// What is wrong with what a run left, if anything.
std::string fault_in(const Left& left, const Table& table, Ends& ends) {
  if (left.hangs) return "it hangs";
  if (!left.error.empty()) return "standard error";
  if (WIFSIGNALED(left.status) && WTERMSIG(left.status) == SIGINT) {
    ++ends.too_early;
    if (!table.banner.starts_with(left.console)) return "killed after the banner";
    if (left.files.size() != 1) return "killed with files touched";
    return "";
  }
  if (left.status != 0) return words(left.status);
  std::string_view console = left.console;
  const bool noticed = console.ends_with(kNotice);
  if (noticed) console.remove_suffix(kNotice.size());
  if (noticed && last_line_is_repeated(console) && !table.console.starts_with(console)) {
    console = console.substr(0, console.rfind('\n', console.size() - 2) + 1);
    ++ends.repeated;
  }
  if (!table.console.starts_with(console)) return "console";
  if (!noticed && console != table.console) return "a run that stops without a notice";
  for (const auto& [name, text] : left.files) {
    const auto whole = table.files.find(name);
    if (whole == table.files.end()) return "a new file: " + name;
    if (!whole_lines(text, whole->second)) return name;
    if (!noticed && text != whole->second) return "incomplete: " + name;
  }
  ++(noticed ? ends.interrupted : ends.finished);
  return "";
}

int run(const std::string& program, std::uint64_t rounds) {
  without_core_files();
  Random random;
  const Folder folder;
  const auto begin = Clock::now();
  Ends ends;
  // Nine in ten on a small table, one in ten on one of several blocks.
  const std::array<std::size_t, 3> rows = {3, 2000, 100000};
  const std::array<std::uint64_t, 3> shares = {rounds / 2, rounds - rounds / 2 - rounds / 10,
                                               rounds / 10};
  for (std::size_t k = 0; k < rows.size(); ++k) {
    const Table table = make_table(program, folder, rows[k], random);
    for (std::uint64_t i = 0; i < shares[k]; ++i) {
      const nanoseconds moment(static_cast<std::int64_t>(
          random.fraction() * static_cast<double>(table.time.count()) * 9 / 8));
      const bool to_pipe = random.one_in(2);
      const Left left = interrupt(program, folder, moment, to_pipe);
      const std::string fault = fault_in(left, table, ends);
      if (!fault.empty()) {
        std::cout << "FAULT: " << fault << "; " << rows[k] << " rows, "
                  << (to_pipe ? "to a pipe" : "to a file") << ", after " << moment.count()
                  << " ns, " << words(left.status) << "\n----\n"
                  << left.console << "----\n"
                  << left.error << std::endl;
        return 1;
      }
    }
  }
  const std::chrono::duration<double> time = Clock::now() - begin;
  std::cout << rounds << " interrupts, no fault: " << ends.interrupted << " noticed ("
            << ends.repeated << " with a line repeated), " << ends.finished
            << " runs finished first, " << ends.too_early << " before there was a handler; "
            << time.count() << " s" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 3) {
    std::cout << "usage: interrupts PROGRAM ROUNDS" << std::endl;
    return 2;
  }
  try {
    return run(absolute(argv[1]), std::strtoull(argv[2], nullptr, 10));
  } catch (const std::exception& failure) {
    std::cout << failure.what() << std::endl;
    return 2;
  }
}
