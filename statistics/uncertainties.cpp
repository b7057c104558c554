#include "statistics/uncertainties.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "floating_point.h"
#include "statistics/ranks.h"
#include "statistics/residuals.h"

namespace vostrel {

namespace {

// The residuals of two columns, made block by block.
template <class Residual>
class Residuals {
 public:
  Residuals(std::span<const double> reference, std::span<const double> estimate, Residual residual,
            const Checkpoint& checkpoint)
      : reference_(reference), estimate_(estimate), residual_(residual), checkpoint_(checkpoint) {}

  // Calls use(block) for each block, which it may change.
  template <class Use>
  void for_each_block(Use use) const {
    std::array<double, Accumulator::kBlockSize> room;
    for (std::size_t first = 0; first < reference_.size(); first += Accumulator::kBlockSize) {
      const std::size_t count = std::min(Accumulator::kBlockSize, reference_.size() - first);
      for (std::size_t i = 0; i < count; ++i) {
        room[i] = residual_(reference_[first + i], estimate_[first + i]);
      }
      use(std::span<double>(room.data(), count));
      checkpoint_();
    }
  }

  std::size_t size() const { return reference_.size(); }

 private:
  std::span<const double> reference_;
  std::span<const double> estimate_;
  Residual residual_;
  const Checkpoint& checkpoint_;
};

template <class Residual>
std::vector<double> absolute_of_ranks(const Residuals<Residual>& residuals,
                                      std::span<const std::uint64_t> ranks) {
  std::vector<std::uint64_t> ascending(ranks.begin(), ranks.end());
  std::sort(ascending.begin(), ascending.end());
  Ranks search(residuals.size(), ascending);
  do {
    residuals.for_each_block([&](std::span<double> block) {
      for (double& value : block)
        value = std::fabs(value);  // NaN too: without a sign it sorts last
      search.add(block);
    });
  } while (search.end_pass());
  std::vector<double> result;
  for (const std::uint64_t rank : ranks) {
    const auto place = std::lower_bound(ascending.begin(), ascending.end(), rank);
    result.push_back(search.values()[static_cast<std::size_t>(place - ascending.begin())]);
  }
  return result;
}

template <class Residual>
Spread spread(const Residuals<Residual>& residuals, std::span<const std::uint64_t> ranks) {
  const auto n = static_cast<double>(residuals.size());
  double sum = 0;
  residuals.for_each_block([&](std::span<const double> block) {
    for (const double residual : block) sum += residual;
  });
  const double bias = sum / n;
  Spread result{};
  residuals.for_each_block([&](std::span<const double> block) {
    for (const double residual : block) {
      const double square = residual * residual;
      const double square_about = (residual - bias) * (residual - bias);
      result.second += square;
      result.fourth += square * square;
      result.second_about += square_about;
      result.fourth_about += square_about * square_about;
    }
  });
  result.second /= n;
  result.fourth /= n;
  result.second_about /= n;
  result.fourth_about /= n;
  result.absolute = absolute_of_ranks(residuals, ranks);
  return result;
}

}  // namespace

std::array<Spread, 2> spreads(std::span<const double> reference, std::span<const double> estimate,
                              std::span<const std::uint64_t> ranks, const Checkpoint& checkpoint) {
  const auto spread_of = [&](auto residual) {
    return spread(Residuals(reference, estimate, residual, checkpoint), ranks);
  };
  Spread delta = spread_of(residual);
  return {std::move(delta), spread_of(normalized_residual)};
}

}  // namespace vostrel
