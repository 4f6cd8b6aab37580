// Shared by the picture tests of the charts and the graph: a fixed journal,
// the environment that makes drawings reproducible (zone, language, first
// weekday), and the comparison of a picture with its checked-in golden file
// under testdata/insight/, with a tolerance for the last bits of fonts and
// fits. LUMEO_UPDATE_GOLDENS=1 writes the goldens instead of comparing.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "insight/mood_draw_chart.h"
#include "platform/canvas.h"
#include "platform/image.h"

namespace lumeo::testing {

// Sixty days from Monday 2 March 2026 (UTC), three records a day at shifting
// hours: better at weekends and in the evening, with a drift over the weeks
// and a fixed pseudo-random jitter. Levels stay within 2..8.
inline std::vector<ChartRecord> fixedJournal() {
  std::vector<ChartRecord> records;
  std::uint32_t state = 12345;
  auto next = [&state] {
    state = state * 1103515245u + 12345u;
    return (state >> 16) & 0x7fff;
  };
  const double start = 1772409600;  // 2026-03-02T00:00:00Z
  for (int day = 0; day < 60; ++day) {
    for (int i = 0; i < 3; ++i) {
      const double hour = 8.0 + 5.0 * i + static_cast<double>(next() % 180) / 60.0;
      const int weekday = day % 7;  // 0 Monday
      long level = 4 + (weekday >= 5 ? 2 : 0) + (i == 2 ? 1 : 0) + (day > 30 ? 1 : 0) +
                   static_cast<long>(next() % 3) - 1;
      level = std::max(2L, std::min(8L, level));
      records.push_back({Date::fromTimeIntervalSince1970(start + day * 86400.0 + hour * 3600.0), level});
    }
  }
  return records;
}

inline std::filesystem::path sourceDir() {
  const char* dir = std::getenv("LUMEO_SOURCE_DIR");
  // ctest sets it; a test binary run by hand needs it in the environment.
  return dir ? std::filesystem::path(dir) : std::filesystem::path(".");
}

inline std::filesystem::path goldenPath(const std::string& name) {
  return sourceDir() / "testdata" / "insight" / name;
}

// Compares with the golden: a pixel differs when a channel is off by more
// than 40/255; at most 0.5% of the pixels may differ and the mean channel
// difference must stay under 1.5/255. On failure the picture is written
// next to the test binary as NAME.actual.png for a look.
inline void expectMatchesGolden(const Image& actual, const std::string& name) {
  const auto path = goldenPath(name);
  if (std::getenv("LUMEO_UPDATE_GOLDENS")) {
    auto png = actual.pngData();
    ASSERT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(png));
    const auto& bytes = std::get<std::vector<std::uint8_t>>(png);
    std::filesystem::create_directories(path.parent_path());
    FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return;
  }
  auto golden = Image::readFile(path);
  ASSERT_TRUE(std::holds_alternative<Image>(golden)) << "no golden " << path;
  const Image& expected = std::get<Image>(golden);
  auto keep = [&] {
    auto png = actual.pngData();
    if (!std::holds_alternative<std::vector<std::uint8_t>>(png)) return;
    const auto& bytes = std::get<std::vector<std::uint8_t>>(png);
    const std::string out = name.substr(0, name.size() - 4) + ".actual.png";
    if (FILE* f = std::fopen(out.c_str(), "wb")) {
      std::fwrite(bytes.data(), 1, bytes.size(), f);
      std::fclose(f);
    }
  };
  if (expected.width() != actual.width() || expected.height() != actual.height()) {
    keep();
    FAIL() << name << ": size " << actual.width() << "x" << actual.height() << ", golden " << expected.width()
           << "x" << expected.height();
  }
  const auto& a = actual.pixels();
  const auto& e = expected.pixels();
  std::size_t differing = 0;
  double total = 0;
  for (std::size_t p = 0; p < a.size(); p += 4) {
    bool differs = false;
    for (int c = 0; c < 4; ++c) {
      const int d = std::abs(static_cast<int>(a[p + c]) - static_cast<int>(e[p + c]));
      total += d;
      if (d > 40) differs = true;
    }
    if (differs) ++differing;
  }
  const double pixels = static_cast<double>(a.size() / 4);
  const double mean = total / static_cast<double>(a.size());
  if (differing > pixels * 0.005 || mean > 1.5) {
    keep();
    ADD_FAILURE() << name << ": " << differing << " of " << pixels << " pixels differ, mean difference "
                  << mean << "/255";
  }
}

// Luminance times coverage: how much light a pixel of a transparent
// picture adds over black.
inline double brightness(const Color& c) {
  return (0.299 * c.red + 0.587 * c.green + 0.114 * c.blue) * c.alpha;
}

}  // namespace lumeo::testing
