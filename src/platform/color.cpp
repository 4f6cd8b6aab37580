// Hex text and the archived dictionary form of colours.
#include "platform/color.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace lumeo {

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

double clamp01(double v) {
  return std::clamp(v, 0.0, 1.0);
}

int toByte(double v) {
  return static_cast<int>(std::lround(clamp01(v) * 255.0));
}

std::optional<double> component(const Value& archive, const char* name) {
  const Value& v = archive[name];
  if (!v.isNumber()) return std::nullopt;
  double d = v.toDouble();
  if (!std::isfinite(d)) return std::nullopt;
  return clamp01(d);
}

}  // namespace

std::optional<Color> Color::fromHex(const std::string& text) {
  std::string_view s = text;
  if (!s.empty() && s.front() == '#') s.remove_prefix(1);
  if (s.size() != 6 && s.size() != 8) return std::nullopt;
  double parts[4] = {0, 0, 0, 255};
  for (std::size_t i = 0; i < s.size(); i += 2) {
    int hi = hexDigit(s[i]);
    int lo = hexDigit(s[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    parts[i / 2] = hi * 16 + lo;
  }
  return Color(parts[0] / 255.0, parts[1] / 255.0, parts[2] / 255.0, parts[3] / 255.0);
}

std::string Color::toHex() const {
  char buf[16];
  if (toByte(alpha) == 255) {
    std::snprintf(buf, sizeof buf, "#%02X%02X%02X", toByte(red), toByte(green), toByte(blue));
  } else {
    std::snprintf(buf, sizeof buf, "#%02X%02X%02X%02X", toByte(red), toByte(green), toByte(blue),
                  toByte(alpha));
  }
  return buf;
}

Value Color::archived() const {
  return Value::Dictionary{{"red", red}, {"green", green}, {"blue", blue}, {"alpha", alpha}};
}

std::optional<Color> Color::fromArchive(const Value& archive) {
  if (!archive.asDictionary()) return std::nullopt;
  auto r = component(archive, "red");
  auto g = component(archive, "green");
  auto b = component(archive, "blue");
  if (!r || !g || !b) return std::nullopt;
  double a = 1;
  if (!archive["alpha"].isNull()) {
    auto parsed = component(archive, "alpha");
    if (!parsed) return std::nullopt;
    a = *parsed;
  }
  return Color(*r, *g, *b, a);
}

}  // namespace lumeo
