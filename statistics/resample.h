// Random draws with replacement, the same on every machine.

#ifndef VOSTREL_STATISTICS_RESAMPLE_H
#define VOSTREL_STATISTICS_RESAMPLE_H

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vostrel {

/// Philox4x64-10: four random words for each counter and key (J. K. Salmon et al., "Parallel random
/// numbers: as easy as 1, 2, 3", 2011).
std::array<std::uint64_t, 4> philox(std::array<std::uint64_t, 4> counter,
                                    std::array<std::uint64_t, 2> key);

/// The words of one stream: of a seed, the number of a resample, and the number of the stream.
class RandomWords {
 public:
  static constexpr std::size_t kBatch = 32;
  using Batch = std::array<std::uint64_t, kBatch>;

  RandomWords(std::uint64_t seed, std::uint64_t resample, std::uint64_t stream)
      : seed_(seed), resample_(resample), stream_(stream) {}

  /// The next words.
  const Batch& next();

 private:
  std::uint64_t seed_;
  std::uint64_t resample_;
  std::uint64_t stream_;
  std::uint64_t counter_ = 0;
  Batch words_;
};

/// A resample: `size` draws with replacement from the items 0 to size - 1, each equally likely.
///
/// The items form blocks. First the draws are divided among the blocks, then each block is drawn
/// from by itself, from its own stream. Both take nothing but integers and random bits, so that
/// every draw has exactly its probability.
class Resample {
 public:
  /// How many items a block has. The last one may have fewer.
  static constexpr std::size_t kBlock = 1024;

  /// How many draws are handed over at a time, at the most: six of each random word.
  static constexpr std::size_t kDraws = 6 * RandomWords::kBatch;

  /// Takes time in proportion to log(size / kBlock) bits a draw.
  /// Requires: 0 < size < 2^32.
  Resample(std::uint64_t seed, std::uint64_t number, std::size_t size);

  /// How many draws fall into the block.
  std::uint64_t draws_of(std::size_t block) const { return draws_[block]; }

  /// Calls use(positions) for all draws from the block, with kDraws positions in the block at a
  /// time or fewer.
  template <class Use>
  void draw(std::size_t block, Use use) const {
    const std::size_t items = std::min(kBlock, size_ - block * kBlock);
    RandomWords words(seed_, number_, block + 1);
    std::array<std::uint16_t, kDraws> positions;
    for (std::uint64_t left = draws_[block]; left != 0;) {
      const std::size_t found = find_positions(words.next(), items, positions);
      const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(found, left));
      use(std::span<const std::uint16_t>(positions.data(), count));
      left -= count;
    }
  }

 private:
  // Reads each word as six numbers of as many bits as the items need. Those that are too large are
  // left out: none in a block of kBlock items, less than half of them in the last one.
  static std::size_t find_positions(const RandomWords::Batch& words, std::size_t items,
                                    std::array<std::uint16_t, kDraws>& result) {
    const std::uint64_t mask = (std::uint64_t{1} << std::bit_width(items - 1)) - 1;
    std::size_t found = 0;
    for (const std::uint64_t word : words) {
      for (int part = 0; part < 6; ++part) {
        const std::uint64_t position = word >> (10 * part) & mask;
        result[found] = static_cast<std::uint16_t>(position);
        found += position < items;
      }
    }
    return found;
  }

  std::uint64_t seed_;
  std::uint64_t number_;
  std::size_t size_;
  std::vector<std::uint64_t> draws_;
};

/// The items of a resample in ascending order, each as often as it is drawn.
std::vector<std::uint64_t> resample_indices(std::uint64_t seed, std::uint64_t number,
                                            std::size_t size);

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_RESAMPLE_H
