#include "orient/orient_model.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>

#include "base/convert.h"
#include "base/poll.h"
#include "spatial/convex_hull.h"

namespace povmesh {
namespace {

constexpr double kDegree = std::numbers::pi / 180;

// Facets of the hull this near to the largest of them in direction are one rest face.
const double kFlatCosine = std::cos(0.5 * kDegree);

// Rest faces are at least this share of the hull's area: a model does not stand on less.
constexpr double kLeastRestShare = 2e-4;

// Of hulls beyond 20,000 triangles, as a share of the longest side: less than the slack, so that a
// rest face is flat all the same.
constexpr double kHullTolerance = 1e-4;

// What lies this near to the plate rests on it, as a share of the diameter.
constexpr double kSlack = 1e-3;

// Cells along each edge of the cube of directions: 90 degrees by 2, and one for good measure.
constexpr std::size_t kCubeCells = 46;

// A volume below this share of the ball's cube is that of a sheet.
constexpr double kSheetVolume = 1e-6;

// Cells of the grid for a first look along the longest side.
constexpr std::uint32_t kClusterCells = 96;

struct Corners {
    Vec3d a, b, c;

    Vec3d normal() const { return cross(b - a, c - a); }  // twice the area long
    Vec3d middle() const { return (a + b + c) / 3.0; }
};

Corners corners_of(const OrientModel& model, const std::array<std::uint32_t, 3>& t) {
    return {to_double(model.points[t[0]]), to_double(model.points[t[1]]),
            to_double(model.points[t[2]])};
}

// Around the faces that take part: what others reach to would leave these too small for the digits
// of 32-bit floats.
Box3f box_of_areas(const TriMesh& mesh) {
    Box3f box;
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (!has_finite_corners(mesh, face)) continue;
        const Corners at = {to_double(mesh.corner_position(face, 0)),
                            to_double(mesh.corner_position(face, 1)),
                            to_double(mesh.corner_position(face, 2))};
        if (!(length(at.normal()) > 0)) continue;
        for (std::size_t c = 0; c < 3; ++c) box.widen(mesh.corner_position(face, c));
    }
    return box;
}

// Points that no triangle uses would spoil the hull: they get no place.
void take_triangles(const TriMesh& mesh, OrientModel& model) {
    constexpr std::uint32_t kNowhere = 0xFFFFFFFF;
    Array<std::uint32_t> place(mesh.vertices.size(), kNowhere);
    Array<Vec3f> points(mesh.vertices.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Vec3f p = mesh.vertices[i].position();
        if (!is_finite(p)) continue;
        const Vec3d q = (to_double(p) - model.middle) / model.unit;
        points[i] = {narrow_to_float(q.x), narrow_to_float(q.y), narrow_to_float(q.z)};
    }
    model.points.reserve(points.size());
    model.triangles.reserve(mesh.faces.size());
    Poller poller;
    for (const Face& face : mesh.faces) {
        poller();
        if (!has_finite_corners(mesh, face)) continue;
        std::array<std::uint32_t, 3> t{};
        for (std::size_t c = 0; c < 3; ++c) t[c] = static_cast<std::uint32_t>(face.vertex[c]);
        const Corners at = {to_double(points[t[0]]), to_double(points[t[1]]),
                            to_double(points[t[2]])};
        if (!(length(at.normal()) > 0)) continue;
        for (std::uint32_t& v : t) {
            if (place[v] == kNowhere) {
                place[v] = static_cast<std::uint32_t>(model.points.size());
                model.points.push_back(points[v]);
            }
            v = place[v];
        }
        model.triangles.push_back(t);
    }
}

// Volume, area and centre of mass by signed tetrahedra from the middle; turns over what is inside
// out.
void weigh(OrientModel& model) {
    Vec3d solid;
    Vec3d sheet;
    Poller poller;
    for (const auto& t : model.triangles) {
        poller();
        const Corners face = corners_of(model, t);
        const double six = dot(face.a, cross(face.b, face.c));
        model.volume += six / 6;
        solid = solid + (face.a + face.b + face.c) * (six / 24);
        const double area = length(face.normal()) / 2;
        model.area += area;
        sheet = sheet + face.middle() * area;
    }
    model.centre_of_mass =
        std::abs(model.volume) > kSheetVolume ? solid / model.volume : sheet / model.area;
    model.is_turned_over = model.volume < -kSheetVolume;
    if (model.is_turned_over) {
        for (auto& t : model.triangles) std::swap(t[1], t[2]);
    }
    model.volume = std::abs(model.volume);
}

// Joins facets in nearly one plane, the largest first, by growing over common edges.
class RestFaceFinder {
public:
    RestFaceFinder(std::span<const Vec3f> points, const ConvexHull& hull) : hull_(hull) {
        normals_.reserve(hull.triangles.size());
        areas_.reserve(hull.triangles.size());
        middles_.reserve(hull.triangles.size());
        Poller poller;
        for (const auto& t : hull.triangles) {
            poller();
            const Vec3d a = to_double(points[t[0]]);
            const Vec3d normal = cross(to_double(points[t[1]]) - a, to_double(points[t[2]]) - a);
            const double size = length(normal);
            normals_.push_back(size > 0 ? normal / size : normal);
            areas_.push_back(size / 2);
            middles_.push_back((a + to_double(points[t[1]]) + to_double(points[t[2]])) / 3.0);
        }
    }

    Array<RestFace> run() {
        find_neighbours();
        Array<std::uint8_t> is_taken(areas_.size(), 0);
        Array<RestFace> faces;
        Array<std::uint32_t> region;
        Poller poller;
        for (const std::uint32_t seed : largest_first(areas_)) {
            poller();
            if (is_taken[seed] != 0) continue;
            RestFace face{normals_[seed], {}, 0};
            is_taken[seed] = 1;
            region.assign(1, seed);
            for (std::size_t i = 0; i < region.size(); ++i) {
                poller();
                face.area += areas_[region[i]];
                face.middle = face.middle + middles_[region[i]] * areas_[region[i]];
                for (const std::uint32_t other : neighbours_[region[i]]) {
                    if (is_taken[other] != 0 || dot(normals_[other], face.normal) < kFlatCosine) {
                        continue;
                    }
                    is_taken[other] = 1;
                    region.push_back(other);
                }
            }
            face.middle = face.middle / face.area;
            faces.push_back(face);
        }
        Array<double> areas(faces.size());
        for (std::size_t i = 0; i < faces.size(); ++i) areas[i] = faces[i].area;
        Array<RestFace> sorted;
        sorted.reserve(faces.size());
        for (const std::uint32_t i : largest_first(areas)) sorted.push_back(faces[i]);
        return sorted;
    }

private:
    // Of equal areas the one before first.
    static Array<std::uint32_t> largest_first(const Array<double>& areas) {
        Array<std::uint32_t> order(areas.size());
        std::iota(order.begin(), order.end(), 0U);
        polled_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return areas[a] != areas[b] ? areas[a] > areas[b] : a < b;
        });
        return order;
    }

    void find_neighbours() {
        struct Edge {
            std::uint32_t low, high, facet;
        };
        Array<Edge> edges;
        edges.reserve(3 * hull_.triangles.size());
        Poller poller;
        for (std::uint32_t f = 0; f < hull_.triangles.size(); ++f) {
            poller();
            const auto& t = hull_.triangles[f];
            for (std::size_t i = 0; i < 3; ++i) {
                const std::uint32_t next = t[next_corner(i)];
                edges.push_back({std::min(t[i], next), std::max(t[i], next), f});
            }
        }
        polled_sort(edges.begin(), edges.end(), [](const Edge& a, const Edge& b) {
            if (a.low != b.low) return a.low < b.low;
            if (a.high != b.high) return a.high < b.high;
            return a.facet < b.facet;
        });
        neighbours_.assign(hull_.triangles.size(), {});
        Array<std::uint8_t> sizes(hull_.triangles.size(), 0);
        for (std::size_t i = 0; i + 1 < edges.size(); i += 2) {
            poller();
            const std::uint32_t a = edges[i].facet;
            const std::uint32_t b = edges[i + 1].facet;
            neighbours_[a][sizes[a]++] = b;
            neighbours_[b][sizes[b]++] = a;
        }
    }

    const ConvexHull& hull_;
    Array<Vec3d> normals_;
    Array<double> areas_;
    Array<Vec3d> middles_;
    Array<std::array<std::uint32_t, 3>> neighbours_;
};

void wrap(OrientModel& model) {
    const Array<Vec3f>& points = model.points;
    const ConvexHull hull = convex_hull(points, kHullTolerance);
    for (const std::uint32_t v : hull.vertices) model.hull_points.push_back(points[v]);
    Poller poller;
    for (const auto& t : hull.triangles) {
        poller();
        const Vec3d a = to_double(points[t[0]]);
        const Vec3d b = to_double(points[t[1]]);
        const Vec3d c = to_double(points[t[2]]);
        model.hull_volume += dot(a, cross(b, c)) / 6;
        model.hull_area += length(cross(b - a, c - a)) / 2;
    }
    if (hull.dimension == 3) {
        model.rest_faces = RestFaceFinder(points, hull).run();
    } else {  // in one plane: both its sides
        const Vec3d normal = corners_of(model, model.triangles.front()).normal();
        const double area = model.area / 2;
        model.rest_faces = {{normal / length(normal), model.centre_of_mass, area},
                            {normal / -length(normal), model.centre_of_mass, area}};
    }
    Vec3d centre;
    for (const RestFace& face : model.rest_faces) {
        centre = centre + face.middle / static_cast<double>(model.rest_faces.size());
    }
    double radius = 0;
    for (const Vec3f p : model.hull_points) {
        radius = std::max(radius, length(to_double(p) - centre));
    }
    model.diameter = 2 * radius;
    model.slack = model.diameter * kSlack;
    const double square = model.diameter * model.diameter;
    model.hull_volume = std::max(model.hull_volume, 1e-3 * square * model.diameter);
    model.hull_area = std::max({model.hull_area, 1e-2 * square, model.area / 2});
    std::erase_if(model.rest_faces, [&](const RestFace& face) {
        return face.area < kLeastRestShare * model.hull_area;
    });
}

std::size_t cube_cell(Vec3d n) {
    const double x = std::abs(n.x);
    const double y = std::abs(n.y);
    const double z = std::abs(n.z);
    const std::size_t axis = x >= y && x >= z ? 0 : y >= z ? 1 : 2;
    const double most = axis == 0 ? n.x : axis == 1 ? n.y : n.z;
    const double u = axis == 0 ? n.y : axis == 1 ? n.z : n.x;
    const double v = axis == 0 ? n.z : axis == 1 ? n.x : n.y;
    // Of equal angles within a twelfth: slope times (1.273 - 0.273 |slope|) is near to the arc
    // tangent over 45 degrees.
    const auto cell = [&](double rise) {
        const double slope = rise / std::abs(most);
        const double share = slope * (1.273 - 0.273 * std::abs(slope)) / 2 + 0.5;
        const auto place = static_cast<std::int64_t>(share * static_cast<double>(kCubeCells));
        return static_cast<std::size_t>(
            std::clamp<std::int64_t>(place, 0, static_cast<std::int64_t>(kCubeCells) - 1));
    };
    const std::size_t side = 2 * axis + (most < 0 ? 1 : 0);
    return (side * kCubeCells + cell(u)) * kCubeCells + cell(v);
}

void fill_tables(OrientModel& model) {
    NormalTable& table = model.group_table;
    const auto add = [](Array<float>& to, double v) { to.push_back(static_cast<float>(v)); };
    const auto add_group = [&](const NormalGroup& group) {
        add(table.normal_x, group.normal.x);
        add(table.normal_y, group.normal.y);
        add(table.normal_z, group.normal.z);
        add(table.area, group.area);
        add(table.moment_x, group.moment.x);
        add(table.moment_y, group.moment.y);
        add(table.moment_z, group.moment.z);
    };
    for (const NormalGroup& group : model.groups) add_group(group);
    while (table.area.size() % kTableLanes != 0) add_group({{1, 0, 0}, 0, {}});
    PointTable& hull = model.hull_table;
    const auto add_point = [&](Vec3f p) {
        hull.x.push_back(p.x);
        hull.y.push_back(p.y);
        hull.z.push_back(p.z);
    };
    for (const Vec3f p : model.hull_points) add_point(p);
    while (hull.x.size() % kTableLanes != 0) add_point(model.hull_points.front());
}

void group_normals(OrientModel& model) {
    std::vector<NormalGroup> cells(6 * kCubeCells * kCubeCells);
    Poller poller;
    for (const auto& t : model.triangles) {
        poller();
        const Corners face = corners_of(model, t);
        const Vec3d normal = face.normal();
        NormalGroup& cell = cells[cube_cell(normal)];
        const double area = length(normal) / 2;
        cell.normal = cell.normal + normal;
        cell.area += area;
        cell.moment = cell.moment + face.middle() * area;
    }
    for (NormalGroup& cell : cells) {
        const double size = length(cell.normal);
        if (!(size > 0)) continue;
        cell.normal = cell.normal / size;
        model.groups.push_back(cell);
    }
}

}  // namespace

bool has_finite_corners(const TriMesh& mesh, const Face& face) {
    return face.deleted == 0 &&
           std::all_of(face.vertex.begin(), face.vertex.end(), [&](std::int32_t v) {
               const auto place = static_cast<std::size_t>(v);  // huge for a negative one
               return place < mesh.vertices.size() && is_finite(mesh.vertices[place].position());
           });
}

OrientModel make_support_model(const TriMesh& mesh) {
    OrientModel model;
    const Box3f box = box_of_areas(mesh);
    if (box.is_empty()) return model;
    const Vec3d extent = to_double(box.high) - to_double(box.low);
    model.unit = std::max({extent.x, extent.y, extent.z});
    model.middle = to_double(box.low) * 0.5 + to_double(box.high) * 0.5;
    model.slack = kSlack;
    if (model.unit > 0) take_triangles(mesh, model);
    if (model.triangles.empty()) {
        model.unit = 0;
        return model;
    }
    weigh(model);
    return model;
}

OrientModel make_orient_model(const TriMesh& mesh) {
    OrientModel model = make_support_model(mesh);
    if (model.triangles.empty()) return model;
    wrap(model);
    group_normals(model);
    fill_tables(model);
    return model;
}

void cluster_points(const OrientModel& model, Array<Vec3f>& points,
                    Array<std::array<std::uint32_t, 3>>& triangles) {
    struct Member {
        std::uint32_t cell, point;
    };
    const auto along = [](float place) {
        const float cell = (place + 0.5F) * static_cast<float>(kClusterCells);
        return static_cast<std::uint32_t>(std::clamp(cell, 0.0F, kClusterCells - 1.0F));
    };
    Array<Member> members(model.points.size());
    for (std::uint32_t i = 0; i < members.size(); ++i) {
        const Vec3f p = model.points[i];
        members[i] = {(along(p.x) * kClusterCells + along(p.y)) * kClusterCells + along(p.z), i};
    }
    polled_sort(members.begin(), members.end(), [](const Member& a, const Member& b) {
        return a.cell != b.cell ? a.cell < b.cell : a.point < b.point;
    });
    points.clear();
    Array<std::uint32_t> cluster_of(members.size());
    for (std::size_t begin = 0; begin < members.size();) {
        std::size_t end = begin;
        Vec3d sum;
        for (; end < members.size() && members[end].cell == members[begin].cell; ++end) {
            cluster_of[members[end].point] = static_cast<std::uint32_t>(points.size());
            sum = sum + to_double(model.points[members[end].point]);
        }
        sum = sum / static_cast<double>(end - begin);
        points.push_back(
            {static_cast<float>(sum.x), static_cast<float>(sum.y), static_cast<float>(sum.z)});
        begin = end;
    }
    triangles.clear();
    for (const auto& t : model.triangles) {
        const std::array<std::uint32_t, 3> c = {cluster_of[t[0]], cluster_of[t[1]],
                                                cluster_of[t[2]]};
        if (c[0] != c[1] && c[1] != c[2] && c[2] != c[0]) triangles.push_back(c);
    }
}

}  // namespace povmesh
