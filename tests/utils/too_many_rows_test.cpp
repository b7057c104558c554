// Pretends to have more than 2,147,483,647 rows. The medians throw: a run ends before it
// prints a statistic. Row numbers beyond that are tested in row_writer_test.cpp.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

#include "tests/support/open_utils.h"

namespace {

#if defined(__GLIBCXX__)

// Makes a vector pretend to have `size` entries, which nothing reads. The vector of libstdc++ is
// three pointers: begin, end, end of the storage.
template <class Entry>
class Pretended {
 public:
  Pretended(std::vector<Entry>& vector, std::size_t size) : vector_(vector) {
    static_assert(sizeof vector == 3 * sizeof(Entry*));
    Entry* const begin = &entry_;
    Entry* const end =
        reinterpret_cast<Entry*>(reinterpret_cast<std::uintptr_t>(begin) + size * sizeof(Entry));
    Entry* const pointers[] = {begin, end, end};
    std::memcpy(static_cast<void*>(&vector_), pointers, sizeof pointers);
  }
  ~Pretended() { std::memset(static_cast<void*>(&vector_), 0, sizeof vector_); }
  Pretended(const Pretended&) = delete;
  Pretended& operator=(const Pretended&) = delete;

 private:
  std::vector<Entry>& vector_;
  Entry entry_ = 0;
};

TEST(TooManyRows, MediansThrowForMoreValuesThanAnIntCanCount) {
  for (const std::size_t size : {std::size_t{1} << 31, (std::size_t{1} << 32) + 5}) {
    OpenUtils run = empty_set();
    const Pretended delta(run.delta, size);
    const Pretended delta_norm(run.deltaNorm, size);
    EXPECT_THROW(run.CalculateMADDeltaz(), std::bad_array_new_length);
    EXPECT_THROW(run.CalculateMADDeltazNorm(), std::bad_array_new_length);
    EXPECT_THROW(run.CalculateMAD(), std::bad_array_new_length);
    EXPECT_THROW(run.CalculateMADNorm(), std::bad_array_new_length);
    const Pretended id(run.id, size);
    EXPECT_THROW(run.CalculateStatistics(), std::bad_array_new_length);
  }
}

#endif

}  // namespace
