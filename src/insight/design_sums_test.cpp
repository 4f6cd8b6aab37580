// The streaming sums against the same sums over an explicit design matrix,
// for samples in time order, on a cycle, shuffled, on integer positions and
// outside the scale, and across the block and vector-group boundaries.
#include "insight/design_sums.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "insight/fit_test_data.h"
#include "insight/lapack_reference.h"

namespace lumeo {
namespace {

void expectSumsMatchDesign(const testing::Samples& s, long n, const std::string& label) {
  const long m = s.size();
  const std::vector<double> a = reference::designMatrix(m, s.x.data(), n);
  const double shift = 0.37;
  std::vector<double> gram(static_cast<size_t>(n * n), 0.0);
  std::vector<double> b(static_cast<size_t>(n), 0.0);
  std::vector<double> ones(static_cast<size_t>(n), 0.0);
  std::vector<double> c(static_cast<size_t>(n));
  for (long j = 0; j < n; ++j) c[static_cast<size_t>(j)] = std::sin(1.0 + static_cast<double>(j));
  std::vector<double> atr(static_cast<size_t>(n), 0.0);
  double shifted = 0.0;
  for (long i = 0; i < m; ++i) {
    const double* row = a.data() + i * n;
    double curve = 0.25;
    for (long j = 0; j < n; ++j) curve += c[static_cast<size_t>(j)] * row[j];
    const double r = std::fabs(s.y[static_cast<size_t>(i)] - curve);
    shifted += s.y[static_cast<size_t>(i)] - shift;
    for (long j = 0; j < n; ++j) {
      for (long l = 0; l < n; ++l) gram[static_cast<size_t>(j * n + l)] += row[j] * row[l];
      b[static_cast<size_t>(j)] += (s.y[static_cast<size_t>(i)] - shift) * row[j];
      ones[static_cast<size_t>(j)] += row[j];
      atr[static_cast<size_t>(j)] += r * row[j];
    }
  }
  const DesignSums sums = sumDesign(m, s.x.data(), s.y.data(), n, shift);
  ASSERT_TRUE(sums.finite) << label;
  const double tolerance = 1e-12 * static_cast<double>(m) * 36.0;
  for (long j = 0; j < n * n; ++j)
    EXPECT_NEAR(sums.gram[static_cast<size_t>(j)], gram[static_cast<size_t>(j)], tolerance) << label;
  for (long j = 0; j < n; ++j) {
    EXPECT_NEAR(sums.shiftedB[static_cast<size_t>(j)], b[static_cast<size_t>(j)], tolerance) << label;
    EXPECT_NEAR(sums.columnSums[static_cast<size_t>(j)], ones[static_cast<size_t>(j)], tolerance) << label;
  }
  EXPECT_NEAR(sums.sumShiftedY, shifted, tolerance) << label;
  const std::vector<double> residuals = sumResiduals(m, s.x.data(), s.y.data(), n, c.data(), 0.25);
  for (long j = 0; j < n; ++j)
    EXPECT_NEAR(residuals[static_cast<size_t>(j)], atr[static_cast<size_t>(j)], tolerance * 10.0) << label;
}

TEST(DesignSums, MatchTheExplicitDesignMatrix) {
  using testing::Scale;
  for (long n : {10L, 14L}) {
    // Ordered, on a cycle, random; sizes around the vector group and the
    // summation block.
    expectSumsMatchDesign(testing::journalSamples(1, 900, Scale::kTrend), n, "trend");
    expectSumsMatchDesign(testing::journalSamples(2, 900, Scale::kWeekly), n, "weekly");
    expectSumsMatchDesign(testing::journalSamples(3, 900, Scale::kDaily), n, "daily");
    for (long m : {1L, 3L, 4L, 5L, 4095L, 4097L, 9001L}) {
      testing::Samples random = testing::randomSamples(static_cast<unsigned>(m), m);
      expectSumsMatchDesign(random, n, "random " + std::to_string(m));
      std::sort(random.x.begin(), random.x.end());
      expectSumsMatchDesign(random, n, "sorted " + std::to_string(m));
    }
  }
}

TEST(DesignSums, IntegerPositionsAndPositionsOutsideTheScale) {
  testing::Samples s;
  for (int i = 0; i < 64; ++i) {
    s.x.push_back(static_cast<double>(i % 15));  // knots, including 10 .. 14
    s.y.push_back(0.05 + 0.01 * i);
  }
  for (double x : {-0.5, -1e-20, -13.99, 10.5, 27.25, 1e6 + 0.5}) {
    s.x.push_back(x);
    s.y.push_back(0.5);
  }
  expectSumsMatchDesign(s, 14, "knots and outside");
  expectSumsMatchDesign(s, 10, "knots and outside");
}

TEST(DesignSums, BasisCountsBeyondTheCharts) {
  // The fewest basis functions the passes take, and more than their scratch
  // keeps on the stack.
  for (long n : {4L, 5L, 17L, 23L}) {
    testing::Samples s = testing::randomSamples(static_cast<unsigned>(n), 700);
    for (double& x : s.x) x *= static_cast<double>(n) / 10.0;
    std::sort(s.x.begin(), s.x.end());
    expectSumsMatchDesign(s, n, "n=" + std::to_string(n));
  }
}

TEST(DesignSums, NonFiniteSamplesAreReported) {
  testing::Samples s = testing::randomSamples(4, 100);
  std::sort(s.x.begin(), s.x.end());
  for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    for (size_t at : {size_t{0}, size_t{2}, size_t{57}}) {
      testing::Samples broken = s;
      broken.x[at] = bad;
      EXPECT_FALSE(sumDesign(broken.size(), broken.x.data(), broken.y.data(), 14, 0.0).finite) << at;
      broken = s;
      broken.y[at] = bad;
      EXPECT_FALSE(sumDesign(broken.size(), broken.x.data(), broken.y.data(), 14, 0.0).finite) << at;
    }
  }
}

}  // namespace
}  // namespace lumeo
