// 3MF packages: bodies with names, colours and textures, placed on a build plate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "base/array.h"
#include "base/status.h"
#include "io/byte_sink.h"
#include "io/byte_source.h"
#include "mesh/tri_mesh.h"

namespace povmesh {

/// A picture file of a package.
struct TextureFile {
    std::string path;  // in the package: "/3D/Textures/wood.png"
    std::string content_type;
    Array<char> content;
};

/// What a label of a mesh stands for.
struct BodyLabel {
    std::size_t body;
    int texture;  // the file that the texture coordinates of its faces refer to; -1 = none
};

/// What a package says beside the mesh.
struct ThreeMfContent {
    std::vector<std::string> bodies;  // their names, which may be empty, in the order of the plate

    /// Of label i, the labels of faces. Empty for one body without textures, whose faces have none.
    std::vector<BodyLabel> labels;
    std::vector<TextureFile> textures;
    std::vector<std::pair<std::string, std::string>> metadata;  // title, designer and the like
};

struct ThreeMfInfo {
    std::size_t triangles = 0;  // before any is dropped for equal corners
    bool has_textures = false;

    /// What a person should know: units converted, what was left out and why.
    std::vector<std::string> warnings;
};

/// Reads all bodies of the build plate into one mesh, in millimetres, and compacts it.
///
/// Components are resolved and placed by their transformations; one that mirrors turns its faces
/// over. A body is a mesh where it is placed; it has the name of its object, or of the one that it
/// is part of. Colours of base materials and colour groups come with the corners, those of other
/// property groups are white. Coordinates that nothing moves become the nearest floats.
///
/// @return  TooLarge; BadFile, with the part and the byte in it, when package or model are damaged,
///          an object is part of itself, something names what is not there, or sizes and counts
///          grow beyond what a model can be; also when no triangle comes out.
/// Memory above the mesh: 36 bytes a triangle and 24 a vertex of the objects, a buffer of 256 KB.
Status read_three_mf(const ByteSource& source, const std::string& name, TriMesh& mesh,
                     ThreeMfContent& content, ThreeMfInfo& info);

/// Writes the live faces in millimetres, an object a body. Faces whose label is in `labels` belong
/// to its body; if there are no labels, or one face has none of them, all faces are one body with
/// the name of the first. Colours, if a face has one other than white, stand in a colour group;
/// texture coordinates of labels with a texture in groups with its file. The same mesh gives the
/// same bytes.
///
/// @param thumbnail  a PNG picture; may be empty
/// @return  CannotWrite, with the reason; the target is then unchanged
/// Memory: the package, about 16 bytes a triangle, 22 bytes a triangle and 2 MB for each thread.
Status write_three_mf(const TriMesh& mesh, const ThreeMfContent& content,
                      const Array<char>& thumbnail, const std::string& name, ByteSink& file);

/// The live faces with vertices that exist, in the order in which they are written, by body.
Array<std::uint32_t> three_mf_order(const TriMesh& mesh, const ThreeMfContent& content);

/// Whether every live face has one of the labels, so that the bodies are written apart.
bool keeps_bodies(const TriMesh& mesh, const ThreeMfContent& content);

}  // namespace povmesh
