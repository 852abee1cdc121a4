// A check of a fuzz target that stays in every build and says what it found wrong.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

inline void require(bool holds, const std::string& what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz target: %s\n", what.c_str());
    std::abort();
}
