#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the fuzz program, and so reports the input, if `condition` does not hold.
#define VPR_REQUIRE(condition)                                                           \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                \
        }                                                                                \
    } while (false)
