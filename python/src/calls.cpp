#include "python/src/calls.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

namespace py = pybind11;

namespace vostrel::python {

namespace {

void check_shape(const py::array& array, py::ssize_t size) {
  if (array.ndim() != 1 || array.size() != size) {
    throw py::value_error("arrays must have one dimension and one length");
  }
}

Column column_of(const py::array& array) {
  check_shape(array, array.size());
  const py::dtype type = array.dtype();
  const bool swapped = !type.attr("isnative").cast<bool>();
  return {static_cast<const char*>(array.data()), array.strides(0), type.kind(),
          static_cast<std::size_t>(type.itemsize()), swapped};
}

Column::Source source_of(py::handle slices) {
  return [slices](std::size_t first, std::size_t count, double* buffer) {
    const py::gil_scoped_acquire hold;
    const py::array_t<double, py::array::c_style> numbers = slices.attr("read")(first, count);
    if (numbers.size() != static_cast<py::ssize_t>(count)) {
      throw std::runtime_error("the values were changed while they were read");
    }
    std::copy_n(numbers.data(), count, buffer);
    return buffer;
  };
}

// Several arrays, one after the other.
Column::Source source_of_chunks(const Arrays& arrays) {
  std::vector<Column> columns;
  std::vector<std::size_t> ends;
  for (const py::array& array : arrays) {
    columns.push_back(column_of(array));
    ends.push_back((ends.empty() ? 0 : ends.back()) + static_cast<std::size_t>(array.size()));
  }
  return [columns, ends](std::size_t first, std::size_t count, double* buffer) {
    auto chunk =
        static_cast<std::size_t>(std::upper_bound(ends.begin(), ends.end(), first) - ends.begin());
    for (double* end = buffer; count != 0; ++chunk) {
      const std::size_t part = std::min(count, ends[chunk] - first);
      const std::size_t start = chunk == 0 ? 0 : ends[chunk - 1];
      const double* const numbers = columns[chunk].read(first - start, part, end);
      if (end == buffer && part == count) return numbers;
      if (numbers != end) std::copy_n(numbers, part, end);
      first += part;
      count -= part;
      end += part;
    }
    return static_cast<const double*>(buffer);
  };
}

Column column_of(const py::object& numbers) {
  if (py::isinstance<py::array>(numbers))
    return column_of(py::reinterpret_borrow<py::array>(numbers));
  if (!py::hasattr(numbers, "arrays")) return Column(source_of(numbers));
  return Column(source_of_chunks(numbers.attr("arrays").cast<Arrays>()));
}

std::vector<Column> columns_of(const Numbers& numbers) {
  std::vector<Column> columns;
  for (const py::object& column : numbers) {
    if (py::len(column) != py::len(numbers.front())) {
      throw py::value_error("columns must have one length");
    }
    columns.push_back(column_of(column));
  }
  return columns;
}

std::vector<Mask> masks_of(const Arrays& arrays, py::ssize_t size) {
  std::vector<Mask> masks;
  for (const py::array& array : arrays) {
    check_shape(array, size);
    if (array.dtype().kind() != 'b') throw py::type_error("a mask must hold truth values");
    masks.push_back({static_cast<const char*>(array.data()), array.strides(0)});
  }
  return masks;
}

}  // namespace

Rows rows_of(const Numbers& columns, const Arrays& masks, bool omit_nan) {
  const std::size_t size = py::len(columns.at(0));
  return {size, columns_of(columns), masks_of(masks, static_cast<py::ssize_t>(size)), omit_nan};
}

void check_ranks(const std::vector<std::uint64_t>& ranks, std::size_t n) {
  for (const std::uint64_t rank : ranks) {
    if (rank >= n) throw py::value_error("a rank is not below the number of objects");
  }
}

std::vector<double> numbers_of(const ResidualStatistics& statistics, const Quantiles& q) {
  std::vector<double> numbers;
  numbers.reserve(kStatistics.size());
  for (const Statistic& statistic : kStatistics) numbers.push_back(statistics.*statistic.member);
  numbers.insert(numbers.end(), {q.median, q.sigma_68, q.sigma_iqr});
  numbers.insert(numbers.end(), q.percentiles.begin(), q.percentiles.end());
  numbers.insert(numbers.end(), q.outliers.begin(), q.outliers.end());
  return numbers;
}

std::vector<double> numbers_of(const LsstMetrics& metrics) {
  return {metrics.bias, metrics.sigma_iqr, metrics.sigma_mad, metrics.outlier_rate};
}

py::tuple numbers_of(const FoundOfBoth& found) {
  return py::make_tuple(numbers_of(found.delta), numbers_of(found.norm),
                        numbers_of(found.norm.lsst));
}

py::tuple numbers_with_spreads(std::span<const double> reference, std::span<const double> estimate,
                               const Extras& extras, const std::vector<std::uint64_t>& absolute,
                               const std::vector<std::uint64_t>& values) {
  check_ranks(absolute, reference.size());
  check_ranks(values, reference.size());
  Wanted wanted(extras);
  wanted.has_fourth = true;
  wanted.absolute = absolute;
  wanted.values = values;
  FoundOfBoth found;
  {
    const py::gil_scoped_release release;
    found = find_in_order(reference, estimate, wanted, check_signals);
  }
  const auto tuple_of_spread = [](const Spread& spread) {
    return py::make_tuple(spread.second, spread.fourth, spread.second_about, spread.fourth_about,
                          spread.absolute, spread.values);
  };
  return numbers_of(found) +
         py::make_tuple(tuple_of_spread(found.delta.spread), tuple_of_spread(found.norm.spread));
}

void check_signals() {
  using Clock = std::chrono::steady_clock;
  thread_local Clock::time_point last_look = Clock::now();
  const Clock::time_point now = Clock::now();
  if (now - last_look < std::chrono::milliseconds(50)) return;
  last_look = now;
  const py::gil_scoped_acquire hold;
  if (PyErr_CheckSignals() != 0) throw py::error_already_set();
}

}  // namespace vostrel::python
