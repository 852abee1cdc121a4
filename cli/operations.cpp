#include "cli/operations.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

#include "cli/commands.h"

namespace povmesh::cli {
namespace {

bool parse_positive(std::string_view text, int& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number > 0;
}

std::string whole(double number) {
    return std::to_string(static_cast<long long>(number));
}

// "16 to 8192", "at least 0".
std::string range(const OptionSpec& option) {
    if (option.high == kNoLimit) return "at least " + whole(option.low);
    return whole(option.low) + " to " + whole(option.high);
}

std::string join(std::span<const std::string_view> words, std::string_view between) {
    std::string text;
    for (const std::string_view word : words) {
        if (!text.empty()) text += between;
        text += word;
    }
    return text;
}

// What most operations take.

constexpr PositionalSpec kModelFile = {"IN", false, "STL file, binary or ASCII, or OBJ file"};

OptionSpec output(std::string_view placeholder, std::string_view help) {
    return {.name = "--output",
            .short_name = "-o",
            .type = ValueType::Text,
            .placeholder = placeholder,
            .is_required = true,
            .help = help};
}

OptionSpec model_output() {
    return output("OUT", "File to write; its name ends in .stl or .obj");
}

OptionSpec json_object() {
    return {.name = "--json", .help = "Print one JSON object"};
}

}  // namespace

std::span<const OptionSpec> common_options() {
    static const std::array<OptionSpec, 1> options = {
        OptionSpec{.name = "--quiet",
                   .short_name = "-q",
                   .help = "Print results and errors only: no warnings, no progress"}};
    return options;
}

std::span<const ExitStatusSpec> exit_statuses() {
    static constexpr std::array<ExitStatusSpec, 5> kStatuses = {{
        {Clean, "done, and nothing is wrong"},
        {Flawed, "a model has flaws, or nothing would be left of it"},
        {Usage, "the command line is wrong"},
        {CannotRead, "a file cannot be read, or is not a model"},
        {CannotWrite, "a result cannot be written"},
    }};
    return kStatuses;
}

std::span<const OperationSpec> operations() {
    static const std::array<OperationSpec, 16> table = {
        OperationSpec{
            .name = "check",
            .summary = "Tell whether models are fit to print",
            .description =
                "Reads each file and prints its size, its volume, the flaws that a printer trips "
                "over, where they are and what repair would do about them.",
            .positionals = {{"FILE", true, "STL files, binary or ASCII, and OBJ files"}},
            .options = {{.name = "--json",
                         .help = "Print one JSON array with an object for each file"},
                        {.name = "--self-intersections",
                         .help = "Count faces that cut through each other also in models of more "
                                 "than 2,000,000 triangles"}},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_check},
        OperationSpec{
            .name = "repair",
            .summary = "Make a model fit to print",
            .description =
                "Removes duplicate faces, closes holes of up to 50 edges and turns faces outward; "
                "cavities stay cavities. Reads the result back and prints what was wrong, what was "
                "done and what is left. IN and OUT may be the same file; OUT is replaced only when "
                "the new content is complete.",
            .positionals = {kModelFile},
            .options = {model_output(),
                        {.name = "--drop-tiny",
                         .type = ValueType::Number,
                         .placeholder = "VOLUME",
                         .unit = "cubed units of the file",
                         .low = 0,
                         .high = kNoLimit,
                         .help = "Drop shells that are smaller than a cube of this volume, in "
                                 "volume and in area"},
                        {.name = "--outward", .help = "Turn cavities outward, too"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_repair},
        OperationSpec{
            .name = "split",
            .summary = "Write each model of a file as a file of its own",
            .description =
                "Shells that touch or cut through each other are one model, and a cavity goes with "
                "the body around it. Writes DIR/NAME_001.stl and so on, NAME being that of IN.",
            .positionals = {kModelFile},
            .options = {output("DIR", "Folder to write to; it is made when it is not there"),
                        {.name = "--min-volume",
                         .type = ValueType::Number,
                         .placeholder = "VOLUME",
                         .unit = "cubed units of the file",
                         .default_value = "0",
                         .low = 0,
                         .high = kNoLimit,
                         .help = "Leave out models of less volume"},
                        {.name = "--format",
                         .type = ValueType::Choice,
                         .placeholder = "FORMAT",
                         .choices = {"stl", "obj"},
                         .help = "Format to write, by default that of IN"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_split},
        OperationSpec{
            .name = "cut",
            .summary = "Divide a model with a plane",
            .description =
                "Cuts each model that the plane divides and closes the openings, so that the "
                "pieces "
                "of a closed model are closed. Writes DIR/NAME_001.stl and so on, NAME being that "
                "of IN: of each model first the piece that the normal points away from.",
            .positionals = {kModelFile},
            .options = {output("DIR", "Folder to write to; it is made when it is not there"),
                        {.name = "--normal",
                         .type = ValueType::Vector,
                         .placeholder = "X,Y,Z",
                         .default_value = "0,0,1",
                         .help = "Normal of the plane, of any length"},
                        {.name = "--point",
                         .type = ValueType::Vector,
                         .placeholder = "X,Y,Z",
                         .unit = "units of the file",
                         .help = "A point of the plane, by default the middle of the model"},
                        {.name = "--no-caps", .help = "Leave the openings open"},
                        {.name = "--mirror",
                         .help =
                             "Keep the side that the normal points to and add its mirror image"},
                        {.name = "--pegs",
                         .type = ValueType::Number,
                         .placeholder = "COUNT",
                         .default_value = "0",
                         .low = 0,
                         .high = 256,
                         .help = "Pegs on the first piece of each model cut, with sockets in the "
                                 "other that are larger by 0.2"},
                        {.name = "--peg-radius",
                         .type = ValueType::Number,
                         .placeholder = "RADIUS",
                         .unit = "units of the file",
                         .default_value = "2",
                         .low = 0,
                         .high = kNoLimit,
                         .help = "Radius of the pegs, which are up to twice as long"},
                        {.name = "--format",
                         .type = ValueType::Choice,
                         .placeholder = "FORMAT",
                         .choices = {"stl", "obj"},
                         .help = "Format to write, by default that of IN"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_cut},
        OperationSpec{
            .name = "reduce",
            .summary = "Make a model of fewer triangles",
            .description =
                "Collapses edges where the surface changes least. Open borders stay, and so do the "
                "borders of colours and of texture coordinates. Give one of --keep, --faces and "
                "--auto. Reads the result back and prints what ended the reduction.",
            .positionals = {kModelFile},
            .options = {model_output(),
                        {.name = "--keep",
                         .type = ValueType::Number,
                         .placeholder = "SHARE",
                         .low = 0,
                         .high = 1,
                         .help = "Share of the triangles of each shell that shall stay"},
                        {.name = "--faces",
                         .type = ValueType::Number,
                         .placeholder = "COUNT",
                         .unit = "triangles",
                         .low = 1,
                         .high = kNoLimit,
                         .help = "How many shall stay, every shell keeping the same share"},
                        {.name = "--auto",
                         .help = "Reduce shells of more than 100,000 triangles to these and 30 % "
                                 "of the rest, turning no face by more than 9.9 degrees"},
                        {.name = "--measure", .help = "Print how far the result is from the model"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_reduce},
        OperationSpec{
            .name = "remesh",
            .summary = "Make the triangles of a model even",
            .description =
                "Makes new triangles on the same surface, all of about the same edge length. Edges "
                "sharper than 40 degrees, open borders and the borders of labels and texture maps "
                "stay. Reads the result back and prints edges, angles and the distance.",
            .positionals = {kModelFile},
            .options = {model_output(),
                        {.name = "--edge",
                         .type = ValueType::Number,
                         .placeholder = "LENGTH",
                         .unit = "units of the file",
                         .low = 0,
                         .high = kNoLimit,
                         .is_required = true,
                         .help = "Length that the edges shall have, above 0"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_remesh},
        OperationSpec{
            .name = "revise",
            .summary = "Mend triangles of bad shape and leave the others alone",
            .description =
                "Collapses needles, whose one edge is under 1/20 of the others, and turns or "
                "splits away caps, which have an angle above 170 degrees. The surface moves by at "
                "most 1/1000 of the model's diagonal. Reads the result back and prints how many "
                "were and are left.",
            .positionals = {kModelFile},
            .options = {model_output(), json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_revise},
        OperationSpec{
            .name = "subdivide",
            .summary = "Smooth a model and give it more triangles",
            .description =
                "Loop subdivision. A level makes four triangles of one where it splits all edges; "
                "open borders keep their places. Reads the result back.",
            .positionals = {kModelFile},
            .options = {model_output(),
                        {.name = "--levels",
                         .type = ValueType::Choice,
                         .placeholder = "LEVELS",
                         .default_value = "1",
                         .choices = {"1", "2", "3", "4", "5"},
                         .help = "How many times"},
                        {.name = "--mode",
                         .type = ValueType::Choice,
                         .placeholder = "MODE",
                         .default_value = "uniform",
                         .choices = {"uniform", "adaptive", "smooth"},
                         .help = "Split all edges, only those longer than average, or none"},
                        json_object()},
            .statuses = {Clean, Usage, CannotRead, CannotWrite},
            .run = run_subdivide},
        OperationSpec{
            .name = "hollow",
            .summary = "Make a shell of a solid model",
            .description =
                "Finds the cavity that leaves a wall of the thickness, and writes the model with "
                "it. "
                "Works on voxels of 0.4 to 2 units, so that the wall is right within about 1.4 of "
                "them; a wall is at least 0.5 thick.",
            .positionals = {kModelFile},
            .options = {model_output(),
                        {.name = "--thickness",
                         .type = ValueType::Number,
                         .placeholder = "THICKNESS",
                         .unit = "units of the file",
                         .low = 0,
                         .high = kNoLimit,
                         .is_required = true,
                         .help = "Thickness of the wall"},
                        {.name = "--drain",
                         .type = ValueType::Circle,
                         .placeholder = "X,Y,Z,R",
                         .unit = "units of the file",
                         .takes_several = true,
                         .help =
                             "Cut a round hole of radius R through the wall at the place X,Y,Z on "
                             "the surface; may be given several times"},
                        {.name = "--cavity-only",
                         .help = "Write the surface of the cavity alone, its outside out"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_hollow},
        OperationSpec{
            .name = "infill",
            .summary = "Take material out of a solid model in closed cells",
            .description = "Fills the inside of the model, below a skin, with cells that have "
                           "walls between them, and "
                           "writes the model with the largest of them taken out, as many as the "
                           "density allows. "
                           "Works on voxels of 0.25 to 1 unit; walls are two voxels thick.",
            .positionals = {kModelFile},
            .options = {model_output(),
                        {.name = "--skin",
                         .type = ValueType::Number,
                         .placeholder = "THICKNESS",
                         .unit = "units of the file",
                         .low = 0,
                         .high = kNoLimit,
                         .is_required = true,
                         .help = "Thickness of the skin above the cells"},
                        {.name = "--density",
                         .type = ValueType::Number,
                         .placeholder = "SHARE",
                         .low = 0,
                         .high = 1,
                         .is_required = true,
                         .help = "Share of what lies below the skin that stays material"},
                        {.name = "--cells-only",
                         .help = "Write the surfaces of the cells alone, their outside out"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_infill},
        OperationSpec{
            .name = "voxelize",
            .summary = "Make a model of cubes",
            .description = "Writes the surface of the cubes that the model fills. What the model "
                           "encloses counts "
                           "as filled, but for cavities; colours of OBJ files are kept.",
            .positionals = {kModelFile},
            .options = {model_output(),
                        {.name = "--size",
                         .type = ValueType::Number,
                         .placeholder = "SIZE",
                         .unit = "units of the file",
                         .low = 0,
                         .high = kNoLimit,
                         .is_required = true,
                         .help = "Edge of a cube; raised where more than 792 would lie along x or "
                                 "y"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_voxelize},
        OperationSpec{
            .name = "support",
            .summary = "Make columns that hold up what hangs over",
            .description = "Finds what leans out over free space and puts square columns below it, "
                           "down to the "
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
            .run = run_support},
        OperationSpec{
            .name = "strength",
            .summary = "Colour a model where it is weak",
            .description =
                "Holds the lowest layer of the model, loads it and finds by finite elements where "
                "it is strained, or looks for thin cross-sections. Writes the model in even "
                "triangles, coloured from blue (strong) to red (weak), and tells the weakest "
                "places.",
            .positionals = {kModelFile},
            .options = {output("OUT", "File to write; its name ends in .obj"),
                        {.name = "--method",
                         .type = ValueType::Choice,
                         .placeholder = "METHOD",
                         .default_value = "fem",
                         .choices = {"fem", "sections"},
                         .help = "Finite elements, or thin cross-sections"},
                        {.name = "--load",
                         .type = ValueType::Choice,
                         .placeholder = "LOAD",
                         .default_value = "top",
                         .choices = {"top", "all", "centre", "gravity", "bottom", "right", "left",
                                     "back", "front", "ends-x", "ends-y", "spots", "points"},
                         .help = "Pressure from the top, all sides or one side, a force on the "
                                 "centre or the ends of the top, or the own weight; for fem"},
                        {.name = "--render",
                         .type = ValueType::Text,
                         .placeholder = "PNG",
                         .help = "Draw a picture with a legend, too"},
                        json_object()},
            .statuses = {Clean, Flawed, Usage, CannotRead, CannotWrite},
            .run = run_strength},
        OperationSpec{
            .name = "convert",
            .summary = "Write a model in another format",
            .description =
                "Reads STL, binary or ASCII, or OBJ and writes binary STL or OBJ. IN and OUT may "
                "be the same file; OUT is replaced only when the new content is complete.",
            .positionals = {kModelFile,
                            {"OUT", false, "File to write; its name ends in .stl or .obj"}},
            .statuses = {Clean, Usage, CannotRead, CannotWrite},
            .run = run_convert},
        OperationSpec{
            .name = "render",
            .summary = "Draw a picture of a model",
            .description =
                "Draws the models together in parallel projection and writes a PNG file.",
            .positionals = {{"FILE", true, "STL files, binary or ASCII, and OBJ files"}},
            .options = {output("PNG", "File to write; its name ends in .png"),
                        {.name = "--size",
                         .type = ValueType::PixelSize,
                         .placeholder = "WIDTHxHEIGHT",
                         .unit = "pixels",
                         .default_value = "800x600",
                         .low = 16,
                         .high = 8192,
                         .help = "Size of the picture"},
                        {.name = "--view",
                         .type = ValueType::Choice,
                         .placeholder = "VIEW",
                         .default_value = "iso",
                         .choices = {"iso", "front", "back", "left", "right", "top", "bottom"},
                         .help = "Side to look from; z is up, front looks along y"},
                        {.name = "--compare",
                         .type = ValueType::Text,
                         .placeholder = "OTHER",
                         .help = "Draw another model, seen the same way, on the right"},
                        {.name = "--supports",
                         .type = ValueType::Text,
                         .placeholder = "SUPPORTS",
                         .help = "Draw another model, such as supports, with the others, in green"},
                        {.name = "--explode",
                         .help = "Pull the models apart, each body for itself, in two colours by "
                                 "turns"},
                        {.name = "--section",
                         .type = ValueType::Text,
                         .placeholder = "AXIS[=VALUE]",
                         .help = "Cut the models open across x, y or z, through the middle of the "
                                 "picture or at VALUE"},
                        {.name = "--flaws", .help = "Draw the flaws in colour, print the legend"}},
            .statuses = {Clean, Usage, CannotRead, CannotWrite},
            .run = run_render},
        OperationSpec{.name = "version",
                      .summary = "Print the version and how the tool was built",
                      .statuses = {Clean, Usage, CannotWrite},
                      .run = run_version},
    };
    return table;
}

std::string full_help(const OptionSpec& option) {
    std::string notes;
    const auto note = [&](const std::string& text) { notes += (notes.empty() ? "" : ", ") + text; };
    if (!option.unit.empty()) note(std::string(option.unit));
    if (!option.choices.empty()) note("one of " + join(option.choices, " "));
    if (option.low < option.high) note(range(option));
    if (!option.default_value.empty()) note("default " + std::string(option.default_value));
    if (option.is_required) note("must be given");
    return std::string(option.help) + (notes.empty() ? "" : " (" + notes + ")");
}

std::string value_error(const OptionSpec& option, const std::string& value) {
    if (option.type == ValueType::Choice &&
        std::find(option.choices.begin(), option.choices.end(), value) == option.choices.end()) {
        return "'" + value + "' is not one of " + join(option.choices, ", ");
    }
    if (option.type == ValueType::PixelSize) {
        const auto in_range = [&](int n) { return n >= option.low && n <= option.high; };
        const PixelSize size = parse_pixel_size(value);
        if (!in_range(size.width) || !in_range(size.height)) {
            return "'" + value + "' is not " + std::string(option.placeholder) + " with " +
                   whole(option.low) + " to " + whole(option.high) + " " +
                   std::string(option.unit) + " each";
        }
    }
    if (option.type == ValueType::Vector && std::isnan(parse_vector(value).x)) {
        return "'" + value + "' is not three numbers with commas between them, such as 0,0,1";
    }
    if (option.type == ValueType::Circle && !(parse_circle(value).radius > 0)) {
        return "'" + value +
               "' is not a place and a radius above 0, four numbers with commas between " +
               "them, such as 0,0,-10,1.5";
    }
    if (option.type == ValueType::Number) {
        const double number = parse_number(value);
        if (!(number >= option.low && number <= option.high)) {
            return "'" + value + "' is not a number of " + range(option);
        }
    }
    return {};
}

double parse_number(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number =
        error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
    return is_number ? number : std::numeric_limits<double>::quiet_NaN();
}

namespace {

// Those between commas; none when one of them is no number.
std::vector<double> parse_numbers(std::string_view text) {
    std::vector<double> numbers;
    for (;;) {
        const std::size_t comma = std::min(text.find(','), text.size());
        numbers.push_back(parse_number(text.substr(0, comma)));
        if (std::isnan(numbers.back())) return {};
        if (comma == text.size()) return numbers;
        text.remove_prefix(comma + 1);
    }
}

}  // namespace

Vec3d parse_vector(std::string_view text) {
    const std::vector<double> numbers = parse_numbers(text);
    if (numbers.size() != 3) {
        constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
        return {kNone, kNone, kNone};
    }
    return {numbers[0], numbers[1], numbers[2]};
}

Circle parse_circle(std::string_view text) {
    const std::vector<double> numbers = parse_numbers(text);
    if (numbers.size() != 4 || !(numbers[3] > 0)) return {};
    return {{numbers[0], numbers[1], numbers[2]}, numbers[3]};
}

PixelSize parse_pixel_size(std::string_view text) {
    const std::size_t cross = text.find('x');
    PixelSize size;
    if (cross == std::string_view::npos || !parse_positive(text.substr(0, cross), size.width) ||
        !parse_positive(text.substr(cross + 1), size.height)) {
        return {};
    }
    return size;
}

}  // namespace povmesh::cli
