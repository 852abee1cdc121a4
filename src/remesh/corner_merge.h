// What the corners at the merged vertex of a collapsed edge carry.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "mesh/tri_mesh.h"
#include "remesh/corner_attributes.h"

namespace povmesh {

/// Corners that carry what a face on the edge carries there belong to that face's side of the edge:
/// they get the mean of its two corners. Where the two sides carry the same, all get the mean of
/// both; corners that carry anything else keep it.
class CornerMerge {
public:
    /// One of the two faces on the edge, with its corners at the ends a and b.
    struct Side {
        CornerKey at_a, at_b;
        const Face* face;
        std::size_t corner_a, corner_b;
    };

    CornerMerge(TriMesh& mesh, const Side& first, const Side& second)
        : mesh_(mesh), sides_{first, second} {
        for (std::size_t i = 0; i < 2; ++i) values_[i] = mean_of(sides_[i]);
        both_ = values_[0];
        if (values_[0].label >= 0) {
            both_.u = 0.5 * (values_[0].u + values_[1].u);
            both_.v = 0.5 * (values_[0].v + values_[1].v);
        } else {
            for (std::size_t k = 0; k < 3; ++k) {
                both_.colour[k] = mean(values_[0].colour[k], values_[1].colour[k]);
            }
        }
    }

    void apply(Face& face, std::size_t corner, bool is_at_a) {
        const CornerKey key(mesh_, face, corner);
        const bool is_first = key == (is_at_a ? sides_[0].at_a : sides_[0].at_b);
        const bool is_second = key == (is_at_a ? sides_[1].at_a : sides_[1].at_b);
        if (is_first && is_second) {
            store(face, corner, both_);
        } else if (is_first || is_second) {
            store(face, corner, values_[is_first ? 0 : 1]);
        }
    }

private:
    static std::uint8_t mean(std::uint8_t a, std::uint8_t b) {
        return static_cast<std::uint8_t>((a + b) / 2);
    }

    struct Value {
        std::int32_t label = -1;
        std::array<std::uint8_t, 3> colour{};
        double u = 0, v = 0;
        std::int32_t record = -1;  // the texture coordinate made for it
    };

    static Value mean_of(const Side& side) {
        Value value;
        value.label = side.at_a.label;
        value.u = 0.5 * (side.at_a.u + side.at_b.u);
        value.v = 0.5 * (side.at_a.v + side.at_b.v);
        for (std::size_t k = 0; k < 3; ++k) {
            value.colour[k] = mean(side.face->colour[3 * side.corner_a + k],
                                   side.face->colour[3 * side.corner_b + k]);
        }
        return value;
    }

    void store(Face& face, std::size_t corner, Value& value) {
        if (value.label < 0) {
            std::copy(value.colour.begin(), value.colour.end(), &face.colour[3 * corner]);
            return;
        }
        if (face.uv[corner] < 0) return;
        if (value.record < 0) {
            value.record = static_cast<std::int32_t>(mesh_.texture_coordinates.size());
            mesh_.texture_coordinates.push_back({value.u, value.v, value.record});
        }
        face.uv[corner] = value.record;
    }

    TriMesh& mesh_;
    std::array<Side, 2> sides_;
    std::array<Value, 2> values_;
    Value both_;
};

}  // namespace povmesh
