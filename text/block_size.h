// The size of the pieces in which files are read.

#ifndef VOSTREL_TEXT_BLOCK_SIZE_H
#define VOSTREL_TEXT_BLOCK_SIZE_H

#include <cstddef>

// Tests may set another size, to meet the edges of blocks more often: 34 at the least, so that a
// row fits into the two blocks in which rows are gathered.
#ifndef VOSTREL_BLOCK_SIZE
#define VOSTREL_BLOCK_SIZE (std::size_t{1} << 17)
#endif

namespace vostrel {

/// How much of a file is read at once: so much that the cost of a system call does not count, and
/// so little that the text and what is made of it stay in the processor's cache.
inline constexpr std::size_t kBlockSize = VOSTREL_BLOCK_SIZE;

}  // namespace vostrel

#endif  // VOSTREL_TEXT_BLOCK_SIZE_H
