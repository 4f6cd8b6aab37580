// Finding places by name and naming a position: the search box of the place
// chooser and the address of a pin. On Linux it is Nominatim over HTTP
// (nominatim_place_search.h); tests and other platforms give their own.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "map/map_geometry.h"
#include "platform/error.h"

namespace lumeo {

inline constexpr const char* kPlaceSearchErrorDomain = "LumeoPlaceSearchErrorDomain";
// The server cannot be reached (down, no network, a wrong address).
inline constexpr long kPlaceServerUnreachable = 1;
// The server asks to wait (HTTP 429); the error's user info holds
// "retryAfter" in seconds.
inline constexpr long kPlaceServerBusy = 2;
// The server answered with an error or with something that is no answer.
inline constexpr long kPlaceServerError = 3;
// No answer in time.
inline constexpr long kPlaceServerTimeout = 4;

struct Place {
  std::string name;         // "Graz"
  std::string displayName;  // "Graz, Steiermark, Österreich"
  std::string kind;         // "city", "cafe", ... as the server calls it
  LocationCoordinate2D coordinate;
};

class PlaceSearch {
 public:
  using SearchCompletion = std::function<void(const std::vector<Place>& places, const OptionalError& error)>;
  using ReverseCompletion =
      std::function<void(const std::optional<Place>& place, const OptionalError& error)>;

  virtual ~PlaceSearch() = default;
  // Places matching `text`, best first, preferring those in `near` when
  // given. No match is an empty list, not an error. The completion runs on
  // the main queue.
  virtual void search(const std::string& text, std::optional<CoordinateRegion> near,
                      SearchCompletion completion) = 0;
  // The place at a position; nothing (and no error) where there is none,
  // such as the open sea. The completion runs on the main queue.
  virtual void reverse(LocationCoordinate2D coordinate, ReverseCompletion completion) = 0;
};

}  // namespace lumeo
