#include "analysis/bootstrap.h"

#include <algorithm>
#include <cmath>

#include "analysis/resample.h"
#include "floating_point.h"
#include "statistics/also_for_avx2.h"

namespace vostrel {

// N numbers, added by one vector instruction if the processor has it.
template <class T, std::size_t N>
struct Bootstrap::Vector {
#ifdef __GNUC__                                                  // clang, too
  typedef T Values __attribute__((vector_size(N * sizeof(T))));  // NOLINT(modernize-use-using)
  alignas(N * sizeof(T)) Values values{};                        // with and without AVX2

  void add(const Vector& other) { values += other.values; }
  void add_byte(const Vector& other, std::size_t k) { values += other.values >> (8 * k) & 0xff; }
#else
  std::array<T, N> values{};

  void add(const Vector& other) {
    for (std::size_t k = 0; k < N; ++k) values[k] += other.values[k];
  }

  void add_byte(const Vector& other, std::size_t k) {
    for (std::size_t i = 0; i < N; ++i) values[i] += other.values[i] >> (8 * k) & 0xff;
  }
#endif
};

// The objects of a block. Numbers of the residual and of the normalized residual lie side by side:
// those of one object take three loads.
struct Bootstrap::Items {
  using Word = Vector<std::uint64_t, 2>;

  std::array<Vector<double, 4>, Resample::kBlock> x_x2;   // residuals less their centers, squares
  std::array<Vector<double, 4>, Resample::kBlock> x3_x4;  // their third and fourth powers
  std::array<Vector<std::uint64_t, 4>, Resample::kBlock> marks;  // then the first for the quantiles
  std::vector<std::array<Word, Resample::kBlock>> further;       // words for the quantiles
};

// The sums of some draws. An addition waits for the one before, so two of these are faster.
struct Bootstrap::Drawn {
  Vector<double, 4> x_x2;
  Vector<double, 4> x3_x4;
  Vector<std::uint64_t, 4> marks;

  template <bool kPowers>
  void add(const Items& items, std::size_t i) {
    x_x2.add(items.x_x2[i]);
    if constexpr (kPowers) x3_x4.add(items.x3_x4[i]);
    marks.add(items.marks[i]);
  }

  void add(const Drawn& other) {
    x_x2.add(other.x_x2);
    x3_x4.add(other.x3_x4);
    marks.add(other.marks);
  }
};

// The sums of all draws of a resample.
struct Bootstrap::Sums {
  Vector<double, 4> x_x2;
  Vector<double, 4> x3_x4;
  std::array<Vector<std::uint64_t, 4>, 8> marked;  // the first byte of all marks, and so on

  void add(const Drawn& drawn) {
    x_x2.add(drawn.x_x2);
    x3_x4.add(drawn.x3_x4);
    for (std::size_t k = 0; k < marked.size(); ++k) marked[k].add_byte(drawn.marks, k);
  }
};

// A resample, while it is drawn.
struct Bootstrap::State {
  State(std::span<std::uint8_t> counts_of_units, std::size_t words) : counts(counts_of_units) {
    marked.fill(std::vector<std::uint64_t>(words * QuantileWindows::kMarksInWord));
  }

  std::span<std::uint8_t> counts;  // of each unit
  std::array<DrawnSums, 2> sums{};
  std::array<std::vector<std::uint64_t>, 2> marked;  // for the quantiles

  // Takes the sums of both residuals apart.
  void take(const Sums& all) {
    for (std::size_t k = 0; k < 2; ++k) {
      sums[k] = {all.x_x2.values[k],
                 all.x_x2.values[2 + k],
                 all.x3_x4.values[k],
                 all.x3_x4.values[2 + k],
                 {}};
      for (std::size_t j = 0; j < all.marked.size(); ++j) {
        sums[k].marked[j] = all.marked[j].values[k];
        if (!marked[k].empty()) marked[k][j] = all.marked[j].values[2 + k];
      }
    }
  }

  void add_word(std::uint64_t word, std::size_t w, std::size_t k) {
    constexpr std::size_t kMarks = QuantileWindows::kMarksInWord;
    std::uint64_t* const counted = marked[k].data() + w * kMarks;
    for (std::size_t j = 0; j < kMarks; ++j) counted[j] += word >> (8 * j) & 0xff;
  }
};

Bootstrap::Bootstrap(std::span<const double> reference, std::span<const double> estimate,
                     std::uint64_t seed, std::span<const std::uint32_t> groups,
                     std::size_t group_count)
    : reference_(reference),
      estimate_(estimate),
      seed_(seed),
      units_{groups.empty() ? reference.size() : group_count, groups},
      parts_{Part(reference, estimate, false), Part(reference, estimate, true)} {
  group_sizes_.resize(group_count);
  for (const std::uint32_t group : groups) ++group_sizes_[group];
}

void Bootstrap::ask(const Extras& extras) { wanted_ = Wanted(extras); }

std::size_t Bootstrap::words() const {
  return parts_[0].has_quantiles && parts_[1].has_quantiles ? parts_[0].quantiles.words() : 0;
}

void Bootstrap::order(bool normalized, const Checkpoint& checkpoint) {
  Part& part = parts_[normalized ? 1 : 0];
  const WindowGuess guess(part.residuals, units_);
  part.usable = part.windows.find(part.residuals, units_, guess, checkpoint);
  if (!part.usable) return;
  if (wanted_.has_quantiles) order_quantiles(part, guess, checkpoint);
  if (!units_.are_groups()) return;
  part.groups.assign(units_.count, {});
  std::array<std::uint64_t, Resample::kBlock> marks;
  part.residuals.for_each_block(checkpoint,
                                [&](std::size_t first, std::span<const double> residuals) {
                                  part.windows.mark(residuals, marks.data());
                                  for (std::size_t i = 0; i < residuals.size(); ++i) {
                                    const double x = residuals[i] - part.windows.center();
                                    DrawnSums& group = part.groups[units_.of(first + i)];
                                    group.x += x;
                                    group.x2 += x * x;
                                    group.add_marks(marks[i]);
                                  }
                                });
}

void Bootstrap::order_quantiles(Part& part, const WindowGuess& guess,
                                const Checkpoint& checkpoint) {
  part.has_quantiles = part.quantiles.find(part.residuals, units_, guess, wanted_, checkpoint);
  if (!part.has_quantiles || !units_.are_groups()) return;
  constexpr std::size_t kMarks = QuantileWindows::kMarksInWord;
  const std::size_t words = part.quantiles.words();
  part.group_marks.assign(units_.count * words * kMarks, 0);
  std::array<std::uint64_t, Resample::kBlock> marks;
  part.residuals.for_each_block(
      checkpoint, [&](std::size_t first, std::span<const double> residuals) {
        for (std::size_t w = 0; w < words; ++w) {
          part.quantiles.mark(residuals, w, marks.data());
          for (std::size_t i = 0; i < residuals.size(); ++i) {
            std::uint32_t* const sums =
                part.group_marks.data() + (units_.of(first + i) * words + w) * kMarks;
            for (std::size_t k = 0; k < kMarks; ++k)
              sums[k] += static_cast<std::uint8_t>(marks[i] >> (8 * k));
          }
        }
      });
}

std::size_t Bootstrap::batch() const {
  if (!is_fast()) return 1;
  return std::clamp<std::size_t>((std::size_t{1} << 21) / units_.count, 8, 128);
}

void Bootstrap::load(std::size_t first, std::size_t count, bool with_powers, Items& items) const {
  items.further.resize(std::max<std::size_t>(words(), 1) - 1);
  std::array<std::array<double, Resample::kBlock>, 2> residuals;
  std::array<std::array<std::uint64_t, Resample::kBlock>, 2> marks;
  for (std::size_t k = 0; k < 2; ++k) {
    const std::span<double> block(residuals[k].data(), count);
    parts_[k].residuals.read(first, block);
    parts_[k].windows.mark(block, marks[k].data());
  }
  const std::array<double, 2> center = {parts_[0].windows.center(), parts_[1].windows.center()};
  for (std::size_t i = 0; i < count; ++i) {
    for (std::size_t k = 0; k < 2; ++k) {
      const double x = residuals[k][i] - center[k];
      items.x_x2[i].values[k] = x;
      items.x_x2[i].values[2 + k] = x * x;
      items.marks[i].values[k] = marks[k][i];
      items.marks[i].values[2 + k] = 0;
    }
  }
  for (std::size_t w = 0; w < words(); ++w) {
    for (std::size_t k = 0; k < 2; ++k) {
      parts_[k].quantiles.mark({residuals[k].data(), count}, w, marks[k].data());
      for (std::size_t i = 0; i < count; ++i) {
        if (w == 0)
          items.marks[i].values[2 + k] = marks[k][i];
        else
          items.further[w - 1][i].values[k] = marks[k][i];
      }
    }
  }
  for (std::size_t i = 0; i < count && with_powers; ++i) {
    for (std::size_t k = 0; k < 2; ++k) {
      const double x2 = items.x_x2[i].values[2 + k];
      items.x3_x4[i].values[k] = x2 * items.x_x2[i].values[k];
      items.x3_x4[i].values[2 + k] = x2 * x2;
    }
  }
}

// Adds the drawn items of a block to their counts and to the sums of a resample.
// @tparam kPowers  whether third and fourth powers are needed.
template <bool kPowers>
VOSTREL_ALSO_FOR_AVX2 void Bootstrap::add(std::span<const std::uint8_t> positions,
                                          const Items& items, std::uint8_t* counts, Sums& sums) {
  static_assert(BlockDraws::kMost <= 255);
  Drawn even;
  Drawn odd;
  std::size_t i = 0;
  for (; i + 1 < positions.size(); i += 2) {
    const std::size_t one = positions[i];
    const std::size_t other = positions[i + 1];
    ++counts[one];
    ++counts[other];
    even.add<kPowers>(items, one);
    odd.add<kPowers>(items, other);
  }
  if (i < positions.size()) {
    ++counts[positions[i]];
    even.add<kPowers>(items, positions[i]);
  }
  even.add(odd);
  sums.add(even);
}

// Adds the drawn items of a block to a resample.
void Bootstrap::draw_items(std::span<const std::uint8_t> positions, const Items& items,
                           bool with_errors, std::size_t start, Sums& sums, State& state) {
  (with_errors ? add<true> : add<false>)(positions, items, state.counts.data() + start, sums);
  for (std::size_t w = 0; w < items.further.size(); ++w) {
    Items::Word word;
    for (const std::uint8_t position : positions) word.add(items.further[w][position]);
    for (std::size_t k = 0; k < 2; ++k) state.add_word(word.values[k], w + 1, k);
  }
}

std::size_t Bootstrap::run(std::uint64_t first, std::span<Replicate> results, bool with_errors,
                           const Checkpoint& checkpoint) const {
  std::size_t by_passes = 0;
  while (!results.empty()) {
    const std::size_t count = std::min(batch(), results.size());
    by_passes += draw(first, results.first(count), with_errors, checkpoint);
    first += count;
    results = results.subspan(count);
  }
  return by_passes;
}

std::size_t Bootstrap::draw(std::uint64_t first, std::span<Replicate> results, bool with_errors,
                            const Checkpoint& checkpoint) const {
  // 8 bits are enough: more than 255 draws of one object have a probability below 10^-500.
  std::vector<std::uint8_t> all_counts(results.size() * units_.count);
  std::vector<Resample> resamples;
  std::vector<State> states;
  std::vector<Sums> sums(results.size());
  for (std::size_t k = 0; k < results.size(); ++k) {
    resamples.emplace_back(seed_, first + k, units_.count);
    states.emplace_back(std::span(all_counts).subspan(k * units_.count, units_.count), words());
  }

  const bool by_object = is_fast() && !units_.are_groups();
  Items items;
  for (std::size_t start = 0; start < units_.count; start += Resample::kBlock) {
    checkpoint();
    if (by_object)
      load(start, std::min(Resample::kBlock, units_.count - start), with_errors, items);
    for (std::size_t k = 0; k < states.size(); ++k) {
      BlockDraws draws = resamples[k].draw(start / Resample::kBlock);
      for (auto some = draws.next(); !some.empty(); some = draws.next()) {
        if (!by_object) {
          for (const std::uint8_t position : some) ++states[k].counts[start + position];
          continue;
        }
        draw_items(some, items, with_errors, start, sums[k], states[k]);
      }
    }
  }

  std::size_t by_passes = 0;
  for (std::size_t k = 0; k < results.size(); ++k) {
    if (by_object) states[k].take(sums[k]);
    if (is_fast() && units_.are_groups()) draw_groups(states[k]);
    const std::uint64_t size = units_.are_groups() ? size_of(states[k].counts) : reference_.size();
    by_passes += !judge(states[k], size, is_fast(), results[k], checkpoint);
  }
  return by_passes;
}

// Adds the sums of the groups, each as many times as it is drawn.
void Bootstrap::draw_groups(State& state) const {
  for (std::size_t k = 0; k < 2; ++k) {
    for (std::size_t g = 0; g < units_.count; ++g) {
      state.sums[k].add(parts_[k].groups[g], state.counts[g]);
    }
  }
  for (std::size_t g = 0; g < units_.count; ++g) add_marks_of(g, state.counts[g], state);
}

// Adds the marks of an object or of a group some times, which may be negative.
void Bootstrap::add_marks_of(std::size_t unit, int times, State& state) const {
  constexpr std::size_t kMarks = QuantileWindows::kMarksInWord;
  for (std::size_t k = 0; k < 2; ++k) {
    std::vector<std::uint64_t>& marked = state.marked[k];
    const auto factor = static_cast<std::uint64_t>(times);
    if (units_.are_groups()) {
      const std::uint32_t* const marks = parts_[k].group_marks.data() + unit * marked.size();
      for (std::size_t i = 0; i < marked.size(); ++i) marked[i] += factor * marks[i];
      continue;
    }
    const double residual = parts_[k].residuals[unit];
    for (std::size_t i = 0; i < marked.size(); i += kMarks) {
      std::uint64_t marks = 0;
      parts_[k].quantiles.mark({&residual, 1}, i / kMarks, &marks);
      for (std::size_t j = 0; j < kMarks; ++j) marked[i + j] += factor * (marks >> (8 * j) & 0xff);
    }
  }
}

std::uint64_t Bootstrap::size_of(std::size_t unit) const {
  return units_.are_groups() ? group_sizes_[unit] : 1;
}

std::uint64_t Bootstrap::size_of(std::span<const std::uint8_t> counts) const {
  std::uint64_t size = 0;
  for (std::size_t unit = 0; unit < counts.size(); ++unit) size += counts[unit] * size_of(unit);
  return size;
}

// Returns false if Accumulator had to compute the statistics.
bool Bootstrap::judge(const State& state, std::uint64_t size, bool fast, Replicate& result,
                      const Checkpoint& checkpoint) const {
  PointStatistics& statistics = result.statistics;
  statistics.n = size;
  const std::array<ResidualStatistics*, 2> values = {&statistics.delta, &statistics.norm};
  for (std::size_t k = 0; k < 2 && fast; ++k) {
    fast = parts_[k].windows.evaluate(state.sums[k], state.counts, size, *values[k]);
  }
  if (!fast) {
    compute_by_passes(state.counts, result, checkpoint);
    return false;
  }
  for (std::size_t k = 0; k < 2; ++k) {
    result.errors[k] = errors_from_sums(parts_[k], state.sums[k], state.counts, *values[k], size);
  }
  if (!wanted_.has_quantiles || judge_quantiles(state, size, result)) return true;
  const FoundOfBoth found = find_by_passes(state.counts, checkpoint);
  result.quantiles = {found.delta.quantiles, found.norm.quantiles};
  result.lsst = found.norm.lsst;
  return false;
}

// Returns false if the windows don't have them.
bool Bootstrap::judge_quantiles(const State& state, std::uint64_t size, Replicate& result) const {
  if (words() == 0) return false;
  const std::array<const ResidualStatistics*, 2> values = {&result.statistics.delta,
                                                           &result.statistics.norm};
  for (std::size_t k = 0; k < 2; ++k) {
    Found found;
    found.statistics = *values[k];
    if (!parts_[k].quantiles.evaluate(state.marked[k], state.counts, size, found)) return false;
    result.quantiles[k] = std::move(found.quantiles);
    result.lsst = found.lsst;  // in the end of the normalized residual
  }
  return true;
}

// The sums of one object or of one group.
DrawnSums Bootstrap::sums_of(const Part& part, std::size_t unit) const {
  if (units_.are_groups()) return part.groups[unit];
  const double residual = part.residuals[unit];
  std::uint64_t marks = 0;
  part.windows.mark({&residual, 1}, &marks);
  const double x = residual - part.windows.center();
  DrawnSums sums{x, x * x, x * x * x, x * x * (x * x), {}};
  sums.add_marks(marks);
  return sums;
}

void Bootstrap::leave_out(std::uint64_t first, std::span<Replicate> results,
                          const Checkpoint& checkpoint) const {
  std::vector<std::uint8_t> counts(units_.count, 1);
  State whole(counts, words());
  for (std::size_t i = 0; i < units_.count && is_fast(); ++i) {
    if (i % 65536 == 0) checkpoint();
    for (std::size_t k = 0; k < 2; ++k) whole.sums[k].add(sums_of(parts_[k], i), 1);
    add_marks_of(i, 1, whole);
  }
  for (Replicate& result : results) {
    checkpoint();
    counts[first] = 0;
    State state = whole;
    bool fast = is_fast();
    for (std::size_t k = 0; k < 2 && fast; ++k) {
      state.sums[k].add(sums_of(parts_[k], first), -1);
      fast = state.sums[k].x2 > 0.1 * whole.sums[k].x2;  // else too many digits cancel
    }
    if (fast) add_marks_of(first, -1, state);
    judge(state, reference_.size() - size_of(first), fast, result, checkpoint);
    counts[first++] = 1;
  }
}

MomentErrors Bootstrap::errors(bool normalized, const ResidualStatistics& values,
                               const Checkpoint& checkpoint) const {
  const std::vector<std::uint8_t> counts(units_.count, 1);
  return errors_by_definition(parts_[normalized ? 1 : 0], counts, values, checkpoint);
}

FoundOfBoth Bootstrap::find_by_passes(std::span<const std::uint8_t> counts,
                                      const Checkpoint& checkpoint) const {
  constexpr std::size_t kMost = 255;  // times that an object can be drawn
  std::vector<double> reference(Accumulator::kBlockSize + kMost);
  std::vector<double> estimate(Accumulator::kBlockSize + kMost);
  InOrderAccumulator passes(wanted_);
  do {
    std::size_t filled = 0;
    const auto add_filled = [&] {
      checkpoint();
      passes.add({reference.data(), filled}, {estimate.data(), filled});
      filled = 0;
    };
    for (std::size_t i = 0; i < reference_.size(); ++i) {
      const std::size_t count = counts[units_.of(i)];
      // Mostly an object is drawn at most three times. Three copies without a branch, which would
      // be hard to predict, are faster. The next object overwrites those that are too many.
      const std::size_t copies = std::max<std::size_t>(count, 3);
      for (std::size_t k = 0; k < copies; ++k) {
        reference[filled + k] = reference_[i];
        estimate[filled + k] = estimate_[i];
      }
      filled += count;
      if (filled >= Accumulator::kBlockSize) add_filled();
    }
    add_filled();
  } while (passes.end_pass());
  return passes.result(checkpoint);
}

void Bootstrap::compute_by_passes(std::span<const std::uint8_t> counts, Replicate& result,
                                  const Checkpoint& checkpoint) const {
  const FoundOfBoth found = find_by_passes(counts, checkpoint);
  result.statistics = found.point();
  result.quantiles = {found.delta.quantiles, found.norm.quantiles};
  result.lsst = found.norm.lsst;
  result.errors = {errors_by_definition(parts_[0], counts, result.statistics.delta, checkpoint),
                   errors_by_definition(parts_[1], counts, result.statistics.norm, checkpoint)};
}

namespace {

// The errors from the variances of three sums over a resample of n objects.
MomentErrors errors_of(const ResidualStatistics& values, double n, double of_residuals,
                       double of_squares_about, double of_squares) {
  const auto log_error = [n](double variance, double value) {
    return std::sqrt(std::max(variance, 0.0)) / n / (2 * value * value);
  };
  return {std::sqrt(of_residuals) / n, log_error(of_squares_about, values.sigma),
          log_error(of_squares, values.rms)};
}

}  // namespace

// The variance of (x + a)^2 follows from sums of powers of x. That of a group's sum follows from
// the sums of its x and x^2.
MomentErrors Bootstrap::errors_from_sums(const Part& part, const DrawnSums& sums,
                                         std::span<const std::uint8_t> counts,
                                         const ResidualStatistics& values,
                                         std::uint64_t size) const {
  const auto n = static_cast<double>(size);
  const double center = part.windows.center();
  const double mean = values.bias - center;
  if (!units_.are_groups()) {
    const double second = sums.x2 / n;
    const auto of_squares = [&](double a) {
      return sums.x4 - second * sums.x2 + 4 * a * (sums.x3 - second * sums.x) +
             4 * a * a * (sums.x2 - sums.x * sums.x / n);
    };
    return errors_of(values, n, n * values.sigma * values.sigma, of_squares(-mean),
                     of_squares(center));
  }
  double of_sums = 0;
  double of_squares_about = 0;
  double of_squares = 0;
  const double variance = values.sigma * values.sigma;
  const double square = values.rms * values.rms;
  for (std::size_t g = 0; g < units_.count; ++g) {
    const DrawnSums& group = part.groups[g];
    const auto times = static_cast<double>(counts[g]);
    const auto objects = static_cast<double>(group_sizes_[g]);
    const double sum = group.x - objects * mean;
    const double about = group.x2 - 2 * mean * group.x + objects * (mean * mean - variance);
    const double zero = group.x2 + 2 * center * group.x + objects * (center * center - square);
    of_sums += times * sum * sum;
    of_squares_about += times * about * about;
    of_squares += times * zero * zero;
  }
  return errors_of(values, n, of_sums, of_squares_about, of_squares);
}

// Calls use(unit, sum) for the sum of some function of the residuals over each unit.
template <class Function, class Use>
void Bootstrap::for_each_unit(const Part& part, const Checkpoint& checkpoint, Function function,
                              Use use) const {
  std::vector<double> sums(units_.are_groups() ? units_.count : 0);
  part.residuals.for_each_block(checkpoint,
                                [&](std::size_t first, std::span<const double> residuals) {
                                  for (std::size_t i = 0; i < residuals.size(); ++i) {
                                    const double value = function(residuals[i]);
                                    if (units_.are_groups()) {
                                      sums[units_.of(first + i)] += value;
                                    } else {
                                      use(first + i, value);
                                    }
                                  }
                                });
  for (std::size_t g = 0; g < sums.size(); ++g) use(g, sums[g]);
}

MomentErrors Bootstrap::errors_by_definition(const Part& part, std::span<const std::uint8_t> counts,
                                             const ResidualStatistics& values,
                                             const Checkpoint& checkpoint) const {
  const auto variance_of = [&](auto function) {
    double sum = 0;
    for_each_unit(part, checkpoint, function,
                  [&](std::size_t unit, double value) { sum += counts[unit] * value * value; });
    return sum;
  };
  const double bias = values.bias;
  const double variance = values.sigma * values.sigma;
  const double square = values.rms * values.rms;
  return errors_of(values, static_cast<double>(size_of(counts)),
                   variance_of([=](double r) { return r - bias; }),
                   variance_of([=](double r) { return (r - bias) * (r - bias) - variance; }),
                   variance_of([=](double r) { return r * r - square; }));
}

std::array<double, 2> Bootstrap::effective_units(bool normalized,
                                                 const Checkpoint& checkpoint) const {
  const Part& part = parts_[normalized ? 1 : 0];
  const auto mean_of = [&](auto function) {
    double sum = 0;
    for_each_unit(part, checkpoint, function, [&](std::size_t, double value) { sum += value; });
    return sum / static_cast<double>(part.residuals.size());
  };
  const auto effective = [&](double center) {
    const auto square = [=](double r) { return (r - center) * (r - center); };
    const double mean_square = mean_of(square);
    double sum = 0;
    double squares = 0;
    for_each_unit(
        part, checkpoint, [=](double r) { return square(r) - mean_square; },
        [&](std::size_t, double value) {
          sum += value * value;
          squares += value * value * (value * value);
        });
    return sum * sum / squares;
  };
  return {effective(mean_of([](double r) { return r; })), effective(0)};
}

}  // namespace vostrel
