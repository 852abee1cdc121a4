// povmesh support: columns below what hangs over, as a mesh and as polygons of layers.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "base/timer.h"
#include "cli/change.h"
#include "cli/commands.h"
#include "cli/model.h"
#include "cli/numbers.h"
#include "cli/pieces.h"
#include "cli/shared_options.h"
#include "io/file.h"
#include "mesh/append_mesh.h"
#include "mesh/bounds.h"
#include "slice/slices.h"
#include "support/column_supports.h"
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

// The polygons of a layer: from first to before end; points from first_point on.
struct Layer {
    std::size_t first = 0;
    std::size_t end = 0;
    std::size_t first_point = 0;
};

std::vector<Layer> layers_of(const SlicePolygons& polygons) {
    std::vector<Layer> layers;
    std::size_t point = 0;
    for (std::size_t i = 0; i < polygons.sizes.size(); ++i) {
        const float z = polygons.points[point].z;
        if (layers.empty() || polygons.points[layers.back().first_point].z != z) {
            layers.push_back({i, i, point});
        }
        layers.back().end = i + 1;
        point += polygons.sizes[i];
    }
    return layers;
}

// {"layer_height": 0.2, "layers": [{"z": 0.1, "polygons": [[[x, y], ...], ...]}, ...]}
std::string layers_json(const SlicePolygons& polygons, double layer_height) {
    std::string text = "{\"layer_height\": ";
    add_number(text, static_cast<float>(layer_height));
    text += ", \"layers\": [";
    const char* next_layer = "\n";
    for (const Layer& layer : layers_of(polygons)) {
        text += std::exchange(next_layer, ",\n");
        text += "{\"z\": ";
        add_number(text, polygons.points[layer.first_point].z);
        text += ", \"polygons\": [";
        const Vec3f* point = polygons.points.data() + layer.first_point;
        for (std::size_t i = layer.first; i < layer.end; ++i) {
            text += i == layer.first ? "[" : ", [";
            for (std::uint32_t k = 0; k < polygons.sizes[i]; ++k, ++point) {
                text += k == 0 ? "[" : ", [";
                add_number(text, point->x);
                text += ", ";
                add_number(text, point->y);
                text += "]";
            }
            text += "]";
        }
        text += "]}";
    }
    return text + "\n]}\n";
}

// y goes down in these pictures.
void add_svg_point(std::string& text, double x, double y, bool is_first) {
    text += is_first ? "M" : "L";
    add_number(text, static_cast<float>(x));
    text += " ";
    add_number(text, static_cast<float>(-y));
}

// A picture for each layer in the colours of other pictures: the model's outline and the columns.
class LayerPictures {
public:
    LayerPictures(const TriMesh& model, const TriMesh& tubes, const SlicePolygons& polygons)
        : polygons_(polygons), layers_(layers_of(polygons)) {
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
        for (const Layer& layer : layers_) {
            heights_.push_back(double{polygons.points[layer.first_point].z});
        }
        slicer_.emplace(model, 2, heights_);
    }

    std::size_t size() const { return layers_.size(); }

    std::string picture(std::size_t layer) const {
        std::string text = head_ + "<path fill=\"#d6ccbc\" fill-rule=\"evenodd\" d=\"";
        SliceLoops loops;
        slicer_->slice(layer, loops);
        for (std::size_t l = 0; l < loops.size(); ++l) {
            for (const Point2d& p : loops[l]) add_svg_point(text, p.x, p.y, &p == &loops[l][0]);
            text += "Z";
        }
        text += "\"/>\n<path fill=\"#70a46e\" fill-rule=\"evenodd\" d=\"";
        const Layer& at = layers_[layer];
        const Vec3f* point = polygons_.points.data() + at.first_point;
        for (std::size_t i = at.first; i < at.end; ++i) {
            for (std::uint32_t k = 0; k < polygons_.sizes[i]; ++k, ++point) {
                add_svg_point(text, double{point->x}, double{point->y}, k == 0);
            }
            text += "Z";
        }
        return text + "\"/>\n</svg>\n";
    }

private:
    const SlicePolygons& polygons_;
    std::vector<Layer> layers_;
    Array<double> heights_;
    std::optional<Slicer> slicer_;
    std::string head_;
};

Status write_text(const std::string& path, const std::string& text) {
    ReplacementFile file;
    if (Status status = file.open(path); !status.ok()) return status;
    if (Status status = file.write(text); !status.ok()) return status;
    return file.commit();
}

struct Supports {
    ColumnOptions options;
    double layer_height = 0;
    bool is_sliced = false;
    TriMesh model;  // for the pictures
    TriMesh tubes;
    SlicePolygons polygons;
};

// One line for the user when it fails.
std::string write_layers(const Supports& supports, const Arguments& arguments) {
    if (arguments.has("--layers")) {
        const Status status = write_text(arguments.text("--layers"),
                                         layers_json(supports.polygons, supports.layer_height));
        if (!status.ok()) return status.text();
    }
    if (!arguments.has("--svg")) return {};
    const std::string& folder = arguments.text("--svg");
    if (std::string failure = make_folder(folder); !failure.empty()) return failure;
    const std::string name = fs::path(arguments.text("IN")).stem().string();
    const LayerPictures pictures(supports.model, supports.tubes, supports.polygons);
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        const Status status =
            write_text(numbered(folder, name, i + 1, ".svg"), pictures.picture(i));
        if (!status.ok()) return status.text();
    }
    return {};
}

std::string failure_of(const ColumnOptions& options) {
    return "nothing hangs over that leans out from upright by more than " +
           human_number(options.angle) + " degrees, is 5 units above what is below and about " +
           human_number(options.spacing) + " wide; take a smaller --angle or --spacing";
}

ChangeReport add_supports(TriMesh& mesh, const Arguments& arguments, Supports& supports) {
    ColumnOptions& options = supports.options;
    const Box3f box = finite_bounds(mesh);
    options.plate = box.is_empty() ? 0.0 : double{box.low.z};
    if (arguments.has("--plate")) options.plate = arguments.number("--plate");
    const Timer timer;
    RunLog log;
    RunContext run{{}, log};
    const Array<Column> columns = find_columns(mesh, options, run);
    add_tubes(supports.tubes, columns, column_radius(options.spacing));
    ChangeReport report;
    report.seconds = timer.seconds();
    if (columns.empty()) {
        report.failure = failure_of(options);
        return report;
    }
    double longest = 0;
    std::size_t on_plate = 0;
    for (const Column& column : columns) {
        longest = std::max(longest, double{column.top.z} - double{column.bottom.z});
        on_plate += column.bottom.z == static_cast<float>(options.plate) ? 1 : 0;
    }
    report.rows = {{"columns", with_separators(columns.size())},
                   {"on the plate", with_separators(on_plate)},
                   {"on the model", with_separators(columns.size() - on_plate)},
                   {"longest", human_number(longest)},
                   {"plate at z", human_number(options.plate)}};
    report.json = {{"columns", columns.size()},
                   {"columns_on_plate", on_plate},
                   {"longest", longest},
                   {"plate", options.plate}};
    if (supports.is_sliced) {
        const Timer slicing;
        const Status status =
            slice_columns(mesh, columns, {options.spacing, supports.layer_height, options.plate},
                          run, supports.polygons);
        if (!status.ok()) {
            report.failure = status.text();
            return report;
        }
        const std::size_t layers = layers_of(supports.polygons).size();
        report.rows.emplace_back(
            "layers", with_separators(layers) + " of " + human_number(supports.layer_height));
        report.rows.emplace_back("polygons", with_separators(supports.polygons.sizes.size()));
        report.json["layers"] = layers;
        report.json["polygons"] = supports.polygons.sizes.size();
        report.seconds += slicing.seconds();
    }
    if (arguments.has("--svg")) supports.model = mesh;
    if (arguments.has("--with-model")) {
        append_mesh(mesh, supports.tubes);
    } else {
        mesh = supports.tubes;
    }
    return report;
}

// What is wrong with the options; empty when nothing is.
std::string usage_error(const Arguments& arguments) {
    if (arguments.number("--spacing") < kLeastSpacing) {
        return "support: --spacing takes 0.5 or more; columns are 0.4 apart, so that nothing would "
               "be left of them";
    }
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
    supports.options.spacing = arguments.number("--spacing");
    supports.options.angle = arguments.number("--angle");
    supports.layer_height = arguments.number("--layer-height");
    supports.is_sliced = arguments.has("--svg") || arguments.has("--layers");
    const int status = run_change(arguments, console, [&](TriMesh& mesh, Progress /*progress*/) {
        return add_supports(mesh, arguments, supports);
    });
    if (status != Clean) return status;
    try {
        const std::string failure = write_layers(supports, arguments);
        if (failure.empty()) return Clean;
        console.error(failure);
    } catch (...) {
        console.error(failure_text(arguments.text("IN")));
    }
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
                     .low = 0,
                     .high = 10000,
                     .help = "From column to column along x and y"},
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
