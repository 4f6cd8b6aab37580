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

// Per start index k: the 4 x 4 block of products of the four weights (by
// rows, so that a sample on the scalar path adds four rows of four), then the
// 4 weighted values. Aᵀ1 and the sum of y need no sums of their own: the four
// weights of a sample always add up to 6, so Aᵀ1 = AᵀA·1 / 6 and
// Σ(y - shift) = Σ_j Aᵀ(y - shift)_j / 6.
constexpr int kGatherWidth = 20;
constexpr int kValues = 16;
// The vector path keeps only the upper triangle: accumulator e holds the
// products of weights kUpper[e][0] and kUpper[e][1].
constexpr int kUpper[10][2] = {{0, 0}, {0, 1}, {0, 2}, {0, 3}, {1, 1}, {1, 2}, {1, 3}, {2, 2}, {2, 3}, {3, 3}};

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

typedef double v4d __attribute__((vector_size(32)));

#define LUMEO_INLINE inline __attribute__((always_inline))

template <typename V>
constexpr int kLanes = static_cast<int>(sizeof(V) / sizeof(double));

template <typename V>
LUMEO_INLINE double sum(const V& v) {
  double total = 0.0;
#pragma GCC unroll 4
  for (int l = 0; l < kLanes<V>; ++l) total += v[l];
  return total;
}

// Whether every lane of a comparison result is true, by halving the vector
// with shuffles rather than extracting lane by lane.
typedef long v4l __attribute__((vector_size(32)));

LUMEO_INLINE bool allLanes(v4l m) {
  m &= __builtin_shuffle(m, v4l{2, 3, 0, 1});
  m &= __builtin_shuffle(m, v4l{1, 0, 3, 2});
  return m[0] != 0;
}

// Loads a group of samples and says whether they all lie inside
// [0, period) with one start index; if so, k and the fractional parts t are
// set. Subtracting the integer k is exact for positions in [k, k + 1).
//
// The careful form tests every lane. The quick form, for blocks that are
// probably in time order, only compares the first and the last lane and
// records any lane outside [k, k + 1) in `stray`; the caller redoes the block
// carefully if that ever happens, which in ordered data it cannot.
template <typename V>
LUMEO_INLINE bool uniformGroup(const double* x, double period, long& k, V& t) {
  const double first = x[0];
  if (!(first >= 0.0 && first < period)) return false;
  k = static_cast<long>(first);
  V position;
  std::memcpy(&position, x, sizeof position);
  t = position - static_cast<double>(k);
  return allLanes((t >= 0.0) & (t < 1.0));
}

template <typename V, typename M>
LUMEO_INLINE bool quickGroup(const double* x, double period, long& k, V& t, M& stray) {
  const double first = x[0];
  const double last = x[kLanes<V> - 1];
  if (!(first >= 0.0 && last < period)) return false;
  k = static_cast<long>(first);
  if (static_cast<long>(last) != k) return false;
  V position;
  std::memcpy(&position, x, sizeof position);
  t = position - static_cast<double>(k);
  stray |= (t < 0.0) | (t >= 1.0);
  return true;
}

template <typename V, bool kQuick, typename M>
LUMEO_INLINE bool groupAt(const double* x, double period, long& k, V& t, M& stray) {
  if constexpr (kQuick) {
    return quickGroup(x, period, k, t, stray);
  } else {
    return uniformGroup(x, period, k, t);
  }
}

template <typename V>
LUMEO_INLINE void weights(const V& t, V w[4]) {
  const V s = 1.0 - t;
  const V t2 = t * t;
  const V s2 = s * s;
  w[0] = t2 * t;
  w[1] = 1.0 + 3.0 * (t + t2 - t2 * t);
  w[2] = 1.0 + 3.0 * (s + s2 - s2 * s);
  w[3] = s2 * s;
}

// One block of the design pass into `local` (n x kGatherWidth, zeroed by the
// caller). Returns false at the first sample that is not a finite position.
template <typename V, bool kQuick>
LUMEO_INLINE bool gatherKernel(const double* x, const double* y, long count, long n, double shift, double* local,
                               bool& strayed) {
  constexpr int kGroup = kLanes<V>;
  decltype(V{} < 0.0) stray = {};
  const double period = static_cast<double>(n);
  // Flushes are fully unrolled, so that the sums can stay in registers.
  V acc[14] = {};
  long current = -1;
  auto flush = [&]() {
    if (current < 0) return;
    double* target = local + current * kGatherWidth;
#pragma GCC unroll 10
    for (int e = 0; e < 10; ++e) {
      const double total = sum(acc[e]);
      const int a = kUpper[e][0];
      const int b = kUpper[e][1];
      target[a * 4 + b] += total;
      if (a != b) target[b * 4 + a] += total;
      acc[e] = V{};
    }
#pragma GCC unroll 4
    for (int a = 0; a < 4; ++a) {
      target[kValues + a] += sum(acc[10 + a]);
      acc[10 + a] = V{};
    }
  };

  for (long i = 0; i < count;) {
    long k;
    V t;
    if (i + kGroup <= count && groupAt<V, kQuick>(x + i, period, k, t, stray)) {
      if (k != current) {
        flush();
        current = k;
      }
      V w[4];
      weights(t, w);
      V v;
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
      i += kGroup;
      continue;
    }
    const long stop = std::min(count, i + kGroup);
    for (; i < stop; ++i) {
      // One sample: its four weights as one vector, added as four rows and
      // the weighted value.
      double w[4];
      if (!basisAt(x[i], n, period, k, w)) return false;
      v4d weight;
      std::memcpy(&weight, w, sizeof weight);
      double* target = local + k * kGatherWidth;
#pragma GCC unroll 5
      for (int a = 0; a < 5; ++a) {
        v4d row;
        std::memcpy(&row, target + 4 * a, sizeof row);
        row += (a < 4 ? w[a] : y[i] - shift) * weight;
        std::memcpy(target + 4 * a, &row, sizeof row);
      }
    }
  }
  flush();
  strayed = !allLanes(stray == 0);
  return true;
}

// A block in the quick form, redone in the careful one when a group turned
// out to straddle two indices after all.
template <typename V>
LUMEO_INLINE bool gatherBlock(const double* x, const double* y, long count, long n, double shift, double* local) {
  bool strayed = false;
  if (!gatherKernel<V, true>(x, y, count, n, shift, local, strayed)) return false;
  if (!strayed) return true;
  std::fill(local, local + n * kGatherWidth, 0.0);
  return gatherKernel<V, false>(x, y, count, n, shift, local, strayed);
}

// One block of the residual pass into `local` (n x 4, zeroed by the caller).
// window[k*4 + a] is the coefficient of basis k - a.
template <typename V, bool kQuick>
LUMEO_INLINE void residualKernel(const double* x, const double* y, long count, long n, const double* window,
                                 double offset, double* local, bool& strayed) {
  constexpr int kGroup = kLanes<V>;
  decltype(V{} < 0.0) stray = {};
  const double period = static_cast<double>(n);
  V acc[4] = {};
  V c[4] = {};
  long current = -1;
  auto flush = [&]() {
    if (current < 0) return;
#pragma GCC unroll 4
    for (int a = 0; a < 4; ++a) {
      local[current * 4 + a] += sum(acc[a]);
      acc[a] = V{};
    }
  };

  for (long i = 0; i < count;) {
    long k;
    V t;
    if (i + kGroup <= count && groupAt<V, kQuick>(x + i, period, k, t, stray)) {
      if (k != current) {
        flush();
        current = k;
#pragma GCC unroll 4
        for (int a = 0; a < 4; ++a) c[a] = V{} + window[k * 4 + a];
      }
      V w[4];
      weights(t, w);
      V v;
      std::memcpy(&v, y + i, sizeof v);
      const V curve = offset + (c[3] * w[3] + c[2] * w[2] + c[1] * w[1] + c[0] * w[0]);
      V r = v - curve;
      r = r < 0.0 ? -r : r;
#pragma GCC unroll 4
      for (int a = 0; a < 4; ++a) acc[a] += r * w[a];
      i += kGroup;
      continue;
    }
    const long stop = std::min(count, i + kGroup);
    for (; i < stop; ++i) {
      double w[4];
      basisAt(x[i], n, period, k, w);
      const double* cw = window + k * 4;
      const double curve = offset + (cw[3] * w[3] + cw[2] * w[2] + cw[1] * w[1] + cw[0] * w[0]);
      const double r = std::fabs(y[i] - curve);
      v4d weight;
      std::memcpy(&weight, w, sizeof weight);
      v4d row;
      std::memcpy(&row, local + k * 4, sizeof row);
      row += r * weight;
      std::memcpy(local + k * 4, &row, sizeof row);
    }
  }
  flush();
  strayed = !allLanes(stray == 0);
}

template <typename V>
LUMEO_INLINE void residualBlock(const double* x, const double* y, long count, long n, const double* window,
                                double offset, double* local) {
  bool strayed = false;
  residualKernel<V, true>(x, y, count, n, window, offset, local, strayed);
  if (!strayed) return;
  std::fill(local, local + n * 4, 0.0);
  residualKernel<V, false>(x, y, count, n, window, offset, local, strayed);
}

// The kernels compiled twice: with AVX2 and FMA where the processor has
// them, and for whatever the baseline offers (two SSE2 halves on x86-64, NEON
// on a phone). The choice is made once per process. Eight lanes of AVX-512
// measured slower here: groups of eight straddle a basis index twice as
// often, and the extra sums no longer fit the registers.
using GatherFn = bool (*)(const double*, const double*, long, long, double, double*);
using ResidualFn = void (*)(const double*, const double*, long, long, const double*, double, double*);

bool gatherBaseline(const double* x, const double* y, long count, long n, double shift, double* local) {
  return gatherBlock<v4d>(x, y, count, n, shift, local);
}
void residualBaseline(const double* x, const double* y, long count, long n, const double* window, double offset,
                      double* local) {
  residualBlock<v4d>(x, y, count, n, window, offset, local);
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define LUMEO_HAS_WIDE_KERNELS 1
__attribute__((target("arch=x86-64-v3"))) bool gatherWide4(const double* x, const double* y, long count, long n,
                                                             double shift, double* local) {
  return gatherBlock<v4d>(x, y, count, n, shift, local);
}
__attribute__((target("arch=x86-64-v3"))) void residualWide4(const double* x, const double* y, long count, long n,
                                                               const double* window, double offset, double* local) {
  residualBlock<v4d>(x, y, count, n, window, offset, local);
}
#endif

struct Kernels {
  GatherFn gather = gatherBaseline;
  ResidualFn residual = residualBaseline;
};

const Kernels& kernels() {
  static const Kernels chosen = [] {
    Kernels k;
#ifdef LUMEO_HAS_WIDE_KERNELS
    __builtin_cpu_init();
    if (__builtin_cpu_supports("x86-64-v3")) {
      k.gather = gatherWide4;
      k.residual = residualWide4;
    }
#endif
    return k;
  }();
  return chosen;
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
    if (!kernels().gather(x + start, y + start, count, n, shift, local.data())) {
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
      for (int b = 0; b < 4; ++b) sums.gram[static_cast<size_t>(ja * n + wrap(k - b, n))] += acc[a * 4 + b];
      sums.shiftedB[static_cast<size_t>(ja)] += acc[kValues + a];
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
    kernels().residual(x + start, y + start, count, n, window.data(), offset, local.data());
    for (size_t e = 0; e < total.size(); ++e) total[e] += local[e];
  }
  std::vector<double> atr(static_cast<size_t>(n), 0.0);
  for (long k = 0; k < n; ++k)
    for (long a = 0; a < 4; ++a) atr[static_cast<size_t>(wrap(k - a, n))] += total[static_cast<size_t>(k * 4 + a)];
  return atr;
}

}  // namespace lumeo
