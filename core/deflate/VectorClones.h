// VectorClones: marks a hot loop written for the compiler's vectoriser. On
// x86-64 with GCC the function gets an AVX2 clone besides the baseline one,
// picked at load time by what the CPU offers, and is optimised as at -O3
// whatever the build type. Used by the match finder's key hashing and by
// Adler-32.
#pragma once

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define VECTOR_CLONES __attribute__((target_clones("avx2", "default"), optimize("O3")))
#else
#define VECTOR_CLONES
#endif
