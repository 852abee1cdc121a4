// The second interface as a program uses it: statuses, the tool's bits, any number of jobs.
#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <thread>

#include "context/frame.h"
#include "helpers/memory_sink.h"
#include "helpers/thorough.h"
#include "io/three_mf.h"
#include "job/phases.h"
#include "operations.h"

extern "C" int count_padded_structs(void);
extern "C" povmesh_status repair_in_c99(povmesh_context*, const povmesh_mesh*, povmesh_mesh**);
extern "C" double keep_in_cpp98(void);

namespace povmesh::test {
namespace {

class Context : public testing::Test {
protected:
    ~Context() override {
        povmesh_mesh_release(box_);
        povmesh_context_destroy(context_);
    }
    std::string message() const { return povmesh_context_message(context_); }

    povmesh_context* context_ = make_context(2);
    povmesh_mesh* box_ = make_mesh(context_, shapes::box({0, 0, 0}, {20, 10, 5}));
};

// clang cannot clear the holes between members.
#if defined(__GNUC__) && !defined(__clang__)
TEST(Reports, HoldNothingOfTheStack) {
    povmesh_distance_report full;
    std::memset(static_cast<void*>(&full), 0xFF, sizeof full);
    povmesh_distance_report report{};
    report.size = sizeof report;
    context::write_report(&report, full);
    std::uint32_t hole = 1;
    std::memcpy(&hole, reinterpret_cast<const char*>(&report) + sizeof report.size, sizeof hole);
    EXPECT_EQ(hole, 0U);
}
#endif

TEST_F(Context, CavitiesBelongToTheObjectsOfA3mfFileThatTheyLieIn) {
    shapes::SoupVector pair = shapes::box({0, 0, 0}, {20, 20, 20});
    shapes::append(pair, shapes::box({40, 0, 0}, {60, 20, 20}));
    TriMesh mesh = shapes::mesh_of(pair);
    for (std::size_t f = 0; f < mesh.faces.size(); ++f) mesh.faces[f].label = f < 12 ? 0 : 1;
    ThreeMfContent content;
    content.bodies = {"left", "right"};
    content.labels = {{0, -1}, {1, -1}};
    MemorySink sink;
    ASSERT_TRUE(write_three_mf(mesh, content, {}, "pair.3mf", sink).ok());
    povmesh_mesh* read = nullptr;
    ASSERT_EQ(povmesh_read_memory(context_, sink.bytes.data(), sink.bytes.size(), nullptr, &read,
                                  nullptr),
              POVMESH_OK);
    povmesh_hollow_options options = povmesh_hollow_defaults();
    options.thickness = 2;
    povmesh_mesh* hollowed = nullptr;
    ASSERT_EQ(povmesh_hollow(context_, read, &options, &hollowed, nullptr), POVMESH_OK);
    EXPECT_TRUE(keeps_bodies(hollowed->mesh, content));
    for (const Face& face : hollowed->mesh.faces) {
        const float x = hollowed->mesh.corner_position(face, 0).x;
        EXPECT_EQ(face.label, x < 30 ? 0 : 1);
    }
    povmesh_mesh_release(read);
    povmesh_mesh_release(hollowed);
}

TEST_F(Context, StructsCanGrowAndOldCompilersTakeTheHeader) {
    EXPECT_EQ(count_padded_structs(), 0);
    EXPECT_TRUE(std::isnan(keep_in_cpp98()));
    povmesh_mesh* repaired = nullptr;
    EXPECT_EQ(repair_in_c99(context_, box_, &repaired), POVMESH_OK);
    povmesh_mesh_release(repaired);

    // An older caller's struct is shorter, a newer one's longer.
    povmesh_reduce_options shorter = povmesh_reduce_defaults();
    shorter.size = offsetof(povmesh_reduce_options, faces);
    shorter.keep = 0.5;
    shorter.faces = 77;  // beyond its size
    povmesh_reduce_report report{};
    report.size = offsetof(povmesh_reduce_report, faces_after);
    report.faces_after = 99;
    povmesh_mesh* reduced = nullptr;
    ASSERT_EQ(povmesh_reduce(context_, box_, &shorter, &reduced, &report), POVMESH_OK);
    povmesh_mesh_release(reduced);
    EXPECT_EQ(report.faces_before, 12U);
    EXPECT_EQ(report.faces_after, 99U);
    struct {
        povmesh_repair_options known;
        std::uint64_t field;
    } longer{povmesh_repair_defaults(), 0};
    longer.known.size = sizeof longer;
    EXPECT_EQ(povmesh_repair(context_, box_, &longer.known, &repaired, nullptr), POVMESH_OK);
    povmesh_mesh_release(repaired);
    longer.field = 1;
    EXPECT_EQ(povmesh_repair(context_, box_, &longer.known, &repaired, nullptr),
              POVMESH_UNSUPPORTED);
}

TEST_F(Context, BadInputNamesItsFieldAndWritesNothing) {
    const auto expect = [&](povmesh_status status, povmesh_status wanted, const char* word) {
        EXPECT_EQ(status, wanted) << word << ": " << message();
        EXPECT_NE(message().find(word), std::string::npos) << message();
    };
    povmesh_mesh* out = nullptr;
    expect(povmesh_repair(context_, nullptr, nullptr, &out, nullptr), POVMESH_INVALID_ARGUMENT,
           "mesh");
    expect(povmesh_repair(context_, box_, nullptr, nullptr, nullptr), POVMESH_INVALID_ARGUMENT,
           "repaired");
    povmesh_repair_report no_size{};
    expect(povmesh_repair(context_, box_, nullptr, &out, &no_size), POVMESH_INVALID_ARGUMENT,
           "size");
    expect(povmesh_reduce(context_, box_, nullptr, &out, nullptr), POVMESH_INVALID_ARGUMENT,
           "keep");
    expect(povmesh_voxelize(context_, box_, nullptr, &out, nullptr), POVMESH_INVALID_ARGUMENT,
           "edge");
    povmesh_subdivide_options levels = povmesh_subdivide_defaults();
    levels.levels = 6;
    expect(povmesh_subdivide(context_, box_, &levels, &out), POVMESH_INVALID_ARGUMENT, "levels");
    povmesh_cut_options cut = povmesh_cut_defaults();
    cut.normal[2] = 0;
    povmesh_result* pieces = nullptr;
    expect(povmesh_cut(context_, box_, &cut, &pieces, nullptr), POVMESH_INVALID_ARGUMENT, "normal");
    cut = povmesh_cut_defaults();
    cut.point[0] = cut.point[1] = cut.point[2] = 1e6;
    expect(povmesh_cut(context_, box_, &cut, &pieces, nullptr), POVMESH_NOTHING, "misses");
    const float one_length[] = {2};
    povmesh_remesh_options remesh = povmesh_remesh_defaults();
    remesh.lengths = {one_length, 1, 0, POVMESH_F32, 1};
    expect(povmesh_remesh(context_, box_, &remesh, &out, nullptr), POVMESH_INVALID_ARGUMENT,
           "lengths");
    povmesh_lampshade_options shade = povmesh_lampshade_defaults();
    shade.thickness = 1;
    shade.top = POVMESH_TOP_LEVEL;
    expect(povmesh_lampshade(context_, box_, &shade, &pieces, nullptr), POVMESH_INVALID_ARGUMENT,
           "top_level");
    shade.top_level = 99;
    expect(povmesh_lampshade(context_, box_, &shade, &pieces, nullptr), POVMESH_NOTHING,
           "within the model");
    povmesh_decompose_options parts = povmesh_decompose_defaults();
    expect(povmesh_decompose(context_, box_, &parts, &pieces, nullptr), POVMESH_INVALID_ARGUMENT,
           "extent");
    povmesh_balance_options balance = povmesh_balance_defaults();
    balance.thickness = 1;
    balance.drain_count = 1;
    expect(povmesh_balance(context_, box_, &balance, &pieces, nullptr), POVMESH_INVALID_ARGUMENT,
           "drains");
    povmesh_orient_options orient = povmesh_orient_defaults();
    orient.rows = 65;
    expect(povmesh_orient(context_, box_, &orient, &pieces), POVMESH_INVALID_ARGUMENT, "rows");
    povmesh_support_options support = povmesh_support_defaults();
    const float nan_column[6] = {std::numeric_limits<float>::quiet_NaN()};
    support.columns = {nan_column, 1, 0, POVMESH_F32, 6};
    expect(povmesh_support(context_, box_, &support, &pieces, nullptr), POVMESH_INVALID_ARGUMENT,
           "columns");
    povmesh_render_options render = povmesh_render_defaults();
    const povmesh_mesh* const both[] = {box_, nullptr};
    void* png = nullptr;
    std::size_t bytes = 0;
    expect(povmesh_render(context_, both, 2, &render, &png, &bytes), POVMESH_INVALID_ARGUMENT,
           "meshes");
    render.compare = box_;
    render.explode = 1;
    expect(povmesh_render(context_, both, 1, &render, &png, &bytes), POVMESH_INVALID_ARGUMENT,
           "explode");
    EXPECT_EQ(png, nullptr);
    expect(povmesh_read_file(context_, "/nowhere/x.stl", nullptr, &out, nullptr),
           POVMESH_CANNOT_READ, "/nowhere/x.stl");
    expect(povmesh_read_memory(context_, "solid\n", 6, nullptr, &out, nullptr), POVMESH_BAD_FILE,
           "memory");
    expect(povmesh_write_file(context_, box_, "/nowhere/x.stl", nullptr, nullptr),
           POVMESH_CANNOT_WRITE, "/nowhere");
    expect(povmesh_write_file(context_, box_, "x.dwg", nullptr, nullptr), POVMESH_UNSUPPORTED,
           "x.dwg");
    EXPECT_EQ(povmesh_repair(nullptr, box_, nullptr, &out, nullptr), POVMESH_INVALID_ARGUMENT);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(pieces, nullptr);
    const std::string name = "/nowhere/\n\x1b[2J" + std::string(3000, 'x') + ".stl";
    EXPECT_EQ(povmesh_read_file(context_, name.c_str(), nullptr, &out, nullptr),
              POVMESH_CANNOT_READ);
    EXPECT_LE(message().size(), 1000U);
    EXPECT_EQ(message().find('\n'), std::string::npos);
    EXPECT_EQ(message().find('\x1b'), std::string::npos);
}

TEST_F(Context, ArraysAreTakenOverWhateverTheirLayout) {
    // Two triangles of a square and one that has two equal vertices; rows with gaps, unaligned.
    struct [[gnu::packed]] Row {
        char gap;
        double x, y, z;
    };
    const Row rows[] = {{0, 0, 0, 0}, {0, 1, 0, 0}, {0, 1, 1, 0}, {0, 0, 1, 0}};
    const std::uint64_t faces[] = {0, 1, 2, 1, 1, 2, 0, 2, 3};
    const std::uint8_t colours[] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 8, 7};
    const std::int32_t labels[] = {4, 5, -1};
    const float textures[18] = {0, 0, 1, 0, 1, 1};
    povmesh_mesh_data data{};
    data.size = sizeof data;
    data.positions = {&rows[0].x, 4, sizeof(Row), POVMESH_F64, 3};
    data.faces = {faces, 3, 0, POVMESH_U64, 3};
    data.colours = {colours, 4, 0, POVMESH_U8, 3};
    data.labels = {labels, 3, 0, POVMESH_I32, 1};
    data.texture_coordinates = {textures, 3, 0, POVMESH_F32, 6};
    povmesh_mesh* mesh = nullptr;
    ASSERT_EQ(povmesh_mesh_create(context_, &data, &mesh), POVMESH_OK) << message();
    ASSERT_EQ(mesh->mesh.faces.size(), 2U);
    EXPECT_TRUE(is_consistent(mesh->mesh));
    EXPECT_EQ(mesh->mesh.faces[0].colour,
              (std::array<std::uint8_t, 9>{255, 0, 0, 0, 255, 0, 0, 0, 255}));
    EXPECT_EQ(mesh->mesh.faces[1].colour[8], 7);
    EXPECT_EQ(mesh->mesh.faces[0].label, 4);
    povmesh_view view{};
    ASSERT_EQ(povmesh_mesh_view(mesh, POVMESH_TEXTURE_COORDINATES, &view), POVMESH_OK);
    EXPECT_EQ(view.count, 3U);  // those of the face with a label
    povmesh_measures measures{};
    measures.size = sizeof measures;
    ASSERT_EQ(povmesh_measure(context_, mesh, &measures), POVMESH_OK);
    EXPECT_EQ(measures.area, 1);
    EXPECT_EQ(measures.has_labels + measures.has_colours + measures.has_texture_coordinates, 3);
    povmesh_mesh_release(mesh);

    // With one thing wrong at a time.
    const auto refuses = [&](const auto& spoil, const char* word) {
        povmesh_mesh_data wrong = data;
        spoil(wrong);
        mesh = nullptr;
        EXPECT_EQ(povmesh_mesh_create(context_, &wrong, &mesh), POVMESH_INVALID_ARGUMENT) << word;
        EXPECT_NE(message().find(word), std::string::npos) << message();
        EXPECT_EQ(mesh, nullptr);
    };
    refuses([](povmesh_mesh_data& d) { d.colours.data = nullptr; }, "colours");
    const std::int32_t beyond[] = {0, 1, 2, 0, 1, 4, 0, 1, -1};
    refuses([&](povmesh_mesh_data& d) { d.faces = {beyond, 3, 0, POVMESH_I32, 3}; }, "faces");
    refuses([](povmesh_mesh_data& d) { d.positions.type = POVMESH_I32; }, "positions");
    refuses([](povmesh_mesh_data& d) { d.faces.data = nullptr; }, "faces");
    refuses([](povmesh_mesh_data& d) { d.faces.components = 4; }, "faces");
    refuses([](povmesh_mesh_data& d) { d.labels.count = 2; }, "labels");
    refuses([](povmesh_mesh_data& d) { d.positions.stride = UINT64_MAX / 2; }, "positions");
    refuses([](povmesh_mesh_data& d) { d.weld = 2; }, "weld");
    const double too_bright[] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1.5};
    refuses(
        [&](povmesh_mesh_data& d) {
            d.colours = {too_bright, 4, 0, POVMESH_F64, 3};
        },
        "colours");
}

#ifdef POVMESH_TOOL_BUILT
std::string content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// A folder for a model and for what the tool and the library make of it.
class BytesOfTheTool : public Context {
protected:
    BytesOfTheTool() { std::filesystem::create_directory(folder_); }
    ~BytesOfTheTool() override {
        povmesh_mesh_release(mesh_);
        std::filesystem::remove_all(folder_);
    }

    // The model as it comes from a file.
    void use(const shapes::SoupVector& soup) {
        povmesh_mesh* made = make_mesh(context_, soup);
        ASSERT_EQ(povmesh_write_file(context_, made, in_.c_str(), nullptr, nullptr), POVMESH_OK);
        povmesh_mesh_release(made);
        povmesh_mesh_release(mesh_);
        mesh_ = nullptr;
        ASSERT_EQ(povmesh_read_file(context_, in_.c_str(), nullptr, &mesh_, nullptr), POVMESH_OK);
    }
    // What the tool writes to `target`, which it gets as --output when it is a file.
    std::string tool(const std::string& arguments, const std::string& target) const {
        (void)!std::system(
            (POVMESH_TOOL_BUILT " " + arguments + " " + in_ + " >/dev/null 2>&1").c_str());
        return content(target);
    }
    template <typename Call>
    void compare(const std::string& arguments, const Call& call) {
        povmesh_mesh* made = nullptr;
        ASSERT_EQ(call(&made), POVMESH_OK) << arguments << ": " << message();
        compare_mesh(arguments + " -o " + out_, made, out_);
        povmesh_mesh_release(made);
    }
    // Of a result the first mesh.
    template <typename Call>
    void compare_first(const std::string& arguments, const Call& call) {
        povmesh_result* made = nullptr;
        ASSERT_EQ(call(&made), POVMESH_OK) << arguments << ": " << message();
        compare_mesh(arguments + " -o " + out_, povmesh_result_mesh(made, 0), out_);
        povmesh_result_release(made);
    }
    void compare_mesh(const std::string& arguments, const povmesh_mesh* made,
                      const std::string& target) {
        ASSERT_NE(made, nullptr) << arguments;
        ASSERT_EQ(povmesh_write_file(context_, made, out_.c_str(), nullptr, nullptr), POVMESH_OK);
        const std::string mine = content(out_);
        std::filesystem::remove(out_);
        EXPECT_TRUE(tool(arguments, target) == mine) << arguments;
        EXPECT_GT(mine.size(), 1000U);
    }

    const std::filesystem::path folder_ =
        std::filesystem::temp_directory_path() / ("povmesh-context-" + std::to_string(getpid()));
    const std::string in_ = (folder_ / "in.stl").string();
    const std::string out_ = (folder_ / "out.obj").string();
    povmesh_mesh* mesh_ = nullptr;
};

TEST_F(BytesOfTheTool, OfAFlawedModel) {
    use(flawed_model(3));
    povmesh_reduce_options reduce = povmesh_reduce_defaults();
    reduce.keep = 0.4;
    povmesh_subdivide_options smooth = povmesh_subdivide_defaults();
    smooth.mode = POVMESH_SUBDIVIDE_SMOOTH;
    povmesh_voxelize_options cubes = povmesh_voxelize_defaults();
    cubes.edge = 0.7;
    povmesh_remesh_options even = povmesh_remesh_defaults();
    even.edge_length = 4;
    povmesh_support_options support = povmesh_support_defaults();
    support.with_model = 1;
    povmesh_render_options picture = povmesh_render_defaults();
    picture.flaws = 1;
    picture.supports = mesh_;
    compare("repair",
            [&](povmesh_mesh** m) { return povmesh_repair(context_, mesh_, nullptr, m, nullptr); });
    compare("reduce --keep 0.4",
            [&](povmesh_mesh** m) { return povmesh_reduce(context_, mesh_, &reduce, m, nullptr); });
    compare("subdivide --mode smooth",
            [&](povmesh_mesh** m) { return povmesh_subdivide(context_, mesh_, &smooth, m); });
    compare("voxelize --size 0.7", [&](povmesh_mesh** m) {
        return povmesh_voxelize(context_, mesh_, &cubes, m, nullptr);
    });
    compare("remesh --edge 4",
            [&](povmesh_mesh** m) { return povmesh_remesh(context_, mesh_, &even, m, nullptr); });
    compare_first("support --with-model", [&](povmesh_result** r) {
        return povmesh_support(context_, mesh_, &support, r, nullptr);
    });
    void* png = nullptr;
    std::size_t bytes = 0;
    ASSERT_EQ(povmesh_render(context_, &mesh_, 1, &picture, &png, &bytes), POVMESH_OK);
    const std::string target = (folder_ / "out.png").string();
    EXPECT_TRUE(tool("render --flaws --supports " + in_ + " -o " + target, target) ==
                std::string(static_cast<const char*>(png), bytes));
    povmesh_free(png);
}

// The face at the slit would bend by its width, into a body that lies closer beneath it; so the
// slit gets a face of its own. The tool counts crossings before and after, the library looks only
// where something is new.
TEST_F(BytesOfTheTool, OfASlitThatWouldBendAFaceIntoAnotherBody) {
    const Vec3f a{0, 0, 0}, b{100, 0, 0}, c{50, 100, 0}, d{50, 30, -100}, on_edge{50, 0, -0.006F};
    const Vec3f p{49, 4, -0.001F}, q{51, 4, -0.001F}, r{50, 6, -0.001F}, s{50, 5, -3};
    shapes::SoupVector soup = shapes::sphere(12, 3);
    shapes::move(soup, {500, 0, 0});
    for (const auto& face : std::vector<std::array<Vec3f, 3>>{{a, b, c},
                                                              {a, d, on_edge},
                                                              {on_edge, d, b},
                                                              {b, d, c},
                                                              {c, d, a},
                                                              {p, q, r},
                                                              {p, s, q},
                                                              {q, s, r},
                                                              {r, s, p}}) {
        for (const Vec3f& corner : face) soup.insert(soup.end(), {corner.x, corner.y, corner.z});
    }
    for (const bool is_alone : {false, true}) {
        if (is_alone) soup.resize(soup.size() - std::size_t{4} * 9);
        use(soup);
        povmesh_mesh* made = nullptr;
        ASSERT_EQ(povmesh_repair(context_, mesh_, nullptr, &made, nullptr), POVMESH_OK);
        povmesh_check_report found{};
        found.size = sizeof found;
        ASSERT_EQ(povmesh_check(context_, made, nullptr, nullptr, &found), POVMESH_OK);
        EXPECT_EQ(found.degenerate_faces, is_alone ? 0U : 1U);
        EXPECT_EQ(found.self_intersections, 0U);
        compare_mesh("repair -o " + out_, made, out_);
        povmesh_mesh_release(made);
    }
}

TEST_F(BytesOfTheTool, OfASoundModel) {
    use(shapes::sphere(12, 3));
    const povmesh_drain drain = {{0, 0, -12}, 2};
    povmesh_hollow_options hollow = povmesh_hollow_defaults();
    hollow.thickness = 4;
    hollow.drains = &drain;
    hollow.drain_count = 1;
    povmesh_offset_options offset = povmesh_offset_defaults();
    offset.distance = -1;
    offset.cell = 1.5;
    povmesh_wrap_options wrap = povmesh_wrap_defaults();
    wrap.tolerance = 1;
    wrap.cell = 2;
    povmesh_thickness_options thick = povmesh_thickness_defaults();
    thick.wall = 4;
    povmesh_orient_options orient = povmesh_orient_defaults();
    orient.choose = 3;
    povmesh_lampshade_options shade = povmesh_lampshade_defaults();
    shade.thickness = 2;
    povmesh_decompose_options parts = povmesh_decompose_defaults();
    for (double& x : parts.extent) x = 15;
    parts.pegs = 1;
    compare("hollow --thickness 4 --drain 0,0,-12,2",
            [&](povmesh_mesh** m) { return povmesh_hollow(context_, mesh_, &hollow, m, nullptr); });
    compare("offset --distance -1 --cell 1.5",
            [&](povmesh_mesh** m) { return povmesh_offset(context_, mesh_, &offset, m, nullptr); });
    compare("wrap --tolerance 1 --cell 2",
            [&](povmesh_mesh** m) { return povmesh_wrap(context_, mesh_, &wrap, m, nullptr); });
    compare_first("thickness --wall 4", [&](povmesh_result** r) {
        return povmesh_thickness(context_, mesh_, &thick, r, nullptr);
    });
    compare_first("orient --choose 3",
                  [&](povmesh_result** r) { return povmesh_orient(context_, mesh_, &orient, r); });
    compare_first("lampshade --thickness 2", [&](povmesh_result** r) {
        return povmesh_lampshade(context_, mesh_, &shade, r, nullptr);
    });
    povmesh_result* made = nullptr;
    ASSERT_EQ(povmesh_decompose(context_, mesh_, &parts, &made, nullptr), POVMESH_OK);
    const std::string last = std::to_string(povmesh_result_mesh_count(made));
    compare_mesh("decompose --size 15 --pegs 1 --format obj -o " + folder_.string(),
                 povmesh_result_mesh(made, povmesh_result_mesh_count(made) - 1),
                 (folder_ / ("in_" + std::string(3 - last.size(), '0') + last + ".obj")).string());
    povmesh_result_release(made);
}

TEST_F(BytesOfTheTool, OfARod) {
    use(rod());
    for (const std::int32_t method : {POVMESH_STRENGTH_FEM, POVMESH_STRENGTH_SECTIONS}) {
        povmesh_strength_options options = povmesh_strength_defaults();
        options.method = method;
        options.load = POVMESH_LOAD_ALL;
        const std::string name = method == POVMESH_STRENGTH_FEM ? "fem" : "sections";
        compare_first("strength --load all --method " + name, [&](povmesh_result** r) {
            return povmesh_strength(context_, mesh_, &options, r, nullptr);
        });
    }
}

TEST_F(BytesOfTheTool, OfAModelThatFalls) {
    shapes::SoupVector leaning = shapes::box({0, 0, 0}, {20, 20, 50});
    for (std::size_t i = 0; i < leaning.size(); i += 3) leaning[i] += 0.45F * leaning[i + 2];
    use(leaning);
    povmesh_balance_options options = povmesh_balance_defaults();
    options.thickness = 1;
    povmesh_balance_report report{};
    report.size = sizeof report;
    compare_first("balance --thickness 1", [&](povmesh_result** r) {
        return povmesh_balance(context_, mesh_, &options, r, &report);
    });
    EXPECT_EQ(report.outcome, POVMESH_BALANCE_CARVED);
    EXPECT_LT(report.tilt_before, 0);
    EXPECT_GT(report.tilt_after, 10);
    // A thick wall leaves too little to carve: no failure, but no mesh either.
    options.thickness = 9;
    povmesh_result* falls = nullptr;
    ASSERT_EQ(povmesh_balance(context_, mesh_, &options, &falls, &report), POVMESH_OK);
    EXPECT_EQ(report.outcome, POVMESH_BALANCE_FALLS);
    EXPECT_EQ(povmesh_result_mesh_count(falls), 0U);
    EXPECT_NE(std::string(povmesh_result_text(falls)).find("thinner wall"), std::string::npos);
    povmesh_result_release(falls);
}
#endif

// The arrays of a result speak of its meshes, and their rows are as many as the report tells.
TEST_F(Context, ArraysOfResultsFitTheirMeshesAndReports) {
    povmesh_mesh* ball = make_mesh(context_, shapes::sphere(10, 3));
    povmesh_result* made = nullptr;
    const auto rows = [&](std::int32_t array) {
        povmesh_view view{};
        EXPECT_EQ(povmesh_result_view(made, array, &view), POVMESH_OK) << array;
        return view.count;
    };
    povmesh_decompose_options parts = povmesh_decompose_defaults();
    for (double& x : parts.extent) x = 15;
    povmesh_decompose_report division{};
    division.size = sizeof division;
    for (const std::int32_t preview : {0, 1}) {
        parts.preview = preview;
        ASSERT_EQ(povmesh_decompose(context_, ball, &parts, &made, &division), POVMESH_OK);
        EXPECT_EQ(povmesh_result_mesh_count(made), preview == 0 ? division.parts : 0);
        EXPECT_EQ(rows(POVMESH_BOXES), division.parts);
        EXPECT_EQ(rows(POVMESH_VOLUMES), division.parts);
        EXPECT_GE(division.parts, 2U);
        povmesh_result_release(made);
    }
    povmesh_lampshade_options shade = povmesh_lampshade_defaults();
    shade.thickness = 2;
    shade.preview = 1;
    ASSERT_EQ(povmesh_lampshade(context_, ball, &shade, &made, nullptr), POVMESH_OK);
    EXPECT_EQ(povmesh_result_mesh_count(made), 0U);
    EXPECT_EQ(rows(POVMESH_POLYGON_SIZES), rows(POVMESH_POLYGON_LEVELS));
    EXPECT_GT(rows(POVMESH_POLYGON_POINTS), 3 * rows(POVMESH_POLYGON_SIZES));
    povmesh_result_release(made);
    povmesh_orient_options pose = povmesh_orient_defaults();
    pose.rows = 2;
    pose.up[1] = -3;
    ASSERT_EQ(povmesh_orient(context_, ball, &pose, &made), POVMESH_OK);
    EXPECT_EQ(rows(POVMESH_ORIENTATIONS), 1U + 2U + 1U);
    povmesh_result_release(made);
    // Columns that are given stand where they are, and are sliced.
    const float columns[] = {20, 0, 5, 20, 0, -10, 30, 0, 0, 30, 0, -5};
    povmesh_support_options support = povmesh_support_defaults();
    support.columns = {columns, 2, 0, POVMESH_F32, 6};
    support.layer_height = 1;
    povmesh_support_report report{};
    report.size = sizeof report;
    ASSERT_EQ(povmesh_support(context_, ball, &support, &made, &report), POVMESH_OK) << message();
    EXPECT_EQ(report.columns_on_plate, 1U);
    EXPECT_EQ(report.longest, 15);
    EXPECT_EQ(report.polygons, 15U + 5U);
    EXPECT_EQ(rows(POVMESH_POLYGON_SIZES), report.polygons);
    EXPECT_EQ(povmesh_result_mesh(made, 0)->mesh.faces.size(), 32U);
    povmesh_result_release(made);
    povmesh_mesh* bar = make_mesh(context_, rod());
    ASSERT_EQ(povmesh_strength(context_, bar, nullptr, &made, nullptr), POVMESH_OK);
    EXPECT_EQ(rows(POVMESH_VALUES), povmesh_result_mesh(made, 0)->mesh.vertices.size());
    povmesh_result_release(made);
    povmesh_mesh_release(bar);
    povmesh_mesh_release(ball);
}

// Any number of contexts at a time, a shared mesh, and one that is cancelled all the while.
TEST_F(Context, EightThreadsMakeTheSameBitsBesideOneThatIsCancelled) {
    povmesh_mesh* shared = make_mesh(context_, flawed_model(3));
    std::vector<CallOutcome> right;
    for (const TestedOperation& operation : tested_operations()) {
        if (operation.is_quick) right.push_back(operation.call(context_, shared));
    }
    std::atomic<bool> is_over = false;
    std::thread cancelled([&] {
        povmesh_context* const own = make_context(2);
        std::thread canceller([&] {
            while (!is_over) {
                povmesh_context_cancel(own);
                std::this_thread::sleep_for(std::chrono::microseconds(300));
                povmesh_context_resume(own);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        while (!is_over) {
            for (const TestedOperation& operation : tested_operations()) {
                if (!operation.is_quick) continue;
                const povmesh_status status = operation.call(own, shared).status;
                EXPECT_TRUE(status == POVMESH_OK || status == POVMESH_CANCELLED) << status;
            }
        }
        canceller.join();
        povmesh_context_destroy(own);
    });
    std::vector<std::thread> threads;
    for (std::uint32_t t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            povmesh_context* const own = make_context(1 + t % 3);
            std::size_t i = 0;
            for (const TestedOperation& operation : tested_operations()) {
                if (!operation.is_quick) continue;
                const CallOutcome outcome = operation.call(own, shared);
                EXPECT_EQ(outcome.status, POVMESH_OK) << operation.name;
                EXPECT_EQ(outcome.bytes, right[i++].bytes) << operation.name;
            }
            povmesh_context_destroy(own);
        });
    }
    for (std::thread& thread : threads) thread.join();
    is_over = true;
    cancelled.join();
    povmesh_mesh_release(shared);
}

TEST_F(Context, IsBusyInItsOwnCallbackAndACancelStaysUntilItIsTakenBack) {
    struct Host {
        povmesh_context* context;
        const povmesh_mesh* mesh;
        povmesh_status inside = POVMESH_OK;
        double percent = 0;
        int calls = 0;
    } host{nullptr, box_};
    povmesh_context_options options{};
    options.size = sizeof options;
    options.progress_user = &host;
    options.progress = [](void* user, double percent, const char* phase) -> std::int32_t {
        Host& h = *static_cast<Host*>(user);
        povmesh_mesh* made = nullptr;
        h.inside = povmesh_repair(h.context, h.mesh, nullptr, &made, nullptr);
        EXPECT_GE(percent, h.percent);
        EXPECT_GT(std::strlen(phase), 3U);
        h.percent = percent;
        return ++h.calls == 3 ? 1 : 0;
    };
    ASSERT_EQ(povmesh_context_create(&options, &host.context), POVMESH_OK);
    povmesh_result* findings = nullptr;
    EXPECT_EQ(povmesh_check(host.context, box_, nullptr, &findings, nullptr), POVMESH_CANCELLED);
    EXPECT_EQ(host.inside, POVMESH_BUSY);
    EXPECT_EQ(host.calls, 3);
    host.percent = 0;
    EXPECT_EQ(povmesh_check(host.context, box_, nullptr, &findings, nullptr), POVMESH_OK);
    povmesh_result_release(findings);

    povmesh_context_cancel(context_);
    povmesh_mesh* made = nullptr;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(povmesh_repair(context_, box_, nullptr, &made, nullptr), POVMESH_CANCELLED);
    }
    povmesh_context_resume(context_);
    ASSERT_EQ(povmesh_repair(context_, box_, nullptr, &made, nullptr), POVMESH_OK);
    EXPECT_STREQ(povmesh_context_message(context_), "");
    povmesh_context_destroy(host.context);
    povmesh_mesh_release(made);
}

// What a host was told of a call: phases in their order, and percent.
struct Told {
    std::vector<std::string> phases;
    std::set<double> percents;

    static povmesh_context* context(Told& told) {
        povmesh_context_options options{};
        options.size = sizeof options;
        options.progress_user = &told;
        options.progress = [](void* user, double percent, const char* phase) -> std::int32_t {
            Told& t = *static_cast<Told*>(user);
            t.percents.insert(percent);
            if (t.phases.empty() || t.phases.back() != phase) t.phases.emplace_back(phase);
            return 0;
        };
        povmesh_context* made = nullptr;
        return povmesh_context_create(&options, &made) == POVMESH_OK ? made : nullptr;
    }
};

// A bar that stands at one phase, or names one that never comes, tells nothing.
TEST_F(Context, EveryPhaseIsToldInItsOrder) {
    for (const TestedOperation& operation : tested_operations()) {
        std::vector<std::string> wanted;
        for (const job::Phase& phase : job::phases_of(operation.name)) {
            if (std::string(phase.name) != "writing") wanted.emplace_back(phase.name);
        }
        if (wanted.empty() || (kIsSanitized && !operation.is_quick)) continue;
        // Nothing is carved of what stands.
        if (operation.name == std::string("balance")) wanted.resize(1);
        Told told;
        povmesh_context* const own = Told::context(told);
        povmesh_mesh* const mesh = make_mesh(own, flawed_model(1));
        EXPECT_EQ(operation.call(own, mesh).status, POVMESH_OK) << operation.name;
        // Some are made ready by other operations first.
        const std::size_t more = told.phases.size() - std::min(told.phases.size(), wanted.size());
        told.phases.erase(told.phases.begin(),
                          told.phases.begin() + static_cast<std::ptrdiff_t>(more));
        EXPECT_EQ(told.phases, wanted) << operation.name;
        povmesh_mesh_release(mesh);
        povmesh_context_destroy(own);
    }
}

TEST_F(Context, ReductionsAndRemeshingTellHowFarTheyAre) {
    Told told;
    povmesh_context* const own = Told::context(told);
    povmesh_mesh* const ball = make_mesh(own, shapes::sphere(10, 5));
    povmesh_reduce_options keep = povmesh_reduce_defaults();
    keep.keep = 0.1;
    povmesh_remesh_options even = povmesh_remesh_defaults();
    even.edge_length = 1;
    povmesh_mesh* made = nullptr;
    const auto expect_steps = [&](povmesh_status status, std::size_t least) {
        EXPECT_EQ(status, POVMESH_OK) << povmesh_context_message(own);
        EXPECT_GE(told.percents.size(), least);
        EXPECT_GE(*told.percents.rbegin(), 80);
        told.percents.clear();
        povmesh_mesh_release(made);
    };
    expect_steps(povmesh_reduce(own, ball, &keep, &made, nullptr), 8);
    expect_steps(povmesh_remesh(own, ball, &even, &made, nullptr), 6);
    povmesh_mesh_release(ball);
    // By the queue: shells of more than 100,000 triangles.
    povmesh_mesh* const large = make_mesh(own, shapes::sphere(10, 7));
    povmesh_reduce_options automatic = povmesh_reduce_defaults();
    automatic.automatic = 1;
    told.percents.clear();
    expect_steps(povmesh_reduce(own, large, &automatic, &made, nullptr), 12);
    povmesh_mesh_release(large);
    povmesh_context_destroy(own);
}

#if !defined(_WIN32)
// No thread is left between calls, so the child of a fork goes on.
TEST_F(Context, GoesOnInTheChildOfAFork) {
    const auto thread_count = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    std::thread([] {}).join();  // with the first thread a sanitizer starts one of its own
    const auto before = thread_count();
    povmesh_mesh* ball = make_mesh(context_, shapes::sphere(10, 5));
    povmesh_subdivide_options options = povmesh_subdivide_defaults();
    povmesh_mesh* made = nullptr;
    ASSERT_EQ(povmesh_subdivide(context_, ball, &options, &made), POVMESH_OK);
    EXPECT_EQ(thread_count(), before);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        povmesh_mesh* again = nullptr;
        const povmesh_status status = povmesh_subdivide(context_, ball, &options, &again);
        const bool is_same =
            status == POVMESH_OK && again->mesh.faces.size() == made->mesh.faces.size();
        _exit(is_same ? 0 : 1);
    }
    int state = -1;
    waitpid(child, &state, 0);
    EXPECT_EQ(state, 0);
    povmesh_mesh_release(made);
    povmesh_mesh_release(ball);
}
#endif

TEST_F(Context, WhatIsNotThereIsSaidSo) {
    for (const TestedOperation& operation : tested_operations()) {
        if (std::string(operation.name) == "files") continue;
        EXPECT_EQ(povmesh_has(("operation:" + std::string(operation.name)).c_str()), 1);
    }
    for (const char* none : {"operation:fly", "read:dwg", "stl", ""}) {
        EXPECT_EQ(povmesh_has(none), 0) << none;
    }
    EXPECT_EQ(povmesh_has("write:3mf"), 1);
    EXPECT_EQ(povmesh_version(), std::uint32_t{POVMESH_VERSION});
    povmesh_context_destroy(nullptr);
    povmesh_mesh_release(nullptr);
    povmesh_result_release(nullptr);
    povmesh_free(nullptr);
}

}  // namespace
}  // namespace povmesh::test
