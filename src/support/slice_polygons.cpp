// Squares of columns minus the outline of the model grown by a distance, layer by layer. A tree
// over the squares finds those that an edge of the outline comes near to; only these are clipped,
// each against the part of the outline within its reach. Growing and clipping is done by a polygon
// library in whole numbers.
//
// Source: B. R. Vatti, A generic solution to polygon clipping, 1992.
#include "support/slice_polygons.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <polyclipping/clipper.hpp>
#include <string>
#include <utility>

#include "base/convert.h"
#include "base/poll.h"
#include "slice/slices.h"
#include "spatial/face_tree.h"

namespace povmesh {
namespace {

constexpr double kFromModel = 0.2;
// Units of the clipping library in a model unit.
constexpr double kScale = 100000;
constexpr double kMiterLimit = 3.0;
constexpr double kArcTolerance = 0.25;
// What is farther from a square cannot come to touch it.
constexpr double kReach = kFromModel * kMiterLimit;
// The outline is cut off so far from the squares: corners that this makes grow by kReach, too.
constexpr double kMargin = 3 * kReach;
// Beyond, products of the library's coordinates leave 64 bits.
constexpr double kWidest = 10000;
constexpr double kMostLayers = 1e6;

struct Box2 {
    Point2d low, high;
};

Box2 grown(const Box2& box, double by) {
    return {{box.low.x - by, box.low.y - by}, {box.high.x + by, box.high.y + by}};
}

// The part of a loop within a box, as a loop that goes along the border of the box where it was
// outside: points inside keep their winding number. (I. Sutherland, G. Hodgman, Reentrant polygon
// clipping, 1974)
class LoopCrop {
public:
    const Array<Point2d>& operator()(std::span<const Point2d> loop, const Box2& box) {
        from_.assign(loop.begin(), loop.end());
        keep([&](Point2d p) { return p.x - box.low.x; });
        keep([&](Point2d p) { return box.high.x - p.x; });
        keep([&](Point2d p) { return p.y - box.low.y; });
        keep([&](Point2d p) { return box.high.y - p.y; });
        return from_;
    }

private:
    // What has a depth of 0 or more.
    template <typename Depth>
    void keep(Depth depth) {
        to_.clear();
        for (std::size_t i = 0; i < from_.size(); ++i) {
            const Point2d a = from_[i];
            const Point2d b = from_[i + 1 < from_.size() ? i + 1 : 0];
            const double at_a = depth(a);
            const double at_b = depth(b);
            if (at_a >= 0) to_.push_back(a);
            if ((at_a >= 0) == (at_b >= 0)) continue;
            const double t = at_a / (at_a - at_b);
            to_.push_back({a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t});
        }
        from_.swap(to_);
    }

    Array<Point2d> from_;
    Array<Point2d> to_;
};

std::int32_t winding_number(const SliceLoops& loops, std::span<const Box2> boxes, Point2d p) {
    std::int32_t number = 0;
    for (std::size_t l = 0; l < loops.size(); ++l) {
        const Box2& box = boxes[l];
        if (p.x > box.high.x || p.y < box.low.y || p.y > box.high.y) continue;
        const std::span<const Point2d> loop = loops[l];
        for (std::size_t i = 0; i < loop.size(); ++i) {
            const Point2d a = loop[i];
            const Point2d b = loop[i + 1 < loop.size() ? i + 1 : 0];
            if ((a.y <= p.y) == (b.y <= p.y)) continue;
            const int side = orient2d(a, b, p);
            if (a.y <= p.y && side > 0) ++number;
            if (b.y <= p.y && side < 0) --number;
        }
    }
    return number;
}

// The layers whose middles lie in a column: from first to before end.
struct LayerRange {
    double first, end;
};

LayerRange layers_of(const Column& column, const SliceOptions& options) {
    const auto layer = [&](float z) {
        return std::max(std::ceil((double{z} - options.plate) / options.layer_height - 0.5), 0.0);
    };
    return {layer(column.bottom.z), layer(column.top.z)};
}

class ColumnSlicer {
public:
    ColumnSlicer(const TriMesh& mesh, std::span<const Column> columns, const SliceOptions& options,
                 double half_side, std::size_t layer_count)
        : columns_(columns),
          half_side_(half_side),
          heights_(heights(options, layer_count)),
          slicer_(mesh, 2, heights_),
          by_layer_(intervals(columns, options), layer_count),
          tree_(boxes(columns, half_side)),
          is_near_(columns.size(), 0) {
        overlap_ =
            tree_.visit_own_pairs([](std::uint32_t /*a*/, std::uint32_t /*b*/) { return true; },
                                  [](std::uint32_t /*a*/, std::uint32_t /*b*/) { return false; });
    }

    void run(const TakeLayer& take) {
        for (std::size_t layer = 0; layer < heights_.size(); ++layer) {
            poll();
            active_.clear();
            by_layer_.for_each(layer, [&](std::uint32_t column) { active_.push_back(column); });
            if (active_.empty()) continue;
            std::sort(active_.begin(), active_.end());
            z_ = narrow_to_float(heights_[layer]);
            slicer_.slice(layer, loops_);
            polygons_.points.clear();
            polygons_.sizes.clear();
            slice_layer();
            if (polygons_.sizes.empty()) continue;
            if (!take({heights_[layer], loops_, polygons_})) return;
        }
    }

private:
    static Array<double> heights(const SliceOptions& options, std::size_t count) {
        Array<double> heights(count);
        for (std::size_t i = 0; i < count; ++i) {
            heights[i] = options.plate + (static_cast<double>(i) + 0.5) * options.layer_height;
        }
        return heights;
    }

    static Array<PlaceInterval> intervals(std::span<const Column> columns,
                                          const SliceOptions& options) {
        Array<PlaceInterval> intervals;
        for (std::uint32_t i = 0; i < columns.size(); ++i) {
            const LayerRange range = layers_of(columns[i], options);
            if (!(range.first < range.end)) continue;
            intervals.push_back({static_cast<std::uint32_t>(range.first),
                                 static_cast<std::uint32_t>(range.end) - 1, i});
        }
        return intervals;
    }

    // A little larger than the columns, for the rounding.
    static Array<Box3f> boxes(std::span<const Column> columns, double half_side) {
        Array<Box3f> boxes;
        for (const Column& column : columns) {
            const auto down = [](double v) { return narrow_to_float(v - std::abs(v) * 1e-6); };
            const auto up = [](double v) { return narrow_to_float(v + std::abs(v) * 1e-6); };
            const Vec3d a = to_double(column.bottom);
            const Vec3d b = to_double(column.top);
            boxes.push_back({{down(a.x - half_side), down(a.y - half_side), down(a.z)},
                             {up(a.x + half_side), up(a.y + half_side), up(b.z)}});
        }
        return boxes;
    }

    Point2d centre(std::uint32_t column) const {
        const Vec3d p = to_double(columns_[column].bottom);
        return {p.x, p.y};
    }
    Box2 square(std::uint32_t column) const {
        const Point2d c = centre(column);
        return grown({c, c}, half_side_);
    }

    void slice_layer() {
        find_near();
        if (overlap_ && clip_together()) return;
        for (const std::uint32_t column : active_) {
            if (is_near_[column] != 0) {
                clip({&column, 1}, square(column));
            } else if (winding_number(loops_, loop_boxes_, centre(column)) == 0) {
                add_square(square(column));
            }
        }
    }

    // Which columns an edge of the outlines may come near to.
    void find_near() {
        for (const std::uint32_t column : active_) is_near_[column] = 0;
        loop_boxes_.clear();
        for (std::size_t l = 0; l < loops_.size(); ++l) {
            const std::span<const Point2d> loop = loops_[l];
            Box2 whole{loop[0], loop[0]};
            for (std::size_t i = 0; i < loop.size(); ++i) {
                const Point2d a = loop[i];
                const Point2d b = loop[i + 1 < loop.size() ? i + 1 : 0];
                const Box2 edge = grown({{std::min(a.x, b.x), std::min(a.y, b.y)},
                                         {std::max(a.x, b.x), std::max(a.y, b.y)}},
                                        kReach + 1e-6 * (std::abs(a.x) + std::abs(a.y)));
                const Box3f box{{narrow_to_float(edge.low.x), narrow_to_float(edge.low.y), z_},
                                {narrow_to_float(edge.high.x), narrow_to_float(edge.high.y), z_}};
                tree_.visit_overlapping(box, [&](std::uint32_t column) {
                    is_near_[column] = 1;
                    return false;
                });
                whole.low = {std::min(whole.low.x, a.x), std::min(whole.low.y, a.y)};
                whole.high = {std::max(whole.high.x, a.x), std::max(whole.high.y, a.y)};
            }
            loop_boxes_.push_back(whole);
        }
    }

    // Where columns overlap, all of a layer go into one sum; not when they lie too far apart for
    // that.
    bool clip_together() {
        Box2 box = square(active_.front());
        for (const std::uint32_t column : active_) {
            const Box2 other = square(column);
            box.low = {std::min(box.low.x, other.low.x), std::min(box.low.y, other.low.y)};
            box.high = {std::max(box.high.x, other.high.x), std::max(box.high.y, other.high.y)};
        }
        if (std::max(box.high.x - box.low.x, box.high.y - box.low.y) > kWidest) return false;
        const auto key = [&](std::uint32_t column) {
            return std::pair(columns_[column].bottom.x, columns_[column].bottom.y);
        };
        Array<std::uint32_t> different = active_;
        std::sort(different.begin(), different.end(),
                  [&](std::uint32_t a, std::uint32_t b) { return key(a) < key(b); });
        different.erase(
            std::unique(different.begin(), different.end(),
                        [&](std::uint32_t a, std::uint32_t b) { return key(a) == key(b); }),
            different.end());
        clip(different, box);
        return true;
    }

    // In the library's numbers everything is relative to the middle of the box.
    void clip(std::span<const std::uint32_t> columns, const Box2& box) {
        const Point2d origin = {(box.low.x + box.high.x) / 2, (box.low.y + box.high.y) / 2};
        // Far out the cut at the window is off by more than the window is wide.
        const auto to_grid = [&](Point2d p) {
            const auto number = [](double d) {
                return std::llround(std::clamp(d, -2 * kWidest, 2 * kWidest) * kScale);
            };
            return ClipperLib::IntPoint(number(p.x - origin.x), number(p.y - origin.y));
        };
        const Box2 window = grown(box, kMargin);
        ClipperLib::Paths outline;
        for (std::size_t l = 0; l < loops_.size(); ++l) {
            const Box2& b = loop_boxes_[l];
            if (b.low.x > window.high.x || b.high.x < window.low.x || b.low.y > window.high.y ||
                b.high.y < window.low.y) {
                continue;
            }
            ClipperLib::Path path;
            for (const Point2d p : crop_(loops_[l], window)) path.push_back(to_grid(p));
            if (path.size() >= 3) outline.push_back(std::move(path));
        }
        ClipperLib::SimplifyPolygons(outline, ClipperLib::pftNonZero);
        ClipperLib::ClipperOffset offset(kMiterLimit, kArcTolerance);
        offset.AddPaths(outline, ClipperLib::jtMiter, ClipperLib::etClosedPolygon);
        ClipperLib::Paths grown_outline;
        offset.Execute(grown_outline, kFromModel * kScale);

        ClipperLib::Clipper difference;
        for (const std::uint32_t column : columns) {
            const Box2 s = square(column);
            difference.AddPath({to_grid(s.low), to_grid({s.high.x, s.low.y}), to_grid(s.high),
                                to_grid({s.low.x, s.high.y})},
                               ClipperLib::ptSubject, true);
        }
        difference.AddPaths(grown_outline, ClipperLib::ptClip, true);
        ClipperLib::PolyTree rest;
        difference.Execute(ClipperLib::ctDifference, rest, ClipperLib::pftNonZero,
                           ClipperLib::pftNonZero);
        for (const ClipperLib::PolyNode* node = rest.GetFirst(); node != nullptr;
             node = node->GetNext()) {
            add_polygon(*node, origin);
        }
    }

    void add_polygon(const ClipperLib::PolyNode& node, Point2d origin) {
        const ClipperLib::Path& path = node.Contour;
        if (path.size() < 3) return;
        const bool is_turned = ClipperLib::Orientation(path) == node.IsHole();
        for (std::size_t i = 0; i < path.size(); ++i) {
            const ClipperLib::IntPoint& p = path[is_turned ? path.size() - 1 - i : i];
            add_point(origin.x + static_cast<double>(p.X) / kScale,
                      origin.y + static_cast<double>(p.Y) / kScale);
        }
        polygons_.sizes.push_back(static_cast<std::uint32_t>(path.size()));
    }

    void add_square(const Box2& square) {
        add_point(square.low.x, square.low.y);
        add_point(square.high.x, square.low.y);
        add_point(square.high.x, square.high.y);
        add_point(square.low.x, square.high.y);
        polygons_.sizes.push_back(4);
    }

    void add_point(double x, double y) {
        polygons_.points.push_back({narrow_to_float(x), narrow_to_float(y), z_});
    }

    std::span<const Column> columns_;
    double half_side_;
    Array<double> heights_;
    Slicer slicer_;
    IntervalTree by_layer_;
    FaceTree tree_;
    Array<std::uint8_t> is_near_;  // by column: of this layer
    bool overlap_ = false;         // some columns do
    SlicePolygons polygons_;       // of this layer

    Array<std::uint32_t> active_;  // columns of this layer
    SliceLoops loops_;
    Array<Box2> loop_boxes_;
    LoopCrop crop_;
    float z_ = 0;
};

Status bad(const std::string& what) {
    return {StatusCode::BadOption, what};
}

bool is_sound(const Column& column) {
    return is_finite(column.top) && is_finite(column.bottom);
}

Column upright(const Column& column) {
    return column.top.z < column.bottom.z ? Column{column.bottom, column.top} : column;
}

Status check(const SliceOptions& options) {
    if (!(options.layer_height > 0) || !std::isfinite(options.layer_height)) {
        return bad("the layer height is not above 0");
    }
    if (!std::isfinite(options.plate)) return bad("the height of the plate is not a number");
    if (!(options.spacing <= kWidest)) return bad("the spacing is more than 10,000 or no number");
    return {};
}

Status too_large(const std::string& what, RunContext& run) {
    run.log.caution(what + "\n");
    return {StatusCode::TooLarge, what + "; take a greater layer height"};
}

std::string in_millions(double count) {
    std::string text = std::to_string(count / 1e6);
    text.resize(text.find('.') + 2);
    return text + " million ";
}

}  // namespace

SliceWork slice_work(std::span<const Column> columns, const SliceOptions& options) {
    SliceWork work;
    if (!check(options).ok() || !(column_half_side(options.spacing) > 0)) return work;
    for (const Column& column : columns) {
        if (!is_sound(column)) continue;
        const LayerRange range = layers_of(upright(column), options);
        work.layers = std::max(work.layers, range.end);
        work.squares += std::max(range.end - range.first, 0.0);
    }
    return work;
}

Status slice_columns(const TriMesh& mesh, std::span<const Column> columns,
                     const SliceOptions& options, RunContext& run, const TakeLayer& take) {
    if (Status status = check(options); !status.ok()) return status;
    const SliceWork work = slice_work(columns, options);
    if (work.layers > kMostLayers) {
        return too_large(
            "the columns are " + in_millions(work.layers) + "layers high, not 1 million", run);
    }
    std::uint64_t polygon_count = 0;
    std::uint64_t point_count = 0;
    if (work.squares > 0) {
        Array<Column> solid;
        for (const Column& column : columns) {
            if (is_sound(column)) solid.push_back(upright(column));
        }
        ColumnSlicer(mesh, solid, options, column_half_side(options.spacing),
                     static_cast<std::size_t>(work.layers))
            .run([&](const ColumnLayer& layer) {
                polygon_count += layer.polygons.sizes.size();
                point_count += layer.polygons.points.size();
                return take(layer);
            });
    }
    run.log.append("\npoly_num: " + std::to_string(polygon_count));
    run.log.append("\npoints_num: " + std::to_string(point_count));
    return {};
}

Status slice_columns(const TriMesh& mesh, std::span<const Column> columns,
                     const SliceOptions& options, RunContext& run, SlicePolygons& polygons) {
    polygons = {};
    const auto most = static_cast<double>(kMostColumnPoints);
    const auto refuse = [&](double points) {
        polygons = {};
        return too_large(
            "the columns make " + in_millions(points) + "points, more than " + in_millions(most),
            run);
    };
    const double least = 4 * slice_work(columns, options).squares;
    if (least > most) return refuse(least);
    bool fits_in = true;
    Status status = slice_columns(mesh, columns, options, run, [&](const ColumnLayer& layer) {
        const SlicePolygons& of_layer = layer.polygons;
        polygons.points.insert(polygons.points.end(), of_layer.points.begin(),
                               of_layer.points.end());
        polygons.sizes.insert(polygons.sizes.end(), of_layer.sizes.begin(), of_layer.sizes.end());
        fits_in = polygons.points.size() <= kMostColumnPoints;
        return fits_in;
    });
    if (!fits_in) return refuse(static_cast<double>(polygons.points.size()));
    return status;
}

}  // namespace povmesh
