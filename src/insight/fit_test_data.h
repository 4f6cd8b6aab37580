// Test helper: sample sets shaped like real journals (several records on
// some days, gaps of weeks, a level that drifts), normalised the way the
// charts normalise them.
#pragma once

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace lumeo::testing {

struct Samples {
  std::vector<double> x;
  std::vector<double> y;
  long size() const { return static_cast<long>(x.size()); }
};

enum class Scale { kTrend, kWeekly, kDaily };

// About `days` days of entries: 1 to 5 records on a recorded day, one day in
// five skipped, and now and then a pause of two to six weeks.
inline Samples journalSamples(unsigned seed, int days, Scale scale) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<double> times;
  std::vector<int> levels;
  int level = 6;
  double day = 0.0;
  for (int d = 0; d < days; ++d) {
    day += 1.0;
    if (unit(rng) < 0.03) day += 14.0 + std::floor(unit(rng) * 29.0);
    if (unit(rng) < 0.2) continue;
    const int count = 1 + static_cast<int>(unit(rng) * 5.0);
    for (int k = 0; k < count; ++k) {
      times.push_back((day + 0.3 + 0.65 * unit(rng)) * 86400.0);
      level += static_cast<int>(std::floor(unit(rng) * 3.0)) - 1;
      level = std::min(10, std::max(1, level));
      levels.push_back(level);
    }
  }
  std::sort(times.begin(), times.end());
  Samples samples;
  const double start = times.front();
  const double span = std::max(times.back() - start, 1.0);
  for (size_t i = 0; i < times.size(); ++i) {
    double x = 0.0;
    if (scale == Scale::kTrend) {
      x = 10.0 * (times[i] - start) / span;
    } else {
      const double period = scale == Scale::kWeekly ? 7.0 * 86400.0 : 86400.0;
      double p = std::fmod((times[i] - start) / period, 1.0);
      if (p < 0.0) p += 1.0;
      x = 10.0 * p;
    }
    samples.x.push_back(x);
    samples.y.push_back((levels[i] - 0.5) / 10.0);
  }
  return samples;
}

// m samples at uniformly random positions with random levels.
inline Samples randomSamples(unsigned seed, long m) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> position(0.0, 10.0);
  std::uniform_int_distribution<int> level(1, 10);
  Samples samples;
  for (long i = 0; i < m; ++i) {
    samples.x.push_back(position(rng));
    samples.y.push_back((level(rng) - 0.5) / 10.0);
  }
  return samples;
}

}  // namespace lumeo::testing
