// Every copy of the pass kernels that this processor can run gives the sums
// of the baseline copy: on ordered and shuffled samples, on runs that end
// inside a vector group, on interval ends and positions outside the period,
// and it stops at the same positions that are not numbers.
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

using design::Kernels;

struct Variant {
  const char* name;
  const Kernels* kernels;
};

// The wide copies the processor here can run; a copy that is missing or
// that the processor cannot run is left out.
std::vector<Variant> wideVariants() {
  std::vector<Variant> variants;
#if defined(__x86_64__) && defined(__GNUC__)
  __builtin_cpu_init();
  if (__builtin_cpu_supports("x86-64-v3") && design::avx2Kernels())
    variants.push_back({"avx2", design::avx2Kernels()});
  if (__builtin_cpu_supports("x86-64-v4") && design::avx512Kernels())
    variants.push_back({"avx512", design::avx512Kernels()});
#endif
  return variants;
}

void expectSameSums(const testing::Samples& s, long n, const std::string& label) {
  const long m = s.size();
  const Kernels* base = design::baselineKernels();
  std::vector<double> expected(static_cast<size_t>(n * design::kGatherWidth), 0.0);
  ASSERT_TRUE(base->gather(s.x.data(), s.y.data(), m, n, 0.3, expected.data())) << label;
  std::vector<double> cubic(static_cast<size_t>(n * 4));
  for (size_t i = 0; i < cubic.size(); ++i) cubic[i] = std::cos(0.7 * static_cast<double>(i)) * 0.1;
  std::vector<double> expectedResiduals(static_cast<size_t>(n * design::kResidualWidth), 0.0);
  base->residual(s.x.data(), s.y.data(), m, n, cubic.data(), expectedResiduals.data());

  double samples = 0.0;
  for (long k = 0; k < n; ++k) samples += expected[static_cast<size_t>(k * design::kGatherWidth)];
  EXPECT_EQ(samples, static_cast<double>(m)) << label << ": every sample counted once";

  const double tolerance = 1e-13 * static_cast<double>(m + 1);
  for (const Variant& variant : wideVariants()) {
    std::vector<double> sums(expected.size(), 0.0);
    ASSERT_TRUE(variant.kernels->gather(s.x.data(), s.y.data(), m, n, 0.3, sums.data())) << label;
    for (size_t e = 0; e < sums.size(); ++e) {
      if (e % design::kGatherWidth == 7) continue;  // padding, never read
      EXPECT_NEAR(sums[e], expected[e], tolerance) << label << " " << variant.name << " moment " << e;
    }
    std::vector<double> residuals(expectedResiduals.size(), 0.0);
    variant.kernels->residual(s.x.data(), s.y.data(), m, n, cubic.data(), residuals.data());
    for (size_t e = 0; e < residuals.size(); ++e)
      EXPECT_NEAR(residuals[e], expectedResiduals[e], tolerance)
          << label << " " << variant.name << " residual " << e;
  }
}

TEST(DesignKernels, WideCopiesGiveTheBaselineSums) {
  using testing::Scale;
  for (long n : {10L, 14L}) {
    expectSameSums(testing::journalSamples(5, 400, Scale::kTrend), n, "trend");
    expectSameSums(testing::journalSamples(6, 400, Scale::kWeekly), n, "weekly");
    expectSameSums(testing::journalSamples(7, 400, Scale::kDaily), n, "daily");
    // Every length up to a few groups, so that runs end at every lane.
    for (long m = 1; m <= 27; ++m) {
      testing::Samples random = testing::randomSamples(static_cast<unsigned>(100 + m), m);
      expectSameSums(random, n, "random " + std::to_string(m));
      std::sort(random.x.begin(), random.x.end());
      expectSameSums(random, n, "sorted " + std::to_string(m));
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
  expectSameSums(s, 14, "ends");
  expectSameSums(s, 10, "ends");
}

TEST(DesignKernels, StopAtPositionsThatAreNotNumbers) {
  testing::Samples s = testing::randomSamples(9, 64);
  std::sort(s.x.begin(), s.x.end());
  std::vector<Variant> variants = wideVariants();
  variants.push_back({"baseline", design::baselineKernels()});
  for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    for (size_t at : {size_t{0}, size_t{1}, size_t{6}, size_t{33}, size_t{63}}) {
      testing::Samples broken = s;
      broken.x[at] = bad;
      for (const Variant& variant : variants) {
        std::vector<double> sums(static_cast<size_t>(14 * design::kGatherWidth), 0.0);
        EXPECT_FALSE(
            variant.kernels->gather(broken.x.data(), broken.y.data(), broken.size(), 14, 0.0, sums.data()))
            << variant.name << " at " << at;
      }
    }
  }
}

}  // namespace
}  // namespace lumeo
