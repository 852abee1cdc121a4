// A product K u element by element, with the element matrix in the basis where it is nearly
// diagonal. Notation: in a group of lanes, each lane is an element. Its corners are combined axis
// by axis into sums and differences; coefficient "xy" of a component is the one of the product x y
// of ElementModes.
#include "analysis/stiffness.h"

#include <algorithm>
#include <span>

#include "base/multiversion.h"
#include "base/parallel.h"

namespace povmesh::fem {
namespace {

constexpr std::size_t kLanes = 8;

// Coefficients of the products of y and z, over the four rows of nodes.
struct Square {
    float one, y, z, yz;
};
// Values at the four rows, in the order of ElementRun::rows.
struct Rows {
    float front_low, back_low, front_high, back_high;
};

inline Square modes_of(const Rows& r) {
    const float low = r.front_low + r.back_low;
    const float high = r.front_high + r.back_high;
    const float low_y = r.back_low - r.front_low;
    const float high_y = r.back_high - r.front_high;
    return {low + high, low_y + high_y, high - low, high_y - low_y};
}

inline Rows rows_of(const Square& s) {
    const float low = s.one - s.z;
    const float high = s.one + s.z;
    const float low_y = s.y - s.yz;
    const float high_y = s.y + s.yz;
    return {low - low_y, low + low_y, high - high_y, high + high_y};
}

// One component of an element's displacements or forces.
struct Component {
    Square even;  // one, y, z, yz
    Square odd;   // x, xy, xz, xyz
};

struct RowPointers {
    std::array<const float*, 4> row;
};

inline Component component_at(const RowPointers& p, std::size_t i) {
    const Rows left = {p.row[0][i], p.row[1][i], p.row[2][i], p.row[3][i]};
    const Rows right = {p.row[0][i + 1], p.row[1][i + 1], p.row[2][i + 1], p.row[3][i + 1]};
    const Rows sum = {left.front_low + right.front_low, left.back_low + right.back_low,
                      left.front_high + right.front_high, left.back_high + right.back_high};
    const Rows difference = {right.front_low - left.front_low, right.back_low - left.back_low,
                             right.front_high - left.front_high, right.back_high - left.back_high};
    return {modes_of(sum), modes_of(difference)};
}

struct Triple {
    float u, v, w;
};

inline Triple block_of_sum(float factor, float u, float v, float w) {
    const float sum = u + v + w;
    return {factor * (u + sum), factor * (v + sum), factor * (w + sum)};
}

// The forces of an element, in modes, times a factor.
inline void apply(const ElementModes& m, float factor, Component& u, Component& v, Component& w) {
    const Triple stretch = block_of_sum(factor * m.stretch, u.odd.one, v.even.y, w.even.z);
    const Triple twist = block_of_sum(factor * m.twist, u.even.yz, v.odd.z, w.odd.y);
    const float bend = factor * m.bend;
    const float counter = factor * m.counter_bend;
    const float shear = factor * m.shear;
    const float hourglass = factor * m.hourglass;
    const float v_xy = bend * v.odd.y - counter * w.odd.z;
    const float w_xz = bend * w.odd.z - counter * v.odd.y;
    const float u_xy = bend * u.odd.y - counter * w.even.yz;
    const float w_yz = bend * w.even.yz - counter * u.odd.y;
    const float u_xz = bend * u.odd.z - counter * v.even.yz;
    const float v_yz = bend * v.even.yz - counter * u.odd.z;
    const float xy = shear * (u.even.y + v.odd.one);
    const float xz = shear * (u.even.z + w.odd.one);
    const float yz = shear * (v.even.z + w.even.y);
    u = {{0, xy, xz, twist.u}, {stretch.u, u_xy, u_xz, hourglass * u.odd.yz}};
    v = {{0, stretch.v, yz, v_yz}, {xy, v_xy, twist.v, hourglass * v.odd.yz}};
    w = {{0, yz, stretch.w, w_yz}, {xz, twist.w, w_xz, hourglass * w.odd.yz}};
}

// The sum of each mode of an element times the force on it.
inline float twice_energy(const ElementModes& m, const Component& u, const Component& v,
                          const Component& w) {
    Component fu = u;
    Component fv = v;
    Component fw = w;
    apply(m, 1.0F, fu, fv, fw);
    const auto along = [](const Component& a, const Component& b) {
        return a.even.y * b.even.y + a.even.z * b.even.z + a.even.yz * b.even.yz +
               a.odd.one * b.odd.one + a.odd.y * b.odd.y + a.odd.z * b.odd.z + a.odd.yz * b.odd.yz;
    };
    return along(u, fu) + along(v, fv) + along(w, fw);
}

// Forces in the making: of each row of nodes, along one axis, what its elements add to the node at
// both ends (`sum`) and to the right minus the left (`difference`). Lane i of the run is at
// kLanes + i; the lanes before it stay 0.
struct RowForces {
    alignas(64) std::array<float, 2 * kLanes + kMaxRunLength + 1> sum;
    alignas(64) std::array<float, 2 * kLanes + kMaxRunLength + 1> difference;
};
using RunForces = std::array<RowForces, 12>;

inline void store(const Component& c, RowForces* forces, std::size_t lane) {
    const Rows sums = rows_of(c.even);
    const Rows differences = rows_of(c.odd);
    forces[0].sum[lane] = sums.front_low;
    forces[1].sum[lane] = sums.back_low;
    forces[2].sum[lane] = sums.front_high;
    forces[3].sum[lane] = sums.back_high;
    forces[0].difference[lane] = differences.front_low;
    forces[1].difference[lane] = differences.back_low;
    forces[2].difference[lane] = differences.front_high;
    forces[3].difference[lane] = differences.back_high;
}

// From 8 - n on: n ones, then zeros.
constexpr std::array<float, 2 * kLanes> kOnes = {1, 1, 1, 1, 1, 1, 1, 1};

RowPointers pointers(const ElementRun& run, const float* axis) {
    return {{axis + run.rows[0], axis + run.rows[1], axis + run.rows[2], axis + run.rows[3]}};
}

inline void add_row(const RowForces& f, std::size_t lanes, float* POVMESH_RESTRICT to) {
    const float* sum = f.sum.data() + kLanes;
    const float* difference = f.difference.data() + kLanes;
    for (std::size_t i = 0; i < lanes; ++i) to[i] += sum[i] - difference[i];
    sum -= 1;  // of the element on the left
    difference -= 1;
    for (std::size_t i = 0; i < lanes; ++i) to[i] += sum[i] + difference[i];
}

// Adds the forces of the runs to `out`, which begins at node `first`. Lanes behind the end of a run
// compute with what stands there and add 0.
POVMESH_MULTIVERSION void add_forces(const ElementRun* runs, std::size_t run_count,
                                     const ElementModes& modes, const float* in_x,
                                     const float* in_y, const float* in_z, float* out_x,
                                     float* out_y, float* out_z, std::size_t first) {
    RunForces forces{};
    const std::array<float*, 3> out = {out_x, out_y, out_z};
    for (std::size_t r = 0; r < run_count; ++r) {
        const ElementRun& run = runs[r];
        const RowPointers x = pointers(run, in_x);
        const RowPointers y = pointers(run, in_y);
        const RowPointers z = pointers(run, in_z);
        // One lane more than elements: the last node.
        const std::size_t groups = run.count / kLanes + 1;
        for (std::size_t group = 0; group < groups; ++group) {
            const std::size_t begin = group * kLanes;
            const std::size_t elements = std::min<std::size_t>(run.count - begin, kLanes);
            const float* is_element = kOnes.data() + kLanes - elements;
            for (std::size_t i = 0; i < kLanes; ++i) {
                Component u = component_at(x, begin + i);
                Component v = component_at(y, begin + i);
                Component w = component_at(z, begin + i);
                apply(modes, is_element[i], u, v, w);
                store(u, forces.data(), kLanes + begin + i);
                store(v, forces.data() + 4, kLanes + begin + i);
                store(w, forces.data() + 8, kLanes + begin + i);
            }
        }
        for (std::size_t row = 0; row < forces.size(); ++row) {
            const RowForces& f = forces[row];
            float* to = out[row / 4] + (run.rows[row % 4] - first);
            add_row(f, groups * kLanes, to);
        }
    }
}

POVMESH_MULTIVERSION void store_energies(const ElementRun* runs, std::size_t run_count,
                                         const ElementModes& modes, const float* in_x,
                                         const float* in_y, const float* in_z, float* energies) {
    for (std::size_t r = 0; r < run_count; ++r) {
        const ElementRun& run = runs[r];
        const RowPointers x = pointers(run, in_x);
        const RowPointers y = pointers(run, in_y);
        const RowPointers z = pointers(run, in_z);
        for (std::size_t i = 0; i < run.count; ++i) {
            energies[run.first + i] =
                twice_energy(modes, component_at(x, i), component_at(y, i), component_at(z, i));
        }
    }
}

}  // namespace

POVMESH_MULTIVERSION double dot_product(const float* a, const float* b, std::size_t count) {
    std::array<double, kLanes> sums{};
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] += static_cast<double>(a[i + lane]) * static_cast<double>(b[i + lane]);
        }
    }
    double sum = 0;
    for (; i < count; ++i) sum += static_cast<double>(a[i]) * static_cast<double>(b[i]);
    for (const double lane : sums) sum += lane;
    return sum;
}

Stiffness::Stiffness(const Model& model, std::size_t slab_elements)
    : model_(model),
      modes_(element_modes(model.size)),
      diagonal_share_(element_matrix(model.size)[0][0]) {
    const std::size_t layers = model.layer_runs.empty() ? 0 : model.layer_runs.size() - 1;
    const auto first_element = [&](std::size_t layer) {
        const std::uint32_t run = model.layer_runs[layer];
        return run < model.runs.size() ? model.runs[run].first : model.element_count();
    };
    std::size_t offset = 0;
    for (std::size_t low = 0; low < layers;) {
        std::size_t high = low + 1;
        while (high < layers && first_element(high) - first_element(low) < slab_elements) ++high;
        Slab slab{model.layer_runs[low],
                  model.layer_runs[high],
                  model.layer_nodes[low],
                  model.layer_nodes[high],
                  model.layer_nodes[high + 1],
                  offset,
                  0};
        slab.stride = slab.end - slab.first + NodeField::kPadding;
        if (high == layers) slab.last = slab.end;
        offset += 3 * slab.stride;
        slabs_.push_back(slab);
        low = high;
    }
    products_.resize(offset);
}

double Stiffness::multiply(const NodeField& displacements) {
    std::vector<double> sums(slabs_.size());
    for_blocks(slabs_.size(), [&](std::size_t s) {
        const Slab& slab = slabs_[s];
        float* out = products_.data() + slab.offset;
        std::fill(out, out + 3 * slab.stride, 0.0F);
        add_forces(model_.runs.data() + slab.first_run, slab.last_run - slab.first_run, modes_,
                   displacements.axis(0), displacements.axis(1), displacements.axis(2), out,
                   out + slab.stride, out + 2 * slab.stride, slab.first);
        for (std::size_t a = 0; a < 3; ++a) {
            sums[s] += dot_product(displacements.axis(a) + slab.first, out + a * slab.stride,
                                   slab.end - slab.first);
        }
    });
    for (std::size_t s = 1; s < slabs_.size(); ++s) {
        const Slab& below = slabs_[s - 1];
        const Slab& slab = slabs_[s];
        for (std::size_t a = 0; a < 3; ++a) {
            const float* from = product(below, a) + (below.last - below.first);
            float* to = products_.data() + slab.offset + a * slab.stride;
            for (std::size_t i = 0; i < below.end - below.last; ++i) to[i] += from[i];
        }
    }
    double sum = 0;
    for (const double part : sums) sum += part;
    return sum;
}

void Stiffness::energies(const NodeField& displacements, Array<float>& energies) const {
    energies.resize(model_.element_count());
    for_blocks(slabs_.size(), [&](std::size_t s) {
        const Slab& slab = slabs_[s];
        store_energies(model_.runs.data() + slab.first_run, slab.last_run - slab.first_run, modes_,
                       displacements.axis(0), displacements.axis(1), displacements.axis(2),
                       energies.data());
    });
}

}  // namespace povmesh::fem
