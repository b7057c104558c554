// What happens beyond 2,147,483,647 rows, without having them: the row numbers go on at the lower
// end of the int range, and a run ends by the standard allocation error before it prints a number.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include "tests/plain/plain_utils.h"
#include "tests/support/open_utils.h"
#include "text/row_writer.h"

namespace {

constexpr int kLargest = std::numeric_limits<int>::max();

std::string text_of(vostrel::RowNumber& number) {
  char text[16];
  return {text, number.write(text)};
}

TEST(TooManyRows, RowNumbersGoOnAtTheLowerEndOfTheirRange) {
  vostrel::RowNumber number(kLargest - 5000);
  int plain = kLargest - 5000;
  for (int i = 0; i < 20000; ++i) {
    ASSERT_EQ(text_of(number), std::to_string(plain));
    number.increment();
    plain = plain::next_row(plain);
  }
  EXPECT_EQ(text_of(number), "-2147468649");
}

#if defined(__GLIBCXX__)

// A vector that claims to have `size` numbers, which is all that is looked at. The library's vector
// is three pointers: begin, end, end of the room.
class Pretended {
 public:
  Pretended(std::vector<double>& vector, std::size_t size) : vector_(vector) {
    static_assert(sizeof vector == 3 * sizeof(double*));
    double* const begin = &number_;
    double* const end =
        reinterpret_cast<double*>(reinterpret_cast<std::uintptr_t>(begin) + size * sizeof(double));
    double* const pointers[] = {begin, end, end};
    std::memcpy(static_cast<void*>(&vector_), pointers, sizeof pointers);
  }
  ~Pretended() { std::memset(static_cast<void*>(&vector_), 0, sizeof vector_); }
  Pretended(const Pretended&) = delete;
  Pretended& operator=(const Pretended&) = delete;

 private:
  std::vector<double>& vector_;
  double number_ = 0;
};

TEST(TooManyRows, EveryMedianOfMoreValuesThanAnIntCountsIsRefused) {
  for (const std::size_t size : {std::size_t{1} << 31, (std::size_t{1} << 32) + 5}) {
    OpenUtils run = empty_set();
    const Pretended delta(run.delta, size);
    const Pretended delta_norm(run.deltaNorm, size);
    EXPECT_THROW(run.CalculateMADDeltaz(), std::bad_array_new_length);
    EXPECT_THROW(run.CalculateMADDeltazNorm(), std::bad_array_new_length);
    EXPECT_THROW(run.CalculateMAD(), std::bad_array_new_length);
    EXPECT_THROW(run.CalculateMADNorm(), std::bad_array_new_length);
  }
}

#endif

TEST(TooManyRows, ANegativeCountIsRefused) {
  const OpenUtils run = empty_set();
  for (const int count : {-1, std::numeric_limits<int>::min()}) {
    EXPECT_THROW(run.CalculateMedian({1, 2}, count), std::bad_array_new_length);
    EXPECT_THROW(run.CalculateAbsMedian({1, 2}, count), std::bad_array_new_length);
  }
}

}  // namespace
