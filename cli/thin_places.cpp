#include "cli/thin_places.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/convert.h"
#include "job/numbers.h"

namespace povmesh::cli {
namespace {

Json number_json(double number) {
    return std::isfinite(number) ? Json(shortest_of(number)) : Json();
}

std::string places_text(const ThinPlaces& found, const char* comparison) {
    return counted(found.count, "place") + " " + comparison + " " + human_number(found.asked);
}

}  // namespace

std::string thin_text(const ThinPlaces& walls) {
    return places_text(walls, "thinner than");
}

std::string narrow_text(const ThinPlaces& gaps) {
    return places_text(gaps, "narrower than");
}

std::string thinnest_text(const ThinPlaces& found) {
    const auto thinnest = std::min_element(
        found.places.begin(), found.places.end(),
        [](const ThinPlace& a, const ThinPlace& b) { return a.smallest < b.smallest; });
    return human_number(shortest_of(thinnest->smallest)) + " " + place_text(told_point(*thinnest));
}

Json thin_json(const ThinPlaces& found, std::size_t listed) {
    Json places = Json::array();
    for (std::size_t i = 0; i < std::min(listed, found.places.size()); ++i) {
        const ThinPlace& place = found.places[i];
        const Vec3d size = place.box.extent();
        places.push_back(
            {{"point",
              {shortest_of(place.point.x), shortest_of(place.point.y), shortest_of(place.point.z)}},
             {"area", place.area},
             {"smallest", number_json(place.smallest)},
             {"size", {shortest_of(size.x), shortest_of(size.y), shortest_of(size.z)}}});
    }
    return {{"asked", found.asked}, {"smallest", number_json(found.smallest)},
            {"area", found.area},   {"share", found.share},
            {"count", found.count}, {"places", std::move(places)}};
}

}  // namespace povmesh::cli
