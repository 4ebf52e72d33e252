#pragma once
// How hot functions are compiled.

// A hot function compiled for the common instruction sets, chosen when the program starts, so that one binary runs
// everywhere. Contraction is off, so all versions give the same bits. Sanitizers can't run code that early.

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(ORLIX_SANITIZED)
#define ORLIX_MULTIVERSION __attribute__((target_clones("avx2", "default")))
#else
#define ORLIX_MULTIVERSION
#endif

// For helpers that take the compiler's vectors: they go by reference, and the helper into its caller, since the calling
// convention for 32-byte vectors differs with the instruction set.
#define ORLIX_INLINE inline __attribute__((always_inline))
