// The 3MF reader on any package, and on any text as the model of one; what it reads goes through
// the writer and back.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "helpers/memory_sink.h"
#include "io/three_mf.h"
#include "io/zip_package.h"
#include "require.h"

namespace povmesh {
namespace {

void check(const std::string& bytes) {
    TriMesh mesh;
    ThreeMfContent content;
    ThreeMfInfo info;
    const Status status =
        read_three_mf(bytes_of(std::span<const char>(bytes)), "part.3mf", mesh, content, info);
    if (!status.ok()) {
        require(status.text().starts_with("part.3mf: ") &&
                    std::none_of(status.text().begin(), status.text().end(),
                                 [](char c) { return c >= 0 && c < ' '; }),
                "message: " + status.text());
        return;
    }
    require(is_consistent(mesh), "inconsistent mesh");
    require(mesh.faces.size() <= info.triangles, "more faces than triangles");
    if (mesh.faces.empty()) return;
    MemorySink sink;
    require(write_three_mf(mesh, content, {}, "part.3mf", sink).ok(), "cannot write");
    TriMesh back;
    ThreeMfContent back_content;
    const Status again = read_three_mf(bytes_of(std::span<const char>(sink.bytes)), "part.3mf",
                                       back, back_content, info);
    require(again.ok(), "cannot read what was written: " + again.text());
    require(back.faces.size() == mesh.faces.size(), "faces lost");
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    if (bytes.starts_with("PK")) {
        check(bytes);
        return 0;
    }
    PackageWriter package;
    package.add("3D/3dmodel.model", bytes);
    MemorySink sink;
    require(package.finish(sink, "part.3mf").ok(), "cannot pack");
    check(sink.bytes);
    return 0;
}

}  // namespace povmesh
