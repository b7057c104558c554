#include "statistics/accumulator.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "floating_point.h"
#include "statistics/distribution.h"
#include "statistics/exact_sum.h"
#include "statistics/moments.h"
#include "statistics/order_statistics.h"
#include "statistics/residuals.h"

namespace vostrel {

namespace {

// How many objects are handled at a time.
constexpr std::size_t kBlock = 1024;

// Up to this many objects, the residuals are kept.
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

template <class Sum>
constexpr bool kIsExact = std::is_same_v<Sum, ExactSum>;

// The statistics by their definitions. If residuals, or distances from an infinite median, are NaN,
// the medians depend on the order of the residuals. With exact sums, those medians are NaN.
template <class Sum>
ResidualStatistics by_definition(std::span<const double> residuals, const Checkpoint& checkpoint) {
  ResidualStatistics s{};
  s.bias = mean<Sum>(residuals);
  checkpoint();
  s.sigma = standard_deviation<Sum>(residuals, s.bias);
  checkpoint();
  s.rms = root_mean_square<Sum>(residuals);
  checkpoint();
  const double center = median(residuals);
  checkpoint();
  if (kIsExact<Sum> && std::isnan(s.rms)) {
    s.mad = s.mad_delta = kNaN;
  } else {
    s.mad = absolute_median(residuals);
    checkpoint();
    s.mad_delta =
        kIsExact<Sum> && std::isinf(center) ? kNaN : median_of_distances(residuals, center);
  }
  s.nmad = s.mad * kNmadFactor;
  checkpoint();
  set_outliers(s, count_outliers(residuals, s.sigma), residuals.size());
  checkpoint();
  return s;
}

// Room for the residuals of one block. It is not in the classes that use it, so that the compiler
// can keep their objects in registers.
struct Room {
  std::array<double, kBlock> values;
  std::array<double, kBlock> needed;
};

// ---- the sums of a block ----
//
// Sums of the first or the second pass. Sums in order are kept in local variables: each
// addition waits for the one before, and should not wait for memory too. Exact sums take a whole
// block at once.

template <class Sum>
struct FirstSums {
  Sum sum;
  Sum squares;
};

template <class Sum>
struct SecondSum {
  Sum deviations;  // squares of the deviations from the bias
  double bias = 0;
};

class InOrderBlock {
 public:
  InOrderBlock(const FirstSums<InOrderSum>& sums, double* /*room*/) : first_(sums) {}
  InOrderBlock(const SecondSum<InOrderSum>& sum, double* /*room*/) : second_(sum) {}
  void add_to_first(double residual) {
    first_.sum.add(residual);
    first_.squares.add(residual * residual);
  }
  void add_to_second(double residual) {
    second_.deviations.add((residual - second_.bias) * (residual - second_.bias));
  }
  void end(FirstSums<InOrderSum>& sums) const { sums = first_; }
  void end(SecondSum<InOrderSum>& sum) const { sum = second_; }

 private:
  FirstSums<InOrderSum> first_;
  SecondSum<InOrderSum> second_;
};

class ExactBlock {
 public:
  template <class Sums>
  ExactBlock(const Sums& /*sums*/, double* room) : values_(room) {}
  void add_to_first(double residual) { values_[count_++] = residual; }
  void add_to_second(double residual) { values_[count_++] = residual; }
  void end(FirstSums<ExactSum>& sums) {
    ExactSum::add_with_squares({values_, count_}, sums.sum, sums.squares);
  }
  void end(SecondSum<ExactSum>& sum) {
    sum.deviations.add_squares_about(sum.bias, {values_, count_});
  }

 private:
  double* values_;
  std::size_t count_ = 0;
};

// ---- one residual ----

// The state of all passes for one residual.
template <class Sum>
class Tally {
  using BlockSums = std::conditional_t<kIsExact<Sum>, ExactBlock, InOrderBlock>;

 public:
  std::vector<double> kept;

  // A block of the first pass.
  class FirstBlock {
   public:
    FirstBlock(Tally& tally, Room& room) : tally_(tally), sums_(tally.first_, room.values.data()) {}
    void add(double residual) {
      sums_.add_to_first(residual);
      tally_.distribution_.count(residual);
    }
    void end() { sums_.end(tally_.first_); }

   private:
    Tally& tally_;
    BlockSums sums_;
  };

  // A block of a later pass. Only the second pass has a sum.
  template <bool kWithSum>
  class LaterBlock {
   public:
    LaterBlock(Tally& tally, Room& room)
        : tally_(tally), sums_(tally.second_, room.values.data()), needed_(room.needed.data()) {}
    void add(double residual) {
      if (kWithSum) sums_.add_to_second(residual);
      // Every residual is written and stays if it is needed. A branch would be mispredicted.
      needed_[count_] = residual;
      count_ += tally_.distribution_.needs(residual);
    }
    void end() {
      if (kWithSum) sums_.end(tally_.second_);
      tally_.distribution_.sift({needed_, count_});
    }

   private:
    Tally& tally_;
    BlockSums sums_;
    double* needed_;
    std::size_t count_ = 0;
  };

  // Takes the kept residuals into the first pass and stops keeping them.
  void count_kept() {
    for (std::size_t first = 0; first < kept.size(); first += kBlock) {
      Room room;
      FirstBlock block(*this, room);
      for (std::size_t i = first; i < std::min(first + kBlock, kept.size()); ++i)
        block.add(kept[i]);
      block.end();
    }
    kept = std::vector<double>();  // frees the memory; {} would not
  }

  // Squares can't cancel, so their sum is NaN if and only if a residual is.
  bool has_nan() const { return std::isnan(first_.squares.total()); }

  void end_first_pass(double n) {
    second_.bias = first_.sum.total() / n;
    rms_ = std::sqrt(first_.squares.total() / n);
    has_nan_ = has_nan();
    // sigma^2 is rms^2 - bias^2 up to rounding.
    const double variance = rms_ * rms_ - second_.bias * second_.bias;
    const double rounding = 1e-9 * rms_ * rms_;
    distribution_.plan(std::sqrt(std::max(variance - rounding, 0.0)),
                       std::sqrt(std::max(variance, 0.0) + rounding));
  }

  void end_second_pass(double n) {
    sigma_ = std::sqrt(second_.deviations.total() / n);
    if (std::isnan(sigma_) && std::isfinite(rms_)) {
      throw std::invalid_argument("this pass had NaN, and the first had none");
    }
  }

  bool end_later_pass() { return distribution_.resolve(sigma_); }

  // Whether a state that was read fits this pass.
  bool is_in(bool first_pass, bool done) const {
    return distribution_.is_planned() != first_pass && (distribution_.is_known() || !done);
  }

  bool has_infinite_median() const { return !std::isfinite(distribution_.median()); }

  ResidualStatistics statistics(std::uint64_t count) const {
    ResidualStatistics s{};
    s.bias = second_.bias;
    s.sigma = sigma_;
    s.rms = rms_;
    const bool has_medians = !has_nan_ && distribution_.size() > 0;
    s.mad = has_medians ? distribution_.absolute_median() : kNaN;
    s.nmad = s.mad * kNmadFactor;
    s.mad_delta = has_medians ? distribution_.mad_about_median() : kNaN;
    set_outliers(s, distribution_.outliers(), count);
    return s;
  }

  Tally fresh() const {
    Tally fresh;
    fresh.second_.bias = second_.bias;
    fresh.rms_ = rms_;
    fresh.sigma_ = sigma_;
    fresh.has_nan_ = has_nan_;
    fresh.distribution_ = distribution_.fresh();
    return fresh;
  }

  void merge(const Tally& other) {
    distribution_.merge(other.distribution_);
    first_.sum.merge(other.first_.sum);
    first_.squares.merge(other.first_.squares);
    second_.deviations.merge(other.second_.deviations);
  }

  void write(ByteWriter& out) const {
    out.integer(kept.size());
    for (const double residual : kept) out.number(residual);
    for (const Sum* sum : {&first_.sum, &first_.squares, &second_.deviations}) sum->write(out);
    out.number(second_.bias);
    out.number(rms_);
    out.number(sigma_);
    out.integer(has_nan_);
    distribution_.write(out);
  }

  static Tally read(ByteReader& in) {
    Tally tally;
    tally.kept.resize(in.count());
    for (double& residual : tally.kept) residual = in.number();
    for (Sum* sum : {&tally.first_.sum, &tally.first_.squares, &tally.second_.deviations})
      *sum = Sum::read(in);
    tally.second_.bias = in.number();
    tally.rms_ = in.number();
    tally.sigma_ = in.number();
    tally.has_nan_ = in.index(2) == 1;
    tally.distribution_ = Distribution::read(in);
    return tally;
  }

 private:
  FirstSums<Sum> first_;
  SecondSum<Sum> second_;
  double rms_ = 0;
  double sigma_ = 0;
  bool has_nan_ = false;
  Distribution distribution_;
};

}  // namespace

// ---- the passes ----

class Accumulator::State {
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
  virtual std::unique_ptr<State> fresh() const = 0;
  virtual void merge(const State& other) = 0;
  virtual std::string to_bytes() const = 0;
  virtual PointStatistics result(const Checkpoint& checkpoint) const = 0;
};

namespace {

using State = Accumulator::State;

constexpr std::uint64_t kFormat = 2;  // of to_bytes()

template <class Sum>
class StateWith : public State {
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

  std::unique_ptr<State> fresh() const override {
    auto fresh = std::make_unique<StateWith>();
    fresh->step_ = step_;
    fresh->size_ = size_;
    fresh->keeps_ = step_ == Step::kFirst || keeps_;
    fresh->delta_ = delta_.fresh();
    fresh->norm_ = norm_.fresh();
    return fresh;
  }

  void merge(const State& state) override {
    const auto* const same_kind = dynamic_cast<const StateWith*>(&state);
    if (!kIsExact<Sum> || same_kind == nullptr) {
      throw std::invalid_argument("only states with exact sums can be merged");
    }
    if (same_kind->step_ != step_ || same_kind->size_ != size_) {
      throw std::invalid_argument("these states are not of the same pass");
    }
    StateWith other = *same_kind;
    if (keeps_ && other.keeps_ && delta_.kept.size() + other.delta_.kept.size() <= kFew) {
      delta_.kept.insert(delta_.kept.end(), other.delta_.kept.begin(), other.delta_.kept.end());
      norm_.kept.insert(norm_.kept.end(), other.norm_.kept.begin(), other.norm_.kept.end());
    } else {
      keep_no_more();
      other.keep_no_more();
      merge_tallies(other);
    }
    seen_ += other.seen_;
  }

  std::string to_bytes() const override {
    ByteWriter out;
    out.integer(kFormat);
    out.integer(kIsExact<Sum>);
    if constexpr (kIsExact<Sum>) {
      out.integer(static_cast<std::uint64_t>(step_));
      out.integer(size_);
      out.integer(seen_);
      out.integer(keeps_);
      delta_.write(out);
      norm_.write(out);
      return out.take();
    }
    throw std::invalid_argument("only states with exact sums have bytes");
  }

  static std::unique_ptr<State> read(ByteReader& in) {
    auto state = std::make_unique<StateWith>();
    state->step_ = static_cast<Step>(in.index(static_cast<std::size_t>(Step::kDone) + 1));
    state->size_ = in.integer();
    state->seen_ = in.integer();
    state->keeps_ = in.index(2) == 1;
    state->delta_ = Tally<Sum>::read(in);
    state->norm_ = Tally<Sum>::read(in);
    in.require(in.at_end() && state->delta_.kept.size() == state->norm_.kept.size());
    for (const Tally<Sum>* tally : {&state->delta_, &state->norm_}) {
      in.require(state->keeps_ ||
                 tally->is_in(state->step_ == Step::kFirst, state->step_ == Step::kDone));
    }
    return state;
  }

  PointStatistics result(const Checkpoint& checkpoint) const override {
    if (needs_another_pass()) throw std::logic_error("another pass over the data is needed");
    if (!keeps_) return {size_, delta_.statistics(size_), norm_.statistics(size_)};
    return {size_, by_definition<Sum>(delta_.kept, checkpoint),
            by_definition<Sum>(norm_.kept, checkpoint)};
  }

 private:
  enum class Step { kFirst, kSecond, kLater, kKeepAll, kDone };

  void take(std::span<const double> reference, std::span<const double> estimate) {
    if (step_ == Step::kFirst && delta_.kept.size() + reference.size() > kFew) keep_no_more();
    if (step_ == Step::kFirst && must_keep_all()) return;
    if (keeps_) {
      keep(reference, estimate);
    } else if (step_ == Step::kFirst) {
      add_block<typename Tally<Sum>::FirstBlock>(reference, estimate);
    } else if (step_ == Step::kSecond) {
      add_block<typename Tally<Sum>::template LaterBlock<true>>(reference, estimate);
    } else {
      add_block<typename Tally<Sum>::template LaterBlock<false>>(reference, estimate);
    }
  }

  void keep(std::span<const double> reference, std::span<const double> estimate) {
    for (std::size_t i = 0; i < reference.size(); ++i) {
      delta_.kept.push_back(residual(reference[i], estimate[i]));
      norm_.kept.push_back(normalized_residual(reference[i], estimate[i]));
    }
  }

  void keep_no_more() {
    keeps_ = false;
    delta_.count_kept();
    norm_.count_kept();
  }

  template <class Block>
  void add_block(std::span<const double> reference, std::span<const double> estimate) {
    Room delta_room;
    Room norm_room;
    Block delta(delta_, delta_room);
    Block norm(norm_, norm_room);
    for (std::size_t i = 0; i < reference.size(); ++i) {
      delta.add(residual(reference[i], estimate[i]));
      norm.add(normalized_residual(reference[i], estimate[i]));
    }
    delta.end();
    norm.end();
  }

  void merge_tallies(const StateWith& other) {
    if constexpr (kIsExact<Sum>) {
      delta_.merge(other.delta_);
      norm_.merge(other.norm_);
    }
  }

  Step next_step() {
    if (keeps_) return Step::kDone;
    const auto n = static_cast<double>(size_);
    if (step_ == Step::kFirst) {
      if (must_keep_all()) return keep_all();
      delta_.end_first_pass(n);
      norm_.end_first_pass(n);
      return Step::kSecond;
    }
    if (step_ == Step::kSecond) {
      delta_.end_second_pass(n);
      norm_.end_second_pass(n);
    }
    const bool delta_done = delta_.end_later_pass();
    const bool norm_done = norm_.end_later_pass();
    if (!delta_done || !norm_done) return Step::kLater;
    if (!kIsExact<Sum> && (delta_.has_infinite_median() || norm_.has_infinite_median())) {
      return keep_all();
    }
    return Step::kDone;
  }

  // Medians with NaN depend on the order of the residuals, so another pass keeps all of them.
  // Distances from an infinite median may be NaN, too.
  bool must_keep_all() const { return !kIsExact<Sum> && (delta_.has_nan() || norm_.has_nan()); }

  Step keep_all() {
    keeps_ = true;
    delta_.kept.reserve(size_);
    norm_.kept.reserve(size_);
    return Step::kKeepAll;
  }

  Step step_ = Step::kFirst;
  std::uint64_t size_ = 0;  // of the first pass
  std::uint64_t seen_ = 0;  // in this pass
  bool keeps_ = true;
  Tally<Sum> delta_;
  Tally<Sum> norm_;
};

}  // namespace

Accumulator::Accumulator(Sums sums)
    : state_(sums == Sums::kExact ? std::unique_ptr<State>(std::make_unique<StateWith<ExactSum>>())
                                  : std::make_unique<StateWith<InOrderSum>>()) {}
Accumulator::Accumulator(std::unique_ptr<State> state) : state_(std::move(state)) {}
Accumulator::Accumulator(const Accumulator& other) : state_(other.state_->copy()) {}
Accumulator::Accumulator(Accumulator&&) noexcept = default;
Accumulator& Accumulator::operator=(Accumulator other) noexcept {
  state_.swap(other.state_);
  return *this;
}
Accumulator::~Accumulator() = default;

void Accumulator::add(std::span<const double> reference, std::span<const double> estimate) {
  state_->add(reference, estimate);
}
bool Accumulator::end_pass() { return state_->end_pass(); }
bool Accumulator::needs_another_pass() const { return state_->needs_another_pass(); }
std::uint64_t Accumulator::size() const { return state_->size(); }
Accumulator Accumulator::fresh() const { return Accumulator(state_->fresh()); }
void Accumulator::merge(const Accumulator& other) { state_->merge(*other.state_); }
std::string Accumulator::to_bytes() const { return state_->to_bytes(); }
PointStatistics Accumulator::result(const Checkpoint& checkpoint) const {
  return state_->result(checkpoint);
}

Accumulator Accumulator::from_bytes(std::string_view bytes) {
  ByteReader in(bytes);
  in.require(in.integer() == kFormat && in.integer() == 1);
  return Accumulator(StateWith<ExactSum>::read(in));
}

PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate) {
  return point_statistics(reference, estimate, [] {});
}

PointStatistics point_statistics(std::span<const double> reference,
                                 std::span<const double> estimate, const Checkpoint& checkpoint) {
  if (reference.size() != estimate.size()) {
    throw std::invalid_argument("reference and estimate differ in length");
  }
  if (reference.empty()) {  // takes no memory: a run may have none left
    return {0, by_definition<InOrderSum>({}, [] {}), by_definition<InOrderSum>({}, [] {})};
  }
  Accumulator passes(Sums::kInOrder);
  do {
    for (std::size_t first = 0; first < reference.size(); first += Accumulator::kBlockSize) {
      const std::size_t count = std::min(Accumulator::kBlockSize, reference.size() - first);
      passes.add(reference.subspan(first, count), estimate.subspan(first, count));
      checkpoint();
    }
  } while (passes.end_pass());
  return passes.result(checkpoint);
}

}  // namespace vostrel
