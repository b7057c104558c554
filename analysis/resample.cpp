#include "analysis/resample.h"

#include <bit>
#include <cstring>

namespace vostrel {

namespace {

using Words = std::array<std::uint64_t, 4>;

struct Product {
  std::uint64_t high;
  std::uint64_t low;
};

inline Product multiply(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
  __extension__ using Wide = unsigned __int128;
  const Wide product = Wide{a} * b;
  return {static_cast<std::uint64_t>(product >> 64), static_cast<std::uint64_t>(product)};
#else
  const auto low = [](std::uint64_t x) { return x & 0xffffffff; };
  const std::uint64_t middle = (a >> 32) * low(b) + (low(a) * low(b) >> 32);
  const std::uint64_t other = low(a) * (b >> 32) + low(middle);
  return {(a >> 32) * (b >> 32) + (middle >> 32) + (other >> 32), a * b};
#endif
}

constexpr int kRounds = 10;

using Keys = std::array<std::array<std::uint64_t, 2>, kRounds>;

// The keys of the rounds.
inline Keys keys_of(std::array<std::uint64_t, 2> key) {
  Keys keys;
  for (auto& round : keys) {
    round = key;
    key[0] += 0x9e3779b97f4a7c15;
    key[1] += 0xbb67ae8584caa73b;
  }
  return keys;
}

inline Words mix(Words x, const Keys& keys) {
  for (const auto& key : keys) {
    const Product first = multiply(0xd2e7470ee14c6c93, x[0]);
    const Product second = multiply(0xca5a826395121157, x[2]);
    x = {second.high ^ x[1] ^ key[0], second.low, first.high ^ x[3] ^ key[1], first.low};
  }
  return x;
}

// The distribution of how many of 256 random bits are 1.
class Ones {
 public:
  Ones() {
    // By the rule of Pascal's triangle, which holds for sums along its rows, too.
    sums_.fill({0, 0, 0, 1});
    for (std::size_t bits = 0; bits < kBits; ++bits) {
      for (std::size_t k = kBits; --k > 0;) add(sums_[k], sums_[k - 1]);
    }
    std::size_t k = 0;
    for (std::uint64_t byte = 0; byte < start_.size(); ++byte) {
      while (sums_[k][0] < byte << 56) ++k;
      start_[byte] = static_cast<std::uint8_t>(k);
    }
  }

  // How many sums are at most a random number of 256 bits. Mostly its first 64 bits decide.
  // @param next  returns the next 64 bits of the number.
  template <class Next>
  std::uint64_t draw(Next next) const {
    const std::uint64_t first = next();
    std::size_t k = start_[first >> 56];
    while (sums_[k][0] < first) ++k;
    if (sums_[k][0] > first) return k;
    const Words number = {first, next(), next(), next()};
    while (k < kBits && sums_[k] <= number) ++k;
    return k;
  }

 private:
  static constexpr std::size_t kBits = 256;

  static void add(Words& sum, const Words& other) {
    std::uint64_t carry = 0;
    for (std::size_t i = sum.size(); i-- > 0;) {
      const std::uint64_t part = other[i] + carry;
      sum[i] += part;
      carry = (part < carry) | (sum[i] < part);
    }
  }

  // The binomial coefficients (256, 0) + ... + (256, k), the most significant words first.
  std::array<Words, kBits> sums_;
  std::array<std::uint8_t, 256> start_;  // the first sum that isn't below a number with that byte
};

const Ones& ones() {
  static const Ones result;
  return result;
}

// A sequence of random bits, for the division of draws.
class Bits {
 public:
  Bits(std::uint64_t seed, std::uint64_t resample) : words_(seed, resample, 0) {}

  // How many of `count` random bits are 1.
  std::uint64_t ones(std::uint64_t count) {
    std::uint64_t sum = 0;
    for (; count >= 256; count -= 256) sum += ones_.draw([this] { return next(); });
    for (; count >= 64; count -= 64) sum += ones_of(next());
    if (count != 0) sum += ones_of(next() >> (64 - count));
    return sum;
  }

 private:
  // As std::popcount, which may be a slow call if the processor lacks the instruction.
  static std::uint64_t ones_of(std::uint64_t x) {
    x -= x >> 1 & 0x5555555555555555;
    x = (x & 0x3333333333333333) + (x >> 2 & 0x3333333333333333);
    x = (x + (x >> 4)) & 0x0f0f0f0f0f0f0f0f;
    return x * 0x0101010101010101 >> 56;
  }

  std::uint64_t next() {
    if (used_ == batch_.size()) {
      words_.next(batch_);
      used_ = 0;
    }
    return batch_[used_++];
  }

  const Ones& ones_ = vostrel::ones();
  RandomWords words_;
  std::array<std::uint64_t, 32> batch_;
  std::size_t used_ = batch_.size();
};

// Copies the bytes of words, the least significant one of each word first.
void copy_bytes(std::span<const std::uint64_t> words, std::uint8_t* bytes) {
  if constexpr (std::endian::native == std::endian::little) {
    std::memcpy(bytes, words.data(), words.size_bytes());
  } else {
    for (const std::uint64_t word : words) {
      for (int byte = 0; byte < 8; ++byte) *bytes++ = static_cast<std::uint8_t>(word >> (8 * byte));
    }
  }
}

// How many of `draws` fall into a part of the whole: those whose random binary fraction is less
// than part / whole. Each step draws one more binary digit for those that are not yet decided.
// Requires: 0 < part < whole < 2^63.
std::uint64_t draw_part(std::uint64_t draws, std::uint64_t part, std::uint64_t whole, Bits& bits) {
  std::uint64_t inside = 0;
  while (draws != 0 && part != 0) {
    part *= 2;
    const std::uint64_t ones = bits.ones(draws);
    if (part >= whole) {
      part -= whole;
      inside += draws - ones;
      draws = ones;
    } else {
      draws -= ones;
    }
  }
  return inside;
}

// Divides draws among blocks in proportion to their items. The left part has a power of two of the
// blocks, the largest possible. Most parts are then halves, which need one bit for each draw.
// The depth of recursion is the logarithm of the number of blocks.
// NOLINTNEXTLINE(misc-no-recursion)
void divide(std::uint64_t draws, std::size_t items, std::span<std::uint64_t> blocks, Bits& bits) {
  if (blocks.size() == 1) {
    blocks[0] = draws;
    return;
  }
  const std::size_t left = std::bit_floor(blocks.size() - 1);
  const std::size_t left_items = left * Resample::kBlock;
  const std::uint64_t left_draws = draw_part(draws, left_items, items, bits);
  divide(left_draws, left_items, blocks.first(left), bits);
  divide(draws - left_draws, items - left_items, blocks.subspan(left), bits);
}

}  // namespace

Words philox(Words counter, std::array<std::uint64_t, 2> key) { return mix(counter, keys_of(key)); }

std::uint64_t ones_of_256(const Words& number) {
  std::size_t i = 0;
  return ones().draw([&] { return number[i++]; });
}

void RandomWords::next(std::span<std::uint64_t> words) {
  const Keys keys = keys_of({seed_, 0});
  const Words start = {counter_, stream_, resample_, 0};
  for (std::size_t i = 0; i < words.size(); i += 4) {
    const Words four = mix({start[0] + i / 4, start[1], start[2], start[3]}, keys);
    for (std::size_t k = 0; k < 4; ++k) words[i + k] = four[k];
  }
  counter_ += words.size() / 4;
}

std::span<const std::uint8_t> BlockDraws::next() {
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left_, kMost));
  std::array<std::uint64_t, kMost / 8> words;
  for (std::size_t found = 0; found < wanted;) {
    const auto some = std::span(words).first((wanted - found + 31) / 32 * 4);
    words_.next(some);
    if (items_ == Resample::kBlock) {
      copy_bytes(some, positions_.data());
      break;
    }
    const std::uint64_t mask = (std::uint64_t{1} << std::bit_width(items_ - 1)) - 1;
    for (const std::uint64_t word : some) {
      for (int byte = 0; byte < 8; ++byte) {
        const std::uint64_t position = word >> (8 * byte) & mask;
        positions_[found] = static_cast<std::uint8_t>(position);
        found += position < items_;
      }
    }
  }
  left_ -= wanted;
  return {positions_.data(), wanted};
}

Resample::Resample(std::uint64_t seed, std::uint64_t number, std::size_t size)
    : seed_(seed), number_(number), size_(size), draws_((size + kBlock - 1) / kBlock) {
  Bits bits(seed, number);
  divide(size, size, draws_, bits);
}

std::vector<std::uint64_t> resample_indices(std::uint64_t seed, std::uint64_t number,
                                            std::size_t size) {
  const Resample resample(seed, number, size);
  std::vector<std::uint64_t> result;
  result.reserve(size);
  for (std::size_t first = 0; first < size; first += Resample::kBlock) {
    const std::size_t before = result.size();
    BlockDraws draws = resample.draw(first / Resample::kBlock);
    for (auto some = draws.next(); !some.empty(); some = draws.next()) {
      for (const std::uint8_t position : some) result.push_back(first + position);
    }
    std::sort(result.begin() + static_cast<std::ptrdiff_t>(before), result.end());
  }
  return result;
}

}  // namespace vostrel
