// One call of every exported function, on the arrays of a pretended host.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "exports.h"

namespace povmesh {

/// The exported functions as a host has them: found by name, or linked.
struct Exports {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a declaration
#define POVMESH_MEMBER(result, name, parameters) result(*name) parameters = nullptr;
    POVMESH_FOR_EACH_EXPORT(POVMESH_MEMBER)
#undef POVMESH_MEMBER
};

/// What a host passes in and gets back. Fresh outputs hold values that no function stores.
struct Host {
    explicit Host(std::vector<float> soup);

    std::vector<float> xyz, rgb, uv;
    std::vector<double> wide;
    std::vector<std::int32_t> labels;
    std::uint32_t count = 0;
    std::string path;
    float* xyz_pointer = nullptr;  // what functions that take a float** read

    // Outputs, and where the functions are told to put them.
    struct Outputs {
        float *xyz = nullptr, *rgb = nullptr, *uv = nullptr;
        std::int32_t* labels = nullptr;
        std::uint32_t *part_triangles = nullptr, *sizes = nullptr;
        std::array<float*, 3> tables{};
        std::uint32_t count = 7777, second_count = 7777;
        std::int32_t column_count = 0;
        std::array<std::uint32_t, 4> counters{7777, 7777, 7777, 7777};
        std::array<float, 8> rows{7, 7, 7, 7, 7, 7, 7, 7};
        std::uint32_t progress = 7777;
    } out;
    std::uint64_t returned = 7777;

    // The optional arrays are passed as null; every output and the progress cell are passed as
    // null.
    bool bare = false;
    bool wants_nothing = false;
    bool wants_progress = true;

    template <typename T>
    T* want(T& output) {
        return wants_nothing ? nullptr : &output;
    }
    std::uint32_t* cell() { return wants_progress ? &out.progress : nullptr; }
    const float* colours() const { return bare ? nullptr : rgb.data(); }
    const float* texture() const { return bare ? nullptr : uv.data(); }
    const std::int32_t* groups() const { return bare ? nullptr : labels.data(); }
};

enum class Result { None, Coordinates, CoordinatesAndColours, Colour, Parts, Tables };

struct Call {
    std::string_view name;
    Result result;
    bool has_progress;  // takes a cell
    // Progress values and trace lines in order. "build", "export" and "detect" stand for the in and
    // out line of the step; "5 48" are the STL reader's.
    std::string_view events;
    void (*run)(const Exports& e, Host& h);

    bool reduces() const {  // to half
        return name == "meshReduceFromData" || name == "meshReduceFromColorData" ||
               name == "meshPreprocessorCtrlFromFile";
    }
    bool remeshes() const {
        return name == "remeshFromData64" || name == "uniformRemeshFromColorData";
    }
    bool paints() const { return name == "strengthColoringFromData"; }   // and analyses nothing
    bool subdivides() const { return name.starts_with("subdivision"); }  // by two levels
    bool divides() const { return name.starts_with("decomposition"); }
    bool cuts() const { return name.ends_with("utFromData"); }  // with caps, at half height
    bool makes_voxels() const {
        return name == "voxelize" || name == "hollowFromData" || name == "cellularInfillFromData";
    }
    bool reads_file() const { return events.find("5 48") != std::string_view::npos; }
};

/// Every exported function but the free functions, the flaw test after repair on and off.
std::span<const Call> calls();

/// The progress values among the events.
std::vector<std::uint32_t> progress_values(std::string_view events);

/// A folder of the test's own, removed at the end.
class TestFolder {
public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    std::string operator/(std::string_view name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

/// Binary STL of a soup, with a header of its own; `promised` triangles in its count.
std::string stl_bytes(std::span<const float> soup, std::uint32_t promised);
void write_file(const std::string& path, std::string_view bytes);
std::string file_bytes(const std::string& path);

}  // namespace povmesh
