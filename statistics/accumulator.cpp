#include "statistics/accumulator.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "floating_point.h"
#include "statistics/basic_accumulator.h"
#include "statistics/checksum.h"

namespace vostrel {

namespace {

// Up to this many objects are kept.
constexpr std::size_t kFew = 8192;

constexpr std::uint64_t kFormat = 7;  // of to_bytes()

}  // namespace

// ---- a pass ----

template <class Sum>
void BasicAccumulator<Sum>::add(std::span<const double> reference,
                                std::span<const double> estimate) {
  if (reference.size() != estimate.size()) {
    throw std::invalid_argument("reference and estimate differ in length");
  }
  seen_ += reference.size();
  in_blocks(
      kMostInBlock,
      [this](std::span<const double> references, std::span<const double> estimates) {
        take(references, estimates);
      },
      reference, estimate);
}

template <class Sum>
void BasicAccumulator<Sum>::take(std::span<const double> reference,
                                 std::span<const double> estimate) {
  if (step_ == Step::kFirst) {
    if (keeps_ && kept_[0].size() + reference.size() > kFew) keep_no_more();
    if (must_keep_all()) return;
  }
  if (keeps_) {
    if constexpr (kIsExact<Sum>) seen_checksum_ += checksum(reference, estimate);
    kept_[0].insert(kept_[0].end(), reference.begin(), reference.end());
    kept_[1].insert(kept_[1].end(), estimate.begin(), estimate.end());
  } else if (step_ == Step::kFirst) {
    seen_checksum_ += Tally<Sum>::add_first(delta_, norm_, {reference, estimate}, wanted_);
  } else {
    seen_checksum_ += Tally<Sum>::add_later(delta_, norm_, {reference, estimate}, wanted_,
                                            step_ == Step::kSecond);
  }
}

// Takes the kept objects into the first pass. Their checksum was taken when they were kept.
template <class Sum>
void BasicAccumulator<Sum>::keep_no_more() {
  keeps_ = false;
  const std::vector<double> references = std::exchange(kept_[0], std::vector<double>());
  const std::vector<double> estimates = std::exchange(kept_[1], std::vector<double>());
  in_blocks(
      kMostInBlock,
      [this](std::span<const double> reference, std::span<const double> estimate) {
        Tally<Sum>::add_first(delta_, norm_, {reference, estimate}, wanted_);
      },
      references, std::span(estimates));
}

template <class Sum>
bool BasicAccumulator<Sum>::end_pass() {
  if (step_ == Step::kFirst) {
    size_ = seen_;
    checksum_ = seen_checksum_;
  } else if (seen_ != size_) {
    throw std::invalid_argument("the data changed between passes: this pass had " +
                                std::to_string(seen_) + " objects, and the first had " +
                                std::to_string(size_));
  } else if (seen_checksum_ != checksum_) {
    throw std::invalid_argument("the data changed between passes");
  }
  seen_ = seen_checksum_ = 0;
  step_ = next_step();
  return needs_another_pass();
}

template <class Sum>
typename BasicAccumulator<Sum>::Step BasicAccumulator<Sum>::next_step() {
  if (keeps_) {
    for (std::size_t i = 0; i < kept_[0].size(); ++i) {
      const double reference = kept_[0][i];
      const double estimate = kept_[1][i];
      kept_[0][i] = residual(reference, estimate);
      kept_[1][i] = normalized_residual(reference, estimate);
    }
    return Step::kDone;
  }
  if (step_ == Step::kFirst) {
    if (must_keep_all()) return keep_all();
    delta_.end_first_pass(size_, wanted_);
    norm_.end_first_pass(size_, wanted_);
    return Step::kSecond;
  }
  if (step_ == Step::kSecond) {
    delta_.end_second_pass(size_);
    norm_.end_second_pass(size_);
  }
  const bool delta_needs = delta_.end_later_pass(wanted_);
  const bool norm_needs = norm_.end_later_pass(wanted_);
  if (delta_needs || norm_needs) return Step::kLater;
  // Distances from an infinite median may be NaN.
  if (!kIsExact<Sum> &&
      (delta_.has_infinite_median(wanted_) || norm_.has_infinite_median(wanted_))) {
    return keep_all();
  }
  return Step::kDone;
}

// Medians with NaN depend on the order of the residuals, so another pass keeps all objects.
template <class Sum>
typename BasicAccumulator<Sum>::Step BasicAccumulator<Sum>::keep_all() {
  keeps_ = true;
  kept_[0].reserve(size_);
  kept_[1].reserve(size_);
  return Step::kKeepAll;
}

template <class Sum>
bool BasicAccumulator<Sum>::has_nan() const {
  const auto has_nan = [](const std::vector<double>& column) {
    return std::any_of(column.begin(), column.end(),
                       [](double value) { return std::isnan(value); });
  };
  return sums_have_nan() || std::any_of(kept_.begin(), kept_.end(), has_nan);
}

template <class Sum>
FoundOfBoth BasicAccumulator<Sum>::result(const Checkpoint& checkpoint) const {
  if (needs_another_pass()) throw std::logic_error("another pass over the data is needed");
  if (!keeps_) return {size_, delta_.found(size_, wanted_), norm_.found(size_, wanted_)};
  return {size_, by_definition<Sum>(kept_[0], wanted_, checkpoint),
          by_definition<Sum>(kept_[1], wanted_, checkpoint)};
}

// ---- states ----

template <class Sum>
BasicAccumulator<Sum> BasicAccumulator<Sum>::fresh() const {
  BasicAccumulator fresh(wanted_);
  fresh.step_ = step_;
  fresh.size_ = size_;
  fresh.checksum_ = checksum_;
  fresh.keeps_ = step_ == Step::kFirst || keeps_;
  fresh.delta_ = delta_.fresh();
  fresh.norm_ = norm_.fresh();
  return fresh;
}

template <class Sum>
void BasicAccumulator<Sum>::merge(const BasicAccumulator& other) {
  if (other.step_ != step_ || other.size_ != size_ || other.checksum_ != checksum_) {
    throw std::invalid_argument("states belong to different passes");
  }
  if (other.wanted_ != wanted_) throw std::invalid_argument("states have different extras");
  BasicAccumulator added = other;
  if (keeps_ && added.keeps_ && kept_[0].size() + added.kept_[0].size() <= kFew) {
    kept_[0].insert(kept_[0].end(), added.kept_[0].begin(), added.kept_[0].end());
    kept_[1].insert(kept_[1].end(), added.kept_[1].begin(), added.kept_[1].end());
  } else {
    if (keeps_) keep_no_more();
    if (added.keeps_) added.keep_no_more();
    delta_.merge(added.delta_);
    norm_.merge(added.norm_);
  }
  seen_ += other.seen_;
  seen_checksum_ += other.seen_checksum_;
}

template <class Sum>
std::string BasicAccumulator<Sum>::to_bytes() const {
  ByteWriter out;
  out.integer(kFormat);
  wanted_.write(out);
  out.integer(static_cast<std::uint64_t>(step_));
  for (const std::uint64_t number : {size_, checksum_, seen_, seen_checksum_}) out.integer(number);
  out.integer(keeps_);
  out.numbers(kept_[0]);
  out.numbers(kept_[1]);
  delta_.write(out);
  norm_.write(out);
  return out.take();
}

template <class Sum>
BasicAccumulator<Sum> BasicAccumulator<Sum>::from_bytes(std::string_view bytes) {
  ByteReader in(bytes);
  in.require(in.integer() == kFormat);
  BasicAccumulator state(Wanted::read(in));
  state.step_ = static_cast<Step>(in.index(static_cast<std::size_t>(Step::kDone) + 1));
  for (std::uint64_t* number :
       {&state.size_, &state.checksum_, &state.seen_, &state.seen_checksum_}) {
    *number = in.integer();
  }
  state.keeps_ = in.index(2) == 1;
  state.kept_[0] = in.numbers();
  state.kept_[1] = in.numbers();
  state.delta_ = Tally<Sum>::read(in);
  state.norm_ = Tally<Sum>::read(in);
  in.require(in.at_end() && state.kept_[0].size() == state.kept_[1].size());
  for (const Tally<Sum>* tally : {&state.delta_, &state.norm_}) {
    in.require(state.keeps_ ||
               tally->fits(state.step_ == Step::kFirst, state.step_ == Step::kDone, state.wanted_));
  }
  return state;
}

template class BasicAccumulator<InOrderSum>;
template class BasicAccumulator<ExactSum>;

// ---- the public class ----

class Accumulator::State : public ExactAccumulator {
 public:
  using ExactAccumulator::ExactAccumulator;
  explicit State(ExactAccumulator state) : ExactAccumulator(std::move(state)) {}
};

Accumulator::Accumulator() : state_(std::make_unique<State>()) {}
Accumulator::Accumulator(const Extras& extras) : state_(std::make_unique<State>(Wanted(extras))) {}
Accumulator::Accumulator(std::unique_ptr<State> state) : state_(std::move(state)) {}
Accumulator::Accumulator(const Accumulator& other)
    : state_(std::make_unique<State>(*other.state_)) {}
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
Accumulator Accumulator::fresh() const {
  return Accumulator(std::make_unique<State>(state_->fresh()));
}
void Accumulator::merge(const Accumulator& other) { state_->merge(*other.state_); }
std::string Accumulator::to_bytes() const { return state_->to_bytes(); }
Accumulator Accumulator::from_bytes(std::string_view bytes) {
  return Accumulator(std::make_unique<State>(ExactAccumulator::from_bytes(bytes)));
}
PointStatistics Accumulator::result(const Checkpoint& checkpoint) const {
  return state_->result(checkpoint).point();
}
ExtendedStatistics Accumulator::extended_result(const Checkpoint& checkpoint) const {
  if (!state_->wanted().has_quantiles) {
    throw std::logic_error("the accumulator was made without extras");
  }
  return state_->result(checkpoint).extended();
}

}  // namespace vostrel
