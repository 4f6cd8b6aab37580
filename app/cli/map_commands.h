// What the map's command file offers the other command files.
#pragma once

#include <utility>

namespace lumeo::cli {

// The user's position now, from GeoClue: the first fix accurate to within
// 100 m and at most 100 s old, waited for up to 30 s. Throws CommandError
// (status 1) when location is denied, there is no location service, or no
// good fix came in time; nothing has been written then.
std::pair<double, double> currentPlace();

}  // namespace lumeo::cli
