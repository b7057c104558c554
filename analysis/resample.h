// Random draws with replacement, the same on every machine.

#ifndef VOSTREL_ANALYSIS_RESAMPLE_H
#define VOSTREL_ANALYSIS_RESAMPLE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vostrel {

/// Philox4x64-10: four random words for each counter and key (J. K. Salmon et al., "Parallel random
/// numbers: as easy as 1, 2, 3", 2011).
std::array<std::uint64_t, 4> philox(std::array<std::uint64_t, 4> counter,
                                    std::array<std::uint64_t, 2> key);

/// How many of 256 random bits are 1, drawn by the inverse of its distribution: how many of the
/// sums of binomial coefficients (256, 0) + ... + (256, k) for k = 0 to 255 are at most a random
/// number.
/// @param number  a number of 256 random bits, the most significant word first.
std::uint64_t ones_of_256(const std::array<std::uint64_t, 4>& number);

/// The random words of one stream, which is named by a seed, the number of a resample and the
/// number of the stream.
class RandomWords {
 public:
  RandomWords(std::uint64_t seed, std::uint64_t resample, std::uint64_t stream)
      : seed_(seed), resample_(resample), stream_(stream) {}

  /// Fills `words` with the next words of the stream.
  /// Requires: their number is a multiple of four.
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
  /// The largest number of draws that next() returns.
  static constexpr std::size_t kMost = 224;

  /// `draws` draws from `items` items, each equally likely.
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
/// The items form blocks. First the draws are divided among the blocks. Then each block has its own
/// stream of draws. Both steps use only integers and random bits, so every draw has exactly its
/// probability.
class Resample {
 public:
  /// The number of items in a block: a position is one byte. The last block may have fewer.
  static constexpr std::size_t kBlock = 256;

  /// Takes about log2(size / kBlock) / 4 random bits for each draw.
  /// Requires: 0 < size < 2^32.
  Resample(std::uint64_t seed, std::uint64_t number, std::size_t size);

  /// The draws from a block.
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

/// The items of a resample in ascending order, repeated for repeated draws.
std::vector<std::uint64_t> resample_indices(std::uint64_t seed, std::uint64_t number,
                                            std::size_t size);

}  // namespace vostrel

#endif  // VOSTREL_ANALYSIS_RESAMPLE_H
