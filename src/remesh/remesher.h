// One run of remeshing: rounds of local steps over a surface, against the original one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

#include "base/array.h"
#include "mesh/tri_mesh.h"
#include "remesh/feature_lines.h"
#include "remesh/half_edge_mesh.h"
#include "remesh/sizing_field.h"
#include "spatial/nearest_face.h"

namespace povmesh {

class Remesher {
public:
    /// The edges of a relaxed surface come out longer than the middle of the two bounds. With this
    /// factor for the lengths their mean is 0.94 of the length asked for.
    static constexpr double kAim = 0.92;

    /// @param original  with its features marked, and places that floats hold; with a tree over it
    ///                  and the lengths wanted on it; all three outlive this
    /// @param surface  the same; more may be locked
    /// @param most_triangles  an end to splitting, whatever the input
    Remesher(const HalfEdgeMesh& original, const NearestFace& tree, const SizingField& field,
             HalfEdgeMesh surface, std::size_t most_triangles);

    /// Calls `tell` after each round.
    void run(int rounds, const std::function<void(int done)>& tell);

    /// Where lengths in the field were lowered since, makes the edges as short as that, and leaves
    /// everything else as it is.
    void refine();

    /// How many of the edges are within 0.6 to 1.6 of a length, as shares; those of two faces count
    /// twice.
    struct Evenness {
        double of_asked = 0;   // of the length in `asked`
        double of_wanted = 0;  // of what was wanted where they are
    };
    Evenness evenness(const SizingField& asked) const;

    /// White and without labels; its faces are the live triangles in their order.
    TriMesh result() const;

    /// By face of the result: not 0 where the last refinement may have changed it.
    Array<std::uint8_t> changed_faces() const;

private:
    struct LongEdge {
        double squared;
        std::uint32_t half_edge;
        friend bool operator<(const LongEdge& x, const LongEdge& y) {
            return x.squared != y.squared ? x.squared < y.squared : x.half_edge > y.half_edge;
        }
    };
    static std::size_t index(std::int32_t v) { return static_cast<std::size_t>(v); }
    double length_at(std::uint32_t h) const;
    bool is_upper(std::uint32_t h) const;
    double wanted_at(const NearestPoint& found, std::size_t v) const;

    bool is_active(std::int32_t v) const { return is_active_.empty() || is_active_[index(v)] != 0; }
    bool has_active_vertex(std::size_t t) const;
    bool has_active_ends(std::uint32_t h) const {
        return is_active(surface_.origin(h)) && is_active(surface_.target(h));
    }
    void order_in_space();

    bool should_collapse_first() const;
    void split_long_edges();
    bool try_split(std::uint32_t h, std::int32_t& made);
    bool is_long(std::uint32_t h) const;
    void add_if_long(std::uint32_t h, std::vector<LongEdge>& heap) const;
    void push_if_long(std::uint32_t h, std::vector<LongEdge>& heap) const;
    bool is_beside_longer_edge(std::uint32_t h) const;

    void collapse_short_edges();
    void try_collapse(std::uint32_t h);
    void collapse_on_line(std::uint32_t h);
    bool keeps_line(std::uint32_t h, double along) const;
    bool strays(const FeatureLines::Part& part, double wanted) const;
    bool merge(std::uint32_t h, Vec3d place);
    bool may_move(std::int32_t v, std::int32_t other, Vec3d place) const;

    void flip_edges();
    int excess_valence(std::int32_t v) const;
    bool evens_valences(std::uint32_t h) const;
    bool may_flip(std::uint32_t h) const;

    void relax();
    Vec3d relaxed(std::size_t v);
    Vec3d relaxed_on_surface(std::int32_t v, Vec3d p);
    Vec3d relaxed_on_line(std::int32_t v, Vec3d p);
    Triangle3d original_corners(std::uint32_t t) const {
        const std::array<std::int32_t, 3>& v = original_.triangles[t];
        return {original_.position(v[0]), original_.position(v[1]), original_.position(v[2])};
    }
    NearestPoint walk(Vec3d wanted, std::uint32_t face) const;
    NearestPoint nearest(Vec3d wanted, std::int32_t v, Vec3d normal) const;
    void restore_spoiled_faces();
    bool is_spoiled(std::size_t t) const;

    void mend_small_angles();
    void fit_to_volume();
    double sag(std::size_t t) const;
    Vec3d fitted_on_surface(std::int32_t v, const Array<double>& sags) const;
    Vec3d fitted_on_line(std::int32_t v) const;

    const HalfEdgeMesh& original_;
    const NearestFace& tree_;
    const SizingField& field_;
    HalfEdgeMesh surface_;
    FeatureLines lines_;
    std::size_t most_triangles_;
    Array<double> lengths_;          // wanted at each vertex
    Array<std::uint32_t> sources_;   // a face of the original near each vertex
    Array<std::uint8_t> is_active_;  // by vertex: it may change; empty: all may
    Array<Vec3d> old_positions_;     // before the step at hand
    Array<double> old_places_;
    Array<double> new_places_;
    Array<double> new_lengths_;
};

}  // namespace povmesh
