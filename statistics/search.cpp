#include "statistics/search.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "floating_point.h"

namespace vostrel {

namespace {

constexpr double kLargest = std::numeric_limits<double>::max();

// Of a bracket in the first pass that has brackets. Few questions are open in later ones.
constexpr int kCellBits = 12;

// All values are kept in a bracket with so many or fewer.
constexpr double kFewInside = 8192;

double finite(double value) { return std::clamp(value, -kLargest, kLargest); }
double up(double value) { return std::nextafter(value, kInfinity); }
double down(double value) { return std::nextafter(value, -kInfinity); }

[[noreturn]] void refuse() { throw std::invalid_argument("the data changed between passes"); }

// How many values to keep to each side of a guess, if `count` values are in its buckets: five
// standard deviations of a rank inside a bucket, and some more for the error of the density.
double half_count(double count) {
  return std::min(8 + 2.5 * std::sqrt(count) + count / 256, kFewInside);
}

// ---- keys of buckets ----

using Bucket = Histogram::Bucket;
using Buckets = std::span<const Bucket>;

Interval keys_of(const Bucket& bucket, const Key& key) {
  const double low = key(bucket.low);
  const double high = key(bucket.high);
  const bool around = key.center && bucket.low <= *key.center && *key.center <= bucket.high;
  return {around ? 0 : std::min(low, high), std::max(low, high)};
}

std::uint64_t count_of(Buckets buckets) {
  if (buckets.empty()) return 0;
  return buckets.back().before + buckets.back().count - buckets.front().before;
}

// The buckets by their keys, which fall on the left of a center and rise on the right. Around it is
// one bucket, or one for each zero, or none. Without a center, all are on the right.
struct Sides {
  Sides(Buckets buckets, const Key& key) : right(buckets) {
    if (!key.center) return;
    const auto first =
        std::partition_point(buckets.begin(), buckets.end(),
                             [&](const Bucket& bucket) { return bucket.high < *key.center; });
    const auto last = std::partition_point(
        first, buckets.end(), [&](const Bucket& bucket) { return bucket.low <= *key.center; });
    left = {buckets.begin(), first};
    around = {first, last};
    right = {last, buckets.end()};
  }

  Buckets left = {};
  Buckets around = {};
  Buckets right;
};

// The buckets of a side up to some key, and those beyond.
struct Parts {
  Buckets near;
  Buckets far;
};

template <class IsNear>
Parts part_left(Buckets left, IsNear is_near) {
  const auto end = std::partition_point(left.begin(), left.end(),
                                        [&](const Bucket& bucket) { return !is_near(bucket); });
  return {{end, left.end()}, {left.begin(), end}};
}

template <class IsNear>
Parts part_right(Buckets right, IsNear is_near) {
  const auto end = std::partition_point(right.begin(), right.end(), is_near);
  return {{right.begin(), end}, {end, right.end()}};
}

// The distance by which more than `rank` values have passed, if each bucket passes at one bound of
// its distances.
double passed_at(Buckets buckets, double center, std::uint64_t rank, double Interval::*bound) {
  const Key key{center};
  const Sides sides(buckets, key);
  const auto has_more = [&](const Bucket& last) {
    const double distance = keys_of(last, key).*bound;
    const auto passes = [&](const Bucket& b) { return keys_of(b, key).*bound <= distance; };
    std::uint64_t passed = count_of(part_left(sides.left, passes).near) +
                           count_of(part_right(sides.right, passes).near);
    for (const Bucket& bucket : sides.around) passed += passes(bucket) ? bucket.count : 0;
    return passed > rank;
  };
  const auto has_too_few = [&](const Bucket& last) { return !has_more(last); };
  double found = kInfinity;
  const auto consider = [&](const Bucket& b) { found = std::min(found, keys_of(b, key).*bound); };
  const Buckets left = part_left(sides.left, has_too_few).far;
  const Buckets right = part_right(sides.right, has_too_few).far;
  if (!left.empty()) consider(left.back());
  if (!right.empty()) consider(right.front());
  for (const Bucket& bucket : sides.around) {
    if (has_more(bucket)) consider(bucket);
  }
  return found;
}

}  // namespace

// ---- questions ----

void Search::end_count() {
  has_counted_ = true;
  find_buckets();
  size_ = buckets_.empty() ? 0 : buckets_.back().before + buckets_.back().count;
}

void Search::find_buckets() {
  if (buckets_.empty()) buckets_ = histogram_.buckets();
}

Search::Question Search::ask(Asked asked) {
  asked_.push_back(asked);
  return asked_.size() - 1;
}

Search::Question Search::rank(std::uint64_t rank) {
  find_buckets();
  Asked asked{Kind::kRank};
  asked.rank = rank;
  guess_rank(asked);
  return ask(asked);
}

Search::Question Search::distance(std::uint64_t rank, double center) {
  Asked asked{Kind::kDistance};
  asked.rank = rank;
  asked.center = center;
  return ask(asked);
}

Search::Question Search::distance(std::uint64_t rank, Question lower, Question upper) {
  Asked asked{Kind::kDistance};
  asked.rank = rank;
  asked.about = {lower, upper};
  return ask(asked);
}

Search::Question Search::beyond(Interval bound) {
  const Question question = ask({Kind::kBeyond});
  expect(question, bound);
  return question;
}

void Search::expect(Question question, Interval bound) {
  if (bound.low <= bound.high) asked_[question].keys = bound;  // not if one is NaN
}

// ---- plans ----

void Search::guess_rank(Asked& asked) const {
  const auto bucket = std::upper_bound(
      buckets_.begin(), buckets_.end(), asked.rank,
      [](std::uint64_t rank, const Bucket& b) { return rank < b.before + b.count; });
  asked.keys = asked.likely = {bucket->low, bucket->high};
  const auto count = static_cast<double>(bucket->count);
  const double width = bucket->high - bucket->low;
  if (count <= kFewInside || !(width > 0)) return;
  const double guess = Guess(buckets_).value(static_cast<double>(asked.rank) + 0.5);
  const double half = half_count(count) / count * width;
  asked.likely = {std::max(guess - half, bucket->low), std::min(guess + half, bucket->high)};
}

// Where the center of a distance lies, as far as is known.
Interval Search::center_of(const Asked& asked) const {
  if (!asked.about) return {asked.center, asked.center};
  const Asked& lower = asked_[asked.about->first];
  const Asked& upper = asked_[asked.about->second];
  if (lower.is_known && upper.is_known) {
    const double center = middle(asked.about->first, asked.about->second);
    return {center, center};
  }
  const auto half = [](double value) { return finite(value) / 2; };
  return {half(lower.likely.low) + half(upper.likely.low),
          half(lower.likely.high) + half(upper.likely.high)};
}

void Search::plan_distance(Asked& asked) {
  const Interval at = center_of(asked);
  const double center = at.low == at.high ? at.low : finite(at.low / 2 + at.high / 2);
  const double uncertainty =
      at.low == at.high ? 0 : up(std::max(at.high - center, center - at.low));
  if (asked.is_bounded) {
    // An order statistic moves by no more than the values do.
    const double moved = center == asked.center ? 0 : up(std::fabs(center - asked.center));
    if (moved != 0) {
      asked.keys = {std::max(down(asked.keys.low - moved), 0.0), up(asked.keys.high + moved)};
    }
  } else {
    asked.keys = {passed_at(buckets_, center, asked.rank, &Interval::low),
                  passed_at(buckets_, center, asked.rank, &Interval::high)};
  }
  asked.center = center;
  asked.likely = asked.is_bounded ? asked.keys : guess_distance(asked);
  asked.is_bounded = true;
  // Once the center is known, the distance may have moved by the uncertainty, and so may the values
  // outside the bracket, in the other direction.
  const auto widened = [uncertainty, room = up(2 * uncertainty)](Interval keys) -> Interval {
    if (uncertainty == 0) return keys;
    return {std::max(down(keys.low - room), 0.0), up(keys.high + room)};
  };
  add_bracket(asked, Key{center}, widened(asked.keys), widened(asked.likely));
}

// Where the histogram suggests a distance.
Interval Search::guess_distance(const Asked& asked) const {
  const Guess guess(buckets_);
  const double rank = static_cast<double>(asked.rank) + 0.5;
  double low = asked.keys.low;
  double high = finite(asked.keys.high);
  for (int step = 0; step < 60 && low < high; ++step) {
    const double distance = low + (high - low) / 2;
    const double inside =
        guess.below(asked.center + distance) - guess.below(asked.center - distance);
    (inside < rank ? low : high) = distance;
  }
  const auto [right_density, right_count] = guess.density(asked.center + high);
  const auto [left_density, left_count] = guess.density(asked.center - high);
  const double half = half_count(right_count + left_count) / (right_density + left_density);
  if (!std::isfinite(half)) return asked.keys;
  return {std::max(high - half, asked.keys.low), std::min(high + half, asked.keys.high)};
}

void Search::add_bracket(Asked& asked, Key key, Interval keys, Interval kept) {
  const auto shared = std::find_if(brackets_.begin(), brackets_.end(), [&](const Bracket& bracket) {
    return bracket.key() == key && keys.low <= bracket.keys().high &&
           keys.high >= bracket.keys().low;
  });
  asked.bracket = static_cast<std::size_t>(shared - brackets_.begin());
  if (shared == brackets_.end()) {
    brackets_.emplace_back(key, keys);
  } else {
    shared->extend(keys);
  }
  brackets_[asked.bracket].keep(kept);
}

// Nothing has a distance from an infinite center.
void Search::settle_without_center() {
  for (Asked& asked : asked_) {
    if (asked.is_known || !asked.about) continue;
    const Interval center = center_of(asked);
    if (std::isfinite(center.low)) continue;
    asked.is_known = true;
    asked.keys = {kNaN, kNaN};
  }
}

// ---- passes ----

bool Search::start_pass() {
  settle_without_center();
  brackets_.clear();
  const bool is_open = !is_done();
  if (is_open) {
    if (++passes_ > kMostPasses) refuse();
    find_buckets();
    for (Asked& asked : asked_) {
      if (asked.is_known) continue;
      if (asked.kind == Kind::kRank) add_bracket(asked, Key{}, asked.keys, asked.likely);
      if (asked.kind == Kind::kDistance) plan_distance(asked);
      if (asked.kind == Kind::kBeyond) add_bracket(asked, Key{0.0}, asked.keys, asked.keys);
    }
  }
  const auto counts = find_touched();
  const int bits = passes_ == 1 ? kCellBits : Bracket::kMostBits;
  for (std::size_t b = 0; b < brackets_.size(); ++b) {
    brackets_[b].start(counts[b].first, counts[b].second, bits);
  }
  buckets_ = std::vector<Bucket>();
  return is_open;
}

bool Search::is_done() const {
  return std::all_of(asked_.begin(), asked_.end(),
                     [](const Asked& asked) { return asked.is_known; });
}

// Finds the brackets that the values of each bucket may belong to. Returns for each bracket how
// many values have keys that are surely below it, and how many may be inside.
std::vector<std::pair<std::uint64_t, std::uint64_t>> Search::find_touched() {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> counts(brackets_.size());
  flags_.assign(histogram_.places(), 0);
  last_of_.assign(histogram_.places(), 0);
  touched_.assign(1, {});
  for (std::size_t b = 0; b < brackets_.size(); ++b) {
    const Key& key = brackets_[b].key();
    const Interval keys = brackets_[b].keys();
    std::uint64_t& below = counts[b].first;
    std::uint64_t& inside = counts[b].second;
    const auto is_below = [&](const Bucket& bucket) {
      return keys_of(bucket, key).high < keys.low;
    };
    const auto touches = [&](const Bucket& bucket) {
      if (keys_of(bucket, key).low > keys.high) return false;
      inside += bucket.count;
      touched_.push_back({b, last_of_[bucket.place]});
      last_of_[bucket.place] = static_cast<std::uint32_t>(touched_.size() - 1);
      flags_[bucket.place] = 1;
      return true;
    };
    const Sides sides(buckets_, key);
    const Parts left = part_left(sides.left, is_below);
    const Parts right = part_right(sides.right, is_below);
    below = count_of(left.near) + count_of(right.near);
    for (const Bucket& bucket : sides.around) {
      if (is_below(bucket)) {
        below += bucket.count;
      } else {
        touches(bucket);
      }
    }
    for (std::size_t i = left.far.size(); i > 0 && touches(left.far[i - 1]);) --i;
    for (std::size_t i = 0; i < right.far.size() && touches(right.far[i]);) ++i;
  }
  return counts;
}

void Search::sift(std::span<const double> values) {
  for (std::size_t i = 0; i < values.size();) {
    const double value = values[i];
    const auto bits = std::bit_cast<std::uint64_t>(value);
    std::size_t end = i + 1;
    while (end < values.size() && std::bit_cast<std::uint64_t>(values[end]) == bits) ++end;
    for (std::size_t k = last_of_[histogram_.place(value)]; k != 0; k = touched_[k].before) {
      brackets_[touched_[k].bracket].take(value, end - i);
    }
    i = end;
  }
}

void Search::end_pass() {
  for (Asked& asked : asked_) {
    if (!asked.is_known && asked.kind != Kind::kBeyond) resolve(asked);
  }
}

void Search::resolve(Asked& asked) const {
  const Bracket& bracket = brackets_[asked.bracket];
  if (asked.rank < bracket.below() || asked.rank - bracket.below() >= bracket.inside()) refuse();
  const std::uint64_t rank = asked.rank - bracket.below();
  if (asked.kind == Kind::kDistance) {
    resolve_distance(asked, rank);
    return;
  }
  asked.keys = asked.likely = bracket.find(rank);
  asked.is_known = asked.keys.low == asked.keys.high;
}

void Search::resolve_distance(Asked& asked, std::uint64_t rank) const {
  const Bracket& bracket = brackets_[asked.bracket];
  const Interval center = center_of(asked);
  const bool has_center =
      !asked.about || (is_known(asked.about->first) && is_known(asked.about->second));
  if (has_center && !std::isfinite(center.low)) return;  // settle_without_center
  asked.keys = bracket.find(rank);
  if (!has_center) return;
  if (center.low == asked.center) {
    asked.is_known = asked.keys.low == asked.keys.high;
  } else if (const auto found = bracket.find_about(center.low, rank, size_)) {
    asked.is_known = true;
    asked.keys = {*found, *found};
  }
}

// ---- answers ----

double Search::middle(Question lower, Question upper) const {
  return lower == upper ? value(upper) : (value(upper) + value(lower)) / 2.0;
}

std::optional<std::uint64_t> Search::count_beyond(Question question, double bound) {
  Asked& asked = asked_[question];
  if (asked.is_known) return asked.count;
  const Bracket& bracket = brackets_[asked.bracket];
  std::optional<std::uint64_t> up_to;
  if (std::isnan(bound)) {
    up_to = size_;  // nothing is beyond NaN
  } else if (bound >= bracket.keys().low && bound <= bracket.keys().high) {
    up_to = bracket.count_up_to(bound);
    if (up_to) *up_to += bracket.below();
  }
  asked.keys = {bound, bound};
  if (!up_to) return std::nullopt;
  asked.is_known = true;
  asked.count = size_ - *up_to;
  return asked.count;
}

// ---- states ----

void Search::merge(const Search& other) {
  if (has_counted_ != other.has_counted_ || passes_ != other.passes_ ||
      brackets_.size() != other.brackets_.size()) {
    throw std::invalid_argument("states belong to different passes");
  }
  if (!has_counted_) histogram_.merge(other.histogram_);
  for (std::size_t i = 0; i < brackets_.size(); ++i) brackets_[i].merge(other.brackets_[i]);
}

Search Search::fresh() const {
  if (!has_counted_) return {};
  Search fresh = *this;
  for (Bracket& bracket : fresh.brackets_) bracket = bracket.fresh();
  return fresh;
}

void Search::write(ByteWriter& out) const {
  histogram_.write(out);
  out.integer(has_counted_);
  if (!has_counted_) return;
  out.integer(static_cast<std::uint64_t>(passes_));
  out.integer(asked_.size());
  for (const Asked& asked : asked_) {
    out.integer(static_cast<std::uint64_t>(asked.kind));
    out.integer(asked.rank);
    out.integer(asked.about.has_value());
    if (asked.about) {
      out.integer(asked.about->first);
      out.integer(asked.about->second);
    }
    for (const double number :
         {asked.center, asked.keys.low, asked.keys.high, asked.likely.low, asked.likely.high}) {
      out.number(number);
    }
    out.integer(asked.is_known);
    out.integer(asked.is_bounded);
    out.integer(asked.count);
    out.integer(asked.bracket);
  }
  out.integer(brackets_.size());
  for (const Bracket& bracket : brackets_) bracket.write(out);
}

Search Search::read(ByteReader& in) {
  Search search;
  search.histogram_ = Histogram::read(in);
  if (in.index(2) == 0) return search;
  search.end_count();
  search.passes_ = static_cast<int>(in.index(kMostPasses + 1));
  search.asked_.resize(in.count(), Asked{Kind::kRank});
  for (Asked& asked : search.asked_) {
    asked.kind = static_cast<Kind>(in.index(3));
    asked.rank = in.integer();
    in.require(asked.rank < search.size_ || asked.kind == Kind::kBeyond);
    const std::size_t before = static_cast<std::size_t>(&asked - search.asked_.data());
    if (in.index(2) == 1) {
      const std::size_t lower = in.index(before);
      asked.about = {lower, in.index(before)};
    }
    asked.center = in.number();
    asked.keys = {in.number(), in.number()};
    asked.likely = {in.number(), in.number()};
    in.require(std::isfinite(asked.center));
    asked.is_known = in.index(2) == 1;
    asked.is_bounded = in.index(2) == 1;
    asked.count = in.integer();
    asked.bracket = static_cast<std::size_t>(in.integer());
  }
  const std::size_t brackets = in.count();
  for (std::size_t i = 0; i < brackets; ++i) search.brackets_.push_back(Bracket::read(in));
  for (const Asked& asked : search.asked_) {
    in.require(asked.is_known || search.passes_ == 0 || asked.bracket < brackets);
  }
  search.find_touched();
  search.buckets_ = std::vector<Bucket>();
  return search;
}

}  // namespace vostrel
