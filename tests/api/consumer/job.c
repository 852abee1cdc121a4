/* A host outside this project: checks one triangle through a job with a context. */
#include <povmesh/context.h>
#include <stdio.h>

int main(void) {
    const float triangle[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    povmesh_context* context = NULL;
    povmesh_mesh* mesh = NULL;
    povmesh_mesh_data data = {0};
    povmesh_check_report report = {0};
    povmesh_status status = povmesh_context_create(NULL, &context);
    data.size = sizeof data;
    data.positions.data = triangle;
    data.positions.count = 1;
    data.positions.type = POVMESH_F32;
    data.positions.components = 9;
    if (status == POVMESH_OK) status = povmesh_mesh_create(context, &data, &mesh);
    report.size = sizeof report;
    if (status == POVMESH_OK) status = povmesh_check(context, mesh, NULL, NULL, &report);
    printf("%s: %u open edges\n", povmesh_status_text(status), (unsigned)report.open_edges);
    povmesh_mesh_release(mesh);
    povmesh_context_destroy(context);
    return status == POVMESH_OK && report.open_edges == 3 ? 0 : 1;
}
