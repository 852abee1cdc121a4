// Looks for the cuts that divide a model into few parts, on a model of cells.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "decompose/part_size.h"
#include "decompose/solid_cells.h"

namespace povmesh {

/// A piece of the solid model, and how it was divided.
struct PlannedPiece {
    Box3d box;
    bool is_divided = false;
    CutPlace place;                       // when it is
    double low = 0, high = 0;             // between which the place may move
    std::vector<std::uint32_t> children;  // those below the plane, then those above
};

struct DivisionPlan {
    std::vector<PlannedPiece> pieces;
    std::vector<std::uint32_t> roots;
    std::size_t parts = 0;
};

class PlanSearch;

/// The cells tell most of what a cut does, not all: what they take for one piece may be two. So a
/// search may be asked again after it was told what became of its plan.
class DivisionSearch {
public:
    /// @param effort  how many runs and cells may be looked at; lessened by those that were
    DivisionSearch(SolidModel solid, const PartSize& size, std::size_t& effort);
    ~DivisionSearch();
    DivisionSearch(const DivisionSearch&) = delete;
    DivisionSearch& operator=(const DivisionSearch&) = delete;

    /// Plans the division: as few parts as a beam search finds, then the best cuts. Counts bound
    /// it, never time. A plan without pieces when the model is too large for a search, the effort
    /// ends before there is one, or it would be a plan made before.
    DivisionPlan plan();

    /// The division of a piece of the last plan made more parts than it was to, and how many
    /// crumbs.
    void correct(std::uint32_t piece, std::size_t more_parts, std::size_t crumbs);

private:
    std::unique_ptr<PlanSearch> search_;
};

/// About a second.
constexpr std::size_t kDivisionEffort = 60'000'000;

}  // namespace povmesh
