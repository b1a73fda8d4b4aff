#ifndef MEMBLOCK_BASE_MULTIVERSION_H
#define MEMBLOCK_BASE_MULTIVERSION_H

/// Marks the function that holds the loops of a kernel: it is compiled for several instruction
/// sets and the loader picks one. The loops themselves must be inlined into it
/// (`MEMBLOCK_INLINE_LOOP`), or they stay at the baseline. All versions give the same bits, since
/// contraction of a*b+c is off.
///
/// Sanitizers instrument what the loader calls before they are ready, and clang has no versions of
/// templates: there is one version then.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) &&                \
    !defined(__SANITIZE_THREAD__)
#define MEMBLOCK_MULTIVERSION                                                                      \
    __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define MEMBLOCK_MULTIVERSION
#endif

/// Marks a loop that becomes part of each version of its caller.
#define MEMBLOCK_INLINE_LOOP __attribute__((always_inline)) inline

#endif // MEMBLOCK_BASE_MULTIVERSION_H
