// The inside of the model with all its flat ends drawn out tells which of them open. The others
// count as surface, so it is found again without them, until no more end stays shut.
#include "design/lampshade_inside.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "base/poll.h"
#include "design/lampshade_ends.h"
#include "design/lampshade_section.h"
#include "field/inner_wall.h"
#include "field/thin_out.h"
#include "field/winding.h"
#include "mesh/append_mesh.h"
#include "mesh/shells.h"
#include "spatial/nearest_face.h"
#include "spatial/shell_nesting.h"

namespace povmesh {
namespace {

// An opening is at least this share of the largest level section of the inside.
constexpr double kWideEnough = 0.25;

constexpr std::size_t kLevels = 1024;

// Tries to find ends that all open; after these the rest stays shut.
constexpr int kMostTries = 5;

// Cells that the ends are drawn out beyond the thickness by.
constexpr double kDrawnCells = 4;

// Flat places are thinned out when they are that share of the inner wall, of faces that turn from
// each neighbour by less than the angle. What is thinned out moves by no more than this share of
// the thickness.
constexpr double kFlatShare = 0.2;
constexpr double kFlatCosine = 0.9998;
constexpr double kThinOutShare = 2e-3;

// Cutting the inner wall rounds its points.
constexpr double kRounding = 5e-4;

// Winding numbers are right within a few hundredths.
constexpr double kOneAround = 0.25;

// The faces of each number as a mesh of its own.
std::vector<TriMesh> divided(TriMesh&& mesh, const std::vector<std::uint32_t>& number_of,
                             std::uint32_t count) {
    std::vector<TriMesh> meshes(count);
    if (count == 1) {
        meshes[0] = std::move(mesh);
        return meshes;
    }
    // A vertex comes once for each run of faces of one number that has it.
    std::vector<std::pair<std::uint32_t, std::int32_t>> place_of(mesh.vertices.size(), {count, 0});
    std::vector<std::uint32_t> order(mesh.faces.size());
    std::iota(order.begin(), order.end(), std::uint32_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return number_of[a] < number_of[b]; });
    for (const std::uint32_t f : order) {
        const std::uint32_t number = number_of[f];
        TriMesh& part = meshes[number];
        Face face = mesh.faces[f];
        for (std::int32_t& v : face.vertex) {
            auto& [owner, place] = place_of[static_cast<std::size_t>(v)];
            if (owner != number) {
                owner = number;
                place = static_cast<std::int32_t>(part.vertices.size());
                part.vertices.push_back(mesh.vertices[static_cast<std::size_t>(v)]);
                part.vertices.back().index = place;
            }
            v = place;
        }
        for (std::int32_t& uv : face.uv) {
            if (uv < 0 || static_cast<std::size_t>(uv) >= mesh.texture_coordinates.size()) continue;
            const auto place = static_cast<std::int32_t>(part.texture_coordinates.size());
            part.texture_coordinates.push_back(
                mesh.texture_coordinates[static_cast<std::size_t>(uv)]);
            part.texture_coordinates.back().index = place;
            uv = place;
        }
        part.faces.push_back(face);
    }
    return meshes;
}

// How often bodies wind around places. Trees are built when places are many.
class BodyWindings {
public:
    explicit BodyWindings(const std::vector<LampshadeBody>& bodies) : bodies_(bodies) {}

    void go_to_next_place() {
        if (++places_ != kFewPlaces) return;
        trees_.reserve(bodies_.size());
        for (const LampshadeBody& body : bodies_) trees_.emplace_back(body.drawn);
    }
    double at(std::uint32_t body, Vec3d place) const {
        return trees_.empty() ? winding_number(bodies_[body].drawn, place) : trees_[body].at(place);
    }

private:
    // A tree takes as long as these.
    static constexpr int kFewPlaces = 5;

    const std::vector<LampshadeBody>& bodies_;
    std::vector<WindingNumbers> trees_;
    int places_ = 0;
};

// The inside of a model with some of its ends drawn out.
class Finder {
public:
    Finder(TriMesh& model, double thickness, double cell, bool is_rough,
           const LampshadeOptions& options)
        : model_(model),
          mates_(EdgeMates::without_uses(model)),
          thickness_(thickness),
          cell_(cell),
          is_rough_(is_rough),
          options_(options) {}

    LampshadeInside run() {
        // Around a point of the inside at an end lies a disc of the thickness.
        ends_ =
            find_flat_ends(model_, mates_, std::numbers::pi * thickness_ * thickness_ * kAlmost);
        inside_.low = ends_.low;
        inside_.high = ends_.high;
        const bool is_roof_free =
            options_.top_level.has_value() || options_.top == LampshadeTop::Closed;
        if (is_given(options_.bottom)) ends_.leave(false);
        if (is_roof_free) ends_.leave(true);
        for (int attempt = 1;; ++attempt) {
            if (!make_surface()) return std::move(inside_);
            if (!surface_.faces.empty() && !leaves_ends(surface_)) break;
            if (attempt == kMostTries) {
                ends_.leave(false);
                ends_.leave(true);
            }
        }
        if (inside_.top && *inside_.top <= inside_.bottom) {
            inside_.status = {StatusCode::BadOption,
                              "the inside is nowhere wide enough between bottom and top; give both "
                              "levels, or none"};
            return std::move(inside_);
        }
        find_bodies();
        keep_open_pieces();
        if (!is_rough_) thin_out_flat_places();
        return std::move(inside_);
    }

private:
    // A disc of many corners is hardly smaller than its circle.
    static constexpr double kAlmost = 0.99;

    bool is_given(const std::optional<double>& level) const {
        return level && *level > ends_.low && *level < ends_.high;
    }

    // Finds the openings, and leaves ends that do not open. Returns false when there are none.
    bool leaves_ends(const TriMesh& surface) {
        find_openings(surface);
        return leave_shut_ends(surface);
    }

    // Returns false when there is none. None comes out either where not all ends open: what will
    // not be used need not be mended.
    bool make_surface() {
        bool has_left = false;
        const auto is_wanted = [&](const TriMesh& surface) {
            has_left = leaves_ends(surface);
            return !has_left;
        };
        drawn_ = draw_out(model_, mates_, ends_, thickness_ + kDrawnCells * cell_);
        const WallReport wall =
            inner_wall(drawn_, thickness_,
                       {.cell = cell_,
                        .all_triangles = true,
                        .least_share = kLeastLampshadeWall + kThinOutShare + kRounding,
                        .measures = false,
                        .is_wanted = is_wanted},
                       surface_);
        inside_.status = wall.status;
        inside_.cell = wall.cell;
        return wall.status.ok() && (has_left || !surface_.faces.empty());
    }

    void find_openings(const TriMesh& surface) {
        const double height = ends_.high - ends_.low;
        const double step = height / static_cast<double>(kLevels);
        const std::vector<double> areas = section_areas(surface, ends_.low, step, kLevels + 1);
        const double wide = *std::max_element(areas.begin(), areas.end()) * kWideEnough;
        // The level at which the sections become wide enough, from the one at place k on.
        const auto level_of = [&](std::size_t k, std::size_t before) {
            const double share =
                areas[k] > areas[before] ? (areas[k] - wide) / (areas[k] - areas[before]) : 0;
            const auto from = static_cast<double>(k);
            const double place = from + (static_cast<double>(before) - from) * share;
            return static_cast<double>(static_cast<float>(ends_.low + step * place));
        };
        const bool is_base = ends_.has_drawn(false) && areas.front() >= wide && wide > 0;
        inside_.is_cut_below = !is_base;
        inside_.bottom = ends_.low;
        if (is_given(options_.bottom)) {
            inside_.bottom = static_cast<double>(static_cast<float>(*options_.bottom));
        } else if (!is_base) {
            std::size_t k = 1;
            while (k < kLevels && !(areas[k] >= wide)) ++k;
            inside_.bottom = level_of(k, k - 1);
        }
        const bool is_flat_top = ends_.has_drawn(true) && areas.back() >= wide && wide > 0;
        inside_.top.reset();
        inside_.is_cut_above = !is_flat_top;
        if (is_given(options_.top_level)) {
            inside_.top = static_cast<double>(static_cast<float>(*options_.top_level));
        } else if (is_flat_top) {
            inside_.top = ends_.high;
        } else if (options_.top == LampshadeTop::Open) {
            std::size_t k = kLevels - 1;
            while (k > 0 && !(areas[k] >= wide)) --k;
            inside_.top = level_of(k, k + 1);
        }
    }

    // Ends that do not open count as surface. Returns false when none was taken for an opening.
    bool leave_shut_ends(const TriMesh& surface) {
        bool has_left = false;
        // Far below a cut an end does not matter.
        const double reach = thickness_ + 2 * cell_;
        if (inside_.is_cut_below) {
            if (inside_.bottom < ends_.low + reach) has_left = ends_.leave(false);
        } else {
            has_left = leave_parts_without_section(surface, false);
        }
        if (inside_.is_cut_above) {
            const bool is_far = inside_.top && *inside_.top > ends_.high - reach;
            if (!inside_.top || is_far) has_left = ends_.leave(true) || has_left;
        } else {
            has_left = leave_parts_without_section(surface, true) || has_left;
        }
        return has_left;
    }

    bool leave_parts_without_section(const TriMesh& surface, bool is_top) {
        TriMesh faces;
        std::vector<std::uint32_t> part_of;
        faces.vertices = model_.vertices;
        for (std::size_t f = 0; f < model_.faces.size(); ++f) {
            if (!ends_.is_drawn(f) || ends_.parts[ends_.part_of[f]].is_top != is_top) continue;
            faces.faces.push_back(model_.faces[f]);
            part_of.push_back(ends_.part_of[f]);
        }
        const NearestFace nearest(faces);
        const double level = is_top ? ends_.high : ends_.low;
        std::vector<std::uint8_t> is_open(ends_.parts.size(), 0);
        for (const SectionSegment& segment : section_at(surface, level)) {
            const NearestPoint found = nearest.find({segment[0].x, segment[0].y, level});
            if (found.is_found()) is_open[part_of[found.face]] = 1;
        }
        bool has_left = false;
        for (std::size_t p = 0; p < ends_.parts.size(); ++p) {
            EndPart& part = ends_.parts[p];
            if (!part.is_drawn || part.is_top != is_top || is_open[p] != 0) continue;
            part.is_drawn = false;
            has_left = true;
        }
        return has_left;
    }

    void find_bodies() {
        // Where nothing was drawn out the edges are still those of the model.
        if (drawn_.vertices.size() == model_.vertices.size()) {
            label_shells(drawn_, mates_);
        } else {
            label_shells(drawn_, EdgeMates::without_uses(drawn_));
        }
        std::vector<std::uint32_t> body_of_shell(drawn_.shells.size(), 0);
        std::uint32_t count = 1;
        if (drawn_.shells.size() > 1) {
            const std::vector<ShellNesting> nesting = classify_shells(drawn_);
            count = 0;
            const auto is_hole = [&](const ShellNesting& own) {
                return own.is_cavity() && own.signed_volume * nesting[own.around].signed_volume < 0;
            };
            for (std::size_t s = 0; s < nesting.size(); ++s) {
                if (!is_hole(nesting[s])) body_of_shell[s] = count++;
            }
            for (std::size_t s = 0; s < nesting.size(); ++s) {
                if (is_hole(nesting[s])) body_of_shell[s] = body_of_shell[nesting[s].around];
            }
        }
        std::vector<std::uint32_t> body_of(drawn_.faces.size(), 0);
        for (std::size_t s = 0; s < drawn_.shells.size(); ++s) {
            for (const std::uint32_t f : drawn_.shells[s]) body_of[f] = body_of_shell[s];
        }
        drawn_.shells.clear();
        drawn_.use_table.release();
        inside_.bodies.resize(count);
        std::vector<TriMesh> meshes = divided(std::move(drawn_), body_of, count);
        for (std::uint32_t b = 0; b < count; ++b) inside_.bodies[b].drawn = std::move(meshes[b]);
    }

    struct Piece {
        bool is_open = false;
        std::uint32_t body = 0;
    };

    void keep_open_pieces() {
        label_shells(surface_);
        const std::size_t count = surface_.shells.size();
        std::vector<ShellNesting> nesting(1);
        if (count > 1) nesting = classify_shells(surface_);
        // Walls around a cavity of the model are wound inward, and in the air when their piece is
        // open.
        const auto is_wall = [&](std::size_t s) { return count > 1 && nesting[s].is_cavity(); };
        BodyWindings windings(inside_.bodies);
        std::vector<Piece> pieces(count);
        for (std::size_t s = 0; s < count; ++s) {
            if (is_wall(s)) continue;
            const Range range = range_of(s);
            const bool is_beyond =
                range.high < inside_.bottom || (inside_.top && range.low > *inside_.top);
            if (is_beyond) continue;
            if (range.low > inside_.bottom && !(inside_.top && range.high > *inside_.top)) {
                ++inside_.closed_pieces;
                continue;
            }
            pieces[s].is_open = find_body(range.place, windings, pieces[s].body);
        }
        for (std::size_t s = 0; s < count; ++s) {
            if (!is_wall(s)) continue;
            pieces[s] = pieces[nesting[s].around];
            if (pieces[s].is_open) ++inside_.loose_pieces;
        }
        // The last number is for what stays solid.
        const auto bodies = fits<std::uint32_t>(inside_.bodies.size());
        std::vector<std::uint32_t> body_of(surface_.faces.size(), bodies);
        for (std::uint32_t s = 0; s < count; ++s) {
            if (!pieces[s].is_open) continue;
            inside_.is_empty = false;
            for (const std::uint32_t f : surface_.shells[s]) body_of[f] = pieces[s].body;
        }
        surface_.shells.clear();
        surface_.use_table.release();
        std::vector<TriMesh> meshes = divided(std::move(surface_), body_of, bodies + 1);
        for (std::uint32_t b = 0; b < bodies; ++b) inside_.bodies[b].inside = std::move(meshes[b]);
    }

    struct Range {
        double low = std::numeric_limits<double>::infinity();
        double high = -std::numeric_limits<double>::infinity();
        Vec3d place;  // of a vertex
    };
    Range range_of(std::size_t shell) const {
        Range range;
        for (const std::uint32_t f : surface_.shells[shell]) {
            for (std::size_t c = 0; c < 3; ++c) {
                const Vec3d p = to_double(surface_.corner_position(surface_.faces[f], c));
                range.low = std::min(range.low, p.z);
                range.high = std::max(range.high, p.z);
            }
        }
        range.place =
            to_double(surface_.corner_position(surface_.faces[surface_.shells[shell][0]], 0));
        return range;
    }

    // Where bodies overlap, taking the inside out of one of them would leave that of the other.
    bool find_body(Vec3d place, BodyWindings& windings, std::uint32_t& body) {
        double sum = 0;
        windings.go_to_next_place();
        for (std::uint32_t b = 0; b < inside_.bodies.size(); ++b) {
            const double here = windings.at(b, place);
            sum += std::abs(here);
            if (std::abs(here - 1) < kOneAround) body = b;
        }
        if (std::abs(sum - 1) < kOneAround) return true;
        if (inside_.overlapped_pieces++ == 0) inside_.overlap = place;
        return false;
    }

    void thin_out_flat_places() {
        for (LampshadeBody& body : inside_.bodies) {
            if (body.inside.faces.empty() || flat_share(body.inside) < kFlatShare) continue;
            (void)thin_out(body.inside, kThinOutShare * thickness_);
        }
    }

    static double flat_share(TriMesh& surface) {
        const EdgeMates mates(surface);
        std::vector<Vec3d> normals;
        normals.reserve(surface.faces.size());
        Poller poller;
        for (const Face& face : surface.faces) {
            poller();
            const Vec3d a = to_double(surface.corner_position(face, 0));
            const Vec3d normal = cross(to_double(surface.corner_position(face, 1)) - a,
                                       to_double(surface.corner_position(face, 2)) - a);
            const double size = length(normal);
            normals.push_back(size > 0 ? normal / size : Vec3d{});
        }
        std::size_t flat = 0;
        for (std::size_t f = 0; f < normals.size(); ++f) {
            bool is_flat = true;
            for (std::size_t e = 0; e < 3; ++e) {
                is_flat = is_flat && mates.kind(f, e) == EdgeMates::Kind::Manifold &&
                          dot(normals[f], normals[mates.mate(f, e)]) > kFlatCosine;
            }
            flat += is_flat ? 1 : 0;
        }
        return static_cast<double>(flat) / static_cast<double>(normals.size());
    }

    TriMesh& model_;
    EdgeMates mates_;
    double thickness_;
    double cell_;
    bool is_rough_;
    const LampshadeOptions& options_;
    FlatEnds ends_;
    TriMesh drawn_;    // the model with its ends
    TriMesh surface_;  // of its inside, all pieces
    LampshadeInside inside_;
};

}  // namespace

TriMesh LampshadeInside::whole_drawn() const {
    TriMesh whole;
    for (const LampshadeBody& body : bodies) append_mesh(whole, body.drawn);
    return whole;
}

TriMesh LampshadeInside::whole_inside() const {
    TriMesh whole;
    for (const LampshadeBody& body : bodies) append_mesh(whole, body.inside);
    return whole;
}

LampshadeInside find_lampshade_inside(TriMesh& model, double thickness, double cell, bool is_rough,
                                      const LampshadeOptions& options) {
    return Finder(model, thickness, cell, is_rough, options).run();
}

}  // namespace povmesh
