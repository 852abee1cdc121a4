// A level of Loop subdivision in four steps: rows of the corners at each vertex tell its
// neighbours, whether it lies on a border, and which half-edges belong together; a plan numbers the
// new vertices, faces and texture records in face order; then all of them are written side by side,
// and the old vertices move.
//
// Notation: half-edge 3 f + c is the side of face f from its corner c to the next one. Positions
// are computed in single precision, in the order in which faces come: hosts compare results.
//
// Source: C. Loop, Smooth subdivision surfaces based on triangles, University of Utah 1987.
#include "remesh/subdivide.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numbers>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "base/parallel.h"
#include "base/poll.h"
#include "mesh/compact.h"
#include "remesh/triangle_half_edges.h"

namespace povmesh {
namespace {

using HalfEdge = std::uint32_t;

// Lengths that vary by more than this share of their mean lower the threshold.
constexpr double kUneven = 0.35;
constexpr double kUnevenFactor = 0.8;

// Rows up to this length are matched by looking through them, longer ones by sorting.
constexpr std::size_t kShortRow = 32;

constexpr HalfEdge kWhole = std::numeric_limits<HalfEdge>::max();  // an edge that is not split
constexpr std::int32_t kNone = -1;
constexpr std::size_t kMaxIndex = std::numeric_limits<std::int32_t>::max();

std::size_t index(std::int32_t i) {
    return static_cast<std::size_t>(i);
}

HalfEdge half_edge(std::size_t face, std::size_t corner) {
    return static_cast<HalfEdge>(3 * face + corner);
}

bool names_vertices(const Face& face, std::size_t vertex_count) {
    return std::all_of(face.vertex.begin(), face.vertex.end(),
                       [&](std::int32_t v) { return v >= 0 && index(v) < vertex_count; });
}

// Whether the face takes part.
bool is_sound(const Face& face, std::size_t vertex_count) {
    const auto [a, b, c] = face.vertex;
    return face.deleted == 0 && names_vertices(face, vertex_count) && a != b && b != c && c != a;
}

float edge_length(Vec3f a, Vec3f b) {
    return length(b - a);
}

// Edges longer than that are split in the adaptive mode.
double split_threshold(const TriMesh& mesh) {
    const auto sum = [&](auto&& term) {
        return blocked_sum(mesh.faces.size(), [&](std::size_t f) {
            const Face& face = mesh.faces[f];
            if (!names_vertices(face, mesh.vertices.size())) return 0.0;
            double result = 0;
            for (std::size_t c = 0; c < 3; ++c) {
                result += term(static_cast<double>(edge_length(
                    mesh.corner_position(face, c), mesh.corner_position(face, next_corner(c)))));
            }
            return result;
        });
    };
    const double count = 3.0 * static_cast<double>(mesh.faces.size());
    const double mean = sum([](double length) { return length; }) / count;
    const double square = sum([](double length) { return length * length; }) / count;
    const double variation = std::sqrt(square - mean * mean) / mean;
    return variation > kUneven ? mean * kUnevenFactor : mean;
}

// A corner at a vertex: its half-edge, and the other two vertices of the face.
struct Spoke {
    HalfEdge half_edge;
    std::int32_t next, previous;
};

// The spokes of the sound faces in compressed rows, a row per vertex in face order. A table of its
// own, because the mesh's would hold the faces that take no part.
struct Rings {
    Array<std::uint32_t> offsets;
    Array<Spoke> spokes;

    std::span<const Spoke> operator[](std::size_t vertex) const {
        return {spokes.data() + offsets[vertex], spokes.data() + offsets[vertex + 1]};
    }
};

Rings build_rings(const TriMesh& mesh) {
    // Counts go two places up, so that filling a row moves its entry to the start of the next row.
    Rings rings;
    const std::size_t vertex_count = mesh.vertices.size();
    rings.offsets.assign(vertex_count + 2, 0);
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (!is_sound(face, vertex_count)) continue;
        for (const std::int32_t v : face.vertex) ++rings.offsets[index(v) + 2];
    }
    for (std::size_t i = 2; i < rings.offsets.size(); ++i) {
        rings.offsets[i] += rings.offsets[i - 1];
    }
    rings.spokes.resize(rings.offsets.back());
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const Face& face = mesh.faces[f];
        if (!is_sound(face, vertex_count)) continue;
        for (std::size_t c = 0; c < 3; ++c) {
            std::uint32_t& place = rings.offsets[index(face.vertex[c]) + 1];
            rings.spokes[place++] = {half_edge(f, c), face.vertex[next_corner(c)],
                                     face.vertex[previous_corner(c)]};
        }
    }
    rings.offsets.pop_back();
    return rings;
}

// Loop's weight of each neighbour among n.
float neighbour_weight(std::size_t n) {
    const auto count = static_cast<double>(n);
    const double a = 0.375 + 0.25 * std::cos(2 * std::numbers::pi / count);
    return static_cast<float>((0.625 - a * a) / count);
}

// What one pass over the vertices finds out.
//
// `twins` has an entry for every half-edge of the sound faces: kWhole when its edge is not split;
// else, for the first half-edge of an edge, the second one (itself if there is none), and for all
// others the first. So a half-edge is the first of a split edge when kWhole > twin >= itself. It is
// empty when nothing is to be split.
struct Surroundings {
    Array<Vec3f> moved;  // where each vertex goes
    Array<HalfEdge> twins;
};

class Surveyor {
public:
    Surveyor(const TriMesh& mesh, SubdivideMode mode, Surroundings& found)
        : mesh_(mesh), mode_(mode), found_(found), rings_(build_rings(mesh)) {
        if (mode == SubdivideMode::Adaptive) threshold_ = split_threshold(mesh);
        for (std::size_t n = 1; n < weights_.size(); ++n) weights_[n] = neighbour_weight(n);
        found.moved.resize(mesh.vertices.size());
        if (mode != SubdivideMode::Smooth) found.twins.resize(3 * mesh.faces.size());
    }

    void run() {
        // A vertex writes its own position and the twins of the edges to vertices of higher number.
        parallel_for(mesh_.vertices.size(), [&](std::size_t v) {
            const std::span<const Spoke> row = rings_[v];
            if (row.size() > kShortRow) return;
            if (match_closed_row(v, row)) return move_inner(v, row);
            std::array<Half, 2 * kShortRow> halves;
            match_any_row(v, row, {halves.data(), 2 * row.size()});
        });
        Array<Half> halves;
        for (std::size_t v = 0; v < mesh_.vertices.size(); ++v) {
            const std::span<const Spoke> row = rings_[v];
            if (row.size() <= kShortRow) continue;
            halves.resize(2 * row.size());
            match_any_row(v, row, halves);
        }
    }

private:
    // One of the half-edges between a vertex and its neighbour.
    struct Half {
        std::int32_t neighbour;
        HalfEdge half_edge;
        friend bool operator<(const Half& a, const Half& b) {
            return std::tie(a.neighbour, a.half_edge) < std::tie(b.neighbour, b.half_edge);
        }
    };

    // Matches the half-edges that leave the vertex with those that reach it. Returns false when
    // they are no pairs, an edge each, of opposite direction; what has been written then is wrong.
    bool match_closed_row(std::size_t v, std::span<const Spoke> row) {
        std::uint32_t taken = 0;
        for (const Spoke& spoke : row) {
            std::size_t i = 0;
            while (i < row.size() && row[i].previous != spoke.next) ++i;
            if (i == row.size() || (taken >> i & 1U) != 0) return false;
            taken |= 1U << i;
            if (found_.twins.empty() || index(spoke.next) < v) continue;
            const HalfEdge out = spoke.half_edge;
            const HalfEdge in = previous_half_edge(row[i].half_edge);
            const bool is_split = splits(v, index(spoke.next));
            found_.twins[out] = is_split ? in : kWhole;
            found_.twins[in] = is_split ? out : kWhole;
        }
        return true;
    }

    void match_any_row(std::size_t v, std::span<const Spoke> row, std::span<Half> halves) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            halves[2 * i] = {row[i].next, row[i].half_edge};
            halves[2 * i + 1] = {row[i].previous, previous_half_edge(row[i].half_edge)};
        }
        std::sort(halves.begin(), halves.end());
        bool is_border = false;
        for (auto first = halves.begin(); first != halves.end();) {
            auto end = first;
            while (end != halves.end() && end->neighbour == first->neighbour) ++end;
            is_border = is_border || (end - first) % 2 != 0;
            set_twins(v, {first, end});
            first = end;
        }
        if (is_border) {
            found_.moved[v] = mesh_.vertices[v].position();
        } else {
            move_inner(v, row);
        }
    }

    // The halves of one edge, in ascending order.
    void set_twins(std::size_t v, std::span<const Half> edge) {
        const std::size_t neighbour = index(edge.front().neighbour);
        if (found_.twins.empty() || neighbour < v) return;
        const bool is_split = splits(v, neighbour);
        const HalfEdge first = edge.front().half_edge;
        for (const Half& half : edge) found_.twins[half.half_edge] = is_split ? first : kWhole;
        if (is_split && edge.size() > 1) found_.twins[first] = edge[1].half_edge;
    }

    bool splits(std::size_t a, std::size_t b) const {
        if (mode_ == SubdivideMode::Uniform) return true;
        const float length =
            edge_length(mesh_.vertices[a].position(), mesh_.vertices[b].position());
        return static_cast<double>(length) > threshold_;
    }

    void move_inner(std::size_t v, std::span<const Spoke> row) {
        const Vec3f p = mesh_.vertices[v].position();
        found_.moved[v] = p;
        if (row.empty()) return;
        Vec3f sum;
        for (const Spoke& spoke : row) sum = sum + mesh_.vertices[index(spoke.next)].position();
        const float w =
            row.size() < weights_.size() ? weights_[row.size()] : neighbour_weight(row.size());
        found_.moved[v] = p * (1.0F - static_cast<float>(row.size()) * w) + sum * w;
    }

    const TriMesh& mesh_;
    SubdivideMode mode_;
    Surroundings& found_;
    Rings rings_;
    double threshold_ = 0;
    std::array<float, 16> weights_{};  // by the number of faces at the vertex
};

Surroundings survey(const TriMesh& mesh, SubdivideMode mode) {
    Surroundings found;
    Surveyor(mesh, mode, found).run();
    return found;
}

// Where the new records go. Faces that are not split come first, in their order, then the others'
// parts; deleted faces go.
struct Plan {
    Array<std::int32_t> new_vertices;  // of each half-edge of a sound face; kNone = not split
    Array<std::uint32_t> places;       // of a face among those that stay, or of its first part
    Array<std::int32_t> first_uvs;     // of the records of a face; kNone = not textured
    std::size_t vertex_count = 0, uv_count = 0;
    std::size_t stay_count = 0, part_count = 0;
};

bool is_textured(const TriMesh& mesh, const Face& face) {
    return face.label >= 0 && std::all_of(face.uv.begin(), face.uv.end(), [&](std::int32_t uv) {
               return uv >= 0 && index(uv) < mesh.texture_coordinates.size();
           });
}

Plan make_plan(const TriMesh& mesh, const Array<HalfEdge>& twins) {
    Plan plan;
    plan.new_vertices.resize(3 * mesh.faces.size());
    plan.places.resize(mesh.faces.size());
    plan.first_uvs.resize(mesh.faces.size());
    plan.vertex_count = mesh.vertices.size();
    plan.uv_count = mesh.texture_coordinates.size();
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        if (!is_sound(mesh.faces[f], mesh.vertices.size())) {
            if (mesh.faces[f].deleted == 0) {
                plan.places[f] = static_cast<std::uint32_t>(plan.stay_count++);
            }
            continue;
        }
        std::size_t split_count = 0;
        for (HalfEdge h = half_edge(f, 0); h < half_edge(f, 3); ++h) {
            const HalfEdge twin = twins[h];
            if (twin == kWhole) {
                plan.new_vertices[h] = kNone;
                continue;
            }
            ++split_count;
            plan.new_vertices[h] =
                twin < h ? plan.new_vertices[twin] : static_cast<std::int32_t>(plan.vertex_count++);
        }
        if (split_count == 0) {
            plan.places[f] = static_cast<std::uint32_t>(plan.stay_count++);
        } else {
            plan.places[f] = static_cast<std::uint32_t>(plan.part_count);
            plan.part_count += split_count + 1;
        }
        if (mesh.faces.size() + plan.part_count > kMaxFaceCount || plan.vertex_count > kMaxIndex ||
            plan.uv_count > kMaxIndex) {
            throw std::length_error("subdivision: too many faces");
        }
        plan.first_uvs[f] = kNone;
        if (is_textured(mesh, mesh.faces[f])) {
            plan.first_uvs[f] = static_cast<std::int32_t>(plan.uv_count);
            plan.uv_count += split_count;
        }
    }
    return plan;
}

// Vertex opposite a half-edge in its face.
Vec3f opposite(const TriMesh& mesh, HalfEdge h) {
    return mesh.corner_position(mesh.faces[h / 3], previous_corner(h % 3));
}

void place_new_vertices(TriMesh& mesh, const Array<HalfEdge>& twins, const Plan& plan) {
    const std::size_t old_vertex_count = mesh.vertices.size();
    mesh.vertices.resize(plan.vertex_count);
    // Each new vertex is written where its first half-edge comes up, from old ones alone.
    parallel_for(mesh.faces.size(), [&](std::size_t f) {
        const Face& face = mesh.faces[f];
        if (!is_sound(face, old_vertex_count)) return;
        for (std::size_t c = 0; c < 3; ++c) {
            const HalfEdge h = half_edge(f, c);
            if (twins[h] == kWhole || twins[h] < h) continue;
            const Vec3f ends =
                mesh.corner_position(face, c) + mesh.corner_position(face, next_corner(c));
            const Vec3f p = twins[h] == h
                                ? ends * 0.5F
                                : ends * 0.375F + (mesh.corner_position(face, previous_corner(c)) +
                                                   opposite(mesh, twins[h])) *
                                                      0.125F;
            const std::int32_t v = plan.new_vertices[h];
            mesh.vertices[index(v)] = {p.x, p.y, p.z, v};
        }
    });
}

// A corner of a face to be: a corner of the old one, or the middle of an edge.
struct CornerData {
    std::array<std::uint8_t, 3> colour;
    std::int32_t vertex;
    std::int32_t uv;
};

Face face_of(std::int16_t label, const CornerData& a, const CornerData& b, const CornerData& c) {
    return {{a.colour[0], a.colour[1], a.colour[2], b.colour[0], b.colour[1], b.colour[2],
             c.colour[0], c.colour[1], c.colour[2]},
            0,
            label,
            {a.vertex, b.vertex, c.vertex},
            {a.uv, b.uv, c.uv}};
}

class FaceSplitter {
public:
    FaceSplitter(TriMesh& mesh, const Array<Vec3f>& moved, const Plan& plan)
        : mesh_(mesh), moved_(moved), plan_(plan) {}

    void run() {
        if (plan_.stay_count + plan_.part_count == 0) return;
        out_.resize(plan_.stay_count + plan_.part_count);
        mesh_.texture_coordinates.resize(plan_.uv_count);
        // A face writes the records that the plan gives it.
        parallel_for(mesh_.faces.size(), [&](std::size_t f) {
            const Face& face = mesh_.faces[f];
            if (is_sound(face, moved_.size())) {
                split(f);
            } else if (face.deleted == 0) {
                out_[plan_.places[f]] = face;
            }
        });
        mesh_.faces = std::move(out_);
    }

private:
    void split(std::size_t f) {
        const std::int32_t* const middle = &plan_.new_vertices[3 * f];
        const auto is_split = [&](std::size_t c) { return middle[c] != kNone; };
        const std::size_t count = static_cast<std::size_t>(is_split(0)) +
                                  static_cast<std::size_t>(is_split(1)) +
                                  static_cast<std::size_t>(is_split(2));
        const Face& old = mesh_.faces[f];
        if (count == 0) {
            out_[plan_.places[f]] = old;
            return;
        }
        std::array<CornerData, 3> v;  // the corners
        std::array<CornerData, 3> m;  // the middle of the edge behind each
        std::int32_t uv = plan_.first_uvs[f];
        for (std::size_t c = 0; c < 3; ++c) v[c] = corner(old, c);
        for (std::size_t c = 0; c < 3; ++c) {
            if (!is_split(c)) continue;
            m[c] = between(v[c], v[next_corner(c)], middle[c], uv);
            if (uv != kNone) ++uv;
        }
        Face* out = &out_[plan_.stay_count + plan_.places[f]];
        const auto add = [&](const CornerData& a, const CornerData& b, const CornerData& c) {
            *out++ = face_of(old.label, a, b, c);
        };
        if (count == 3) {
            for (std::size_t c = 0; c < 3; ++c) add(v[c], m[c], m[previous_corner(c)]);
            add(m[0], m[1], m[2]);
        } else if (count == 2) {
            std::size_t c = 0;  // the corner between the split edges
            while (is_split(next_corner(c))) ++c;
            add(v[c], m[c], m[previous_corner(c)]);
            add_quad(add,
                     {&m[c], &v[next_corner(c)], &v[previous_corner(c)], &m[previous_corner(c)]});
        } else {
            std::size_t c = 0;
            while (!is_split(c)) ++c;
            add(v[c], m[c], v[previous_corner(c)]);
            add(m[c], v[next_corner(c)], v[previous_corner(c)]);
        }
    }

    // Along the shorter diagonal as it will be at the end of the level.
    template <typename Add>
    void add_quad(Add&& add, const std::array<const CornerData*, 4>& q) const {
        const Vec3d d02 = to_double(place(q[2]->vertex)) - to_double(place(q[0]->vertex));
        const Vec3d d13 = to_double(place(q[3]->vertex)) - to_double(place(q[1]->vertex));
        const std::size_t from = dot(d13, d13) < dot(d02, d02) ? 1 : 0;
        add(*q[from], *q[from + 1], *q[from + 2]);
        add(*q[from], *q[from + 2], *q[(from + 3) % 4]);
    }

    Vec3f place(std::int32_t v) const {
        return index(v) < moved_.size() ? moved_[index(v)] : mesh_.vertices[index(v)].position();
    }

    static CornerData corner(const Face& face, std::size_t c) {
        return {{face.colour[3 * c], face.colour[3 * c + 1], face.colour[3 * c + 2]},
                face.vertex[c],
                face.uv[c]};
    }

    // The middle of an edge; `uv` is the record to write, or kNone.
    CornerData between(const CornerData& a, const CornerData& b, std::int32_t vertex,
                       std::int32_t uv) {
        CornerData middle{{}, vertex, uv};
        for (std::size_t i = 0; i < 3; ++i) {
            middle.colour[i] = static_cast<std::uint8_t>((a.colour[i] + b.colour[i]) / 2);
        }
        if (uv != kNone) {
            const TextureCoordinate& from = mesh_.texture_coordinates[index(a.uv)];
            const TextureCoordinate& to = mesh_.texture_coordinates[index(b.uv)];
            mesh_.texture_coordinates[index(uv)] = {(from.u + to.u) * 0.5, (from.v + to.v) * 0.5,
                                                    uv};
        }
        return middle;
    }

    TriMesh& mesh_;
    const Array<Vec3f>& moved_;
    const Plan& plan_;
    Array<Face> out_;
};

void split_faces(TriMesh& mesh, const Surroundings& found) {
    const Plan plan = make_plan(mesh, found.twins);
    place_new_vertices(mesh, found.twins, plan);
    FaceSplitter(mesh, found.moved, plan).run();
    mesh.shells.clear();
    mesh.use_table.clear();
}

void move_vertices(TriMesh& mesh, const Array<Vec3f>& moved) {
    parallel_for(moved.size(), [&](std::size_t v) {
        Vertex& vertex = mesh.vertices[v];
        vertex = {moved[v].x, moved[v].y, moved[v].z, vertex.index};
    });
}

}  // namespace

void subdivide(TriMesh& mesh, SubdivideMode mode) {
    const Surroundings found = survey(mesh, mode);
    if (mode != SubdivideMode::Smooth) split_faces(mesh, found);
    move_vertices(mesh, found.moved);
    compact(mesh);
}

}  // namespace povmesh
