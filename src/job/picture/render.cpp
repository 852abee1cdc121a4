// The rasteriser: project once per vertex, then per strip of the picture surfaces, outlines, marks,
// and the mean of each pixel's samples. Coverage is decided by edge functions in whole numbers (J.
// Pineda, A parallel algorithm for polygon rasterization, SIGGRAPH 1988), visibility by a z-buffer
// (E. Catmull, 1974).
//
// A sample is one 64-bit number, its depth above and its colour below, and of two the smaller one
// stays. So what is nearer wins whatever was drawn first, equal depths are decided the same way in
// every order, and depth test and colour write are one access.
#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cmath>
#include <limits>
#include <optional>
#include <span>

#include "base/memory.h"
#include "base/poll.h"
#include "job/picture/camera.h"
#include "job/picture/picture.h"
#include "job/picture/raster.h"

namespace povmesh::picture {
namespace {

// Samples of a strip. 64 MiB hold a picture of 1024 x 1024 whole.
constexpr std::size_t kStripSamples = std::size_t{8} << 20;

using Sample = std::uint64_t;
// Farther away than anything drawn; its depth is the greatest float, so that outlines need no
// exception.
constexpr Sample kGround =
    (Sample{std::bit_cast<std::uint32_t>(std::numeric_limits<float>::max())} << 32) | 0xFFFFFFFFU;

// Colour words: red, green and blue in the low 24 bits. A marked face lacks kUnmarked, so that it
// wins over an unmarked one in the same place.
constexpr std::uint32_t kUnmarked = 1U << 24;
constexpr std::uint32_t kShineThrough = 1U << 25;  // a hidden mark has been mixed in already

constexpr std::uint32_t word_of(Colour colour) {
    return (std::uint32_t{colour.red} << 16) | (std::uint32_t{colour.green} << 8) | colour.blue;
}

Sample sample_of(float depth, std::uint32_t word) {
    return (Sample{std::bit_cast<std::uint32_t>(depth)} << 32) | word;
}

std::uint32_t depth_bits(Sample sample) {
    return static_cast<std::uint32_t>(sample >> 32);
}

// Share `part` of 256 of each channel of `b`, the rest of `a`; `a` keeps its flags.
std::uint32_t mixed(std::uint32_t a, std::uint32_t b, std::uint32_t part) {
    const auto channel = [&](unsigned shift) {
        const std::uint32_t from = (a >> shift) & 255U;
        const std::uint32_t to = (b >> shift) & 255U;
        return ((from * (256 - part) + to * part) >> 8) << shift;
    };
    return (a & 0xFF000000U) | channel(16) | channel(8) | channel(0);
}

// ---- light ----

// Lamps stand still relative to the viewer; their directions, of length 1, point from the model to
// the lamp, x to the right, y down, z away from the viewer. The first lights round the corner ((1 +
// cosine) / 2, squared), so that no side is without shape. Iso shows the sides of a cube at 1.0,
// 0.7 and 0.6.
struct Lamp {
    Vec3d direction;
    double strength;
};
constexpr double kAmbient = 0.42;
constexpr Lamp kKey{{-0.451, -0.651, -0.611}, 0.62};  // above the viewer's left shoulder
constexpr Lamp kFill{{0.799, -0.050, -0.599}, 0.12};  // from the right

// Brightness of a surface whose normal, of any length, looks at the viewer; 256 is the plain
// colour.
std::uint32_t brightness(Vec3d normal) {
    const double size = length(normal);
    const auto cosine = [&](const Lamp& lamp) {
        return size > 0 ? dot(normal, lamp.direction) / size : 0.0;
    };
    const double wrapped = 0.5 + 0.5 * cosine(kKey);
    const double light = kAmbient + kKey.strength * wrapped * wrapped +
                         kFill.strength * std::max(0.0, cosine(kFill));
    return static_cast<std::uint32_t>(light * 256);
}

std::uint32_t lit(std::uint32_t word, std::uint32_t bright) {
    const auto channel = [&](unsigned shift) {
        return std::min(255U, (((word >> shift) & 255U) * bright) >> 8) << shift;
    };
    return (word & 0xFF000000U) | channel(16) | channel(8) | channel(0);
}

// ---- what is drawn ----

constexpr std::uint32_t kNoMark = 0xFFFFFFFFU;

// A model made ready: its vertices on the screen and the marks of its faces.
struct Drawing {
    const Model* model = nullptr;
    Array<ScreenVertex> vertices;
    Array<std::uint32_t> marks;  // colour words by face; empty when there are none
};

Array<std::uint32_t> face_marks(const Model& model) {
    Array<std::uint32_t> marks;
    for (const FaceMarks& group : model.overlay.faces) {
        if (group.faces.empty()) continue;
        if (marks.empty()) marks.assign(model.mesh->faces.size(), kNoMark);
        for (const std::uint32_t face : group.faces) {
            if (face < marks.size()) marks[face] = word_of(group.colour);
        }
    }
    return marks;
}

std::vector<Drawing> project(const Scene& scene, const Camera& camera) {
    std::vector<Drawing> drawings;
    for (const Model& model : scene) {
        Drawing drawing{&model, {}, face_marks(model)};
        const auto& vertices = model.mesh->vertices;
        drawing.vertices.resize(vertices.size());
        for (std::size_t v = 0; v < vertices.size(); ++v) {
            drawing.vertices[v] = camera.project(vertices[v].position());
        }
        drawings.push_back(std::move(drawing));
    }
    return drawings;
}

// A strip of the picture: its samples in rows.
struct Strip {
    SampleArea area;
    Array<Sample> samples;

    void start(const SampleArea& where) {
        area = where;
        const auto columns = static_cast<std::size_t>(area.column_end - area.column_begin);
        const auto rows = static_cast<std::size_t>(area.row_end - area.row_begin);
        samples.assign(columns * rows, kGround);
    }
    Sample* row(std::int32_t row) {
        const auto columns = static_cast<std::size_t>(area.column_end);
        return samples.data() + static_cast<std::size_t>(row - area.row_begin) * columns;
    }
};

// ---- surfaces ----

std::uint32_t mean_colour(const Face& face) {
    const auto mean = [&](std::size_t channel) {
        return static_cast<std::uint8_t>(
            (face.colour[channel] + face.colour[channel + 3] + face.colour[channel + 6] + 1) / 3);
    };
    return word_of({mean(0), mean(1), mean(2)});
}

std::uint32_t surface_colour(const Drawing& drawing, std::size_t face, bool is_inside) {
    if (!drawing.marks.empty() && drawing.marks[face] != kNoMark) return drawing.marks[face];
    const Model& model = *drawing.model;
    if (is_inside && !model.colours_inside) return kUnmarked | word_of(model.inside);
    if (model.use_face_colours) return kUnmarked | mean_colour(model.mesh->faces[face]);
    return kUnmarked | word_of(model.colour);
}

// A triangle that has samples to ask about in a strip, its corners clockwise on the screen.
struct Triangle {
    ScreenVertex a, b, c;
    SampleArea box;
    std::int64_t area;  // twice, above 0
    std::size_t face;
    bool is_inside;  // the face's inside looks at the viewer
};

// False when the face covers no sample of the strip, as far as can be told quickly.
bool set_up(const Drawing& drawing, std::size_t index, const SampleArea& strip,
            Triangle& triangle) {
    const Face& face = drawing.model->mesh->faces[index];
    const std::size_t count = drawing.vertices.size();
    const auto v0 = static_cast<std::uint32_t>(face.vertex[0]);
    const auto v1 = static_cast<std::uint32_t>(face.vertex[1]);
    const auto v2 = static_cast<std::uint32_t>(face.vertex[2]);
    if (face.deleted != 0 || v0 >= count || v1 >= count || v2 >= count) return false;
    const ScreenVertex& a = drawing.vertices[v0];
    const ScreenVertex& b = drawing.vertices[v1];
    const ScreenVertex& c = drawing.vertices[v2];
    if (!a.is_somewhere() || !b.is_somewhere() || !c.is_somewhere()) return false;
    const SampleArea box = box_of(a, b, c, strip);
    if (box.is_empty()) return false;
    const std::int64_t area = double_area(a, b, c);
    // The outside of a face is where its corners run anticlockwise.
    if (area < 0) {
        triangle = {a, c, b, box, -area, index, false};
    } else {
        triangle = {a, b, c, box, area, index, true};
    }
    return area != 0;
}

// The plane of a triangle: depth at a sample = at_origin + per_column * column + per_row * row.
struct Plane {
    Vec3d normal;  // looks at the viewer, of any length
    double at_origin;
    double per_column;
    double per_row;

    explicit Plane(const Triangle& t) {
        const Vec3d ab{double(t.b.x - t.a.x), double(t.b.y - t.a.y), t.b.depth - t.a.depth};
        const Vec3d ac{double(t.c.x - t.a.x), double(t.c.y - t.a.y), t.c.depth - t.a.depth};
        normal = cross(ac, ab);
        const double per_unit = kUnit / static_cast<double>(t.area);
        per_column = normal.x * per_unit;
        per_row = normal.y * per_unit;
        at_origin = t.a.depth - (per_column * t.a.x + per_row * t.a.y) / kUnit;
    }
};

// Calls `put.sample(sample, depth, word)` for every sample of the strip that a triangle covers. The
// word comes from `put.word(triangle, normal)`, asked for when the first covered sample is found.
template <typename Put>
void fill_triangle(const Triangle& t, Strip& strip, const Put& put) {
    std::optional<Plane> plane;
    std::uint32_t word = 0;
    // On a triangle seen from its edge the slopes are huge and rounding throws the depth off.
    const float nearest = std::min({t.a.depth, t.b.depth, t.c.depth});
    const float farthest = std::max({t.a.depth, t.b.depth, t.c.depth});
    for_each_run(t.a, t.b, t.c, t.box, [&](std::int32_t row, std::int32_t begin, std::int32_t end) {
        if (!plane) {
            plane.emplace(t);
            word = put.word(t, plane->normal);
        }
        const auto first =
            static_cast<float>(plane->at_origin + plane->per_row * row + plane->per_column * begin);
        const auto slope = static_cast<float>(plane->per_column);
        Sample* samples = strip.row(row);
        for (std::int32_t column = begin; column < end; ++column) {
            const float depth =
                std::clamp(first + slope * static_cast<float>(column - begin), nearest, farthest);
            put.sample(samples[column], depth, word);
        }
    });
}

// Triangles are set up in groups, and their samples asked for, before the first of a group is
// filled: with faces in random order nearly every access misses the caches, and the misses of a
// group then run side by side: 1.3 million of them take 0.2 s instead of 0.33
// (render_shuffled_rock).
constexpr std::size_t kGroup = 32;
constexpr std::size_t kVerticesAhead = 32;
constexpr std::int32_t kRowsAhead = 4;

// Fills the faces for which `wanted(face)` holds.
template <typename Wanted, typename Put>
void fill_faces(const Drawing& drawing, Strip& strip, const Wanted& wanted, const Put& put) {
    const auto& faces = drawing.model->mesh->faces;
    std::array<Triangle, kGroup> group;
    Poller poller;
    for (std::size_t next = 0; next < faces.size();) {
        poller();
        std::size_t count = 0;
        for (; next < faces.size() && count < kGroup; ++next) {
            if (next + kVerticesAhead < faces.size()) {
                for (const std::int32_t v : faces[next + kVerticesAhead].vertex) {
                    const auto vertex = static_cast<std::uint32_t>(v);
                    if (vertex < drawing.vertices.size()) prefetch(&drawing.vertices[vertex]);
                }
            }
            Triangle& triangle = group[count];
            if (!wanted(next) || !set_up(drawing, next, strip.area, triangle)) continue;
            const SampleArea& box = triangle.box;
            const std::int32_t last = std::min(box.row_end, box.row_begin + kRowsAhead);
            for (std::int32_t row = box.row_begin; row < last; ++row) {
                prefetch(strip.row(row) + box.column_begin);
            }
            ++count;
        }
        for (std::size_t i = 0; i < count; ++i) fill_triangle(group[i], strip, put);
    }
}

// How a face of the surface is put down: lit, in front of what is farther away.
struct SurfacePut {
    const Drawing& drawing;

    std::uint32_t word(const Triangle& triangle, Vec3d normal) const {
        return lit(surface_colour(drawing, triangle.face, triangle.is_inside), brightness(normal));
    }
    static void sample(Sample& sample, float depth, std::uint32_t word) {
        sample = std::min(sample, sample_of(depth, word));
    }
};

void draw_surface(const Drawing& drawing, Strip& strip) {
    fill_faces(
        drawing, strip, [](std::size_t) { return true; }, SurfacePut{drawing});
}

// ---- outlines ----

// A depth jump of the first share of the picture's shorter side begins to darken the nearer sample,
// one of the second darkens it fully.
constexpr float kFaintJump = 0.006F;
constexpr float kFullJump = 0.025F;
constexpr float kOutlineDarkness = 0.5F;

// Depths of a row of samples with one of the ground on either side.
void copy_depths(Strip& strip, std::int32_t row, std::vector<float>& depths) {
    if (row < strip.area.row_begin || row >= strip.area.row_end) {
        std::fill(depths.begin(), depths.end(), std::numeric_limits<float>::max());
        return;
    }
    depths.front() = depths.back() = std::numeric_limits<float>::max();
    const Sample* samples = strip.row(row);
    for (std::size_t i = 0; i + 2 < depths.size(); ++i) {
        depths[i + 1] = std::bit_cast<float>(depth_bits(samples[i]));
    }
}

// By value, which compilers turn into one instruction for several numbers at a time.
float greater(float a, float b) {
    return a > b ? a : b;
}

// How much farther away the surface is at one neighbour than the slope towards the opposite
// neighbour lets expect.
float jump(float neighbour, float here, float opposite) {
    return (neighbour - here) - greater(here - opposite, 0.0F);
}

void draw_outlines(Strip& strip, float shorter_side) {
    const float faint = kFaintJump * shorter_side * kSamples * kUnit;
    const float full = kFullJump * shorter_side * kSamples * kUnit;
    const auto columns = static_cast<std::size_t>(strip.area.column_end);
    std::array<std::vector<float>, 3> rows;
    for (auto& row : rows) row.resize(columns + 2);
    std::vector<float> jumps(columns);
    copy_depths(strip, strip.area.row_begin - 1, rows[0]);
    copy_depths(strip, strip.area.row_begin, rows[1]);
    for (std::int32_t row = strip.area.row_begin; row < strip.area.row_end; ++row) {
        copy_depths(strip, row + 1, rows[2]);
        const float* above = rows[0].data() + 1;
        const float* here = rows[1].data() + 1;
        const float* below = rows[2].data() + 1;
        const float* left = rows[1].data();
        const float* right = rows[1].data() + 2;
        for (std::size_t i = 0; i < columns; ++i) {
            const float across = greater(jump(left[i], here[i], right[i]),  //
                                         jump(right[i], here[i], left[i]));
            const float along = greater(jump(above[i], here[i], below[i]),  //
                                        jump(below[i], here[i], above[i]));
            jumps[i] = greater(across, along);
        }
        Sample* samples = strip.row(row);
        for (std::size_t i = 0; i < columns; ++i) {
            if (!(jumps[i] > faint)) continue;
            const float share = std::min(1.0F, (jumps[i] - faint) / (full - faint));
            const auto bright = static_cast<std::uint32_t>(256 * (1 - kOutlineDarkness * share));
            const auto word = static_cast<std::uint32_t>(samples[i]);
            samples[i] = (samples[i] >> 32 << 32) | lit(word, bright);
        }
        std::swap(rows[0], rows[1]);
        std::swap(rows[1], rows[2]);
    }
}

// ---- lines and dots ----

// Lines and dots come forward by their own thickness (a slope would swallow half of them otherwise)
// and this share of the picture's shorter side.
constexpr double kForward = 0.004;

// Share of 256 with which a hidden mark shines through.
constexpr std::uint32_t kShine = 96;

enum class Layer { Hidden, Visible };

bool is_visible(float depth, Sample behind) {
    return std::bit_cast<std::uint32_t>(depth) <= depth_bits(behind);
}

// Mixes a mark into what hides it, once.
void shine_through(Sample& sample, float depth, std::uint32_t word) {
    if (is_visible(depth, sample) || (sample & kShineThrough) != 0) return;
    const auto front = static_cast<std::uint32_t>(sample);
    sample = (sample >> 32 << 32) | mixed(front, word, kShine) | kShineThrough;
}

// How a marked face is put down behind the surface that hides it.
struct HiddenPut {
    const Drawing& drawing;

    std::uint32_t word(const Triangle& triangle, Vec3d /*normal*/) const {
        return drawing.marks[triangle.face];
    }
    static void sample(Sample& sample, float depth, std::uint32_t word) {
        shine_through(sample, depth, word);
    }
};

void draw_hidden_faces(const Drawing& drawing, Strip& strip) {
    if (drawing.marks.empty()) return;
    const auto is_marked = [&](std::size_t face) { return drawing.marks[face] != kNoMark; };
    fill_faces(drawing, strip, is_marked, HiddenPut{drawing});
}

// A thick line with round ends; a dot when both ends are the same.
class Stroke {
public:
    Stroke(const ScreenVertex& from, const ScreenVertex& to, double thickness, double forward)
        : x_(to_samples(from.x)),
          y_(to_samples(from.y)),
          dx_(to_samples(to.x) - x_),
          dy_(to_samples(to.y) - y_),
          // At least a sample wide, or a thin line would have gaps.
          radius_(std::max(0.75, thickness * kSamples / 2)),
          depth_(from.depth - forward),
          depth_gain_(double{to.depth} - from.depth),
          squared_length_(dx_ * dx_ + dy_ * dy_) {}

    void draw(Strip& strip, Layer layer, std::uint32_t word) const {
        const auto first =
            std::max<std::int32_t>(strip.area.row_begin, whole(std::min(y_, y_ + dy_) - radius_));
        const auto last = std::min<std::int32_t>(strip.area.row_end - 1,
                                                 whole(std::max(y_, y_ + dy_) + radius_) + 1);
        for (std::int32_t row = first; row <= last; ++row) draw_row(strip, row, layer, word);
    }

private:
    static double to_samples(std::int32_t units) { return units / double{kUnit}; }
    static std::int32_t whole(double value) {
        return static_cast<std::int32_t>(std::floor(value));  // a screen coordinate and a radius
    }

    void draw_row(Strip& strip, std::int32_t row, Layer layer, std::uint32_t word) const {
        // The part of the axis that is near enough to this row, and the columns around it.
        double low = 0;
        double high = 1;
        if (std::abs(dy_) > 1e-9) {
            const double at = (row - y_) / dy_;
            const double reach = radius_ * std::sqrt(squared_length_) / (dy_ * dy_);
            low = std::clamp(at - reach, 0.0, 1.0);
            high = std::clamp(at + reach, 0.0, 1.0);
        }
        const double one = x_ + dx_ * low;
        const double other = x_ + dx_ * high;
        const std::int32_t begin =
            std::max(strip.area.column_begin, whole(std::min(one, other) - radius_));
        const std::int32_t end =
            std::min(strip.area.column_end, whole(std::max(one, other) + radius_) + 2);
        Sample* samples = strip.row(row);
        for (std::int32_t column = begin; column < end; ++column) {
            const double px = column - x_;
            const double py = row - y_;
            const double t = squared_length_ > 0
                                 ? std::clamp((px * dx_ + py * dy_) / squared_length_, 0.0, 1.0)
                                 : 0.0;
            const double ox = px - dx_ * t;
            const double oy = py - dy_ * t;
            if (ox * ox + oy * oy > radius_ * radius_) continue;
            const auto depth = std::max(0.0F, static_cast<float>(depth_ + depth_gain_ * t));
            put(samples[column], depth, layer, word);
        }
    }

    static void put(Sample& sample, float depth, Layer layer, std::uint32_t word) {
        if (layer == Layer::Hidden) {
            shine_through(sample, depth, word);
        } else if (is_visible(depth, sample)) {
            sample = sample_of(depth, word);
        }
    }

    double x_, y_;    // samples
    double dx_, dy_;  // samples
    double radius_;   // samples
    double depth_;
    double depth_gain_;
    double squared_length_;
};

// Sizes of marks beyond this are a mistake, and the screen coordinates of a stroke must stay in
// range.
double usable_size(float pixels) {
    return std::isfinite(pixels) ? std::clamp(double{pixels}, 0.0, double{kMaxPictureSide}) : 0.0;
}

void draw_marks(const Drawing& drawing, const Camera& camera, double shorter_side, Layer layer,
                Strip& strip) {
    const auto forward = [&](double thickness) {
        return (thickness + kForward * shorter_side) * kSamples * kUnit;
    };
    const Overlay& overlay = drawing.model->overlay;
    for (const EdgeMarks& marks : overlay.edges) {
        const double thickness = usable_size(marks.thickness);
        for (const auto& [v0, v1] : marks.edges) {
            const auto from = static_cast<std::uint32_t>(v0);
            const auto to = static_cast<std::uint32_t>(v1);
            if (std::max(from, to) >= drawing.vertices.size()) continue;
            const ScreenVertex& a = drawing.vertices[from];
            const ScreenVertex& b = drawing.vertices[to];
            if (!a.is_somewhere() || !b.is_somewhere()) continue;
            Stroke(a, b, thickness, forward(thickness)).draw(strip, layer, word_of(marks.colour));
        }
    }
    for (const PointMarks& marks : overlay.points) {
        const double diameter = usable_size(marks.diameter);
        for (const Vec3f point : marks.points) {
            const ScreenVertex p = camera.project(point);
            if (!p.is_somewhere()) continue;
            Stroke(p, p, diameter, forward(diameter)).draw(strip, layer, word_of(marks.colour));
        }
    }
}

// ---- from samples to pixels ----

// The ground is lighter above, like a sheet of paper that curves up.
constexpr Colour kGroundTop{252, 252, 252};
constexpr Colour kGroundBottom{226, 230, 235};

std::uint32_t ground_colour(std::uint32_t row, std::uint32_t height) {
    const std::uint32_t part = height > 1 ? row * 256 / (height - 1) : 0;
    return mixed(word_of(kGroundTop), word_of(kGroundBottom), part);
}

void resolve_row(Strip& strip, std::uint32_t row, std::uint32_t ground, std::uint8_t* pixels) {
    static_assert(kSamples == 2);
    const auto upper_row = static_cast<std::int32_t>(row) * kSamples;
    const Sample* upper = strip.row(upper_row);
    const Sample* lower = strip.row(upper_row + 1);
    const auto columns = static_cast<std::size_t>(strip.area.column_end);
    for (std::size_t column = 0; column < columns; column += 2) {
        // Red and blue are summed in one number, 16 bits apart.
        std::uint32_t red_blue = 0x00020002U;
        std::uint32_t green = 2;
        for (const Sample sample :
             {upper[column], upper[column + 1], lower[column], lower[column + 1]}) {
            const std::uint32_t word =
                sample == kGround ? ground : static_cast<std::uint32_t>(sample);
            red_blue += word & 0x00FF00FFU;
            green += (word >> 8) & 0xFFU;
        }
        *pixels++ = static_cast<std::uint8_t>(red_blue >> 18);
        *pixels++ = static_cast<std::uint8_t>(green >> 2);
        *pixels++ = static_cast<std::uint8_t>(red_blue >> 2);
    }
}

}  // namespace

Image render(const Scene& scene, const RenderOptions& options) {
    assert(options.width >= 1 && options.width <= kMaxPictureSide);
    assert(options.height >= 1 && options.height <= kMaxPictureSide);
    Image image;
    image.width = options.width;
    image.height = options.height;
    const std::size_t row_bytes = std::size_t{options.width} * 3;
    image.rgb.resize(row_bytes * options.height);

    const Camera camera(scene, options);
    const std::vector<Drawing> drawings = project(scene, camera);
    const auto shorter_side = static_cast<float>(std::min(options.width, options.height));
    const auto columns = static_cast<std::int32_t>(options.width) * kSamples;
    const auto rows = static_cast<std::int32_t>(options.height) * kSamples;
    const auto strip_height = static_cast<std::uint32_t>(
        std::max<std::size_t>(1, kStripSamples / kSamples / static_cast<std::size_t>(columns)));

    Strip strip;
    for (std::uint32_t top = 0; top < options.height; top += strip_height) {
        const std::uint32_t bottom = std::min(options.height, top + strip_height);
        // One more row of samples on either side: outlines look at their neighbours.
        poll();
        strip.start({0, columns, std::max(0, static_cast<std::int32_t>(top) * kSamples - 1),
                     std::min(rows, static_cast<std::int32_t>(bottom) * kSamples + 1)});
        for (const Drawing& drawing : drawings) draw_surface(drawing, strip);
        if (options.outlines) draw_outlines(strip, shorter_side);
        for (const Drawing& drawing : drawings) draw_hidden_faces(drawing, strip);
        for (const Layer layer : {Layer::Hidden, Layer::Visible}) {
            for (const Drawing& drawing : drawings) {
                draw_marks(drawing, camera, shorter_side, layer, strip);
            }
        }
        for (std::uint32_t row = top; row < bottom; ++row) {
            resolve_row(strip, row, ground_colour(row, options.height),
                        image.rgb.data() + row * row_bytes);
        }
    }
    return image;
}

}  // namespace povmesh::picture
