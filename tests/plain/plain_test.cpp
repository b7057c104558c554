// The class against the plain class, on random tables and files.

#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/plain/plain_utils.h"
#include "tests/support/bits.h"
#include "tests/support/open_utils.h"
#include "tests/support/random.h"
#include "tests/support/scratch.h"

namespace {

using namespace std::string_literals;

/// Everything that a run shows and leaves behind.
struct Traces {
  int result = -99;
  bool raised = false;
  std::string console;
  std::string internal, log, report;
  std::vector<int> id;
  std::vector<std::uint64_t> values;  // columns and residuals, bit by bit
  std::vector<std::uint64_t> statistics;

  bool operator==(const Traces&) const = default;
};

class AgainstPlain : public InScratchFolder {
 protected:
  template <typename Class>
  static Traces traces_of(Class& run) {
    for (const char* const name : {"internal.txt", "error.log", "report.txt"}) {
      std::filesystem::remove(name);
    }
    Traces traces;
    testing::internal::CaptureStdout();
    try {
      traces.result = run.loadInputFile();
      if (traces.result == 0) {
        run.loadInternalFile();
        calculate_each(run);
        run.storeStatistics();
      }
    } catch (const std::out_of_range&) {
      traces.raised = true;
    }
    traces.console = testing::internal::GetCapturedStdout();
    traces.internal = read_file("internal.txt");
    traces.log = read_file("error.log");
    traces.report = read_file("report.txt");
    if constexpr (!kTestsSignOfNaN) {
      for (std::size_t at; (at = traces.report.find("-nan")) != std::string::npos;) {
        traces.report.erase(at, 1);
      }
    }
    traces.id = run.id;
    for (const auto* vector : {&run.zspec, &run.zphot, &run.delta, &run.deltaNorm}) {
      traces.values.push_back(vector->size());
      for (const double value : *vector) traces.values.push_back(bits_without_payload(value));
    }
    for (const double value : {run.bias,
                               run.sigma,
                               run.rms,
                               run.mad,
                               run.nmad,
                               run.madDeltaz,
                               run.outliersConstant,
                               run.outliers1,
                               run.outliers2,
                               run.outliers3,
                               run.outliers4,
                               run.biasNorm,
                               run.sigmaNorm,
                               run.rmsNorm,
                               run.madNorm,
                               run.nmadNorm,
                               run.madDeltazNorm,
                               run.outliersConstantNorm,
                               run.outliers1Norm,
                               run.outliers2Norm,
                               run.outliers3Norm,
                               run.outliers4Norm}) {
      traces.statistics.push_back(bits_without_payload(value));
    }
    return traces;
  }

  static void expect_same_run(const std::string& table, int header_flag, int col1, int col2) {
    write_file("table.csv", table);
    plain::UTILS plain_run(header_flag, "table.csv", "report.txt", col1, col2);
    OpenUtils run(header_flag, "table.csv", "report.txt", col1, col2);
    const Traces expected = traces_of(plain_run);
    const Traces traces = traces_of(run);
    if (traces == expected) return;
    SCOPED_TRACE("table '" + table + "', header flag " + std::to_string(header_flag) +
                 ", columns " + std::to_string(col1) + " and " + std::to_string(col2));
    EXPECT_EQ(traces.result, expected.result);
    EXPECT_EQ(traces.raised, expected.raised);
    EXPECT_EQ(traces.console, expected.console);
    EXPECT_EQ(traces.internal, expected.internal);
    EXPECT_EQ(traces.log, expected.log);
    EXPECT_EQ(traces.report, expected.report);
    EXPECT_EQ(traces.id, expected.id);
    EXPECT_EQ(traces.values, expected.values);
    EXPECT_EQ(traces.statistics, expected.statistics);
    FAIL();
  }
};

/// Bytes that have a meaning in tables, in random order.
std::string random_bytes(Random& random) {
  static const std::string kAlphabet =
      "00112233445566778899.......,,,,,,,,,,,,,,,,,,--++eeEE  \t\t\nnaifNAINF()xXpP\r\n\n\n\n\n\n\0\xff"s;
  std::string text;
  for (std::size_t n = random.below(random.one_in(10) ? 3000 : 60); n > 0; --n) {
    text += random.pick(kAlphabet);
  }
  return text;
}

/// Rows of numbers, a few of them odd.
std::string random_table(Random& random) {
  static const std::string kOddities[] = {
      "",    "nan", "-nan", "inf",  "-inf", "-1",     "-0",       "1e400",    "0x1p3",
      "abc", " 1 ", "1e-9", "-1.0", "\t-1", "5e-324", "123456.5", "999999.5", "1\0002"s};
  const std::size_t columns = 1 + random.below(6);
  std::string text;
  for (std::size_t rows = random.below(40); rows > 0; --rows) {
    for (std::size_t column = 0; column < columns; ++column) {
      if (column != 0 && !random.one_in(200)) text += ',';
      if (random.one_in(12)) {
        text += random.pick(kOddities);
      } else if (random.one_in(2)) {
        text += std::to_string(random.below(2000)) + "." + std::to_string(random.below(100000000));
      } else {
        text += plain::write_double((random.fraction() - 0.2) * (random.one_in(3) ? 1e7 : 1.0));
      }
    }
    if (random.one_in(30)) text += ',';
    if (random.one_in(30)) text += '\r';
    if (rows != 1 || random.one_in(2)) text += '\n';
    if (random.one_in(60)) text += '\n';
  }
  return text;
}

TEST_F(AgainstPlain, MatchesOnRandomTables) {
  Random random;
  for (int i = 0; i < rounds(6000); ++i) {
    const std::string table = random.one_in(3) ? random_bytes(random) : random_table(random);
    const int header_flag = static_cast<int>(random.below(3));
    int col1 = static_cast<int>(random.below(random.one_in(4) ? 5 : 3)) + 1;
    int col2 = col1 + 1 + static_cast<int>(random.below(random.one_in(4) ? 5 : 2));
    if (random.one_in(20)) col1 = static_cast<int>(random.below(6)) - 2;
    if (random.one_in(20)) col2 = static_cast<int>(random.below(6)) - 2;
    expect_same_run(table, header_flag, col1, col2);
    if (HasFailure()) return;
  }
}

TEST_F(AgainstPlain, MatchesOnShortLinesUnderWideOnes) {
  Random random;
  for (int i = 0; i < rounds(300); ++i) {
    const std::size_t columns = 1 + random.below(300);
    std::string table(columns - 1, ',');
    table = "1" + table;
    for (std::size_t rows = random.below(6); rows > 0; --rows) {
      table += '\n';
      for (std::size_t n = 1 + random.below(20); n > 0; --n) {
        table += random.one_in(2) ? "," : std::to_string(random.below(1000));
      }
    }
    const int col1 = 1 + static_cast<int>(random.below(columns));
    const int col2 = col1 + static_cast<int>(random.below(columns));
    expect_same_run(table, static_cast<int>(random.below(2)), col1, col2);
    if (HasFailure()) return;
  }
}

TEST_F(AgainstPlain, MatchesOnRandomIntermediateFiles) {
  Random random;
  static const std::string kAlphabet =
      "0123456789012345678901234567890123.-+e   \t\n\n\n,naif#\r\0"s;
  for (int i = 0; i < rounds(6000); ++i) {
    std::string text;
    for (std::size_t n = random.below(80); n > 0; --n) text += random.pick(kAlphabet);
    // Digits in a row are kept short: the ID is only defined for what fits an int.
    for (std::size_t k = 0, run = 0; k < text.size(); ++k) {
      run = text[k] >= '0' && text[k] <= '9' ? run + 1 : 0;
      if (run == 10) {
        text[k] = '.';
        run = 0;
      }
    }
    write_file("internal.txt", text);
    plain::UTILS plain_run(0, "table.csv", "report.txt", 1, 2);
    OpenUtils run = empty_set();
    bool plain_raised = false, raised = false;
    testing::internal::CaptureStdout();
    try {
      plain_run.loadInternalFile();
    } catch (const std::out_of_range&) {
      plain_raised = true;
    }
    try {
      run.loadInternalFile();
    } catch (const std::out_of_range&) {
      raised = true;
    }
    testing::internal::GetCapturedStdout();
    SCOPED_TRACE("internal.txt '" + text + "'");
    ASSERT_EQ(raised, plain_raised);
    ASSERT_EQ(run.id, plain_run.id);
    ASSERT_EQ(run.zspec.size(), plain_run.zspec.size());
    ASSERT_EQ(run.zphot.size(), plain_run.zphot.size());
    for (std::size_t k = 0; k < run.zspec.size(); ++k) {
      ASSERT_EQ(bits_of(run.zspec[k]), bits_of(plain_run.zspec[k]));
    }
    for (std::size_t k = 0; k < run.zphot.size(); ++k) {
      ASSERT_EQ(bits_of(run.zphot[k]), bits_of(plain_run.zphot[k]));
    }
  }
}

TEST(PlainNextRow, WrapsAroundAtTheEndOfItsRange) {
  EXPECT_EQ(plain::next_row(0), 1);
  EXPECT_EQ(plain::next_row(2147483646), 2147483647);
  EXPECT_EQ(plain::next_row(2147483647), -2147483647 - 1);
  EXPECT_EQ(plain::next_row(-2147483647 - 1), -2147483647);
  EXPECT_EQ(plain::next_row(-1), 0);
}

}  // namespace
