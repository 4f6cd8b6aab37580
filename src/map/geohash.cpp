// Geohash by alternate bisection of longitude and latitude.
#include "map/geohash.h"

namespace lumeo {
namespace {

constexpr char kAlphabet[] = "0123456789bcdefghjkmnpqrstuvwxyz";

}  // namespace

std::uint64_t geohashBitsForCoordinate(LocationCoordinate2D coordinate, int length) {
  double latLow = -90.0, latHigh = 90.0;
  double lonLow = -180.0, lonHigh = 180.0;
  std::uint64_t bits = 0;
  int total = length * 5;
  for (int i = 0; i < total; ++i) {
    bits <<= 1;
    if (i % 2 == 0) {
      double mid = (lonLow + lonHigh) / 2;
      if (coordinate.longitude >= mid) {
        bits |= 1;
        lonLow = mid;
      } else {
        lonHigh = mid;
      }
    } else {
      double mid = (latLow + latHigh) / 2;
      if (coordinate.latitude >= mid) {
        bits |= 1;
        latLow = mid;
      } else {
        latHigh = mid;
      }
    }
  }
  return bits;
}

std::string geohashStringForBits(std::uint64_t bits, int length) {
  std::string text(static_cast<std::size_t>(length), '0');
  for (int i = length - 1; i >= 0; --i) {
    text[static_cast<std::size_t>(i)] = kAlphabet[bits & 31];
    bits >>= 5;
  }
  return text;
}

std::string geohashForCoordinate(LocationCoordinate2D coordinate, int length) {
  return geohashStringForBits(geohashBitsForCoordinate(coordinate, length), length);
}

}  // namespace lumeo
