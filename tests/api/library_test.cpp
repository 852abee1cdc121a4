// The shared library as a host uses it: loaded at run time, functions found by name.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cfenv>
#include <clocale>
#include <cmath>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "calls.h"
#include "helpers/shapes.h"
#include "helpers/thorough.h"
#include "mesh/volume.h"
#include "povmesh/context.h"

namespace povmesh {
namespace {

namespace fs = std::filesystem;

class Library {
public:
    Library() : handle_(dlopen(POVMESH_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) throw std::runtime_error(dlerror());
#define POVMESH_FIND(result, name, parameters) find(#name, exports.name);
        POVMESH_FOR_EACH_EXPORT(POVMESH_FIND)
#undef POVMESH_FIND
    }
    ~Library() {
        dlclose(handle_);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    Exports exports;

private:
    template <typename Function>
    void find(const char* name, Function& function) {
        function = reinterpret_cast<Function>(dlsym(handle_, name));
        if (function == nullptr) throw std::runtime_error(dlerror());
    }

    void* handle_;
};

class Hosted : public ::testing::Test {
protected:
    ~Hosted() override { functions.freeAllArray(); }

    std::string file(std::string_view name, std::string_view bytes) {
        std::string path = folder / name;
        write_file(path, bytes);
        return path;
    }

    const Library library;
    const Exports& functions = library.exports;
    const TestFolder folder;
    const std::vector<float> box = shapes::box({0, 0, 0}, {2, 3, 4});
    const std::string box_file = file("box.stl", stl_bytes(box, 12));
};

// What a process is made of that a library could change behind its host's back.
struct ProcessState {
    std::ptrdiff_t threads = entries("/proc/self/task");
    std::ptrdiff_t descriptors = entries("/proc/self/fd");
    std::string locale = std::setlocale(LC_ALL, nullptr);
    std::string folder = fs::current_path().string();
    int rounding = std::fegetround();
    std::vector<const void*> handlers = signal_handlers();

    bool operator==(const ProcessState&) const = default;

    static std::ptrdiff_t entries(const char* folder) {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    }
    static std::vector<const void*> signal_handlers() {
        std::vector<const void*> all;
        for (int signal = 1; signal < NSIG; ++signal) {
            struct sigaction action {};
            if (sigaction(signal, nullptr, &action) != 0) continue;
            all.push_back(reinterpret_cast<const void*>(action.sa_handler));
        }
        return all;
    }
};

TEST(Library, LeavesNothingBehindWhenLoadedUsedAndUnloaded) {
    const ProcessState before;
    {
        const Library library;
        EXPECT_EQ(ProcessState(), before) << "loading";
        Host h(shapes::box({0, 0, 0}, {2, 3, 4}));
        library.exports.meshPreprocessorFromData(&h.xyz_pointer, &h.count, &h.out.xyz, &h.out.count,
                                                 &h.out.progress);
        library.exports.freeAllArray();
        EXPECT_EQ(ProcessState(), before) << "a job";
    }
    EXPECT_EQ(ProcessState(), before) << "unloading";
    EXPECT_EQ(dlopen(POVMESH_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
    EXPECT_FALSE(fs::exists("logFile.log"));
    EXPECT_FALSE(fs::exists("D:\\povmeshlog.log"));

    // Code built for speed over exactness switches denormal numbers off for the whole process.
    volatile float tiny = 1e-40F;
    tiny = tiny * 0.5F;
    EXPECT_GT(tiny, 0);
}

// The second interface starts threads of its own, which end with the call.
TEST(Library, CanBeUnloadedAndLoadedAgainBetweenJobs) {
    std::thread([] {}).join();  // with the first thread a sanitizer starts one of its own
    const ProcessState before;
    const shapes::SoupVector soup = shapes::sphere(10, 5);  // of more blocks than a thread takes
    for (int time = 0; time < 3; ++time) {
        void* const handle = dlopen(POVMESH_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << dlerror();
#define POVMESH_GET(name)                                                        \
    const auto name = reinterpret_cast<decltype(&::name)>(dlsym(handle, #name)); \
    ASSERT_NE(name, nullptr) << dlerror()
        POVMESH_GET(povmesh_context_create);
        POVMESH_GET(povmesh_context_destroy);
        POVMESH_GET(povmesh_mesh_create);
        POVMESH_GET(povmesh_mesh_release);
        POVMESH_GET(povmesh_subdivide);
#undef POVMESH_GET
        povmesh_context_options options{};
        options.size = sizeof options;
        options.threads = 4;
        povmesh_context* context = nullptr;
        ASSERT_EQ(povmesh_context_create(&options, &context), POVMESH_OK);
        povmesh_mesh_data data{};
        data.size = sizeof data;
        data.positions = {soup.data(), soup.size() / 9, 0, POVMESH_F32, 9};
        povmesh_mesh* mesh = nullptr;
        povmesh_mesh* finer = nullptr;
        ASSERT_EQ(povmesh_mesh_create(context, &data, &mesh), POVMESH_OK);
        EXPECT_EQ(povmesh_subdivide(context, mesh, nullptr, &finer), POVMESH_OK);
        EXPECT_EQ(ProcessState(), before) << "a job";
        povmesh_mesh_release(finer);
        povmesh_mesh_release(mesh);
        povmesh_context_destroy(context);
        dlclose(handle);
        EXPECT_EQ(dlopen(POVMESH_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
    }
    EXPECT_EQ(ProcessState(), before);
}

// A host polls the cell from another thread; what it sees are milestones in their order.
TEST_F(Hosted, ProgressCanBeWatchedFromAnotherThread) {
    const std::vector<float> sphere = shapes::sphere(10, test::kIsSanitized ? 3 : 5);
    const std::string sphere_file =
        file("sphere.stl", stl_bytes(sphere, static_cast<std::uint32_t>(sphere.size() / 9)));
    for (const Call& call : calls()) {
        if (!call.has_progress) continue;
        SCOPED_TRACE(call.name);
        Host h(sphere);
        h.path = sphere_file;
        const std::atomic_ref<std::uint32_t> cell(h.out.progress);
        std::atomic<bool> done = false;
        std::vector<std::uint32_t> seen;
        std::thread watcher([&] {
            while (!done) {
                const std::uint32_t value = cell.load();
                if (value != 7777 && (seen.empty() || seen.back() != value)) seen.push_back(value);
            }
        });
        call.run(functions, h);
        done = true;
        watcher.join();

        // The sphere is large enough to be hollowed, and shaky.
        const bool hollows = call.name == "hollowFromData";
        const bool balances = call.name == "balancingFromData";
        const std::vector<std::uint32_t> milestones =
            progress_values(hollows    ? "0 10 10 30 40 50 60 70 80 85 90 100"
                            : balances ? "0 10 30 60 70 80 85 90 100"
                                       : call.events);
        auto next = milestones.begin();
        for (const std::uint32_t value : seen) {
            next = std::find(next, milestones.end(), value);
            ASSERT_NE(next, milestones.end()) << value;
        }
        EXPECT_EQ(h.out.progress, milestones.back());
        functions.freeAllArray();
    }
}

TEST_F(Hosted, ModelsComeBackAsTheyWentIn) {
    for (const Call& call : calls()) {
        SCOPED_TRACE(call.name);
        Host h(box);
        h.path = box_file;
        if (call.result == Result::None || call.result == Result::Tables) continue;
        if (call.result == Result::Parts) continue;  // have orders of their own
        if (call.reduces() || call.subdivides() || call.remeshes()) continue;
        if (call.cuts() || call.makes_voxels()) continue;
        call.run(functions, h);

        ASSERT_EQ(h.out.count, 12);
        EXPECT_EQ(0, std::memcmp(h.out.xyz, box.data(), box.size() * sizeof(float)));
        const bool from_file = call.reads_file();
        if (call.result != Result::Coordinates && !call.paints()) {
            for (std::size_t i = 0; i < h.rgb.size(); ++i) {  // stored as bytes
                const double byte = from_file ? 255 : std::trunc(h.rgb[i] * 255.0);
                ASSERT_EQ(h.out.rgb[i], static_cast<float>(byte / 255.0)) << i;
            }
        }
        if (call.result == Result::Colour) {
            for (std::size_t t = 0; t < 12; ++t) {
                const std::int32_t label = from_file ? -1 : h.labels[t];
                ASSERT_EQ(h.out.labels[t], label);
                for (std::size_t i = 6 * t; i < 6 * t + 6; ++i) {
                    ASSERT_EQ(h.out.uv[i], label < 0 ? 0 : h.uv[i]) << i;
                }
            }
        }
        functions.freeAllArray();
    }
}

TEST_F(Hosted, BalancingAndItsPreviewAgreeAndKeepTheModel) {
    // Leaning boxes of 20 x 20 x 60; the lean of the top decides.
    const auto leaning = [](float lean) {
        std::vector<float> soup = shapes::box({-10, -10, 5}, {10, 10, 65});
        for (std::size_t i = 0; i < soup.size(); i += 3) soup[i] += lean * (soup[i + 2] - 5) / 60;
        return soup;
    };
    const std::pair<float, std::uint64_t> rows[] = {{2, 2}, {21, 0}, {45, 3}};
    for (const auto& [lean, status] : rows) {
        Host h(leaning(lean));
        h.returned = functions.balancingPreviewFromData(1.5F, h.xyz_pointer, h.count,
                                                        &h.out.tables[0], &h.out.second_count);
        EXPECT_EQ(h.returned, status) << lean;
        ASSERT_EQ(h.out.second_count, 8) << lean;
        const float* points = h.out.tables[0];
        // The centre of mass, by the shape alone; where it would fall over; the lowest corner.
        EXPECT_NEAR(points[0], lean / 2, 1e-4);
        EXPECT_NEAR(points[2], 35, 1e-4);
        EXPECT_NEAR(points[6], 10, 0.1) << lean;
        EXPECT_EQ(points[8], 5);
        EXPECT_EQ(points[12], -10);
        EXPECT_EQ(points[13], -10);
        if (status == 2) {
            EXPECT_TRUE(std::equal(points, points + 3, points + 3));
        }
        functions.balancingFromData(1.5F, h.xyz_pointer, h.count, &h.out.xyz, &h.out.count,
                                    &h.out.progress);
        EXPECT_EQ(h.out.count > 12, status == 0) << lean;
        EXPECT_EQ(0, std::memcmp(h.out.xyz, h.xyz.data(), h.xyz.size() * sizeof(float))) << lean;
        if (status == 0) {
            // The centre of mass of what came back is the one that the preview told.
            const std::span<const float> balanced(h.out.xyz, std::size_t{9} * h.out.count);
            const TriMesh mesh = shapes::mesh_of(balanced);
            Vec3d moment;
            double volume = 0;
            for (const Face& face : mesh.faces) {
                const Vec3d a = to_double(mesh.corner_position(face, 0));
                const Vec3d b = to_double(mesh.corner_position(face, 1));
                const Vec3d c = to_double(mesh.corner_position(face, 2));
                volume += dot(a, cross(b, c)) / 6;
                moment = moment + (a + b + c) * (dot(a, cross(b, c)) / 24);
            }
            EXPECT_NEAR(moment.x / volume, points[3], 0.1);
            EXPECT_NEAR(moment.z / volume, points[5], 0.1);
            EXPECT_LT(points[3], 10);
        }
        functions.freeAllArray();
    }
    // No model, and a host who wants nothing.
    Host h(leaning(21));
    EXPECT_EQ(
        functions.balancingPreviewFromData(1, nullptr, 12, &h.out.tables[0], &h.out.second_count),
        1);
    EXPECT_EQ(h.out.second_count, 0);
    EXPECT_NE(h.out.tables[0], nullptr);
    functions.freeBalancingPreviewArray();
    EXPECT_EQ(functions.balancingPreviewFromData(1.5F, h.xyz_pointer, h.count, nullptr, nullptr),
              0);
    functions.balancingFromData(1.5F, h.xyz_pointer, h.count, nullptr, nullptr, nullptr);
    functions.freeAllArray();
    functions.balancingFromData(1.5F, nullptr, 12, &h.out.xyz, &h.out.count, nullptr);
    EXPECT_EQ(h.out.count, 0);
}

TEST_F(Hosted, ReductionsKeepTheShareAskedFor) {
    Host h(shapes::sphere(10, 4));  // 5,120 faces
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const std::pair<float, std::uint32_t> rows[] = {
        {0.5F, 2560}, {0.01F, 256}, {1.0F, 5120}, {-1, 5120}, {kNan, 5120}};
    for (const auto& [target, expected] : rows) {
        functions.meshReduceFromData(target, &h.xyz_pointer, &h.count, &h.out.xyz, &h.out.count);
        EXPECT_EQ(h.out.count, expected) << target;
        functions.freeAllArray();
        functions.meshReduceFromColorData(target, h.xyz_pointer, nullptr, nullptr, nullptr, h.count,
                                          &h.out.xyz, &h.out.rgb, &h.out.uv, &h.out.labels,
                                          &h.out.count, h.cell());
        EXPECT_EQ(h.out.count, expected) << target;
        functions.freeAllArray();
    }
    Host large(shapes::sphere(10, 7));
    functions.meshPreprocessorFromData(&large.xyz_pointer, &large.count, &large.out.xyz,
                                       &large.out.count, large.cell());
    EXPECT_EQ(large.out.count, 168304);  // 100,000 and 30 % of 227,680
    functions.freeAllArray();
}

TEST_F(Hosted, RemeshingFollowsOneLengthOrOneForEachTriangle) {
    Host h(shapes::sphere(10, 3));             // 1,280 faces, edges of 1.4
    h.xyz.insert(h.xyz.begin() + 9, 9, 0.0F);  // and a triangle that makes no face
    h.xyz_pointer = h.xyz.data();
    ++h.count;
    const auto count_of = [&](std::vector<float> lengths) {
        float* first = lengths.data();
        auto length_count = static_cast<std::uint32_t>(lengths.size());
        functions.remeshFromData64(&h.xyz_pointer, &h.count, &h.out.xyz, &h.out.count, &first,
                                   &length_count);
        const std::uint32_t count = h.out.count;
        functions.freeAllArray();
        return count;
    };
    EXPECT_NEAR(count_of({0.7F}), 4 * 1280, 1500);
    // A field is narrowed to floats on the way.
    EXPECT_NEAR(count_of(std::vector<float>(1281, 0.7F)), count_of({0.7F}), 50);
    EXPECT_EQ(count_of({0.7F, 0.7F}), 1280);
    EXPECT_EQ(count_of({}), 1280);
    EXPECT_EQ(count_of({0.0F}), 1280);
    functions.uniformRemeshFromColorData(0.7F, h.xyz_pointer, nullptr, nullptr, nullptr, h.count,
                                         &h.out.xyz, &h.out.rgb, &h.out.uv, &h.out.labels,
                                         &h.out.count);
    const std::uint32_t count = h.out.count;
    functions.freeAllArray();
    EXPECT_EQ(count, count_of({0.7F}));
}

TEST_F(Hosted, SubdivisionSplitsLongEdgesOfPlainModelsAndAllEdgesOfOthers) {
    Host h(box);
    const auto subdivide = [&](std::uint32_t levels, const float* colours, const float* texture,
                               const std::int32_t* labels) {
        functions.subdivisionFromColorData(levels, h.xyz_pointer, colours, texture, labels, h.count,
                                           &h.out.xyz, &h.out.rgb, &h.out.uv, &h.out.labels,
                                           &h.out.count);
        functions.freeAllArray();
        return h.out.count;
    };
    // The mean is 3.45: the edges of 4 and all diagonals are longer, one or two of every face.
    EXPECT_EQ(subdivide(1, nullptr, nullptr, nullptr), 32);
    EXPECT_EQ(subdivide(1, nullptr, h.texture(), nullptr), 32) << "texture counts with labels";
    EXPECT_EQ(subdivide(1, nullptr, h.texture(), h.groups()), 48);
    for (const std::uint32_t levels : {0U, 1U, 5U, 6U, ~0U}) {
        const std::uint32_t expected = levels > 5 ? 12 : 12U << (2 * levels);
        EXPECT_EQ(subdivide(levels, h.colours(), nullptr, nullptr), expected);
    }
    functions.subdivisionFromData(1, &h.xyz_pointer, &h.count, &h.out.xyz, &h.out.count);
    EXPECT_EQ(h.out.count, 32);
    functions.freeAllArray();
}

TEST_F(Hosted, CutsDoWhatTheOperationSays) {
    Host h(shapes::box({0, 0, 0}, {10, 10, 10}));
    const float up[] = {0, 0, 2};
    const float along[] = {1, 1, 0};
    const float point[] = {3, 3, 4};  // the level lies a tenth below
    const auto volumes = [&](std::uint32_t operation, const float* normal, std::uint32_t pegs) {
        functions.planeCutFromData(normal, along, point, 1.5F, 24, pegs, 0, operation, 0,
                                   h.xyz_pointer, nullptr, nullptr, nullptr, h.count, &h.out.xyz,
                                   &h.out.rgb, &h.out.uv, &h.out.labels, &h.out.part_triangles,
                                   &h.out.count, h.cell());
        std::vector<double> result;
        const float* part = h.out.xyz;
        for (std::uint32_t i = 0; i < h.out.count; ++i) {
            const std::span<const float> soup(part, std::size_t{9} * h.out.part_triangles[i]);
            result.push_back(std::round(signed_volume(shapes::mesh_of(soup))));
            part += soup.size();
        }
        functions.freeAllArray();
        return result;
    };
    using Volumes = std::vector<double>;
    EXPECT_EQ(volumes(2, up, 0), (Volumes{390, 610}));
    EXPECT_EQ(volumes(3, up, 0), (Volumes{1220}));
    EXPECT_EQ(volumes(4, up, 0), (Volumes{780}));
    EXPECT_EQ(volumes(1, up, 0).size(), 2U);
    EXPECT_EQ(volumes(0, up, 0), (Volumes{1000}));
    EXPECT_EQ(volumes(5, up, 0), (Volumes{1000}));
    EXPECT_EQ(volumes(2, nullptr, 0), (Volumes{1000}));
    // A peg of 24 sides, 1.5 wide and 3 long, and a socket that is 0.2 wider and longer.
    EXPECT_EQ(volumes(2, up, 1), (Volumes{411, 581}));
}

TEST_F(Hosted, NoInputCrashesAnyFunction) {
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const std::vector<std::vector<float>> soups = {
        {},
        {0, 0, 0, 1, 0, 0, 0, 1, 0},
        {0, 0, 0, 0, 0, 0, 0, 0, 0},
        {kNan, 0, 0, 1, kNan, 0, 0, 1, kNan},
        {kInfinity, 0, 0, -kInfinity, 0, 0, 0, kInfinity, -kInfinity},
        {1e38F, 1e38F, 1e38F, -1e38F, 3e38F, 0, 1e-45F, 0, -3e38F},
    };
    for (const Call& call : calls()) {
        for (const std::vector<float>& soup : soups) {
            SCOPED_TRACE(std::string(call.name) + ::testing::PrintToString(soup));
            for (const int variant : {0, 1, 2, 3}) {
                Host h(soup);
                h.path = file("soup.stl", stl_bytes(soup, h.count));
                h.bare = variant == 1;
                h.wants_nothing = variant == 2;
                h.wants_progress = variant != 2;
                if (variant == 3) h.xyz_pointer = nullptr;
                for (float& colour : h.rgb) colour = soup[0] - 1;
                call.run(functions, h);

                const bool has_soup = call.result != Result::None && call.result != Result::Tables;
                if (has_soup && !h.wants_nothing) {
                    ASSERT_NE(h.out.xyz, nullptr);
                }
                if (has_soup && !h.wants_nothing && !call.makes_voxels()) {
                    const unsigned most = call.remeshes()                    ? 1000U
                                          : call.subdivides() || call.cuts() ? 16U
                                                                             : 1U;
                    EXPECT_LE(h.out.count, most * h.count);
                }
                if (call.result == Result::Tables && !h.wants_nothing) {
                    // About the middle of its box a lone triangle has a volume.
                    const bool has_volume =
                        call.name == "balancingPreviewFromData" && &soup == &soups.back();
                    EXPECT_TRUE(h.out.count == 0 || (has_volume && h.out.count == 7));
                    EXPECT_NE(h.out.tables[0], nullptr);
                }
                functions.freeAllArray();
                functions.freeAllArray();
            }
        }
    }
}

TEST_F(Hosted, StrengthIsPaintedFromBlueToRed) {
    for (const std::uint32_t method : {0U, 1U}) {
        Host h(shapes::box({0, 0, 0}, {10, 1, 1}));
        functions.strengthColoringFromData(method, 0, h.xyz.data(), nullptr, nullptr, nullptr,
                                           h.count, &h.out.xyz, &h.out.rgb, &h.out.uv,
                                           &h.out.labels, &h.out.count, &h.out.progress);
        EXPECT_GT(h.out.count, 10000);
        EXPECT_EQ(h.out.progress, 100);
        float most_red = 0;
        float most_blue = 0;
        for (std::size_t i = 0; i < 9 * std::size_t{h.out.count}; i += 3) {
            most_red = std::max(most_red, h.out.rgb[i]);
            most_blue = std::max(most_blue, h.out.rgb[i + 2]);
        }
        EXPECT_EQ(most_red, method == 0 ? 100 / 255.0F : 1);  // a box has no weak section
        EXPECT_EQ(most_blue, 1);
        functions.freeAllArray();
    }
}

TEST_F(Hosted, FilesThatCannotBeReadGiveEmptyModels) {
    const std::string directory = folder / "folder.stl";
    fs::create_directory(directory);
    const std::string garbage(1000, '\x81');
    const std::vector<std::string> paths = {
        folder / "missing.stl",
        directory,
        "",
        file("empty.stl", ""),
        file("short.stl", "short"),
        file("zeros.stl", std::string(84, '\0')),
    };
    for (const Call& call : calls()) {
        if (!call.reads_file()) continue;
        for (const std::string& path : paths) {
            SCOPED_TRACE(std::string(call.name) + " " + path);
            Host h(box);
            h.path = path;
            const bool existed = fs::exists(path);
            call.run(functions, h);
            if (call.result != Result::None) {
                ASSERT_NE(h.out.xyz, nullptr);
                EXPECT_EQ(h.out.count, 0);
            }
            EXPECT_TRUE(h.returned == 0 || h.returned == 7777) << h.returned;
            EXPECT_EQ(fs::exists(path), existed);
            functions.freeAllArray();
        }
    }
    EXPECT_EQ(functions.flawsDetect64(nullptr), 0);
    EXPECT_EQ(functions.flawsDetect64(file("garbage.stl", garbage).c_str()) & ~std::uint64_t{1}, 0);
}

TEST_F(Hosted, ImportGoesByTheExactExtension) {
    const std::string bytes = stl_bytes(box, 12);
    const std::pair<std::string_view, std::uint32_t> rows[] = {
        {"a.stl", 12}, {"a.b.stl", 12}, {"a.STL", 0},  {"a.stl ", 0},
        {"stl", 0},    {"a.xstl", 0},   {"a.stlx", 0}, {"a.obj", 0},
    };
    for (const auto& [name, triangles] : rows) {
        Host h({});
        functions.importFile(file(name, bytes).c_str(), &h.out.xyz, &h.out.rgb, &h.out.uv,
                             &h.out.labels, &h.out.count);
        EXPECT_EQ(h.out.count, triangles) << name;
        functions.freeAllArray();
    }
    // Every extension but "obj" counts as STL for the flaw test.
    std::vector<float> open_box = box;
    open_box.resize(std::size_t{9} * 11);
    const std::string open_bytes = stl_bytes(open_box, 11);
    EXPECT_EQ(functions.flawsDetect(file("open.dat", open_bytes).c_str()), 1);
    EXPECT_EQ(functions.flawsDetect(file("open.OBJ", open_bytes).c_str()), 1);
    EXPECT_EQ(functions.flawsDetect(file("open.obj", open_bytes).c_str()), 0);
    EXPECT_EQ(functions.flawsDetect(box_file.c_str()), 0);
}

TEST_F(Hosted, FlawsAreCountedAndReported) {
    std::vector<float> soup = box;
    soup.resize(std::size_t{9} * 11);  // three open edges, each with a corner at either end
    Host h(soup);
    Host unwanted(soup);
    unwanted.wants_nothing = true;
    for (const Call& call : calls()) {
        if (call.events.find("build") == std::string_view::npos ||
            call.events.find("detect") == std::string_view::npos) {
            continue;
        }
        SCOPED_TRACE(call.name);
        h.out.counters.fill(7777);
        h.returned = 1;  // repair with a test afterwards returns nothing
        call.run(functions, h);
        EXPECT_EQ(h.returned, 1);
        if (call.name != "meshPreprocessorFromData") {
            EXPECT_EQ(h.out.counters, (std::array<std::uint32_t, 4>{0, 6, 0, 0}));
        }
        functions.freeAllArray();
    }
    functions.modelRepairFromColorDataWithPostDetection(
        soup.data(), nullptr, nullptr, nullptr, 11, nullptr, nullptr, nullptr, nullptr, nullptr, 0,
        &h.out.counters[0], &h.out.counters[1], &h.out.counters[2], &h.out.counters[3], nullptr);
    EXPECT_EQ(h.out.counters, (std::array<std::uint32_t, 4>{~0U, ~0U, ~0U, ~0U}));
}

TEST_F(Hosted, OnlyASoundFileIsWrittenBackAndOnlyWhenAskedFor) {
    const std::string whole = stl_bytes(box, 12);
    std::string rewritten = stl_bytes(box, 12);
    rewritten.replace(0, 80, std::string("PovMesh") + std::string(73, '\0'));
    const std::vector<float> needle = {0, 0, 0, 0, 0, 0, 1, 1, 1};
    const std::string commas =
        "solid\nfacet vertex 0 0 0 vertex 9,5 0 0 vertex 0 9,5 0 endfacet\nendsolid\n";
    struct Row {
        const char* what;
        std::string before;
        std::uint32_t save;
        std::string after;
    };
    const Row rows[] = {
        {"saved", whole, 1, rewritten},
        {"the low 8 bits count", whole, 0x1FF, rewritten},
        {"not asked for", whole, 0, whole},
        {"not asked for in the low 8 bits", whole, 0x100, whole},
        {"truncated", stl_bytes(box, 13), 1, stl_bytes(box, 13)},
        {"more records than its count", stl_bytes(box, 7), 1, stl_bytes(box, 7)},
        {"decimal commas", commas, 1, commas},
        {"no triangle", stl_bytes({}, 0), 1, stl_bytes({}, 0)},
        {"nothing left of it", stl_bytes(needle, 1), 1, stl_bytes(needle, 1)},
        {"no STL", "some notes\n", 1, "some notes\n"},
    };
    for (const Row& row : rows) {
        const std::string path = file("model.stl", row.before);
        const bool is_sound = row.before == whole;
        functions.modelRepair64(path.c_str());
        EXPECT_TRUE(file_bytes(path) == (is_sound ? rewritten : row.before))
            << row.what << ", repaired";
        file("model.stl", row.before);
        functions.meshPreprocessorFromFileSaveAs64(path.c_str(), nullptr, nullptr, nullptr,
                                                   row.save);
        EXPECT_TRUE(file_bytes(path) == row.after) << row.what;
        functions.freeVertexArray();
    }
    EXPECT_EQ(ProcessState::entries((folder / "").c_str()), 2) << "a file was left behind";
}

TEST_F(Hosted, PartsComeInOrderAndWithoutInwardOrTinyOnes) {
    std::vector<float> soup;
    const auto add = [&](std::vector<float> body, float x) {
        shapes::move(body, {x, 0, 0});
        soup.insert(soup.end(), body.begin(), body.end());
    };
    add(box, 100);
    add(shapes::turned(box), 50);
    add(shapes::box({0, 0, 0}, {0.9F, 1, 1}), 25);
    add(box, 0);
    Host h(soup);
    functions.separateShellsFromData(soup.data(), nullptr, nullptr, nullptr, h.count, &h.out.xyz,
                                     &h.out.rgb, &h.out.uv, &h.out.labels, &h.out.part_triangles,
                                     &h.out.count, nullptr);
    ASSERT_EQ(h.out.count, 2);
    EXPECT_EQ(h.out.part_triangles[0], 12);
    EXPECT_EQ(h.out.part_triangles[1], 12);
    EXPECT_GE(h.out.xyz[0], 100);
    EXPECT_LT(h.out.xyz[108], 100);
    functions.freeAllArray();
}

TEST_F(Hosted, EveryRepairClosesAnOpenBox) {
    Host h(box);
    h.count = 11;
    h.bare = true;  // holes beside labels stay open
    for (const Call& call : calls()) {
        if (!call.name.starts_with("modelRepairFrom")) continue;
        h.out = {};
        call.run(functions, h);
        EXPECT_EQ(h.out.count, 12) << call.name;
        EXPECT_TRUE(std::equal(box.begin(), box.begin() + std::ptrdiff_t{11} * 9, h.out.xyz));
        functions.freeAllArray();
    }
}

TEST_F(Hosted, ObjFilesKeepLabelsAndTexture) {
    Host h(box);
    const std::string path = folder / "model.obj";
    const std::vector<double> uv(h.uv.begin(), h.uv.end());
    functions.saveasObjFromDataDoublePrecision(path.c_str(), h.wide.data(), h.rgb.data(), uv.data(),
                                               h.labels.data(), 12);
    functions.importFile(path.c_str(), &h.out.xyz, &h.out.rgb, &h.out.uv, &h.out.labels,
                         &h.out.count);
    ASSERT_EQ(h.out.count, 12);
    EXPECT_EQ(functions.flawsDetect64(path.c_str()), 0);
    const auto labelled = [&](std::size_t t) {
        return h.out.labels[t] >= 0 && h.out.uv[6 * t] > 0;
    };
    std::size_t count = 0;
    for (std::size_t t = 0; t < 12; ++t) count += labelled(t) ? 1 : 0;
    EXPECT_EQ(count, 9U) << "every fourth has none";
    functions.freeAllArray();
    functions.saveasObjFromDataDoublePrecision((path + "/no/folder.obj").c_str(), h.wide.data(),
                                               nullptr, nullptr, nullptr, -1);
}

TEST_F(Hosted, TablesOfOperationsThatFindNothingAreEmpty) {
    Host h(box);
    for (const Call& call : calls()) {
        if (call.result != Result::Tables) continue;
        if (call.name == "balancingPreviewFromData") continue;  // a box stands, and that is told
        if (call.divides()) continue;                           // a box is larger than the parts
        h.out = {};
        h.returned = 1;
        call.run(functions, h);
        EXPECT_EQ(h.out.count, 0) << call.name;
        EXPECT_TRUE(h.out.second_count == 0 || h.out.second_count == 7777) << call.name;
        EXPECT_EQ(h.returned, 1) << call.name;
        functions.freeAllArray();
    }
    h.out.column_count = 5;
    functions.columnSupportAutoGenerate(h.xyz_pointer, h.count, 2, 45, &h.out.tables[0],
                                        &h.out.column_count);
    EXPECT_EQ(h.out.column_count, 5) << "without a column the outputs stay";
}

TEST_F(Hosted, OrientationsAreTheBestRowsWhateverTheCapacity) {
    std::vector<float> tee = shapes::box({-2, -2, 0}, {2, 2, 20});
    shapes::append(tee, shapes::box({-10, -10, 20}, {10, 10, 24}));
    const auto rows_of = [&](const std::vector<float>& soup, std::int32_t capacity) {
        std::vector<float> rows(400, 7);
        functions.orientationOptimization(soup.data(), static_cast<std::uint32_t>(soup.size() / 9),
                                          rows.data(), capacity);
        return rows;
    };
    const std::vector<float> all = rows_of(tee, 90);
    EXPECT_EQ(std::vector(all.begin(), all.begin() + 3), (std::vector<float>{0, 0, -1}))
        << "on its head";
    std::size_t found = 0;
    for (; found < 64 && all[4 * found + 3] != 0; ++found) {
        const auto up = [&](std::size_t i) {
            return to_double(Vec3f{all[4 * i], all[4 * i + 1], all[4 * i + 2]});
        };
        EXPECT_NEAR(length(up(found)), 1, 1e-5);
        EXPECT_TRUE(all[4 * found + 3] > 0 && all[4 * found + 3] <= 1);
        for (std::size_t i = 0; i < found; ++i) {
            EXPECT_GE(all[4 * i + 3], all[4 * found + 3]);
            EXPECT_GE(length(cross(up(i), up(found))), dot(up(i), up(found)) * std::tan(M_PI / 36));
        }
    }
    EXPECT_GT(found, 20U);
    EXPECT_EQ(std::count(all.begin() + static_cast<std::ptrdiff_t>(4 * found), all.end(), 0.0F),
              360 - static_cast<std::ptrdiff_t>(4 * found));
    EXPECT_EQ(std::count(all.begin() + 360, all.end(), 7.0F), 40) << "beyond the capacity";
    for (const std::int32_t capacity : {1, 3, 64}) {
        const std::vector<float> some = rows_of(tee, capacity);
        const auto end = some.begin() + 4 * static_cast<std::ptrdiff_t>(capacity);
        EXPECT_TRUE(std::equal(some.begin(), end, all.begin())) << capacity;
        EXPECT_EQ(*end, 7) << capacity;
    }
    EXPECT_EQ(rows_of(tee, -1)[0], 7);
    functions.orientationOptimization(tee.data(), 24, nullptr, 5);
    for (const std::vector<float>& nothing :
         {std::vector<float>{}, {0, 0, 0, 1, 1, 1, 2, 2, 2}, {0, 0, 0, 1, 0, 0, NAN, 1, 0}}) {
        EXPECT_EQ(rows_of(nothing, 100), std::vector<float>(400)) << nothing.size();
    }
}

TEST_F(Hosted, TooManyTrianglesAreAnExceptionThatAHostCanCatch) {
    Host h(box);
    h.count = 0xFFFFFFFF;
    EXPECT_THROW(functions.hollowFromData(1, h.xyz_pointer, h.count, &h.out.xyz, &h.out.count,
                                          &h.out.progress),
                 std::length_error);
    h.count = 12;
    functions.hollowFromData(1, h.xyz_pointer, h.count, &h.out.xyz, &h.out.count, &h.out.progress);
    EXPECT_EQ(h.out.count, 0);  // all wall
}

}  // namespace
}  // namespace povmesh
