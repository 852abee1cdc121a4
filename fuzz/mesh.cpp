// Building, labelling, checking, compacting and exporting of meshes whose corners lie on a tiny
// grid, so that everything touches and coincides. Building, edges and checking are compared with a
// slow, literal second version, compacting with the way through an exported soup.
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "helpers/reference.h"
#include "mesh/build_f.h"
#include "mesh/compact.h"
#include "mesh/edge_mates.h"
#include "mesh/shells.h"
#include "mesh/tri_mesh.h"
#include "mesh/volume.h"
#include "repair/detect.h"
#include "require.h"

namespace povmesh {
namespace {

class Bytes {
public:
    explicit Bytes(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool is_empty() const { return bytes_.empty(); }
    std::uint8_t next() {
        if (bytes_.empty()) return 0;
        const std::uint8_t byte = bytes_.front();
        bytes_ = bytes_.subspan(1);
        return byte;
    }

private:
    std::span<const std::uint8_t> bytes_;
};

float coordinate(std::uint8_t byte, bool with_special) {
    constexpr std::array<float, 16> kSpecial = {-0.0F,
                                                1e38F,
                                                -1e38F,
                                                1e6F,
                                                1000001.0F,
                                                -1e6F,
                                                -1000001.0F,
                                                1e-45F,
                                                1e30F,
                                                0.001F,
                                                1.0F,
                                                1e-38F,
                                                3.4e38F,
                                                std::numeric_limits<float>::infinity(),
                                                -std::numeric_limits<float>::infinity(),
                                                std::numeric_limits<float>::quiet_NaN()};
    if (with_special && byte >= 240) return kSpecial[byte - 240U];
    return static_cast<float>(byte % 10);
}

// The first byte says which arrays there are; each triangle is the next bytes.
struct Input {
    bool with_colours, with_texture, with_labels, with_special, as_bytes;
    reference::Arrays arrays;
    std::vector<bool> deleted;

    explicit Input(Bytes bytes) {
        const unsigned flags = bytes.next();
        with_colours = (flags & 1U) != 0;
        with_texture = (flags & 2U) != 0;
        with_labels = (flags & 4U) != 0;
        with_special = (flags & 8U) != 0;
        as_bytes = (flags & 16U) != 0;
        constexpr std::size_t kMostTriangles = 40;
        while (!bytes.is_empty() && deleted.size() < kMostTriangles) read_triangle(bytes);
    }

    template <typename AnySoup>
    AnySoup soup() const {
        AnySoup soup;
        soup.triangle_count = deleted.size();
        soup.coordinates = arrays.coordinates.data();
        if constexpr (std::is_same_v<AnySoup, Soup>) {
            if (with_colours) soup.colours = arrays.colours.data();
        } else {
            if (with_colours) soup.colours = arrays.colour_bytes.data();
        }
        if (with_texture) soup.texture_coordinates = arrays.texture_coordinates.data();
        if (with_labels) soup.labels = arrays.labels.data();
        return soup;
    }

private:
    void read_triangle(Bytes& bytes) {
        for (int i = 0; i < 9; ++i) {
            arrays.coordinates.push_back(coordinate(bytes.next(), with_special));
        }
        const std::uint8_t mixed = bytes.next();
        deleted.push_back(mixed % 8 == 7);
        for (unsigned i = 0; i < 9; ++i) {
            const auto byte = static_cast<std::uint8_t>(mixed * (i + 1));
            arrays.colour_bytes.push_back(byte);
            const float special = coordinate(static_cast<std::uint8_t>(255U - i), true);
            arrays.colours.push_back(
                with_special && mixed % 16 == 5 ? special : static_cast<float>(byte) / 200.0F);
        }
        for (unsigned i = 0; i < 6; ++i) {
            arrays.texture_coordinates.push_back(static_cast<float>(mixed + i) / 7.0F);
        }
        constexpr std::array<std::int32_t, 8> kLabels = {0, 1, -1, 65535, 32767, 32768, -65536, 7};
        arrays.labels.push_back(kLabels[mixed / 8 % 8]);
    }
};

void require_same(const TriMesh& a, const TriMesh& b, const std::string& what) {
    const std::string difference = reference::difference(a, b);
    require(difference.empty(), what + ": " + difference);
}

void check_edges(TriMesh& mesh) {
    const reference::UseLists uses = reference::use_lists(mesh);
    const EdgeMates mates(mesh);
    for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
        for (std::size_t edge = 0; edge < 3; ++edge) {
            if (mesh.faces[f].deleted != 0) {
                require(mates.kind(f, edge) == EdgeMates::Kind::Open, "edge of a deleted face");
                continue;
            }
            const std::set<std::uint32_t> across = reference::across(mesh, uses, f, edge);
            const auto kind = across.empty()       ? EdgeMates::Kind::Open
                              : across.size() == 1 ? EdgeMates::Kind::Manifold
                                                   : EdgeMates::Kind::NonManifold;
            require(mates.kind(f, edge) == kind, "kind of an edge");
            if (kind == EdgeMates::Kind::Manifold) {
                require(mates.mate(f, edge) == *across.begin(), "mate at an edge");
            } else if (kind == EdgeMates::Kind::NonManifold) {
                std::set<std::uint32_t> all = across;
                all.insert(f);
                const auto group = mates.group(mates.group_of(f, edge));
                require(
                    std::vector(group.begin(), group.end()) == std::vector(all.begin(), all.end()),
                    "group of an edge");
            }
        }
    }
}

void check_detection(TriMesh& mesh) {
    const TriMesh before = mesh;
    FlawFaces faces;
    const FlawCounts counts = detect(mesh, &faces);
    require_same(mesh, before, "detect changed the mesh");
    require(is_consistent(mesh), "use table after detect");
    require(reference::as_lists(mesh.shells) == reference::shells(mesh), "shells");

    const reference::Flaws flaws = reference::detect(before);
    require(std::array{counts.inverted, counts.open_edges, counts.non_manifold,
                       counts.degenerate} == flaws.counts,
            "flaw counts");
    const std::array lists = {&faces.inverted, &faces.open, &faces.non_manifold, &faces.degenerate};
    for (std::size_t kind = 0; kind < lists.size(); ++kind) {
        require(std::vector(lists[kind]->begin(), lists[kind]->end()) ==
                    std::vector(flaws.faces[kind].begin(), flaws.faces[kind].end()),
                "faces of flaw " + std::to_string(kind));
    }
    require(detect(mesh) == counts, "second detect");
}

void check_compaction(TriMesh& mesh) {
    const bool had_live_faces = live_face_count(mesh) != 0;
    const TriMesh expected =
        had_live_faces ? reference::rebuilt(reference::exported(mesh)) : TriMesh(mesh);
    compact(mesh);
    require_same(mesh, expected, "compact");
    require(is_consistent(mesh), "use table after compact");
    if (!had_live_faces) return;
    const TriMesh once = mesh;
    compact(mesh);
    require_same(mesh, once, "second compact");
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Input input(Bytes({data, size}));
    TriMesh mesh;
    if (input.as_bytes) {
        build_f(mesh, input.soup<ByteSoup>());
        require_same(mesh, reference::build_f(input.soup<ByteSoup>()), "build_f");
    } else {
        build_f(mesh, input.soup<Soup>());
        require_same(mesh, reference::build_f(input.soup<Soup>()), "build_f");
    }
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) {
        mesh.faces[f].deleted = input.deleted[f] ? 1 : 0;
    }
    check_edges(mesh);
    require(is_consistent(mesh), "use table");
    check_detection(mesh);
    (void)volume(mesh);
    check_compaction(mesh);
    check_detection(mesh);
    return 0;
}

}  // namespace povmesh
