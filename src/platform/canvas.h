// A drawing surface in memory: the one way Lumeo draws pictures (level
// gradients, scaled photos, later charts and report pages), so that every
// front end shows the same pixels. Coordinates are in pixels with the origin
// at the top left and y growing downward; transforms apply to later drawing.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "platform/color.h"
#include "platform/error.h"
#include "platform/image.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

namespace lumeo {

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  friend bool operator==(const Rect&, const Rect&) = default;
};

// Owns its pixels; movable, not copyable. Not thread-safe: one canvas is
// drawn by one thread at a time.
class Canvas {
 public:
  // A transparent canvas. Negative sizes count as 0.
  Canvas(int width, int height);
  ~Canvas();
  Canvas(Canvas&& other) noexcept;
  Canvas& operator=(Canvas&& other) noexcept;
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  int width() const { return width_; }
  int height() const { return height_; }

  // Transforms, kept on a stack by saveState/restoreState.
  void saveState();
  void restoreState();
  void translate(double dx, double dy);
  void scale(double sx, double sy);
  // Clockwise on screen for a positive angle, as y grows downward.
  void rotate(double radians);

  void fillRect(const Rect& rect, const Color& color);
  // Fills `rect` with a linear gradient from `start` to `end` through
  // `colors` at evenly spaced stops; beyond the ends the end colours hold.
  void fillLinearGradient(const Rect& rect, Point start, Point end, const std::vector<Color>& colors);
  // Draws the stored pixels of `image` scaled into `destination`, with
  // bilinear filtering (or a box filter when shrinking a lot). The
  // orientation is the caller's business (see imageByScalingToSize).
  void drawImage(const Image& image, const Rect& destination);

  // The cairo context behind the canvas, for drawing code built on cairo
  // (text through pango). Valid while the canvas lives; callers balance
  // their state changes with cairo_save and cairo_restore.
  cairo_t* cairoContext() const { return cr_; }

  // The colour of one pixel, not premultiplied; transparent black outside.
  Color pixelAt(int x, int y) const;
  // The pixels as an upright image.
  Image image() const;
  OrError<std::vector<std::uint8_t>> pngData() const;
  // Writes a PNG atomically.
  OptionalError writePNG(const std::filesystem::path& path) const;

 private:
  int width_ = 0;
  int height_ = 0;
  cairo_surface_t* surface_ = nullptr;
  cairo_t* cr_ = nullptr;
};

}  // namespace lumeo
