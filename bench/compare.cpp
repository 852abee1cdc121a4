// Makes tables out of the results of the benchmarks: which limits hold, how far above their floors
// operations stay, and how their cost grows.
//
// usage: bench_compare RESULTS.json...
//
// The fastest repetition counts. Of one-thread runs it is the processor time, user and
// system, so that the time of a busy neighbour does not count; of others, and of those with the
// counter "is_elapsed", the elapsed time.
#include <algorithm>
#include <array>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace {

struct Result {
    double milliseconds = 0;
    double items_per_second = 0;
    double floor_ms = 0;
    double bytes_per_triangle = 0;
    double file_bytes = 0;
    double rms = 0;  // distance of a result from its source, in 1e-6 of the diagonal
    double faces = 0;
};

// By operation, then input: benchmarks are named operation/input, and /real_time may follow.
using Results = std::map<std::string, std::map<std::string, Result>>;

// An operation may take `at_most` times as long as another one, or as itself on other inputs: those
// named without `suffix`. `only` is the one input that it is meant for, if there is one. Where
// `rms_at_most` is set, the result may be that many times as far from its source.
struct Limit {
    const char* what;
    const char* operation;
    const char* against;
    const char* suffix;
    double at_most;
    const char* only = "";
    double rms_at_most = 0;
};

constexpr std::array kLimits = {
    Limit{"read binary STL, soup only, to admesh stl_open", "read_soup", "read_soup_admesh", "",
          0.5},
    Limit{"read binary STL, build_f included, to CGAL read_STL", "read_mesh", "read_mesh_cgal", "",
          0.25},
    Limit{"read ASCII STL, to assimp", "read_ascii", "read_ascii_assimp", "", 0.6},
    Limit{"welding, to meshoptimizer", "weld", "weld_meshoptimizer", "", 1.0},
    Limit{"welding, random to file order", "weld", "weld", "_random", 3.0},
    Limit{"build_f with uses, to its welding", "build_and_uses", "weld", "", 2.0},
    Limit{"detect, to admesh's exact check", "detect", "detect_admesh", "", 1.0},
    Limit{"detect, random to file order", "detect", "detect", "_random", 4.0},
    Limit{"write binary STL, to admesh", "write_stl", "write_stl_admesh", "", 0.5},
    Limit{"repair from the soup, to CGAL", "repair", "repair_cgal", "", 0.4},
    Limit{"closing holes, to CGAL triangulate_hole", "close_holes", "close_holes_cgal", "", 1.0},
    Limit{"read OBJ, to assimp", "read_obj", "read_obj_assimp", "", 0.5},
    Limit{"read OBJ, indices resolved, to assimp", "read_exact_obj", "read_exact_obj_assimp", "",
          0.5},
    Limit{"read PLY, to assimp", "read_ply", "read_ply_assimp", "", 0.3},
    Limit{"read 3MF, to assimp", "read_3mf", "read_3mf_assimp", "", 0.5},
    Limit{"read 3MF, to lib3mf", "read_3mf", "read_3mf_lib3mf", "", 0.5},
    Limit{"write 3MF, to lib3mf", "write_3mf", "write_3mf_lib3mf", "", 0.5},
    Limit{"write OBJ for hosts, to admesh", "write_obj", "write_obj_admesh", "", 0.6},
    Limit{"write exact OBJ, to admesh", "write_exact_obj", "write_obj_admesh", "", 0.6},
    Limit{"separating shells, to CGAL split_connected_components", "separate", "separate_cgal", "",
          0.02},
    Limit{"reduce to a half, to CGAL Garland-Heckbert", "reduce_half", "reduce_half_cgal", "", 0.5,
          "", 1.35},
    Limit{"parallel reduction to a half, to CGAL", "parallel_half", "reduce_half_cgal", "", 0.2, "",
          1.1},
    Limit{"parallel reduction to a tenth, to CGAL", "parallel_tenth", "reduce_tenth_cgal", "", 0.2,
          "", 1.1},
    Limit{"parallel reduction, 2 threads to 1", "parallel_half_2_threads", "parallel_half", "",
          0.6},
    Limit{"parallel reduction, with colours to without", "parallel_half_colour", "parallel_half",
          "", 1.7},
    Limit{"a level of subdivision, to CGAL Loop", "subdivide_uniform", "subdivide_uniform_cgal", "",
          0.4},
    Limit{"a level of subdivision, to OpenMesh LoopT", "subdivide_uniform",
          "subdivide_uniform_openmesh", "", 0.4},
    Limit{"remeshing, to CGAL isotropic_remeshing", "remesh", "remesh_cgal", "", 0.7, "", 1.0},
    Limit{"cutting in two, to CGAL clip", "cut", "clip_cgal", "", 0.1},
    Limit{"inserting voxels in key order, to std::map", "voxel_build", "voxel_build_map", "", 0.25},
    Limit{"walking voxels, to std::map", "voxel_walk", "voxel_walk_map", "", 0.2},
    Limit{"faces of voxels, to std::map", "voxel_faces", "voxel_faces_map", "", 0.01},
    Limit{"eroding a layer of voxels, to std::map", "voxel_erode", "voxel_erode_map", "", 0.1},
    Limit{"filling rows of voxels, to std::map", "voxel_fill", "voxel_fill_map", "", 0.05},
    Limit{"nearest of 100 seeds, to nanoflann", "nearest_seed", "nearest_seed_nanoflann", "",
          1.0 / 3, "100"},
    Limit{"nearest of 1,000 seeds, to nanoflann", "nearest_seed", "nearest_seed_nanoflann", "",
          1.0 / 1.5, "1000"},
    Limit{"nearest of 10,000 seeds, to nanoflann", "nearest_seed", "nearest_seed_nanoflann", "",
          1.0, "10000"},
    Limit{"voxelise and fill, to OpenVDB meshToVolume", "voxelise_fill", "voxelise_openvdb", "",
          1.0 / 30},
    Limit{"voxelise and fill, to OpenVDB in a band of 3", "voxelise_fill", "voxelise_openvdb_band",
          "", 1.0 / 20},
    Limit{"grouping shells, to CGAL intersecting_meshes", "group", "group_cgal", "", 0.5,
          "meeting_1000_large"},
};

struct MemoryLimit {
    const char* operation;
    double bytes_per_triangle;
};
constexpr std::array kMemoryLimits = {
    MemoryLimit{"flaws_detect_memory", 160}, MemoryLimit{"flaws_detect_memory_ascii", 160},
    MemoryLimit{"reduce_memory", 260},       MemoryLimit{"parallel_reduce_memory", 120},
    MemoryLimit{"read_ply_memory", 132},  // three times the mesh, which has 44
    MemoryLimit{"write_ply_memory", 88},  // it and twice as much
    MemoryLimit{"read_3mf_memory", 132},     MemoryLimit{"write_3mf_memory", 88},
    MemoryLimit{"read_stl_gz_memory", 132},  MemoryLimit{"write_stl_gz_memory", 88},
    MemoryLimit{"read_ply_gz_memory", 132},  MemoryLimit{"write_ply_gz_memory", 88},
    MemoryLimit{"read_obj_gz_memory", 132},  MemoryLimit{"write_obj_gz_memory", 88},
};

// A reduction as preprocessing hosts get it, of 1.3 million triangles.
constexpr double kAutomaticMilliseconds = 2500;

// A picture of 1024 x 1024 pixels of 1.3 million triangles.
constexpr double kPictureMilliseconds = 300;

using Inputs = std::array<const char*, 6>;
constexpr Inputs kGrowing = {"rock_5k",   "rock_20k",   "rock_82k",
                             "rock_328k", "rock_1311k", "rock_5243k"};
constexpr Inputs kCrowded = {"fan_100k",  "fan_200k",  "star_100k",
                             "star_200k", "book_100k", "book_200k"};

void read_results(const char* path, Results& results) {
    std::ifstream file(path);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    // The spread of a counter that is 0 is written so, which is no JSON.
    const std::string_view not_a_number = "NaN";
    for (std::size_t at = 0; (at = text.find(not_a_number, at)) != std::string::npos;) {
        text.replace(at, not_a_number.size(), "0");
    }
    const nlohmann::json document = nlohmann::json::parse(text);
    const bool one_thread = document.at("context").value("threads", "") == "1";
    for (const nlohmann::json& entry : document.at("benchmarks")) {
        if (entry.value("run_type", "") != "iteration") continue;
        const std::string name = entry.at("run_name");
        const std::size_t slash = name.find('/');
        if (slash == std::string::npos) continue;
        std::string input = name.substr(slash + 1);
        const std::string clock = "/real_time";
        if (input.ends_with(clock)) input.resize(input.size() - clock.size());
        Result& result = results[name.substr(0, slash)][input];
        result.bytes_per_triangle =
            std::max(result.bytes_per_triangle, entry.value("bytes_per_triangle", 0.0));
        const bool is_processor_time = one_thread && entry.value("is_elapsed", 0.0) == 0;
        const double milliseconds = entry.at(is_processor_time ? "cpu_time" : "real_time");
        if (result.milliseconds > 0 && result.milliseconds <= milliseconds) continue;
        result.milliseconds = milliseconds;
        // The library divides by the elapsed time.
        const double elapsed = entry.at("real_time");
        result.items_per_second = entry.value("items_per_second", 0.0) * elapsed / milliseconds;
        result.floor_ms = entry.value("floor_ms", 0.0);
        result.file_bytes = entry.value("bytes", 0.0);
        result.rms = entry.value("rms", 0.0);
        result.faces = entry.value("faces", 0.0);
    }
}

const Result* find(const Results& results, const std::string& operation, const std::string& input) {
    const auto inputs = results.find(operation);
    if (inputs == results.end()) return nullptr;
    const auto result = inputs->second.find(input);
    return result == inputs->second.end() ? nullptr : &result->second;
}

struct Tally {
    int held = 0;
    int checked = 0;
    const char* count(bool holds) {
        ++checked;
        held += holds ? 1 : 0;
        return holds ? "yes" : "no";
    }
};

void print_limits(const Results& results, Tally& tally) {
    std::puts("| operation | input | ms | against, ms | ratio | at most | holds |");
    std::puts("|---|---|--:|--:|--:|--:|---|");
    for (const Limit& limit : kLimits) {
        const auto inputs = results.find(limit.operation);
        if (inputs == results.end()) continue;
        for (const auto& [input, ours] : inputs->second) {
            const std::string suffix = limit.suffix;
            const std::string only = limit.only;
            if (!input.ends_with(suffix) || (!only.empty() && input != only)) continue;
            const Result* other =
                find(results, limit.against, input.substr(0, input.size() - suffix.size()));
            if (other == nullptr) continue;
            const double ratio = ours.milliseconds / other->milliseconds;
            std::printf("| %s | %s | %.2f | %.2f | %.2f | %.2f | %s |\n", limit.what, input.c_str(),
                        ours.milliseconds, other->milliseconds, ratio, limit.at_most,
                        tally.count(ratio <= limit.at_most));
        }
    }
}

// How far results are from their sources, beside the limits on them.
void print_quality(const Results& results, Tally& tally) {
    bool is_first = true;
    for (const Limit& limit : kLimits) {
        const auto inputs = results.find(limit.operation);
        if (limit.rms_at_most == 0 || inputs == results.end()) continue;
        for (const auto& [input, ours] : inputs->second) {
            const Result* other = find(results, limit.against, input);
            if (other == nullptr) continue;
            if (is_first) {
                std::puts(
                    "\n| quality | input | faces | RMS | against | ratio | at most | holds |");
                std::puts("|---|---|--:|--:|--:|--:|--:|---|");
            }
            is_first = false;
            const double ratio = ours.rms / other->rms;
            std::printf("| %s | %s | %.0f | %.1f | %.1f | %.2f | %.2f | %s |\n", limit.what,
                        input.c_str(), ours.faces, ours.rms, other->rms, ratio, limit.rms_at_most,
                        tally.count(ratio <= limit.rms_at_most));
        }
    }
}

// All that reductions leave, the peers' included.
void print_reductions(const Results& results, Tally& tally) {
    bool is_first = true;
    for (const auto& [operation, inputs] : results) {
        for (const auto& [input, result] : inputs) {
            if (result.faces == 0) continue;
            if (is_first) std::puts("\n| reduction | input | ms | faces | RMS |");
            if (is_first) std::puts("|---|---|--:|--:|--:|");
            is_first = false;
            std::printf("| %s | %s | %.0f | %.0f | %.1f |\n", operation.c_str(), input.c_str(),
                        result.milliseconds, result.faces, result.rms);
        }
    }
    const Result* automatic = find(results, "reduce_auto", "rock_1311k");
    if (automatic == nullptr) return;
    std::printf("\nAutomatic reduction of 1.3 million triangles: %.0f ms, at most %.0f: %s\n",
                automatic->milliseconds, kAutomaticMilliseconds,
                tally.count(automatic->milliseconds <= kAutomaticMilliseconds));
}

// Text into a mesh, by the byte, beside ASCII STL.
void print_text(const Results& results, Tally& tally) {
    bool is_first = true;
    for (const char* operation : {"read_obj", "read_exact_obj"}) {
        const auto inputs = results.find(operation);
        if (inputs == results.end()) continue;
        for (const auto& [input, obj] : inputs->second) {
            const Result* stl = find(results, "read_ascii_mesh", input);
            if (stl == nullptr) continue;
            if (is_first)
                std::puts("\n| reading | input | ns a byte | ASCII STL | ratio | holds |");
            if (is_first) std::puts("|---|---|--:|--:|--:|---|");
            is_first = false;
            const double ours = 1e6 * obj.milliseconds / obj.file_bytes;
            const double yardstick = 1e6 * stl->milliseconds / stl->file_bytes;
            std::printf("| %s | %s | %.2f | %.2f | %.2f | %s |\n", operation, input.c_str(), ours,
                        yardstick, ours / yardstick, tally.count(ours <= yardstick));
        }
    }
}

void print_memory(const Results& results, Tally& tally) {
    bool is_first = true;
    for (const MemoryLimit& limit : kMemoryLimits) {
        const auto inputs = results.find(limit.operation);
        if (inputs == results.end()) continue;
        if (is_first) std::puts("\n| peak memory | input | bytes a triangle | at most | holds |");
        if (is_first) std::puts("|---|---|--:|--:|---|");
        is_first = false;
        for (const auto& [input, result] : inputs->second) {
            std::printf("| %s | %s | %.0f | %.0f | %s |\n", limit.operation, input.c_str(),
                        result.bytes_per_triangle, limit.bytes_per_triangle,
                        tally.count(result.bytes_per_triangle <= limit.bytes_per_triangle));
        }
    }
}

void print_picture(const Results& results, Tally& tally) {
    const Result* picture = find(results, "render_rock", "level:8/side:1024");
    if (picture == nullptr) return;
    std::printf("\nA picture of 1.3 million triangles, 1024 x 1024: %.0f ms, at most %.0f: %s\n",
                picture->milliseconds, kPictureMilliseconds,
                tally.count(picture->milliseconds <= kPictureMilliseconds));
}

void print_floors(const Results& results) {
    std::puts("\n| operation | input | ms | floor, ms | ratio |");
    std::puts("|---|---|--:|--:|--:|");
    for (const auto& [operation, inputs] : results) {
        for (const auto& [input, result] : inputs) {
            if (!(result.floor_ms > 0)) continue;
            const bool is_large = input.starts_with("rock_328k") ||
                                  input.starts_with("rock_1311k") || input == "broken_328k" ||
                                  input == "apart_1000_large";
            if (!is_large) continue;
            std::printf("| %s | %s | %.2f | %.2f | %.2f |\n", operation.c_str(), input.c_str(),
                        result.milliseconds, result.floor_ms,
                        result.milliseconds / result.floor_ms);
        }
    }
}

// Nanoseconds per triangle of every operation that was run on all of the inputs.
void print_growth(const Results& results, const Inputs& names) {
    std::printf("\n| ns a triangle |");
    for (const char* name : names) std::printf(" %s |", name);
    std::printf("\n|---|");
    for (std::size_t i = 0; i < names.size(); ++i) std::printf("--:|");
    std::puts("");
    for (const auto& [operation, inputs] : results) {
        const auto is_there = [&found = inputs](const char* name) { return found.contains(name); };
        if (!std::all_of(names.begin(), names.end(), is_there)) continue;
        std::printf("| %s |", operation.c_str());
        for (const char* name : names) {
            std::printf(" %.1f |", 1e9 / inputs.at(name).items_per_second);
        }
        std::puts("");
    }
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc < 2) {
        std::cerr << "usage: bench_compare RESULTS.json...\n";
        return 2;
    }
    Results results;
    for (int i = 1; i < argc; ++i) read_results(argv[i], results);
    Tally tally;
    print_limits(results, tally);
    print_quality(results, tally);
    print_reductions(results, tally);
    print_text(results, tally);
    print_memory(results, tally);
    print_picture(results, tally);
    print_floors(results);
    print_growth(results, kGrowing);
    print_growth(results, kCrowded);
    std::printf("\n%d of %d limits hold\n", tally.held, tally.checked);
    return 0;
} catch (const std::exception& error) {
    std::cerr << "bench_compare: " << error.what() << '\n';
    return 1;
}
