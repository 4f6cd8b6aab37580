// The streaming passes of the curve fit. Journals are read in time order, so
// consecutive samples usually start at the same basis index k (on the open
// time line for long runs, on a cycle for a day or so at a time). Four such
// samples are handled together in vector registers, their sums kept there
// until k changes; a group that straddles two indices, and anything that
// is not a plain position inside the period, takes the scalar path, which
// adds straight into the per-index sums. Partial sums are closed every block
// of samples, so the rounding of a million-sample sum stays near that of a
// few thousand.
#include "insight/design_sums.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace lumeo {

namespace {

constexpr long kBlock = 4096;

// Per start index k: the 10 products of the four weights (upper triangle of
// the 4 x 4 block) and the 4 weighted values. Aᵀ1 and the sum of y need no
// sums of their own: the four weights of a sample always add up to 6, so
// Aᵀ1 = AᵀA·1 / 6 and Σ(y - shift) = Σ_j Aᵀ(y - shift)_j / 6.
constexpr int kGatherWidth = 14;
constexpr int kPair[4][4] = {{0, 1, 2, 3}, {1, 4, 5, 6}, {2, 5, 7, 8}, {3, 6, 8, 9}};

typedef double v4d __attribute__((vector_size(32)));
typedef long v4l __attribute__((vector_size(32)));

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define LUMEO_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define LUMEO_VECTOR_CLONES
#endif

inline long wrap(long j, long n) { return j < 0 ? j + n : j; }

// Position of x within one period, in [0, period). False for NaN and
// infinities.
inline bool periodPosition(double x, double period, double& r) {
  r = x;
  if (!(r >= 0.0 && r < period)) {
    r = std::fmod(x, period);
    if (r < 0.0) r += period;
    if (r >= period) r -= period;  // a tiny negative x rounds up to the period
  }
  return r >= 0.0 && r < period;
}

// The four basis functions that are non-zero at x: indices k, k-1, k-2, k-3
// (modulo n), valued at distances t, t+1, t+2, t+3 from their starts, where t
// is the fractional part of the position. These are the bump's two cubics
// written in t, so that no basis function needs its own fmod.
inline bool basisAt(double x, long n, double period, long& k, double w[4]) {
  double r;
  if (!periodPosition(x, period, r)) {
    k = 0;
    w[0] = w[1] = w[2] = w[3] = 0.0;
    return false;
  }
  k = static_cast<long>(r);
  const double t = r - static_cast<double>(k);
  const double s = 1.0 - t;
  const double t2 = t * t;
  const double s2 = s * s;
  w[0] = t2 * t;
  w[1] = 1.0 + 3.0 * (t + t2 - t2 * t);
  w[2] = 1.0 + 3.0 * (s + s2 - s2 * s);
  w[3] = s2 * s;
  if (k >= n) k -= n;
  return true;
}

inline double sum(v4d v) { return (v[0] + v[1]) + (v[2] + v[3]); }

// Loads four samples and says whether they all lie inside [0, period) with
// one start index; if so, k and the fractional parts t are set. Subtracting
// the integer k is exact for positions in [k, k + 1).
inline bool uniformGroup(const double* x, double period, long& k, v4d& t) {
  const double first = x[0];
  if (!(first >= 0.0 && first < period)) return false;
  k = static_cast<long>(first);
  v4d position;
  std::memcpy(&position, x, sizeof position);
  t = position - static_cast<double>(k);
  const v4l inside = (t >= 0.0) & (t < 1.0);
  return (inside[0] & inside[1] & inside[2] & inside[3]) != 0;
}

inline void weights(const v4d& t, v4d w[4]) {
  const v4d s = 1.0 - t;
  const v4d t2 = t * t;
  const v4d s2 = s * s;
  w[0] = t2 * t;
  w[1] = 1.0 + 3.0 * (t + t2 - t2 * t);
  w[2] = 1.0 + 3.0 * (s + s2 - s2 * s);
  w[3] = s2 * s;
}

// One block of the design pass into `local` (n x kGatherWidth, zeroed by the
// caller). Returns false at the first sample that is not a finite position.
LUMEO_VECTOR_CLONES
bool gatherBlock(const double* x, const double* y, long count, long n, double shift, double* local) {
  const double period = static_cast<double>(n);
  // Fully unrolled, so that the sums stay in registers.
  v4d acc[kGatherWidth] = {};
  long current = -1;
  auto flush = [&]() {
    if (current < 0) return;
    double* target = local + current * kGatherWidth;
#pragma GCC unroll 16
    for (int e = 0; e < kGatherWidth; ++e) {
      target[e] += sum(acc[e]);
      acc[e] = v4d{};
    }
  };

  for (long i = 0; i < count;) {
    long k;
    v4d t;
    if (i + 4 <= count && uniformGroup(x + i, period, k, t)) {
      if (k != current) {
        flush();
        current = k;
      }
      v4d w[4];
      weights(t, w);
      v4d v;
      std::memcpy(&v, y + i, sizeof v);
      v -= shift;
      acc[0] += w[0] * w[0];
      acc[1] += w[0] * w[1];
      acc[2] += w[0] * w[2];
      acc[3] += w[0] * w[3];
      acc[4] += w[1] * w[1];
      acc[5] += w[1] * w[2];
      acc[6] += w[1] * w[3];
      acc[7] += w[2] * w[2];
      acc[8] += w[2] * w[3];
      acc[9] += w[3] * w[3];
      acc[10] += v * w[0];
      acc[11] += v * w[1];
      acc[12] += v * w[2];
      acc[13] += v * w[3];
      i += 4;
      continue;
    }
    const long stop = std::min(count, i + 4);
    for (; i < stop; ++i) {
      double w[4];
      if (!basisAt(x[i], n, period, k, w)) return false;
      double* target = local + k * kGatherWidth;
      const double v = y[i] - shift;
      for (int a = 0; a < 4; ++a) {
        for (int b = a; b < 4; ++b) target[kPair[a][b]] += w[a] * w[b];
        target[10 + a] += v * w[a];
      }
    }
  }
  flush();
  return true;
}

// One block of the residual pass into `local` (n x 4, zeroed by the caller).
// window[k*4 + a] is the coefficient of basis k - a.
LUMEO_VECTOR_CLONES
void residualBlock(const double* x, const double* y, long count, long n, const double* window, double offset,
                   double* local) {
  const double period = static_cast<double>(n);
  v4d acc[4] = {};
  long current = -1;
  v4d c[4] = {};
  auto flush = [&]() {
    if (current < 0) return;
#pragma GCC unroll 4
    for (int a = 0; a < 4; ++a) {
      local[current * 4 + a] += sum(acc[a]);
      acc[a] = v4d{};
    }
  };

  for (long i = 0; i < count;) {
    long k;
    v4d t;
    if (i + 4 <= count && uniformGroup(x + i, period, k, t)) {
      if (k != current) {
        flush();
        current = k;
#pragma GCC unroll 4
        for (int a = 0; a < 4; ++a) c[a] = v4d{} + window[k * 4 + a];
      }
      v4d w[4];
      weights(t, w);
      v4d v;
      std::memcpy(&v, y + i, sizeof v);
      const v4d curve = offset + (c[3] * w[3] + c[2] * w[2] + c[1] * w[1] + c[0] * w[0]);
      v4d r = v - curve;
      r = r < 0.0 ? -r : r;
#pragma GCC unroll 4
      for (int a = 0; a < 4; ++a) acc[a] += r * w[a];
      i += 4;
      continue;
    }
    const long stop = std::min(count, i + 4);
    for (; i < stop; ++i) {
      double w[4];
      basisAt(x[i], n, period, k, w);
      const double* cw = window + k * 4;
      const double curve = offset + (cw[3] * w[3] + cw[2] * w[2] + cw[1] * w[1] + cw[0] * w[0]);
      const double r = std::fabs(y[i] - curve);
      for (int a = 0; a < 4; ++a) local[k * 4 + a] += r * w[a];
    }
  }
  flush();
}

}  // namespace

bool splineBasisAt(double x, long n, long& k, double w[4]) {
  return basisAt(x, n, static_cast<double>(n), k, w);
}

DesignSums sumDesign(long m, const double* x, const double* y, long n, double shift) {
  DesignSums sums;
  sums.gram.assign(static_cast<size_t>(n * n), 0.0);
  sums.shiftedB.assign(static_cast<size_t>(n), 0.0);
  sums.columnSums.assign(static_cast<size_t>(n), 0.0);
  std::vector<double> local(static_cast<size_t>(n * kGatherWidth));
  std::vector<double> total(static_cast<size_t>(n * kGatherWidth), 0.0);
  for (long start = 0; start < m; start += kBlock) {
    const long count = std::min(m - start, kBlock);
    std::fill(local.begin(), local.end(), 0.0);
    if (!gatherBlock(x + start, y + start, count, n, shift, local.data())) {
      sums.finite = false;
      return sums;
    }
    for (size_t e = 0; e < total.size(); ++e) total[e] += local[e];
  }

  // Fold the per-start-index sums into the n x n matrix.
  for (long k = 0; k < n; ++k) {
    const double* acc = total.data() + k * kGatherWidth;
    for (int a = 0; a < 4; ++a) {
      const long ja = wrap(k - a, n);
      for (int b = 0; b < 4; ++b) sums.gram[static_cast<size_t>(ja * n + wrap(k - b, n))] += acc[kPair[a][b]];
      sums.shiftedB[static_cast<size_t>(ja)] += acc[10 + a];
    }
  }
  double shiftedTotal = 0.0;
  for (long j = 0; j < n; ++j) {
    double row = 0.0;
    for (long l = 0; l < n; ++l) row += sums.gram[static_cast<size_t>(j * n + l)];
    sums.columnSums[static_cast<size_t>(j)] = row / 6.0;
    shiftedTotal += sums.shiftedB[static_cast<size_t>(j)];
  }
  sums.sumShiftedY = shiftedTotal / 6.0;
  if (!std::isfinite(sums.sumShiftedY)) sums.finite = false;
  for (double v : sums.shiftedB)
    if (!std::isfinite(v)) sums.finite = false;
  return sums;
}

std::vector<double> sumResiduals(long m, const double* x, const double* y, long n, const double* coefficients,
                                 double offset) {
  std::vector<double> window(static_cast<size_t>(n * 4));
  for (long k = 0; k < n; ++k)
    for (long a = 0; a < 4; ++a) window[static_cast<size_t>(k * 4 + a)] = coefficients[wrap(k - a, n)];
  std::vector<double> local(static_cast<size_t>(n * 4));
  std::vector<double> total(static_cast<size_t>(n * 4), 0.0);
  for (long start = 0; start < m; start += kBlock) {
    const long count = std::min(m - start, kBlock);
    std::fill(local.begin(), local.end(), 0.0);
    residualBlock(x + start, y + start, count, n, window.data(), offset, local.data());
    for (size_t e = 0; e < total.size(); ++e) total[e] += local[e];
  }
  std::vector<double> atr(static_cast<size_t>(n), 0.0);
  for (long k = 0; k < n; ++k)
    for (long a = 0; a < 4; ++a) atr[static_cast<size_t>(wrap(k - a, n))] += total[static_cast<size_t>(k * 4 + a)];
  return atr;
}

}  // namespace lumeo
