// The factors of the hash functions.
#include "mesh/weld_table.h"

#include <array>
#include <chrono>
#include <exception>
#include <random>

namespace povmesh {
namespace {

std::uint64_t draw() {
    try {
        std::random_device random;
        return (std::uint64_t{random()} << 32) | random();
    } catch (const std::exception&) {
        // No source of randomness on this machine: the time is better than nothing.
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        return static_cast<std::uint64_t>(now) * 0x9E3779B97F4A7C15U;
    }
}

std::array<std::uint64_t, kHashFactors> draw_factors() {
    std::array<std::uint64_t, kHashFactors> factors{};
    for (std::uint64_t& factor : factors) factor = draw() | 1;  // an odd factor loses no bit
    return factors;
}

}  // namespace

std::uint64_t hash_factor(std::size_t which) {
    static const std::array<std::uint64_t, kHashFactors> factors = draw_factors();
    return factors[which];
}

}  // namespace povmesh
