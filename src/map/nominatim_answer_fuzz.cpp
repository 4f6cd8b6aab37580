// Answers of a place server: whatever they hold, reading them must neither
// crash nor yield a place without a real position.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "map/nominatim_place_search.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  auto check = [](const lumeo::Place& place) {
    const auto& c = place.coordinate;
    if (!std::isfinite(c.latitude) || !std::isfinite(c.longitude) || std::fabs(c.latitude) > 90 ||
        std::fabs(c.longitude) > 180)
      __builtin_trap();
  };
  auto search = lumeo::NominatimPlaceSearch::parseSearch(body);
  if (auto* places = std::get_if<std::vector<lumeo::Place>>(&search)) {
    for (const auto& place : *places) check(place);
  }
  auto reverse = lumeo::NominatimPlaceSearch::parseReverse(body);
  if (auto* place = std::get_if<std::optional<lumeo::Place>>(&reverse); place && *place) check(**place);
  return 0;
}
