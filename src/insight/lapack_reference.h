// Test and benchmark helper: the reference answers, computed by LAPACK on the
// dense matrix. Nothing in the library includes this header.
#pragma once

#include <lapacke.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "insight/spline_fit.h"

namespace lumeo::reference {

// Thin SVD of a dense m x n matrix given by rows: s descending, u m x k
// (column j is the j-th left vector, stored by rows), vt k x n, k = min(m, n).
struct Svd {
  std::vector<double> s;
  std::vector<double> u;
  std::vector<double> vt;
  long k = 0;
  int info = 0;
};

inline Svd svd(long m, long n, std::vector<double> rowMajor) {
  Svd out;
  out.k = std::min(m, n);
  out.s.assign(static_cast<size_t>(out.k), 0.0);
  out.u.assign(static_cast<size_t>(m * out.k), 0.0);
  out.vt.assign(static_cast<size_t>(out.k * n), 0.0);
  out.info = static_cast<int>(
      LAPACKE_dgesdd(LAPACK_ROW_MAJOR, 'S', static_cast<lapack_int>(m), static_cast<lapack_int>(n),
                     rowMajor.data(), static_cast<lapack_int>(n), out.s.data(), out.u.data(),
                     static_cast<lapack_int>(out.k), out.vt.data(), static_cast<lapack_int>(n)));
  return out;
}

// The fit's design matrix by rows.
inline std::vector<double> designMatrix(long m, const double* x, long n) {
  std::vector<double> a(static_cast<size_t>(m * n));
  for (long i = 0; i < m; ++i)
    for (long j = 0; j < n; ++j)
      a[static_cast<size_t>(i * n + j)] = splineBump(n, x[i] - static_cast<double>(j));
  return a;
}

// Coefficients V Σ⁺ Uᵀ y with singular values at or below `cut` · s₀ dropped;
// `kept` receives the number used.
inline std::vector<double> truncatedPseudoInverseFit(const Svd& svd, long m, long n, const double* y,
                                                     double cut, long& kept) {
  std::vector<double> c(static_cast<size_t>(n), 0.0);
  kept = 0;
  if (svd.k == 0) return c;
  const double threshold = svd.s[0] * cut;
  for (long j = 0; j < svd.k; ++j) {
    if (!(svd.s[static_cast<size_t>(j)] > threshold)) continue;
    ++kept;
    double uy = 0.0;
    for (long i = 0; i < m; ++i) uy += svd.u[static_cast<size_t>(i * svd.k + j)] * y[i];
    const double w = uy / svd.s[static_cast<size_t>(j)];
    for (long k = 0; k < n; ++k) c[static_cast<size_t>(k)] += svd.vt[static_cast<size_t>(j * n + k)] * w;
  }
  return c;
}

}  // namespace lumeo::reference
