#include "statistics/passes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "statistics/distribution.h"
#include "statistics/exact_sum.h"
#include "statistics/moments.h"
#include "statistics/residuals.h"

namespace vostrel {

namespace {

// So many objects are taken at a time.
constexpr std::size_t kBlock = 1024;

// The residuals of so few objects are kept.
constexpr std::size_t kFew = 8192;

void set_outliers(ResidualStatistics& s, const std::array<std::uint64_t, 5>& counts,
                  std::uint64_t n) {
  const auto percent = [&](std::size_t k) { return percentage(static_cast<double>(counts[k]), n); };
  s.outliers_015 = percent(0);
  s.outliers_1sigma = percent(1);
  s.outliers_2sigma = percent(2);
  s.outliers_3sigma = percent(3);
  s.outliers_4sigma = percent(4);
}

// The statistics by their definitions.
template <class Sum>
ResidualStatistics statistics_of(std::span<const double> residuals) {
  ResidualStatistics s{};
  s.bias = mean<Sum>(residuals);
  s.sigma = standard_deviation<Sum>(residuals, s.bias);
  s.rms = root_mean_square<Sum>(residuals);
  s.mad = absolute_median(residuals);
  s.nmad = s.mad * kNmadFactor;
  s.mad_delta = mad_about_median(residuals);
  set_outliers(s, count_outliers(residuals, s.sigma), residuals.size());
  return s;
}

// What the passes learn of one residual.
template <class Sum>
class Tally {
 public:
  struct FirstSums {
    Sum sum;
    Sum squares;
    void add(double residual) {
      sum.add(residual);
      squares.add(residual * residual);
    }
  };

  struct SecondSum {
    double bias = 0;
    Sum squares;
    void add(double residual) { squares.add((residual - bias) * (residual - bias)); }
  };

  FirstSums first;
  SecondSum second;
  Distribution distribution;
  std::vector<double> kept;

  void end_first_pass(double n) {
    second.bias = first.sum.total() / n;
    // sigma^2 is rms^2 - bias^2 up to rounding.
    const double square = first.squares.total() / n;
    const double variance = square - second.bias * second.bias;
    const double rounding = 1e-9 * square;
    distribution.plan(std::sqrt(std::max(variance - rounding, 0.0)),
                      std::sqrt(std::max(variance, 0.0) + rounding));
  }

  bool end_later_pass(double n) { return distribution.resolve(sigma(n)); }

  // Squares can't cancel, so their sum is NaN just when a residual is.
  bool has_nan() const { return std::isnan(first.squares.total()); }

  ResidualStatistics statistics(std::uint64_t count) const {
    const auto n = static_cast<double>(count);
    ResidualStatistics s{};
    s.bias = second.bias;
    s.sigma = sigma(n);
    s.rms = std::sqrt(first.squares.total() / n);
    s.mad = distribution.absolute_median();
    s.nmad = s.mad * kNmadFactor;
    s.mad_delta = distribution.mad_about_median();
    set_outliers(s, distribution.outliers(), count);
    return s;
  }

 private:
  double sigma(double n) const { return std::sqrt(second.squares.total() / n); }
};

}  // namespace

class Passes::State {
 public:
  State() = default;
  State(const State&) = default;
  State& operator=(const State&) = delete;
  virtual ~State() = default;
  virtual std::unique_ptr<State> copy() const = 0;
  virtual void add(std::span<const double> reference, std::span<const double> estimate) = 0;
  virtual bool end_pass() = 0;
  virtual bool needs_another_pass() const = 0;
  virtual std::uint64_t size() const = 0;
  virtual PointStatistics result() const = 0;
};

template <class Sum>
class Passes::StateWith : public Passes::State {
 public:
  std::unique_ptr<State> copy() const override { return std::make_unique<StateWith>(*this); }

  void add(std::span<const double> reference, std::span<const double> estimate) override {
    if (reference.size() != estimate.size()) {
      throw std::invalid_argument("reference and estimate differ in length");
    }
    seen_ += reference.size();
    while (!reference.empty()) {
      const std::size_t count = std::min(kBlock, reference.size());
      take(reference.first(count), estimate.first(count));
      reference = reference.subspan(count);
      estimate = estimate.subspan(count);
    }
  }

  bool end_pass() override {
    if (step_ == Step::kFirst) {
      size_ = seen_;
    } else if (seen_ != size_) {
      throw std::invalid_argument("this pass had " + std::to_string(seen_) +
                                  " objects, and the first had " + std::to_string(size_));
    }
    seen_ = 0;
    step_ = next_step();
    return needs_another_pass();
  }

  bool needs_another_pass() const override { return step_ != Step::kDone; }

  std::uint64_t size() const override { return step_ == Step::kFirst ? seen_ : size_; }

  PointStatistics result() const override {
    if (needs_another_pass()) throw std::logic_error("another pass over the data is needed");
    if (keeps_) return {size_, statistics_of<Sum>(delta_.kept), statistics_of<Sum>(norm_.kept)};
    return {size_, delta_.statistics(size_), norm_.statistics(size_)};
  }

 private:
  enum class Step { kFirst, kSecond, kLater, kKeepAll, kDone };

  void take(std::span<const double> reference, std::span<const double> estimate) {
    if (step_ == Step::kFirst && keeps_ && delta_.kept.size() + reference.size() > kFew) {
      keeps_ = false;
      count_kept(delta_);
      count_kept(norm_);
    }
    if (keeps_) {
      keep(reference, estimate);
    } else if (step_ == Step::kFirst) {
      count(reference, estimate);
    } else if (step_ == Step::kSecond) {
      sift<true>(reference, estimate);
    } else {
      sift<false>(reference, estimate);
    }
  }

  void keep(std::span<const double> reference, std::span<const double> estimate) {
    for (std::size_t i = 0; i < reference.size(); ++i) {
      delta_.kept.push_back(residual(reference[i], estimate[i]));
      norm_.kept.push_back(normalized_residual(reference[i], estimate[i]));
    }
  }

  static void count_kept(Tally<Sum>& tally) {
    for (const double residual : tally.kept) {
      tally.first.add(residual);
      tally.distribution.count(residual);
    }
    tally.kept = {};
  }

  // The sums are taken on local variables: each addition waits for the one before, and should not
  // wait for memory, too.
  void count(std::span<const double> reference, std::span<const double> estimate) {
    auto delta_sums = delta_.first;
    auto norm_sums = norm_.first;
    for (std::size_t i = 0; i < reference.size(); ++i) {
      const double delta = residual(reference[i], estimate[i]);
      const double norm = normalized_residual(reference[i], estimate[i]);
      delta_sums.add(delta);
      norm_sums.add(norm);
      delta_.distribution.count(delta);
      norm_.distribution.count(norm);
    }
    delta_.first = delta_sums;
    norm_.first = norm_sums;
  }

  template <bool kWithSums>
  void sift(std::span<const double> reference, std::span<const double> estimate) {
    auto delta_sum = delta_.second;
    auto norm_sum = norm_.second;
    // Every residual is written and stays if it is needed. A branch here would be guessed wrong.
    std::array<double, kBlock> deltas;
    std::array<double, kBlock> norms;
    std::size_t delta_count = 0;
    std::size_t norm_count = 0;
    for (std::size_t i = 0; i < reference.size(); ++i) {
      const double delta = residual(reference[i], estimate[i]);
      const double norm = normalized_residual(reference[i], estimate[i]);
      if (kWithSums) {
        delta_sum.add(delta);
        norm_sum.add(norm);
      }
      deltas[delta_count] = delta;
      norms[norm_count] = norm;
      delta_count += delta_.distribution.needs(delta);
      norm_count += norm_.distribution.needs(norm);
    }
    delta_.second = delta_sum;
    norm_.second = norm_sum;
    delta_.distribution.sift({deltas.data(), delta_count});
    norm_.distribution.sift({norms.data(), norm_count});
  }

  Step next_step() {
    if (keeps_) return Step::kDone;
    const auto n = static_cast<double>(size_);
    if (step_ == Step::kFirst) {
      if (delta_.has_nan() || norm_.has_nan()) return keep_all();
      delta_.end_first_pass(n);
      norm_.end_first_pass(n);
      return Step::kSecond;
    }
    const bool delta_done = delta_.end_later_pass(n);
    const bool norm_done = norm_.end_later_pass(n);
    if (!delta_done || !norm_done) return Step::kLater;
    if (!std::isfinite(delta_.distribution.median()) ||
        !std::isfinite(norm_.distribution.median())) {
      return keep_all();
    }
    return Step::kDone;
  }

  // The order of the objects matters for medians with NaN, also as distances from an infinity.
  Step keep_all() {
    keeps_ = true;
    return Step::kKeepAll;
  }

  Step step_ = Step::kFirst;
  std::uint64_t size_ = 0;  // of the first pass
  std::uint64_t seen_ = 0;  // in this pass
  bool keeps_ = true;
  Tally<Sum> delta_;
  Tally<Sum> norm_;
};

Passes::Passes(Sums sums) {
  (void)sums;
  state_ = std::make_unique<StateWith<InOrderSum>>();
}
Passes::Passes(const Passes& other) : state_(other.state_->copy()) {}
Passes::Passes(Passes&&) noexcept = default;
Passes& Passes::operator=(Passes other) noexcept {
  state_.swap(other.state_);
  return *this;
}
Passes::~Passes() = default;

void Passes::add(std::span<const double> reference, std::span<const double> estimate) {
  state_->add(reference, estimate);
}
bool Passes::end_pass() { return state_->end_pass(); }
bool Passes::needs_another_pass() const { return state_->needs_another_pass(); }
std::uint64_t Passes::size() const { return state_->size(); }
PointStatistics Passes::result() const { return state_->result(); }

PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate) {
  Passes passes(Sums::kInOrder);
  do {
    passes.add(reference, estimate);
  } while (passes.end_pass());
  return passes.result();
}

}  // namespace vostrel
