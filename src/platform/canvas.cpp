// Canvas on a cairo image surface (ARGB32, premultiplied, native byte order).
#include "platform/canvas.h"

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/atomic_file.h"

namespace lumeo {

namespace {

std::uint8_t premultiply(std::uint8_t c, std::uint8_t a) {
  return static_cast<std::uint8_t>((c * a + 127) / 255);
}
std::uint8_t unpremultiply(std::uint8_t c, std::uint8_t a) {
  if (a == 0) return 0;
  return static_cast<std::uint8_t>(std::min(255, (c * 255 + a / 2) / a));
}

struct SurfaceDeleter {
  void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

// The image's stored pixels as a cairo surface.
SurfacePtr surfaceFromImage(const Image& image) {
  SurfacePtr surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, image.width(), image.height()));
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
  cairo_surface_flush(surface.get());
  unsigned char* data = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  const std::uint8_t* src = image.pixels().data();
  for (int y = 0; y < image.height(); ++y) {
    auto* row = reinterpret_cast<std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
    for (int x = 0; x < image.width(); ++x, src += 4) {
      const std::uint8_t a = src[3];
      row[x] = static_cast<std::uint32_t>(a) << 24 |
               static_cast<std::uint32_t>(premultiply(src[0], a)) << 16 |
               static_cast<std::uint32_t>(premultiply(src[1], a)) << 8 | premultiply(src[2], a);
    }
  }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

cairo_status_t appendToVector(void* closure, const unsigned char* data, unsigned int length) {
  auto* out = static_cast<std::vector<std::uint8_t>*>(closure);
  out->insert(out->end(), data, data + length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

Canvas::Canvas(int width, int height) : width_(std::max(0, width)), height_(std::max(0, height)) {
  surface_ = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width_, height_);
  if (cairo_surface_status(surface_) != CAIRO_STATUS_SUCCESS) {
    // Too large to allocate: an empty canvas on which drawing does nothing.
    cairo_surface_destroy(surface_);
    width_ = height_ = 0;
    surface_ = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 0, 0);
  }
  cr_ = cairo_create(surface_);
}

Canvas Canvas::onSurface(cairo_surface_t* surface, int width, int height) {
  Canvas canvas;
  canvas.width_ = std::max(0, width);
  canvas.height_ = std::max(0, height);
  canvas.surface_ = cairo_surface_reference(surface);
  canvas.cr_ = cairo_create(canvas.surface_);
  return canvas;
}

bool Canvas::hasPixels() const {
  return surface_ && cairo_surface_get_type(surface_) == CAIRO_SURFACE_TYPE_IMAGE;
}

Canvas::~Canvas() {
  if (cr_) cairo_destroy(cr_);
  if (surface_) cairo_surface_destroy(surface_);
}

Canvas::Canvas(Canvas&& other) noexcept
    : width_(other.width_), height_(other.height_), surface_(other.surface_), cr_(other.cr_) {
  other.surface_ = nullptr;
  other.cr_ = nullptr;
  other.width_ = other.height_ = 0;
}

Canvas& Canvas::operator=(Canvas&& other) noexcept {
  if (this != &other) {
    std::swap(width_, other.width_);
    std::swap(height_, other.height_);
    std::swap(surface_, other.surface_);
    std::swap(cr_, other.cr_);
  }
  return *this;
}

void Canvas::saveState() {
  cairo_save(cr_);
}
void Canvas::restoreState() {
  cairo_restore(cr_);
}
void Canvas::translate(double dx, double dy) {
  cairo_translate(cr_, dx, dy);
}
void Canvas::scale(double sx, double sy) {
  cairo_scale(cr_, sx, sy);
}
void Canvas::rotate(double radians) {
  cairo_rotate(cr_, radians);
}

void Canvas::fillRect(const Rect& rect, const Color& color) {
  cairo_save(cr_);
  cairo_set_source_rgba(cr_, color.red, color.green, color.blue, color.alpha);
  cairo_rectangle(cr_, rect.x, rect.y, rect.width, rect.height);
  cairo_fill(cr_);
  cairo_restore(cr_);
}

void Canvas::fillLinearGradient(const Rect& rect, Point start, Point end, const std::vector<Color>& colors) {
  if (colors.empty()) return;
  cairo_pattern_t* pattern = cairo_pattern_create_linear(start.x, start.y, end.x, end.y);
  if (colors.size() == 1) {
    const Color& c = colors.front();
    cairo_pattern_add_color_stop_rgba(pattern, 0, c.red, c.green, c.blue, c.alpha);
  }
  for (std::size_t i = 0; i < colors.size() && colors.size() > 1; ++i) {
    const Color& c = colors[i];
    const double offset = static_cast<double>(i) / static_cast<double>(colors.size() - 1);
    cairo_pattern_add_color_stop_rgba(pattern, offset, c.red, c.green, c.blue, c.alpha);
  }
  cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
  cairo_save(cr_);
  cairo_set_source(cr_, pattern);
  cairo_rectangle(cr_, rect.x, rect.y, rect.width, rect.height);
  cairo_fill(cr_);
  cairo_restore(cr_);
  cairo_pattern_destroy(pattern);
}

void Canvas::drawImage(const Image& image, const Rect& destination) {
  if (image.empty() || destination.width <= 0 || destination.height <= 0) return;
  SurfacePtr source = surfaceFromImage(image);
  if (!source) return;
  cairo_save(cr_);
  cairo_translate(cr_, destination.x, destination.y);
  cairo_scale(cr_, destination.width / image.width(), destination.height / image.height());
  cairo_set_source_surface(cr_, source.get(), 0, 0);
  cairo_pattern_t* pattern = cairo_get_source(cr_);
  // GOOD filters a strong reduction over an area instead of sampling it, and
  // PAD keeps the picture's edges from fading into transparency.
  cairo_pattern_set_filter(pattern, CAIRO_FILTER_GOOD);
  cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
  cairo_rectangle(cr_, 0, 0, image.width(), image.height());
  cairo_fill(cr_);
  cairo_restore(cr_);
}

namespace {

void appendPath(cairo_t* cr, const Path& path) {
  cairo_new_path(cr);
  for (const Path::Element& e : path.elements()) {
    switch (e.kind) {
      case Path::Element::Kind::kMove:
        cairo_move_to(cr, e.point.x, e.point.y);
        break;
      case Path::Element::Kind::kLine:
        if (cairo_has_current_point(cr)) {
          cairo_line_to(cr, e.point.x, e.point.y);
        } else {
          cairo_move_to(cr, e.point.x, e.point.y);
        }
        break;
      case Path::Element::Kind::kClose:
        cairo_close_path(cr);
        break;
      case Path::Element::Kind::kEllipse: {
        const Rect& r = e.rect;
        if (r.width <= 0 || r.height <= 0) break;
        cairo_new_sub_path(cr);
        cairo_save(cr);
        cairo_translate(cr, r.x + r.width / 2, r.y + r.height / 2);
        cairo_scale(cr, r.width / 2, r.height / 2);
        cairo_arc(cr, 0, 0, 1, 0, 2 * M_PI);
        cairo_restore(cr);
        cairo_close_path(cr);
        break;
      }
    }
  }
}

}  // namespace

void Canvas::fillPath(const Path& path, const Color& color) {
  if (path.empty()) return;
  cairo_save(cr_);
  appendPath(cr_, path);
  cairo_set_fill_rule(cr_, CAIRO_FILL_RULE_WINDING);
  cairo_set_source_rgba(cr_, color.red, color.green, color.blue, color.alpha);
  cairo_fill(cr_);
  cairo_restore(cr_);
}

void Canvas::strokePath(const Path& path, const Color& color, double lineWidth, LineJoin join) {
  if (path.empty() || !(lineWidth > 0)) return;
  cairo_save(cr_);
  appendPath(cr_, path);
  cairo_set_line_width(cr_, lineWidth);
  cairo_set_line_join(cr_, join == LineJoin::kRound   ? CAIRO_LINE_JOIN_ROUND
                           : join == LineJoin::kBevel ? CAIRO_LINE_JOIN_BEVEL
                                                      : CAIRO_LINE_JOIN_MITER);
  cairo_set_source_rgba(cr_, color.red, color.green, color.blue, color.alpha);
  cairo_stroke(cr_);
  cairo_restore(cr_);
}

Color Canvas::pixelAt(int x, int y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_ || !hasPixels()) return Color(0, 0, 0, 0);
  cairo_surface_flush(surface_);
  const unsigned char* data = cairo_image_surface_get_data(surface_);
  const int stride = cairo_image_surface_get_stride(surface_);
  const std::uint32_t p =
      reinterpret_cast<const std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride)[x];
  const std::uint8_t a = p >> 24;
  if (a == 0) return Color(0, 0, 0, 0);
  // Unpremultiplied in full precision, so that a half-covered pixel keeps its hue.
  return Color(((p >> 16) & 0xff) / static_cast<double>(a), ((p >> 8) & 0xff) / static_cast<double>(a),
               (p & 0xff) / static_cast<double>(a), a / 255.0);
}

Image Canvas::image() const {
  if (!hasPixels()) return Image();
  cairo_surface_flush(surface_);
  const unsigned char* data = cairo_image_surface_get_data(surface_);
  const int stride = cairo_image_surface_get_stride(surface_);
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4);
  std::uint8_t* out = rgba.data();
  // A chart is mostly opaque pixels, which need no division; the others
  // take theirs from a table of every (alpha, channel) pair, made once.
  static const std::vector<std::uint8_t> table = [] {
    std::vector<std::uint8_t> t(256 * 256);
    for (int a = 0; a < 256; ++a) {
      for (int c = 0; c < 256; ++c) {
        t[static_cast<std::size_t>(a * 256 + c)] =
            unpremultiply(static_cast<std::uint8_t>(c), static_cast<std::uint8_t>(a));
      }
    }
    return t;
  }();
  for (int y = 0; y < height_; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
    for (int x = 0; x < width_; ++x, out += 4) {
      const std::uint32_t p = row[x];
      const std::uint32_t a = p >> 24;
      if (a == 255) {
        out[0] = static_cast<std::uint8_t>(p >> 16);
        out[1] = static_cast<std::uint8_t>(p >> 8);
        out[2] = static_cast<std::uint8_t>(p);
      } else {
        const std::uint8_t* t = table.data() + a * 256;
        out[0] = t[(p >> 16) & 0xff];
        out[1] = t[(p >> 8) & 0xff];
        out[2] = t[p & 0xff];
      }
      out[3] = static_cast<std::uint8_t>(a);
    }
  }
  return Image(width_, height_, std::move(rgba));
}

OrError<std::vector<std::uint8_t>> Canvas::pngData() const {
  std::vector<std::uint8_t> png;
  if (!hasPixels()) return Error(kImageErrorDomain, kImageEncodeFailed, "the canvas has no pixels to encode");
  cairo_surface_flush(surface_);
  const cairo_status_t status = cairo_surface_write_to_png_stream(surface_, appendToVector, &png);
  if (status != CAIRO_STATUS_SUCCESS) {
    return Error(kImageErrorDomain, kImageEncodeFailed,
                 std::string("PNG encoding failed: ") + cairo_status_to_string(status));
  }
  return png;
}

OptionalError Canvas::writePNG(const std::filesystem::path& path) const {
  auto png = pngData();
  if (auto* error = std::get_if<Error>(&png)) return *error;
  // A drawing is written where the user asked, like any file they make.
  return writeFileAtomically(path, std::get<std::vector<std::uint8_t>>(png), FileAccess::kUserDefault);
}

}  // namespace lumeo
