// The size of the blocks in which files are read.

#ifndef VOSTREL_TEXT_BLOCK_SIZE_H
#define VOSTREL_TEXT_BLOCK_SIZE_H

#include <cstddef>

// Tests set small blocks: many lines then cross a block boundary. Two blocks must hold a row: at
// least 34 bytes each.
#ifndef VOSTREL_BLOCK_SIZE
#define VOSTREL_BLOCK_SIZE (std::size_t{1} << 17)
#endif

namespace vostrel {

/// The bytes of a file that are read at once: enough to make system calls cheap, few enough to stay
/// in the processor's cache.
inline constexpr std::size_t kBlockSize = VOSTREL_BLOCK_SIZE;

}  // namespace vostrel

#endif  // VOSTREL_TEXT_BLOCK_SIZE_H
