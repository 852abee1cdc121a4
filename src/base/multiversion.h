// One function compiled for several instruction sets; the machine's best is taken when the library
// is loaded.
#pragma once

// For hot loops of plain floating-point arithmetic, where wider vectors pay. Without contraction of
// products and sums (-ffp-contract=off) all clones give the same bits. Sanitizers want their own
// start-up code to run before the choice is made, so their builds have one clone.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer) || \
    __has_feature(memory_sanitizer)
#define POVMESH_MULTIVERSION
#endif
#endif
#if !defined(POVMESH_MULTIVERSION) && defined(__x86_64__) && defined(__linux__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define POVMESH_MULTIVERSION __attribute__((target_clones("avx2", "default")))
#elif !defined(POVMESH_MULTIVERSION)
#define POVMESH_MULTIVERSION
#endif

// What a pointer with this points to is reached through no other pointer of the function.
#define POVMESH_RESTRICT __restrict
