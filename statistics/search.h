// Finds order statistics of values that are added block by block, in several passes.

#ifndef VOSTREL_STATISTICS_SEARCH_H
#define VOSTREL_STATISTICS_SEARCH_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "statistics/bracket.h"
#include "statistics/bytes.h"
#include "statistics/histogram.h"

namespace vostrel {

/// Answers questions about values that are not stored: the value at a rank, the distance at a rank
/// from a center, and the number of values beyond a bound. All answers are exact.
///
///     vostrel::Search search;
///     for (each value) search.count(value);
///     search.end_count();
///     const auto median = search.rank(search.size() / 2);
///     while (search.start_pass()) {
///       for (each block of the values) search.sift(block);
///       search.end_pass();
///     }
///     search.value(median)
///
/// The first pass makes a histogram of the values' leading bits. For each rank it gives the bucket
/// that contains the value, and the probable position in the bucket. The next pass counts the
/// values of the bucket in cells and keeps those in the probable cells. If the rank is not among
/// them, a further pass searches the cell that contains it instead of the bucket. Guesses affect
/// the number of passes, never the answers.
///
/// The values may come in any order and in any blocks. Each pass must see the same values. NaN is
/// left out. Infinities count like other values.
class Search {
 public:
  /// Names a question: the first is 0, the second 1, and so on.
  using Question = std::size_t;

  /// Every search ends within this many passes after the first.
  static constexpr int kMostPasses = 8;

  // ---- the first pass ----

  void count(double value) { histogram_.add(value); }
  void end_count();

  /// The number of values, without NaN, once the first pass has ended.
  std::uint64_t size() const { return size_; }

  // ---- questions, before or between further passes. Requires: size() is not 0. ----

  /// The value of a rank, from 0 to size() - 1. If it is 0, it is -0 only if all zeros are.
  Question rank(std::uint64_t rank);

  /// The rank-th of |value - center|. Requires: a finite center.
  Question distance(std::uint64_t rank, double center);

  /// The rank-th of |value - center|, where the center is the middle of two values: that of
  /// middle(lower, upper). NaN if it is infinite.
  Question distance(std::uint64_t rank, Question lower, Question upper);

  /// The number of values with |value| > bound. See count_beyond().
  /// @param bound  where the bound is expected to lie.
  Question beyond(Interval bound);

  /// Changes the expected bound of beyond(), for the next pass.
  void expect(Question question, Interval bound);

  /// The expected answer to rank().
  Interval expected(Question question) const { return asked_[question].likely; }

  // ---- further passes ----

  /// Starts a pass. Returns false if all questions are answered.
  bool start_pass();

  /// 1 if this pass needs the value, else 0.
  std::size_t needs(double value) const { return flags_[histogram_.place(value)]; }

  /// Takes values. Requires: each value that the pass needs. Others don't matter.
  void sift(std::span<const double> values);

  /// Ends the pass.
  /// @throws std::invalid_argument if the values have changed between passes.
  void end_pass();

  // ---- answers ----

  bool is_known(Question question) const { return asked_[question].is_known; }

  /// The answer to rank() or distance(). Requires: is_known().
  double value(Question question) const { return asked_[question].keys.low; }

  /// The middle of two values, (upper + lower) / 2, or the value itself if the questions are one.
  double middle(Question lower, Question upper) const;

  /// The answer to beyond(), or nothing if another pass is needed. Requires: a pass has ended since
  /// the question. Once the answer is found, the bound doesn't matter.
  std::optional<std::uint64_t> count_beyond(Question question, double bound);

  /// The answer to beyond(). Requires: count_beyond() has returned it.
  std::uint64_t counted(Question question) const { return asked_[question].count; }

  /// Whether all questions are answered.
  bool is_done() const;

  /// Whether an infinity is among the values.
  bool has(double infinity) const { return histogram_.has(infinity); }

  // ---- states ----

  /// Adds the values of another search in the same pass.
  /// @throws std::invalid_argument if the other is not in the same pass.
  void merge(const Search& other);

  /// An empty search in the same pass.
  Search fresh() const;

  void write(ByteWriter& out) const;
  static Search read(ByteReader& in);

  /// Whether the first pass has ended, and how many questions there are.
  bool has_counted() const { return has_counted_; }
  std::size_t questions() const { return asked_.size(); }

 private:
  enum class Kind { kRank, kDistance, kBeyond };

  // A question, and what is known of its answer.
  struct Asked {
    Kind kind;
    std::uint64_t rank = 0;
    // The questions whose middle is the center, or nothing if the center is fixed.
    std::optional<std::pair<Question, Question>> about = {};
    double center = 0;  // in this pass
    bool is_known = false;
    bool is_bounded = false;  // of distance(): whether `keys` are set
    Interval keys = {0, 0};   // certain to hold the answer; of beyond(): expected to hold the bound
    Interval likely = {0, 0};  // where the answer is expected
    std::uint64_t count = 0;   // the answer to beyond()
    std::size_t bracket = 0;
  };

  // A bucket touches a bracket.
  struct Touched {
    std::size_t bracket;
    std::uint32_t before;  // the same bucket's one before, or 0
  };

  Question ask(Asked asked);
  void find_buckets();
  void guess_rank(Asked& asked) const;
  void plan_distance(Asked& asked);
  Interval guess_distance(const Asked& asked) const;
  Interval center_of(const Asked& asked) const;
  void settle_without_center();
  void add_bracket(Asked& asked, Key key, Interval keys, Interval kept);
  std::vector<std::pair<std::uint64_t, std::uint64_t>> find_touched();
  void resolve(Asked& asked) const;
  void resolve_distance(Asked& asked, std::uint64_t rank) const;

  Histogram histogram_;
  bool has_counted_ = false;
  int passes_ = 0;  // after the first
  std::uint64_t size_ = 0;
  std::vector<Asked> asked_;
  std::vector<Histogram::Bucket> buckets_;  // only between passes: they take much memory
  std::vector<Bracket> brackets_;           // of this pass
  std::vector<std::uint8_t> flags_;         // by place: whether the bucket touches a bracket
  std::vector<Touched> touched_;            // the first is unused
  std::vector<std::uint32_t> last_of_;      // by place: the last of `touched_`, or 0
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_SEARCH_H
