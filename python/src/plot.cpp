#include "python/src/plot.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "statistics/statistics.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

using Values = py::array_t<double, py::array::c_style>;

std::span<const double> span_of(const Values& values) {
  if (values.ndim() != 1) throw py::value_error("an array must have one dimension");
  return {values.data(), static_cast<std::size_t>(values.size())};
}

Values array_of(const std::vector<double>& values) {
  return Values(static_cast<py::ssize_t>(values.size()), values.data());
}

// ---- rows of the intermediate file --------------------------------------------------------------

// Reads "NUMBER NUMBER NUMBER\n" and moves `at` behind it, or returns false.
bool read_row(const char*& at, const char* end, double& second, double& third) {
  double first = 0.0;
  const std::pair<double*, char> fields[] = {{&first, ' '}, {&second, ' '}, {&third, '\n'}};
  for (const auto& [value, separator] : fields) {
    const auto [behind, error] = std::from_chars(at, end, *value);
    if (error != std::errc() || behind == end || *behind != separator) return false;
    at = behind + 1;
  }
  return true;
}

// The second and third numbers of the rows from `start` on, up to the first that doesn't have the
// form in which the program writes rows, and where that one starts.
py::tuple read_rows(const py::bytes& block, std::size_t start) {
  const auto text = static_cast<std::string_view>(block);
  if (start > text.size()) throw py::value_error("the start lies beyond the block");
  std::vector<double> reference;
  std::vector<double> estimate;
  const char* at = text.data() + start;
  const char* const end = text.data() + text.size();
  {
    const py::gil_scoped_release release;
    for (const char* row = at; row != end; at = row) {
      double second = 0.0;
      double third = 0.0;
      if (!read_row(row, end, second, third)) break;
      reference.push_back(second);
      estimate.push_back(third);
    }
  }
  return py::make_tuple(array_of(reference), array_of(estimate), at - text.data());
}

// ---- medians in bins ----------------------------------------------------------------------------

// How much of a normal distribution lies above one standard deviation.
constexpr double kTail = 0.15865525393145707;

// The greatest rank r, counted from 0, such that the median lies below the value of rank r among n
// values with a probability of kTail at most. That is the probability of r heads or fewer in n
// throws of a coin. 0 when there is no such rank.
std::size_t rank_of_bound(std::size_t n) {
  const auto throws = static_cast<double>(n);
  if (n > 1000) {  // the normal approximation, with its correction for whole numbers
    return static_cast<std::size_t>((throws - std::sqrt(throws)) / 2.0 - 0.5);
  }
  double probability = std::ldexp(1.0, -static_cast<int>(n));
  double sum = probability;
  std::size_t rank = 0;
  for (;;) {
    const auto heads = static_cast<double>(rank);
    probability *= (throws - heads) / (heads + 1.0);
    sum += probability;
    if (sum > kTail) return rank;
    ++rank;
  }
}

struct Bounded {
  double median;
  double low;
  double high;
};

// The median and the bounds of its confidence interval. Requires values. Reorders them.
Bounded median_with_bounds(std::span<double> values) {
  const auto of_rank = [&](std::size_t rank) {
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(rank);
    std::nth_element(values.begin(), place, values.end());
    return *place;
  };
  const std::size_t rank = rank_of_bound(values.size());
  const double middle = median(values);
  return {middle, of_rank(rank), of_rank(values.size() - 1 - rank)};
}

// Pairs of values, sorted into bins but not within them.
class Sorted {
 public:
  Sorted(std::span<const double> by, std::span<const double> edges)
      : bin_of_(by.size()), starts_(edges.size(), 0), values_(by.size()) {
    // An object on an edge between two bins is in the upper one.
    const std::span<const double> inner = edges.subspan(1, edges.size() - 2);
    for (std::size_t i = 0; i < by.size(); ++i) {
      bin_of_[i] = static_cast<std::uint16_t>(std::upper_bound(inner.begin(), inner.end(), by[i]) -
                                              inner.begin());
      ++starts_[bin_of_[i] + std::size_t{1}];
    }
    for (std::size_t i = 1; i < starts_.size(); ++i) starts_[i] += starts_[i - 1];
  }

  void fill(std::span<const double> values) {
    std::vector<std::size_t> next = starts_;
    for (std::size_t i = 0; i < values.size(); ++i) values_[next[bin_of_[i]]++] = values[i];
  }

  std::span<double> bin(std::size_t i) {
    return std::span<double>(values_).subspan(starts_[i], starts_[i + 1] - starts_[i]);
  }

 private:
  std::vector<std::uint16_t> bin_of_;
  std::vector<std::size_t> starts_;
  std::vector<double> values_;
};

// (counts, rows). Rows: the median of `by`; the median of `values` and its bounds; the NMAD of
// `values` and its bounds. A column for each bin, NaN where it is empty.
py::tuple medians_in_bins(const Values& by, const Values& values,
                          const std::vector<double>& edges) {
  const std::span<const double> keys = span_of(by);
  const std::span<const double> numbers = span_of(values);
  if (keys.size() != numbers.size()) throw py::value_error("arrays must have one length");
  if (edges.size() < 2 || edges.size() > 0xffff) {
    throw py::value_error("there must be two edges or more, and not too many");
  }
  const std::size_t bins = edges.size() - 1;
  py::array_t<std::uint64_t> counts(static_cast<py::ssize_t>(bins));
  Values rows({std::size_t{7}, bins});
  std::uint64_t* const count = counts.mutable_data();
  double* const row = rows.mutable_data();
  std::fill_n(row, 7 * bins, std::nan(""));
  const auto put = [&](std::size_t first, std::size_t bin, const Bounded& bounded, double factor) {
    row[first * bins + bin] = factor * bounded.median;
    row[(first + 1) * bins + bin] = factor * bounded.low;
    row[(first + 2) * bins + bin] = factor * bounded.high;
  };
  {
    const py::gil_scoped_release release;
    Sorted sorted(keys, edges);
    sorted.fill(keys);
    for (std::size_t i = 0; i < bins; ++i) row[i] = median(sorted.bin(i));
    sorted.fill(numbers);
    for (std::size_t i = 0; i < bins; ++i) {
      const std::span<double> bin = sorted.bin(i);
      count[i] = bin.size();
      if (bin.empty()) continue;
      put(1, i, median_with_bounds(bin), 1.0);
      for (double& value : bin) value = std::fabs(value);
      put(4, i, median_with_bounds(bin), kNmadFactor);
    }
  }
  return py::make_tuple(counts, rows);
}

// ---- the program's numbers ----------------------------------------------------------------------

py::tuple tuple_of(const ResidualStatistics& statistics) {
  py::tuple result(kStatistics.size());
  for (std::size_t i = 0; i < kStatistics.size(); ++i) {
    result[i] = statistics.*kStatistics[i].member;
  }
  return result;
}

// (delta, norm), whatever NaN there are.
py::tuple program_statistics(const Values& reference, const Values& estimate) {
  PointStatistics statistics{};
  {
    const std::span<const double> references = span_of(reference);
    const std::span<const double> estimates = span_of(estimate);
    const py::gil_scoped_release release;
    statistics = vostrel::point_statistics(references, estimates);
  }
  return py::make_tuple(tuple_of(statistics.delta), tuple_of(statistics.norm));
}

}  // namespace

void add_plot(py::module_& module) {
  module.def("read_rows", read_rows, py::arg("block"), py::arg("start"));
  module.def("medians_in_bins", medians_in_bins, py::arg("by"), py::arg("values"),
             py::arg("edges"));
  module.def("program_statistics", program_statistics, py::arg("reference"), py::arg("estimate"));
}

}  // namespace vostrel::python
