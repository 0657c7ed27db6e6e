// What every target has and may use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// The target itself: one input. The result is 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

// What a target demands of the code under test beyond the sanitizers' rules.
#define FUZZ_REQUIRE(condition)                                                       \
    do {                                                                              \
        if (!(condition)) {                                                           \
            fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                  \
        }                                                                             \
    } while (false)
