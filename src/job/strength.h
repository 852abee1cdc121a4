// Colours that tell where a model is weak, and the places where it is weakest.
#pragma once

#include <array>
#include <vector>

#include "analysis/strength.h"
#include "job/job.h"

namespace povmesh::job {

struct NamedLoad {
    const char* name;
    fem::LoadCase load;
    const char* text;
};

// In the order of the choices of --load.
inline constexpr std::array<NamedLoad, 13> kStrengthLoads = {{
    {"top", fem::LoadCase::PressureZ, "pressure on the top faces"},
    {"all", fem::LoadCase::Pressure, "pressure on all faces"},
    {"centre", fem::LoadCase::CentreTop, "a force on the centre of the top"},
    {"gravity", fem::LoadCase::Gravity, "the model's own weight"},
    {"bottom", fem::LoadCase::PressureNegZ, "pressure on the faces below"},
    {"right", fem::LoadCase::PressureX, "pressure on the faces towards +x"},
    {"left", fem::LoadCase::PressureNegX, "pressure on the faces towards -x"},
    {"back", fem::LoadCase::PressureY, "pressure on the faces towards +y"},
    {"front", fem::LoadCase::PressureNegY, "pressure on the faces towards -y"},
    {"ends-x", fem::LoadCase::SidesOfYTop, "forces on both ends of the top along x"},
    {"ends-y", fem::LoadCase::SidesOfXTop, "forces on both ends of the top along y"},
    {"spots", fem::LoadCase::PressureLight, "pressure on every tenth element"},
    {"points", fem::LoadCase::RandomPoints, "forces on points of the surface"},
}};

struct WeakPlace {
    Vec3f place;
    double share;  // of the highest value
};

struct StrengthJob {
    StrengthMethod method = StrengthMethod::FiniteElements;
    NamedLoad load = kStrengthLoads.front();  // for finite elements
};

struct StrengthDone : Remarks {
    StrengthReport report;
    std::vector<WeakPlace> places;  // the weakest first
    double seconds = 0;
};

/// Leaves the mesh in even triangles, in colours.
Status strength(TriMesh& mesh, const StrengthJob& job, Progress progress, StrengthDone& done);

}  // namespace povmesh::job
