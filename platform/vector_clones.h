#pragma once

/// Has a function built twice, the second time for processors with AVX2, which take that one. For loops that compilers
/// turn into instructions on many values at a time. Not under the sanitizers, which are not there yet when it is
/// chosen.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define NIMBRALE_VECTOR_CLONES [[gnu::target_clones("avx2", "default")]]
#else
#define NIMBRALE_VECTOR_CLONES
#endif
