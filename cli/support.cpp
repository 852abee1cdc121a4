// povmesh support: columns below what hangs over, as a mesh and as polygons of layers.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/commands.h"
#include "cli/model.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "io/file.h"
#include "job/numbers.h"
#include "job/support.h"
#include "mesh/append_mesh.h"
#include "mesh/bounds.h"
#include "support/slice_polygons.h"

namespace povmesh::cli {
namespace {

namespace fs = std::filesystem;

// A narrower one leaves columns without a body.
constexpr double kLeastSpacing = 0.5;

void add_number(std::string& text, float number) {
    std::array<char, 32> digits{};
    text.append(digits.data(),
                std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

// Writes {"layer_height": 0.2, "layers": [{"z": 0.1, "polygons": [[[x, y], ...], ...]}, ...]}
// layer by layer.
class LayerFile {
public:
    Status open(const std::string& path, double layer_height) {
        text_ = "{\"layer_height\": ";
        add_number(text_, static_cast<float>(layer_height));
        text_ += ", \"layers\": [";
        return file_.open(path);
    }

    Status add(const SlicePolygons& polygons) {
        text_ += std::exchange(next_layer_, ",\n");
        text_ += "{\"z\": ";
        add_number(text_, polygons.points.front().z);
        text_ += ", \"polygons\": [";
        const Vec3f* point = polygons.points.data();
        for (std::size_t i = 0; i < polygons.sizes.size(); ++i) {
            text_ += i == 0 ? "[" : ", [";
            for (std::uint32_t k = 0; k < polygons.sizes[i]; ++k, ++point) {
                text_ += k == 0 ? "[" : ", [";
                add_number(text_, point->x);
                text_ += ", ";
                add_number(text_, point->y);
                text_ += "]";
            }
            text_ += "]";
        }
        text_ += "]}";
        return text_.size() < kBlock ? Status{} : flush();
    }

    Status commit() {
        text_ += "\n]}\n";
        if (Status status = flush(); !status.ok()) return status;
        return file_.commit();
    }

private:
    static constexpr std::size_t kBlock = 1 << 20;

    Status flush() {
        Status status = file_.write(text_);
        text_.clear();
        return status;
    }

    ReplacementFile file_;
    std::string text_;
    const char* next_layer_ = "\n";
};

// y goes down in these pictures.
void add_svg_point(std::string& text, double x, double y, bool is_first) {
    text += is_first ? "M" : "L";
    add_number(text, static_cast<float>(x));
    text += " ";
    add_number(text, static_cast<float>(-y));
}

Status write_text(const std::string& path, const std::string& text) {
    ReplacementFile file;
    if (Status status = file.open(path); !status.ok()) return status;
    if (Status status = file.write(text); !status.ok()) return status;
    return file.commit();
}

// A picture for each layer in the colours of other pictures: the model's outline and the columns.
class LayerPictures {
public:
    // Returns one line for the user when the folder cannot be made.
    std::string open(const std::string& folder, const std::string& name, const TriMesh& model,
                     const TriMesh& tubes) {
        folder_ = folder;
        name_ = name;
        Box3f box = finite_bounds(model);
        const Box3f other = finite_bounds(tubes);
        box.widen(other.low);
        box.widen(other.high);
        const Box3d d{to_double(box.low), to_double(box.high)};
        head_ = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"";
        for (const double v : {d.low.x - 1, -d.high.y - 1, d.extent().x + 2, d.extent().y + 2}) {
            add_number(head_, static_cast<float>(v));
            head_ += " ";
        }
        head_.back() = '"';
        head_ += ">\n";
        return make_folder(folder);
    }

    Status add(const ColumnLayer& layer) {
        return write_text(numbered(folder_, name_, ++count_, ".svg"), picture(layer));
    }

private:
    std::string picture(const ColumnLayer& layer) const {
        std::string text = head_ + "<path fill=\"#d6ccbc\" fill-rule=\"evenodd\" d=\"";
        const SliceLoops& loops = layer.outline;
        for (std::size_t l = 0; l < loops.size(); ++l) {
            for (const Point2d& p : loops[l]) add_svg_point(text, p.x, p.y, &p == &loops[l][0]);
            text += "Z";
        }
        text += "\"/>\n<path fill=\"#70a46e\" fill-rule=\"evenodd\" d=\"";
        const Vec3f* point = layer.polygons.points.data();
        for (const std::uint32_t size : layer.polygons.sizes) {
            for (std::uint32_t k = 0; k < size; ++k, ++point) {
                add_svg_point(text, double{point->x}, double{point->y}, k == 0);
            }
            text += "Z";
        }
        return text + "\"/>\n</svg>\n";
    }

    std::string folder_;
    std::string name_;
    std::string head_;
    std::size_t count_ = 0;
};

// Of a layer's polygons as text: eight coordinates with their brackets.
constexpr double kBytesOfSquare = 100;
// A file that programs can still be expected to read.
constexpr double kMostBytes = 1e9;

struct Supports {
    job::SupportJob job;
    double layer_height = 0;
    job::SupportDone done;
    LayerFile layer_file;
    std::string layer_failure;  // why not all layers are written
};

// Slices the columns, writing each layer as it is made. Returns why there are no layers at all;
// what fails in writing goes to the supports.
std::string slice(const TriMesh& mesh, const Arguments& arguments, Supports& supports,
                  ChangeReport& report) {
    const Timer timer;
    const Array<Column>& columns = supports.done.columns;
    const SliceOptions options{supports.job.spacing, supports.layer_height, supports.done.plate};
    const bool has_file = arguments.has("--layers");
    const double bytes = slice_work(columns, options).squares * kBytesOfSquare;
    if (has_file && bytes > kMostBytes) {
        return "the layers would take about " + human_number(std::round(bytes / 1e8) / 10) +
               " GB as text, more than 1; take a greater --layer-height or --spacing";
    }
    std::string& failure = supports.layer_failure;
    if (has_file)
        failure = supports.layer_file.open(arguments.text("--layers"), options.layer_height).text();
    LayerPictures pictures;
    if (arguments.has("--svg") && failure.empty()) {
        failure =
            pictures.open(arguments.text("--svg"), fs::path(arguments.text("IN")).stem().string(),
                          mesh, supports.done.tubes);
    }
    std::size_t layers = 0;
    std::size_t polygons = 0;
    RunLog log;
    RunContext run{{}, log};
    const Status status = slice_columns(mesh, columns, options, run, [&](const ColumnLayer& layer) {
        ++layers;
        polygons += layer.polygons.sizes.size();
        if (has_file && failure.empty()) failure = supports.layer_file.add(layer.polygons).text();
        if (arguments.has("--svg") && failure.empty()) failure = pictures.add(layer).text();
        return failure.empty();
    });
    report.rows.emplace_back(
        "layers", with_separators(layers) + " of " + human_number(supports.layer_height));
    report.rows.emplace_back("polygons", with_separators(polygons));
    report.json["layers"] = layers;
    report.json["polygons"] = polygons;
    report.seconds += timer.seconds();
    return status.text();
}

ChangeReport add_supports(TriMesh& mesh, const Arguments& arguments, Progress progress,
                          Supports& supports) {
    job::SupportDone& done = supports.done;
    ChangeReport report;
    report.failure = job::support(mesh, supports.job, progress, done).text();
    report.seconds = done.seconds;
    if (!report.failure.empty()) return report;
    report.rows = {{"solid support", human_number(done.solid)},
                   {"columns", with_separators(done.columns.size())},
                   {"on the plate", with_separators(done.on_plate)},
                   {"on the model", with_separators(done.columns.size() - done.on_plate)},
                   {"longest", human_number(done.longest)},
                   {"plate at z", human_number(done.plate)}};
    report.json = {{"solid_support_volume", volume_json(done.solid)},
                   {"columns", done.columns.size()},
                   {"columns_on_plate", done.on_plate},
                   {"longest", done.longest},
                   {"plate", done.plate}};
    if (arguments.has("--svg") || arguments.has("--layers")) {
        report.failure = slice(mesh, arguments, supports, report);
        if (!report.failure.empty()) return report;
    }
    report.new_body = "supports";
    if (arguments.has("--with-model")) {
        report.new_body_from = mesh.faces.size();
        append_mesh(mesh, done.tubes);
    } else {
        mesh = done.tubes;
    }
    return report;
}

// What is wrong with the options; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    if (!(arguments.number("--layer-height") > 0)) {
        return "support: --layer-height takes a number above 0";
    }
    if (arguments.has("--layers") && arguments.text("--layers") == arguments.text("--output")) {
        return "support: --layers and --output name the same file";
    }
    return {};
}

int run_support(const Arguments& arguments, Console& console) {
    if (const std::string error = usage_error(arguments); !error.empty()) {
        console.error(error);
        return Usage;
    }
    Supports supports;
    supports.job.spacing = arguments.number("--spacing");
    supports.job.angle = arguments.number("--angle");
    supports.job.measures_solid = true;
    if (arguments.has("--plate")) supports.job.plate = arguments.number("--plate");
    supports.layer_height = arguments.number("--layer-height");
    const int status = run_change(arguments, console, [&](TriMesh& mesh, Progress progress) {
        return add_supports(mesh, arguments, progress, supports);
    });
    if (status != Clean) return status;
    if (arguments.has("--layers") && supports.layer_failure.empty()) {
        supports.layer_failure = supports.layer_file.commit().text();
    }
    if (supports.layer_failure.empty()) return Clean;
    console.error(supports.layer_failure);
    return CannotWrite;
}

}  // namespace

OperationSpec support_operation() {
    return {
        .name = "support",
        .summary = "Make columns that hold up what hangs over",
        .description =
            "Finds what leans out over free space and puts square columns below it, down to the "
            "plate or the model. Writes them as a model of their own.",
        .positionals = {kModelFile},
        .options = {model_output(),
                    {.name = "--spacing",
                     .type = ValueType::Number,
                     .placeholder = "DISTANCE",
                     .unit = "units of the file",
                     .default_value = "3",
                     .low = kLeastSpacing,
                     .high = 10000,
                     .help = "From column to column along x and y; columns are 0.4 apart, so that "
                             "a model in metres or inches has to be scaled first"},
                    {.name = "--angle",
                     .type = ValueType::Number,
                     .placeholder = "DEGREES",
                     .unit = "degrees",
                     .default_value = "45",
                     .low = 0,
                     .high = 90,
                     .help = "Hold up what leans out from upright by more than this"},
                    {.name = "--plate",
                     .type = ValueType::Number,
                     .placeholder = "Z",
                     .unit = "units of the file, else the lowest point of the model",
                     .low = -1e9,
                     .high = 1e9,
                     .help = "Height of the build plate"},
                    {.name = "--with-model", .help = "Write the model, too"},
                    {.name = "--layer-height",
                     .type = ValueType::Number,
                     .placeholder = "HEIGHT",
                     .unit = "units of the file",
                     .default_value = "0.2",
                     .low = 0,
                     .high = kNoLimit,
                     .help = "Height of a layer for --svg and --layers"},
                    {.name = "--svg",
                     .type = ValueType::Text,
                     .placeholder = "FOLDER",
                     .help = "Write a picture of each layer that has columns into the folder"},
                    {.name = "--layers",
                     .type = ValueType::Text,
                     .placeholder = "JSON",
                     .help = "Write the polygons of all layers as a JSON file"},
                    json_object()},
        .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
        .run = run_support,
    };
}

}  // namespace povmesh::cli
