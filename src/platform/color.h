// A colour as the journal keeps it: red, green, blue and alpha from 0 to 1.
// Settings hold a colour in an archived form of our own, a dictionary of the
// four components, which any property-list reader can make sense of.
#pragma once

#include <optional>
#include <string>

#include "platform/value.h"

namespace lumeo {

struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  constexpr Color() = default;
  constexpr Color(double r, double g, double b, double a = 1) : red(r), green(g), blue(b), alpha(a) {}

  // Components given from 0 to 255, as the level table and the defaults write
  // them; fractions are allowed.
  static constexpr Color fromRGB255(double r, double g, double b, double a = 1) {
    return Color(r / 255.0, g / 255.0, b / 255.0, a);
  }

  // "#RRGGBB" or "#RRGGBBAA" (the "#" optional, hex digits of either case);
  // nothing for any other text.
  static std::optional<Color> fromHex(const std::string& text);
  // "#RRGGBB", or "#RRGGBBAA" when alpha is not 1; components are rounded to
  // the nearest step of 1/255 and clamped into 0..1.
  std::string toHex() const;

  // The archived form: {"red": r, "green": g, "blue": b, "alpha": a}, reals.
  Value archived() const;
  // Reads the archived form back. Nothing when the value is not a dictionary
  // or lacks a numeric red, green or blue, or a component is not a finite
  // number; alpha defaults to 1; components are clamped into 0..1.
  static std::optional<Color> fromArchive(const Value& archive);

  friend bool operator==(const Color&, const Color&) = default;
};

}  // namespace lumeo
