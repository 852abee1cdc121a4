// Plane cuts of solids on a tiny grid by planes through grid points, so that corners, edges and
// whole faces on the plane, loops that touch and shells that cross come up all the time.
#include "cut/cut.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "cut/pieces.h"
#include "cut/solids.h"
#include "helpers/shapes.h"
#include "require.h"

namespace povmesh {
namespace {

class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    bool empty() const { return place_ >= size_; }
    unsigned next() { return empty() ? 0 : data_[place_++]; }
    int below(int bound) { return static_cast<int>(next()) % bound; }
    double in_steps(int count) { return below(2 * count + 1) - count; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t place_ = 0;
};

// Solids that each are closed and wound outward: cells of a grid, skewed so that their faces lie in
// many planes, or tetrahedra and boxes that may cross, touch and contain one another.
shapes::SoupVector solids_of(Bytes& bytes, bool is_grid) {
    shapes::SoupVector soup;
    if (is_grid) {
        std::array<int, 3> size{};
        for (int& n : size) n = 1 + bytes.below(4);
        const int xy = bytes.below(3);
        const int yz = bytes.below(3);
        std::vector<std::uint8_t> is_set;
        for (int i = 0; i < size[0] * size[1] * size[2]; i += 8) {
            const unsigned bits = bytes.next();
            for (unsigned k = 0; k < 8; ++k) is_set.push_back(bits >> k & 1U);
        }
        soup = solids::cells(size, is_set);
        for (std::size_t i = 0; i < soup.size(); i += 3) {
            soup[i] += static_cast<float>(xy) * soup[i + 1];
            soup[i + 1] += static_cast<float>(yz) * soup[i + 2];
        }
        return soup;
    }
    const auto point = [&] {
        Vec3f p;
        p.x = static_cast<float>(bytes.below(5));
        p.y = static_cast<float>(bytes.below(5));
        p.z = static_cast<float>(bytes.below(5));
        return p;
    };
    for (int i = 0; i < 6 && !bytes.empty(); ++i) {
        const std::array<Vec3f, 4> p = {point(), point(), point(), point()};
        const float volume = dot(p[1] - p[0], cross(p[2] - p[0], p[3] - p[0]));
        if (volume == 0) continue;
        shapes::SoupVector tetrahedron;
        for (const std::size_t k : {0U, 2U, 1U, 0U, 1U, 3U, 1U, 2U, 3U, 2U, 0U, 3U}) {
            tetrahedron.insert(tetrahedron.end(), {p[k].x, p[k].y, p[k].z});
        }
        if (volume < 0) tetrahedron = shapes::turned(tetrahedron);
        shapes::append(soup, tetrahedron);
    }
    return soup;
}

// A face turned over or gone: nothing breaks, and what was closed stays so.
void check_damaged(TriMesh& model, const CutPlane& plane, unsigned kind) {
    const std::size_t face = kind / 8 % model.faces.size();
    const bool was_manifold = pieces::count_edges(model).non_manifold == 0;
    const bool is_closed = (kind & 2U) != 0;
    if (is_closed) {
        reverse_winding(model.faces[face]);
    } else {
        model.faces.erase(model.faces.begin() + static_cast<std::ptrdiff_t>(face));
    }
    for (const TriMesh& part : pieces::cut(model, plane)) {
        require(is_consistent(part), "inconsistent piece");
        const bool must_be_closed = is_closed && was_manifold && (kind & 1U) != 0;
        require(!must_be_closed || pieces::count_edges(part).odd == 0, "open piece");
    }
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes bytes(data, size);
    const unsigned kind = bytes.next();
    CutPlane plane;
    plane.normal = {bytes.in_steps(3), bytes.in_steps(3), bytes.in_steps(3)};
    plane.direction = {bytes.in_steps(3), bytes.in_steps(3), bytes.in_steps(3)};
    plane.point = {bytes.in_steps(8) / 2, bytes.in_steps(8) / 2, bytes.in_steps(8) / 2};
    TriMesh model = shapes::mesh_of(solids_of(bytes, (kind & 1U) != 0));
    if ((kind & 6U) != 0 && !model.faces.empty()) {
        check_damaged(model, plane, kind);
        return 0;
    }
    const bool has_plane = length(plane.normal) > 0 && length(plane.direction) > 0;

    const std::vector<TriMesh> parts = pieces::cut(model, plane);
    if (!has_plane) {
        plane.normal = {0, 0, 1};
        std::size_t faces = 0;
        for (const TriMesh& part : parts) faces += part.faces.size();
        require(faces == model.faces.size(), "a cut without a plane");
        return 0;
    }
    require(model.faces.empty() || !parts.empty(), "nothing left");
    const std::string complaint = pieces::complaint(model, plane, parts, (kind & 1U) == 0);
    require(complaint.empty(), complaint);

    if ((kind & 0x38U) == 0) {  // slower; the radius is small enough to find room in a cell
        for (const TriMesh& part :
             pieces::cut(model, plane, CutOperation::CutAndCap, {0.1, 3, 5})) {
            require(is_consistent(part), "inconsistent piece with pegs");
            require(pieces::count_edges(part).open == 0, "open edges in a piece with pegs");
        }
    }
    for (const CutOperation operation : {CutOperation::MirrorFront, CutOperation::MirrorBack}) {
        for (const TriMesh& part : pieces::cut(model, plane, operation)) {
            require(is_consistent(part), "inconsistent mirror image");
            require(pieces::count_edges(part).open == 0, "open edges in a mirror image");
        }
    }
    return 0;
}

}  // namespace povmesh
