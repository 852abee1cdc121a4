// A C++ host with a runtime of its own catches what the header says is thrown.
#include <povmesh/povmesh.h>

#include <cstdio>
#include <new>
#include <stdexcept>
#include <vector>

int main(int argument_count, char** arguments) {
    if (argument_count != 2) return 2;
    if (std::FILE* const file = std::fopen(arguments[1], "wb")) {
        std::fputs("v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nf 1 2 3 9\n", file);
        std::fclose(file);
    }
    int caught = 0;
    float* corners = nullptr;
    std::uint32_t count = 0;
    try {
        importFile(arguments[1], &corners, nullptr, nullptr, nullptr, &count);
    } catch (const std::out_of_range& error) {
        std::printf("%s\n", error.what());
        ++caught;
    }
    try {
        float corner[9] = {};
        float* corners_in = corner;
        std::uint32_t too_many = 0xFFFFFFFFU;
        meshReduceFromData(0.5F, &corners_in, &too_many, &corners, &count);
    } catch (const std::length_error& error) {
        std::printf("%s\n", error.what());
        ++caught;
    }
    freeAllArray();
    return caught == 2 ? 0 : 1;
}
