// Benchmarks of the parts of a run: lines, reading, writing and copying numbers, medians. Beside
// most of them is the standard library's way to the same result.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "statistics/statistics.h"
#include "text/copy_number.h"
#include "text/line_reader.h"
#include "text/read_number.h"
#include "text/table_fields.h"
#include "text/write_number.h"

namespace {

constexpr int kNumbers = 10000;

std::vector<double> redshifts() {
  std::mt19937_64 generator(1);
  std::gamma_distribution<double> redshift(2.0, 0.35);
  std::vector<double> values(kNumbers);
  // Eight decimals, as catalogues have them.
  for (double& value : values) value = std::round(redshift(generator) * 1e8) / 1e8;
  return values;
}

// The numbers as lines of text, with the padding that reading requires.
std::string text_of(const std::vector<double>& values, int decimals, bool scientific = false) {
  const auto format = scientific ? std::chars_format::scientific : std::chars_format::fixed;
  std::string text;
  char number[64];
  for (const double value : values) {
    text.append(number, std::to_chars(number, number + 64, value, format, decimals).ptr);
    text += '\n';
  }
  text.append(vostrel::kTextPadding, '\0');
  return text;
}

std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  for (std::size_t start = 0; text[start] != '\0';) {
    const std::size_t end = text.find('\n', start);
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

void per_item(benchmark::State& state, std::size_t items) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(items));
}

void read_number(benchmark::State& state) {
  const std::string text = text_of(redshifts(), static_cast<int>(state.range(0)));
  const std::vector<std::string_view> lines = lines_of(text);
  for (auto _ : state) {
    for (const std::string_view line : lines) benchmark::DoNotOptimize(vostrel::read_double(line));
  }
  per_item(state, lines.size());
}
BENCHMARK(read_number)->ArgName("decimals")->Arg(6)->Arg(8)->Arg(16);

void read_number_by_atof(benchmark::State& state) {
  const std::string text = text_of(redshifts(), static_cast<int>(state.range(0)));
  const std::vector<std::string_view> lines = lines_of(text);
  for (auto _ : state) {
    for (const std::string_view line : lines) benchmark::DoNotOptimize(std::atof(line.data()));
  }
  per_item(state, lines.size());
}
BENCHMARK(read_number_by_atof)->ArgName("decimals")->Arg(6)->Arg(8)->Arg(16);

void write_number(benchmark::State& state) {
  const std::vector<double> values = redshifts();
  char text[vostrel::kNumberRoom];
  for (auto _ : state) {
    for (const double value : values) benchmark::DoNotOptimize(vostrel::write_double(value, text));
  }
  per_item(state, values.size());
}
BENCHMARK(write_number);

void write_number_by_to_chars(benchmark::State& state) {
  const std::vector<double> values = redshifts();
  char text[32];
  for (auto _ : state) {
    for (const double value : values) {
      benchmark::DoNotOptimize(
          std::to_chars(text, text + 32, value, std::chars_format::general, 6));
    }
  }
  per_item(state, values.size());
}
BENCHMARK(write_number_by_to_chars);

void write_number_by_stream(benchmark::State& state) {
  const std::vector<double> values = redshifts();
  std::ostringstream text;
  for (auto _ : state) {
    text.str("");
    for (const double value : values) text << value;
  }
  per_item(state, values.size());
}
BENCHMARK(write_number_by_stream);

void layouts_to_copy(benchmark::internal::Benchmark* copying) {
  copying->ArgNames({"decimals", "scientific"});
  copying->Args({6, 0})->Args({8, 0})->Args({16, 0})->Args({8, 1})->Args({16, 1});
}

template <class Copy>
void copy_each_number(benchmark::State& state, Copy copy) {
  const std::string text =
      text_of(redshifts(), static_cast<int>(state.range(0)), state.range(1) != 0);
  const std::vector<std::string_view> lines = lines_of(text);
  char out[vostrel::kNumberRoom];
  for (auto _ : state) {
    for (const std::string_view line : lines) benchmark::DoNotOptimize(copy(line, out));
  }
  per_item(state, lines.size());
}

void copy_number(benchmark::State& state) {
  copy_each_number(state, [](std::string_view line, char* out) {
    return vostrel::copy_number(line.data(), ',', out);
  });
}
BENCHMARK(copy_number)->Apply(layouts_to_copy);

void copy_number_by_reading_and_writing(benchmark::State& state) {
  copy_each_number(state, [](std::string_view line, char* out) {
    return vostrel::write_double(vostrel::read_double(line), out);
  });
}
BENCHMARK(copy_number_by_reading_and_writing)->Apply(layouts_to_copy);

// Column 10 of twelve.
void find_field(benchmark::State& state) {
  const std::string line =
      "1000000000,105.071278,-45.039974,23.5860,23.2766,23.4260,21.7388,20.2751,21.6756,"
      "0.42542079,0.42675867,0.570";
  const std::string text = line + '\n' + std::string(vostrel::kTextPadding, '\0');
  for (auto _ : state) benchmark::DoNotOptimize(vostrel::skip_commas(text.data(), 9));
}
BENCHMARK(find_field);

class LinesOfAFile : public benchmark::Fixture {
 public:
  void SetUp(const benchmark::State& /*state*/) override {
    std::ofstream file("parts.tmp");
    for (int i = 0; i < 100; ++i) {
      const std::string text = text_of(redshifts(), 8);
      file.write(text.data(), static_cast<std::streamsize>(text.size() - vostrel::kTextPadding));
    }
  }
  void TearDown(const benchmark::State& /*state*/) override { std::remove("parts.tmp"); }
};

BENCHMARK_F(LinesOfAFile, scan)(benchmark::State& state) {
  for (auto _ : state) {
    vostrel::LineReader file("parts.tmp");
    for (std::string_view lines; !(lines = file.next_lines()).empty();) {
      while (!lines.empty()) benchmark::DoNotOptimize(vostrel::take_line(lines));
    }
  }
  per_item(state, std::size_t{100} * kNumbers);
}

BENCHMARK_F(LinesOfAFile, scan_by_getline)(benchmark::State& state) {
  for (auto _ : state) {
    std::ifstream file("parts.tmp");
    std::string line;
    while (std::getline(file, line)) benchmark::DoNotOptimize(line);
  }
  per_item(state, std::size_t{100} * kNumbers);
}

std::vector<double> residuals(std::int64_t count) {
  std::mt19937_64 generator(1);
  std::normal_distribution<double> residual(0.004, 0.03);
  std::vector<double> values(static_cast<std::size_t>(count));
  for (double& value : values) value = residual(generator);
  return values;
}

void median(benchmark::State& state) {
  const std::vector<double> values = residuals(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(vostrel::median(values));
  per_item(state, values.size());
}
BENCHMARK(median)->ArgName("values")->RangeMultiplier(10)->Range(1000, 10000000);

void median_by_nth_element(benchmark::State& state) {
  const std::vector<double> values = residuals(state.range(0));
  for (auto _ : state) {
    std::vector<double> copy = values;
    const auto middle = copy.begin() + static_cast<std::ptrdiff_t>(copy.size() / 2);
    std::nth_element(copy.begin(), middle, copy.end());
    benchmark::DoNotOptimize(*middle);
  }
  per_item(state, values.size());
}
BENCHMARK(median_by_nth_element)->ArgName("values")->RangeMultiplier(10)->Range(1000, 10000000);

}  // namespace

BENCHMARK_MAIN();
