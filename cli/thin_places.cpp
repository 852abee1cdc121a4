#include "cli/thin_places.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/convert.h"
#include "cli/numbers.h"

namespace povmesh::cli {
namespace {

double shortest(double number) {
    return shortest_double(narrow_to_float(number));
}

Json number_json(double number) {
    return std::isfinite(number) ? Json(shortest(number)) : Json();
}

std::string places_text(const ThinPlaces& found, const char* comparison) {
    return counted(found.count, "place") + " " + comparison + " " + human_number(found.asked);
}

}  // namespace

ThinMeasurement measure_thin(const TriMesh& mesh, const Findings& findings,
                             const ThicknessOptions& options) {
    ThinMeasurement measured;
    if (findings.has_flaws() && !findings.has_degenerate_faces_only()) {
        measured.warnings.push_back("walls are measured although the model has flaws (" +
                                    verdict(findings) +
                                    "): what is near them may be told wrong; repair it first");
    }
    measured.report = measure_thickness(mesh, options);
    const ThicknessReport& report = measured.report;
    if (report.left_out != 0) {
        measured.warnings.push_back(counted(report.left_out, "triangle") +
                                    " not measured: without area, or without a finite place");
    }
    if (report.is_coarse) {
        measured.warnings.push_back(
            "measured every " + human_number(shortest(report.pieces.limit())) + " only, at " +
            counted(report.pieces.size(), "place") +
            "; smaller thin places may be missed; measure a part of the model, or a thicker wall");
    }
    return measured;
}

std::string thin_text(const ThinPlaces& walls) {
    return places_text(walls, "thinner than");
}

std::string narrow_text(const ThinPlaces& gaps) {
    return places_text(gaps, "narrower than");
}

Vec3f told_point(const ThinPlace& place) {
    return {narrow_to_float(place.point.x), narrow_to_float(place.point.y),
            narrow_to_float(place.point.z)};
}

std::string thinnest_text(const ThinPlaces& found) {
    const auto thinnest = std::min_element(
        found.places.begin(), found.places.end(),
        [](const ThinPlace& a, const ThinPlace& b) { return a.smallest < b.smallest; });
    return human_number(shortest(thinnest->smallest)) + " " + place_text(told_point(*thinnest));
}

Json thin_json(const ThinPlaces& found, std::size_t listed) {
    Json places = Json::array();
    for (std::size_t i = 0; i < std::min(listed, found.places.size()); ++i) {
        const ThinPlace& place = found.places[i];
        const Vec3d size = place.box.extent();
        places.push_back(
            {{"point", {shortest(place.point.x), shortest(place.point.y), shortest(place.point.z)}},
             {"area", place.area},
             {"smallest", number_json(place.smallest)},
             {"size", {shortest(size.x), shortest(size.y), shortest(size.z)}}});
    }
    return {{"asked", found.asked}, {"smallest", number_json(found.smallest)},
            {"area", found.area},   {"share", found.share},
            {"count", found.count}, {"places", std::move(places)}};
}

}  // namespace povmesh::cli
