// Frames of the exported functions: progress values and trace lines in order, slots, exceptions.
// Linked statically, so that every progress value and every text can be recorded.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "analysis/section_shapes.h"
#include "api/host_numbers.h"
#include "api/job.h"
#include "api/slots.h"
#include "calls.h"
#include "helpers/job.h"
#include "helpers/shapes.h"

namespace {

const std::vector<void*>* watched_arrays = nullptr;
std::vector<void*> freed_arrays;

}  // namespace

// The linker sends every call of free() here (--wrap=free): in which order arrays are freed shows
// nowhere else.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" void __real_free(void* block);
extern "C" void __wrap_free(void* block);
extern "C" void __wrap_free(void* block) {
    if (watched_arrays != nullptr &&
        std::count(watched_arrays->begin(), watched_arrays->end(), block) != 0) {
        freed_arrays.push_back(block);
    }
    __real_free(block);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

namespace povmesh {
namespace {

using api::Slot;
using ::testing::ElementsAreArray;

Exports linked() {
    Exports e;
#define POVMESH_LINK(result, name, parameters) e.name = &::name;
    POVMESH_FOR_EACH_EXPORT(POVMESH_LINK)
#undef POVMESH_LINK
    return e;
}

Host box_host() {
    return Host(shapes::box({0, 0, 0}, {2, 3, 4}));
}

// Records what the exports report; the summaries of operations are tested with these.
struct Attached : Recorder {
    Attached() {
        api::set_progress_observer(observer);
        api::set_log_sink([this](std::string_view more) {
            if (more.starts_with("|> ")) sink(more);
        });
    }
    ~Attached() {
        api::set_progress_observer({});
        api::set_log_sink({});
    }
};

bool is_number(const std::string& word) {
    return word.find_first_not_of("0123456789") == std::string::npos;
}

// The events of a table row as they are recorded.
std::vector<std::string> expand(std::string_view row, bool file_opens, bool has_cell) {
    std::vector<std::string> events;
    const auto line = [&](std::string_view direction, const std::string& operation) {
        events.push_back("|> TestDll : -" + std::string(direction) + " " + operation);
    };
    std::istringstream words{std::string(row)};
    for (std::string word; words >> word;) {
        if (word == "build" || word == "export" || word == "detect") {
            const std::string operation = "tri." + (word == "build"    ? "build_f"
                                                    : word == "export" ? "export_data"
                                                                       : word);
            line("in", operation);
            line("out", operation);
        } else if (word == "divide") {
            for (const char* step : {"cut_half_z.", "the main while loop."}) {
                events.push_back(std::string("|> Model : Start ") + step);
                events.push_back(std::string("|> Model : End ") + step);
            }
        } else if (is_number(word)) {
            const bool is_readers = word == "5" || word == "48";
            if (has_cell && (file_opens || !is_readers)) events.push_back(word);
        } else {
            const std::size_t colon = word.find(':');
            line(word.substr(0, colon), word.substr(colon + 1));
        }
    }
    return events;
}

class Frames : public ::testing::Test {
protected:
    Frames() { write_file(box_file, stl_bytes(box_host().xyz, 12)); }
    ~Frames() override { freeAllArray(); }

    const Exports functions = linked();
    const TestFolder folder;
    const std::string box_file = folder / "box.stl";
    const std::string missing = folder / "missing.stl";
};

TEST_F(Frames, WriteTheirProgressValuesAndTraceLinesInOrder) {
    for (const Call& call : calls()) {
        for (const bool file_opens : {true, false}) {
            for (const bool has_cell : {true, false}) {
                SCOPED_TRACE(std::string(call.name) + (file_opens ? "" : ", no file") +
                             (has_cell ? "" : ", no cell"));
                Host h = box_host();
                h.path = file_opens ? box_file : missing;
                h.wants_progress = has_cell;
                Attached recorder;
                call.run(functions, h);
                EXPECT_THAT(recorder.events,
                            ElementsAreArray(
                                expand(call.events, file_opens, has_cell || !call.has_progress)));
                EXPECT_EQ(h.out.progress, call.has_progress && has_cell
                                              ? progress_values(call.events).back()
                                              : 7777);
                freeAllArray();
            }
        }
    }
}

TEST_F(Frames, FillTheSlotsOfTheirResultAndNoOther) {
    for (const Call& call : calls()) {
        SCOPED_TRACE(call.name);
        Host h = box_host();
        h.path = box_file;
        call.run(functions, h);

        std::vector<void*> expected(static_cast<std::size_t>(Slot::Count), nullptr);
        const auto expect = [&](Slot slot, void* array) {
            EXPECT_NE(array, nullptr);
            expected[static_cast<std::size_t>(slot)] = array;
        };
        const bool has_soup = call.result != Result::None && call.result != Result::Tables;
        const bool has_colour = call.result == Result::Colour || call.result == Result::Parts;
        if (has_soup) expect(Slot::Coordinates, h.out.xyz);
        if (has_colour || call.result == Result::CoordinatesAndColours) {
            expect(Slot::Colours, h.out.rgb);
        }
        if (has_colour) {
            expect(Slot::TextureCoordinates, h.out.uv);
            expect(Slot::Labels, h.out.labels);
        }
        if (call.result == Result::Parts) expect(Slot::PartTriangles, h.out.part_triangles);
        if (call.name == "weaknessDetect") {
            expect(Slot::WeaknessCentres, h.out.tables[0]);
            expect(Slot::WeaknessNormals, h.out.tables[1]);
            expect(Slot::WeaknessScores, h.out.tables[2]);
        } else if (call.name == "lampshadePreview") {
            expect(Slot::LampshadePoints, h.out.tables[0]);
            expect(Slot::LampshadeContourSizes, h.out.sizes);
            expect(Slot::LampshadeLevels, h.out.tables[1]);
        } else if (call.name == "balancingPreviewFromData") {
            expect(Slot::BalancingPreview, h.out.tables[0]);
        } else if (call.name == "columnSupportToSlicerExPolygons") {
            expect(Slot::SlicerPoints, h.out.tables[0]);
            expect(Slot::SlicerPolygonSizes, h.out.sizes);
        } else if (call.result == Result::Tables) {
            expect(Slot::DecompositionPlanes, h.out.tables[0]);
            expect(Slot::DecompositionBoxes, h.out.tables[1]);
            expect(Slot::DecompositionVolumes, h.out.tables[2]);
        }
        for (std::size_t slot = 0; slot < expected.size(); ++slot) {
            EXPECT_EQ(api::slot_content(static_cast<Slot>(slot)), expected[slot]) << slot;
        }
        freeAllArray();
    }
}

TEST_F(Frames, OverwriteASlotWithoutFreeingIt) {
    Host first = box_host();
    Host second = box_host();
    importFile(box_file.c_str(), &first.out.xyz, &first.out.rgb, &first.out.uv, &first.out.labels,
               &first.out.count);
    hollowFromData(1, second.xyz_pointer, 12, &second.out.xyz, &second.out.count, nullptr);

    EXPECT_EQ(first.out.labels[11], -1);  // the first result can still be read and freed
    EXPECT_EQ(first.out.rgb[107], 1);
    EXPECT_NE(first.out.xyz, second.out.xyz);
    for (void* array : {static_cast<void*>(first.out.xyz), static_cast<void*>(first.out.rgb),
                        static_cast<void*>(first.out.uv), static_cast<void*>(first.out.labels)}) {
        std::free(array);
    }
}

TEST_F(Frames, FreeFunctionsFreeTheirSlotsInOrderAndOnce) {
    struct Row {
        void (*function)();
        std::vector<Slot> slots;
    };
    const std::vector<Slot> polygons{Slot::DecompositionPlanes, Slot::DecompositionBoxes,
                                     Slot::DecompositionVolumes};
    const Row rows[] = {
        {freeVertexArray, {Slot::Coordinates}},
        {freeDecompositionPreviewArray, polygons},
        {freeBalancingPreviewArray, {Slot::BalancingPreview}},
        {freeColumnSupportPreviewArray, {Slot::SupportColumns}},
        {freeColumnSupportExPolygons, {Slot::SlicerPoints, Slot::SlicerPolygonSizes}},
        {freeAllArray,
         {Slot::Coordinates, Slot::Colours, Slot::TextureCoordinates, Slot::Labels,
          Slot::PartTriangles, Slot::WeaknessCentres, Slot::WeaknessNormals, Slot::WeaknessScores,
          Slot::LampshadeContourSizes, Slot::LampshadeLevels, Slot::DecompositionPlanes,
          Slot::DecompositionBoxes, Slot::DecompositionVolumes, Slot::SupportColumns,
          Slot::SlicerPoints, Slot::SlicerPolygonSizes, Slot::BalancingPreview,
          Slot::LampshadePoints}},
    };
    for (const Row& row : rows) {
        std::vector<void*> arrays;
        for (std::size_t slot = 0; slot < static_cast<std::size_t>(Slot::Count); ++slot) {
            arrays.push_back(std::malloc(1));
            api::fill_slot(static_cast<Slot>(slot), arrays.back());
        }
        std::vector<void*> expected;
        for (const Slot slot : row.slots) expected.push_back(api::slot_content(slot));

        freed_arrays.clear();
        freed_arrays.reserve(arrays.size());
        Attached recorder;
        watched_arrays = &arrays;
        row.function();
        row.function();
        watched_arrays = nullptr;

        EXPECT_EQ(freed_arrays, expected);
        const bool traces = row.slots.size() >= polygons.size();
        EXPECT_EQ(recorder.events.size(), traces ? 4 : 0);  // a pair of lines for each of two calls
        if (traces) {
            EXPECT_EQ(recorder.events[0], "|> TestDll : Start free poly arrays");
            EXPECT_EQ(recorder.events[1], "|> TestDll : End free poly arrays");
        }
        freeAllArray();
    }
}

TEST_F(Frames, HandSupportColumnsFromOneCallToTheNext) {
    shapes::SoupVector table = shapes::box({-2, -2, 0}, {2, 2, 21});
    shapes::append(table, shapes::box({-15, -15, 20}, {15, 15, 23}));
    const auto count = static_cast<std::uint32_t>(table.size() / 9);
    Host h(table);
    columnSupportAutoGenerate(table.data(), count, 3, 45, &h.out.tables[0], &h.out.column_count);
    ASSERT_GT(h.out.column_count, 20);
    EXPECT_GT(h.out.tables[0][2], 20);  // hosts get ends within the overhang,
    EXPECT_EQ(h.out.tables[0][5], 0);   // and z = 0 for the plate
    columnSupportToSlicerExPolygons(table.data(), count, h.out.tables[0], h.out.column_count, 3,
                                    0.25F, &h.out.tables[1], &h.out.count, &h.out.sizes,
                                    &h.out.second_count);
    EXPECT_GE(h.out.second_count, 80 * static_cast<std::uint32_t>(h.out.column_count));
    EXPECT_EQ(std::accumulate(h.out.sizes, h.out.sizes + h.out.second_count, 0U), h.out.count);
}

TEST_F(Frames, TellAllSectionsOrWeakOnesByTheLowBitsOfTheOption) {
    shapes::SoupVector waisted = shapes::sphere(30, 5);
    for (std::size_t i = 0; i < waisted.size(); i += 3) {
        const float squeeze = 0.1F + 0.9F * std::abs(waisted[i + 2]) / 30;
        waisted[i] *= squeeze;
        waisted[i + 1] *= squeeze;
    }
    const auto count = static_cast<std::uint32_t>(waisted.size() / 9);
    Host h(waisted);
    for (const std::uint64_t option : {0x10001U, 0x100U}) {
        weaknessDetect(waisted.data(), count, &h.out.tables[0], &h.out.tables[1], &h.out.tables[2],
                       &h.out.count, option);
        ASSERT_GT(h.out.count, 0U);
        EXPECT_EQ(h.out.count == 1, option == 0x10001U);
        EXPECT_NEAR(h.out.tables[0][2], 0, 1.5) << "centre";
        EXPECT_EQ(h.out.tables[1][2], 1) << "normal";
        EXPECT_EQ(h.out.tables[2][0], 100) << "score";
        freeAllArray();
    }
    // Two flanges on a thin bar, 48 triangles: with half of them it would be another body.
    const shapes::SoupVector bar =
        shapes::lathe({{10, 0}, {10, 10}, {3, 10.01}, {3, 40}, {10, 40.01}, {10, 50}}, 4);
    weaknessDetect(bar.data(), static_cast<std::uint32_t>(bar.size() / 9), &h.out.tables[0],
                   &h.out.tables[1], &h.out.tables[2], &h.out.count, 1);
    ASSERT_EQ(h.out.count, 1U);
    EXPECT_NEAR(h.out.tables[0][2], 25, 1);
    freeAllArray();
}

TEST(HostNumbers, LoadsAreThoseOfTheirNumber) {
    EXPECT_EQ(api::load_case(0), fem::LoadCase::PressureZ);
    EXPECT_EQ(api::load_case(1), fem::LoadCase::Pressure);
    EXPECT_EQ(api::load_case(7), fem::LoadCase::CentreTop);
}

TEST_F(Frames, PreviewsOfADivisionShowWhatComesOut) {
    shapes::SoupVector soup = shapes::box({0, 0, 0}, {30, 10, 10});
    shapes::append(soup, shapes::box({12, 4, 5}, {18, 6, 40}));
    shapes::append(soup, shapes::box({50, 0, 0}, {50.5F, 1, 1}));  // too small for a host
    Host host(soup);
    const auto [shown, made] =
        std::pair{&Exports::decompositionAutoPreview, &Exports::decompositionAutoFromData};
    float *planes = nullptr, *boxes = nullptr, *volumes = nullptr;
    std::uint32_t plane_count = 7, part_count = 7;
    (functions.*shown)(20, 20, 20, host.xyz.data(), host.count, &planes, &plane_count, &boxes,
                       &volumes, &part_count, nullptr);
    Host::Outputs& out = host.out;
    (functions.*made)(20, 20, 20, host.xyz.data(), nullptr, nullptr, nullptr, host.count, &out.xyz,
                      nullptr, nullptr, nullptr, &out.part_triangles, &out.count, nullptr);
    ASSERT_EQ(part_count, out.count);
    EXPECT_EQ(plane_count, 2U);
    ASSERT_EQ(part_count, 3U);
    const float* corner = out.xyz;
    double sum = 0;
    for (std::uint32_t part = 0; part < part_count; ++part) {
        std::array<float, 6> box = {1e9F, 1e9F, 1e9F, -1e9F, -1e9F, -1e9F};
        for (std::uint32_t i = 0; i < 3 * out.part_triangles[part]; ++i, corner += 3) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                box[axis] = std::min(box[axis], corner[axis]);
                box[axis + 3] = std::max(box[axis + 3], corner[axis]);
            }
        }
        for (std::size_t i = 0; i < 6; ++i)
            EXPECT_EQ(boxes[std::size_t{6} * part + i], box[i]) << part;
        sum += static_cast<double>(volumes[part]);
    }
    EXPECT_NEAR(sum, 3000 + 2 * 6 * 35, 0.1);
    for (std::size_t i = 0; i < plane_count; ++i) {
        EXPECT_EQ(planes[4 * i] + planes[4 * i + 1] + planes[4 * i + 2], 1);
    }
}

TEST_F(Frames, LetExceptionsPassAndAreReadyAfterwards) {
    std::uint32_t* const internal_cell = api::progress_cell();
    for (const Call& call : calls()) {
        const bool takes_soup = call.events.find("build") != std::string_view::npos;
        if (!takes_soup) continue;
        SCOPED_TRACE(call.name);
        Host h = box_host();
        h.count = 0x7FFFFFFFU / 3 + 1;  // refused before a coordinate is read
        EXPECT_THROW(call.run(functions, h), std::length_error);
        EXPECT_EQ(api::progress_cell(), internal_cell);
        EXPECT_EQ(h.out.progress, call.has_progress ? 0U : 7777U);
        EXPECT_EQ(h.out.xyz, nullptr);
        EXPECT_EQ(h.out.count, 7777);
        EXPECT_EQ(api::slot_content(Slot::Coordinates), nullptr);
    }
}

}  // namespace
}  // namespace povmesh
