/* A host that knows nothing of our compiler: loads the DLL by name and calls what it finds.
 * usage: host DLL DEFINITION MODEL FOLDER; prints what went wrong, a line each. */
#include <math.h>
#include <povmesh/context.h>
#include <povmesh/povmesh.h>
#include <stdio.h>
#include <string.h>
#include <windows.h>

static int problems;

static void check(int is_right, const char* what) {
    if (is_right) return;
    ++problems;
    printf("%s (error %lu)\n", what, GetLastError());
}

/* Functions of the loaded library, with the types that the headers give them. */
#define EACH_FUNCTION(DO)         \
    DO(povmesh_context_create)    \
    DO(povmesh_context_destroy)   \
    DO(povmesh_options_init)      \
    DO(povmesh_mesh_create)       \
    DO(povmesh_mesh_release)      \
    DO(povmesh_read_file)         \
    DO(povmesh_write_file)        \
    DO(povmesh_repair)            \
    DO(povmesh_check)             \
    DO(povmesh_remesh)            \
    DO(povmesh_reduce)            \
    DO(povmesh_cut)               \
    DO(povmesh_offset)            \
    DO(povmesh_hollow)            \
    DO(povmesh_result_mesh)       \
    DO(povmesh_result_mesh_count) \
    DO(povmesh_result_release)    \
    DO(importFile)                \
    DO(meshReduceFromData)        \
    DO(modelRepair64)             \
    DO(freeAllArray)
#define DECLARE(name) static __typeof__(&name) name##_;
#define FIND(name) name##_ = (__typeof__(&name))(void*)GetProcAddress(library, #name);

EACH_FUNCTION(DECLARE)

static void find_functions(HMODULE library) {
    EACH_FUNCTION(FIND)
}

/* Every name of the definition file; returns how many. */
static int find_all_names(HMODULE library, const char* definition) {
    char line[256];
    int count = 0;
    FILE* file = fopen(definition, "r");
    check(file != NULL, definition);
    while (file != NULL && fgets(line, sizeof line, file) != NULL) {
        char name[256];
        if (line[0] != ' ' || sscanf(line, "%255s", name) != 1) continue;
        check(GetProcAddress(library, name) != NULL, name);
        ++count;
    }
    if (file != NULL) fclose(file);
    return count;
}

typedef struct Job {
    const char* model;
    char target[1024];
} Job;

static DWORD WINAPI run_job(void* parameter) {
    const Job* job = parameter;
    povmesh_context_options options;
    povmesh_context* context = NULL;
    povmesh_mesh *read = NULL, *repaired = NULL;
    int is_right;
    memset(&options, 0, sizeof options);
    options.size = sizeof options;
    options.threads = 2;
    is_right = povmesh_context_create_(&options, &context) == POVMESH_OK &&
               povmesh_read_file_(context, job->model, NULL, &read, NULL) == POVMESH_OK &&
               povmesh_repair_(context, read, NULL, &repaired, NULL) == POVMESH_OK &&
               povmesh_write_file_(context, repaired, job->target, NULL, NULL) == POVMESH_OK;
    povmesh_mesh_release_(repaired);
    povmesh_mesh_release_(read);
    povmesh_context_destroy_(context);
    return is_right ? 0 : 1;
}

/* Both interfaces at once: two contexts on threads of their own, and the parallel loops of an
 * exported function, whose threads outlive it. */
static void use_from_two_threads(const char* model, const char* folder) {
    Job jobs[2];
    HANDLE threads[2];
    float *corners = NULL, *colours = NULL, *texture = NULL, *reduced = NULL;
    int32_t* labels = NULL;
    uint32_t count = 0, reduced_count = 0;
    int i;
    for (i = 0; i < 2; ++i) {
        jobs[i].model = model;
        /* "Grüße", Greek, a character beyond 16 bits */
        snprintf(jobs[i].target, sizeof jobs[i].target,
                 "%s/Gr\xC3\xBC\xC3\x9F"
                 "e \xCE\xBA\xCF\x8D\xCE\xB2\xCE\xBF\xCF\x82 "
                 "\xF0\x9F\x98\x80 %d.stl",
                 folder, i);
        threads[i] = CreateThread(NULL, 0, run_job, &jobs[i], 0, NULL);
    }
    importFile_(model, &corners, &colours, &texture, &labels, &count);
    check(count > 0, "importFile gives no triangles");
    meshReduceFromData_(0.5F, &corners, &count, &reduced, &reduced_count);
    check(reduced_count > 0 && reduced_count < count, "meshReduceFromData reduces nothing");
    freeAllArray_();
    for (i = 0; i < 2; ++i) {
        DWORD status = 1;
        WaitForSingleObject(threads[i], INFINITE);
        check(GetExitCodeThread(threads[i], &status) && status == 0, "a thread's job failed");
        CloseHandle(threads[i]);
    }
}

/* A closed mesh of about this volume and at most so many faces. */
static void check_mesh(povmesh_context* context, const povmesh_mesh* mesh, double volume,
                       uint64_t most_faces, const char* what) {
    povmesh_check_report report;
    memset(&report, 0, sizeof report);
    report.size = sizeof report;
    check(mesh != NULL && povmesh_check_(context, mesh, NULL, NULL, &report) == POVMESH_OK &&
              report.is_closed && fabs(report.volume - volume) < 0.01 * volume &&
              report.faces <= most_faces,
          what);
}

/* Five operations on a cube of edge 20, whose volumes are known. */
static void check_operations(void) {
    static const float kCorners[24] = {0, 0, 0,  20, 0, 0,  20, 20, 0,  0, 20, 0,
                                       0, 0, 20, 20, 0, 20, 20, 20, 20, 0, 20, 20};
    static const int32_t kFaces[36] = {0, 2, 1, 0, 3, 2, 4, 5, 6, 4, 6, 7, 0, 1, 5, 0, 5, 4,
                                       1, 2, 6, 1, 6, 5, 2, 3, 7, 2, 7, 6, 3, 0, 4, 3, 4, 7};
    povmesh_context* context = NULL;
    povmesh_mesh_data data;
    povmesh_mesh *cube = NULL, *fine = NULL, *reduced = NULL, *shrunk = NULL, *hollowed = NULL;
    povmesh_result* pieces = NULL;
    povmesh_remesh_options remesh;
    povmesh_reduce_options reduce;
    povmesh_offset_options offset;
    povmesh_hollow_options hollow;
    povmesh_context_create_(NULL, &context);
    memset(&data, 0, sizeof data);
    data.size = sizeof data;
    data.positions.data = kCorners;
    data.positions.count = 8;
    data.positions.type = POVMESH_F32;
    data.positions.components = 3;
    data.faces.data = kFaces;
    data.faces.count = 12;
    data.faces.type = POVMESH_I32;
    data.faces.components = 3;
    check(povmesh_mesh_create_(context, &data, &cube) == POVMESH_OK, "no mesh is made");

    povmesh_options_init_(POVMESH_REMESH, &remesh, sizeof remesh);
    remesh.edge_length = 2;
    povmesh_remesh_(context, cube, &remesh, &fine, NULL);
    check_mesh(context, fine, 8000, 10000, "povmesh_remesh");
    povmesh_options_init_(POVMESH_REDUCE, &reduce, sizeof reduce);
    reduce.faces = 100;
    povmesh_reduce_(context, fine, &reduce, &reduced, NULL);
    check_mesh(context, reduced, 8000, 100, "povmesh_reduce");
    povmesh_cut_(context, cube, NULL, &pieces, NULL);
    check(povmesh_result_mesh_count_(pieces) == 2, "povmesh_cut does not give two pieces");
    check_mesh(context, povmesh_result_mesh_(pieces, 0), 4000, 100, "povmesh_cut, piece 0");
    check_mesh(context, povmesh_result_mesh_(pieces, 1), 4000, 100, "povmesh_cut, piece 1");
    povmesh_options_init_(POVMESH_OFFSET, &offset, sizeof offset);
    offset.distance = -1;
    povmesh_offset_(context, cube, &offset, &shrunk, NULL);
    check_mesh(context, shrunk, 18 * 18 * 18, 1000000, "povmesh_offset");
    povmesh_options_init_(POVMESH_HOLLOW, &hollow, sizeof hollow);
    hollow.thickness = 2;
    povmesh_hollow_(context, cube, &hollow, &hollowed, NULL);
    check_mesh(context, hollowed, 8000 - 16 * 16 * 16, 1000000, "povmesh_hollow");

    povmesh_result_release_(pieces);
    povmesh_mesh_release_(hollowed);
    povmesh_mesh_release_(shrunk);
    povmesh_mesh_release_(reduced);
    povmesh_mesh_release_(fine);
    povmesh_mesh_release_(cube);
    povmesh_context_destroy_(context);
}

static ULONGLONG size_of(const WCHAR* path) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path, GetFileExInfoStandard, &data)) return 0;
    return ((ULONGLONG)data.nFileSizeHigh << 32) + data.nFileSizeLow;
}

/* A file that another program reads cannot be replaced; it must stay as it was, with nothing left
 * beside it. A path in the system's code page names the same file. */
static void check_replacing(const char* model, const WCHAR* folder) {
    static const WCHAR kName[] = L"\\open \u00e9.stl";
    WCHAR path[1024], pattern[1024], source[1024];
    char narrow[1024], utf8[1024];
    WIN32_FIND_DATAW found;
    HANDLE reader, search;
    ULONGLONG before;
    MultiByteToWideChar(CP_UTF8, 0, model, -1, source, 1024);
    swprintf(path, 1024, L"%ls%ls", folder, kName);
    swprintf(pattern, 1024, L"%ls\\.povmesh-*", folder);
    WideCharToMultiByte(CP_UTF8, 0, path, -1, utf8, sizeof utf8, NULL, NULL);
    WideCharToMultiByte(CP_ACP, 0, path, -1, narrow, sizeof narrow, NULL, NULL);
    check(CopyFileW(source, path, FALSE), "the model cannot be copied");
    before = size_of(path);

    reader = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, NULL, OPEN_EXISTING, 0, NULL);
    modelRepair64_(utf8);
    CloseHandle(reader);
    check(size_of(path) == before, "a file that may not be written was changed");
    reader = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, NULL,
                         OPEN_EXISTING, 0, NULL);
    modelRepair64_(utf8);
    CloseHandle(reader);
    check(size_of(path) == before, "a file that may not be replaced was changed");
    search = FindFirstFileW(pattern, &found);
    check(search == INVALID_HANDLE_VALUE, "a temporary file was left behind");

    modelRepair64_(narrow);
    check(size_of(path) != before, "a name of the system's code page was not found");
}

/* Paths beyond 260 characters. */
static void check_long_path(const char* model, const WCHAR* folder) {
    WCHAR path[1024];
    Job job;
    int i;
    swprintf(path, 1024, L"\\\\?\\%ls", folder);
    for (i = 0; i < 6; ++i) {
        wcscat(path, L"\\a folder with a name that is fifty characters long");
        check(CreateDirectoryW(path, NULL) || GetLastError() == ERROR_ALREADY_EXISTS, "no folder");
    }
    wcscat(path, L"\\part.stl");
    job.model = model;
    WideCharToMultiByte(CP_UTF8, 0, path + 4, -1, job.target, sizeof job.target, NULL, NULL);
    check(run_job(&job) == 0 && size_of(path) > 0, "a long path is not written");
}

int main(int argc, char** argv) {
    WCHAR folder[1024];
    int round, names = 0;
    if (argc != 5) return 2;
    CreateDirectoryA(argv[4], NULL);
    GetFullPathNameW(L".", 1024, folder, NULL);
    MultiByteToWideChar(CP_UTF8, 0, argv[4], -1, folder, 1024);
    for (round = 0; round < 3; ++round) {
        HMODULE library = LoadLibraryA(argv[1]);
        check(library != NULL, argv[1]);
        if (library == NULL) return 1;
        names = find_all_names(library, argv[2]);
        find_functions(library);
        if (problems > 0) return 1;
        use_from_two_threads(argv[3], argv[4]);
        if (round == 0) {
            WCHAR full[1024];
            check_operations();
            GetFullPathNameW(folder, 1024, full, NULL);
            check_replacing(argv[3], full);
            check_long_path(argv[3], full);
        }
        check(FreeLibrary(library), "the library cannot be given back");
        Sleep(50); /* time for threads of the library to stumble over code that is gone */
    }
    printf("%d names, %d problems\n", names, problems);
    return problems == 0 ? 0 : 1;
}
