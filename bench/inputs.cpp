#include "inputs.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <random>
#include <set>
#include <stdexcept>

#include "io/obj.h"
#include "io/stl.h"
#include "mesh/bounds.h"

namespace povmesh::bench {
namespace {

namespace fs = std::filesystem;

constexpr float kRockRadius = 50.0F;

// Triangles that have nothing but the vertex (0, 0, 100) in common, which is the highest.
shapes::SoupVector star(std::size_t count) {
    shapes::SoupVector soup;
    soup.reserve(count * 9);
    const auto rim = [&](double turns) {
        const double angle = 2 * std::numbers::pi * turns / static_cast<double>(count);
        soup.insert(soup.end(), {static_cast<float>(1000 * std::cos(angle)),
                                 static_cast<float>(1000 * std::sin(angle)), 0.0F});
    };
    for (std::size_t i = 0; i < count; ++i) {
        soup.insert(soup.end(), {0.0F, 0.0F, 100.0F});
        rim(static_cast<double>(i));
        rim(static_cast<double>(i) + 0.5);
    }
    return soup;
}

bool remove_suffix(std::string& text, std::string_view suffix) {
    if (!text.ends_with(suffix)) return false;
    text.resize(text.size() - suffix.size());
    return true;
}

shapes::SoupVector soup_of(const TriMesh& mesh) {
    shapes::SoupVector soup;
    soup.reserve(mesh.faces.size() * 9);
    for (const Face& face : mesh.faces) {
        for (std::size_t corner = 0; corner < 3; ++corner) {
            const Vec3f p = mesh.corner_position(face, corner);
            soup.insert(soup.end(), {p.x, p.y, p.z});
        }
    }
    return soup;
}

// The vertices of all faces at some vertices.
std::vector<std::size_t> grown(const TriMesh& mesh, const std::vector<std::size_t>& vertices) {
    std::set<std::size_t> result;
    for (const std::size_t v : vertices) {
        for (const Use& use : mesh.uses(v)) {
            for (const std::int32_t corner : mesh.faces[use.face()].vertex) {
                result.insert(static_cast<std::size_t>(corner));
            }
        }
    }
    return {result.begin(), result.end()};
}

// Takes the faces around random vertices out, up to three rings of them; no two rims touch.
shapes::SoupVector holed(const shapes::SoupVector& rock) {
    constexpr std::array kHolesOfRings = {440, 40, 20};
    TriMesh mesh = shapes::mesh_of(rock);
    ensure_uses(mesh);
    shapes::Random random(4);
    std::vector<bool> is_taken(mesh.vertices.size(), false);
    for (std::size_t rings = kHolesOfRings.size(); rings > 0; --rings) {
        for (int left = kHolesOfRings[rings - 1]; left > 0;) {
            std::vector<std::size_t> inner = {random.below(mesh.vertices.size())};
            for (std::size_t i = 1; i < rings; ++i) inner = grown(mesh, inner);
            const std::vector<std::size_t> whole = grown(mesh, inner);
            if (std::any_of(whole.begin(), whole.end(), [&](auto v) { return is_taken[v]; })) {
                continue;
            }
            for (const std::size_t v : whole) is_taken[v] = true;
            for (const std::size_t v : inner) {
                for (const Use& use : mesh.uses(v)) mesh.faces[use.face()].deleted = 1;
            }
            --left;
        }
    }
    std::erase_if(mesh.faces, [](const Face& face) { return face.deleted != 0; });
    return soup_of(mesh);
}

shapes::SoupVector broken(shapes::SoupVector soup) {
    constexpr double kTwice = 0.005;
    constexpr double kTurned = 0.012;
    const std::size_t count = soup.size();
    shapes::Random random(5);
    for (std::size_t i = 0; i < count; i += 9) {
        const auto corner = [&](std::size_t c) {
            return soup.begin() + static_cast<std::ptrdiff_t>(i + 3 * c);
        };
        if (random.unit() < kTurned) std::swap_ranges(corner(0), corner(1), corner(1));
        if (random.unit() < kTwice) {
            const shapes::SoupVector face(corner(0), corner(3));
            soup.insert(soup.end(), face.begin(), face.end());
        }
    }
    return soup;
}

shapes::SoupVector read_model(const std::string& name) {
    RunLog log;
    RunContext run{{}, log};
    const std::string path = model_file(name);
    if (path.empty()) throw std::runtime_error("no input " + name);
    TriMesh mesh;
    if (path.ends_with(".obj")) {
        const Status status = read_obj(path, mesh);
        if (!status.ok()) throw std::runtime_error(status.text());
        return soup_of(mesh);
    }
    Array<float> coordinates;
    StlInfo info;
    const Status status = read_stl_soup(path, {}, run, coordinates, info);
    if (!status.ok()) throw std::runtime_error(status.text());
    return {coordinates.begin(), coordinates.end()};
}

shapes::SoupVector make_soup(std::string name) {
    if (remove_suffix(name, "_random")) return shapes::shuffled(soup(name), 1);
    for (const std::string size : {"82k", "328k"}) {
        if (name == "holed_" + size) return holed(soup("rock_" + size));
        if (name == "broken_" + size) return broken(soup("holed_" + size));
    }
    if (name.starts_with("rock_")) {
        for (int levels = 4; levels <= 9; ++levels) {
            const double thousands = 0.02 * std::pow(4, levels);
            if (name == "rock_" + std::to_string(std::lround(thousands)) + "k") {
                return shapes::rock(kRockRadius, levels);
            }
        }
    }
    for (const std::size_t thousands : {100U, 200U}) {
        const std::string size = std::to_string(thousands) + "k";
        if (name == "fan_" + size) return shapes::fan(thousands * 1000, 100.0F);
        if (name == "star_" + size) return star(thousands * 1000);
        if (name == "book_" + size) return shapes::book(thousands * 1000);
    }
    return read_model(name);
}

// A folder for this run, in $TMPDIR or the system's folder for temporary files.
const fs::path& scratch_folder() {
    static const fs::path folder = [] {
        fs::path path =
            fs::temp_directory_path() / ("povmesh_bench_" + std::to_string(std::random_device()()));
        fs::create_directories(path);
        return path;
    }();
    return folder;
}

struct Facet {
    std::array<float, 3> normal;
    std::array<float, 9> corners;
    std::uint16_t attribute;
};

Facet facet_of(const float* corners) {
    Facet facet{};
    std::memcpy(facet.corners.data(), corners, sizeof(facet.corners));
    const Vec3f a{corners[0], corners[1], corners[2]};
    const Vec3f b{corners[3], corners[4], corners[5]};
    const Vec3f c{corners[6], corners[7], corners[8]};
    const Vec3f normal = cross(b - a, c - a);
    const float size = length(normal);
    if (size > 0) facet.normal = {normal.x / size, normal.y / size, normal.z / size};
    return facet;
}

void write_binary(std::ofstream& file, const shapes::SoupVector& soup) {
    std::string bytes(80, ' ');
    const auto append = [&](const auto& value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
    };
    append(static_cast<std::uint32_t>(soup.size() / 9));
    for (std::size_t i = 0; i < soup.size(); i += 9) {
        const Facet facet = facet_of(&soup[i]);
        append(facet.normal);
        append(facet.corners);
        append(facet.attribute);
    }
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void write_ascii(std::ofstream& file, const shapes::SoupVector& soup) {
    std::string text = "solid bench\n";
    const auto append_three = [&](const float* values) {
        std::array<char, 32> digits{};
        for (int i = 0; i < 3; ++i) {
            const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), values[i],
                                           std::chars_format::scientific, 6);
            text.append(" ").append(digits.data(), end.ptr);
        }
        text += '\n';
    };
    for (std::size_t i = 0; i < soup.size(); i += 9) {
        const Facet facet = facet_of(&soup[i]);
        text += "  facet normal";
        append_three(facet.normal.data());
        text += "    outer loop\n";
        for (std::size_t corner = 0; corner < 9; corner += 3) {
            text += "      vertex";
            append_three(&facet.corners[corner]);
        }
        text += "    endloop\n  endfacet\n";
    }
    text += "endsolid bench\n";
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
}

std::string stl_file(const std::string& input, const std::string& ending,
                     void (*write)(std::ofstream&, const shapes::SoupVector&)) {
    const fs::path path = scratch_folder() / (input + ending);
    if (!fs::exists(path)) {
        std::ofstream file(path, std::ios::binary);
        write(file, soup(input));
        file.close();
        if (!file) throw std::runtime_error("cannot write " + path.string());
    }
    return path.string();
}

}  // namespace

const shapes::SoupVector& soup(const std::string& input) {
    static std::map<std::string, shapes::SoupVector> made;
    const auto place = made.find(input);
    return place != made.end() ? place->second
                               : made.emplace(input, make_soup(input)).first->second;
}

const TriMesh& mesh(const std::string& input) {
    static std::map<std::string, TriMesh> made;
    const auto place = made.find(input);
    if (place != made.end()) return place->second;
    return made.emplace(input, shapes::mesh_of(soup(input))).first->second;
}

std::size_t triangle_count(const std::string& input) {
    return soup(input).size() / 9;
}

double diagonal(const TriMesh& mesh) {
    return length(to_double(finite_bounds(mesh).extent()));
}

std::string model_file(const std::string& name) {
    const char* folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) return {};
    for (const char* ending : {".stl", ".obj"}) {
        const fs::path path = fs::path(folder) / (name + ending);
        if (fs::exists(path)) return path.string();
    }
    return {};
}

std::vector<std::string> existing_models(std::vector<std::string> names) {
    std::erase_if(names, [](const std::string& name) { return model_file(name).empty(); });
    return names;
}

std::vector<std::string> models() {
    return existing_models({"benchy", "scorpion", "hammer", "ct_skull"});
}

std::vector<std::string> compared_inputs() {
    std::vector<std::string> names = {"rock_328k", "rock_328k_random", "rock_1311k",
                                      "rock_1311k_random"};
    for (const std::string& model : models()) names.push_back(model);
    return names;
}

std::vector<std::string> shorter_inputs() {
    std::vector<std::string> names = compared_inputs();
    std::erase(names, "rock_1311k_random");
    return names;
}

std::vector<std::string> growing_inputs() {
    return {"rock_5k", "rock_20k", "rock_82k", "rock_328k", "rock_1311k", "rock_5243k"};
}

std::vector<std::string> crowded_inputs() {
    return {"fan_100k", "fan_200k", "star_100k", "star_200k", "book_100k", "book_200k"};
}

std::string binary_stl(const std::string& input) {
    return stl_file(input, ".stl", write_binary);
}

std::string ascii_stl(const std::string& input) {
    return stl_file(input, "_ascii.stl", write_ascii);
}

std::string scratch_file(const std::string& name) {
    return (scratch_folder() / name).string();
}

void add(const std::string& operation, const std::vector<std::string>& inputs, Function function) {
    static std::set<std::string> names;
    for (const std::string& input : inputs) {
        std::string name = operation;
        name.append("/").append(input);
        if (!names.insert(name).second) continue;
        const auto run = [function, input](benchmark::State& state) {
            function(state, input);
            state.SetItemsProcessed(state.iterations() *
                                    static_cast<std::int64_t>(triangle_count(input)));
        };
#ifndef __clang_analyzer__  // sees a leak in the library, which keeps the object in a global list
        benchmark::RegisterBenchmark(name.c_str(), run)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
#endif
    }
}

void add_named(const std::string& operation, const std::vector<std::string>& names,
               Function function) {
    for (const std::string& name : names) {
        const std::string title = std::string(operation).append("/").append(name);
        const auto run = [function, name](benchmark::State& state) { function(state, name); };
#ifndef __clang_analyzer__  // as above
        benchmark::RegisterBenchmark(title.c_str(), run)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
#endif
    }
}

void set_floor(benchmark::State& state, double bytes) {
    constexpr double kBytesPerMillisecond = 4e6;
    state.counters["floor_ms"] = bytes / kBytesPerMillisecond;
}

int run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    fs::remove_all(scratch_folder(), ignored);
    return 0;
}

}  // namespace povmesh::bench
