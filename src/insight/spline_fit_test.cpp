// The curve fit: the basis function and its wrap, the fit against LAPACK's
// truncated pseudo-inverse, the band with its soft floor and grid, and the
// degenerate journals (one record, one level, nothing usable).
#include "insight/spline_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "insight/fit_test_data.h"
#include "insight/lapack_reference.h"

namespace lumeo {
namespace {

using testing::Samples;
using testing::Scale;

TEST(SplineFit, BumpShapeAndWrap) {
  EXPECT_EQ(splineBump(14, 0.0), 0.0);
  EXPECT_EQ(splineBump(14, 1.0), 1.0);
  EXPECT_EQ(splineBump(14, 2.0), 4.0);
  EXPECT_EQ(splineBump(14, 3.0), 1.0);
  EXPECT_EQ(splineBump(14, 4.0), 0.0);  // r = 4 folds to u = 0: the cubic gives 0
  EXPECT_EQ(splineBump(14, 4.5), 0.0);
  // On the open scale the left end is served by the top indices.
  EXPECT_EQ(splineBump(14, 0.5 - 13.0), 2.875);
  // The period closes for cycles: x = 10 is x = 0.
  for (long j = 0; j < 10; ++j)
    EXPECT_DOUBLE_EQ(splineBump(10, 10.0 - static_cast<double>(j)),
                     splineBump(10, 0.0 - static_cast<double>(j)));
  // The n shifted copies sum to 6 everywhere, also outside 0..10.
  for (long n : {10L, 14L}) {
    for (double x = -7.3; x < 25.0; x += 0.37) {
      double sum = 0.0;
      for (long j = 0; j < n; ++j) sum += splineBump(n, x - static_cast<double>(j));
      EXPECT_NEAR(sum, 6.0, 1e-12) << x;
    }
  }
}

// Fits with splineFit and with the reference; compares whenever both keep
// the same number of singular values. Returns whether they did.
bool expectFitMatchesReference(const Samples& samples, long n, const std::string& label) {
  const long m = samples.size();
  std::vector<double> coefficients(static_cast<size_t>(n));
  const long count = splineFit(m, samples.x.data(), samples.y.data(), n, coefficients.data());
  const reference::Svd svd = reference::svd(m, n, reference::designMatrix(m, samples.x.data(), n));
  long kept = 0;
  const std::vector<double> expected =
      reference::truncatedPseudoInverseFit(svd, m, n, samples.y.data(), 0.2, kept);
  if (count != kept) return false;
  double scale = 0.0;
  for (double c : expected) scale = std::max(scale, std::fabs(c));
  for (long k = 0; k < n; ++k)
    EXPECT_NEAR(coefficients[static_cast<size_t>(k)], expected[static_cast<size_t>(k)], 1e-9 * scale)
        << label << " coefficient " << k;
  return true;
}

TEST(SplineFit, MatchesTheTruncatedPseudoInverse) {
  int compared = 0;
  int total = 0;
  for (long n : {10L, 14L}) {
    for (long m : {1L, 2L, 5L, 8L, 11L, 12L, 13L, 20L, 64L, 1000L, 100000L}) {
      ++total;
      compared += expectFitMatchesReference(testing::randomSamples(static_cast<unsigned>(m + n), m), n,
                                            "m=" + std::to_string(m) + " n=" + std::to_string(n));
    }
  }
  for (unsigned seed = 1; seed <= 5; ++seed) {
    for (int days : {2, 30, 365}) {
      total += 3;
      compared += expectFitMatchesReference(testing::journalSamples(seed, days, Scale::kTrend), 14, "trend");
      compared +=
          expectFitMatchesReference(testing::journalSamples(seed, days, Scale::kWeekly), 10, "weekly");
      compared += expectFitMatchesReference(testing::journalSamples(seed, days, Scale::kDaily), 10, "daily");
    }
  }
  // The solver may leave out a triplet whose bound did not converge, but on
  // data of this kind that is the exception.
  EXPECT_GE(compared, total * 9 / 10) << compared << " of " << total;
}

TEST(SplineFit, RecordsAtFewDistinctPlaces) {
  // A daily cycle of someone who always records at the same hours: the
  // design has the rank of the number of distinct places.
  for (long n : {10L, 14L}) {
    for (int places : {1, 2, 3, 5}) {
      Samples samples = testing::randomSamples(static_cast<unsigned>(places), 240);
      for (size_t i = 0; i < samples.x.size(); ++i)
        samples.x[i] = 1.3 + 1.7 * static_cast<double>(i % places);
      std::vector<double> coefficients(static_cast<size_t>(n));
      const long count =
          splineFit(samples.size(), samples.x.data(), samples.y.data(), n, coefficients.data());
      EXPECT_GE(count, 1);
      EXPECT_LE(count, places);
      EXPECT_TRUE(expectFitMatchesReference(samples, n, std::to_string(places) + " places"))
          << places << " places, n=" << n << ", count " << count;
    }
  }
}

TEST(SplineFit, CentredFitIsTheFitOfTheCentredValues) {
  const Samples samples = testing::journalSamples(9, 120, Scale::kTrend);
  const long m = samples.size();
  std::vector<double> centred(samples.y);
  double sum = 0.0;
  for (double v : samples.y) sum += v;
  for (double& v : centred) v -= sum / static_cast<double>(m);
  std::vector<double> viaCentred(14);
  std::vector<double> direct(14);
  double mean = -1.0;
  const long count = splineFitCentred(m, samples.x.data(), samples.y.data(), 14, viaCentred.data(), mean);
  EXPECT_EQ(count, splineFit(m, samples.x.data(), centred.data(), 14, direct.data()));
  EXPECT_NEAR(mean, sum / static_cast<double>(m), 1e-15);
  for (int k = 0; k < 14; ++k) EXPECT_NEAR(viaCentred[k], direct[k], 1e-12);
}

TEST(SplineFit, TheMeanIsTheSumInArrayOrder) {
  // 1e16 + 1 rounds back to 1e16, so the sum in array order is exactly 1:
  // the mean is 1/m, whatever other order or grouping would give.
  for (long m : {12L, 13L, 40L, 4099L}) {
    std::vector<double> y(static_cast<size_t>(m), 0.0);
    y[0] = 1e16;
    y[1] = 1.0;
    y[2] = -1e16;
    y[3] = 1.0;
    std::vector<double> x(static_cast<size_t>(m));
    for (long i = 0; i < m; ++i)
      x[static_cast<size_t>(i)] = 10.0 * static_cast<double>(i) / static_cast<double>(m);
    for (long n : {10L, 14L}) {
      std::vector<double> coefficients(static_cast<size_t>(n));
      double mean = -1.0;
      splineFitCentred(m, x.data(), y.data(), n, coefficients.data(), mean);
      EXPECT_EQ(mean, 1.0 / static_cast<double>(m)) << "m=" << m << " n=" << n;
      EXPECT_EQ(splineBand(m, x.data(), y.data(), n).mean, 1.0 / static_cast<double>(m)) << "m=" << m;
    }
  }
}

TEST(SplineFit, OneSampleGivesAFlatLineAndTheFloorBand) {
  for (long n : {10L, 14L}) {
    const double x = 4.2;
    const double y = 0.65;
    const SplineBand band = splineBand(1, &x, &y, n);
    // The 1 x n design has one singular value, which is kept; it is the
    // centred value 0 that makes every coefficient 0.
    EXPECT_EQ(band.count, 1);
    EXPECT_EQ(band.mean, y);
    for (double c : band.coefficients) EXPECT_EQ(c, 0.0);
    for (int i = 0; i < kSplineGridPoints; ++i) {
      EXPECT_EQ(band.curve[static_cast<size_t>(i)], y);
      EXPECT_DOUBLE_EQ(band.halfWidth[static_cast<size_t>(i)], 0.01);
    }
  }
}

TEST(SplineFit, EqualLevelsGiveAFlatLine) {
  Samples samples = testing::journalSamples(4, 200, Scale::kTrend);
  for (double& y : samples.y) y = 0.45;
  for (long n : {10L, 14L}) {
    const SplineBand band = splineBand(samples.size(), samples.x.data(), samples.y.data(), n);
    for (int i = 0; i < kSplineGridPoints; ++i) {
      EXPECT_NEAR(band.curve[static_cast<size_t>(i)], 0.45, 1e-12);
      EXPECT_NEAR(band.halfWidth[static_cast<size_t>(i)], 0.01, 1e-9);
    }
  }
}

TEST(SplineFit, BandFollowsTheDocumentedSteps) {
  // The band made from the public steps with LAPACK's fits must equal
  // splineBand, which shares one decomposition between its two fits.
  for (long n : {10L, 14L}) {
    const Samples samples = testing::journalSamples(17, 500, n == 14 ? Scale::kTrend : Scale::kWeekly);
    const long m = samples.size();
    const SplineBand band = splineBand(m, samples.x.data(), samples.y.data(), n);

    const reference::Svd svd = reference::svd(m, n, reference::designMatrix(m, samples.x.data(), n));
    double mean = 0.0;
    for (double y : samples.y) mean += y;
    mean /= static_cast<double>(m);
    std::vector<double> centred(samples.y);
    for (double& v : centred) v -= mean;
    long kept = 0;
    const std::vector<double> c = reference::truncatedPseudoInverseFit(svd, m, n, centred.data(), 0.2, kept);
    ASSERT_EQ(band.count, kept);
    std::vector<double> residuals(static_cast<size_t>(m));
    for (long i = 0; i < m; ++i)
      residuals[static_cast<size_t>(i)] =
          std::fabs(samples.y[static_cast<size_t>(i)] -
                    splineEval(n, c.data(), samples.x[static_cast<size_t>(i)], mean));
    long keptAgain = 0;
    const std::vector<double> c2 =
        reference::truncatedPseudoInverseFit(svd, m, n, residuals.data(), 0.2, keptAgain);

    double x = 0.0;
    for (int i = 0; i < kSplineGridPoints; ++i) {
      EXPECT_EQ(band.x[static_cast<size_t>(i)], x);
      EXPECT_NEAR(band.curve[static_cast<size_t>(i)], splineEval(n, c.data(), x, mean), 1e-10);
      EXPECT_NEAR(band.halfWidth[static_cast<size_t>(i)],
                  splineBandHalfWidth(splineEval(n, c2.data(), x, 0.0)), 1e-10);
      x += kSplineGridStep;
    }
  }
}

TEST(SplineFit, GridAndSoftFloor) {
  const double one = 0.5;
  const SplineBand band = splineBand(1, &one, &one, 14);
  EXPECT_EQ(band.x[0], 0.0);
  EXPECT_NEAR(band.x[kSplineGridPoints - 1], 10.0, 1e-12);

  EXPECT_EQ(splineBandHalfWidth(0.02), 0.02);
  EXPECT_EQ(splineBandHalfWidth(0.3), 0.3);
  EXPECT_DOUBLE_EQ(splineBandHalfWidth(0.0), 0.01);
  EXPECT_NEAR(splineBandHalfWidth(-1.0), 0.000385, 1e-6);
  // Joins at 0.02 with slope 1 and stays positive below.
  EXPECT_NEAR((splineBandHalfWidth(0.02) - splineBandHalfWidth(0.02 - 1e-7)) / 1e-7, 1.0, 1e-4);
  EXPECT_GT(splineBandHalfWidth(-1e6), 0.0);
}

TEST(SplineFit, UnusableInputGivesZeroCoefficients) {
  std::vector<double> coefficients(14, 7.0);
  double mean = 1.0;
  EXPECT_EQ(splineFitCentred(0, nullptr, nullptr, 14, coefficients.data(), mean), 0);
  for (double c : coefficients) EXPECT_EQ(c, 0.0);

  Samples samples = testing::randomSamples(5, 300);
  for (double bad : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
    Samples broken = samples;
    broken.x[100] = bad;
    std::fill(coefficients.begin(), coefficients.end(), 7.0);
    EXPECT_EQ(splineFit(broken.size(), broken.x.data(), broken.y.data(), 14, coefficients.data()), 0);
    for (double c : coefficients) EXPECT_EQ(c, 0.0);
    broken = samples;
    broken.y[7] = bad;
    EXPECT_EQ(splineFit(broken.size(), broken.x.data(), broken.y.data(), 14, coefficients.data()), 0);
  }
  EXPECT_EQ(splineEval(0, nullptr, 3.0, 0.25), 0.25);
}

TEST(SplineFit, PositionsOutsideTheScaleWrap) {
  // The scrollable graph admits one record on each side of its range, so x
  // can fall below 0 or beyond 10; the fit treats x and x + n alike.
  Samples samples = testing::randomSamples(8, 400);
  samples.x[0] = -0.4;
  samples.x[1] = 10.6;
  samples.x[2] = -1e-20;
  Samples shifted = samples;
  for (double& x : shifted.x) x += 14.0;
  std::vector<double> a(14);
  std::vector<double> b(14);
  EXPECT_EQ(splineFit(400, samples.x.data(), samples.y.data(), 14, a.data()),
            splineFit(400, shifted.x.data(), shifted.y.data(), 14, b.data()));
  for (int k = 0; k < 14; ++k) EXPECT_NEAR(a[k], b[k], 1e-9);
  EXPECT_TRUE(expectFitMatchesReference(samples, 14, "outside the scale"));
}

}  // namespace
}  // namespace lumeo
