// The classes behind uncertainties() and bootstrap(): a sample in memory, and its resamples.

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "analysis/bootstrap.h"
#include "analysis/resample.h"
#include "python/src/calls.h"
#include "python/src/rows.h"
#include "statistics/statistics.h"

namespace py = pybind11;

namespace vostrel::python {

namespace {

// The kept objects in columns. A column is used in place if all objects are kept and it holds
// contiguous doubles. Otherwise it is copied.
class Sample {
 public:
  Sample(Numbers columns, const Arrays& masks, bool omit_nan)
      : numbers_(std::move(columns)), copies_(numbers_.size()), columns_(numbers_.size()) {
    Rows rows = rows_of(numbers_, masks, omit_nan);
    const py::gil_scoped_release release;
    count(rows);
    copy(rows);
  }

  std::size_t size() const { return n_; }
  std::size_t masked() const { return n_masked_; }
  std::size_t nan() const { return n_nan_; }
  std::span<const double> column(std::size_t i) const { return columns_.at(i); }

  // Which objects are kept, or None if all are.
  py::object kept() const {
    if (left_out_.empty()) return py::none();
    py::array_t<bool> result(static_cast<py::ssize_t>(left_out_.size()));
    std::transform(left_out_.begin(), left_out_.end(), result.mutable_data(), std::logical_not());
    return std::move(result);
  }

 private:
  void count(Rows& rows) {
    for_each_block(rows, [&](const Block&) {
      if (rows.left_out().empty()) return;
      left_out_.resize(rows.size());
      std::copy(rows.left_out().begin(), rows.left_out().end(),
                left_out_.begin() + static_cast<std::ptrdiff_t>(rows.first()));
    });
    n_ = rows.kept();
    n_masked_ = rows.masked();
    n_nan_ = rows.nan();
  }

  void copy(Rows& rows) {
    std::vector<std::size_t> copied;
    for (std::size_t c = 0; c < columns_.size(); ++c) {
      const double* const values = rows.in_place(c);
      if (left_out_.empty() && values != nullptr) {
        columns_[c] = {values, n_};
      } else {
        copied.push_back(c);
        copies_[c].reserve(n_);
      }
    }
    if (copied.empty()) return;
    for_each_block(rows, [&](const Block&) {
      for (const std::size_t c : copied) {
        copies_[c].insert(copies_[c].end(), rows.column(c).begin(), rows.column(c).end());
      }
    });
    for (const std::size_t c : copied) columns_[c] = copies_[c];
  }

  Numbers numbers_;
  std::size_t n_ = 0;
  std::size_t n_masked_ = 0;
  std::size_t n_nan_ = 0;
  std::vector<bool> left_out_;               // empty if all are kept
  std::vector<std::vector<double>> copies_;  // of the columns that can't be used in place
  std::vector<std::span<const double>> columns_;
};

py::tuple compute_statistics(const Sample& sample, const std::vector<double>& percentiles,
                             const std::vector<double>& outliers,
                             const std::vector<std::uint64_t>& absolute,
                             const std::vector<std::uint64_t>& values) {
  return numbers_with_spreads(sample.column(0), sample.column(1), {percentiles, outliers}, absolute,
                              values);
}

using Groups = py::array_t<std::uint32_t, py::array::c_style>;

class BootstrapOfSample {
 public:
  BootstrapOfSample(std::shared_ptr<Sample> sample, std::size_t estimate, std::uint64_t seed,
                    std::optional<Groups> groups, std::size_t group_count,
                    const std::vector<double>& percentiles, const std::vector<double>& outliers)
      : sample_(std::move(sample)), groups_(std::move(groups)) {
    if (sample_->size() == 0 || sample_->size() >= std::uint64_t{1} << 32) {
      throw py::value_error("a bootstrap needs from 1 to 2^32 - 1 objects");
    }
    std::span<const std::uint32_t> group_of;
    if (groups_) {
      group_of = {groups_->data(), static_cast<std::size_t>(groups_->size())};
      if (group_of.size() != sample_->size() ||
          std::any_of(group_of.begin(), group_of.end(),
                      [&](std::uint32_t group) { return group >= group_count; })) {
        throw py::value_error("each object must have a group");
      }
    }
    bootstrap_.emplace(sample_->column(0), sample_->column(estimate), seed, group_of, group_count);
    bootstrap_->ask({percentiles, outliers});
  }

  void order(bool normalized) {
    const py::gil_scoped_release release;
    bootstrap_->order(normalized, checkpoint());
  }

  std::size_t batch() const { return bootstrap_->batch(); }
  void stop() { stop_ = true; }

  // The numbers of some resamples, and their errors from moments.
  py::tuple run(std::uint64_t first, std::size_t count, bool with_errors) const {
    return arrays_of(count, [&](std::span<Replicate> results) {
      bootstrap_->run(first, results, with_errors, checkpoint());
    });
  }

  // The same of all units but one.
  py::tuple leave_out(std::uint64_t first, std::size_t count) const {
    return arrays_of(count, [&](std::span<Replicate> results) {
      bootstrap_->leave_out(first, results, checkpoint());
    });
  }

  // The errors of all objects, in shape (2, 3), and their effective numbers, in shape (2, 2).
  // @param values  bias, sigma and RMS of both residuals.
  py::tuple whole(const std::array<std::array<double, 3>, 2>& values) const {
    py::array_t<double> errors({2, 3});
    py::array_t<double> effective({2, 2});
    double* error = errors.mutable_data();
    double* number = effective.mutable_data();
    {
      const py::gil_scoped_release release;
      for (const bool normalized : {false, true}) {
        ResidualStatistics known{};
        const auto [bias, sigma, rms] = values[normalized ? 1 : 0];
        known.bias = bias;
        known.sigma = sigma;
        known.rms = rms;
        const MomentErrors found = bootstrap_->errors(normalized, known, checkpoint());
        for (const double one : {found.bias, found.log_sigma, found.log_rms}) *error++ = one;
        for (const double one : bootstrap_->effective_units(normalized, checkpoint())) {
          *number++ = one;
        }
      }
    }
    return py::make_tuple(errors, effective);
  }

 private:
  Checkpoint checkpoint() const {
    return [this] {
      check_signals();
      if (stop_) throw std::runtime_error("the bootstrap was stopped");
    };
  }

  // Calls compute(results) without the GIL. Returns the statistics in shape (count, 2, statistics),
  // the errors in shape (count, 2, 3) and LSST's metrics in shape (count, 4).
  template <class Compute>
  static py::tuple arrays_of(std::size_t count, Compute compute) {
    std::vector<Replicate> results(count);
    {
      const py::gil_scoped_release release;
      compute(std::span<Replicate>(results));
    }
    std::vector<double> numbers;
    std::vector<double> errors;
    std::vector<double> metrics;
    const auto append = [](std::vector<double>& all, const std::vector<double>& some) {
      all.insert(all.end(), some.begin(), some.end());
    };
    for (const Replicate& result : results) {
      append(numbers, numbers_of(result.statistics.delta, result.quantiles[0]));
      append(numbers, numbers_of(result.statistics.norm, result.quantiles[1]));
      append(metrics, numbers_of(result.lsst));
      for (const MomentErrors& one : result.errors) {
        append(errors, {one.bias, one.log_sigma, one.log_rms});
      }
    }
    const auto rows = static_cast<py::ssize_t>(count);
    const auto array = [](const std::vector<double>& all, std::vector<py::ssize_t> shape) {
      return py::array_t<double>(std::move(shape), all.data());
    };
    const auto length = static_cast<py::ssize_t>(count == 0 ? 0 : numbers.size() / 2 / count);
    return py::make_tuple(array(numbers, {rows, 2, length}), array(errors, {rows, 2, 3}),
                          array(metrics, {rows, 4}));
  }

  std::shared_ptr<Sample> sample_;
  std::optional<Groups> groups_;
  std::optional<Bootstrap> bootstrap_;
  std::atomic<bool> stop_ = false;
};

py::array_t<std::uint64_t> indices(std::uint64_t seed, std::uint64_t number, std::size_t size) {
  return array_of(resample_indices(seed, number, size));
}

}  // namespace

void add_bootstrap(py::module_& module) {
  py::class_<Sample, std::shared_ptr<Sample>>(module, "Sample")
      .def(py::init<Numbers, const Arrays&, bool>(), py::arg("columns"), py::arg("masks"),
           py::arg("omit_nan"))
      .def_property_readonly("n", &Sample::size)
      .def_property_readonly("n_masked", &Sample::masked)
      .def_property_readonly("n_nan", &Sample::nan)
      .def(
          "column", [](const Sample& sample, std::size_t i) { return array_of(sample.column(i)); },
          py::arg("i"))
      .def("kept", &Sample::kept)
      .def("statistics", compute_statistics, py::arg("percentiles"), py::arg("outliers"),
           py::arg("absolute"), py::arg("values"));
  py::class_<BootstrapOfSample>(module, "Bootstrap")
      .def(py::init<std::shared_ptr<Sample>, std::size_t, std::uint64_t, std::optional<Groups>,
                    std::size_t, const std::vector<double>&, const std::vector<double>&>(),
           py::arg("sample"), py::arg("estimate"), py::arg("seed"), py::arg("groups"),
           py::arg("group_count"), py::arg("percentiles"), py::arg("outliers"))
      .def("order", &BootstrapOfSample::order, py::arg("normalized"))
      .def_property_readonly("batch", &BootstrapOfSample::batch)
      .def("stop", &BootstrapOfSample::stop)
      .def("run", &BootstrapOfSample::run, py::arg("first"), py::arg("count"),
           py::arg("with_errors"))
      .def("leave_out", &BootstrapOfSample::leave_out, py::arg("first"), py::arg("count"))
      .def("whole", &BootstrapOfSample::whole, py::arg("values"));
  module.def("resample_indices", indices, py::arg("seed"), py::arg("number"), py::arg("size"));
}

}  // namespace vostrel::python
