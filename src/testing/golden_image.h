// Compares a drawn picture with a golden PNG under testdata/, with a
// tolerance: text and curves are anti-aliased, and a font or cairo update
// moves edge pixels a little without changing what the picture shows. Set
// LUMEO_UPDATE_GOLDEN=1 to write the goldens afresh (then look at them).
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/canvas.h"
#include "platform/image.h"

namespace lumeo::testing {

inline std::filesystem::path sourceDirectory() {
  const char* dir = std::getenv("LUMEO_SOURCE_DIR");
  return dir ? std::filesystem::path(dir) : std::filesystem::path(".");
}

// Fails the test when the sizes differ or when more than `maxDifferentShare`
// of the pixels differ by more than `channelTolerance` (0..255) in a
// channel. The drawn picture is kept beside the build for a look.
inline void expectMatchesGolden(const Canvas& canvas, const std::string& relativePath,
                                int channelTolerance = 40, double maxDifferentShare = 0.01) {
  std::filesystem::path golden = sourceDirectory() / "testdata" / relativePath;
  if (const char* update = std::getenv("LUMEO_UPDATE_GOLDEN"); update && std::string(update) == "1") {
    std::filesystem::create_directories(golden.parent_path());
    ASSERT_FALSE(canvas.writePNG(golden).has_value()) << golden;
    return;
  }
  std::filesystem::path actual = std::filesystem::temp_directory_path() / golden.filename();
  (void)canvas.writePNG(actual);
  auto read = Image::readFile(golden);
  ASSERT_TRUE(std::holds_alternative<Image>(read)) << "no golden " << golden;
  const Image& expected = std::get<Image>(read);
  ASSERT_EQ(expected.width(), canvas.width()) << golden;
  ASSERT_EQ(expected.height(), canvas.height()) << golden;
  long different = 0;
  for (int y = 0; y < canvas.height(); ++y) {
    for (int x = 0; x < canvas.width(); ++x) {
      Color a = canvas.pixelAt(x, y), b = expected.pixelAt(x, y);
      // Compare as drawn over white, so colour under full transparency
      // does not count.
      auto over = [](double c, double alpha) { return (c * alpha + (1 - alpha)) * 255; };
      double d = std::max({std::abs(over(a.red, a.alpha) - over(b.red, b.alpha)),
                           std::abs(over(a.green, a.alpha) - over(b.green, b.alpha)),
                           std::abs(over(a.blue, a.alpha) - over(b.blue, b.alpha))});
      if (d > channelTolerance) ++different;
    }
  }
  double share = static_cast<double>(different) / std::max(1, canvas.width() * canvas.height());
  EXPECT_LE(share, maxDifferentShare)
      << different << " pixels differ from " << golden << "; drawn: " << actual;
}

}  // namespace lumeo::testing
