// The pass kernels count every sample once, on ordered and shuffled
// samples, on runs that end inside a vector group, on interval ends and
// positions outside the period, and stop at positions that are not numbers.
#include "insight/design_kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "insight/fit_test_data.h"

namespace lumeo {
namespace {

// The gather pass's moments against sums made one sample at a time.
void expectSums(const testing::Samples& s, long n, const std::string& label) {
  const long m = s.size();
  std::vector<double> sums(static_cast<size_t>(n * design::kGatherWidth), 0.0);
  ASSERT_TRUE(design::gather(s.x.data(), s.y.data(), m, n, 0.3, sums.data())) << label;
  std::vector<double> expected(sums.size(), 0.0);
  for (long i = 0; i < m; ++i) {
    double r = std::fmod(s.x[static_cast<size_t>(i)], static_cast<double>(n));
    if (r < 0.0) r += static_cast<double>(n);
    if (r >= static_cast<double>(n)) r -= static_cast<double>(n);
    long k = static_cast<long>(r);
    const double tau = (r - static_cast<double>(k)) - 0.5;
    if (k >= n) k -= n;
    double* target = expected.data() + k * design::kGatherWidth;
    double power = 1.0;
    for (int p = 0; p <= 6; ++p) {
      target[p] += power;
      if (p < 4) target[design::kValueMoments + p] += power * (s.y[static_cast<size_t>(i)] - 0.3);
      power *= tau;
    }
  }
  double counted = 0.0;
  for (long k = 0; k < n; ++k) counted += sums[static_cast<size_t>(k * design::kGatherWidth)];
  EXPECT_EQ(counted, static_cast<double>(m)) << label << ": every sample counted once";
  const double tolerance = 1e-13 * static_cast<double>(m + 1);
  for (size_t e = 0; e < sums.size(); ++e) {
    if (e % design::kGatherWidth == 7) continue;  // padding, never read
    EXPECT_NEAR(sums[e], expected[e], tolerance) << label << " moment " << e;
  }
}

TEST(DesignKernels, SumsMatchOneSampleAtATime) {
  using testing::Scale;
  for (long n : {10L, 14L}) {
    expectSums(testing::journalSamples(5, 400, Scale::kTrend), n, "trend");
    expectSums(testing::journalSamples(6, 400, Scale::kWeekly), n, "weekly");
    // Every length up to a few groups, so that runs end at every lane.
    for (long m = 1; m <= 27; ++m) {
      testing::Samples random = testing::randomSamples(static_cast<unsigned>(100 + m), m);
      expectSums(random, n, "random " + std::to_string(m));
      std::sort(random.x.begin(), random.x.end());
      expectSums(random, n, "sorted " + std::to_string(m));
    }
  }
}

TEST(DesignKernels, IntervalEndsAndPositionsOutsideThePeriod) {
  // Ordered runs that sit exactly on interval ends, wrap at the period, and
  // hold a stray sample in the middle of a group.
  testing::Samples s;
  for (int i = 0; i < 40; ++i) {
    s.x.push_back(2.0 + 0.025 * i);  // 2.0 .. 2.975, then exactly 3.0
    s.y.push_back(0.05 * (i % 10));
  }
  s.x.push_back(3.0);
  s.y.push_back(0.5);
  for (double x : {3.25, 7.9, 3.5, 3.75, 10.0, 13.999999999999998, 14.0, -0.25, -1e-300, 27.5, 3.9}) {
    s.x.push_back(x);
    s.y.push_back(0.35);
  }
  for (int i = 0; i < 16; ++i) {
    s.x.push_back(9.0 + i / 16.0);
    s.y.push_back(0.95);
  }
  expectSums(s, 14, "ends");
  expectSums(s, 10, "ends");
}

TEST(DesignKernels, StopAtPositionsThatAreNotNumbers) {
  testing::Samples s = testing::randomSamples(9, 64);
  std::sort(s.x.begin(), s.x.end());
  for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    for (size_t at : {size_t{0}, size_t{1}, size_t{6}, size_t{33}, size_t{63}}) {
      testing::Samples broken = s;
      broken.x[at] = bad;
      std::vector<double> sums(static_cast<size_t>(14 * design::kGatherWidth), 0.0);
      EXPECT_FALSE(design::gather(broken.x.data(), broken.y.data(), broken.size(), 14, 0.0, sums.data()))
          << "at " << at;
    }
  }
}

}  // namespace
}  // namespace lumeo
