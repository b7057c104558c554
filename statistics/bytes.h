// Numbers and texts as bytes, the same on every machine.

#ifndef VOSTREL_STATISTICS_BYTES_H
#define VOSTREL_STATISTICS_BYTES_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vostrel {

/// A checksum of bytes (G. Fowler, L. C. Noll and K.-P. Vo, FNV-1a). Every change of a single byte
/// changes it.
constexpr std::uint64_t checksum(std::string_view bytes) {
  std::uint64_t sum = 0xcbf29ce484222325;
  for (const char byte : bytes) {
    sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  }
  return sum;
}

/// Collects the bytes of numbers and texts.
class ByteWriter {
 public:
  /// Seven bits in each byte, the lowest first: small integers are short.
  void integer(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) bytes_.push_back(static_cast<char>(value | 0x80));
    bytes_.push_back(static_cast<char>(value));
  }
  /// All 64 bits.
  void number(double value) {
    auto bits = std::bit_cast<std::uint64_t>(value);
    for (int i = 0; i < 8; ++i, bits >>= 8) bytes_.push_back(static_cast<char>(bits));
  }
  /// The size, then the numbers.
  void numbers(const std::vector<double>& values) {
    integer(values.size());
    for (const double value : values) number(value);
  }
  /// The size, then the characters.
  void text(std::string_view text) {
    integer(text.size());
    bytes_ += text;
  }
  /// Returns the bytes and their checksum. Requires: this is the last call.
  std::string take() {
    number(std::bit_cast<double>(checksum(bytes_)));
    return std::move(bytes_);
  }

 private:
  std::string bytes_;
};

/// Reads what a ByteWriter wrote, in the same order. Throws std::invalid_argument on anything else.
class ByteReader {
 public:
  explicit ByteReader(std::string_view bytes) {
    constexpr std::size_t kChecksum = sizeof(std::uint64_t);
    require(bytes.size() >= kChecksum);
    bytes_ = bytes.substr(bytes.size() - kChecksum);
    const auto sum = std::bit_cast<std::uint64_t>(number());
    bytes_ = bytes.substr(0, bytes.size() - kChecksum);
    require(sum == checksum(bytes_));
  }

  std::uint64_t integer() {
    std::uint64_t value = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      const unsigned char next = byte();
      value |= static_cast<std::uint64_t>(next & 0x7f) << shift;
      if (next < 0x80) return value;
    }
    require(false);
    return 0;
  }
  /// An integer below `limit`.
  std::size_t index(std::size_t limit) {
    const std::uint64_t value = integer();
    require(value < limit);
    return static_cast<std::size_t>(value);
  }
  /// The number of items that follow, each of a byte or more.
  std::size_t count() { return index(bytes_.size() + 1); }
  double number() {
    std::uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) bits |= std::uint64_t{byte()} << (8 * i);
    return std::bit_cast<double>(bits);
  }
  std::vector<double> numbers() {
    std::vector<double> values(count());
    for (double& value : values) value = number();
    return values;
  }
  std::string_view text() {
    const std::size_t size = count();
    const std::string_view text = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return text;
  }
  bool at_end() const { return bytes_.empty(); }

  /// Throws std::invalid_argument unless the condition holds.
  void require(bool condition) const {
    if (!condition) throw std::invalid_argument("the bytes are not the state of an accumulator");
  }

 private:
  unsigned char byte() {
    require(!bytes_.empty());
    const auto first = static_cast<unsigned char>(bytes_.front());
    bytes_.remove_prefix(1);
    return first;
  }

  std::string_view bytes_;
};

}  // namespace vostrel

#endif  // VOSTREL_STATISTICS_BYTES_H
