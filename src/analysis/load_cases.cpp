// Each case puts forces on nodes by rules that hosts rely on: pressures act on the outer faces of
// elements, a quarter of a face's force at each of its corners, and a node's share is added once
// for each loaded element there (consistent nodal loads of a bilinear face, O. C. Zienkiewicz).
#include "analysis/load_cases.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace povmesh::fem {
namespace {

constexpr float kForce = 1.0F;

// Of the topmost elements every fifth is loaded, for light pressure every tenth of all.
constexpr std::size_t kTopStride = 5;
constexpr std::size_t kLightStride = 10;
constexpr std::size_t kDofsPerPoint = 10000;

// Places are counted in half elements, so half an element is 1.
constexpr std::int32_t kHalf = 1;

class Loads {
public:
    Loads(const Model& model, const RunLog& log)
        : model_(model), log_(log), field_(model.node_count()) {}

    NodeField take() && { return std::move(field_); }

    void start(std::string_view line) const {
        log_.append("\n | " + std::string(line) + six_decimals(static_cast<double>(kForce)) +
                    "...");
    }

    void gravity() {
        log_.append("\n | set Gravity");
        const float h = model_.size;
        for_each_element(model_, [&](const Element& element) {
            for (const std::uint32_t node : element.nodes) {
                add(node, 2, -0.125F * (h * h * h) * kDensity);
            }
        });
    }

    // On every axis of the nodes that has an outer face.
    void pressure(std::size_t stride, float factor) {
        const float force = pressure_at_node() * factor;
        for_each_element(model_, [&](const Element& element) {
            if (element.index % stride != 0) return;
            for (const std::uint32_t node : element.nodes) {
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    add(node, axis, -force * static_cast<float>(model_.signs[node][axis]));
                }
            }
        });
    }

    // An element counts as the end of its row when the one after it (before it) is somewhere else
    // along x. That leaves out rows of one element below one another; the signs of the nodes do the
    // rest.
    void pressure_of_rows(int sign) {
        std::optional<Element> before;
        for_each_element(model_, [&](const Element& element) {
            const bool differs = !before || before->x != element.x;
            if (sign < 0 && differs) add_pressure(element, 0, sign);
            if (sign > 0 && before && differs) add_pressure(*before, 0, sign);
            before = element;
        });
        if (sign > 0 && before) add_pressure(*before, 0, sign);
    }

    // On the last elements, or the first, of the columns along y (axis 1) or z (axis 2).
    void pressure_of_columns(std::size_t axis, int sign, std::size_t stride) {
        const Columns columns(model_, axis, sign);
        std::size_t found = 0;
        for_each_element(model_, [&](const Element& element) {
            if (!columns.is_end(element)) return;
            if (++found % stride == 0) add_pressure(element, axis, sign);
        });
    }

    // On the faces that look one way along an axis and have no element of their row or column
    // before them.
    void even_pressure(std::size_t axis, int sign) {
        const Columns columns(model_, axis, sign);
        for_each_element(model_, [&](const Element& element) {
            if (columns.is_end(element)) press_face(element, axis, sign);
        });
    }

    void even_pressure_all_around() {
        for_each_element(model_, [&](const Element& element) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                for (const int sign : {-1, 1}) press_face(element, axis, sign);
            }
        });
    }

    void centre_top() {
        for (std::size_t i = model_.element_count(); i-- > 0;) {
            const Element element = model_.element(i);
            if (element.x == 0 && element.y == 0) return add_upward_force(element, kForce);
        }
        log_.append("\n | fail to find the position of center top!");
    }

    // `middle` picks the coordinate that is to be in the middle, `along` the other one. The top
    // layer is searched from its end, then from its beginning.
    void side_centres(std::int32_t Element::*middle, std::int32_t Element::*along, bool is_x) {
        if (model_.element_count() == 0) return;
        const char* side = is_x ? "X" : "Y";
        const char* other = is_x ? "y" : "x";
        const auto give_up = [&](char found, char left, const char* end) {
            const auto text = [](auto... parts) { return (std::string() + ... + parts); };
            log_.append(text("\n | fail to find the ", found, other, "-position of ", side,
                             " Side center top!", end));
            log_.append(
                text("\n | Stop adding force on ", left, other, "-position of ", side, " side."));
        };
        const std::size_t count = model_.element_count();
        const std::size_t first = first_of_top();
        std::size_t at = count;
        while (true) {
            if (at == first) return give_up('+', '-', "");
            const Element element = model_.element(--at);
            if (element.*middle == 0) {
                add_upward_force(element, kForce);
                break;
            }
            if (element.x < -kHalf && element.y < -kHalf) {
                return give_up('+', '-', is_x ? "" : " ");
            }
        }
        for (at = first; at < count; ++at) {
            const Element element = model_.element(at);
            const bool is_last = at + 1 == count;
            if (std::abs(element.*middle) <= kHalf && !is_last)
                return add_upward_force(element, kForce);
            if (is_last || (element.*along > kHalf && element.*middle > kHalf)) {
                if (is_x) add_upward_force(element, -kForce);
                return give_up('-', '+', "");
            }
        }
    }

    void random_points() {
        const std::size_t wanted = model_.free_dofs() / kDofsPerPoint;
        const bool has_surface = std::any_of(
            model_.signs.begin() + static_cast<std::ptrdiff_t>(model_.fixed_nodes),
            model_.signs.end(), [](const SurfaceSigns& signs) { return signs != SurfaceSigns{}; });
        if (!has_surface) return;
        std::uint32_t state = 1;
        for (std::size_t loaded = 0; loaded < wanted;) {
            const std::size_t dof = next_random(state) % model_.free_dofs();
            const std::size_t node = model_.fixed_nodes + dof / 3;
            if (model_.signs[node][dof % 3] == 0) continue;
            log_.append(std::to_string(dof) + "\t");
            add(node, dof % 3, -kForce / static_cast<float>(kDofsPerPoint));
            ++loaded;
        }
    }

private:
    // The highest (sign > 0) or lowest place along an axis of each column of elements along it.
    class Columns {
    public:
        Columns(const Model& model, std::size_t axis, int sign) : axis_(axis) {
            for_each_element(model, [&](const Element& e) {
                low_first_ = std::min(low_first_, first(e));
                low_second_ = std::min(low_second_, second(e));
                high_first_ = std::max(high_first_, first(e));
                high_second_ = std::max(high_second_, second(e));
            });
            if (low_first_ > high_first_) return;
            width_ = static_cast<std::size_t>((high_first_ - low_first_) / 2) + 1;
            const auto depth = static_cast<std::size_t>((high_second_ - low_second_) / 2) + 1;
            ends_.assign(width_ * depth, sign > 0 ? INT32_MIN : INT32_MAX);
            for_each_element(model, [&](const Element& e) {
                std::int32_t& end = ends_[column(e)];
                end = sign > 0 ? std::max(end, place(e)) : std::min(end, place(e));
            });
        }

        bool is_end(const Element& e) const { return ends_[column(e)] == place(e); }

    private:
        std::int32_t place(const Element& e) const {
            return axis_ == 0 ? e.x : axis_ == 1 ? e.y : e.z;
        }
        std::int32_t first(const Element& e) const { return axis_ == 0 ? e.y : e.x; }
        std::int32_t second(const Element& e) const { return axis_ == 2 ? e.y : e.z; }
        std::size_t column(const Element& e) const {
            return static_cast<std::size_t>((second(e) - low_second_) / 2) * width_ +
                   static_cast<std::size_t>((first(e) - low_first_) / 2);
        }

        std::size_t axis_;
        std::int32_t low_first_ = INT32_MAX, high_first_ = INT32_MIN;
        std::int32_t low_second_ = INT32_MAX, high_second_ = INT32_MIN;
        std::size_t width_ = 0;
        std::vector<std::int32_t> ends_;
    };

    // A quarter of the force on a face.
    float pressure_at_node() const { return 0.25F * (model_.size * kForce * model_.size); }

    void add(std::size_t node, std::size_t axis, float force) {
        if (node >= model_.fixed_nodes) field_.axis(axis)[node] += force;
    }

    void add_pressure(const Element& element, std::size_t axis, int sign) {
        for (const std::uint32_t node : element.nodes) {
            if (model_.signs[node][axis] == sign) {
                add(node, axis, pressure_at_node() * static_cast<float>(-sign));
            }
        }
    }

    // A whole outer face.
    void press_face(const Element& element, std::size_t axis, int sign) {
        if ((model_.faces[element.index] >> outer_side(axis, sign) & 1U) == 0) return;
        for (std::size_t corner = 0; corner < kCorners; ++corner) {
            if (kCornerSigns[corner][axis] != sign) continue;
            add(element.nodes[corner], axis, pressure_at_node() * static_cast<float>(-sign));
        }
    }

    void add_upward_force(const Element& element, float force) {
        for (std::size_t corner = 4; corner < kCorners; ++corner) {
            add(element.nodes[corner], 2, 0.25F * force);
        }
    }

    std::size_t first_of_top() const {
        const std::uint32_t run = model_.layer_runs[model_.layer_runs.size() - 2];
        return model_.runs[run].first;
    }

    // Marsaglia's xorshift: any generator does that starts from the same number.
    static std::uint32_t next_random(std::uint32_t& state) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    }

    const Model& model_;
    const RunLog& log_;
    NodeField field_;
};

}  // namespace

NodeField load_of(const Model& model, LoadCase load, const RunLog& log, LoadRules rules) {
    Loads loads(model, log);
    const bool is_even = rules == LoadRules::Even;
    switch (load) {
        case LoadCase::Gravity:
            loads.gravity();
            break;
        case LoadCase::Pressure:
            loads.start("set Pressure        ,Force= ");
            if (is_even) {
                loads.even_pressure_all_around();
            } else {
                loads.pressure(1, 1.0F);
            }
            break;
        case LoadCase::PressureLight:
            loads.start("set PressureLight    ,Force= ");
            loads.pressure(kLightStride, 10.0F);
            break;
        case LoadCase::PressureX:
            loads.start("set PressureXdir    ,Force= ");
            is_even ? loads.even_pressure(0, 1) : loads.pressure_of_rows(1);
            break;
        case LoadCase::PressureNegX:
            loads.start("set PressureNegXdir ,Force= ");
            is_even ? loads.even_pressure(0, -1) : loads.pressure_of_rows(-1);
            break;
        case LoadCase::PressureY:
            loads.start("set PressureYdir    ,Force= ");
            is_even ? loads.even_pressure(1, 1) : loads.pressure_of_columns(1, 1, 1);
            break;
        case LoadCase::PressureNegY:
            loads.start("set PressureNegYdir ,Force= ");
            is_even ? loads.even_pressure(1, -1) : loads.pressure_of_columns(1, -1, 1);
            break;
        case LoadCase::PressureZ:
            loads.start("set PressureZdir    ,Force= ");
            is_even ? loads.even_pressure(2, 1) : loads.pressure_of_columns(2, 1, kTopStride);
            break;
        case LoadCase::PressureNegZ:
            loads.start("set PressureNegZdir ,Force= ");
            is_even ? loads.even_pressure(2, -1) : loads.pressure_of_columns(2, -1, 1);
            break;
        case LoadCase::CentreTop:
            loads.start("set ForceOnCenterTop,Force= ");
            loads.centre_top();
            break;
        case LoadCase::SidesOfYTop:
            loads.start("set ForceOnBoundaryYSideCenterTop,Force= ");
            loads.side_centres(&Element::y, &Element::x, false);
            break;
        case LoadCase::SidesOfXTop:
            loads.start("set ForceOnBoundaryXSideCenterTop,Force= ");
            loads.side_centres(&Element::x, &Element::y, true);
            break;
        case LoadCase::RandomPoints:
            loads.random_points();
            break;
    }
    return std::move(loads).take();
}

}  // namespace povmesh::fem
