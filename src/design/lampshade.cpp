#include "design/lampshade.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>

#include "base/convert.h"
#include "base/parallel.h"
#include "base/poll.h"
#include "base/timer.h"
#include "design/lampshade_inside.h"
#include "design/lampshade_section.h"
#include "design/lampshade_shell.h"
#include "design/wall_gauge.h"
#include "field/sub_triangles.h"
#include "mesh/append_mesh.h"
#include "mesh/bounds.h"
#include "mesh/volume.h"
#include "slice/slices.h"
#include "spatial/nearest_face.h"
#include "spatial/separation.h"

namespace povmesh {
namespace {

// Cells of all models' boxes that a shade is made in, when its wall takes no finer ones: more only
// take more time. In a wall of fewer cells than three its corners are rounded by more than is
// promised, and mending them takes longer than finer cells would.
constexpr double kCells = 1.2e6;
constexpr double kMostCells = 0x1p28;
constexpr double kMostCellsOfSide = 15000;
constexpr double kCellsFromOrigin = 0x1p17;
constexpr double kFewestCellsOfWall = 3;
constexpr double kLeastCellsOfWall = 2.9;  // cells are rounded
constexpr double kMostCellsOfWall = 4;

// Cells that the faces may pass. A surface that passes more is noise.
constexpr double kMostCellsPassed = 0x1p24;

// A cut that takes off more of the height is told.
constexpr double kNotableCut = 0.25;

constexpr std::size_t kContourLevels = 64;

// Ceilings hang over flatter than 45 degrees.
constexpr double kCeiling = 0.70710678118654757;

// Pieces of triangles that are looked at for the mean wall, and the cells of their longest edges.
constexpr std::size_t kMostSamples = 200000;
constexpr double kSampleCells = 2;

constexpr std::string_view kThin = "thin object caution ";

double box_volume(const Box3f& box) {
    const Vec3d extent = to_double(box.high) - to_double(box.low);
    return extent.x * extent.y * extent.z;
}

double area_of(const TriMesh& mesh) {
    return blocked_sum(mesh.faces.size(),
                       [&](std::size_t f) { return face_area(mesh, mesh.faces[f]); });
}

bool is_sound(const TriMesh& mesh) {
    const bool is_finite_mesh =
        std::all_of(mesh.faces.begin(), mesh.faces.end(), [&](const Face& face) {
            return face.deleted != 0 || (is_finite(mesh.corner_position(face, 0)) &&
                                         is_finite(mesh.corner_position(face, 1)) &&
                                         is_finite(mesh.corner_position(face, 2)));
        });
    const double enclosed = is_finite_mesh ? volume(mesh) : 0;
    return enclosed > 0 && std::isfinite(enclosed);
}

Status too_thin(double cell) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(),
                                   kFewestCellsOfWall * cell, std::chars_format::general, 3);
    return {StatusCode::TooLarge,
            "the wall is too thin for a model of that size, or so far from the origin, or for the "
            "cell; take at least " +
                std::string(text.data(), end.ptr)};
}

// The shades of a mesh, model by model.
class ShadeMaker {
public:
    ShadeMaker(const TriMesh& mesh, float thickness, std::string_view name,
               const LampshadeOptions& options, RunContext& run)
        : mesh_(mesh), thickness_(double{thickness}), name_(name), options_(options), run_(run) {
        run.log.start(name);
        run.log.value("thickness", thickness_);
    }

    /// Calls `take(model, inside)` for each model in turn; without an inside (null) it stays solid.
    template <typename Take>
    void run(bool is_rough, const Take& take) {
        if (!(thickness_ > 0) || !std::isfinite(thickness_) || !is_sound(mesh_)) return;
        report.status = LampshadeStatus::Thin;
        separate();
        report.models = models_.size();
        for (std::size_t m = 0; m < models_.size(); ++m) {
            run_.progress.set(static_cast<std::uint32_t>(10 + 70 * m / models_.size()));
            TriMesh& model = models_[m];
            if (!has_room(model)) {
                take(model, nullptr);
                continue;
            }
            const double cell = cell_of(model);
            const Status status = can_make(model, cell);
            if (!status.ok()) {
                fail(status);
                take(model, nullptr);
                continue;
            }
            const LampshadeInside inside =
                find_lampshade_inside(model, thickness_, cell, is_rough, options_);
            if (!inside.status.ok()) fail(inside.status);
            if (!inside.is_empty) add_shade(inside);
            report.closed_pieces += inside.closed_pieces;
            if (report.overlapped_pieces == 0) report.overlap = inside.overlap;
            report.overlapped_pieces += inside.overlapped_pieces;
            report.loose_pieces += inside.loose_pieces;
            take(model, inside.is_empty ? nullptr : &inside);
            model = {};
        }
        run_.progress.set(80);
    }

    void log_result() const {
        const RunLog& log = run_.log;
        if (report.status != LampshadeStatus::Made) {
            const bool has_failed = report.status == LampshadeStatus::Failed;
            log.failure(name_, has_failed ? report.why.text() + " " : std::string(kThin));
            return;
        }
        double area = 0;
        for (const LampshadeShade& shade : report.shades) {
            area += shade.bottom.area;
            const double cut = shade.bottom.level - shade.low;
            if (shade.bottom.is_cut && cut > kNotableCut * (shade.high - shade.low)) {
                log.caution("the lowest " + six_decimals(cut) + " of the model are cut away\n");
            }
        }
        log.value("opening area", area);
        log.success(name_, timer_.seconds());
    }

    LampshadeReport report;

private:
    void fail(const Status& status) {
        if (report.status == LampshadeStatus::Made || !report.why.ok()) return;
        report.why = status;
        report.status = LampshadeStatus::Failed;
    }

    void separate() {
        TriMesh mesh = mesh_;
        separate_bodies(mesh, {.keep_cavities = true, .all_faces = true});
        models_ = std::move(mesh.parts);
        for (const TriMesh& model : models_) box_volume_ += box_volume(finite_bounds(model));
    }

    double wanted_cell() const {
        if (options_.cell > 0) return options_.cell;
        return std::clamp(std::cbrt(box_volume_ / kCells), thickness_ / kMostCellsOfWall,
                          thickness_ / kFewestCellsOfWall);
    }

    double cell_of(const TriMesh& model) const {
        const Box3f box = finite_bounds(model);
        const Vec3d extent = to_double(box.high) - to_double(box.low);
        double reach = 0;
        for (const Vec3d& p : {to_double(box.low), to_double(box.high)}) {
            reach = std::max({reach, std::abs(p.x), std::abs(p.y), std::abs(p.z)});
        }
        return std::max({wanted_cell(), std::cbrt(box_volume(box) / kMostCells),
                         std::max({extent.x, extent.y, extent.z}) / kMostCellsOfSide,
                         reach / kCellsFromOrigin});
    }

    Status can_make(const TriMesh& model, double cell) const {
        if (thickness_ < kLeastCellsOfWall * cell) return too_thin(cell);
        if (area_of(model) > kMostCellsPassed * cell * cell) {
            return {StatusCode::BadFile,
                    "the faces cross the model too often for a wall of that thickness"};
        }
        return {};
    }

    // Around each point of the inside lies a level disc of the thickness; and what is lower than
    // two walls are thick is a plate, whatever of it is flat.
    bool has_room(const TriMesh& model) const {
        const Box3f box = finite_bounds(model);
        const Vec3d extent = to_double(box.high) - to_double(box.low);
        return std::min({extent.x, extent.y, extent.z}) >= 2 * thickness_ &&
               signed_volume(model) > 0;
    }

    LampshadeOpening opening_at(const TriMesh& inside, double level, bool is_cut) const {
        LampshadeOpening opening;
        opening.level = level;
        opening.is_cut = is_cut;
        const std::vector<SectionSegment> section = section_at(inside, level);
        opening.area = section_area(section);
        if (options_.measures) {
            const SectionCircle circle = largest_circle(section);
            opening.centre = {circle.centre.x, circle.centre.y, level};
            opening.radius = circle.radius;
        }
        return opening;
    }

    void add_shade(const LampshadeInside& inside) {
        report.status = LampshadeStatus::Made;
        report.why = {};
        report.cell = std::max(report.cell, inside.cell);
        const TriMesh surface = inside.whole_inside();
        LampshadeShade shade;
        shade.low = inside.low;
        shade.high = inside.high;
        shade.bottom = opening_at(surface, inside.bottom, inside.is_cut_below);
        if (inside.top) shade.top = opening_at(surface, *inside.top, inside.is_cut_above);
        report.shades.push_back(shade);
    }

    const TriMesh& mesh_;
    double thickness_;
    std::string_view name_;
    const LampshadeOptions& options_;
    RunContext& run_;
    Timer timer_;
    std::vector<TriMesh> models_;
    double box_volume_ = 0;
};

// What the walls of the shades measure, one after the other.
class WallMeasure {
public:
    WallMeasure(double thickness, LampshadeReport& report)
        : thickness_(thickness), report_(report) {
        report_.smallest_wall = std::numeric_limits<double>::infinity();
    }

    /// @param inner  the inner wall as it came out, wound towards the inside
    /// @param model  with the openings drawn out
    void add(const TriMesh& inner, const TriMesh& model, double cell) {
        const double least = WallGauge(model).least_distance(inner, report_.smallest_wall);
        report_.smallest_wall = std::min(report_.smallest_wall, least);
        std::vector<std::uint32_t> faces(inner.faces.size());
        std::iota(faces.begin(), faces.end(), std::uint32_t{0});
        const SubTriangles pieces(inner, faces, kSampleCells * cell, kMostSamples);
        struct Sample {
            double area = 0, distance = 0;
            Vec3d place;
        };
        std::vector<Sample> samples(pieces.size());
        const NearestFace nearest(model);
        parallel_for(faces.size(), [&](std::size_t f) {
            pieces.visit(faces[f], [&](std::size_t number, const Triangle& t) {
                const Vec3d middle = middle_of(t);
                samples[number] = {length(cross(t[1] - t[0], t[2] - t[0])) / 2,
                                   std::sqrt(nearest.find(middle).squared_distance), middle};
            });
        });
        for (const Sample& sample : samples) {
            area_ += sample.area;
            sum_ += sample.area * sample.distance;
            const bool is_even = std::abs(sample.distance - thickness_) <= kEvenWithin * thickness_;
            uneven_ += is_even ? 0 : sample.area;
            if (sample.distance < thinnest_) {
                thinnest_ = sample.distance;
                report_.thinnest = sample.place;
            }
        }
        Poller poller;
        for (const Face& face : inner.faces) {
            poller();
            const Triangle t = triangle_of(inner, face);
            const Vec3d normal = cross(t[1] - t[0], t[2] - t[0]);
            const double size = length(normal);
            if (normal.z < -kCeiling * size) report_.ceiling_area += size / 2;
        }
        report_.mean_wall = area_ > 0 ? sum_ / area_ : 0;
        report_.uneven_share = area_ > 0 ? uneven_ / area_ : 0;
    }

private:
    double thickness_;
    LampshadeReport& report_;
    double area_ = 0, sum_ = 0, uneven_ = 0;
    double thinnest_ = std::numeric_limits<double>::infinity();
};

// Outside, inner walls and rims of all models, in this order.
class Assembly {
public:
    void add_solid(const TriMesh& model) {
        append_mesh(mesh_, model);
        kinds_.resize(mesh_.faces.size(), LampshadeParts::Kind::Outside);
    }
    void add(const LampshadeParts& parts) {
        append_mesh(mesh_, parts.mesh);
        kinds_.insert(kinds_.end(), parts.kinds.begin(), parts.kinds.end());
    }

    void finish(TriMesh& mesh, LampshadeReport& report) {
        Array<Face> faces;
        faces.reserve(mesh_.faces.size());
        std::array<std::size_t, 3> counts{};
        for (const LampshadeParts::Kind kind :
             {LampshadeParts::Kind::Outside, LampshadeParts::Kind::Inner,
              LampshadeParts::Kind::Rim}) {
            for (std::size_t f = 0; f < kinds_.size(); ++f) {
                if (kinds_[f] != kind) continue;
                faces.push_back(mesh_.faces[f]);
                ++counts[static_cast<std::size_t>(kind)];
            }
        }
        mesh_.faces = std::move(faces);
        report.outside_faces = counts[0];
        report.inner_faces = counts[1];
        mesh = std::move(mesh_);
    }

private:
    TriMesh mesh_;
    Array<LampshadeParts::Kind> kinds_;
};

TriMesh inner_wall_of(const LampshadeParts& parts) {
    TriMesh inner;
    inner.vertices = parts.mesh.vertices;
    for (std::size_t f = 0; f < parts.kinds.size(); ++f) {
        if (parts.kinds[f] == LampshadeParts::Kind::Inner) {
            inner.faces.push_back(parts.mesh.faces[f]);
        }
    }
    return inner;
}

void add_contours(const LampshadeInside& inside, LampshadeContours& contours) {
    const TriMesh surface = inside.whole_inside();
    double high = -std::numeric_limits<double>::infinity();
    Poller poller;
    for (const Face& face : surface.faces) {
        poller();
        for (std::size_t c = 0; c < 3; ++c) {
            high = std::max(high, static_cast<double>(surface.corner_position(face, c).z));
        }
    }
    high = inside.top.value_or(high);
    std::vector<double> levels = {inside.bottom};
    for (std::size_t k = 0; k < kContourLevels; ++k) {
        const double share = (static_cast<double>(k) + 0.5) / static_cast<double>(kContourLevels);
        const double level = inside.bottom + share * (high - inside.bottom);
        levels.push_back(static_cast<double>(static_cast<float>(level)));
    }
    if (inside.top) levels.push_back(*inside.top);
    const Slicer slicer(surface, 2, levels);
    SliceLoops loops;
    for (std::size_t layer = 0; layer < levels.size(); ++layer) {
        poll();
        slicer.slice(layer, loops);
        const auto z = static_cast<float>(levels[layer]);
        for (std::size_t l = 0; l < loops.size(); ++l) {
            const std::size_t first = contours.points.size();
            for (const Point2d p : loops[l]) {
                const Vec3f point = {narrow_to_float(p.x), narrow_to_float(p.y), z};
                const bool is_new =
                    contours.points.size() == first || !(contours.points.back() == point);
                if (is_new) contours.points.push_back(point);
            }
            while (contours.points.size() > first + 1 &&
                   contours.points.back() == contours.points[first]) {
                contours.points.pop_back();
            }
            if (contours.points.size() < first + 3) {
                contours.points.resize(first);
                continue;
            }
            contours.sizes.push_back(fits<std::uint32_t>(contours.points.size() - first));
            contours.levels.push_back(z);
        }
    }
}

}  // namespace

LampshadeReport lampshade(TriMesh& mesh, float thickness, RunContext& run,
                          const LampshadeOptions& options, LampshadeContours* contours) {
    ShadeMaker maker(mesh, thickness, "lampshade", options, run);
    WallMeasure measure(double{thickness}, maker.report);
    Assembly assembly;
    maker.run(options.all_triangles, [&](const TriMesh& model, const LampshadeInside* inside) {
        if (inside == nullptr) return assembly.add_solid(model);
        if (contours != nullptr) add_contours(*inside, *contours);
        const LampshadeParts parts = make_lampshade_parts(*inside);
        if (options.measures) {
            measure.add(inner_wall_of(parts), inside->whole_drawn(), inside->cell);
        }
        assembly.add(parts);
    });
    if (maker.report.status == LampshadeStatus::Made) assembly.finish(mesh, maker.report);
    run.progress.set(90);
    maker.log_result();
    return maker.report;
}

LampshadeReport preview_lampshade(const TriMesh& mesh, float thickness, RunContext& run,
                                  LampshadeContours& contours, const LampshadeOptions& options) {
    contours = {};
    ShadeMaker maker(mesh, thickness, "lampshade preview", options, run);
    maker.run(true, [&](const TriMesh&, const LampshadeInside* inside) {
        if (inside != nullptr) add_contours(*inside, contours);
    });
    maker.log_result();
    return maker.report;
}

}  // namespace povmesh
