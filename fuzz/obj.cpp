// The OBJ reader on any text, and what it reads through the writer and back.
#include <unistd.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

#include "io/obj.h"
#include "require.h"

namespace povmesh {
namespace {

// True when the one exception that the contract names came out.
bool read(std::string_view text, bool resolve, TriMesh& mesh, ObjInfo& info, Status& status) {
    try {
        status = parse_obj(text, "part.obj", {resolve}, mesh, info);
        return false;
    } catch (const std::out_of_range& error) {
        require(!resolve, "an exception with resolved indices");
        require(std::string_view(error.what()) == "invalid vector<T> subscript", "its text");
        return true;
    }
}

void check_mesh(const TriMesh& mesh, const ObjInfo& info, const Status& status) {
    require(is_consistent(mesh), "inconsistent mesh");
    require(mesh.faces.size() <= info.triangles, "more faces than triangles");
    require(!status.ok() || !mesh.faces.empty(), "good status without a face");
    require(status.ok() || (status.text().starts_with("part.obj: ") &&
                            std::none_of(status.text().begin(), status.text().end(),
                                         [](char c) { return c >= 0 && c < ' '; })),
            "message: " + status.text());
    for (const Face& face : mesh.faces) {
        const bool has_texture = face.uv[0] >= 0;
        require((face.label >= 0) == has_texture, "texture and label");
    }
}

// Both forms of the writer make a file that reads back to as many faces; the exact one loses none.
void check_round_trip(TriMesh& mesh) {
    const std::string path = "/dev/shm/povmesh_fuzz_" + std::to_string(getpid()) + ".obj";
    for (const bool exact : {false, true}) {
        require(write_obj(mesh, path, {exact}, false).ok(), "cannot write");
        std::ifstream file(path, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        TriMesh back;
        ObjInfo info;
        Status status;
        read(text, false, back, info, status);
        require(info.triangles == mesh.faces.size(), "faces in the written file");
        if (exact) require(back.faces.size() == mesh.faces.size(), "faces lost");
    }
    (void)unlink(path.c_str());
}

}  // namespace

// NOLINTNEXTLINE(readability-identifier-naming)
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    for (const bool resolve : {false, true}) {
        TriMesh mesh;
        ObjInfo info;
        Status status;
        if (read(text, resolve, mesh, info, status)) continue;
        if (status.code() == StatusCode::BadFile && resolve && !mesh.faces.empty()) continue;
        check_mesh(mesh, info, status);
        if (status.ok() && size % 16 == 0) check_round_trip(mesh);
    }
    return 0;
}

}  // namespace povmesh
