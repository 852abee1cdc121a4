// Which points become one vertex.
#pragma once

#include <cstdint>

namespace povmesh {

/// Points of the same bits always become one vertex. The rule that hosts rely on for the number
/// and the order of vertices merges others with them, too: those of one cell of the box whose bits
/// have the same sum (see build_f.h), which points of a lattice of 2,000 steps a side may have.
enum class Welding : std::uint8_t { SameBits, SameSums };

/// The rule of this thread: `SameBits` outside any scope.
Welding welding_of_thread();

/// Sets the rule of this thread while it lives.
class WeldingScope {
public:
    explicit WeldingScope(Welding welding);
    ~WeldingScope();
    WeldingScope(const WeldingScope&) = delete;
    WeldingScope& operator=(const WeldingScope&) = delete;

private:
    Welding before_;
};

}  // namespace povmesh
