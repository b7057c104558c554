// Every open, read, write and close on each of the four files fails in turn, and every allocation.
//
//     faults PROGRAM PLAIN_PROGRAM SHIM [MORE]
//
// A file fault must have the same outcome for both programs: exit status, standard output and all
// files. A fault strikes at a certain byte and lasts from there on, since the two programs read and
// write in blocks of different sizes. A failing allocation must end the run by std::terminate, or
// change nothing. MORE multiplies the number of bytes tried.

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "runs.h"
#include "tables.h"

namespace {

struct Outcome {
  std::string status;
  std::string output;
  std::string error;
  std::map<std::string, std::string> files;
  bool struck = false;
  bool operator==(const Outcome&) const = default;
};

struct Table {
  std::string name;
  std::string text;
  std::string flag;
};

struct Fault {
  std::string call;
  std::string file;
  int pass = 0;
  std::size_t from = 0;
  int times = 0;
  int error = 0;

  std::string words() const {
    return call + " " + file + " " + std::to_string(pass) + " " + std::to_string(from) + " " +
           std::to_string(times) + " " + std::to_string(error);
  }
};

class Runner {
 public:
  Runner(std::string program, const std::string& shim)
      : program_(std::move(program)), seen_(aside_.path_of("seen")) {
    // LD_PRELOAD separates names by spaces, and the path of the build may have some.
    std::filesystem::create_symlink(shim, shim_);
  }

  Outcome run(const Table& table, const std::string& fault) {
    folder_.clear();
    aside_.clear();
    output_.clear();
    error_.clear();
    folder_.write("table.csv", table.text);
    setenv("LD_PRELOAD", shim_.c_str(), 1);
    setenv("VOSTREL_FAULT_SEEN", seen_.c_str(), 1);
    setenv("VOSTREL_FAULT", fault.c_str(), 1);
    const pid_t child =
        start(program_, {"--stats", "table.csv", "report.txt", table.flag, "1", "3"}, folder_,
              output_.file(), error_.file());
    unsetenv("LD_PRELOAD");
    const int status = finish(child);
    const std::string error = error_.text();
    return {words(status), output_.text(), error.substr(0, error.find('\n')), folder_.files(),
            !aside_.names().empty()};
  }

 private:
  std::string program_;
  TemporaryFolder libraries_;
  std::string shim_ = libraries_.path_of("shim.so");
  Folder folder_;
  Folder aside_;
  std::string seen_;  // the shim's sign that the fault has struck
  Stream output_;
  Stream error_;
};

// A few lines; several blocks; a line that ends the run; too few columns, which is logged twice.
std::vector<Table> make_tables(Random& random) {
  std::vector<Table> tables(4);
  tables[0] = {"a few lines", "a,b,c\n", "1"};
  tables[1] = {"several blocks", "", "0"};
  tables[2] = {"a line that ends the run", "", "0"};
  tables[3] = {"too few columns", "1,2\n3,4\n", "0"};
  for (int i = 0; i < 7; ++i) tables[0].text += line(random, 3, 0) + "\n";
  // Long fields and few rows, since the plain program's sort is quadratic.
  for (int i = 0; i < 700; ++i) {
    tables[1].text += std::string(random.below(800), '0') + line(random, 3, 0) + "\n";
  }
  for (int i = 0; i < 300; ++i) tables[2].text += line(random, 3, 0) + "\n";
  tables[2].text += "0.1,0.2,\n1,2,3\n";
  return tables;
}

// Bytes where a fault may strike: the first ones, block and buffer edges, the last ones, any.
std::vector<std::size_t> places(Random& random, std::size_t size, std::size_t more) {
  std::vector<std::size_t> places;
  for (const std::size_t edge : {std::size_t{0}, std::size_t{1024}, std::size_t{8191},
                                 std::size_t{65536}, std::size_t{131072}, size}) {
    for (std::size_t place = edge < 2 ? 0 : edge - 2; place <= edge + 2 && place <= size; ++place) {
      places.push_back(place);
    }
  }
  for (std::size_t i = 0; i < 12 * more; ++i) places.push_back(random.below(size + 1));
  return places;
}

// The n-th time that a file is opened, the program reads it or writes it.
struct Use {
  const char* call;
  const char* file;
  int pass;
};
constexpr std::array<Use, 6> kUses = {{{"read", "table.csv", 1},
                                       {"read", "table.csv", 2},
                                       {"write", "internal.txt", 1},
                                       {"read", "internal.txt", 2},
                                       {"write", "report.txt", 1},
                                       {"write", "error.log", 0}}};

std::vector<Fault> make_faults(Random& random, const std::map<std::string, std::string>& files,
                               std::size_t more) {
  static constexpr std::array<int, 3> kLasting = {EIO, ENOSPC, EACCES};
  std::vector<Fault> faults;
  for (const char* const file : {"table.csv", "internal.txt", "report.txt", "error.log"}) {
    for (const int pass : {0, 1, 2}) {
      for (const int error : {EIO, ENOSPC, EACCES, EINTR}) {
        faults.push_back({"open", file, pass, 0, 0, error});
        faults.push_back({"close", file, pass, 0, 0, error});
      }
    }
  }
  for (const Use& use : kUses) {
    const auto found = files.find(use.file);
    if (found == files.end()) continue;
    for (const std::size_t place : places(random, found->second.size(), more)) {
      faults.push_back({use.call, use.file, use.pass, place, 0, random.pick(kLasting)});
      // An interrupted call is repeated until it succeeds, so the interruptions must end.
      const int times = 1 + static_cast<int>(random.below(3));
      faults.push_back({use.call, use.file, use.pass, place, times, EINTR});
    }
  }
  return faults;
}

void show(const char* title, const Outcome& outcome) {
  std::cout << "---- " << title << ": " << outcome.status << (outcome.struck ? ", struck" : "")
            << "\n"
            << outcome.output.substr(0, 3000) << "\n"
            << outcome.error << "\n";
  for (const auto& [name, text] : outcome.files) {
    if (name == "table.csv") continue;
    std::cout << name << ", " << text.size() << " bytes, the last ones:\n"
              << text.substr(text.size() - std::min<std::size_t>(text.size(), 300)) << "\n";
  }
}

// What is wrong with the outcome of a run that had no memory, if anything. A file that can't be
// opened without memory is treated as any file that can't be opened.
std::string fault_in(const Outcome& outcome, const Outcome& whole, const Outcome& without_rows) {
  if (outcome.status == "signal 6") {
    if (outcome.error != whole.error && outcome.error.find("std::bad_alloc") == std::string::npos) {
      return outcome.error;
    }
    if (!whole_lines(outcome.output, whole.output)) return "console";
  } else if (outcome.status == "exit 0") {
    if (outcome.output != whole.output && outcome.output != without_rows.output) return "console";
    if (outcome.files.at("internal.txt") != whole.files.at("internal.txt")) return "rows";
  } else if (outcome.status == "exit 255") {
    if (outcome.output == whole.output) return "";
    if (!outcome.output.ends_with("*** file table.csv not found! ***\n")) return "console";
    return outcome.files.count("internal.txt") + outcome.files.count("report.txt") == 0 ? ""
                                                                                        : "files";
  } else {
    return outcome.status;
  }
  for (const auto& [name, text] : outcome.files) {
    const auto found = whole.files.find(name);
    if (found == whole.files.end() || !whole_lines(text, found->second)) return name;
  }
  return "";
}

// For every n: all allocations from the n-th on fail.
bool check_memory(Runner& product, const Table& table, std::map<std::string, int>& ends) {
  const Outcome whole = product.run(table, "");
  const Outcome without_rows =
      product.run(table, Fault{"open", "internal.txt", 2, 0, 0, ENOMEM}.words());
  for (std::size_t n = 1;; ++n) {
    const Outcome outcome = product.run(table, Fault{"memory", "-", 0, n, 0, ENOMEM}.words());
    if (!outcome.struck) return true;
    // Before the first output only the runtime has run, which may end in its own way.
    if (outcome.output.empty() && outcome.status != "exit 0") {
      ++ends["before the first output"];
      continue;
    }
    const std::string fault = fault_in(outcome, whole, without_rows);
    ++ends[outcome.status];
    if (!fault.empty()) {
      std::cout << "FAULT: " << fault << "; no memory from allocation " << n << " on, "
                << table.name << std::endl;
      show("program", outcome);
      return false;
    }
  }
}

int run(const std::string& program, const std::string& plain_program, const std::string& shim,
        std::size_t more) {
  without_core_files();
  Random random;
  Runner product(program, shim);
  Runner plain(plain_program, shim);
  const auto begin = std::chrono::steady_clock::now();
  std::size_t runs = 0;
  std::map<std::string, std::size_t> struck;
  std::map<std::string, int> memory;
  for (const Table& table : make_tables(random)) {
    const Outcome whole = plain.run(table, "");
    for (const Fault& fault : make_faults(random, whole.files, more)) {
      const Outcome one = product.run(table, fault.words());
      const Outcome other = plain.run(table, fault.words());
      ++runs;
      struck[fault.call] += one.struck;
      if (one != other) {
        std::cout << "DIFFERENCE under '" << fault.words() << "', " << table.name << std::endl;
        show("program", one);
        show("plain program", other);
        return 1;
      }
    }
    if (!check_memory(product, table, memory)) return 1;
  }
  for (const auto& [call, count] : struck) {
    if (count == 0) {
      std::cout << "no fault of " << call << " struck" << std::endl;
      return 1;
    }
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  std::cout << runs << " faults of files, no difference; they struck at";
  for (const auto& [call, count] : struck) std::cout << " " << count << " x " << call << ",";
  std::cout << " no memory from any allocation on:";
  for (const auto& [end, count] : memory) std::cout << " " << count << " x " << end << ",";
  std::cout << " " << time.count() << " s" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 4 && argc != 5) {
    std::cout << "usage: faults PROGRAM PLAIN_PROGRAM SHIM [MORE]" << std::endl;
    return 2;
  }
  try {
    return run(absolute(argv[1]), absolute(argv[2]), absolute(argv[3]),
               argc == 5 ? std::strtoull(argv[4], nullptr, 10) : 1);
  } catch (const std::exception& failure) {
    std::cout << failure.what() << std::endl;
    return 2;
  }
}
