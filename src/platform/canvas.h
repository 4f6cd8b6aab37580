// A drawing surface in memory: the one way Lumeo draws pictures (level
// gradients, scaled photos, later charts and report pages), so that every
// front end shows the same pixels. Coordinates are in pixels with the origin
// at the top left and y growing downward; transforms apply to later drawing.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
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

// A figure to fill or stroke: straight segments, closed or open, and
// ellipses, in the coordinates of the canvas at the time of drawing.
class Path {
 public:
  struct Element {
    enum class Kind { kMove, kLine, kClose, kEllipse };
    Kind kind = Kind::kMove;
    Point point;  // kMove, kLine
    Rect rect;    // kEllipse: the bounding box
  };

  void moveTo(Point point) { elements_.push_back({Element::Kind::kMove, point, {}}); }
  // A line from the current point; without one it starts the figure there.
  void lineTo(Point point) { elements_.push_back({Element::Kind::kLine, point, {}}); }
  void closePath() { elements_.push_back({Element::Kind::kClose, {}, {}}); }
  // A closed ellipse (a circle in a square) as a figure of its own.
  void addEllipseInRect(const Rect& rect) { elements_.push_back({Element::Kind::kEllipse, {}, rect}); }

  bool empty() const { return elements_.empty(); }
  const std::vector<Element>& elements() const { return elements_; }

 private:
  std::vector<Element> elements_;
};

enum class LineJoin { kMiter, kRound, kBevel };

// Text is set with pango in the system's sans-serif face; sizes are in the
// canvas's units (a 13-point font is 13 units high before any scaling).
struct Font {
  double pointSize = 13;
  bool bold = false;
  bool light = false;
  // A fontconfig family ("DejaVu Sans"); empty for the system's sans-serif.
  std::string family;
};

enum class TextAlignment { kLeft, kCenter, kRight };

// Owns its pixels; movable, not copyable. Not thread-safe: one canvas is
// drawn by one thread at a time.
class Canvas {
 public:
  // A transparent canvas. Negative sizes count as 0.
  Canvas(int width, int height);
  // A canvas drawing onto another cairo surface (a page of a PDF) of
  // `width` × `height` units; it holds a reference to the surface. The pixel
  // readers (pixelAt, image, pngData, writePNG) have nothing to read on such
  // a surface and return a transparent pixel, an empty image or an error.
  static Canvas onSurface(cairo_surface_t* surface, int width, int height);
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

  // Fills with the non-zero winding rule. Empty paths draw nothing.
  void fillPath(const Path& path, const Color& color);
  void strokePath(const Path& path, const Color& color, double lineWidth, LineJoin join = LineJoin::kMiter);

  // The extent of one line of UTF-8 text (no wrapping). Invalid UTF-8 is
  // shown with replacement marks rather than refused.
  Size textSize(const std::string& text, const Font& font) const;
  // Draws one line of text with its layout box's top left at `origin`.
  void drawText(const std::string& text, Point origin, const Font& font, const Color& color);
  // One line of text in `rect`: aligned horizontally, centred vertically,
  // overflowing the rectangle rather than being cut.
  void drawTextInRect(const std::string& text, const Rect& rect, const Font& font, const Color& color,
                      TextAlignment alignment = TextAlignment::kCenter);

  // The colour of one pixel, not premultiplied; transparent black outside.
  Color pixelAt(int x, int y) const;
  // The pixels as an upright image.
  Image image() const;
  OrError<std::vector<std::uint8_t>> pngData() const;
  // Writes a PNG atomically.
  OptionalError writePNG(const std::filesystem::path& path) const;

 private:
  Canvas() = default;
  bool hasPixels() const;

  int width_ = 0;
  int height_ = 0;
  cairo_surface_t* surface_ = nullptr;
  cairo_t* cr_ = nullptr;
};

}  // namespace lumeo
