#pragma once

#include <cstdio>
#include <cstdlib>

// Stops the run when an invariant of a fuzz target does not hold. libFuzzer
// then keeps the input as a crash, and the corpus replay test fails on it.
#define FUZZ_CHECK(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)
