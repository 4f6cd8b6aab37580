// The canvas's pixels: fills, gradients, transforms and PNG output, read
// back through the canvas itself and through the PNG decoder.
#include "platform/canvas.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "platform/atomic_file.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

void expectColorNear(const Color& actual, const Color& expected, double tolerance = 1.5 / 255) {
  EXPECT_NEAR(actual.red, expected.red, tolerance);
  EXPECT_NEAR(actual.green, expected.green, tolerance);
  EXPECT_NEAR(actual.blue, expected.blue, tolerance);
  EXPECT_NEAR(actual.alpha, expected.alpha, tolerance);
}

TEST(Canvas, FillsAndReadsPixels) {
  Canvas canvas(20, 10);
  expectColorNear(canvas.pixelAt(5, 5), Color(0, 0, 0, 0));
  canvas.fillRect(Rect{0, 0, 10, 10}, Color(1, 0, 0));
  canvas.fillRect(Rect{10, 0, 10, 10}, Color(0, 0, 1, 0.5));
  expectColorNear(canvas.pixelAt(2, 2), Color(1, 0, 0));
  // Half-transparent paint reads back unpremultiplied.
  expectColorNear(canvas.pixelAt(15, 5), Color(0, 0, 1, 0.5), 2.0 / 255);
  expectColorNear(canvas.pixelAt(-1, 0), Color(0, 0, 0, 0));
  expectColorNear(canvas.pixelAt(20, 0), Color(0, 0, 0, 0));
}

// image() unpremultiplies every pixel by rounding c * 255 / a, clamped to
// 255: every alpha from 0 to 255 with dark, light and saturated channels,
// compared with what cairo stored.
TEST(Canvas, ImageUnpremultipliesEveryAlphaExactly) {
  Canvas canvas(256, 6);
  const Color colors[] = {Color(1, 1, 1),       Color(0, 0, 0),         Color(1, 0.5, 0),
                          Color(0.2, 0.4, 0.6), Color(0.99, 0.01, 0.5), Color(0.5, 0.5, 0.5)};
  for (int y = 0; y < 6; ++y) {
    for (int a = 0; a < 256; ++a) {
      Color c = colors[y];
      c.alpha = a / 255.0;
      canvas.fillRect(Rect{static_cast<double>(a), static_cast<double>(y), 1, 1}, c);
    }
  }
  const Image image = canvas.image();
  ASSERT_EQ(image.width(), 256);
  cairo_surface_t* surface = cairo_get_target(canvas.cairoContext());
  cairo_surface_flush(surface);
  const unsigned char* data = cairo_image_surface_get_data(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  const std::uint8_t* rgba = image.pixels().data();
  for (int y = 0; y < 6; ++y) {
    for (int x = 0; x < 256; ++x) {
      const std::uint32_t p = reinterpret_cast<const std::uint32_t*>(data + y * stride)[x];
      const int a = static_cast<int>(p >> 24);
      const int stored[3] = {static_cast<int>((p >> 16) & 0xff), static_cast<int>((p >> 8) & 0xff),
                             static_cast<int>(p & 0xff)};
      const std::uint8_t* got = rgba + (static_cast<std::size_t>(y) * 256 + static_cast<std::size_t>(x)) * 4;
      ASSERT_EQ(got[3], a) << x << "," << y;
      for (int i = 0; i < 3; ++i) {
        const int expected = a == 0 ? 0 : std::min(255, (stored[i] * 255 + a / 2) / a);
        ASSERT_EQ(got[i], expected) << "channel " << i << " at " << x << "," << y;
      }
    }
  }
}

TEST(Canvas, TransformsApplyToLaterDrawing) {
  Canvas canvas(20, 20);
  canvas.saveState();
  canvas.translate(10, 10);
  canvas.rotate(M_PI / 2);  // clockwise on screen: +x now points down
  canvas.fillRect(Rect{0, -1, 8, 2}, Color(0, 1, 0));
  canvas.restoreState();
  expectColorNear(canvas.pixelAt(10, 15), Color(0, 1, 0));
  expectColorNear(canvas.pixelAt(15, 10), Color(0, 0, 0, 0));
  canvas.fillRect(Rect{0, 0, 1, 1}, Color(1, 1, 1));  // restored: no transform
  expectColorNear(canvas.pixelAt(0, 0), Color(1, 1, 1));
}

TEST(Canvas, VerticalGradientPassesThroughEvenlySpacedColors) {
  const Color top(1, 0, 0), middle(0, 1, 0), bottom(0, 0, 1);
  Canvas canvas(10, 201);
  canvas.fillLinearGradient(Rect{0, 0, 10, 201}, Point{5, 0}, Point{5, 201}, {top, middle, bottom});
  expectColorNear(canvas.pixelAt(5, 0), top, 4.0 / 255);
  expectColorNear(canvas.pixelAt(5, 100), middle, 4.0 / 255);
  expectColorNear(canvas.pixelAt(5, 200), bottom, 4.0 / 255);
  // Red falls all the way down the upper half; blue rises in the lower.
  for (int y = 1; y <= 100; ++y) EXPECT_LE(canvas.pixelAt(5, y).red, canvas.pixelAt(5, y - 1).red);
  for (int y = 101; y <= 200; ++y) EXPECT_GE(canvas.pixelAt(5, y).blue, canvas.pixelAt(5, y - 1).blue);
  // One colour is a plain fill; none draws nothing.
  Canvas single(4, 4);
  single.fillLinearGradient(Rect{0, 0, 4, 4}, Point{0, 0}, Point{0, 4}, {middle});
  expectColorNear(single.pixelAt(3, 3), middle);
  single.fillLinearGradient(Rect{0, 0, 4, 4}, Point{0, 0}, Point{0, 4}, {});
  expectColorNear(single.pixelAt(3, 3), middle);
}

TEST(Canvas, WritesAPNGThatDecodesToTheSamePixels) {
  testing::TempDir dir;
  Canvas canvas(8, 6);
  canvas.fillRect(Rect{0, 0, 4, 6}, Color::fromRGB255(233, 55, 0));
  canvas.fillRect(Rect{4, 0, 4, 3}, Color(0, 0, 0, 0.25));
  ASSERT_FALSE(canvas.writePNG(dir / "picture.png"));
  auto decoded = Image::readFile(dir / "picture.png");
  ASSERT_TRUE(std::holds_alternative<Image>(decoded)) << std::get<Error>(decoded).toString();
  const Image& image = std::get<Image>(decoded);
  ASSERT_EQ(image.width(), 8);
  ASSERT_EQ(image.height(), 6);
  EXPECT_EQ(image.pixels(), canvas.image().pixels());
  expectColorNear(image.pixelAt(1, 1), Color::fromRGB255(233, 55, 0));

  auto error = canvas.writePNG(dir / "missing-folder" / "x.png");
  ASSERT_TRUE(error);
  EXPECT_TRUE(error->is(kFileErrorDomain, kFileWriteFailed));
}

TEST(Canvas, ImpossibleSizesGiveAnEmptyCanvas) {
  Canvas negative(-5, 10);
  EXPECT_EQ(negative.width(), 0);
  Canvas huge(1 << 20, 1 << 20);  // far beyond what can be allocated
  EXPECT_EQ(huge.width(), 0);
  huge.fillRect(Rect{0, 0, 10, 10}, Color(1, 0, 0));
  expectColorNear(huge.pixelAt(0, 0), Color(0, 0, 0, 0));
  EXPECT_TRUE(huge.image().empty());
}

TEST(Canvas, FillsAndStrokesPaths) {
  Canvas canvas(40, 40);
  Path triangle;
  triangle.moveTo({0, 0});
  triangle.lineTo({40, 0});
  triangle.lineTo({0, 40});
  triangle.closePath();
  canvas.fillPath(triangle, Color(0, 0, 1));
  expectColorNear(canvas.pixelAt(5, 5), Color(0, 0, 1));
  expectColorNear(canvas.pixelAt(35, 35), Color(0, 0, 0, 0));
  Path dot;
  dot.addEllipseInRect({28, 28, 8, 8});
  canvas.fillPath(dot, Color(1, 1, 1));
  expectColorNear(canvas.pixelAt(32, 32), Color(1, 1, 1));
  expectColorNear(canvas.pixelAt(28, 28), Color(0, 0, 0, 0), 0.3);  // outside the circle's arc
  Path line;
  line.lineTo({0, 20.5});  // without a current point the figure starts here
  line.lineTo({40, 20.5});
  canvas.strokePath(line, Color(1, 0, 0), 1.0, LineJoin::kRound);
  expectColorNear(canvas.pixelAt(30, 20), Color(1, 0, 0));
  canvas.strokePath(line, Color(0, 1, 0), 0.0);  // no width: nothing
  expectColorNear(canvas.pixelAt(30, 20), Color(1, 0, 0));
}

TEST(Canvas, TextIsShapedMeasuredAndDrawn) {
  Canvas canvas(200, 40);
  Font font;
  font.pointSize = 20;
  const Size latin = canvas.textSize("Wednesday", font);
  EXPECT_GT(latin.width, 60);
  EXPECT_NEAR(latin.height, 23, 6);
  Font bold = font;
  bold.bold = true;
  EXPECT_GT(canvas.textSize("Wednesday", bold).width, latin.width);
  EXPECT_EQ(canvas.textSize("", font).width, 0);
  // Broken UTF-8 is drawn with replacement marks, not dropped.
  EXPECT_GT(canvas.textSize(std::string("ab\xff\xfe"), font).width, canvas.textSize("ab", font).width);

  canvas.drawTextInRect("MMMM", Rect{0, 0, 200, 40}, font, Color(1, 1, 1));
  // Centred: ink in the middle, none at the edges.
  double middle = 0, edges = 0;
  for (int y = 0; y < 40; ++y) {
    for (int x = 90; x < 110; ++x) middle += canvas.pixelAt(x, y).alpha;
    edges += canvas.pixelAt(2, y).alpha + canvas.pixelAt(197, y).alpha;
  }
  EXPECT_GT(middle, 1.0);
  EXPECT_EQ(edges, 0);
}

}  // namespace
}  // namespace lumeo
