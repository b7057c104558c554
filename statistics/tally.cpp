#include "statistics/tally.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "statistics/checksum.h"

namespace vostrel {

namespace {

void set_outliers(ResidualStatistics& s, const std::array<std::uint64_t, 5>& counts,
                  std::uint64_t n) {
  for (std::size_t k = 0; k < counts.size(); ++k) {
    const Statistic& outliers = kStatistics[kStatistics.size() - counts.size() + k];
    s.*outliers.member = percentage(static_cast<double>(counts[k]), n);
  }
}

void set_quantiles_nan(Found& found, const Wanted& wanted) {
  found.quantiles.median = found.quantiles.sigma_68 = found.quantiles.sigma_iqr = kNaN;
  found.quantiles.percentiles.assign(wanted.extras.percentiles.size(), kNaN);
  found.lsst = {kNaN, kNaN, kNaN, kNaN};
}

}  // namespace

Wanted::Wanted(Extras asked_for) : extras(std::move(asked_for)), has_quantiles(true) {
  for (const double percent : extras.percentiles) {
    if (!(percent >= 0 && percent <= 100)) {
      throw std::invalid_argument("percentiles must lie between 0 and 100");
    }
  }
  for (const double bound : extras.outliers) {
    if (!(bound >= 0)) throw std::invalid_argument("bounds of outliers must be 0 or more");
  }
}

std::vector<double> Wanted::percents() const {
  std::vector<double> percents = extras.percentiles;
  percents.insert(percents.end(), {16, 25, 75, 84});
  return percents;
}

std::vector<std::uint64_t> Wanted::ranks(std::uint64_t n) const {
  std::vector<std::uint64_t> ranks = {(n - 1) / 2, n / 2};
  if (has_quantiles) {
    for (const double percent : percents()) {
      const PercentilePlace place = percentile_place(n, percent);
      ranks.insert(ranks.end(), {place.lower, place.upper});
    }
    for (const double percent : {25, 75}) {  // of LSST's errors, whose order is reversed
      const PercentilePlace place = percentile_place(n, percent);
      ranks.insert(ranks.end(), {n - 1 - place.lower, n - 1 - place.upper});
    }
  }
  ranks.insert(ranks.end(), values.begin(), values.end());
  std::sort(ranks.begin(), ranks.end());
  ranks.erase(std::unique(ranks.begin(), ranks.end()), ranks.end());
  return ranks;
}

bool Wanted::operator==(const Wanted& other) const {
  return has_quantiles == other.has_quantiles && has_fourth == other.has_fourth &&
         absolute == other.absolute && values == other.values &&
         extras.percentiles == other.extras.percentiles && extras.outliers == other.extras.outliers;
}

void Wanted::write(ByteWriter& out) const {
  out.integer(has_quantiles);
  out.numbers(extras.percentiles);
  out.numbers(extras.outliers);
}

Wanted Wanted::read(ByteReader& in) {
  const bool has_quantiles = in.index(2) == 1;
  const Extras extras{in.numbers(), in.numbers()};
  return has_quantiles ? Wanted(extras) : Wanted();
}

// ---- by definition ----

namespace {

std::uint64_t count_beyond(std::span<const double> residuals, double bound) {
  return static_cast<std::uint64_t>(
      std::count_if(residuals.begin(), residuals.end(),
                    [bound](double residual) { return std::fabs(residual) > bound; }));
}

void set_wanted_by_definition(Found& found, std::span<const double> residuals,
                              const Wanted& wanted) {
  const std::uint64_t n = residuals.size();
  for (const double bound : wanted.extras.outliers) {
    const auto count = static_cast<double>(count_beyond(residuals, bound));
    found.quantiles.outliers.push_back(percentage(count, n));
  }
  if (n == 0 || std::isnan(found.statistics.rms)) {
    set_quantiles_nan(found, wanted);
    return;
  }
  std::vector<double> sorted(residuals.begin(), residuals.end());
  std::sort(sorted.begin(), sorted.end());
  if (std::any_of(sorted.begin(), sorted.end(),
                  [](double r) { return r == 0 && !std::signbit(r); })) {
    for (double& residual : sorted) residual += 0.0;  // -0 becomes 0
  }
  const auto value = [&](std::uint64_t rank) { return sorted[static_cast<std::size_t>(rank)]; };
  set_order_statistics(found, n, wanted, value);
  const double center = found.quantiles.median;
  for (double& residual : sorted) residual = std::fabs(residual - center);
  const bool has_nan = std::any_of(sorted.begin(), sorted.end(),
                                   [](double distance) { return std::isnan(distance); });
  if (!has_nan) std::sort(sorted.begin(), sorted.end());
  found.lsst.sigma_mad = has_nan ? kNaN : middle_value(n, value) * kNmadFactor;
  const auto outliers =
      static_cast<double>(count_beyond(residuals, lsst_bound(found.lsst.sigma_iqr)));
  found.lsst.outlier_rate = outliers / static_cast<double>(n);
}

// The values of ranks. NaN comes last.
std::vector<double> at_ranks(std::vector<double> values, std::span<const std::uint64_t> ranks) {
  std::erase_if(values, [](double value) { return std::isnan(value); });
  std::sort(values.begin(), values.end());
  std::vector<double> found;
  for (const std::uint64_t rank : ranks) {
    found.push_back(rank < values.size() ? values[static_cast<std::size_t>(rank)] : kNaN);
  }
  return found;
}

Spread spread_by_definition(std::span<const double> residuals, double bias, const Wanted& wanted) {
  Spread spread{};
  std::vector<double> sizes;
  for (const double residual : residuals) {
    const double square = residual * residual;
    const double square_about = (residual - bias) * (residual - bias);
    spread.second += square;
    spread.fourth += square * square;
    spread.second_about += square_about;
    spread.fourth_about += square_about * square_about;
    sizes.push_back(std::fabs(residual));
  }
  const auto n = static_cast<double>(residuals.size());
  for (double* moment :
       {&spread.second, &spread.fourth, &spread.second_about, &spread.fourth_about}) {
    *moment /= n;
  }
  spread.absolute = at_ranks(std::move(sizes), wanted.absolute);
  spread.values = at_ranks({residuals.begin(), residuals.end()}, wanted.values);
  return spread;
}

}  // namespace

template <class Sum>
Found by_definition(std::span<const double> residuals, const Wanted& wanted,
                    const Checkpoint& checkpoint) {
  Found found;
  ResidualStatistics& s = found.statistics;
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
  set_outliers(s, vostrel::count_outliers(residuals, s.sigma), residuals.size());
  checkpoint();
  if (wanted.has_quantiles) set_wanted_by_definition(found, residuals, wanted);
  if (wanted.has_fourth) found.spread = spread_by_definition(residuals, s.bias, wanted);
  return found;
}

// ---- passes ----

using Room = std::array<double, kMostInBlock>;

// The residuals of a block that a pass needs.
struct Needed {
  // Every residual is written and stays if it is needed: a branch would be mispredicted. The count
  // is the caller's local variable, since a processor waits long for a number in memory.
  void add(const Search& search, double residual, std::size_t& count) {
    residuals[count] = residual;
    count += search.needs(residual);
  }
  void sift(Search& search, std::size_t count) const { search.sift({residuals.data(), count}); }

  Room residuals;
};

namespace {

// Writes the residuals of each object and calls use(delta, norm). Returns the checksum of the
// objects. It takes a few at a time, for a processor then works on both at once.
template <class Use>
std::uint64_t for_each_with_checksum(ResidualsOfObjects r, Room& deltas, Room& norms, Use use) {
  constexpr std::size_t kAtOnce = 64;
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < r.size();) {
    const std::size_t count = std::min(kAtOnce, r.size() - i);
    sum += checksum_and_residuals(r.reference.subspan(i, count), r.estimate.subspan(i, count),
                                  &deltas[i], &norms[i]);
    for (const std::size_t end = i + count; i < end; ++i) use(deltas[i], norms[i]);
  }
  return sum;
}

// Adds the fourth powers of the distances from a center.
void add_fourth(ResidualsOfObjects r, std::array<double, 2> center, InOrderSum& delta,
                InOrderSum& norm) {
  std::array<InOrderSum, 2> sums = {delta, norm};
  const auto fourth = [](double distance) { return (distance * distance) * (distance * distance); };
  for (std::size_t i = 0; i < r.size(); ++i) {
    sums[0].add(fourth(r.delta(i) - center[0]));
    sums[1].add(fourth(r.norm(i) - center[1]));
  }
  delta = sums[0];
  norm = sums[1];
}

}  // namespace

// Both residuals are added in one loop, and sums in order are kept in local variables: an addition
// waits for the one before, and the other residual's work fills the time.
template <class Sum>
std::uint64_t Tally<Sum>::add_first(Tally& delta, Tally& norm, ResidualsOfObjects r,
                                    const Wanted& wanted) {
  std::uint64_t checksum = 0;
  if constexpr (kIsExact<Sum>) {
    Room deltas;
    Room norms;
    checksum = for_each_with_checksum(r, deltas, norms, [&](double of_delta, double of_norm) {
      delta.search_.count(of_delta);
      norm.search_.count(of_norm);
    });
    ExactSum::add_with_squares({deltas.data(), r.size()}, delta.sum_, delta.squares_);
    ExactSum::add_with_squares({norms.data(), r.size()}, norm.sum_, norm.squares_);
  } else {
    std::array<Sum, 2> sums = {delta.sum_, norm.sum_};
    std::array<Sum, 2> squares = {delta.squares_, norm.squares_};
    for (std::size_t i = 0; i < r.size(); ++i) {
      const double of_delta = r.delta(i);
      const double of_norm = r.norm(i);
      sums[0].add(of_delta);
      squares[0].add(of_delta * of_delta);
      delta.search_.count(of_delta);
      sums[1].add(of_norm);
      squares[1].add(of_norm * of_norm);
      norm.search_.count(of_norm);
    }
    delta.sum_ = sums[0];
    norm.sum_ = sums[1];
    delta.squares_ = squares[0];
    norm.squares_ = squares[1];
  }
  if (wanted.has_fourth) add_fourth(r, {0, 0}, delta.fourth_, norm.fourth_);
  return checksum;
}

template <class Sum>
std::uint64_t Tally<Sum>::add_later(Tally& delta, Tally& norm, ResidualsOfObjects r,
                                    const Wanted& wanted, bool is_second) {
  std::uint64_t checksum = 0;
  Needed needed_deltas;
  Needed needed_norms;
  std::size_t delta_count = 0;
  std::size_t norm_count = 0;
  if constexpr (kIsExact<Sum>) {
    Room deltas;
    Room norms;
    checksum = for_each_with_checksum(r, deltas, norms, [&](double of_delta, double of_norm) {
      needed_deltas.add(delta.search_, of_delta, delta_count);
      needed_norms.add(norm.search_, of_norm, norm_count);
    });
    if (is_second) {
      delta.deviations_.add_squares_about(delta.bias_, {deltas.data(), r.size()});
      norm.deviations_.add_squares_about(norm.bias_, {norms.data(), r.size()});
    }
  } else {
    const std::array<double, 2> bias = {delta.bias_, norm.bias_};
    std::array<Sum, 2> deviations = {delta.deviations_, norm.deviations_};
    for (std::size_t i = 0; i < r.size(); ++i) {
      const double of_delta = r.delta(i);
      const double of_norm = r.norm(i);
      if (is_second) deviations[0].add((of_delta - bias[0]) * (of_delta - bias[0]));
      needed_deltas.add(delta.search_, of_delta, delta_count);
      if (is_second) deviations[1].add((of_norm - bias[1]) * (of_norm - bias[1]));
      needed_norms.add(norm.search_, of_norm, norm_count);
    }
    delta.deviations_ = deviations[0];
    norm.deviations_ = deviations[1];
  }
  needed_deltas.sift(delta.search_, delta_count);
  needed_norms.sift(norm.search_, norm_count);
  if (is_second && wanted.has_fourth) {
    add_fourth(r, {delta.bias_, norm.bias_}, delta.fourth_about_, norm.fourth_about_);
  }
  return checksum;
}

template <class Sum>
void Tally<Sum>::end_first_pass(std::uint64_t n, const Wanted& wanted) {
  bias_ = sum_.total() / static_cast<double>(n);
  rms_ = std::sqrt(squares_.total() / static_cast<double>(n));
  has_nan_ = has_nan();
  search_.end_count();
  if (search_.size() != 0) ask(search_.size(), wanted);
  search_.start_pass();
}

template <class Sum>
void Tally<Sum>::end_second_pass(std::uint64_t n) {
  sigma_ = std::sqrt(deviations_.total() / static_cast<double>(n));
  if (std::isnan(sigma_) && std::isfinite(rms_)) {
    throw std::invalid_argument("the data changed between passes: the first had no NaN");
  }
}

template <class Sum>
bool Tally<Sum>::end_later_pass(const Wanted& wanted) {
  const std::uint64_t size = search_.size();
  if (size == 0) return false;
  search_.end_pass();
  count_outliers(questions(size, wanted), size, wanted);
  return search_.start_pass();
}

// ---- questions ----

template <class Sum>
typename Tally<Sum>::Question Tally<Sum>::Questions::rank(std::uint64_t rank) const {
  const auto place = std::lower_bound(ranks.begin(), ranks.end(), rank);
  return static_cast<Question>(place - ranks.begin());
}

template <class Sum>
typename Tally<Sum>::Questions Tally<Sum>::questions(std::uint64_t n, const Wanted& wanted) {
  Questions q{};
  q.ranks = wanted.ranks(n);
  Question next = q.ranks.size();
  const auto pair = [&]() -> std::array<Question, 2> {
    const Question lower = next++;
    return {lower, n % 2 == 1 ? lower : next++};
  };
  q.absolute = pair();
  q.about = pair();
  for (Question& question : q.beyond) question = next++;
  q.beyond_asked = next;
  next += wanted.has_quantiles ? wanted.extras.outliers.size() : 0;
  q.beyond_lsst = next;
  next += wanted.has_quantiles;
  q.absolute_asked = next;
  next += wanted.absolute.size();
  q.count = next;
  return q;
}

template <class Sum>
void Tally<Sum>::ask(std::uint64_t n, const Wanted& wanted) {
  const Questions q = questions(n, wanted);
  const std::uint64_t lower = (n - 1) / 2;
  const std::uint64_t upper = n / 2;
  for (const std::uint64_t rank : q.ranks) search_.rank(rank);
  search_.distance(lower, 0.0);
  if (upper != lower) search_.distance(upper, 0.0);
  search_.distance(lower, q.rank(lower), q.rank(upper));
  if (upper != lower) search_.distance(upper, q.rank(lower), q.rank(upper));

  // sigma^2 is rms^2 - bias^2 up to rounding.
  const double variance = rms_ * rms_ - bias_ * bias_;
  const double rounding = 1e-9 * rms_ * rms_;
  const auto lows = outlier_bounds(std::sqrt(std::max(variance - rounding, 0.0)));
  const auto highs = outlier_bounds(std::sqrt(std::max(variance, 0.0) + rounding));
  for (std::size_t k = 0; k < lows.size(); ++k) search_.beyond({lows[k], highs[k]});
  if (wanted.has_quantiles) {
    for (const double bound : wanted.extras.outliers) search_.beyond({bound, bound});
    search_.beyond(expected_lsst_bound(n, q));
  }
  for (const std::uint64_t rank : wanted.absolute) search_.distance(rank, 0.0);
}

// Where LSST's bound lies, which follows from quartiles that may not be known yet.
template <class Sum>
Interval Tally<Sum>::expected_lsst_bound(std::uint64_t n, const Questions& q) const {
  const auto quartile = [&](double percent, double Interval::*bound) {
    return percentile(n, percent, [&](std::uint64_t rank) {
      return -(search_.expected(q.rank(n - 1 - rank)).*bound);
    });
  };
  const auto bound_of = [](double range) { return lsst_bound(range / kIqrFactor); };
  // A high residual is a low error.
  return {bound_of(quartile(75, &Interval::high) - quartile(25, &Interval::low)),
          bound_of(quartile(75, &Interval::low) - quartile(25, &Interval::high))};
}

template <class Sum>
void Tally<Sum>::count_outliers(const Questions& q, std::uint64_t n, const Wanted& wanted) {
  const auto bounds = outlier_bounds(sigma_);
  for (std::size_t k = 0; k < bounds.size(); ++k) search_.count_beyond(q.beyond[k], bounds[k]);
  if (!wanted.has_quantiles) return;
  for (std::size_t k = 0; k < wanted.extras.outliers.size(); ++k) {
    search_.count_beyond(q.beyond_asked + k, wanted.extras.outliers[k]);
  }
  bool has_quartiles = true;
  const auto value = [&](std::uint64_t rank) {
    has_quartiles &= search_.is_known(q.rank(rank));
    return search_.value(q.rank(rank));
  };
  const double bound = lsst_bound(sigma_iqr(n, lsst_errors(n, value)));
  if (has_quartiles) {
    search_.count_beyond(q.beyond_lsst, bound);
  } else {
    search_.expect(q.beyond_lsst, expected_lsst_bound(n, q));
  }
}

// ---- answers ----

template <class Sum>
bool Tally<Sum>::has_infinite_median(const Wanted& wanted) const {
  const std::uint64_t n = search_.size();
  const Questions q = questions(n, wanted);
  return !std::isfinite(search_.middle(q.rank((n - 1) / 2), q.rank(n / 2)));
}

template <class Sum>
Found Tally<Sum>::found(std::uint64_t n, const Wanted& wanted) const {
  Found found;
  ResidualStatistics& s = found.statistics;
  s.bias = bias_;
  s.sigma = sigma_;
  s.rms = rms_;
  const std::uint64_t size = search_.size();
  const Questions q = questions(std::max<std::uint64_t>(size, 1), wanted);
  const bool has_medians = !has_nan_ && size > 0;
  const auto middle = [&](const std::array<Question, 2>& pair) {
    return has_medians ? search_.middle(pair[0], pair[1]) : kNaN;
  };
  s.mad = middle(q.absolute);
  s.nmad = s.mad * kNmadFactor;
  s.mad_delta = middle(q.about);
  std::array<std::uint64_t, 5> counts{};
  for (std::size_t k = 0; k < counts.size() && size > 0; ++k)
    counts[k] = search_.counted(q.beyond[k]);
  set_outliers(s, counts, n);
  if (wanted.has_quantiles) set_quantiles(found, n, wanted);
  if (wanted.has_fourth) {
    const auto mean = [n](const auto& sum) { return sum.total() / static_cast<double>(n); };
    found.spread = {mean(squares_), mean(fourth_), mean(deviations_), mean(fourth_about_), {}, {}};
    for (std::size_t k = 0; k < wanted.absolute.size(); ++k) {
      found.spread.absolute.push_back(search_.value(q.absolute_asked + k));
    }
    for (const std::uint64_t rank : wanted.values) {
      found.spread.values.push_back(search_.value(q.rank(rank)));
    }
  }
  return found;
}

template <class Sum>
void Tally<Sum>::set_quantiles(Found& found, std::uint64_t n, const Wanted& wanted) const {
  const std::uint64_t size = search_.size();
  const Questions q = questions(std::max<std::uint64_t>(size, 1), wanted);
  for (std::size_t k = 0; k < wanted.extras.outliers.size(); ++k) {
    const std::uint64_t count = size == 0 ? 0 : search_.counted(q.beyond_asked + k);
    found.quantiles.outliers.push_back(percentage(static_cast<double>(count), n));
  }
  if (has_nan_ || size == 0) {
    set_quantiles_nan(found, wanted);
    return;
  }
  set_order_statistics(found, n, wanted,
                       [&](std::uint64_t rank) { return search_.value(q.rank(rank)); });
  const double median = found.quantiles.median;
  // All distances from a median that overflowed are infinite, unless a value is.
  found.lsst.sigma_mad = std::isinf(median) && !search_.has(median)
                             ? kInfinity
                             : search_.middle(q.about[0], q.about[1]) * kNmadFactor;
  const auto outliers = static_cast<double>(search_.counted(q.beyond_lsst));
  found.lsst.outlier_rate = outliers / static_cast<double>(n);
}

// ---- states ----

template <class Sum>
Tally<Sum> Tally<Sum>::fresh() const {
  Tally fresh;
  fresh.bias_ = bias_;
  fresh.rms_ = rms_;
  fresh.sigma_ = sigma_;
  fresh.has_nan_ = has_nan_;
  fresh.search_ = search_.fresh();
  return fresh;
}

template <class Sum>
void Tally<Sum>::merge(const Tally& other) {
  search_.merge(other.search_);
  if constexpr (kIsExact<Sum>) {
    sum_.merge(other.sum_);
    squares_.merge(other.squares_);
    deviations_.merge(other.deviations_);
  }
}

template <class Sum>
void Tally<Sum>::write(ByteWriter& out) const {
  if constexpr (kIsExact<Sum>) {
    for (const Sum* sum : {&sum_, &squares_, &deviations_}) sum->write(out);
  }
  for (const double number : {bias_, rms_, sigma_}) out.number(number);
  out.integer(has_nan_);
  search_.write(out);
}

template <class Sum>
Tally<Sum> Tally<Sum>::read(ByteReader& in) {
  Tally tally;
  if constexpr (kIsExact<Sum>) {
    for (Sum* sum : {&tally.sum_, &tally.squares_, &tally.deviations_}) *sum = Sum::read(in);
  }
  for (double* number : {&tally.bias_, &tally.rms_, &tally.sigma_}) *number = in.number();
  tally.has_nan_ = in.index(2) == 1;
  tally.search_ = Search::read(in);
  return tally;
}

template <class Sum>
bool Tally<Sum>::fits(bool first_pass, bool is_done, const Wanted& wanted) const {
  if (search_.has_counted() == first_pass) return false;
  if (first_pass) return true;
  const std::uint64_t size = search_.size();
  return search_.questions() == (size == 0 ? 0 : questions(size, wanted).count) &&
         (!is_done || search_.is_done());
}

template class Tally<InOrderSum>;
template class Tally<ExactSum>;
template Found by_definition<InOrderSum>(std::span<const double>, const Wanted&, const Checkpoint&);
template Found by_definition<ExactSum>(std::span<const double>, const Wanted&, const Checkpoint&);

}  // namespace vostrel
