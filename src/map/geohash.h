// The location key of an annotation: the nine-character geohash of its
// coordinate (cells of about 5 metres). Two annotations are at one location
// when their keys are equal; the engine compares the packed bits, which
// order and compare the same way as the text.
#pragma once

#include <cstdint>
#include <string>

#include "map/map_geometry.h"

namespace lumeo {

inline constexpr int kLocationKeyLength = 9;

// 5 bits per character, longitude first, packed into the low bits.
std::uint64_t geohashBitsForCoordinate(LocationCoordinate2D coordinate, int length = kLocationKeyLength);
std::string geohashForCoordinate(LocationCoordinate2D coordinate, int length = kLocationKeyLength);
std::string geohashStringForBits(std::uint64_t bits, int length = kLocationKeyLength);

}  // namespace lumeo
