// Pictures of meshes: a scene goes in, an image comes out. No graphics card, no display.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/array.h"
#include "base/vec.h"
#include "mesh/tri_mesh.h"
#include "repair/detect.h"

namespace povmesh::picture {

struct Colour {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    friend bool operator==(const Colour&, const Colour&) = default;
};

/// The colours of this project's pictures, so that every one of them speaks the same language.
namespace palette {
constexpr Colour kMaterial{214, 204, 188};    // the outside of a surface
constexpr Colour kSecondary{112, 164, 110};   // a second body beside or inside the first
constexpr Colour kInside{74, 98, 150};        // the inside of a surface, seen through a hole
constexpr Colour kFlipped{222, 52, 44};       // faces that look the wrong way
constexpr Colour kOpen{235, 110, 0};          // edges with one face
constexpr Colour kNonManifold{160, 32, 200};  // edges with more than two
constexpr Colour kDegenerate{0, 150, 170};    // faces without an area
}  // namespace palette

/// Rows from the top, 3 bytes a pixel (red, green, blue), no padding.
struct Image {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    Array<std::uint8_t> rgb;

    Colour at(std::uint32_t x, std::uint32_t y) const {
        const std::size_t i = (std::size_t{y} * width + x) * 3;
        return {rgb[i], rgb[i + 1], rgb[i + 2]};
    }
};

/// Greatest width and height of a picture.
constexpr std::uint32_t kMaxPictureSide = 16384;

/// Where the viewer stands. Z is up; the front of a model is its side towards -y. Front, Back, Left
/// and Right keep z upright; Top has y upright, Bottom -y. Iso looks from the front, right and
/// above.
enum class View { Iso, Front, Back, Left, Right, Top, Bottom };

/// Faces in a colour of their own, from both sides. What is hidden by another part of the scene
/// shines through faintly. Indices that are not there are passed over.
struct FaceMarks {
    Colour colour;
    Array<std::uint32_t> faces;
};

/// Lines along edges, given by their two vertex indices. They lie a little in front of the surface;
/// what is hidden all the same shines through faintly.
struct EdgeMarks {
    Colour colour;
    float thickness = 3;  // pixels
    Array<std::array<std::int32_t, 2>> edges;
};

/// Round dots at places in model coordinates, drawn like lines.
struct PointMarks {
    Colour colour;
    float diameter = 7;  // pixels
    Array<Vec3f> points;
};

/// What is drawn on a mesh. A face in several entries takes the colour of the last.
struct Overlay {
    std::vector<FaceMarks> faces;
    std::vector<EdgeMarks> edges;
    std::vector<PointMarks> points;
};

/// One mesh of a scene. The scene does not own it.
struct Model {
    const TriMesh* mesh = nullptr;
    Colour colour = palette::kMaterial;
    Colour inside = palette::kInside;
    bool use_face_colours = false;  // the mean of each face's corner colours instead of `colour`
    bool colours_inside = false;    // and of `inside`: of faces that tell a value by their colour
    Overlay overlay;
};

using Scene = std::vector<Model>;

struct RenderOptions {
    std::uint32_t width = 1024;   // pixels, 1 to kMaxPictureSide
    std::uint32_t height = 1024;  // pixels, 1 to kMaxPictureSide
    View view = View::Iso;
    bool outlines = true;  // darken where the depth jumps
    Box3d frame;           // must fit into the picture besides the scene; the same box around
                           // everything gives several pictures the same camera
};

/// Draws a scene with a z-buffer and flat shading on a light ground, each pixel the mean of 2 x 2
/// samples. All models share one parallel-projecting camera, which fits their vertices and the
/// frame into the picture with a margin of 4 % of its shorter side. Deleted faces, and faces with a
/// vertex that is missing or not finite, are left out. An empty scene gives the ground alone.
///
/// The same bits every time, on one thread. Time O(vertices + faces + pixels); memory: 16 bytes a
/// vertex, 4 bytes a face of a mesh with marked faces, 3 bytes a pixel and at most 64 MiB for
/// samples (larger pictures are made in strips, each of which goes over all faces).
Image render(const Scene& scene, const RenderOptions& options);

/// The marks for the flaws that `detect` found in a mesh: flipped faces, open and non-manifold
/// edges, and a dot on every degenerate face. Builds the uses of the mesh if they are not there.
Overlay flaw_overlay(TriMesh& mesh, const FlawFaces& flaws);

/// Pixels of the line between two pictures.
constexpr std::uint32_t kLineWidth = 2;

/// Two pictures of the same height with a line between them.
Image beside(const Image& left, const Image& right, std::uint32_t line_width = kLineWidth);

/// The image as a PNG file: 8 bits a channel, sRGB, no alpha. Favours speed over size. Throws
/// std::runtime_error for an image without pixels.
Array<char> encode_png(const Image& image);

}  // namespace povmesh::picture
