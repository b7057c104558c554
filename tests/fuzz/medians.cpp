// The medians of the first n of up to 64 numbers. They must have the bits that the plain bubble
// sort gives.

#include <span>

#include "fuzz.h"
#include "statistics/statistics.h"
#include "tests/plain/plain_utils.h"
#include "tests/support/open_utils.h"

namespace {

constexpr std::size_t kMost = 64;

// One number per byte: repeats, zeros of both signs and NaN are frequent.
double from_byte(std::uint8_t byte) {
  static constexpr double kFew[] = {kNaN, -kNaN, kInfinity, -kInfinity, 0.0, -0.0, 5e-324, 1e308};
  if (byte < 8) return kFew[byte];
  return (byte - 130) / 8.0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool any_bits = input.byte() % 2 != 0;
  const std::uint8_t leave_out = input.byte();
  std::vector<double> values;
  while (!input.empty() && values.size() < kMost) {
    values.push_back(any_bits ? input.number() : from_byte(input.byte()));
  }
  // Mostly all of them, sometimes a part.
  const std::size_t n =
      leave_out < 128 ? values.size() : values.size() - leave_out % (values.size() + 1);
  const int count = static_cast<int>(n);

  OpenUtils product(0, "table", "report", 1, 2);
  plain::UTILS plain(0, "table", "report", 1, 2);
  require(bits_without_payload(vostrel::median(std::span(values).first(n))) ==
              bits_without_payload(plain::median(values, count)),
          "median");
  require(bits_without_payload(vostrel::absolute_median(std::span(values).first(n))) ==
              bits_without_payload(plain::abs_median(values, count)),
          "median of absolutes");
  product.delta = plain.delta = values;
  product.CalculateMADDeltaz();
  plain.CalculateMADDeltaz();
  require(
      bits_without_payload(product.getMADDeltaz()) == bits_without_payload(plain.getMADDeltaz()),
      "median of distances");
  return 0;
}
