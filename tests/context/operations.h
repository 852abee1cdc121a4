// The operations as the tests of the second interface call them: one table, one way to compare.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "context/handles.h"
#include "helpers/shapes.h"
#include "povmesh/context.h"

namespace povmesh::test {

/// What came of a call: a status, and on Ok every byte of the result.
struct CallOutcome {
    povmesh_status status = POVMESH_INTERNAL;
    std::string bytes;
    bool is_untouched = true;  // the out pointers, where the status is not Ok
};

struct TestedOperation {
    const char* name;
    CallOutcome (*call)(povmesh_context* context, const povmesh_mesh* mesh);
    bool is_quick;
};

const std::vector<TestedOperation>& tested_operations();

inline povmesh_context* make_context(std::uint32_t threads, std::uint64_t limit = 0) {
    povmesh_context_options options{};
    options.size = sizeof options;
    options.threads = threads;
    options.memory_limit = limit;
    povmesh_context* context = nullptr;
    return povmesh_context_create(&options, &context) == POVMESH_OK ? context : nullptr;
}

/// Null where that fails, and its status.
povmesh_mesh* make_mesh(povmesh_context* context, const shapes::SoupVector& soup,
                        povmesh_status* status = nullptr);

/// 60 times as high as it is wide.
shapes::SoupVector rod();

/// Two boxes that cross, the first one without a face and with one twice, and a ball.
shapes::SoupVector flawed_model(int levels);

}  // namespace povmesh::test
