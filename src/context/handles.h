// What stands behind the handles of the second interface.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/array.h"
#include "base/job_state.h"
#include "job/model_file.h"
#include "mesh/tri_mesh.h"
#include "povmesh/context.h"

namespace povmesh::context {

/// What the file of a mesh, or of the one that it was made of, had beside it.
struct Origin {
    FileKind kind = FileKind::Unknown;
    bool has_texture_lines = false;
    ModelExtras extras;
};

/// Longest message, in bytes.
constexpr std::size_t kLongestMessage = 1000;

}  // namespace povmesh::context

/// The mesh is compact, and nothing changes it.
struct povmesh_mesh {
    mutable std::atomic<std::uint64_t> owners = 1;
    povmesh::TriMesh mesh;
    std::shared_ptr<const povmesh::context::Origin> origin;
};

struct povmesh_result {
    struct Rows {
        std::int32_t array;
        povmesh::Array<char> bytes;
        povmesh_view view;
    };

    povmesh_result() = default;
    povmesh_result(const povmesh_result&) = delete;
    povmesh_result& operator=(const povmesh_result&) = delete;
    ~povmesh_result() {
        for (const povmesh_mesh* mesh : meshes) povmesh_mesh_release(mesh);
    }

    std::vector<const povmesh_mesh*> meshes;
    std::vector<Rows> arrays;
    std::string text;
};

struct povmesh_context {
    povmesh_context_options options{};
    unsigned threads = 1;
    std::atomic<std::uint32_t> wish = 0;  // povmesh::CancelReason
    std::atomic<bool> is_busy = false;
    std::array<char, povmesh::context::kLongestMessage + 1> message{};
    std::uint64_t peak_bytes = 0;
    std::int64_t left_bytes = 0;           // that the last call left behind: those of its result
    povmesh::FaultPlan* faults = nullptr;  // set by tests that link this statically
};
