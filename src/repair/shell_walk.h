// The walk over a shell that finds which faces must be turned over so that all agree and look out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/edge_mates.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// From the highest vertex of a shell, whose faces must look up on the whole, the walk crosses the
/// edges that exactly two faces hold, and turns over each face that disagrees with the one it was
/// reached from.
///
/// It does not touch the mesh: a bit per face says which way round the face stands at the moment.
/// Everything that needs positions is settled in one pass over the faces in their order in memory,
/// so that the walk itself, which jumps about the mesh, reads a byte a face and the edge table
/// only.
class ShellWalk {
public:
    struct Counts {
        std::uint32_t turns = 0;  // turns made; a face can be turned twice
        std::uint32_t open_corners =
            0;  // corners of visited faces with an edge no other face holds
        std::uint32_t non_manifold = 0;  // visited faces with an edge several other faces hold
    };

    /// @param mesh   its shells must be labelled
    /// @param mates  the edge table of the mesh
    /// @param vertices  positions to go by, as many as the mesh has vertices; those of the mesh, or
    /// a
    ///                  rotated copy
    /// @param test_degenerate  also test every live face for being degenerate, in the same pass
    ShellWalk(const TriMesh& mesh, const EdgeMates& mates, std::span<const Vertex> vertices,
              bool test_degenerate);

    std::uint32_t degenerate_count() const { return degenerate_count_; }

    /// Walks one shell; each shell is walked once at most. Without a face that looks up (normal z
    /// of at least -0.0001) it does nothing.
    Counts walk(std::uint32_t shell);

    /// Lets the faces of a shell stand as they are stored in the mesh again.
    void forget_turns(std::uint32_t shell);

    bool is_turned(std::size_t face) const { return has(face, kTurned); }
    bool is_degenerate(std::size_t face) const { return has(face, kDegenerate); }
    bool was_open(std::size_t face) const { return has(face, kOpen); }
    bool was_non_manifold(std::size_t face) const { return has(face, kNonManifold); }

private:
    static constexpr std::uint8_t kVisited = 1;
    static constexpr std::uint8_t kTurned = 2;
    static constexpr std::uint8_t kRepeatsVertex = 4;  // two of its vertex indices are equal
    static constexpr std::uint8_t kDegenerate = 8;
    static constexpr std::uint8_t kOpen = 16;
    static constexpr std::uint8_t kNonManifold = 32;
    static constexpr std::uint8_t kMayHoldTop = 64;  // as high as any face before it in its shell

    static constexpr std::uint32_t kNoShell = 0xFFFFFFFF;
    static constexpr std::int32_t kNoVertex = -1;

    bool has(std::size_t face, std::uint8_t bit) const { return (state_[face] & bit) != 0; }
    void set(std::size_t face, std::uint8_t bit) {
        state_[face] = static_cast<std::uint8_t>(state_[face] | bit);
    }
    void turn(std::uint32_t face);
    std::array<std::int32_t, 3> corners(std::uint32_t face) const;
    std::size_t stored_edge(std::uint32_t face, std::size_t edge) const;
    Vec3f position(std::int32_t vertex) const;
    double normal_z(std::uint32_t face) const;
    double sum_z() const;

    void number_shells();
    std::uint32_t shell_of(std::size_t face) const;
    void survey(bool test_degenerate);
    void note_height(std::uint32_t face, Vec3f a, Vec3f b, Vec3f c);
    std::int32_t top_vertex(std::uint32_t shell) const;
    bool find_seed(std::uint32_t shell, std::uint32_t& seed);
    void gather_around(std::uint32_t shell, std::int32_t vertex);
    void walk_from(std::uint32_t seed);
    void reach(std::uint32_t face);
    bool examine_edges(std::uint32_t face);
    bool disagree(std::uint32_t face, std::size_t edge, std::uint32_t mate) const;

    const TriMesh& mesh_;
    const EdgeMates& mates_;
    std::span<const Vertex> vertices_;
    std::uint32_t degenerate_count_ = 0;
    Counts counts_;                // of the shell at hand
    Array<std::uint8_t> state_;    // of every face
    Array<std::uint32_t> shells_;  // of every face: its shell; empty when there is one only
    Array<float> top_heights_;     // of every shell
    Array<std::uint32_t> queue_;   // all walks in turn; each face enters once
    std::size_t head_ = 0;
    std::size_t tail_ = 0;
    Array<std::uint32_t> around_;  // faces at the top of the shell at hand
};

}  // namespace povmesh
