// The model is read as it stands, what is to be made of it is counted, and only then placed.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <string_view>

#include "base/convert.h"
#include "io/file.h"
#include "io/three_mf.h"
#include "io/three_mf_model.h"
#include "io/zip_package.h"
#include "mesh/compact.h"

namespace povmesh {
namespace {

constexpr std::size_t kDeepest = 100;  // objects within each other

// A plate may hold a part many times, but files of a few bytes that mean to fill the memory make
// thousands of copies of copies.
constexpr std::uint64_t kMostCopies = 1000000;
constexpr std::uint64_t kHarmlessTriangles = 20000000;
constexpr std::uint64_t kHighestGrowth = 1000;

constexpr std::uint64_t kMostTextureBytes = std::uint64_t{1} << 30;

bool is_identity(const Placement& placement) {
    return placement.rows == Placement{}.rows;
}

// First `inner`, then `outer`.
Placement combined(const Placement& inner, const Placement& outer) {
    if (is_identity(inner)) return outer;
    Placement result;
    for (std::size_t r = 0; r < 4; ++r) {
        for (std::size_t c = 0; c < 3; ++c) {
            double sum = r == 3 ? outer.rows[3][c] : 0;
            for (std::size_t k = 0; k < 3; ++k) sum += inner.rows[r][k] * outer.rows[k][c];
            result.rows[r][c] = sum;
        }
    }
    return result;
}

double determinant(const Placement& placement) {
    const auto& m = placement.rows;
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

class Plate {
public:
    Plate(ThreeMfModel& model, const std::string& name, TriMesh& mesh, ThreeMfContent& content,
          ThreeMfInfo& info)
        : model_(model),
          name_(name),
          mesh_(mesh),
          content_(content),
          info_(info),
          counts_(model.objects.size()) {}

    Status run() {
        std::uint64_t copies = 0;
        std::uint64_t triangles = 0;
        for (const PlacedObject& item : model_.items) {
            if (Status status = count(item.object, 0); !status.ok()) return status;
            copies = std::min(copies + counts_[item.object].copies, kMany);
            triangles = std::min(triangles + counts_[item.object].triangles, kMany);
        }
        if (copies > kMostCopies ||
            (triangles > kHarmlessTriangles &&
             triangles / kHighestGrowth > std::max<std::uint64_t>(model_.faces.size(), 1))) {
            return bad("its components and items make " + std::to_string(copies) + " copies and " +
                       std::to_string(triangles) + " triangles of " +
                       std::to_string(model_.faces.size()) + "; no print is made of so many");
        }
        if (triangles > kMaxFaceCount) {
            return {StatusCode::TooLarge, one_line(name_) + ": " + std::to_string(triangles) +
                                              " triangles, more than a mesh can number; divide it"};
        }
        is_taken_ = holds_each_once();
        if (is_taken_) {
            mesh_.faces = std::move(model_.faces);
        } else {
            mesh_.faces.reserve(static_cast<std::size_t>(triangles));
        }
        Placement millimetres;
        for (std::size_t i = 0; i < 3; ++i) millimetres.rows[i][i] = model_.to_millimetres;
        for (const PlacedObject& item : model_.items) {
            if (Status status =
                    place(item.object, combined(item.placement, millimetres), std::string());
                !status.ok()) {
                return status;
            }
        }
        drop_single_label();
        info_.triangles = mesh_.faces.size();
        return {};
    }

private:
    static constexpr std::uint64_t kMany = std::uint64_t{1} << 60;

    struct Count {
        std::uint64_t copies = 0;
        std::uint64_t triangles = 0;
        bool is_known = false;
        bool is_open = false;
    };

    Status bad(const std::string& what) const {
        return {StatusCode::BadFile, one_line(name_) + ": " + what};
    }

    // What an object comes to with all its components.
    Status count(std::size_t index, std::size_t depth) {
        const ThreeMfObject& object = model_.objects[index];
        if (counts_[index].is_known) return {};
        if (counts_[index].is_open) {
            return bad("object " + std::to_string(object.id) + " is a component of itself");
        }
        if (depth > kDeepest) {
            return bad("components stand more than " + std::to_string(kDeepest) +
                       " deep in each other");
        }
        counts_[index].is_open = true;
        Count total{1, object.face_count};
        for (const PlacedObject& component : object.components) {
            if (Status status = count(component.object, depth + 1); !status.ok()) return status;
            const Count& part = counts_[component.object];
            total.copies = std::min(total.copies + part.copies, kMany);
            total.triangles = std::min(total.triangles + part.triangles, kMany);
        }
        total.is_known = true;
        counts_[index] = total;
        return {};
    }

    // Whether every object is placed once and in the order of the file, as in most files: then the
    // faces need no copy.
    bool holds_each_once() const {
        std::size_t face = 0;
        for (const PlacedObject& item : model_.items) {
            if (!goes_on(item.object, face)) return false;
        }
        return face == model_.faces.size();
    }

    bool goes_on(std::size_t index, std::size_t& face) const {
        const ThreeMfObject& object = model_.objects[index];
        if (object.is_other || (object.face_count > 0 && object.first_face != face)) return false;
        face += object.face_count;
        return std::all_of(
            object.components.begin(), object.components.end(),
            [&](const PlacedObject& component) { return goes_on(component.object, face); });
    }

    Status place(std::size_t index, const Placement& placement, const std::string& name_above) {
        const ThreeMfObject& object = model_.objects[index];
        if (object.is_other) {
            info_.warnings.push_back("object " + std::to_string(object.id) +
                                     " is of type \"other\", no part of the print; left out");
            return {};
        }
        const std::string& name = object.name.empty() ? name_above : object.name;
        if (object.face_count > 0) {
            if (Status status = add_body(object, placement, name); !status.ok()) return status;
        }
        for (const PlacedObject& component : object.components) {
            if (Status status =
                    place(component.object, combined(component.placement, placement), name);
                !status.ok()) {
                return status;
            }
        }
        return {};
    }

    Status add_body(const ThreeMfObject& object, const Placement& placement,
                    const std::string& name) {
        constexpr std::size_t kMaxVertexCount = std::numeric_limits<std::int32_t>::max();
        const std::size_t base = mesh_.vertices.size();
        if (base + object.point_count > kMaxVertexCount) {
            return {StatusCode::TooLarge,
                    one_line(name_) + ": more vertices than a mesh can number; divide it"};
        }
        const bool is_moved = !is_identity(placement);
        const auto& m = placement.rows;
        mesh_.vertices.resize(base + object.point_count);
        for (std::size_t i = 0; i < object.point_count; ++i) {
            Vec3d p = model_.points[object.first_point + i];
            if (is_moved) {
                p = {p.x * m[0][0] + p.y * m[1][0] + p.z * m[2][0] + m[3][0],
                     p.x * m[0][1] + p.y * m[1][1] + p.z * m[2][1] + m[3][1],
                     p.x * m[0][2] + p.y * m[1][2] + p.z * m[2][2] + m[3][2]};
            }
            mesh_.vertices[base + i] = {narrow_to_float(p.x), narrow_to_float(p.y),
                                        narrow_to_float(p.z), static_cast<std::int32_t>(base + i)};
        }
        const bool is_mirrored = determinant(placement) < 0;
        const std::size_t body = content_.bodies.size();
        content_.bodies.push_back(name);
        last_texture_ = kNoneYet;
        for (std::size_t i = 0; i < object.face_count; ++i) {
            const std::size_t f = object.first_face + i;
            Face& face = is_taken_ ? mesh_.faces[f] : mesh_.faces.emplace_back(model_.faces[f]);
            for (std::int32_t& v : face.vertex) v += static_cast<std::int32_t>(base);
            const int texture = face.label;
            face.label = label_of(body, texture);
            if (is_mirrored) {
                std::swap(face.vertex[0], face.vertex[1]);
                std::swap(face.uv[0], face.uv[1]);
                std::swap_ranges(face.colour.begin(), face.colour.begin() + 3,
                                 face.colour.begin() + 3);
            }
        }
        return {};
    }

    // The label for a texture of the body at hand, which is the last one.
    std::int16_t label_of(std::size_t body, int texture) {
        if (texture == last_texture_) return last_label_;
        last_texture_ = texture;
        last_label_ = -1;
        std::size_t first = content_.labels.size();
        while (first > 0 && content_.labels[first - 1].body == body) --first;
        for (std::size_t i = first; i < content_.labels.size(); ++i) {
            if (content_.labels[i].texture == texture) last_label_ = static_cast<std::int16_t>(i);
        }
        if (last_label_ >= 0) return last_label_;
        if (content_.labels.size() > std::numeric_limits<std::int16_t>::max()) {
            has_too_many_ = true;
            return -1;
        }
        last_label_ = static_cast<std::int16_t>(content_.labels.size());
        content_.labels.push_back({body, texture});
        return last_label_;
    }

    // One body without textures needs no label; of more than there are labels none has one.
    void drop_single_label() {
        if (has_too_many_) {
            info_.warnings.push_back("more than 32,768 bodies; they are taken for one");
            content_.bodies.resize(1);
        }
        const bool is_plain = content_.labels.size() == 1 && content_.labels[0].texture < 0;
        if (!has_too_many_ && !is_plain) return;
        for (Face& face : mesh_.faces) face.label = -1;
        content_.labels.clear();
    }

    static constexpr int kNoneYet = -2;

    ThreeMfModel& model_;
    const std::string& name_;
    TriMesh& mesh_;
    ThreeMfContent& content_;
    ThreeMfInfo& info_;
    std::vector<Count> counts_;
    bool is_taken_ = false;  // the faces of the mesh are those of the model
    int last_texture_ = kNoneYet;
    std::int16_t last_label_ = -1;
    bool has_too_many_ = false;
};

// Reads the pictures that are used; one that is not there is a warning.
Status read_textures(const PackageReader& package, ThreeMfContent& content, ThreeMfInfo& info) {
    std::vector<bool> is_used(content.textures.size());
    for (const BodyLabel& label : content.labels) {
        if (label.texture >= 0) is_used[static_cast<std::size_t>(label.texture)] = true;
    }
    for (std::size_t i = 0; i < content.textures.size(); ++i) {
        if (!is_used[i]) continue;
        info.has_textures = true;
        TextureFile& texture = content.textures[i];
        std::string_view entry = texture.path;
        while (entry.starts_with('/')) entry.remove_prefix(1);
        if (!package.has(std::string(entry))) {
            info.warnings.push_back("texture " + one_line(texture.path) +
                                    " is not in the package; left out");
            continue;
        }
        Status status =
            package.read(std::string(entry), kMostTextureBytes, [&](std::span<const char> piece) {
                texture.content.insert(texture.content.end(), piece.begin(), piece.end());
                return true;
            });
        if (!status.ok()) return status;
    }
    return {};
}

// Files of the package that nothing here reads: settings of programs, further models.
void note_other_parts(const PackageReader& package, const std::string& model_part,
                      const ThreeMfContent& content, ThreeMfInfo& info) {
    std::string first;
    std::size_t count = 0;
    for (const std::string& entry : package.entries()) {
        const bool is_known =
            entry == model_part || entry == "[Content_Types].xml" || entry.ends_with(".rels") ||
            entry.ends_with('/') || entry.find("humbnail") != std::string::npos ||
            std::any_of(content.textures.begin(), content.textures.end(),
                        [&](const TextureFile& t) { return t.path.ends_with(entry); });
        if (is_known) continue;
        if (count++ == 0) first = one_line(entry);
    }
    if (count == 0) return;
    info.warnings.push_back(first +
                            (count > 1 ? " and " + std::to_string(count - 1) + " more" : "") +
                            " of the package left out");
}

}  // namespace

Status read_three_mf(const ByteSource& source, const std::string& name, TriMesh& mesh,
                     ThreeMfContent& content, ThreeMfInfo& info) {
    mesh = {};
    content = {};
    info = {};
    PackageReader package;
    if (Status status = package.open(source, name); !status.ok()) return status;
    std::string part;
    if (Status status = find_model_part(package, name, part); !status.ok()) return status;
    {
        ThreeMfModel model;
        if (Status status = read_three_mf_model(package, part, name, model); !status.ok()) {
            return status;
        }
        info.warnings = std::move(model.warnings);
        if (model.to_millimetres != 1) {
            info.warnings.push_back("coordinates in " + model.unit + " converted to millimetres");
        }
        content.metadata = std::move(model.metadata);
        content.textures = std::move(model.textures);
        mesh.texture_coordinates = std::move(model.texture_coordinates);
        if (Status status = Plate(model, name, mesh, content, info).run(); !status.ok()) {
            return status;
        }
        if (mesh.faces.empty()) {
            // What was left out may be all that there is.
            std::string left_out;
            for (const std::string& warning : info.warnings) left_out += "; " + warning;
            return {StatusCode::BadFile,
                    one_line(name) + ": 3MF whose build plate holds no triangle (objects in it: " +
                        std::to_string(model.objects.size()) + ")" + left_out};
        }
    }
    if (Status status = read_textures(package, content, info); !status.ok()) return status;
    note_other_parts(package, part, content, info);
    compact(mesh, TextureDigits::AllThatAreThere);
    return {};
}

}  // namespace povmesh
