// Functions that exist twice.

#ifndef VOSTREL_STATISTICS_ALSO_FOR_AVX2_H
#define VOSTREL_STATISTICS_ALSO_FOR_AVX2_H

// Compiles a function a second time, for processors with AVX2, which take four numbers at once. The
// GNU C library chooses when the program starts, too early for sanitizers. The bits are the same:
// nothing is contracted.
#if defined(__x86_64__) && defined(__GLIBC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define VOSTREL_ALSO_FOR_AVX2 [[gnu::target_clones("avx2", "default")]]
#else
#define VOSTREL_ALSO_FOR_AVX2
#endif

#endif  // VOSTREL_STATISTICS_ALSO_FOR_AVX2_H
