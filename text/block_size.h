// The size of the blocks in which files are read.

#ifndef VOSTREL_TEXT_BLOCK_SIZE_H
#define VOSTREL_TEXT_BLOCK_SIZE_H

#include <cstddef>

// Tests set small blocks to meet block boundaries often. A row must fit into two: at least 34
// bytes.
#ifndef VOSTREL_BLOCK_SIZE
#define VOSTREL_BLOCK_SIZE (std::size_t{1} << 17)
#endif

namespace vostrel {

/// How much of a file is read at once: enough to make system calls cheap, little enough to stay in
/// the processor's cache.
inline constexpr std::size_t kBlockSize = VOSTREL_BLOCK_SIZE;

}  // namespace vostrel

#endif  // VOSTREL_TEXT_BLOCK_SIZE_H
