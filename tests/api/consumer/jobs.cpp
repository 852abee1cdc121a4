// A host outside this project, in C++17: repairs a box without a lid through a job with a context.
#include <cstdio>
#include <povmesh/povmesh.hpp>
#include <vector>

int main() {
    const std::vector<float> corners = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0,
                                        0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1};
    const std::vector<int> faces = {0, 2, 1, 0, 3, 2, 0, 1, 5, 0, 5, 4, 1, 2, 6,
                                    1, 6, 5, 2, 3, 7, 2, 7, 6, 3, 0, 4, 3, 4, 7};
    try {
        const povmesh::Context context;
        const povmesh::Mesh mesh = povmesh::Mesh::of_faces(context, corners, faces);
        povmesh::Report<povmesh_repair_report> report;
        const povmesh::Mesh repaired = mesh.repair(context, {}, &report);
        std::printf("povmesh %s: %u holes closed\n", povmesh_version_text(),
                    static_cast<unsigned>(report.closed_holes));
        return report.closed_holes == 1 && report.added_faces == 2 ? 0 : 1;
    } catch (const povmesh::Error& error) {
        std::printf("%s\n", error.what());
        return 1;
    }
}
