// Peak memory of flawsDetect64 on an STL file, of reading model files, and of reductions, the
// orientation search, divisions into 2 x 2 x 2 parts and writing model files over the mesh that
// they are given, in bytes a triangle. One thread (scripts/bench sets OMP_NUM_THREADS=1).
//
// Floor: at the peak of the walk a closed mesh has faces (36), vertices (8), uses (38), edge codes
// (12), shells (4) and a mark a face: about 100 bytes a triangle. Where the reader maps its file,
// resident pages of it count too.
//
// The call runs in a process of its own, this program started again, which has done nothing before:
// what is counted is how far the peak resident size rises above that of the start, or of the mesh.
#include <malloc.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "decompose/decompose.h"
#include "inputs.h"
#include "io/stl.h"
#include "job/model_file.h"
#include "mesh/bounds.h"
#include "orient/orientation.h"
#include "povmesh/povmesh.h"
#include "remesh/parallel_reduce.h"
#include "remesh/reduce.h"

namespace povmesh::bench {
namespace {

// Of this process since it was started, in bytes. What getrusage tells instead is inherited from
// the process that started it.
double peak_resident_size() {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        double kilobytes = 0;
        if (word == "VmHWM:" && status >> kilobytes) return kilobytes * 1024;
    }
    throw std::runtime_error("no VmHWM in /proc/self/status");
}

// Lets the peak start again from the present size.
void forget_peak() {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;
}

// Files are read and written as the tool does it, by the end of their name.
bool read_file(const std::string& path) {
    LoadedModel model;
    model.path = path;
    model.kind = kind_of_name(path);
    InputFile file;
    return open_model(path, file).ok() && read_model(bytes_of(file), {}, model).ok();
}

bool write_file(TriMesh& mesh, const std::string& path) {
    return write_model_file(mesh, kind_of_name(path), {}, path).ok();
}

int measure_call(const std::string& operation, const char* path) {
    TriMesh mesh;
    RunLog log;
    RunContext run{{}, log};
    const bool is_given_mesh = operation != "flaws_detect" && operation != "read";
    if (is_given_mesh && !read_stl(path, run, mesh).ok()) return 1;
    forget_peak();
    const double before = peak_resident_size();
    if (operation == "flaws_detect") flawsDetect64(path);
    if (operation == "read" && !read_file(path)) return 1;
    constexpr std::string_view kWrite = "write";  // and the end of the file: ".3mf"
    if (operation.starts_with("write.") &&
        !write_file(mesh, path + operation.substr(kWrite.size()))) {
        return 1;
    }
    if (operation == "reduce") reduce(mesh, {.keep = 0.5});
    if (operation == "parallel_reduce") reduce_parallel(mesh, {.keep = 0.5}, run);
    if (operation == "orient") find_orientations(mesh, run);
    if (operation == "uniform" || operation == "search") {
        const Vec3d half = to_double(finite_bounds(mesh).extent()) * 0.5;
        DecomposeOptions options;
        options.size = half;
        if (operation == "uniform") options.method = DivisionMethod::Uniform;
        decompose(mesh, options, run);
    }
    std::cout << peak_resident_size() - before << '\n';
    return 0;
}

std::string this_program;

// Ends of files.
constexpr char kPly[] = ".ply";
constexpr char kThreeMf[] = ".3mf";
constexpr char kPackedStl[] = ".stl.gz";
constexpr char kPackedPly[] = ".ply.gz";
constexpr char kPackedObj[] = ".obj.gz";

void measure_memory(benchmark::State& state, const std::string& operation, const std::string& input,
                    const std::string& path) {
    const std::string result = scratch_file("peak.txt");
    const std::string command =
        "'" + this_program + "' --measure " + operation + " '" + path + "' > '" + result + "'";
    double bytes = 0;
    while (state.KeepRunning()) {
        if (std::system(command.c_str()) != 0 || !(std::ifstream(result) >> bytes)) {
            throw std::runtime_error("failed: " + command);
        }
    }
    state.counters["bytes_per_triangle"] = bytes / static_cast<double>(triangle_count(input));
}

void flaws_detect_binary(benchmark::State& state, const std::string& input) {
    measure_memory(state, "flaws_detect", input, binary_stl(input));
}

void flaws_detect_ascii(benchmark::State& state, const std::string& input) {
    measure_memory(state, "flaws_detect", input, ascii_stl(input));
}

void reduce_half(benchmark::State& state, const std::string& input) {
    measure_memory(state, "reduce", input, binary_stl(input));
}

void parallel_reduce_half(benchmark::State& state, const std::string& input) {
    measure_memory(state, "parallel_reduce", input, binary_stl(input));
}

// Of the tool's own files.
template <const char* end>
void read_model_file(benchmark::State& state, const std::string& input) {
    const std::string path = scratch_file(input + end);
    TriMesh copy = mesh(input);
    if (!std::filesystem::exists(path) && !write_file(copy, path)) {
        throw std::runtime_error("cannot write " + path);
    }
    measure_memory(state, "read", input, path);
}

template <const char* end>
void write_model_file(benchmark::State& state, const std::string& input) {
    measure_memory(state, std::string("write") + end, input, binary_stl(input));
}

// The mesh that is made is 44 bytes a triangle; two more of them are the limit, in both directions.
template <const char* end>
void add_format(const std::string& name) {
    add("read_" + name + "_memory", {"rock_328k", "rock_1311k"}, read_model_file<end>);
    add("write_" + name + "_memory", {"rock_328k", "rock_1311k"}, write_model_file<end>);
}

// Beside the mesh, which has 44 bytes a triangle.
void orient(benchmark::State& state, const std::string& input) {
    measure_memory(state, "orient", input, binary_stl(input));
}

// Floor: the parts are the mesh once more while the last faces of it are still there. While a
// search cuts the first half of a model again, the other half and the model are there, too: one and
// a half times the mesh beside it.
void decompose_uniform(benchmark::State& state, const std::string& input) {
    measure_memory(state, "uniform", input, binary_stl(input));
}

void decompose_search(benchmark::State& state, const std::string& input) {
    measure_memory(state, "search", input, binary_stl(input));
}

}  // namespace
}  // namespace povmesh::bench

int main(int argc, char** argv) {
    using namespace povmesh::bench;  // NOLINT(google-build-using-namespace)
    if (argc == 4 && std::string(argv[1]) == "--measure") return measure_call(argv[2], argv[3]);
    this_program = argv[0];
    add("flaws_detect_memory", compared_inputs(), flaws_detect_binary);
    add("flaws_detect_memory_ascii", {"rock_328k", "rock_1311k"}, flaws_detect_ascii);
    add("reduce_memory", {"rock_328k", "rock_1311k"}, reduce_half);
    add("parallel_reduce_memory", {"rock_328k", "rock_1311k"}, parallel_reduce_half);
    add("orient_memory", {"rock_328k", "rock_1311k"}, orient);
    add("decompose_uniform_memory", {"rock_328k", "rock_1311k"}, decompose_uniform);
    add("decompose_search_memory", {"rock_328k", "rock_1311k"}, decompose_search);
    add_format<kPly>("ply");
    add_format<kThreeMf>("3mf");
    add_format<kPackedStl>("stl_gz");
    add_format<kPackedPly>("ply_gz");
    add_format<kPackedObj>("obj_gz");
    return run(argc, argv);
}
