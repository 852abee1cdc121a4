// The PLY reader on any bytes, and what it reads through the writer and back.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "helpers/memory_sink.h"
#include "io/ply.h"
#include "require.h"

namespace povmesh {
namespace {

void check_mesh(const TriMesh& mesh, const PlyInfo& info, const Status& status) {
    require(is_consistent(mesh), "inconsistent mesh");
    require(mesh.faces.size() <= info.triangles, "more faces than triangles");
    for (const Face& face : mesh.faces) {
        require(face.label >= 0 || face.uv[0] < 0, "texture without a label");
    }
    require(!mesh.faces.empty(), "good status without a face: " + status.text());
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    TriMesh mesh;
    PlyInfo info;
    const std::span<const char> bytes(reinterpret_cast<const char*>(data), size);
    const Status status = read_ply(bytes_of(bytes), "part.ply", mesh, info);
    if (!status.ok()) {
        require(status.text().starts_with("part.ply: ") &&
                    std::none_of(status.text().begin(), status.text().end(),
                                 [](char c) { return c >= 0 && c < ' '; }),
                "message: " + status.text());
        return 0;
    }
    check_mesh(mesh, info, status);
    MemorySink sink;
    require(write_ply(mesh, sink, info.texture_files).ok(), "cannot write");
    TriMesh back;
    require(read_ply(bytes_of(std::span<const char>(sink.bytes)), "part.ply", back, info).ok(),
            "cannot read what was written");
    require(back.faces.size() == mesh.faces.size(), "faces lost");
    return 0;
}

}  // namespace povmesh
