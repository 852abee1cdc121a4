// povmesh version: which version this is and how it was built.
#include <string>

#include "cli/commands.h"

namespace povmesh::cli {
namespace {

std::string compiler() {
#if defined(__clang__)
    return "clang " __clang_version__;
#elif defined(__GNUC__)
    return "gcc " __VERSION__;
#elif defined(_MSC_VER)
    return "msvc " + std::to_string(_MSC_FULL_VER);
#else
    return "unknown compiler";
#endif
}

int run_version(const Arguments& /*arguments*/, Console& console) {
    console.print("povmesh " POVMESH_BUILD_VERSION "\nbuild: " POVMESH_BUILD_TYPE ", " +
                  compiler() + "\n");
    return Clean;
}

}  // namespace

OperationSpec version_operation() {
    return {
        .name = "version",
        .summary = "Print the version and how the tool was built",
        .statuses = {Clean, Usage, CannotWrite},
        .run = run_version,
    };
}

}  // namespace povmesh::cli
