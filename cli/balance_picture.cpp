#include "cli/balance_picture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "base/rotation.h"
#include "cli/picture_file.h"
#include "job/balance.h"
#include "job/section.h"
#include "mesh/bounds.h"
#include "mesh/build_f.h"

namespace povmesh::cli {
namespace {

// Pixels of one picture.
constexpr std::uint32_t kWidth = 600;
constexpr std::uint32_t kHeight = 600;

// Of the plate and of the base, as shares of the model's diagonal.
constexpr double kThickness = 0.012;
constexpr double kPlateBorder = 0.08;

// Besides the base only what is cut may be green in other pictures: here it is brown.
constexpr picture::Colour kCut{190, 142, 92};
constexpr picture::Colour kPlate{150, 154, 160};
constexpr picture::Colour kBase{40, 150, 60};
constexpr picture::Colour kFalls = picture::palette::kFlipped;
constexpr picture::Colour kStandsUpright{30, 60, 160};

constexpr float kLine = 4;  // pixels
constexpr float kDot = 13;

Vec3d turned(const Rotation& turn, Vec3d middle, Vec3d p) {
    return turn.apply(p - middle) + middle;
}

// A prism between two heights over a convex outline, counter-clockwise from above.
TriMesh slab(const std::vector<Vec3d>& outline, double low, double high) {
    std::vector<float> soup;
    const auto add = [&](Vec3d p, double z) {
        for (const double c : {p.x, p.y, z}) soup.push_back(static_cast<float>(c));
    };
    for (std::size_t i = 0; i < outline.size(); ++i) {
        const Vec3d a = outline[i];
        const Vec3d b = outline[(i + 1) % outline.size()];
        for (const auto& [p, z] : {std::pair{a, low}, {b, low}, {b, high}}) add(p, z);
        for (const auto& [p, z] : {std::pair{a, low}, {b, high}, {a, high}}) add(p, z);
        for (const Vec3d p : {outline[0], a, b}) add(p, high);
        for (const Vec3d p : {outline[0], b, a}) add(p, low);
    }
    TriMesh mesh;
    build_f(mesh, Soup{soup.size() / 9, soup.data()});
    return mesh;
}

// One of the pictures: everything turned so that the model falls to the right.
class Side {
public:
    Side(const Stand& stand, const Rotation& turn, Vec3d middle)
        : plate_(stand.base.plate), thickness_(kThickness * stand.base.diagonal) {
        mesh_ = *stand.mesh;
        for (Vertex& vertex : mesh_.vertices) {
            const Vec3d p = turned(turn, middle, to_double(vertex.position()));
            vertex.x = static_cast<float>(p.x);
            vertex.y = static_cast<float>(p.y);
            vertex.z = static_cast<float>(p.z);
        }
        for (const Point2d c : stand.base.corners) {
            outline_.push_back(turned(turn, middle, {c.x, c.y, plate_}));
        }
        centre_ = turned(turn, middle, stand.standing.centre);
        is_upright_ = stand.standing.margin > 0;
        border_ = kPlateBorder * stand.base.diagonal;
    }

    Box3d box() const {
        const Box3f bounds = finite_bounds(mesh_);
        Box3d box{to_double(bounds.low), to_double(bounds.high)};
        box.widen(centre_);
        box.widen({box.low.x - border_, box.low.y, plate_ - 2 * thickness_});
        box.widen({box.high.x + border_, box.high.y, plate_});
        return box;
    }

    picture::Image draw(const picture::RenderOptions& options) {
        const Box3d frame = options.frame;
        TriMesh caps;
        cut_open(mesh_, {1, centre_.y}, options.view, box(), caps);
        const TriMesh base = slab(outline_, plate_ - thickness_, plate_);
        const TriMesh plate = slab({{frame.low.x, frame.low.y, 0},
                                    {frame.high.x, frame.low.y, 0},
                                    {frame.high.x, frame.high.y, 0},
                                    {frame.low.x, frame.high.y, 0}},
                                   plate_ - 2 * thickness_, plate_ - thickness_);
        TriMesh line;
        for (const double z : {centre_.z, plate_ - thickness_}) {
            line.vertices.push_back({static_cast<float>(centre_.x), static_cast<float>(centre_.y),
                                     static_cast<float>(z),
                                     static_cast<std::int32_t>(line.vertices.size())});
        }
        const picture::Colour colour = is_upright_ ? kStandsUpright : kFalls;
        picture::Scene scene(5);
        scene[0].mesh = &mesh_;
        scene[1].mesh = &caps;
        scene[1].colour = scene[1].inside = kCut;
        scene[2].mesh = &base;
        scene[2].colour = scene[2].inside = kBase;
        scene[3].mesh = &plate;
        scene[3].colour = scene[3].inside = kPlate;
        scene[4].mesh = &line;
        scene[4].overlay.edges = {{colour, kLine, Array<std::array<std::int32_t, 2>>{{0, 1}}}};
        scene[4].overlay.points = {{colour, kDot, Array<Vec3f>{line.vertices[0].position()}}};
        return picture::render(scene, options);
    }

private:
    TriMesh mesh_;
    std::vector<Vec3d> outline_;
    Vec3d centre_;
    double plate_;
    double thickness_;
    double border_;
    bool is_upright_;
};

}  // namespace

picture::Image draw_stands(const Stand& before, const Stand* after) {
    const Vec3d to = job::fall_direction(before.standing);
    const Rotation turn({0, 0, 1}, -std::atan2(to.y, to.x) * 180 / std::numbers::pi);
    std::vector<Side> sides;
    sides.emplace_back(before, turn, before.base.middle);
    if (after != nullptr) sides.emplace_back(*after, turn, before.base.middle);
    picture::RenderOptions options;
    options.width = kWidth;
    options.height = kHeight;
    options.view = picture::View::Front;
    for (const Side& side : sides) {
        options.frame.widen(side.box().low);
        options.frame.widen(side.box().high);
    }
    const picture::Image left = sides[0].draw(options);
    return after == nullptr ? left : beside(left, sides[1].draw(options));
}

}  // namespace povmesh::cli
