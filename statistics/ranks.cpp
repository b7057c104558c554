#include "statistics/ranks.h"

#include <algorithm>
#include <bit>
#include <stdexcept>
#include <utility>

#include "floating_point.h"
#include "statistics/order_of.h"

namespace vostrel {

namespace {

constexpr int kBits = 12;
constexpr std::size_t kDigits = std::size_t{1} << kBits;
constexpr std::uint32_t kNone = 0;  // the first group is inside no other
constexpr std::uint64_t kSignBit = std::uint64_t{1} << 63;

// An integer without a sign that sorts as the number does, the same for both zeros.
std::uint64_t sortable_of(double number) {
  return static_cast<std::uint64_t>(order_of(number)) ^ kSignBit;
}

// The number that has this sortable integer.
double number_of(std::uint64_t sortable) {
  return value_of(static_cast<std::int64_t>(sortable ^ kSignBit));
}

// A digit of a sortable integer: twelve bits, the leading ones at depth 0. The last digit has only
// four bits.
std::size_t digit_of(std::uint64_t sortable, int depth) {
  const int settled = kBits * (depth + 1);
  return (settled <= 64 ? sortable >> (64 - settled) : sortable << (settled - 64)) & (kDigits - 1);
}

// The digit at its place in a sortable integer, with 0 in all other bits.
std::uint64_t at_its_place(std::size_t digit, int depth) {
  const int settled = kBits * (depth + 1);
  return settled <= 64 ? std::uint64_t{digit} << (64 - settled) : digit >> (settled - 64);
}

}  // namespace

Ranks::Ranks(std::uint64_t n, std::vector<std::uint64_t> ranks)
    : ranks_(std::move(ranks)), values_(ranks_.size()) {
  if (ranks_.empty()) return;
  groups_.push_back({0, n, 0, 0, ranks_.size()});
  start_pass(0);
}

void Ranks::start_pass(std::size_t first_open) {
  first_open_ = first_open;
  std::uint64_t size = 0;
  for (std::size_t g = first_open_; g < groups_.size(); ++g) size += groups_[g].size;
  keeping_ = size <= (groups_.size() - first_open_) * kDigits;
  for (std::size_t g = first_open_; g < groups_.size(); ++g) {
    if (keeping_) {
      groups_[g].kept.reserve(groups_[g].size);
    } else {
      groups_[g].counts.assign(kDigits, 0);
    }
  }
}

// The group of this pass that holds the value, or nullptr.
Ranks::Group* Ranks::find(std::uint64_t sortable) {
  std::uint32_t group = 0;
  for (int depth = 0; depth < depth_; ++depth) {
    group = groups_[group].inner[digit_of(sortable, depth)];
    if (group == kNone) return nullptr;
  }
  return &groups_[group];
}

void Ranks::add(std::span<const double> values) {
  if (first_open_ == groups_.size()) return;
  if (keeping_) {
    keep(values);
  } else {
    count(values);
  }
}

void Ranks::count(std::span<const double> values) {
  for (const double value : values) {
    const std::uint64_t sortable = sortable_of(value);
    if (Group* const group = find(sortable)) ++group->counts[digit_of(sortable, depth_)];
  }
}

void Ranks::keep(std::span<const double> values) {
  for (const double value : values) {
    const std::uint64_t sortable = sortable_of(value);
    if (Group* const group = find(sortable)) group->kept.push_back(sortable);
  }
}

bool Ranks::end_pass() {
  if (first_open_ == groups_.size()) return false;
  if (keeping_) {
    take_kept();
  } else {
    refine();
  }
  return first_open_ != groups_.size();
}

void Ranks::take_kept() {
  for (std::size_t g = first_open_; g < groups_.size(); ++g) {
    Group& group = groups_[g];
    if (group.kept.size() != group.size) throw std::invalid_argument("the values have changed");
    auto sorted = group.kept.begin();
    for (std::size_t r = group.first_rank; r < group.last_rank; ++r) {
      const auto place = group.kept.begin() + static_cast<std::ptrdiff_t>(ranks_[r] - group.before);
      std::nth_element(sorted, place, group.kept.end());
      values_[r] = number_of(*place);
      sorted = place;
    }
  }
  finish();
}

void Ranks::finish() {
  groups_.clear();
  first_open_ = 0;
}

// Makes a group for each digit that holds a wanted rank.
void Ranks::refine() {
  const std::size_t end = groups_.size();
  for (std::size_t g = first_open_; g < end; ++g) {
    groups_[g].inner.assign(kDigits, kNone);
    const std::vector<std::uint64_t> counts = std::move(groups_[g].counts);
    std::uint64_t before = groups_[g].before;
    std::size_t rank = groups_[g].first_rank;
    const std::size_t last_rank = groups_[g].last_rank;
    for (std::size_t digit = 0; digit < kDigits && rank < last_rank; ++digit) {
      const std::size_t first = rank;
      while (rank < last_rank && ranks_[rank] < before + counts[digit]) ++rank;
      if (rank > first) {
        groups_[g].inner[digit] = static_cast<std::uint32_t>(groups_.size());
        groups_.push_back(
            {groups_[g].leading | at_its_place(digit, depth_), counts[digit], before, first, rank});
      }
      before += counts[digit];
    }
    if (rank < last_rank) throw std::invalid_argument("the values have changed");
  }
  ++depth_;
  if (kBits * depth_ < 64) {
    start_pass(end);
    return;
  }
  for (std::size_t g = end; g < groups_.size(); ++g) {
    for (std::size_t r = groups_[g].first_rank; r < groups_[g].last_rank; ++r) {
      values_[r] = number_of(groups_[g].leading);
    }
  }
  finish();
}

}  // namespace vostrel
