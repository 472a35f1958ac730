#pragma once
// A property that must hold for every input; a failure stops the run where libFuzzer (or the
// replay test) can report the input.
#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(cond)                                                                  \
    do {                                                                                  \
        if (!(cond)) {                                                                    \
            std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #cond); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (0)
