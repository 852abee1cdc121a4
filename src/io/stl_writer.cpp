#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/array.h"
#include "io/file.h"
#include "io/stl.h"
#include "io/stl_binary.h"

namespace povmesh {
namespace {

constexpr std::string_view kHeader = "PovMesh";

// A face that is live and whose corners exist. A model file can name vertices that it lacks; such a
// face is left out here as it is by `compact`.
bool is_written(const TriMesh& mesh, const Face& face) {
    const std::size_t count = mesh.vertices.size();
    bool in_range = true;
    for (const std::int32_t v : face.vertex) {
        in_range &= v >= 0 && static_cast<std::size_t>(v) < count;
    }
    return face.deleted == 0 && in_range;
}

Status write_prologue(ByteSink& file, std::uint32_t count) {
    char prologue[kStlPrologueBytes] = {};
    kHeader.copy(prologue, kHeader.size());
    std::memcpy(prologue + kStlHeaderBytes, &count, sizeof count);
    return file.write(prologue);
}

void encode_corners(const TriMesh& mesh, const Face& face, char* target) {
    for (std::size_t corner = 0; corner < 3; ++corner) {
        const Vec3f p = mesh.corner_position(face, corner);
        static_assert(sizeof p == kStlCornersBytes / 3);
        std::memcpy(target + corner * sizeof p, &p, sizeof p);
    }
}

}  // namespace

Status write_stl(const TriMesh& mesh, const std::string& path, bool flush_to_disk) {
    ReplacementFile file;
    Status status = file.open(path, flush_to_disk);
    if (!status.ok()) return status;
    return write_stl(mesh, file);
}

Status write_stl(const TriMesh& mesh, ByteSink& file) {
    std::uint32_t count = 0;
    for (const Face& face : mesh.faces) count += is_written(mesh, face) ? 1U : 0U;
    Status status = write_prologue(file, count);
    if (!status.ok()) return status;

    // Normals and attribute words are 0 from the start; only the corners change from use to use.
    constexpr std::size_t kChunkRecords = 5242;
    Array<char> chunk;
    chunk.assign(kChunkRecords * kStlRecordBytes, 0);
    std::size_t filled = 0;
    for (const Face& face : mesh.faces) {
        if (!is_written(mesh, face)) continue;
        encode_corners(mesh, face, chunk.data() + filled * kStlRecordBytes + kStlCornersOffset);
        if (++filled < kChunkRecords) continue;
        status = file.write(chunk);
        if (!status.ok()) return status;
        filled = 0;
    }
    status = file.write(std::span<const char>(chunk).first(filled * kStlRecordBytes));
    if (!status.ok()) return status;
    return file.commit();
}

}  // namespace povmesh
