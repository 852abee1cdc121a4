#include "cli/read_back.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include "job/numbers.h"

namespace povmesh::cli {
namespace {

// The live faces in the order in which a file holds them: OBJ groups them by label.
std::vector<std::uint32_t> file_order(const TriMesh& mesh, const ModelExtras& extras,
                                      FileKind kind) {
    if (kind == FileKind::ThreeMf) {
        const Array<std::uint32_t> order = three_mf_order(mesh, extras.package);
        return {order.begin(), order.end()};
    }
    std::vector<std::uint32_t> order(mesh.faces.size());
    std::iota(order.begin(), order.end(), 0U);
    std::erase_if(order, [&](std::uint32_t face) { return mesh.faces[face].deleted != 0; });
    if (kind == FileKind::Obj) {
        std::stable_sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return mesh.faces[a].label < mesh.faces[b].label;
        });
    }
    return order;
}

std::array<std::uint32_t, 9> corner_bits(const TriMesh& mesh, std::uint32_t face) {
    std::array<std::uint32_t, 9> bits{};
    for (std::size_t corner = 0; corner < 3; ++corner) {
        const Vec3f p = mesh.corner_position(mesh.faces[face], corner);
        bits[corner * 3] = std::bit_cast<std::uint32_t>(p.x);
        bits[corner * 3 + 1] = std::bit_cast<std::uint32_t>(p.y);
        bits[corner * 3 + 2] = std::bit_cast<std::uint32_t>(p.z);
    }
    return bits;
}

// Empty when nothing differs.
std::string difference(const TriMesh& mesh, const ModelExtras& extras, const TriMesh& read,
                       FileKind kind) {
    const std::vector<std::uint32_t> order = file_order(mesh, extras, kind);
    if (order.size() != read.faces.size()) {
        return "it holds " + counted(read.faces.size(), "triangle") + " instead of " +
               with_separators(order.size());
    }
    for (std::uint32_t i = 0; i < order.size(); ++i) {
        if (corner_bits(mesh, order[i]) != corner_bits(read, i)) {
            return "triangle " + std::to_string(i) + " differs";
        }
    }
    return {};
}

}  // namespace

std::string read_back(const TriMesh& mesh, const ModelExtras& extras, const std::string& path,
                      LoadedModel& back) {
    if (is_pipe(path)) return {};  // what went through a pipe is gone
    const std::string failure = load_model(path, {}, back);
    const std::string what =
        failure.empty() ? difference(mesh, extras, back.mesh, kind_of(path)) : failure;
    if (what.empty()) return {};
    return path + ": written, but reading it back failed: " + what +
           "; test the disk and try again";
}

}  // namespace povmesh::cli
