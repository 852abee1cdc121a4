// Narrow angles by the cosine: corners that are clearly wide are told by squared lengths alone, and
// the arc cosine that hosts compare with decides the rest.
#include "repair/degenerate.h"

#include <algorithm>
#include <cmath>

namespace povmesh {
namespace {

constexpr float kSmallestAngle = 0.05F;  // degrees
constexpr double kDegreesPerRadian = 57.29577951308232;

// Cosine of 0.057 degrees: every angle near the limit has a larger cosine, so a corner below this
// needs no arc cosine. Squared, to need no root either.
constexpr double kSurelyWideCosine = 0.9999995;
constexpr double kSurelyWideSquare = kSurelyWideCosine * kSurelyWideCosine;

bool may_be_narrow(double dot_product, double square_a, double square_b) {
    return dot_product > 0 && dot_product * dot_product > kSurelyWideSquare * square_a * square_b;
}

// The deciding arithmetic; hosts compare counts.
bool is_narrow(double dot_product, double square_a, double square_b) {
    const double cosine = dot_product / (std::sqrt(square_a) * std::sqrt(square_b));
    const double angle = std::acos(std::clamp(cosine, -1.0, 1.0)) * kDegreesPerRadian;
    return kSmallestAngle > static_cast<float>(angle);
}

}  // namespace

bool has_degenerate_angle(Vec3f a, Vec3f b, Vec3f c) {
    const Vec3d ab = to_double(b) - to_double(a);
    const Vec3d bc = to_double(c) - to_double(b);
    const Vec3d ca = to_double(a) - to_double(c);
    const double square_ab = dot(ab, ab);
    const double square_bc = dot(bc, bc);
    const double square_ca = dot(ca, ca);
    if (square_ab == 0 || square_bc == 0 || square_ca == 0) return true;
    // Edge vectors leave the corner; turning one round changes the sign and nothing else.
    const double at_a = -dot(ab, ca);
    const double at_b = -dot(bc, ab);
    const double at_c = -dot(ca, bc);
    return (may_be_narrow(at_a, square_ab, square_ca) && is_narrow(at_a, square_ab, square_ca)) ||
           (may_be_narrow(at_b, square_bc, square_ab) && is_narrow(at_b, square_bc, square_ab)) ||
           (may_be_narrow(at_c, square_ca, square_bc) && is_narrow(at_c, square_ca, square_bc));
}

bool is_degenerate(const TriMesh& mesh, const Face& face) {
    const auto& [a, b, c] = face.vertex;
    if (a == b || b == c || c == a) return true;
    return has_degenerate_angle(mesh.corner_position(face, 0), mesh.corner_position(face, 1),
                                mesh.corner_position(face, 2));
}

bool shares_edge_in_same_direction(const std::array<std::int32_t, 3>& a,
                                   const std::array<std::int32_t, 3>& b) {
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j) {
            if (a[i] != b[j]) continue;
            return a[next_corner(i)] == b[next_corner(j)] ||
                   a[previous_corner(i)] == b[previous_corner(j)];
        }
    }
    return false;
}

}  // namespace povmesh
