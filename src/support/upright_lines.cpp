// Each line asks a tree for the faces whose boxes it meets, seen from above. Whether it is outside
// at a height follows from how often it passes into and out of the model below; where the surface
// has holes over the line, from the next face below alone.
//
// The boxes of faces around a hub overlap, and a line below an open umbrella of n faces would meet
// n / 4 of them. Such faces are cut across: the boxes of k pieces cover a k-th of the area.
#include "support/upright_lines.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/poll.h"
#include "base/predicates.h"

namespace povmesh {
namespace {

// Surfaces nearer to a place than this are taken for the one that it lies on, model units.
constexpr double kOwnSurface = 0.01;

// Faces are cut when lines at so many of them meet more boxes than this in the mean; whole models
// meet 10 to 60.
constexpr std::size_t kAsked = 64;
constexpr double kMostBoxes = 256;
// Pieces to add per face, and to one.
constexpr double kPieces = 8;
constexpr double kMostPieces = 1000;
// Of a piece, and of a face: far more than the rounding of floats moves a cut.
constexpr double kCutMargin = 1e-4;

// What the crossings of a line below a place tell.
struct LineBelow {
    double floor = -std::numeric_limits<double>::infinity();
    std::int32_t floor_way = 1;
    std::int32_t depth = 0;
    std::int32_t all = 0;

    void add(double z, std::int32_t way, bool is_below) {
        all += way;
        if (!is_below) return;
        depth -= way;
        if (z < floor) return;
        // Where two faces are at one height, the way out counts.
        floor_way = z > floor ? way : std::max(floor_way, way);
        floor = z;
    }
    bool is_outside() const { return all == 0 ? depth <= 0 : floor_way > 0; }
};

}  // namespace

double height_at(const std::array<Vec3d, 3>& p, Vec3d normal, double x, double y) {
    const auto [low, high] = std::minmax({p[0].z, p[1].z, p[2].z});
    if (normal.z == 0) return low;
    const double z = p[0].z - ((x - p[0].x) * normal.x + (y - p[0].y) * normal.y) / normal.z;
    return std::isfinite(z) ? std::clamp(z, low, high) : low;
}

UprightLines::UprightLines(const TriMesh& mesh) {
    build(mesh, {});
    if (boxes_on_a_line() <= kMostBoxes) return;
    Array<Box3f> boxes;
    polled_resize(boxes, mesh.faces.size());
    for (std::size_t f = 0; f < boxes.size(); ++f) {
        poll_at(f);
        boxes[f] = face_box(mesh, mesh.faces[f]);
    }
    build(mesh, piece_counts(boxes));
}

void UprightLines::build(const TriMesh& mesh, std::span<const std::uint16_t> counts) {
    Array<Piece> pieces;
    Array<Box3f> boxes;
    pieces.reserve(mesh.faces.size());
    boxes.reserve(mesh.faces.size());
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        poll_at(f);
        const Face& face = mesh.faces[f];
        if (face.deleted != 0 || face_box(mesh, face).is_empty()) continue;
        Piece piece{{mesh.corner_position(face, 0), mesh.corner_position(face, 1),
                     mesh.corner_position(face, 2)},
                    0,
                    counts.empty() ? std::uint16_t{1} : counts[f]};
        for (; piece.number < piece.count; ++piece.number) {
            pieces.push_back(piece);
            boxes.push_back(box_of(piece));
        }
    }
    tree_ = FaceTree(boxes);
    pieces_.clear();
    pieces_.reserve(pieces.size());
    for (const std::uint32_t i : tree_.numbers()) {
        poll_at(pieces_.size());
        pieces_.push_back(pieces[i]);
    }
}

// More for faces with larger boxes, which more lines meet.
Array<std::uint16_t> UprightLines::piece_counts(std::span<const Box3f> boxes) {
    const auto size_of = [](const Box3f& box) {
        if (box.is_empty()) return 0.0;
        const Vec3d extent = to_double(box.high) - to_double(box.low);
        return std::sqrt(extent.x * extent.y);
    };
    double sum = 0;
    for (const Box3f& box : boxes) sum += size_of(box);
    const double more = sum > 0 ? kPieces * static_cast<double>(boxes.size()) / sum : 0;
    Array<std::uint16_t> counts(boxes.size());
    for (std::size_t f = 0; f < boxes.size(); ++f) {
        poll_at(f);
        counts[f] = static_cast<std::uint16_t>(1 + std::min(size_of(boxes[f]) * more, kMostPieces));
    }
    return counts;
}

// Mean number of boxes that a line meets at some of the faces.
double UprightLines::boxes_on_a_line() const {
    if (pieces_.size() <= kAsked) return 0;
    std::size_t met = 0;
    for (std::size_t i = 0; i < kAsked; ++i) {
        const auto& [a, b, c] = pieces_[pieces_.size() / kAsked * i].corners;
        const Vec3f middle = a / 3.0F + b / 3.0F + c / 3.0F;
        const Box3f line{{middle.x, middle.y, 0}, {middle.x, middle.y, 0}};
        tree_.visit_overlapping(line, [&](std::uint32_t) {
            ++met;
            return false;
        });
    }
    return static_cast<double>(met) / kAsked;
}

namespace {

// The extent of a face along its cuts.
struct Cuts {
    bool along_x;
    double low, size;

    explicit Cuts(const std::array<Vec3f, 3>& p) {
        const auto [low_x, high_x] = std::minmax({p[0].x, p[1].x, p[2].x});
        const auto [low_y, high_y] = std::minmax({p[0].y, p[1].y, p[2].y});
        const double size_x = double{high_x} - double{low_x};
        const double size_y = double{high_y} - double{low_y};
        along_x = size_x > size_y;
        low = along_x ? double{low_x} : double{low_y};
        size = along_x ? size_x : size_y;
    }
};

}  // namespace

// A line belongs to one piece of a face, whatever boxes it meets.
bool UprightLines::is_met_by(const Piece& piece, double x, double y) {
    const Cuts cuts(piece.corners);
    const double share = ((cuts.along_x ? x : y) - cuts.low) / cuts.size;
    const double number = std::floor(share * piece.count);
    return std::clamp(number, 0.0, piece.count - 1.0) == piece.number;
}

// Seen from above, without height.
Box3f UprightLines::box_of(const Piece& piece) {
    Box3f box;
    if (piece.count == 1) {
        for (const Vec3f& p : piece.corners) box.widen({p.x, p.y, 0});
        return box;
    }
    const Cuts cuts(piece.corners);
    const double from = cuts.low + cuts.size * (piece.number - kCutMargin) / piece.count;
    const double to = cuts.low + cuts.size * (piece.number + 1 + kCutMargin) / piece.count;
    // Of a corner: where it stands along the cuts, and across.
    const auto place = [&](std::size_t corner) {
        const Vec3d p = to_double(piece.corners[corner]);
        return cuts.along_x ? Point2d{p.x, p.y} : Point2d{p.y, p.x};
    };
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    const auto reach = [&](double across) {
        low = std::min(low, across);
        high = std::max(high, across);
    };
    for (std::size_t i = 0; i < 3; ++i) {
        const Point2d a = place(i);
        const Point2d b = place(next_corner(i));
        if (a.x >= from && a.x <= to) reach(a.y);
        for (const double cut : {from, to}) {
            if ((a.x < cut) != (b.x < cut)) reach(a.y + (b.y - a.y) * ((cut - a.x) / (b.x - a.x)));
        }
    }
    const double margin = kCutMargin * cuts.size;
    low -= margin;
    high += margin;
    for (const auto& [along, across] : {std::pair(from, low), std::pair(to, high)}) {
        box.widen({narrow_to_float(cuts.along_x ? along : across),
                   narrow_to_float(cuts.along_x ? across : along), 0});
    }
    return box;
}

UprightLines::Below UprightLines::look_down(Vec3d from) const {
    LineBelow line;
    visit_crossings(from.x, from.y, [&](const Crossing& crossing) {
        line.add(crossing.z, crossing.way, crossing.z <= from.z - kOwnSurface);
        return false;
    });
    return {line.floor, line.is_outside()};
}

UprightLines::Below UprightLines::look_down(std::span<const Crossing> crossings, double from) {
    LineBelow line;
    for (const Crossing& crossing : crossings) {
        line.add(crossing.z, crossing.way, crossing.z <= from - kOwnSurface);
    }
    return {line.floor, line.is_outside()};
}

bool UprightLines::is_free(double x, double y, double low, double high) const {
    if (!(low < high)) return true;
    LineBelow line;
    const bool is_crossed = visit_crossings(x, y, [&](const Crossing& crossing) {
        line.add(crossing.z, crossing.way, crossing.z < high);
        return crossing.z > low && crossing.z < high;
    });
    return !is_crossed && line.is_outside();
}

}  // namespace povmesh
