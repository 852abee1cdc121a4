// Reads rows of numbers that a caller describes by a view, aligned or not.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>

#include "context/frame.h"

namespace povmesh::context {

/// Bytes of a number; 0 for a type that there is not.
constexpr std::size_t bytes_of_type(std::int32_t type) {
    switch (type) {
        case POVMESH_U8:
            return 1;
        case POVMESH_I16:
            return 2;
        case POVMESH_F32:
        case POVMESH_I32:
        case POVMESH_U32:
            return 4;
        case POVMESH_F64:
        case POVMESH_I64:
        case POVMESH_U64:
            return 8;
        default:
            return 0;
    }
}

inline bool is_given(const povmesh_view& view) {
    return view.data != nullptr || view.count != 0 || view.stride != 0 || view.type != 0 ||
           view.components != 0;
}

/// A view that was looked at and found right.
class Rows {
public:
    Rows() = default;
    Rows(Call& call, const povmesh_view& view, std::string_view name,
         std::initializer_list<std::int32_t> types, std::initializer_list<std::int32_t> components)
        : view_(view), width_(bytes_of_type(view.type)) {
        const auto is_one_of = [](std::int32_t value, std::initializer_list<std::int32_t> all) {
            for (const std::int32_t one : all) {
                if (one == value) return true;
            }
            return false;
        };
        call.require(is_one_of(view.type, types), name, "has numbers of a wrong type");
        call.require(is_one_of(view.components, components), name,
                     "has a wrong number of components");
        call.require(view.data != nullptr || view.count == 0, name, "has rows but no data");
        const std::uint64_t row = width_ * static_cast<std::uint64_t>(view.components);
        if (view_.stride == 0) view_.stride = row;
        call.require(view.count <= kMostRows, name, "has too many rows");
        call.require(view_.stride <= PTRDIFF_MAX / (view.count + 1), name,
                     "has a stride that goes beyond all memory");
    }

    std::size_t count() const { return static_cast<std::size_t>(view_.count); }
    std::size_t components() const { return static_cast<std::size_t>(view_.components); }
    bool has(std::int32_t type) const { return view_.type == type; }

    double real(std::size_t row, std::size_t component) const {
        if (view_.type == POVMESH_F32) return static_cast<double>(read<float>(row, component));
        return read<double>(row, component);
    }
    float single(std::size_t row, std::size_t component) const {
        if (view_.type == POVMESH_F32) return read<float>(row, component);
        return static_cast<float>(read<double>(row, component));
    }
    /// The first three numbers of a row that has them of this size, all at once.
    template <typename Number>
    std::array<Number, 3> three(std::size_t row) const {
        std::array<Number, 3> numbers;
        std::memcpy(numbers.data(), static_cast<const char*>(view_.data) + row * view_.stride,
                    sizeof numbers);
        return numbers;
    }
    std::uint8_t byte(std::size_t row, std::size_t component) const {
        return read<std::uint8_t>(row, component);
    }
    /// -1 for one that no signed 64-bit number holds.
    std::int64_t whole(std::size_t row, std::size_t component) const {
        switch (view_.type) {
            case POVMESH_I16:
                return read<std::int16_t>(row, component);
            case POVMESH_I32:
                return read<std::int32_t>(row, component);
            case POVMESH_U32:
                return read<std::uint32_t>(row, component);
            default:
                return read<std::int64_t>(row, component);
        }
    }

private:
    static constexpr std::uint64_t kMostRows = std::uint64_t{1} << 40;

    template <typename Number>
    Number read(std::size_t row, std::size_t component) const {
        Number number;
        std::memcpy(&number,
                    static_cast<const char*>(view_.data) + row * view_.stride + component * width_,
                    sizeof number);
        return number;
    }

    povmesh_view view_{};
    std::size_t width_ = 0;
};

}  // namespace povmesh::context
