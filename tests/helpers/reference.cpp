#include "helpers/reference.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <map>
#include <numbers>
#include <unordered_map>

#include "mesh/export_data.h"

namespace povmesh::reference {
namespace {

struct Axis {
    float low = 1e6F;
    float high = -1e6F;

    void widen(float x) {
        if (x < low) low = x;
        if (x > high) high = x;
    }
    int cell(float x) const {
        const float size = std::max(0.0F, high - low) / 100.0F;
        if (!(x > low)) return 0;
        const float quotient = (x - low) / size;
        if (std::isnan(quotient)) return 0;
        return quotient >= 100.0F ? 100 : static_cast<int>(quotient);
    }
};

std::uint8_t colour_byte(float value) {
    const double scaled = std::trunc(static_cast<double>(value) * 255.0);
    if (!(scaled >= -0x1p63 && scaled < 0x1p63)) return 0;
    return static_cast<std::uint8_t>(static_cast<std::int64_t>(scaled) & 0xFF);
}

std::uint8_t colour_byte(std::uint8_t value) {
    return value;
}

template <typename AnySoup>
TriMesh build(const AnySoup& soup) {
    TriMesh mesh;
    std::array<Axis, 3> axes;
    for (std::size_t i = 0; i < soup.triangle_count * 9; ++i)
        axes[i % 3].widen(soup.coordinates[i]);

    std::unordered_map<int, std::map<std::int64_t, std::int32_t>> grid;
    std::vector<std::int32_t> corner_vertex;
    for (std::size_t i = 0; i < soup.triangle_count * 3; ++i) {
        const float* p = soup.coordinates + i * 3;
        const int cell = (axes[0].cell(p[0]) * 101 + axes[1].cell(p[1])) * 101 + axes[2].cell(p[2]);
        const auto pattern = [&](int k) {
            return std::uint64_t{std::bit_cast<std::uint32_t>(p[k])};
        };
        const auto key = static_cast<std::int64_t>(pattern(0) * 108881 + pattern(1) * 110881 +
                                                   pattern(2) * 118081);
        const auto next = static_cast<std::int32_t>(mesh.vertices.size());
        const auto [entry, is_new] = grid[cell].try_emplace(key, next);
        if (is_new) mesh.vertices.push_back({p[0], p[1], p[2], next});
        corner_vertex.push_back(entry->second);
    }

    for (std::size_t t = 0; t < soup.triangle_count; ++t) {
        Face face{};
        for (std::size_t c = 0; c < 3; ++c) face.vertex[c] = corner_vertex[t * 3 + c];
        if (face.vertex[0] == face.vertex[1] || face.vertex[1] == face.vertex[2] ||
            face.vertex[2] == face.vertex[0]) {
            continue;
        }
        for (std::size_t i = 0; i < 9; ++i) {
            face.colour[i] = soup.colours == nullptr ? 255 : colour_byte(soup.colours[t * 9 + i]);
        }
        face.label = -1;
        if (soup.labels != nullptr) {
            const auto low = static_cast<std::uint16_t>(static_cast<std::uint32_t>(soup.labels[t]));
            face.label = std::bit_cast<std::int16_t>(low);
        }
        face.uv = {-1, -1, -1};
        for (std::size_t c = 0; c < 3 && face.label >= 0 && soup.texture_coordinates; ++c) {
            const float* uv = soup.texture_coordinates + t * 6 + c * 2;
            face.uv[c] = static_cast<std::int32_t>(mesh.texture_coordinates.size());
            mesh.texture_coordinates.push_back({uv[0], uv[1], face.uv[c]});
        }
        mesh.faces.push_back(face);
    }
    return mesh;
}

Vec3d position(const TriMesh& mesh, std::int32_t vertex) {
    return to_double(mesh.vertices[static_cast<std::size_t>(vertex)].position());
}

Vec3d normal(const TriMesh& mesh, const Face& face) {
    const Vec3d a = position(mesh, face.vertex[0]);
    return cross(position(mesh, face.vertex[1]) - a, position(mesh, face.vertex[2]) - a);
}

void turn(Face& face) {
    std::swap(face.vertex[0], face.vertex[1]);
    for (std::size_t i = 0; i < 3; ++i) std::swap(face.colour[i], face.colour[3 + i]);
    if (face.label >= 0) std::swap(face.uv[0], face.uv[1]);
}

auto as_bytes(const Face& face) {
    return std::bit_cast<std::array<std::uint8_t, sizeof(Face)>>(face);
}

auto as_bytes(const Vertex& vertex) {
    return std::bit_cast<std::array<std::uint8_t, sizeof(Vertex)>>(vertex);
}

std::array<std::uint64_t, 3> as_bytes(const TextureCoordinate& t) {
    return {std::bit_cast<std::uint64_t>(t.u), std::bit_cast<std::uint64_t>(t.v),
            static_cast<std::uint64_t>(t.index)};
}

class Detector {
public:
    explicit Detector(TriMesh& mesh)
        : mesh_(mesh), uses_(use_lists(mesh)), visited_(mesh.faces.size()) {}

    Flaws run() {
        for (const auto& shell : shells(mesh_)) {
            std::optional<std::uint32_t> seed = find_seed(shell);
            while (seed) {
                walk(*seed);
                const auto next = std::find_if(shell.begin(), shell.end(),
                                               [&](std::uint32_t f) { return !visited_[f]; });
                seed = next == shell.end() ? std::nullopt : std::optional(*next);
            }
            for (const std::uint32_t f : turned_) {
                turn(mesh_.faces[f]);
                // A face turned twice has its old side out in the end.
                if (!flaws_.faces[0].insert(f).second) flaws_.faces[0].erase(f);
            }
            turned_.clear();
        }
        return flaws_;
    }

private:
    void count(std::size_t kind, std::uint32_t face) {
        ++flaws_.counts[kind];
        flaws_.faces[kind].insert(face);
    }

    void turn_and_record(std::uint32_t face) {
        turn(mesh_.faces[face]);
        turned_.push_back(face);
        ++flaws_.counts[0];
    }

    std::optional<std::uint32_t> find_seed(const std::vector<std::uint32_t>& shell) {
        std::optional<std::int32_t> top;
        double top_z = -1000000.0;
        for (const std::uint32_t f : shell) {
            if (degenerate(mesh_, mesh_.faces[f])) count(3, f);
            if (!looks_up(normal(mesh_, mesh_.faces[f])) || visited_[f]) continue;
            for (const std::int32_t v : mesh_.faces[f].vertex) {
                if (position(mesh_, v).z > top_z) {
                    top_z = position(mesh_, v).z;
                    top = v;
                }
            }
        }
        if (!top) return std::nullopt;

        std::vector<std::uint32_t> gathered;
        for (const auto& [f, corner] : uses_[static_cast<std::size_t>(*top)]) {
            const bool is_in_shell = std::count(shell.begin(), shell.end(), f) != 0;
            if (is_in_shell && !visited_[f] && !mesh_.faces[f].deleted) {
                gathered.push_back(f);
            }
        }
        if (looks_down(sum_of_normals(gathered))) {
            for (std::size_t i = 1; i < gathered.size(); ++i) {
                if (same_direction(mesh_.faces[gathered[i]], mesh_.faces[gathered[i - 1]])) {
                    turn_and_record(gathered[i]);
                }
            }
            if (looks_down(sum_of_normals(gathered))) {
                for (const std::uint32_t f : gathered) turn_and_record(f);
            }
        }
        std::optional<std::uint32_t> seed;
        for (const std::uint32_t f : gathered) {
            if (looks_up(normal(mesh_, mesh_.faces[f]))) seed = f;
        }
        return seed;
    }

    static bool looks_up(Vec3d n) { return n.z >= -0.0001; }
    static bool looks_down(Vec3d n) { return n.z < -0.0001; }

    Vec3d sum_of_normals(const std::vector<std::uint32_t>& faces) const {
        Vec3d sum;
        for (const std::uint32_t f : faces) sum = sum + normal(mesh_, mesh_.faces[f]);
        return sum;
    }

    void walk(std::uint32_t seed) {
        std::deque<std::uint32_t> queue = {seed};
        visited_[seed] = true;
        while (!queue.empty()) {
            const std::uint32_t f = queue.front();
            queue.pop_front();
            if (examine_edges(f)) continue;
            const std::array neighbours = {across(mesh_, uses_, f, 0), across(mesh_, uses_, f, 1),
                                           across(mesh_, uses_, f, 2)};
            for (const auto& faces : neighbours) {
                if (faces.size() != 1 || visited_[*faces.begin()]) continue;
                const std::uint32_t g = *faces.begin();
                visited_[g] = true;
                queue.push_back(g);
                if (same_direction(mesh_.faces[f], mesh_.faces[g])) turn_and_record(g);
            }
        }
    }

    // True for a non-manifold face; its remaining corners are not looked at.
    bool examine_edges(std::uint32_t f) {
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t after = across(mesh_, uses_, f, c).size();
            const std::size_t before = across(mesh_, uses_, f, previous_corner(c)).size();
            if (after == 0 || before == 0) count(1, f);
            if (after > 1 || before > 1) {
                count(2, f);
                return true;
            }
        }
        return false;
    }

    TriMesh& mesh_;
    UseLists uses_;
    std::vector<bool> visited_;
    std::vector<std::uint32_t> turned_;
    Flaws flaws_;
};

}  // namespace

TriMesh build_f(const Soup& soup) {
    return build(soup);
}

TriMesh build_f(const ByteSoup& soup) {
    return build(soup);
}

Arrays exported(const TriMesh& mesh) {
    const SoupArrays soup = export_data(mesh);
    const std::size_t count = soup.triangle_count;
    Arrays out;
    out.coordinates.assign(soup.coordinates, soup.coordinates + 9 * count);
    out.colours.assign(soup.colours, soup.colours + 9 * count);
    out.texture_coordinates.assign(soup.texture_coordinates, soup.texture_coordinates + 6 * count);
    out.labels.assign(soup.labels, soup.labels + count);
    for (const float share : out.colours) {
        out.colour_bytes.push_back(static_cast<std::uint8_t>(std::lround(share * 255.0F)));
    }
    std::free(soup.coordinates);
    std::free(soup.colours);
    std::free(soup.texture_coordinates);
    std::free(soup.labels);
    return out;
}

TriMesh rebuilt(const Arrays& arrays) {
    return build_f(ByteSoup{arrays.labels.size(), arrays.coordinates.data(),
                            arrays.colour_bytes.data(), arrays.texture_coordinates.data(),
                            arrays.labels.data()});
}

UseLists use_lists(const TriMesh& mesh) {
    UseLists uses(mesh.vertices.size());
    for (std::uint32_t f = 0; f < mesh.faces.size(); ++f) {
        for (std::uint32_t c = 0; c < 3; ++c) {
            uses[static_cast<std::size_t>(mesh.faces[f].vertex[c])].emplace_back(f, c);
        }
    }
    return uses;
}

Shells shells(const TriMesh& mesh) {
    const UseLists uses = use_lists(mesh);
    std::vector<bool> visited(mesh.faces.size());
    for (std::size_t f = 0; f < visited.size(); ++f) visited[f] = mesh.faces[f].deleted != 0;
    Shells result;
    for (std::uint32_t seed = 0; seed < visited.size(); ++seed) {
        if (visited[seed]) continue;
        std::deque<std::uint32_t> queue = {seed};
        visited[seed] = true;
        result.emplace_back();
        while (!queue.empty()) {
            const std::uint32_t f = queue.front();
            queue.pop_front();
            result.back().push_back(f);
            for (std::size_t c = 0; c < 3; ++c) {
                const std::int32_t end = mesh.faces[f].vertex[next_corner(c)];
                for (const auto& [g, d] : uses[static_cast<std::size_t>(mesh.faces[f].vertex[c])]) {
                    const auto& other = mesh.faces[g].vertex;
                    if (visited[g] ||
                        (other[previous_corner(d)] != end && other[next_corner(d)] != end))
                        continue;
                    visited[g] = true;
                    queue.push_back(g);
                }
            }
        }
    }
    return result;
}

bool holds_edge(const Face& face, std::int32_t a, std::int32_t b) {
    for (std::size_t c = 0; c < 3; ++c) {
        const std::int32_t p = face.vertex[c];
        const std::int32_t q = face.vertex[next_corner(c)];
        if ((p == a && q == b) || (p == b && q == a)) return true;
    }
    return false;
}

std::set<std::uint32_t> across(const TriMesh& mesh, const UseLists& uses, std::uint32_t face,
                               std::size_t edge) {
    const std::int32_t a = mesh.faces[face].vertex[edge];
    const std::int32_t b = mesh.faces[face].vertex[next_corner(edge)];
    std::set<std::uint32_t> found;
    for (const auto& [g, corner] : uses[static_cast<std::size_t>(a)]) {
        const bool is_other = g != face && mesh.faces[g].deleted == 0;
        if (is_other && holds_edge(mesh.faces[g], a, b)) found.insert(g);
    }
    return found;
}

bool same_direction(const Face& a, const Face& b) {
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            if (a.vertex[i] != b.vertex[j]) continue;
            return a.vertex[next_corner(i)] == b.vertex[next_corner(j)] ||
                   a.vertex[previous_corner(i)] == b.vertex[previous_corner(j)];
        }
    }
    return false;
}

bool degenerate(const TriMesh& mesh, const Face& face) {
    const auto& v = face.vertex;
    if (v[0] == v[1] || v[1] == v[2] || v[2] == v[0]) return true;
    for (std::size_t c = 0; c < 3; ++c) {
        const Vec3d to_next = position(mesh, v[next_corner(c)]) - position(mesh, v[c]);
        const Vec3d to_last = position(mesh, v[previous_corner(c)]) - position(mesh, v[c]);
        if (length(to_next) == 0 || length(to_last) == 0) return true;
        const double cosine = dot(to_next, to_last) / (length(to_next) * length(to_last));
        const double degrees = std::acos(std::clamp(cosine, -1.0, 1.0)) * (180 / std::numbers::pi);
        if (0.05F > static_cast<float>(degrees)) return true;
    }
    return false;
}

Flaws detect(TriMesh mesh) {
    return Detector(mesh).run();
}

bool is_closed_manifold(const TriMesh& mesh) {
    using Side = std::pair<std::int32_t, std::int32_t>;
    std::vector<Side> sides;
    std::vector<Side> turned;
    for (const Face& face : mesh.faces) {
        if (face.deleted != 0) continue;
        for (std::size_t c = 0; c < 3; ++c) {
            sides.emplace_back(face.vertex[c], face.vertex[next_corner(c)]);
            turned.emplace_back(sides.back().second, sides.back().first);
        }
    }
    std::sort(sides.begin(), sides.end());
    std::sort(turned.begin(), turned.end());
    const bool is_once = std::adjacent_find(sides.begin(), sides.end()) == sides.end();
    return !sides.empty() && is_once && sides == turned;
}

std::string difference(const TriMesh& a, const TriMesh& b) {
    const auto compare = [](const char* what, const auto& x, const auto& y) -> std::string {
        if (x.size() != y.size()) {
            return std::string(what) + " count " + std::to_string(y.size()) + ", not " +
                   std::to_string(x.size());
        }
        std::size_t i = 0;
        while (i < x.size() && as_bytes(x[i]) == as_bytes(y[i])) ++i;
        return i == x.size() ? "" : std::string(what) + " " + std::to_string(i);
    };
    return compare("face", a.faces, b.faces) + compare("vertex", a.vertices, b.vertices) +
           compare("texture coordinate", a.texture_coordinates, b.texture_coordinates);
}

Shells as_lists(const ShellTable& table) {
    Shells lists;
    for (std::size_t s = 0; s < table.size(); ++s) {
        lists.emplace_back(table[s].begin(), table[s].end());
    }
    return lists;
}

}  // namespace povmesh::reference
