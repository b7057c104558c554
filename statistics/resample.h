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
  RandomWords(std::uint64_t seed, std::uint64_t resample, std::uint64_t stream)
      : seed_(seed), resample_(resample), stream_(stream) {}

  /// The next words.
  /// Requires: a multiple of four.
  void next(std::span<std::uint64_t> words);

 private:
  std::uint64_t seed_;
  std::uint64_t resample_;
  std::uint64_t stream_;
  std::uint64_t counter_ = 0;
};

/// The draws from one block of a resample.
class BlockDraws {
 public:
  /// How many are handed over at a time, at the most.
  static constexpr std::size_t kMost = 224;

  /// Draws from `items` items, all equally likely.
  /// Requires: 0 < items <= 256.
  BlockDraws(RandomWords words, std::size_t items, std::uint64_t draws)
      : words_(words), items_(items), left_(draws) {}

  /// The positions in the block of the next draws, or none after the last one.
  std::span<const std::uint8_t> next();

 private:
  RandomWords words_;
  std::size_t items_;
  std::uint64_t left_;
  std::array<std::uint8_t, kMost + 32> positions_;
};

/// A resample: `size` draws with replacement from the items 0 to size - 1, each equally likely.
///
/// The items form blocks. First the draws are divided among the blocks, then each block is drawn
/// from by itself, from its own stream. Both take nothing but integers and random bits, so that
/// every draw has exactly its probability.
class Resample {
 public:
  /// How many items a block has: a position is one byte. The last block may have fewer.
  static constexpr std::size_t kBlock = 256;

  /// Takes time in proportion to log(size / kBlock) bits a draw.
  /// Requires: 0 < size < 2^32.
  Resample(std::uint64_t seed, std::uint64_t number, std::size_t size);

  BlockDraws draw(std::size_t block) const {
    return {RandomWords(seed_, number_, block + 1), std::min(kBlock, size_ - block * kBlock),
            draws_[block]};
  }

 private:
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
