// Going round each vertex, a corner joins the wedge of the same key, or opens one. Two wedges that
// follow each other in two unbroken runs make a seam through the vertex.
//
// Source: H. Hoppe, New quadric metric for simplifying meshes with appearance attributes, IEEE
// Visualization 1999, which has the wedges.
#include "remesh/wedges.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "base/convert.h"
#include "remesh/corner_attributes.h"

namespace povmesh {
namespace {

constexpr std::int32_t kChanged = -2;  // the wedge no longer carries what its record says

class WedgeFinder {
public:
    WedgeFinder(const TriMesh& mesh, CollapseMesh& corners, double scale)
        : mesh_(mesh), corners_(corners), scale_(scale) {
        result_.wedges.resize(mesh.vertices.size());
        result_.kinds.assign(corners.is_fixed.size(), Wedges::Crossing);
        corners_.wedges.assign(corners_.opposites.size(), CollapseMesh::kNone);
    }

    // The first wedge of a vertex has its number, others come behind.
    Wedges run() {
        for (std::size_t v = 0; v < mesh_.vertices.size(); ++v) {
            if (corners_.is_fixed[v] == 0) find(v);
        }
        return std::move(result_);
    }

private:
    struct Known {
        CornerKey key;
        std::uint32_t wedge;
    };

    void find(std::size_t v) {
        // A vertex with many wedges is compared with the last one found only: more wedges than
        // there are make it a crossing all the same.
        constexpr std::size_t kCompared = 4;
        known_.clear();
        std::size_t changes = 0;
        std::uint32_t last = CollapseMesh::kNone;
        std::uint32_t first = CollapseMesh::kNone;
        std::uint32_t h = corners_.starts[v];
        do {
            const CornerKey key = corners_.is_ghost(h / 3) ? CornerKey::of_nothing()
                                                           : CornerKey(mesh_, face_of(h), h % 3);
            const std::size_t compared = std::min(known_.size(), kCompared);
            const auto found =
                std::find_if(known_.end() - static_cast<std::ptrdiff_t>(compared), known_.end(),
                             [&](const Known& k) { return k.key == key; });
            const std::uint32_t wedge = found != known_.end() ? found->wedge : add_wedge(v, key, h);
            corners_.wedges[h] = wedge;
            if (first == CollapseMesh::kNone) first = wedge;
            if (last != CollapseMesh::kNone && wedge != last) ++changes;
            last = wedge;
            h = corners_.turn(h);
        } while (h != corners_.starts[v]);
        if (first != last) ++changes;
        const std::size_t count = known_.size();
        result_.kinds[v] = count == 1                   ? Wedges::Smooth
                           : count == 2 && changes == 2 ? Wedges::Seam
                                                        : Wedges::Crossing;
    }

    const Face& face_of(std::uint32_t h) const { return mesh_.faces[corners_.faces[h / 3]]; }

    std::uint32_t add_wedge(std::size_t v, const CornerKey& key, std::uint32_t h) {
        Wedges::Wedge wedge{{}, -1};
        if (!corners_.is_ghost(h / 3)) {
            const Face& face = face_of(h);
            const Attributes numbers = corner_attributes(mesh_, face, h % 3);
            for (std::size_t k = 0; k < 3; ++k) {
                wedge.attributes[k] = static_cast<float>(numbers[k] * scale_);
            }
            wedge.record = face.uv[h % 3];
        }
        std::size_t number = v;
        if (known_.empty()) {
            result_.wedges[v] = wedge;
        } else {
            number = result_.wedges.size();
            result_.wedges.push_back(wedge);
        }
        known_.push_back({key, static_cast<std::uint32_t>(number)});
        return known_.back().wedge;
    }

    const TriMesh& mesh_;
    CollapseMesh& corners_;
    double scale_;
    Wedges result_;
    std::vector<Known> known_;
};

}  // namespace

void Wedges::set_attributes(std::uint32_t wedge, const Attributes& attributes) {
    Wedge& place = wedges[wedge];
    for (std::size_t k = 0; k < 3; ++k) {
        place.attributes[k] = static_cast<float>(attributes[k]);
    }
    place.record = kChanged;
}

Wedges make_wedges(const TriMesh& mesh, CollapseMesh& corners, double scale) {
    return WedgeFinder(mesh, corners, scale).run();
}

void store_wedges(Wedges& wedges, const CollapseMesh& corners, double scale, TriMesh& mesh) {
    const auto byte = [&](float value) {
        const double level = static_cast<double>(value) / scale * 255.0;
        return saturate_to<std::uint8_t>(level + 0.5);
    };
    for (std::size_t t = 0; t < corners.triangles.size(); ++t) {
        if (corners.is_gone(t) || corners.is_ghost(t)) continue;
        Face& face = mesh.faces[corners.faces[t]];
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const std::uint32_t number = corners.wedges[3 * t + corner];
            if (number == CollapseMesh::kNone) continue;
            Wedges::Wedge& wedge = wedges.wedges[number];
            if (face.label < 0) {
                std::transform(wedge.attributes.begin(), wedge.attributes.end(),
                               &face.colour[3 * corner], byte);
                continue;
            }
            if (wedge.record == kChanged) {
                wedge.record = static_cast<std::int32_t>(mesh.texture_coordinates.size());
                mesh.texture_coordinates.push_back(
                    {static_cast<double>(wedge.attributes[0]) / scale,
                     static_cast<double>(wedge.attributes[1]) / scale, wedge.record});
            }
            face.uv[corner] = wedge.record;
        }
    }
}

}  // namespace povmesh
