// The QL eigensolvers against LAPACK's dstev on symmetric tridiagonal
// matrices, including split and repeated spectra, and the hypotenuse at the
// edges of the double range.
#include "insight/tridiagonal_ql.h"

#include <gtest/gtest.h>
#include <lapacke.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace lumeo {
namespace {

struct Tridiagonal {
  std::vector<double> d;
  std::vector<double> e;  // e[i] couples i-1 and i; e[0] unused
};

// LAPACK's eigenvalues (ascending) and eigenvectors, vector k at z[k*n].
void lapackEigen(const Tridiagonal& t, std::vector<double>& values, std::vector<double>& vectors) {
  const lapack_int n = static_cast<lapack_int>(t.d.size());
  values = t.d;
  std::vector<double> off(t.e.begin() + 1, t.e.end());
  off.push_back(0.0);
  std::vector<double> z(static_cast<size_t>(n * n));
  ASSERT_EQ(LAPACKE_dstev(LAPACK_COL_MAJOR, 'V', n, values.data(), off.data(), z.data(), n), 0);
  vectors = z;  // column k of a column-major matrix is vector k
}

Tridiagonal randomTridiagonal(std::mt19937& rng, int n, bool withSplit) {
  std::uniform_real_distribution<double> value(-50.0, 400.0);
  Tridiagonal t;
  for (int i = 0; i < n; ++i) {
    t.d.push_back(value(rng));
    t.e.push_back(i == 0 ? 0.0 : value(rng) / 3.0);
  }
  if (withSplit && n > 3) t.e[static_cast<size_t>(n / 2)] = 0.0;
  return t;
}

void checkAgainstLapack(const Tridiagonal& t, const std::string& label) {
  const long n = static_cast<long>(t.d.size());
  std::vector<double> expected;
  std::vector<double> vectors;
  lapackEigen(t, expected, vectors);
  double scale = 1.0;
  for (double v : expected) scale = std::max(scale, std::fabs(v));

  std::vector<double> d = t.d;
  std::vector<double> e = t.e;
  std::vector<double> first(static_cast<size_t>(n));
  long ierr = -1;
  imtqlb(n, d.data(), e.data(), first.data(), ierr);
  EXPECT_EQ(ierr, 0) << label;
  for (long k = 0; k < n; ++k) {
    EXPECT_NEAR(d[static_cast<size_t>(k)], expected[static_cast<size_t>(k)], 1e-12 * scale)
        << label << " " << k;
    if (k > 0) {
      EXPECT_LE(d[static_cast<size_t>(k - 1)], d[static_cast<size_t>(k)]) << label;
    }
  }

  d = t.d;
  e = t.e;
  std::vector<double> z(static_cast<size_t>(n * n), 0.0);
  for (long i = 0; i < n; ++i) z[static_cast<size_t>(i * n + i)] = 1.0;
  ierr = 0;
  tridiagonalQL(n, d.data(), e.data(), z.data(), ierr);
  EXPECT_EQ(ierr, 0) << label;
  for (long k = 0; k < n; ++k) {
    EXPECT_NEAR(d[static_cast<size_t>(k)], expected[static_cast<size_t>(k)], 1e-12 * scale) << label;
    // Eigenvectors of well separated values agree up to sign, and their
    // first components are what imtqlb reports.
    double gap = INFINITY;
    for (long l = 0; l < n; ++l)
      if (l != k)
        gap = std::min(gap, std::fabs(expected[static_cast<size_t>(l)] - expected[static_cast<size_t>(k)]));
    if (gap < 1e-6 * scale) continue;
    double cosine = 0.0;
    for (long i = 0; i < n; ++i)
      cosine += z[static_cast<size_t>(k * n + i)] * vectors[static_cast<size_t>(k * n + i)];
    EXPECT_NEAR(std::fabs(cosine), 1.0, 1e-10) << label << " vector " << k;
    EXPECT_NEAR(std::fabs(first[static_cast<size_t>(k)]), std::fabs(z[static_cast<size_t>(k * n)]), 1e-10)
        << label << " first component " << k;
  }
}

TEST(TridiagonalQL, MatchesLapack) {
  std::mt19937 rng(77);
  for (int n = 1; n <= 24; ++n) {
    checkAgainstLapack(randomTridiagonal(rng, n, false), "n=" + std::to_string(n));
    checkAgainstLapack(randomTridiagonal(rng, n, true), "split n=" + std::to_string(n));
  }
}

TEST(TridiagonalQL, RepeatedAndZeroSpectra) {
  Tridiagonal repeated;
  for (int i = 0; i < 6; ++i) {
    repeated.d.push_back(i < 3 ? 2.0 : 5.0);
    repeated.e.push_back(0.0);
  }
  checkAgainstLapack(repeated, "diagonal with repeats");

  Tridiagonal zero{{0.0, 0.0, 0.0, 0.0}, {0.0, 0.0, 0.0, 0.0}};
  checkAgainstLapack(zero, "zero");

  // A rank-one-like matrix: most eigenvalues vanish.
  Tridiagonal thin{{1e-300, 1.0, 1e-300, 3.0}, {0.0, 1e-160, 1e-160, 2.0}};
  checkAgainstLapack(thin, "tiny entries");
}

TEST(TridiagonalQL, ScaledFarFromOneGivesScaledResults) {
  // Entries near the ends of the double range take the rotations' careful
  // path, whose squares cannot overflow or vanish; the results must still be
  // the scaled ones.
  std::mt19937 rng(31);
  const Tridiagonal base = randomTridiagonal(rng, 12, false);
  std::vector<double> d = base.d;
  std::vector<double> e = base.e;
  std::vector<double> z(144, 0.0);
  for (int i = 0; i < 12; ++i) z[static_cast<size_t>(i * 13)] = 1.0;
  long ierr = 0;
  tridiagonalQL(12, d.data(), e.data(), z.data(), ierr);
  ASSERT_EQ(ierr, 0);
  for (double factor : {1e-200, 1e-150, 1e150, 1e200}) {
    std::vector<double> ds = base.d;
    std::vector<double> es = base.e;
    for (double& v : ds) v *= factor;
    for (double& v : es) v *= factor;
    std::vector<double> zs(144, 0.0);
    for (int i = 0; i < 12; ++i) zs[static_cast<size_t>(i * 13)] = 1.0;
    tridiagonalQL(12, ds.data(), es.data(), zs.data(), ierr);
    ASSERT_EQ(ierr, 0) << factor;
    for (int k = 0; k < 12; ++k) {
      EXPECT_NEAR(ds[static_cast<size_t>(k)] / factor, d[static_cast<size_t>(k)], 1e-11 * 400.0) << factor;
      double overlap = 0.0;
      for (int i = 0; i < 12; ++i)
        overlap += zs[static_cast<size_t>(k * 12 + i)] * z[static_cast<size_t>(k * 12 + i)];
      EXPECT_NEAR(std::fabs(overlap), 1.0, 1e-9) << factor << " vector " << k;
    }
  }
}

TEST(TridiagonalQL, OrderOneLeavesTheErrorFlagAlone) {
  double d = 3.0;
  double e = 0.0;
  double z = 1.0;
  long ierr = 8192;
  tridiagonalQL(1, &d, &e, &z, ierr);
  EXPECT_EQ(ierr, 8192);
  EXPECT_EQ(d, 3.0);
  EXPECT_EQ(z, 1.0);
}

TEST(TridiagonalQL, HypotenuseAndSignTransfer) {
  EXPECT_DOUBLE_EQ(hypotenuse(3.0, 4.0), 5.0);
  EXPECT_EQ(hypotenuse(0.0, 0.0), 0.0);
  EXPECT_DOUBLE_EQ(hypotenuse(-3e200, 4e200), 5e200);     // squares would overflow
  EXPECT_DOUBLE_EQ(hypotenuse(3e-200, -4e-200), 5e-200);  // squares would vanish
  EXPECT_EQ(hypotenuse(std::numeric_limits<double>::infinity(), 1.0),
            std::numeric_limits<double>::infinity());

  EXPECT_EQ(signTransfer(2.0, 5.0), 2.0);
  EXPECT_EQ(signTransfer(2.0, -5.0), -2.0);
  EXPECT_EQ(signTransfer(-2.0, -5.0), -2.0);
  EXPECT_EQ(signTransfer(-2.0, 5.0), 2.0);
}

}  // namespace
}  // namespace lumeo
