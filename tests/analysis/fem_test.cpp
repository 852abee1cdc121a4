// Voxel finite elements against theory, an assembled matrix and loads listed by hand.
#include "analysis/fem_analysis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "analysis/stiffness.h"
#include "base/parallel.h"
#include "helpers/job.h"
#include "helpers/shapes.h"
#include "voxel/passes.h"

namespace povmesh::fem {
namespace {

using testing::HasSubstr;

using Inside = std::function<bool(std::int32_t, std::int32_t, std::int32_t)>;

VoxelGrid grid_of(
    std::int32_t nx, std::int32_t ny, std::int32_t nz, float size,
    const Inside& inside = [](auto...) { return true; }) {
    VoxelGrid grid(VoxelSettings{{size, size, size}}, {{0, 0, 0}, {nx - 1, ny - 1, nz - 1}});
    for (std::int32_t z = 0; z < nz; ++z) {
        for (std::int32_t y = 0; y < ny; ++y) {
            for (std::int32_t x = 0; x < nx; ++x) {
                if (inside(x, y, z)) grid.insert({x, y, z});
            }
        }
    }
    mark_exposed_sides(grid);
    return grid;
}

Model model_of(const VoxelGrid& grid) {
    Model model;
    EXPECT_TRUE(build_model(grid, model, {}));
    EXPECT_TRUE(fix_lowest_layer(model, {}));
    return model;
}

Model block(std::int32_t nx, std::int32_t ny, std::int32_t nz, float size = 1) {
    return model_of(grid_of(nx, ny, nz, size));
}

Model ball(std::int32_t n) {
    const auto off = [n](std::int32_t i) { return i - 0.5 * (n - 1); };
    return model_of(grid_of(n, n, n, 2, [&](std::int32_t x, std::int32_t y, std::int32_t z) {
        return off(x) * off(x) + off(y) * off(y) + off(z) * off(z) <= 0.25 * n * n;
    }));
}

// Twice the distance from the middle of the model, in elements, of each node.
std::vector<std::array<std::int32_t, 3>> places_of(const Model& model) {
    std::vector<std::array<std::int32_t, 3>> places(model.node_count());
    for_each_element(model, [&](const Element& e) {
        for (std::size_t c = 0; c < kCorners; ++c) {
            const std::array<int, 3> sign = kCornerSigns[c];
            places[e.nodes[c]] = {e.x + sign[0], e.y + sign[1], e.z + sign[2]};
        }
    });
    return places;
}

// The assembled matrix, a map for each row, of all DoFs or of the free ones (numbered from 0).
template <typename Real>
class Assembled {
public:
    Assembled(const Model& model, std::size_t fixed) : rows(3 * (model.node_count() - fixed)) {
        const ElementMatrix element = element_matrix(model.size);
        for_each_element(model, [&](const Element& e) {
            for (std::size_t i = 0; i < kElementDofs; ++i) {
                for (std::size_t j = 0; j < kElementDofs; ++j) {
                    const std::size_t a = e.nodes[i / 3];
                    const std::size_t b = e.nodes[j / 3];
                    if (a < fixed || b < fixed) continue;
                    rows[3 * (a - fixed) + i % 3][3 * (b - fixed) + j % 3] +=
                        static_cast<Real>(element[i][j]);
                }
            }
        });
    }

    std::vector<Real> times(const std::vector<Real>& x) const {
        std::vector<Real> product(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i) {
            for (const auto& [j, value] : rows[i]) product[i] += value * x[j];
        }
        return product;
    }

    std::vector<std::map<std::size_t, Real>> rows;
};

double dot_of(const std::vector<float>& a, const std::vector<float>& b) {
    return dot_product(a.data(), b.data(), a.size());
}

template <typename Real>
std::vector<Real> free_values(const Model& model, const NodeField& field) {
    std::vector<Real> values;
    for (std::size_t node = model.fixed_nodes; node < model.node_count(); ++node) {
        for (std::size_t a = 0; a < 3; ++a) values.push_back(field.axis(a)[node]);
    }
    return values;
}

// Textbook conjugate gradients in the same precision.
std::size_t reference_steps(const Model& model, const NodeField& force, double tolerance) {
    const Assembled<float> matrix(model, model.fixed_nodes);
    std::vector<float> r = free_values<float>(model, force);
    std::vector<float> z(r.size());
    std::vector<float> p(r.size());
    const double enough = tolerance * tolerance * dot_of(r, r);
    double rz = 0;
    for (std::size_t steps = 0;; ++steps) {
        if (dot_of(r, r) < enough || steps == 3500) return steps;
        for (std::size_t i = 0; i < r.size(); ++i) z[i] = r[i] / matrix.rows[i].at(i);
        const double next = dot_of(r, z);
        const auto beta = static_cast<float>(steps == 0 ? 0 : next / rz);
        rz = next;
        for (std::size_t i = 0; i < r.size(); ++i) p[i] = z[i] + beta * p[i];
        const std::vector<float> product = matrix.times(p);
        const auto alpha = static_cast<float>(rz / dot_of(p, product));
        for (std::size_t i = 0; i < r.size(); ++i) r[i] -= alpha * product[i];
    }
}

// Gaussian elimination without pivots, which a positive definite matrix does not need.
std::vector<double> solved_densely(const Assembled<double>& matrix, std::vector<double> f) {
    const std::size_t n = f.size();
    std::vector<std::vector<double>> a(n, std::vector<double>(n));
    for (std::size_t i = 0; i < n; ++i) {
        for (const auto& [j, value] : matrix.rows[i]) a[i][j] = value;
    }
    for (std::size_t k = 0; k < n; ++k) {
        for (std::size_t i = k + 1; i < n; ++i) {
            const double factor = a[i][k] / a[k][k];
            if (factor == 0) continue;
            for (std::size_t j = k; j < n; ++j) a[i][j] -= factor * a[k][j];
            f[i] -= factor * f[k];
        }
    }
    for (std::size_t k = n; k-- > 0;) {
        for (std::size_t j = k + 1; j < n; ++j) f[k] -= a[k][j] * f[j];
        f[k] /= a[k][k];
    }
    return f;
}

// An L with a bridge and a cavity: rows of nodes with gaps, nodes of all kinds.
VoxelGrid crooked() {
    return grid_of(5, 4, 5, 2, [](std::int32_t x, std::int32_t y, std::int32_t z) {
        return z < 2 || (x == 0 && y < 3) || (x == 4 && y > 0) || (z == 4 && (x + y) % 3 != 0);
    });
}

NodeField random_field(std::size_t nodes, std::size_t fixed = 0) {
    NodeField field(nodes);
    shapes::Random random(7);
    for (std::size_t node = fixed; node < nodes; ++node) {
        for (std::size_t a = 0; a < 3; ++a) {
            field.axis(a)[node] = static_cast<float>(random.unit() - 0.5);
        }
    }
    return field;
}

TEST(ElementMatrix, ResistsNoRigidMotionAndAllStrainsByHookesLaw) {
    const float h = 3;
    const ElementMatrix k = element_matrix(h);
    for (std::size_t i = 0; i < kElementDofs; ++i) {
        for (std::size_t j = 0; j < kElementDofs; ++j) EXPECT_EQ(k[i][j], k[j][i]);
    }
    const auto twice_energy = [&](const std::array<double, 9>& gradient) {
        std::array<double, kElementDofs> u{};
        for (std::size_t i = 0; i < kElementDofs; ++i) {
            for (std::size_t a = 0; a < 3; ++a) {
                u[i] += gradient[3 * (i % 3) + a] * kCornerSigns[i / 3][a] * 0.5 * double{h};
            }
        }
        double sum = 0;
        for (std::size_t i = 0; i < kElementDofs; ++i) {
            for (std::size_t j = 0; j < kElementDofs; ++j) sum += u[i] * double{k[i][j]} * u[j];
        }
        return sum;
    };
    // Any constant gradient: turning costs nothing, strain what Hooke's law tells.
    shapes::Random random(1);
    const double e = double{kYoungsModulus};
    const double nu = double{kPoissonRatio};
    for (int round = 0; round < 20; ++round) {
        std::array<double, 9> g{};
        for (double& value : g) value = random.unit() - 0.5;
        const double trace = g[0] + g[4] + g[8];
        double squares = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            for (std::size_t j = 0; j < 3; ++j) {
                squares += std::pow(0.5 * (g[3 * i + j] + g[3 * j + i]), 2);
            }
        }
        const double lambda = e * nu / ((1 + nu) * (1 - 2 * nu));
        const double density = lambda * trace * trace + e / (1 + nu) * squares;
        EXPECT_NEAR(twice_energy(g), density * h * h * h, 1e-4 * density * h * h * h);
    }
    EXPECT_NEAR(twice_energy({0, 1, 2, -1, 0, 3, -2, -3, 0}), 0, 0.5);
    // Bodies shift for nothing.
    for (const auto& row : k) {
        for (std::size_t a = 0; a < 3; ++a) {
            double sum = 0;
            for (std::size_t j = a; j < kElementDofs; j += 3) sum += double{row[j]};
            EXPECT_NEAR(sum, 0, 1e-3);
        }
    }
}

TEST(Stiffness, LosesNoElementAtEndsOfRunsAndSlabs) {
    // Rows beyond a run's 63 elements count as well, and so do several slabs.
    for (const Model& model :
         {model_of(crooked()), block(1, 1, 1), block(63, 2, 2), block(130, 3, 2), ball(9)}) {
        const NodeField u = random_field(model.node_count(), model.fixed_nodes);
        Stiffness stiffness(model, 40);
        const double energy = stiffness.multiply(u);
        const std::vector<double> x = free_values<double>(model, u);
        const std::vector<double> wanted = Assembled<double>(model, model.fixed_nodes).times(x);
        double twice = 0;
        for (std::size_t i = 0; i < x.size(); ++i) twice += x[i] * wanted[i];
        EXPECT_NEAR(energy, twice, 1e-5 * twice);
        std::size_t compared = 0;
        for (const Stiffness::Slab& slab : stiffness.slabs()) {
            for (std::size_t n = std::max<std::size_t>(slab.first, model.fixed_nodes);
                 n < slab.last; ++n) {
                for (std::size_t a = 0; a < 3; ++a, ++compared) {
                    ASSERT_NEAR(stiffness.product(slab, a)[n - slab.first],
                                wanted[3 * (n - model.fixed_nodes) + a], 2e-6 * 2800 * 2);
                }
            }
        }
        EXPECT_EQ(compared, model.free_dofs());
        Array<float> energies;
        stiffness.energies(u, energies);
        double sum = 0;
        for (const float part : energies) sum += double{part};
        EXPECT_NEAR(sum, twice, 1e-5 * twice);
    }
}

TEST(Solve, StraysNoFurtherThanRoundingFromADenseSolution) {
    const Model model = model_of(crooked());
    const NodeField force = load_of(model, LoadCase::PressureZ, {});
    const std::vector<double> wanted = solved_densely(Assembled<double>(model, model.fixed_nodes),
                                                      free_values<double>(model, force));
    double largest = 0;
    for (const double w : wanted) largest = std::max(largest, std::abs(w));
    for (const bool moves_blocks : {false, true}) {
        const Solution solution = solve(model, force, {1e-6, 3500, moves_blocks});
        const std::vector<double> found = free_values<double>(model, solution.displacements);
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            EXPECT_NEAR(found[i], wanted[i], 1e-4 * largest);
        }
        for (std::size_t n = 0; n < model.fixed_nodes; ++n) {
            for (std::size_t a = 0; a < 3; ++a) EXPECT_EQ(solution.displacements.axis(a)[n], 0);
        }
    }
}

TEST(Solve, NeedsNoMoreStepsThanTheTextbookAndStopsAtTheLimit) {
    for (const Model& model : {block(10, 10, 10, 2), ball(12)}) {
        for (const double tolerance : {0.05, 1e-3}) {
            const NodeField force = load_of(model, LoadCase::PressureZ, {});
            const Solution solution = solve(model, force, {tolerance, 3500});
            EXPECT_NEAR(static_cast<double>(solution.steps),
                        static_cast<double>(reference_steps(model, force, tolerance)), 1);
            EXPECT_LT(solution.residual, tolerance);
        }
    }
    const Model model = block(4, 4, 4);
    EXPECT_EQ(solve(model, NodeField(model.node_count())).steps, 0U);
    EXPECT_EQ(solve(model, load_of(model, LoadCase::Gravity, {}), {1e-30, 5}).steps, 5U);
}

TEST(Solve, DoesNotTakeThousandsOfStepsWhereModelsAreSlender) {
    const Model model = block(4, 4, 200);
    const NodeField force = load_of(model, LoadCase::PressureX, {}, LoadRules::Even);
    const auto tip = [](const Solution& solution) {
        const float* x = solution.displacements.axis(0);
        return *std::min_element(x, x + solution.displacements.node_count());
    };
    const Solution plain = solve(model, force, {0.005, 20000});
    const Solution fast = solve(model, force, {0.005, 3500, true});
    EXPECT_GT(plain.steps, 2000U);
    EXPECT_LT(fast.steps, 60U);
    EXPECT_NEAR(tip(fast), tip(plain), 1e-3F * std::abs(tip(plain)));
    const OneThread alone;
    EXPECT_EQ(tip(solve(model, force, {0.005, 3500, true})), tip(fast));
}

TEST(Solve, IsNotSpoiltByBlocksThatNothingHolds) {
    // A loose cube, a lone node's neighbour over an edge: motions without resistance.
    const Model model = model_of(grid_of(9, 3, 9, 1, [](int x, int, int z) {
        return x < 3 || (x > 4 && z > 2) || (x == 3 && z == 8);
    }));
    Model loose =
        model_of(grid_of(9, 3, 9, 1, [](int x, int, int z) { return x < 3 || (x > 4 && z > 2); }));
    for (const Model* m : {&model, &std::as_const(loose)}) {
        NodeField force = load_of(*m, LoadCase::PressureZ, {}, LoadRules::Even);
        unload_loose_bodies(held_nodes(*m), force);
        const Solution plain = solve(*m, force, {1e-4, 3500});
        const Solution fast = solve(*m, force, {1e-4, 3500, true});
        EXPECT_LT(fast.residual, 1e-4);
        for (std::size_t n = 0; n < m->node_count(); ++n) {
            EXPECT_NEAR(fast.displacements.axis(2)[n], plain.displacements.axis(2)[n], 1e-4);
        }
    }
}

TEST(Solve, BendsNoStifferThanABeam) {
    const Model model = block(10, 10, 60);
    const auto places = places_of(model);
    const double push = 1.0 / (11 * 11);
    NodeField force(model.node_count());
    for (std::size_t n = 0; n < places.size(); ++n) {
        if (places[n][2] == 60) force.axis(0)[n] = static_cast<float>(push);
    }
    const Solution solution = solve(model, force, {1e-4, 3500});
    double tip = 0;
    for (std::size_t n = 0; n < places.size(); ++n) {
        if (places[n][2] == 60) tip += double{solution.displacements.axis(0)[n]} * push;
    }
    // Timoshenko: bending, and shear with 10 (1 + nu) / (12 + 11 nu) of a rectangle's area.
    const double e = double{kYoungsModulus};
    const double nu = double{kPoissonRatio};
    const double inertia = 10 * 1000.0 / 12;
    const double share = 10 * (1 + nu) / (12 + 11 * nu);
    const double wanted =
        60.0 * 60 * 60 / (3 * e * inertia) + 60 / (share * e / (2 + 2 * nu) * 100);
    EXPECT_NEAR(tip, wanted, 0.05 * wanted);
}

TEST(Energies, AreSmoothedOverNodesNotOverDistance) {
    const Model model = model_of(crooked());
    const NodeField u = random_field(model.node_count(), model.fixed_nodes);
    const Array<float> rough = smoothed_energies(model, u, 0, {});
    std::vector<double> sums(model.node_count());
    for_each_element(model, [&](const Element& e) {
        for (const std::uint32_t n : e.nodes) sums[n] += double{rough[e.index]};
    });
    const Array<float> smooth = smoothed_energies(model, u, 1, {});
    for_each_element(model, [&](const Element& e) {
        double mean = 0;
        for (const std::uint32_t n : e.nodes) mean += sums[n] / model.element_counts[n] / 8;
        EXPECT_NEAR(smooth[e.index], mean, 1e-5 * mean);
    });
}

TEST(Model, LeavesNoHollowInARowAndNoNodeOutOfOrder) {
    // A shell of voxels; what is open to the right is not filled, nor is the last of a row.
    const auto model_in_row = [](std::initializer_list<std::pair<int, int>> voxels) {
        VoxelGrid grid(VoxelSettings{{1, 1, 1}}, {{0, 0, 0}, {9, 0, 0}});
        for (const auto& [x, flags] : voxels) grid.insert({x, 0, 0});
        for (const auto& [x, flags] : voxels) {
            grid.set_flags({x, 0, 0}, static_cast<std::uint8_t>(flags));
        }
        Model model;
        build_model(grid, model, {});
        std::string row(10, '.');
        for_each_element(model, [&](const Element& e) {
            const double x = double{model.centre_of(e).x};
            row[static_cast<std::size_t>(std::lround(x))] = model.faces[e.index] != 0 ? 'V' : 'f';
        });
        return row;
    };
    EXPECT_EQ(model_in_row({{1, 61}, {5, 47}}), ".VfffV....");
    EXPECT_EQ(model_in_row({{1, 63}, {5, 47}}), ".V...V....");
    EXPECT_EQ(model_in_row({{1, 61}, {3, 0}, {5, 45}}),
              ".VfffV....");  // unmarked ones do not count
    EXPECT_EQ(model_in_row({{1, 0}}), "..........");

    const Model model = model_of(crooked());
    const auto places = places_of(model);
    std::array<std::int32_t, 3> before{0, 0, -100};
    for (const std::array<std::int32_t, 3>& place : places) {
        EXPECT_TRUE(std::tie(before[2], before[1], before[0]) <
                    std::tie(place[2], place[1], place[0]));
        before = place;
    }
    for (std::size_t n = 0; n < model.node_count(); ++n) {
        EXPECT_EQ(n < model.fixed_nodes, places[n][2] == places[0][2]);
    }
}

TEST(Model, RefusesWhatCannotMove) {
    Job job;
    Model model;
    ASSERT_TRUE(build_model(grid_of(1, 1, 1, 2), model, job.log));
    ASSERT_TRUE(fix_lowest_layer(model, job.log));
    EXPECT_EQ(model.free_dofs(), 12U);
    EXPECT_EQ(job.text,
              "\n-----------------------------------------------\n                start to do FEM"
              "\nnode    number: 8element number: 1\nfreeDoF number: 12\t");
    // All nodes at one height.
    Model flat;
    flat.signs.resize(4);
    flat.layer_nodes = {0, 4};
    Job flat_job;
    EXPECT_FALSE(fix_lowest_layer(flat, flat_job.log));
    EXPECT_EQ(flat_job.text, "error when setting Force: DoF <= 0");
}

// "x 1 0 1: -0.25" for a force along x on the node at (1, 0, 1), counted from the lowest corner.
std::set<std::string> loads_of(const Model& model, LoadCase load, std::string* text = nullptr) {
    Job job;
    const NodeField field = load_of(model, load, job.log);
    if (text != nullptr) *text = job.text;
    const auto places = places_of(model);
    std::set<std::string> loads;
    for (std::size_t n = 0; n < places.size(); ++n) {
        for (std::size_t a = 0; a < 3; ++a) {
            const float force = field.axis(a)[n];
            if (force == 0) continue;
            std::string line(1, static_cast<char>('x' + a));
            for (std::size_t i = 0; i < 3; ++i) {
                line += " " + std::to_string((places[n][i] - places[0][i]) / 2);
            }
            loads.insert(line + ": " + six_decimals(double{force}).substr(0, force < 0 ? 6 : 5));
        }
    }
    return loads;
}

// The four corners of the top of the element at (x, y) below layer `z` of the nodes.
std::set<std::string> top(int x, int y, int z, const char* force = "0.250") {
    std::set<std::string> loads;
    for (const int i : {0, 1}) {
        for (const int j : {0, 1}) {
            loads.insert("z " + std::to_string(x + i) + " " + std::to_string(y + j) + " " +
                         std::to_string(z) + ": " + force);
        }
    }
    return loads;
}

std::set<std::string> both(std::set<std::string> a, const std::set<std::string>& b) {
    a.insert(b.begin(), b.end());
    return a;
}

TEST(Loads, MissOrDoubleNoNode) {
    struct Row {
        const Model& model;
        LoadCase load;
        std::set<std::string> loads;
        std::string text = {};  // the end of the log
    };
    const Model two = block(1, 1, 2, 2);  // h^2 / 4 = 1
    const Model five = block(5, 1, 1, 2);
    // Counted from its stem: of the cap's lower side, the middle is inside.
    const Model mushroom =
        model_of(grid_of(3, 1, 2, 2, [](int x, int, int z) { return z == 1 || x == 1; }));
    const Model odd = block(5, 5, 2);
    const Model even = block(4, 4, 2);  // no element over the middle
    const auto on_plate = [](auto is_on) {
        return model_of(
            grid_of(5, 5, 2, 1, [=](int x, int y, int z) { return z == 0 || is_on(x, y); }));
    };
    const Model corner = on_plate([](int x, int y) { return x == 4 && (y == 2 || y == 4); });
    // An element can be found from the end and be no other's opposite.
    const Model tooth = on_plate([](int x, int y) { return x == 4 && y == 2; });
    const std::vector<Row> rows = {
        {two,
         LoadCase::PressureX,
         {"x 1 0 1: -1.000", "x 1 1 1: -1.000", "x 1 0 2: -1.000", "x 1 1 2: -1.000"}},
        // Of elements below one another, only the lowest begins a row.
        {two, LoadCase::PressureNegX, {"x 0 0 1: 1.000", "x 0 1 1: 1.000"}},
        {two,
         LoadCase::PressureY,
         {"y 0 1 1: -2.000", "y 1 1 1: -2.000", "y 0 1 2: -1.000", "y 1 1 2: -1.000"}},
        {two,
         LoadCase::PressureNegY,
         {"y 0 0 1: 2.000", "y 1 0 1: 2.000", "y 0 0 2: 1.000", "y 1 0 2: 1.000"}},
        {two, LoadCase::PressureZ, {}},     // the first of five is left out
        {two, LoadCase::PressureNegZ, {}},  // fixed
        {two, static_cast<LoadCase>(0), {}},
        {two,
         LoadCase::Pressure,
         {"x 0 0 1: 2.000",  "x 0 1 1: 2.000",  "x 1 0 1: -2.000", "x 1 1 1: -2.000",
          "y 0 0 1: 2.000",  "y 1 0 1: 2.000",  "y 0 1 1: -2.000", "y 1 1 1: -2.000",
          "x 0 0 2: 1.000",  "x 0 1 2: 1.000",  "x 1 0 2: -1.000", "x 1 1 2: -1.000",
          "y 0 0 2: 1.000",  "y 1 0 2: 1.000",  "y 0 1 2: -1.000", "y 1 1 2: -1.000",
          "z 0 0 2: -1.000", "z 0 1 2: -1.000", "z 1 0 2: -1.000", "z 1 1 2: -1.000"}},
        // Ten times as much on the first element alone.
        {two,
         LoadCase::PressureLight,
         {"x 0 0 1: 10.00", "x 0 1 1: 10.00", "x 1 0 1: -10.00", "x 1 1 1: -10.00",
          "y 0 0 1: 10.00", "y 1 0 1: 10.00", "y 0 1 1: -10.00", "y 1 1 1: -10.00"}},
        {five, LoadCase::PressureZ, top(4, 0, 1, "-1.000")},
        {mushroom,
         LoadCase::PressureNegZ,
         {"z -1 0 1: 1.000", "z -1 1 1: 1.000", "z 2 0 1: 1.000", "z 2 1 1: 1.000"}},
        {odd, LoadCase::CentreTop, top(2, 2, 2), "\n | set ForceOnCenterTop,Force= 1.000000..."},
        {odd, LoadCase::SidesOfYTop, both(top(4, 2, 2), top(0, 2, 2)),
         "\n | set ForceOnBoundaryYSideCenterTop,Force= 1.000000..."},
        {odd, LoadCase::SidesOfXTop, both(top(2, 4, 2), top(2, 0, 2))},
        {even, LoadCase::CentreTop, {}, "...\n | fail to find the position of center top!"},
        {even,
         LoadCase::SidesOfYTop,
         {},
         "\n | fail to find the +x-position of Y Side center top! "
         "\n | Stop adding force on -x-position of Y side."},
        {even,
         LoadCase::SidesOfXTop,
         {},
         "\n | fail to find the +y-position of X Side center top!"
         "\n | Stop adding force on -y-position of X side."},
        {corner, LoadCase::SidesOfYTop, top(4, 2, 2, "0.500")},
        {tooth, LoadCase::SidesOfYTop, top(4, 2, 2),
         "\n | fail to find the -x-position of Y Side center top!"
         "\n | Stop adding force on +x-position of Y side."},
    };
    for (const Row& row : rows) {
        std::string text;
        const auto at = static_cast<std::size_t>(&row - rows.data());
        EXPECT_EQ(loads_of(row.model, row.load, &text), row.loads) << "row " << at;
        EXPECT_THAT(text, testing::EndsWith(row.text)) << "row " << at;
    }
    double weight = 0;
    const NodeField gravity = load_of(two, LoadCase::Gravity, {});
    for (std::size_t n = 0; n < two.node_count(); ++n) weight += double{gravity.axis(2)[n]};
    EXPECT_NEAR(weight, -8 * 1.5 * double{kDensity}, 1e-9);  // a quarter hangs on fixed nodes
}

TEST(Loads, EvenPressureLeavesOutNoFaceAndNoneTwice) {
    // A staircase: what presses along an axis is its shadow there, 4 x 4, whatever the steps.
    const Model stairs = model_of(
        grid_of(4, 4, 5, 1, [](int x, int y, int z) { return z == 0 || z <= 1 + (x + y) % 4; }));
    for (const auto& [load, axis, sum] : {std::tuple{LoadCase::PressureX, 0, -18.0},
                                          {LoadCase::PressureNegX, 0, 18.0},
                                          {LoadCase::PressureNegY, 1, 18.0},
                                          {LoadCase::PressureZ, 2, -16.0}}) {
        const NodeField field = load_of(stairs, load, {}, LoadRules::Even);
        for (int a = 0; a < 3; ++a) {
            double total = 0;
            for (std::size_t n = 0; n < stairs.node_count(); ++n) {
                total += double{field.axis(static_cast<std::size_t>(a))[n]};
            }
            // Of the faces at the side, 4 have two corners on the fixed layer.
            EXPECT_NEAR(total, a == axis ? sum : 0, 1e-5) << static_cast<int>(load);
        }
    }
}

TEST(FemAnalysis, DoesNotPassOffWhatItDidNotSolve) {
    Job job;
    const TriMesh box = shapes::mesh_of(shapes::box({0, 0, 0}, {10, 10, 30}));
    AnalysisOptions options{.voxel_size = 2};
    EXPECT_TRUE(analyse(box, options, job.run).is_converged);
    options.solve.most_steps = 3;
    EXPECT_FALSE(analyse(box, options, job.run).is_converged);
    options.load = LoadCase::RandomPoints;  // too few nodes for a point
    EXPECT_FALSE(analyse(box, options, job.run).is_loaded);
}

TEST(Loads, RandomPointsDoNotChangeFromRunToRun) {
    EXPECT_EQ(loads_of(block(10, 10, 10), LoadCase::RandomPoints).size(), 0U);  // 3630 free DoFs
    const Model large = block(22, 22, 22);                                      // 34914: three
    std::string text;
    const std::set<std::string> loads = loads_of(large, LoadCase::RandomPoints, &text);
    EXPECT_EQ(loads.size(), 3U);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\t'), 3);
    EXPECT_EQ(loads, loads_of(large, LoadCase::RandomPoints));
}

TEST(FemAnalysis, IsNotLedAstrayByPlaceThreadsOrLooseBodies) {
    shapes::SoupVector soup = shapes::box({0, 0, 0}, {20, 10, 30});
    shapes::append(soup, shapes::box({40, 0, 20}, {50, 10, 30}));  // hangs in the air
    shapes::move(soup, {1000, -200, 5});
    Job job;
    const EnergyField result = analyse(shapes::mesh_of(soup), {.voxel_size = 2}, job.run);
    ASSERT_TRUE(result.is_solved);
    float largest = 0;
    for (std::size_t i = 0; i < result.values.size(); ++i) {
        const Vec3f p = result.centres[i];
        EXPECT_TRUE(p.x >= 999 && p.x <= 1051 && p.y >= -201 && p.y <= -189 && p.z >= 4 &&
                    p.z <= 36);
        EXPECT_TRUE(p.x < 1030 || result.values[i] == 0);
        largest = std::max(largest, result.values[i]);
    }
    EXPECT_EQ(largest, 1);
    for (const char* line :
         {"\nVoxel Num:", "\n | set PressureZdir    ,Force= 1.000000...\n | CG..",
          "sec.  iter:", "\n | compute Displacement...complete in  ",
          "\n | compute Energy...complete in  ", "\n---{success} fem_analysis : "}) {
        EXPECT_THAT(job.text, HasSubstr(line));
    }
    // The same bits on one thread.
    const OneThread alone;
    EXPECT_EQ(analyse(shapes::mesh_of(soup), {.voxel_size = 2}, job.run).values, result.values);
}

TEST(FemAnalysis, FailsWithoutVoxelsAndKeepsNaNWithoutLoad) {
    Job job;
    EXPECT_FALSE(analyse({}, {.voxel_size = 2}, job.run).is_solved);
    EXPECT_THAT(job.text, HasSubstr("\nVoxelization: 0 voxels --> break"));
    const EnergyField still =
        analyse(shapes::mesh_of(shapes::box({0, 0, 0}, {9, 9, 9})),
                {.voxel_size = 2, .load = static_cast<LoadCase>(99)}, job.run);
    ASSERT_TRUE(still.is_solved);
    EXPECT_EQ(still.steps, 0U);
    EXPECT_TRUE(std::isnan(still.values[0]));
}

}  // namespace
}  // namespace povmesh::fem
