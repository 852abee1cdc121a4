/* Repairs and thins out a model that is held in memory, tells how far it is, and ends cleanly on
 * Ctrl-C.
 *
 * usage: repair_in_memory IN OUT */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "povmesh/context.h"

static povmesh_context* context;

static void on_interrupt(int signal_number) {
    (void)signal_number;
    povmesh_context_cancel(context); /* may be called from a signal handler */
}

static int32_t on_progress(void* user, double percent, const char* phase) {
    (void)user;
    fprintf(stderr, "\r%3.0f %% %-24s", percent, phase);
    return 0; /* anything else cancels */
}

static void on_log(void* user, int32_t level, const char* text) {
    (void)user;
    (void)level;
    fprintf(stderr, "\nwarning: %s\n", text);
}

/* All bytes of a file, for free(); null when it cannot be read. */
static char* content_of(const char* path, size_t* bytes) {
    FILE* file = fopen(path, "rb");
    char* data = NULL;
    long length = 0;
    if (file == NULL) return NULL;
    if (fseek(file, 0, SEEK_END) == 0 && (length = ftell(file)) >= 0 &&
        fseek(file, 0, SEEK_SET) == 0) {
        data = malloc((size_t)length + 1);
        *bytes = data != NULL ? fread(data, 1, (size_t)length, file) : 0;
    }
    fclose(file);
    return data;
}

/* The steps; the first that fails ends them. */
static povmesh_status run(const char* data, size_t bytes, const char* target) {
    povmesh_mesh* read = NULL;
    povmesh_mesh* repaired = NULL;
    povmesh_mesh* reduced = NULL;
    povmesh_repair_report report;
    povmesh_reduce_options half = povmesh_reduce_defaults();
    povmesh_status status;
    report.size = sizeof report;
    half.keep = 0.5;

    status = povmesh_read_memory(context, data, bytes, NULL, &read, NULL);
    if (status == POVMESH_OK) status = povmesh_repair(context, read, NULL, &repaired, &report);
    if (status == POVMESH_OK) status = povmesh_reduce(context, repaired, &half, &reduced, NULL);
    if (status == POVMESH_OK) status = povmesh_write_file(context, reduced, target, NULL, NULL);
    if (status == POVMESH_OK) {
        printf("%lu holes closed, %lu faces turned\n", (unsigned long)report.closed_holes,
               (unsigned long)report.turned_faces);
    }
    povmesh_mesh_release(reduced);
    povmesh_mesh_release(repaired);
    povmesh_mesh_release(read);
    return status;
}

int main(int argument_count, char** arguments) {
    povmesh_context_options options = {0};
    povmesh_status status;
    size_t bytes = 0;
    char* data;
    if (argument_count != 3) {
        fprintf(stderr, "usage: %s IN OUT\n", arguments[0]);
        return 2;
    }
    data = content_of(arguments[1], &bytes);
    if (data == NULL) {
        fprintf(stderr, "%s: cannot be read\n", arguments[1]);
        return 3;
    }
    options.size = sizeof options;
    options.progress = on_progress;
    options.log = on_log;
    options.memory_limit = (uint64_t)4 << 30;
    status = povmesh_context_create(&options, &context);
    if (status == POVMESH_OK) {
        signal(SIGINT, on_interrupt);
        status = run(data, bytes, arguments[2]);
        fprintf(stderr, "\n");
        if (status != POVMESH_OK) fprintf(stderr, "%s\n", povmesh_context_message(context));
    }
    povmesh_context_destroy(context);
    free(data);
    return status == POVMESH_OK ? 0 : 1;
}
