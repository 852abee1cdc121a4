#include "calls.h"

#include <unistd.h>

#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

namespace povmesh {
namespace {

// The parameter groups of the exported functions.
#define REF_IN &h.xyz_pointer, &h.count
#define PLAIN_IN h.xyz_pointer, h.count
#define COLOUR_IN h.xyz_pointer, h.colours(), h.texture(), h.groups(), h.count
#define OUT h.want(h.out.xyz), h.want(h.out.count)
#define FOUR_OUT h.want(h.out.xyz), h.want(h.out.rgb), h.want(h.out.uv), h.want(h.out.labels)
#define COLOUR_OUT FOUR_OUT, h.want(h.out.count)
#define MULTI_OUT FOUR_OUT, h.want(h.out.part_triangles), h.want(h.out.count)
#define TABLE(i) h.want(h.out.tables[i])
#define COUNTER(i) h.want(h.out.counters[i])
#define COUNTERS COUNTER(0), COUNTER(1), COUNTER(2), COUNTER(3)
#define PREVIEW_OUT TABLE(0), h.want(h.out.count), TABLE(1), TABLE(2), h.want(h.out.second_count)
#define PLANE kUp, kSide, kUp, 1.0F, 8, 1, 0, 2, 0
#define RUN [](const Exports& e, Host& h)

constexpr float kUp[] = {0, 0, 1};
constexpr float kSide[] = {1, 0, 0};

constexpr std::string_view kFilePreprocessing =
    "0 5 48 57 in:tri.reduce 75 out:tri.reduce 80 export 85 detect 100";
constexpr std::string_view kFileReduction =
    "0 5 48 57 in:tri.reduce 75 out:tri.reduce 80 export 100";
constexpr std::string_view kDesign = "0 build 10 90 export 100";
constexpr std::string_view kRepair = "0 build 30 70 export 100";
constexpr std::string_view kDivision = "0 build 10 90 100";

// The formatter does not know statements within braces of a table.
// clang-format off
constexpr Call kCalls[] = {
    {"modelRepair64", Result::None, false, "5 48",
     RUN { e.modelRepair64(h.path.c_str()); }},
    {"modelRepair", Result::None, false, "5 48",
     RUN { e.modelRepair(h.path.c_str()); }},
    {"flawsDetect64", Result::None, false, "5 48 detect",
     RUN { h.returned = e.flawsDetect64(h.path.c_str()); }},
    {"flawsDetect", Result::None, false, "5 48 detect",
     RUN { h.returned = e.flawsDetect(h.path.c_str()); }},
    {"meshReduceFromFile64", Result::Coordinates, true, kFileReduction,
     RUN { e.meshReduceFromFile64(h.path.c_str(), OUT, h.cell()); }},
    {"meshReduceFromFile", Result::Coordinates, true, kFileReduction,
     RUN { e.meshReduceFromFile(h.path.c_str(), OUT, h.cell()); }},
    {"meshPreprocessorFromFile64", Result::Coordinates, true, kFilePreprocessing,
     RUN { h.returned = e.meshPreprocessorFromFile64(h.path.c_str(), OUT, h.cell()); }},
    {"meshPreprocessorFromFile", Result::Coordinates, true, kFilePreprocessing,
     RUN { h.returned = e.meshPreprocessorFromFile(h.path.c_str(), OUT, h.cell()); }},
    {"meshPreprocessorFromFileSaveAs64", Result::Coordinates, true, kFilePreprocessing,
     RUN { h.returned = e.meshPreprocessorFromFileSaveAs64(h.path.c_str(), OUT, h.cell(), 1); }},
    {"meshPreprocessorCtrlFromFile", Result::Coordinates, true, "0 5 48 50 80 export 85 detect 100",
     RUN { h.returned = e.meshPreprocessorCtrlFromFile(h.path.c_str(), 9, 0.5F, OUT, h.cell()); }},
    {"importFile", Result::Colour, false, "5 48 export",
     RUN { e.importFile(h.path.c_str(), COLOUR_OUT); }},
    {"saveasObjFromDataDoublePrecision", Result::None, false, "",
     RUN { e.saveasObjFromDataDoublePrecision((h.path + ".obj").c_str(), h.wide.data(),
         h.colours(), h.wide.data(), h.groups(), static_cast<std::int32_t>(h.count)); }},
    {"modelRepairFromData64", Result::Coordinates, true, kRepair,
     RUN { e.modelRepairFromData64(REF_IN, OUT, h.cell()); }},
    {"modelRepairFromData", Result::Coordinates, true, kRepair,
     RUN { e.modelRepairFromData(REF_IN, OUT, h.cell()); }},
    {"meshPreprocessorFromData", Result::Coordinates, true,
     "in:meshPreprocessorFromData 0 build 50 57 in:tri.reduce 75 out:tri.reduce 80 export 85 "
     "detect 100 out:meshPreprocessorFromData",
     RUN { h.returned = e.meshPreprocessorFromData(REF_IN, OUT, h.cell()); }},
    {"meshReduceFromData", Result::Coordinates, false, "build export",
     RUN { e.meshReduceFromData(0.5F, REF_IN, OUT); }},
    {"subdivisionFromData", Result::Coordinates, false, "build export",
     RUN { e.subdivisionFromData(2, REF_IN, OUT); }},
    {"reviseTriangleFromData", Result::Coordinates, false, "build export",
     RUN { e.reviseTriangleFromData(REF_IN, OUT); }},
    {"remeshFromData64", Result::Coordinates, false, "build export",
     RUN { e.remeshFromData64(REF_IN, OUT, &h.xyz_pointer, &h.count); }},
    {"orientationOptimization", Result::None, false, "build 20 40 60 80",
     RUN { e.orientationOptimization(PLAIN_IN, h.wants_nothing ? nullptr : h.out.rows.data(),
         2); }},
    {"hollowFromData", Result::Coordinates, true, "0 build 10 10 30 40 50 60 90 export 100",
     RUN { e.hollowFromData(1, PLAIN_IN, OUT, h.cell()); }},
    {"cellularInfillFromData", Result::Coordinates, true,
     "0 build 10 10 30 40 50 55 60 70 90 export 100",
     RUN { e.cellularInfillFromData(1, 0.5F, PLAIN_IN, OUT, h.cell()); }},
    {"balancingFromData", Result::Coordinates, true, kDesign,
     RUN { e.balancingFromData(1, PLAIN_IN, OUT, h.cell()); }},
    {"voxelize", Result::CoordinatesAndColours, false, "build export",
     RUN { e.voxelize(1, h.xyz_pointer, h.colours(), h.count, h.want(h.out.xyz),
         h.want(h.out.rgb), h.want(h.out.count)); }},
    {"weaknessDetect", Result::Tables, false, "build in:tri.reduce out:tri.reduce",
     RUN { e.weaknessDetect(PLAIN_IN, TABLE(0), TABLE(1), TABLE(2), h.want(h.out.count), 1); }},
    {"modelRepairFromColorData", Result::Colour, true, kRepair,
     RUN { e.modelRepairFromColorData(COLOUR_IN, COLOUR_OUT, h.cell()); }},
    {"modelRepairFromColorDataWithPostDetection", Result::Colour, true,
     "0 build 30 70 export 80 detect 100",
     RUN { e.modelRepairFromColorDataWithPostDetection(COLOUR_IN, COLOUR_OUT, 1, COUNTERS,
         h.cell()); }},
    {"modelRepairFromColorDataWithPostDetection", Result::Colour, true,
     "0 build 30 70 export 80 100",
     RUN { e.modelRepairFromColorDataWithPostDetection(COLOUR_IN, COLOUR_OUT, 0, COUNTERS,
         h.cell()); }},
    {"meshReduceFromColorData", Result::Colour, true, "0 build 50 90 export 100",
     RUN { e.meshReduceFromColorData(0.5F, COLOUR_IN, COLOUR_OUT, h.cell()); }},
    {"subdivisionFromColorData", Result::Colour, false, "build export",
     RUN { e.subdivisionFromColorData(2, COLOUR_IN, COLOUR_OUT); }},
    {"lampshadeFromData", Result::Colour, true, kDesign,
     RUN { e.lampshadeFromData(1, COLOUR_IN, COLOUR_OUT, h.cell()); }},
    {"errorDetectAfterMeshReduceFromColorData", Result::Colour, true,
     "0 build 57 in:tri.reduce 75 out:tri.reduce 80 export detect 100",
     RUN { h.returned = e.errorDetectAfterMeshReduceFromColorData(COLOUR_IN, COLOUR_OUT,
         COUNTERS, h.cell()); }},
    {"errorDetectFromData", Result::None, false, "build detect",
     RUN { h.returned = e.errorDetectFromData(COLOUR_IN, COUNTERS); }},
    {"uniformRemeshFromColorData", Result::Colour, false, "build export",
     RUN { e.uniformRemeshFromColorData(1, COLOUR_IN, COLOUR_OUT); }},
    {"separateShellsFromData", Result::Parts, true, "0 build 10 80 100",
     RUN { e.separateShellsFromData(COLOUR_IN, MULTI_OUT, h.cell()); }},
    // Without a cell of its own it reports into the internal one.
    {"cutFromData", Result::Parts, false, kDivision,
     RUN { e.cutFromData(PLANE, COLOUR_IN, MULTI_OUT); }},
    {"planeCutFromData", Result::Parts, true, kDivision,
     RUN { e.planeCutFromData(PLANE, COLOUR_IN, MULTI_OUT, h.cell()); }},
    {"decompositionUniformPreview", Result::Tables, true, "0 build divide",
     RUN { e.decompositionUniformPreview(1, 1, 1, PLAIN_IN, PREVIEW_OUT, h.cell()); }},
    {"decompositionAutoPreview", Result::Tables, true, "0 build divide",
     RUN { e.decompositionAutoPreview(1, 1, 1, PLAIN_IN, PREVIEW_OUT, h.cell()); }},
    {"decompositionUniformFromData", Result::Parts, true, "0 build 10 divide 90 100",
     RUN { e.decompositionUniformFromData(1, 1, 1, COLOUR_IN, MULTI_OUT, h.cell()); }},
    {"decompositionAutoFromData", Result::Parts, true, "0 build 10 divide 90 100",
     RUN { e.decompositionAutoFromData(1, 1, 1, COLOUR_IN, MULTI_OUT, h.cell()); }},
    {"lampshadePreview", Result::Tables, false, "build",
     RUN { h.returned = e.lampshadePreview(1, PLAIN_IN, TABLE(0), h.want(h.out.sizes),
         TABLE(1), h.want(h.out.count)); }},
    {"balancingPreviewFromData", Result::Tables, false, "build",
     RUN { h.returned = e.balancingPreviewFromData(1, PLAIN_IN, TABLE(0), h.want(h.out.count)); }},
    {"strengthColoringFromData", Result::Colour, true, kRepair,
     RUN { e.strengthColoringFromData(9, 0, COLOUR_IN, COLOUR_OUT, h.cell()); }},
    {"columnSupportAutoGenerate", Result::None, false, "build",
     RUN { e.columnSupportAutoGenerate(PLAIN_IN, 2, 45, TABLE(0), h.want(h.out.column_count)); }},
    {"columnSupportToSlicerExPolygons", Result::Tables, false, "build",
     RUN { e.columnSupportToSlicerExPolygons(PLAIN_IN, nullptr, 0, 2, 0.2F, TABLE(0),
         h.want(h.out.count), h.want(h.out.sizes), h.want(h.out.second_count)); }},
};
// clang-format on

}  // namespace

Host::Host(std::vector<float> soup)
    : xyz(std::move(soup)), wide(xyz.begin(), xyz.end()), xyz_pointer(xyz.data()) {
    const std::size_t triangles = xyz.size() / 9;
    count = static_cast<std::uint32_t>(triangles);
    for (std::size_t t = 0; t < triangles; ++t) {
        for (std::size_t i = 0; i < 9; ++i) rgb.push_back(static_cast<float>((t + i) % 3) * 0.5F);
        for (std::size_t i = 0; i < 6; ++i) uv.push_back(static_cast<float>(t * 6 + i) / 64);
        labels.push_back(static_cast<std::int32_t>(t % 4) - 1);
    }
}

std::span<const Call> calls() {
    return kCalls;
}

std::vector<std::uint32_t> progress_values(std::string_view events) {
    std::vector<std::uint32_t> values;
    std::istringstream words{std::string(events)};
    for (std::string word; words >> word;) {
        std::uint32_t value = 0;
        const char* end = word.data() + word.size();
        if (std::from_chars(word.data(), end, value).ptr == end) values.push_back(value);
    }
    return values;
}

TestFolder::TestFolder() {
    static int number = 0;
    path_ = std::filesystem::temp_directory_path() /
            ("povmesh_api_" + std::to_string(getpid()) + "_" + std::to_string(++number));
    std::filesystem::create_directory(path_);
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string stl_bytes(std::span<const float> soup, std::uint32_t promised) {
    std::string bytes(80, '#');
    const auto append = [&](const void* from, std::size_t size) {
        bytes.append(static_cast<const char*>(from), size);
    };
    append(&promised, 4);
    for (std::size_t t = 0; t + 9 <= soup.size(); t += 9) {
        bytes.append(12, '\0');
        append(soup.data() + t, 36);
        bytes.append(2, '\0');
    }
    return bytes;
}

void write_file(const std::string& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string file_bytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace povmesh
