#include "analysis/strength.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "analysis/fem_analysis.h"
#include "analysis/sections.h"
#include "base/convert.h"
#include "base/parallel.h"
#include "base/timer.h"
#include "mesh/bounds.h"
#include "remesh/reduce.h"
#include "remesh/remesh.h"

namespace povmesh {
namespace {

constexpr std::size_t kManyTriangles = 200000;

// The model is analysed at this mean extent, and these are lengths at that scale.
constexpr double kMeanExtent = 100;
constexpr double kSectionStep = 1;
constexpr float kReachAlong = 5;     // of a section along its normal
constexpr double kReachAcross = 20;  // within its plane

// Steps of equal height, repeated where the scale shall hardly change.
using Rgb = std::array<std::uint8_t, 3>;
constexpr std::array<Rgb, 12> kPalette = {{{100, 100, 255},
                                           {100, 255, 255},
                                           {100, 255, 100},
                                           {255, 255, 100},
                                           {255, 255, 100},
                                           {255, 172, 100},
                                           {255, 172, 100},
                                           {255, 100, 100},
                                           {255, 100, 100},
                                           {255, 100, 100},
                                           {255, 100, 100},
                                           {255, 100, 100}}};

// Added to the range of the values, so that equal ones are the lowest colour.
constexpr double kRangeMargin = 0.0001;

using Bits = std::array<std::uint32_t, 3>;

Bits bits_of(const Vertex& v) {
    return {std::bit_cast<std::uint32_t>(v.x), std::bit_cast<std::uint32_t>(v.y),
            std::bit_cast<std::uint32_t>(v.z)};
}

// Takes a mesh to its analysed place and size, and back.
class Normalisation {
public:
    explicit Normalisation(TriMesh& mesh) : original_(mesh.vertices) {
        const Box3f box = finite_bounds(mesh);
        if (!box.is_empty()) {
            low_ = to_double(box.low);
            const Vec3d extent = to_double(box.high) - low_;
            const double mean = (extent.x + extent.y + extent.z) / 3;
            if (mean > 0) scale_ = kMeanExtent / mean;
        }
        for (Vertex& v : mesh.vertices) {
            set(v, (to_double(v.position()) - low_) * scale_);
        }
        places_.reserve(mesh.vertices.size());
        for (std::uint32_t i = 0; i < mesh.vertices.size(); ++i) {
            places_.push_back({bits_of(mesh.vertices[i]), i});
        }
        std::sort(places_.begin(), places_.end());
    }

    double scale() const { return scale_; }

    void undo(TriMesh& mesh) const {
        parallel_for(mesh.vertices.size(), [&](std::size_t i) {
            Vertex& v = mesh.vertices[i];
            const Bits place = bits_of(v);
            const auto found = std::lower_bound(places_.begin(), places_.end(),
                                                std::pair<Bits, std::uint32_t>{place, 0});
            if (found != places_.end() && found->first == place) {
                const Vertex& was = original_[found->second];
                v.x = was.x;
                v.y = was.y;
                v.z = was.z;
            } else {
                set(v, to_double(v.position()) * (1 / scale_) + low_);
            }
        });
    }

private:
    static void set(Vertex& v, Vec3d p) {
        v.x = narrow_to_float(p.x);
        v.y = narrow_to_float(p.y);
        v.z = narrow_to_float(p.z);
    }

    Array<Vertex> original_;
    std::vector<std::pair<Bits, std::uint32_t>> places_;  // normalised, and whose they are; sorted
    Vec3d low_;
    double scale_ = 1;
};

// ------------------------------------------------------------------------------------- sections

struct Point2 {
    double x, y;
};

// The outline of a section in its plane.
struct Outline {
    std::vector<Point2> points;
    Point2 low{std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    Point2 high{std::numeric_limits<double>::lowest(), std::numeric_limits<double>::lowest()};
    std::size_t axis;  // of its normal
    double position;
    float score;

    static Point2 project(Vec3d p, std::size_t axis) {
        if (axis == 2) return {p.x, p.y};
        return axis == 1 ? Point2{p.x, p.z} : Point2{p.y, p.z};
    }

    explicit Outline(const WeakSection& section)
        : axis(section.axis), position(section.position), score(section.score) {
        for (const Vec3d& point : section.polygon) {
            const Point2 p = project(point, axis);
            points.push_back(p);
            low = {std::min(low.x, p.x), std::min(low.y, p.y)};
            high = {std::max(high.x, p.x), std::max(high.y, p.y)};
        }
    }
};

// Points on the outline count as inside.
bool contains(const std::vector<Point2>& polygon, Point2 p) {
    if (polygon.size() < 3) return false;
    bool is_inside = false;
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const Point2 a = polygon[i];
        const Point2 b = polygon[(i + 1) % polygon.size()];
        const double turn = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
        if (turn == 0 && p.x >= std::min(a.x, b.x) && p.x <= std::max(a.x, b.x) &&
            p.y >= std::min(a.y, b.y) && p.y <= std::max(a.y, b.y)) {
            return true;
        }
        // An edge crosses the ray to the right when its ends are on both sides and p is left of it.
        if ((a.y > p.y) != (b.y > p.y) && (turn > 0) == (b.y > a.y)) is_inside = !is_inside;
    }
    return is_inside;
}

double squared(double x) {
    return x * x;
}

double squared_distance_to_edge(Point2 p, Point2 a, Point2 b) {
    const double length = squared(b.x - a.x) + squared(b.y - a.y);
    const double along = (p.x - a.x) * (b.x - a.x) + (p.y - a.y) * (b.y - a.y);
    if (!(along > 0) || along >= length) {
        return std::min(squared(p.x - a.x) + squared(p.y - a.y),
                        squared(p.x - b.x) + squared(p.y - b.y));
    }
    return squared((p.x - a.x) * (b.y - a.y) - (p.y - a.y) * (b.x - a.x)) / length;
}

// Whole units from a point to the section, up to the reach: what is beyond counts for nothing.
double distance_across(const Outline& outline, Point2 p) {
    const double beside = std::max(outline.low.x - p.x, p.x - outline.high.x);
    const double above = std::max(outline.low.y - p.y, p.y - outline.high.y);
    if (!(std::max(beside, above) < kReachAcross)) return kReachAcross;
    if (contains(outline.points, p)) return 0;
    double least = squared(kReachAcross);
    Point2 from = outline.points.back();
    for (const Point2 to : outline.points) {
        least = std::min(least, squared_distance_to_edge(p, from, to));
        from = to;
    }
    return std::floor(std::sqrt(least) + 0.5);
}

void value_by_sections(TriMesh& mesh, const StrengthOptions& options, StrengthReport& report,
                       RunContext& run) {
    std::vector<Outline> outlines;
    for (const WeakSection& section :
         analyse_sections(mesh, kSectionStep, SectionMode::LocalMinima, run)) {
        outlines.emplace_back(section);
    }
    remesh(mesh, {.edge_length = options.edge_length}, run);
    report.sections = outlines.size();
    report.is_analysed = true;
    report.values.assign(mesh.vertices.size(), 0.0F);
    parallel_for(mesh.vertices.size(), [&](std::size_t v) {
        const Vec3d p = to_double(mesh.vertices[v].position());
        const std::array<double, 3> along = {p.x, p.y, p.z};
        for (const Outline& outline : outlines) {
            const auto d = static_cast<float>(std::abs(along[outline.axis] - outline.position));
            if (!(d < kReachAlong)) continue;
            const double q = distance_across(outline, Outline::project(p, outline.axis));
            if (q < kReachAcross) {
                report.values[v] += outline.score / (d + 1.0F + static_cast<float>(q));
            }
        }
    });
}

// ------------------------------------------------------------------------------ finite elements

// Elements by cells of 10 units. Cells that are 110 units apart may share a bucket: it is the
// distances that decide.
class Buckets {
public:
    explicit Buckets(const FemResult& elements) {
        std::vector<std::pair<std::int32_t, std::uint32_t>> order;
        order.reserve(elements.centres.size());
        for (std::uint32_t i = 0; i < elements.centres.size(); ++i) {
            order.emplace_back(key_of(elements.centres[i]), i);
        }
        std::sort(order.begin(), order.end());
        for (const auto& [key, element] : order) {
            if (keys_.empty() || keys_.back() != key) {
                keys_.push_back(key);
                offsets_.push_back(members_.size());
            }
            members_.push_back({elements.centres[element], elements.values[element]});
        }
        offsets_.push_back(members_.size());
    }

    // The value of the nearest element, the first of equally near ones, in the point's own bucket;
    // 0 without any.
    float value_at(Vec3f p) const {
        const auto found = std::lower_bound(keys_.begin(), keys_.end(), key_of(p));
        if (found == keys_.end() || *found != key_of(p)) return 0;
        const auto bucket = static_cast<std::size_t>(found - keys_.begin());
        float least = kFarthest;
        float value = 0;
        for (std::size_t i = offsets_[bucket]; i < offsets_[bucket + 1]; ++i) {
            const Vec3f off = members_[i].centre - p;
            const float distance = dot(off, off);
            if (distance < least) {
                least = distance;
                value = members_[i].value;
            }
        }
        return value;
    }

private:
    static constexpr float kCell = 10;
    static constexpr std::int64_t kCells = 11;
    static constexpr float kFarthest = 1000000;  // squared

    struct Member {
        Vec3f centre;
        float value;
    };

    static std::int32_t key_of(Vec3f p) {
        const auto cell = [](float c) {
            return std::int64_t{saturate_to<std::int32_t>(c / kCell)};
        };
        return static_cast<std::int32_t>((cell(p.z) * kCells + cell(p.y)) * kCells + cell(p.x));
    }

    std::vector<std::int32_t> keys_;    // of buckets with members, ascending
    std::vector<std::size_t> offsets_;  // of their members, and the end
    std::vector<Member> members_;       // within a bucket in the order of the elements
};

void value_by_elements(TriMesh& mesh, const StrengthOptions& options, StrengthReport& report,
                       RunContext& run) {
    const FemResult elements = fem_analysis(mesh, options.voxel_size, options.load, run);
    remesh(mesh, {.edge_length = options.edge_length}, run);
    report.values.assign(mesh.vertices.size(), 0.0F);
    report.is_analysed = elements.is_solved;
    report.elements = elements.values.size();
    report.nodes = elements.nodes;
    report.voxel_size = elements.voxel_size / report.scale;
    report.steps = elements.steps;
    report.residual = elements.residual;
    report.solve_seconds = elements.solve_seconds;
    if (!elements.is_solved) return;
    const Buckets buckets(elements);
    parallel_for(mesh.vertices.size(), [&](std::size_t v) {
        report.values[v] = buckets.value_at(mesh.vertices[v].position());
    });
}

// ------------------------------------------------------------------------------------- colours

// The mean of the vertices that follow in the faces around, without its own value.
Array<float> smoothed(TriMesh& mesh, const Array<float>& values) {
    ensure_uses(mesh);
    Array<float> result = values;
    parallel_for(values.size(), [&](std::size_t v) {
        float sum = 0;
        float count = 0;
        for (const Use& use : mesh.uses(v)) {
            if (mesh.faces[use.face()].deleted != 0) continue;
            sum += values[static_cast<std::size_t>(use.next)];
            ++count;
        }
        if (count > 0) result[v] = sum / count;
    });
    return result;
}

void find_range(StrengthReport& report) {
    bool is_first = true;
    for (const float value : report.values) {
        if (std::isnan(value)) continue;
        if (is_first || value < report.lowest) report.lowest = value;
        if (is_first || value > report.highest) report.highest = value;
        is_first = false;
    }
}

void paint(TriMesh& mesh, const StrengthReport& report) {
    const auto low = static_cast<double>(report.lowest);
    const double range = static_cast<double>(report.highest) - low + kRangeMargin;
    parallel_for(mesh.faces.size(), [&](std::size_t f) {
        Face& face = mesh.faces[f];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const auto vertex = static_cast<std::size_t>(face.vertex[corner]);
            const Rgb colour =
                strength_colour((static_cast<double>(report.values[vertex]) - low) / range);
            std::copy(colour.begin(), colour.end(), face.colour.begin() + 3 * corner);
        }
    });
}

}  // namespace

LoadCase strength_load(std::uint32_t selector) {
    if (selector == 0) return LoadCase::PressureZ;
    return selector == 1 ? LoadCase::Pressure : LoadCase::CentreTop;
}

std::array<std::uint8_t, 3> strength_colour(double t) {
    const double place = t > 0 ? std::min(t, 1.0) * (kPalette.size() - 1) : 0.0;
    const std::size_t step =
        std::min(static_cast<std::size_t>(std::floor(place)), kPalette.size() - 2);
    const double share = place - static_cast<double>(step);
    Rgb colour{};
    for (std::size_t channel = 0; channel < 3; ++channel) {
        colour[channel] = saturate_to<std::uint8_t>(kPalette[step][channel] * (1 - share) +
                                                    kPalette[step + 1][channel] * share);
    }
    return colour;
}

StrengthReport colour_strength(TriMesh& mesh, const StrengthOptions& options, RunContext& run) {
    const Timer timer;
    if (mesh.faces.size() > kManyTriangles) {
        (void)reduce(mesh, kReduceToATenth);
    }
    const Normalisation normalisation(mesh);
    StrengthReport report;
    report.scale = normalisation.scale();
    if (options.method == StrengthMethod::Sections) {
        value_by_sections(mesh, options, report, run);
    } else if (options.method == StrengthMethod::FiniteElements) {
        value_by_elements(mesh, options, report, run);
    } else {
        report.values.assign(mesh.vertices.size(), 0.0F);
    }
    report.values = smoothed(mesh, report.values);
    find_range(report);
    run.log.append("\n" + six_decimals(static_cast<double>(report.lowest)) + " " +
                   six_decimals(static_cast<double>(report.highest)));
    paint(mesh, report);
    normalisation.undo(mesh);
    run.log.append("\n---{success} strength_coloring : " + six_decimals(timer.seconds()) +
                   " sec.---\n");
    return report;
}

}  // namespace povmesh
