// Every model of a folder through every format and back: the same bits where the format holds them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "helpers/memory_sink.h"
#include "helpers/thorough.h"
#include "io/obj.h"
#include "io/ply.h"
#include "io/stl.h"
#include "io/three_mf.h"

namespace povmesh {
namespace {

Status read_stl_bytes(const ByteSource& source, TriMesh& mesh) {
    RunLog log;
    RunContext run{{}, log};
    StlInfo info;
    return read_stl(source, "a.stl", {.any_case = true, .strict = true}, run, mesh, info);
}

Status read_obj_bytes(const ByteSource& source, TriMesh& mesh) {
    ObjInfo info;
    return read_obj(source, "a.obj", {true}, mesh, info);
}

struct Format {
    const char* name;
    bool has_colours;
    std::function<Status(TriMesh& mesh, ByteSink& sink)> write;
    std::function<Status(const ByteSource& source, TriMesh& mesh)> read;
};

const std::vector<Format>& formats() {
    static const std::vector<Format> all = {
        {"STL", false, [](TriMesh& mesh, ByteSink& sink) { return write_stl(mesh, sink); },
         read_stl_bytes},
        {"OBJ", true, [](TriMesh& mesh, ByteSink& sink) { return write_obj(mesh, sink, {true}); },
         read_obj_bytes},
        {"PLY", true, [](TriMesh& mesh, ByteSink& sink) { return write_ply(mesh, sink); },
         [](const ByteSource& source, TriMesh& mesh) {
             PlyInfo info;
             return read_ply(source, "a.ply", mesh, info);
         }},
        {"3MF", true,
         [](TriMesh& mesh, ByteSink& sink) { return write_three_mf(mesh, {}, {}, "a.3mf", sink); },
         [](const ByteSource& source, TriMesh& mesh) {
             ThreeMfContent content;
             ThreeMfInfo info;
             return read_three_mf(source, "a.3mf", mesh, content, info);
         }},
    };
    return all;
}

// Faces by what a file holds of them; OBJ has them in the order of their materials.
using Record = std::array<std::uint32_t, 12>;
std::vector<Record> records_of(const TriMesh& mesh, bool has_colours) {
    std::vector<Record> records;
    for (const Face& face : mesh.faces) {
        Record& record = records.emplace_back();
        for (std::size_t c = 0; c < 3; ++c) {
            const Vec3f p = mesh.corner_position(face, c);
            const std::uint8_t* const rgb = &face.colour[3 * c];
            record[4 * c] = std::bit_cast<std::uint32_t>(p.x);
            record[4 * c + 1] = std::bit_cast<std::uint32_t>(p.y);
            record[4 * c + 2] = std::bit_cast<std::uint32_t>(p.z);
            if (!has_colours) continue;
            record[4 * c + 3] = std::uint32_t{rgb[0]} << 16 | std::uint32_t{rgb[1]} << 8 | rgb[2];
        }
    }
    std::sort(records.begin(), records.end());
    return records;
}

bool is_finite_mesh(const TriMesh& mesh) {
    return std::all_of(mesh.vertices.begin(), mesh.vertices.end(),
                       [](const Vertex& v) { return is_finite(v.position()); });
}

TEST(RoundTrip, BringsBackTheModelsOfTheFolderFromEveryFormat) {
    const char* const folder = std::getenv("POVMESH_MODELS");
    if (folder == nullptr) GTEST_SKIP() << "POVMESH_MODELS names no folder with models";
    constexpr std::uintmax_t kLargest = test::kIsSanitized ? 300000 : 6000000;
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        const std::string end = entry.path().extension().string();
        if ((end != ".stl" && end != ".obj") || entry.file_size() > kLargest) continue;
        InputFile file;
        ASSERT_TRUE(file.open(entry.path().string()).ok());
        TriMesh model;
        const Status status =
            (end == ".stl" ? read_stl_bytes : read_obj_bytes)(bytes_of(file), model);
        if (!status.ok() || model.faces.empty() || !is_finite_mesh(model)) continue;
        ++count;
        for (const Format& format : formats()) {
            MemorySink sink;
            ASSERT_TRUE(format.write(model, sink).ok()) << entry.path() << format.name;
            TriMesh back;
            ASSERT_TRUE(format.read(bytes_of(sink.bytes), back).ok())
                << entry.path() << format.name;
            EXPECT_TRUE(records_of(back, format.has_colours) ==
                        records_of(model, format.has_colours))
                << entry.path() << format.name;
        }
    }
    EXPECT_GT(count, 30U);
}

}  // namespace
}  // namespace povmesh
