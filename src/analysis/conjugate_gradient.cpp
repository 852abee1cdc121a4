// Conjugate gradients with the inverse of the diagonal as preconditioner (M. R. Hestenes and E.
// Stiefel, 1952). Notation of the literature: K x = f, residual r, direction p, preconditioned
// residual z. The stiffness is never assembled; vectors are walked slab by slab, as its product is.
#include "analysis/conjugate_gradient.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "analysis/rigid_blocks.h"
#include "analysis/stiffness.h"
#include "base/multiversion.h"
#include "base/parallel.h"

namespace povmesh::fem {
namespace {

constexpr std::size_t kLanes = 8;

// A step of fewer slabs is over before threads have been told of it, and on a busy machine waiting
// for them has taken 30 times as long as the step.
constexpr std::size_t kFewSlabs = 6;

struct Sums {
    double rr = 0;
    double rz = 0;
};

// x += alpha p and r -= alpha K p; sums r r and r z.
POVMESH_MULTIVERSION Sums update_solution(float alpha, const float* POVMESH_RESTRICT p,
                                          const float* POVMESH_RESTRICT product,
                                          const float* POVMESH_RESTRICT inverse,
                                          float* POVMESH_RESTRICT x, float* POVMESH_RESTRICT r,
                                          std::size_t count) {
    std::array<double, kLanes> rr{};
    std::array<double, kLanes> rz{};
    for (std::size_t i = 0; i < count; ++i) x[i] += alpha * p[i];
    for (std::size_t i = 0; i < count; ++i) r[i] -= alpha * product[i];
    const auto add = [&](std::size_t i, std::size_t lane) {
        rr[lane] += static_cast<double>(r[i]) * static_cast<double>(r[i]);
        rz[lane] += static_cast<double>(r[i]) * static_cast<double>(inverse[i] * r[i]);
    };
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) add(i + lane, lane);
    }
    for (; i < count; ++i) add(i, 0);
    Sums sums;
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        sums.rr += rr[lane];
        sums.rz += rz[lane];
    }
    return sums;
}

// p = z + beta p
POVMESH_MULTIVERSION void update_direction(float beta, const float* POVMESH_RESTRICT r,
                                           const float* POVMESH_RESTRICT inverse,
                                           float* POVMESH_RESTRICT p, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) p[i] = inverse[i] * r[i] + beta * p[i];
}

class Solver {
public:
    Solver(const Model& model, NodeField force)
        : model_(model),
          stiffness_(model),
          inverse_(model.node_count()),
          r_(std::move(force)),
          p_(model.node_count()) {
        solution_.displacements = NodeField(model.node_count());
        for (std::size_t node = 0; node < inverse_.size(); ++node) {
            const float diagonal =
                stiffness_.diagonal_share() * static_cast<float>(model.element_counts[node]);
            inverse_[node] = diagonal > 0 ? 1.0F / diagonal : 1.0F;
        }
    }

    Solution run(const SolveOptions& options) && {
        std::optional<OneThread> alone;
        if (stiffness_.slabs().size() < kFewSlabs) alone.emplace();
        // A step of length 0 leaves everything as it is and gives the sums.
        Sums sums = go_along_direction(0.0F);
        const double load = sums.rr;
        const double enough = options.tolerance * options.tolerance * load;
        if (load == 0) return std::move(solution_);
        float beta = 0;
        while (solution_.steps < options.most_steps && sums.rr >= enough) {
            set_direction(beta);
            const double energy = stiffness_.multiply(p_);
            ++solution_.steps;
            if (!(energy > 0)) break;  // nothing resists, or what does is no number
            const double rz = sums.rz;
            sums = go_along_direction(static_cast<float>(rz / energy));
            beta = static_cast<float>(sums.rz / rz);
        }
        solution_.residual = std::sqrt(sums.rr / load);
        return std::move(solution_);
    }

private:
    // Calls `work(slab, first, last)` with the free nodes of each slab.
    template <typename Work>
    void for_each_slab(Work&& work) {
        const std::vector<Stiffness::Slab>& slabs = stiffness_.slabs();
        for_blocks(slabs.size(), [&](std::size_t s) {
            const std::size_t first = std::max<std::size_t>(slabs[s].first, model_.fixed_nodes);
            if (first < slabs[s].last) work(s, first, std::size_t{slabs[s].last});
        });
    }

    Sums go_along_direction(float alpha) {
        std::vector<Sums> parts(stiffness_.slabs().size());
        const bool is_first = alpha == 0;
        for_each_slab([&](std::size_t s, std::size_t first, std::size_t last) {
            const Stiffness::Slab& slab = stiffness_.slabs()[s];
            for (std::size_t a = 0; a < 3; ++a) {
                // Before the first product there is none: the direction, all zeros, stands for it.
                const float* product = is_first
                                           ? p_.axis(a) + first
                                           : stiffness_.product(slab, a) + (first - slab.first);
                const Sums sums = update_solution(
                    alpha, p_.axis(a) + first, product, inverse_.data() + first,
                    solution_.displacements.axis(a) + first, r_.axis(a) + first, last - first);
                parts[s].rr += sums.rr;
                parts[s].rz += sums.rz;
            }
        });
        Sums total;
        for (const Sums& part : parts) {
            total.rr += part.rr;
            total.rz += part.rz;
        }
        return total;
    }

    void set_direction(float beta) {
        for_each_slab([&](std::size_t, std::size_t first, std::size_t last) {
            for (std::size_t a = 0; a < 3; ++a) {
                update_direction(beta, r_.axis(a) + first, inverse_.data() + first,
                                 p_.axis(a) + first, last - first);
            }
        });
    }

    const Model& model_;
    Stiffness stiffness_;
    Array<float> inverse_;  // of the diagonal, by node
    NodeField r_;
    NodeField p_;
    Solution solution_;
};

// The same with the sum of both preconditioners. Vectors are walked axis by axis; what this costs
// beside the product counts for little in so few steps.
class BlockSolver {
public:
    BlockSolver(const Model& model, NodeField force)
        : model_(model),
          stiffness_(model),
          blocks_(model),
          r_(std::move(force)),
          z_(model.node_count()),
          p_(model.node_count()) {
        solution_.displacements = NodeField(model.node_count());
        for (std::size_t a = 0; a < 3; ++a) std::fill_n(r_.axis(a), model.fixed_nodes, 0.0F);
    }

    Solution run(const SolveOptions& options) && {
        std::optional<OneThread> alone;
        if (stiffness_.slabs().size() < kFewSlabs) alone.emplace();
        const double load = product(r_, r_);
        double rr = load;
        if (load == 0) return std::move(solution_);
        double rz = 0;
        while (solution_.steps < options.most_steps &&
               rr >= options.tolerance * options.tolerance * load) {
            precondition();
            const double next = product(r_, z_);
            const auto beta = static_cast<float>(rz == 0 ? 0 : next / rz);
            rz = next;
            for_each_axis([&](std::size_t a, std::size_t n) {
                p_.axis(a)[n] = z_.axis(a)[n] + beta * p_.axis(a)[n];
            });
            const double energy = stiffness_.multiply(p_);
            ++solution_.steps;
            if (!(energy > 0)) break;  // nothing resists, or what does is no number
            go(static_cast<float>(rz / energy));
            rr = product(r_, r_);
        }
        solution_.residual = std::sqrt(rr / load);
        return std::move(solution_);
    }

private:
    template <typename Body>
    void for_each_axis(Body&& body) {
        parallel_for(model_.free_nodes(), [&](std::size_t i) {
            for (std::size_t a = 0; a < 3; ++a) body(a, model_.fixed_nodes + i);
        });
    }

    double product(const NodeField& u, const NodeField& v) const {
        double sum = 0;
        for (std::size_t a = 0; a < 3; ++a) {
            const float* x = u.axis(a) + model_.fixed_nodes;
            const float* y = v.axis(a) + model_.fixed_nodes;
            sum += blocked_sum(model_.free_nodes(), [&](std::size_t i) {
                return static_cast<double>(x[i]) * static_cast<double>(y[i]);
            });
        }
        return sum;
    }

    void precondition() {
        const float share = stiffness_.diagonal_share();
        for_each_axis([&](std::size_t a, std::size_t n) {
            z_.axis(a)[n] = r_.axis(a)[n] / (share * static_cast<float>(model_.element_counts[n]));
        });
        blocks_.add_correction(r_, z_);
    }

    void go(float alpha) {
        const std::vector<Stiffness::Slab>& slabs = stiffness_.slabs();
        for_blocks(slabs.size(), [&](std::size_t s) {
            const Stiffness::Slab& slab = slabs[s];
            for (std::size_t a = 0; a < 3; ++a) {
                const float* made = stiffness_.product(slab, a);
                for (std::size_t n = std::max<std::size_t>(slab.first, model_.fixed_nodes);
                     n < slab.last; ++n) {
                    solution_.displacements.axis(a)[n] += alpha * p_.axis(a)[n];
                    r_.axis(a)[n] -= alpha * made[n - slab.first];
                }
            }
        });
    }

    const Model& model_;
    Stiffness stiffness_;
    RigidBlocks blocks_;
    NodeField r_;
    NodeField z_;
    NodeField p_;
    Solution solution_;
};

}  // namespace

Solution solve(const Model& model, NodeField force, const SolveOptions& options) {
    if (options.moves_blocks) return BlockSolver(model, std::move(force)).run(options);
    return Solver(model, std::move(force)).run(options);
}

}  // namespace povmesh::fem
