// Whole runs on generated tables and command lines: the program and the plain program must leave
// the same exit status, the same standard output and the same files, byte for byte.
//
//     whole_runs PROGRAM PLAIN_PROGRAM RUNS
//
// Each run has its own seed. If a run differs, its seed is printed. To repeat it, set
// VOSTREL_TEST_SEED to that seed and RUNS to 1.

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "runs.h"
#include "tables.h"

namespace {

struct Case {
  std::vector<std::string> arguments;
  std::map<std::string, std::string> files;  // what is there before the run
  std::vector<std::string> folders;
};

std::string header_flag(Random& random) {
  static constexpr std::string_view kOdd[] = {"",   "2",   "-1", "x",    " 1",         "01",
                                              "+1", "1.9", "1x", "0x1",  "4294967297", "1e0",
                                              "10", "\t1", "--", "true", "2147483648"};
  if (random.one_in(10)) return std::string(random.pick(kOdd));
  return random.one_in(2) ? "1" : "0";
}

std::string column(Random& random, std::size_t number) {
  static constexpr std::string_view kOdd[] = {"",
                                              "x",
                                              "0",
                                              "-1",
                                              "2147483647",
                                              "2147483648",
                                              "4294967297",
                                              "99999999999",
                                              "-2147483648",
                                              "-2147483649",
                                              "18446744073709551617",
                                              "0x2",
                                              "1e0"};
  if (random.one_in(40)) return std::string(random.pick(kOdd));
  static constexpr std::string_view kBefore[] = {"+", " ", "0", "\t", "  +0"};
  static constexpr std::string_view kBehind[] = {"abc", ".9", " ", ",", "e9"};
  std::string text = std::to_string(number);
  if (random.one_in(40)) text.insert(0, random.pick(kBefore));
  if (random.one_in(40)) text += random.pick(kBehind);
  return text;
}

std::string table_name(Random& random) {
  static constexpr std::string_view kOdd[] = {
      "missing.csv", "internal.txt", "error.log",   "report.txt", "folder",     "",
      ".",           "/dev/null",    "./table.csv", "folder/x",   "table.csv/", "\xff\xfe.csv"};
  return std::string(random.one_in(25) ? random.pick(kOdd) : "table.csv");
}

std::string report_name(Random& random) {
  static constexpr std::string_view kOdd[] = {
      "table.csv", "internal.txt", "error.log", "folder",  "",          ".",
      "/dev/full", "/dev/null",    "folder/r",  "no/such", "\xff\xfe r"};
  return std::string(random.one_in(25) ? random.pick(kOdd) : "report.txt");
}

Case draw_case(std::uint64_t seed) {
  Random random(seed);
  Case result;
  std::size_t columns = 0;
  const std::string text =
      random.one_in(400) ? long_table(random, columns) : table(random, columns);
  const std::string name = table_name(random);
  result.files["table.csv"] = text;
  if (name == "internal.txt" || name == "error.log" || name == "\xff\xfe.csv") {
    result.files[name] = text;
  }
  if (random.one_in(8)) result.files.try_emplace("internal.txt", "0 1 2\n1 2 3\nold");
  if (random.one_in(8)) result.files.try_emplace("error.log", "old\n");
  if (random.one_in(8)) result.files.try_emplace("report.txt", std::string(2000, 'r'));
  if (random.one_in(100)) {
    result.files.erase("internal.txt");
    result.folders.emplace_back("internal.txt");
  }
  if (random.one_in(100)) {
    result.files.erase("error.log");
    result.folders.emplace_back("error.log");
  }
  result.folders.emplace_back("folder");

  std::size_t first = 1 + random.below(columns);
  std::size_t second = 1 + random.below(columns);
  if (!random.one_in(12) && columns > 1) {
    while (first == second) second = 1 + random.below(columns);
    if (first > second) std::swap(first, second);
  }
  if (random.one_in(40)) second = columns + 1;
  result.arguments = {"--stats",
                      name,
                      report_name(random),
                      header_flag(random),
                      column(random, first),
                      column(random, second)};
  if (random.one_in(50)) {
    const std::size_t count = random.below(9);
    result.arguments.resize(count, "more");
  }
  static constexpr std::string_view kOther[] = {"--STATS", "--help", "", "--stats ", "-stats"};
  if (random.one_in(100) && !result.arguments.empty()) result.arguments[0] = random.pick(kOther);
  return result;
}

struct Outcome {
  std::string status;
  std::string output;
  std::string error;
  std::map<std::string, std::string> files;
  bool operator==(const Outcome&) const = default;
};

class Runner {
 public:
  explicit Runner(std::string program) : program_(std::move(program)) {}

  Outcome run(const Case& made) {
    folder_.clear();
    output_.clear();
    error_.clear();
    for (const auto& [name, text] : made.files) folder_.write(name, text);
    for (const std::string& name : made.folders) {
      require(mkdir(folder_.path_of(name).c_str(), 0755) == 0, name);
    }
    const int status =
        finish(start(program_, made.arguments, folder_, output_.file(), error_.file()));
    // The runtime names on standard error the exception that ended the run. Its type must be the
    // same, its text need not.
    const std::string error = error_.text();
    return {words(status), output_.text(), error.substr(0, error.find('\n')), folder_.files()};
  }

 private:
  std::string program_;
  Folder folder_;
  Stream output_;
  Stream error_;
};

std::string printable(std::string_view text) {
  std::string result;
  for (const char c : text.substr(0, 4000)) {
    char code[8];
    if (c == '\n') {
      result += "\\n\n";
    } else if (c < ' ' || c > '~') {
      std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned char>(c));
      result += code;
    } else {
      result += c;
    }
  }
  if (text.size() > 4000) result += "... of " + std::to_string(text.size()) + " bytes";
  return result;
}

void show(const char* title, const Outcome& outcome) {
  std::cout << "---- " << title << ": " << outcome.status << "\n"
            << printable(outcome.output) << "\nstandard error: " << printable(outcome.error)
            << "\n";
  for (const auto& [name, text] : outcome.files) {
    if (name != "table.csv") std::cout << printable(name) << ":\n" << printable(text) << "\n";
  }
}

void show(std::uint64_t seed, const Case& made, const Outcome& product, const Outcome& plain) {
  std::cout << "DIFFERENCE; to repeat it: VOSTREL_TEST_SEED=" << seed << " and 1 run\n";
  for (const std::string& argument : made.arguments)
    std::cout << "[" << printable(argument) << "] ";
  std::cout << "\n";
  for (const auto& [name, text] : made.files) {
    std::cout << "before, " << printable(name) << ":\n" << printable(text) << "\n";
  }
  show("program", product);
  show("plain program", plain);
}

int run(const char* product_path, const char* plain_path, std::uint64_t runs) {
  without_core_files();
  Runner product(absolute(product_path));
  Runner plain(absolute(plain_path));
  const std::uint64_t seed = chosen_seed();
  std::map<std::string, std::uint64_t> ends;
  const auto begin = std::chrono::steady_clock::now();
  for (std::uint64_t i = 0; i < runs; ++i) {
    const Case made = draw_case(seed + i);
    const Outcome one = product.run(made);
    const Outcome other = plain.run(made);
    if (one != other) {
      show(seed + i, made, one, other);
      return 1;
    }
    ++ends[one.status];
  }
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
  std::cout << runs << " runs of each program, no difference, " << time.count() << " s (";
  for (const auto& [end, count] : ends) std::cout << " " << end << ": " << count << ";";
  std::cout << " )" << std::endl;
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 4) {
    std::cout << "usage: whole_runs PROGRAM PLAIN_PROGRAM RUNS" << std::endl;
    return 2;
  }
  try {
    return run(argv[1], argv[2], std::strtoull(argv[3], nullptr, 10));
  } catch (const std::exception& failure) {
    std::cout << failure.what() << std::endl;
    return 2;
  }
}
