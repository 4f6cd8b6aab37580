// Implicit QL with Wilkinson shifts on a symmetric tridiagonal matrix. Each
// sweep chases a bulge from the bottom of the unreduced block to its top with
// plane rotations; the rotations are applied either to the first components
// only (imtqlb) or to whole vectors (tridiagonalQL).
#include "insight/tridiagonal_ql.h"

#include <algorithm>
#include <cmath>

namespace lumeo {

namespace {

constexpr int kMaxIterations = 30;

// Index of the first negligible subdiagonal entry at or after l (e[m] couples
// m and m+1 after the shift of e by one place), or n-1 when there is none.
long splitPoint(long l, long n, const double* d, const double* e) {
  long m = l;
  for (; m < n - 1; ++m) {
    const double size = std::fabs(d[m]) + std::fabs(d[m + 1]);
    if (size + std::fabs(e[m]) == size) break;
  }
  return m;
}

// One implicit QL sweep over d[l..m]; `rotate(i, s, c)` is told about each
// rotation between i and i+1. Returns false when a rotation underflowed and
// the sweep stopped early (the caller then simply iterates again).
template <typename Rotate>
inline __attribute__((always_inline)) bool qlSweep(long l, long m, double* d, double* e, Rotate rotate) {
  double g = (d[l + 1] - d[l]) / (2.0 * e[l]);
  double r = hypotenuse(g, 1.0);
  g = d[m] - d[l] + e[l] / (g + signTransfer(r, g));
  double s = 1.0;
  double c = 1.0;
  double p = 0.0;
  for (long i = m - 1; i >= l; --i) {
    const double f = s * e[i];
    const double b = c * e[i];
    // The sweep is one long chain of dependent operations, and a square root
    // followed by a division is most of each link. Inside the range where
    // the squares can neither overflow nor vanish, 1/r = r · (1/r²) lets the
    // square root and the reciprocal run side by side.
    const double squares = f * f + g * g;
    double inverse;
    if (squares > 1e-290 && squares < 1e290) {
      const double reciprocal = 1.0 / squares;
      r = std::sqrt(squares);
      inverse = r * reciprocal;
    } else {
      r = hypotenuse(f, g);
      inverse = 1.0 / r;
    }
    e[i + 1] = r;
    if (r == 0.0) {
      d[i + 1] -= p;
      e[m] = 0.0;
      return false;
    }
    s = f * inverse;
    c = g * inverse;
    g = d[i + 1] - p;
    r = (d[i] - g) * s + 2.0 * c * b;
    p = s * r;
    d[i + 1] = g + p;
    g = c * r - b;
    rotate(i, s, c);
  }
  d[l] -= p;
  e[l] = g;
  e[m] = 0.0;
  return true;
}

}  // namespace

double hypotenuse(double a, double b) {
  const double p = std::max(std::fabs(a), std::fabs(b));
  // Inside this range the squares can neither overflow nor vanish, and one
  // square root is all it takes; the QL sweeps call this hundreds of times
  // per decomposition, each call on their critical path.
  if (p > 1e-150 && p < 1e150) return std::sqrt(a * a + b * b);
  if (p == 0.0 || std::isnan(p) || std::isinf(p)) return p;
  // Otherwise scale by the larger magnitude first.
  const double r = std::min(std::fabs(a), std::fabs(b)) / p;
  return p * std::sqrt(1.0 + r * r);
}

double signTransfer(double a, double b) {
  if ((a >= 0.0 && b >= 0.0) || (a < 0.0 && b < 0.0)) return a;
  return -a;
}

void imtqlb(long n, double* d, double* e, double* bnd, long& ierr) {
  ierr = 0;
  // The eigenvector of a 1 x 1 block is (1): its bound is the whole residual.
  bnd[0] = 1.0;
  if (n == 1) return;
  for (long i = 1; i < n; ++i) {
    bnd[i] = 0.0;
    e[i - 1] = e[i];
  }
  e[n - 1] = 0.0;

  for (long l = 0; l < n; ++l) {
    int iterations = 0;
    for (;;) {
      const long m = splitPoint(l, n, d, e);
      if (m != l) {
        if (iterations == kMaxIterations) {
          ierr = l;
          return;
        }
        ++iterations;
        qlSweep(l, m, d, e, [bnd](long i, double s, double c) {
          const double f = bnd[i + 1];
          bnd[i + 1] = s * bnd[i] + c * f;
          bnd[i] = c * bnd[i] - s * f;
        });
        continue;
      }
      // d[l] has converged: insert it among the already sorted d[0..l-1].
      const double value = d[l];
      const double first = bnd[l];
      long i = l;
      for (; i > 0 && value < d[i - 1]; --i) {
        d[i] = d[i - 1];
        bnd[i] = bnd[i - 1];
      }
      d[i] = value;
      bnd[i] = first;
      break;
    }
  }
}

// The sweeps are a chain of dependent operations; fused multiply-adds
// shorten each link, so processors that have them get their own copy.
void tridiagonalQL(long n, double* d, double* e, double* z, long& ierr) {
  if (n == 1) return;
  ierr = 0;
  for (long i = 1; i < n; ++i) e[i - 1] = e[i];
  e[n - 1] = 0.0;

  for (long l = 0; l < n; ++l) {
    int iterations = 0;
    for (;;) {
      const long m = splitPoint(l, n, d, e);
      if (m == l) break;
      if (iterations == kMaxIterations) {
        ierr = l;
        return;
      }
      ++iterations;
      qlSweep(l, m, d, e, [z, n](long i, double s, double c) {
        double* __restrict zi = z + i * n;
        double* __restrict zi1 = zi + n;
        for (long k = 0; k < n; ++k) {
          const double f = zi1[k];
          zi1[k] = s * zi[k] + c * f;
          zi[k] = c * zi[k] - s * f;
        }
      });
    }
  }

  // Selection sort, ascending, carrying the vectors along.
  for (long i = 0; i < n - 1; ++i) {
    long smallest = i;
    for (long j = i + 1; j < n; ++j)
      if (d[j] < d[smallest]) smallest = j;
    if (smallest == i) continue;
    std::swap(d[i], d[smallest]);
    std::swap_ranges(z + i * n, z + i * n + n, z + smallest * n);
  }
}

}  // namespace lumeo
