// The streaming passes of the curve fit. Journals are read in time order, so
// consecutive samples usually lie on the same unit interval [k, k + 1) (on
// the open time line for long runs, on a cycle for a day or so at a time).
// On one interval the four non-zero basis functions are fixed cubics, so a
// pass only sums powers of the sample's offset, four samples at a time in
// vector registers, and turns those moments into basis products once per
// interval at the end. A group that leaves the interval, and anything that is
// not a plain position inside the period, takes the scalar path, which adds
// straight into the per-interval sums. Partial sums are closed every block of
// samples, so the rounding of a million-sample sum stays near that of a few
// thousand.
#include "insight/design_sums.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace lumeo {

namespace {

constexpr long kBlock = 4096;

// Within the unit interval [k, k + 1) of a sample, with tau its offset from
// the interval's centre (-1/2 <= tau < 1/2), the four non-zero basis
// functions are cubics in tau: basis k - a has the coefficients
// kCubic[a][0..3] of 1, tau, tau², tau³. They are exact binary fractions, and
// centring keeps every term at most a few units, so sums of powers of tau
// turn into sums of basis products with little cancellation.
constexpr double kCubic[4][4] = {
    {0.125, 0.75, 1.5, 1.0}, {2.875, 3.75, -1.5, -3.0}, {2.875, -3.75, -1.5, 3.0}, {0.125, -0.75, 1.5, -1.0}};

// Per start index k the design pass keeps the moments Σtau^p (p = 0..6) and
// Σ(y - shift)·tau^p (p = 0..3); every product of two of the four weights is
// a fixed combination of the first, every weighted value one of the second.
// That is eleven sums a sample instead of ten products and four weighted
// values, and no weights to compute. Slot 7 is padding, so that a sample on
// the scalar path adds three vectors of four.
constexpr int kGatherWidth = 12;
constexpr int kValueMoments = 8;
// The residual pass keeps Σ|r|·tau^p, p = 0..3.
constexpr int kResidualWidth = 4;

// Scratch of a pass: on the stack for the basis counts the charts use, on
// the heap beyond.
class Scratch {
 public:
  explicit Scratch(size_t count) {
    if (count > kInline) {
      heap_.assign(count, 0.0);
      data_ = heap_.data();
    } else {
      std::fill(inline_, inline_ + count, 0.0);
      data_ = inline_;
    }
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  double* data() { return data_; }

 private:
  static constexpr size_t kInline = 16 * kGatherWidth;
  double inline_[kInline];
  std::vector<double> heap_;
  double* data_;
};

inline long wrap(long j, long n) {
  return j < 0 ? j + n : j;
}

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

// Start index k and offset tau of x from the centre of [k, k + 1).
inline bool intervalAt(double x, long n, double period, long& k, double& tau) {
  double r;
  if (!periodPosition(x, period, r)) {
    k = 0;
    tau = 0.0;
    return false;
  }
  k = static_cast<long>(r);
  tau = (r - static_cast<double>(k)) - 0.5;
  if (k >= n) k -= n;
  return true;
}

typedef double v4d __attribute__((vector_size(32)));
typedef long v4l __attribute__((vector_size(32)));

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

// Whether every offset of a group lies inside its interval, [-1/2, 1/2):
// the mask is halved with shuffles rather than read lane by lane.
LUMEO_INLINE bool allInside(const v4d& tau) {
  v4l m = (tau >= -0.5) & (tau < 0.5);
  m &= __builtin_shuffle(m, v4l{2, 3, 0, 1});
  m &= __builtin_shuffle(m, v4l{1, 0, 3, 2});
  return m[0] != 0;
}

// One sample on the scalar path: 1, tau, tau², tau³ as one vector.
LUMEO_INLINE void powers(double tau, v4d& p) {
  const double t2 = tau * tau;
  p = v4d{1.0, tau, t2, t2 * tau};
}

LUMEO_INLINE void addTo(double* target, const v4d& value) {
  v4d row;
  std::memcpy(&row, target, sizeof row);
  row += value;
  std::memcpy(target, &row, sizeof row);
}

// One block of the design pass into `local` (n x kGatherWidth, zeroed by the
// caller). Journals come in time order, so samples arrive in runs on one
// interval [k, k + 1): a run is summed in groups of four in registers until a
// group leaves the interval, and the sample where it left goes alone on the
// scalar path, which handles any position, so data in any order comes out
// right. False at the first sample that is not a finite position.
LUMEO_INLINE bool gatherKernel(const double* x, const double* y, long count, long n, double shift,
                               double* local) {
  constexpr int kGroup = 4;
  const double period = static_cast<double>(n);
  long i = 0;
  while (i < count) {
    const double first = x[i];
    if (i + kGroup <= count && first >= 0.0 && first < period) {
      const long k = static_cast<long>(first);
      const double centre = static_cast<double>(k) + 0.5;
      v4d m1 = {}, m2 = {}, m3 = {}, m4 = {}, m5 = {}, m6 = {};
      v4d y0 = {}, y1 = {}, y2 = {}, y3 = {};
      const long start = i;
      v4d tau;
      for (; i + kGroup <= count; i += kGroup) {
        std::memcpy(&tau, x + i, sizeof tau);
        tau -= centre;
        if (!allInside(tau)) break;
        v4d v;
        std::memcpy(&v, y + i, sizeof v);
        v -= shift;
        const v4d t2 = tau * tau;
        const v4d t3 = t2 * tau;
        const v4d t4 = t2 * t2;
        m1 += tau;
        m2 += t2;
        m3 += t3;
        m4 += t4;
        m5 += t4 * tau;
        m6 += t3 * t3;
        y0 += v;
        y1 += v * tau;
        y2 += v * t2;
        y3 += v * t3;
      }
      if (i > start) {
        double* target = local + k * kGatherWidth;
        target[0] += static_cast<double>(i - start);
        target[1] += sum(m1);
        target[2] += sum(m2);
        target[3] += sum(m3);
        target[4] += sum(m4);
        target[5] += sum(m5);
        target[6] += sum(m6);
        target[kValueMoments + 0] += sum(y0);
        target[kValueMoments + 1] += sum(y1);
        target[kValueMoments + 2] += sum(y2);
        target[kValueMoments + 3] += sum(y3);
      }
      if (i >= count) break;
    }
    long k;
    double tau;
    if (!intervalAt(x[i], n, period, k, tau)) return false;
    v4d p;
    powers(tau, p);
    double* target = local + k * kGatherWidth;
    addTo(target, p);
    addTo(target + 4, p * (p[2] * p[2]));
    addTo(target + kValueMoments, p * (y[i] - shift));
    ++i;
  }
  return true;
}

// One block of the residual pass into `local` (n x kResidualWidth, zeroed by
// the caller). On [k, k + 1) the curve is the cubic cubic[k*4 + 0..3] in tau
// (offset included), so a residual costs three fused steps of Horner's rule.
LUMEO_INLINE void residualKernel(const double* x, const double* y, long count, long n, const double* cubic,
                                 double* local) {
  constexpr int kGroup = 4;
  const double period = static_cast<double>(n);
  long i = 0;
  while (i < count) {
    const double first = x[i];
    if (i + kGroup <= count && first >= 0.0 && first < period) {
      const long k = static_cast<long>(first);
      const double centre = static_cast<double>(k) + 0.5;
      const double* c = cubic + k * 4;
      v4d r0 = {}, r1 = {}, r2 = {}, r3 = {};
      const long start = i;
      v4d tau;
      for (; i + kGroup <= count; i += kGroup) {
        std::memcpy(&tau, x + i, sizeof tau);
        tau -= centre;
        if (!allInside(tau)) break;
        v4d v;
        std::memcpy(&v, y + i, sizeof v);
        const v4d curve = ((c[3] * tau + c[2]) * tau + c[1]) * tau + c[0];
        v4d r = v - curve;
        r = r < 0.0 ? -r : r;
        const v4d t2 = tau * tau;
        r0 += r;
        r1 += r * tau;
        r2 += r * t2;
        r3 += r * (t2 * tau);
      }
      if (i > start) {
        double* target = local + k * kResidualWidth;
        target[0] += sum(r0);
        target[1] += sum(r1);
        target[2] += sum(r2);
        target[3] += sum(r3);
      }
      if (i >= count) break;
    }
    long k;
    double tau;
    intervalAt(x[i], n, period, k, tau);
    const double* c = cubic + k * 4;
    const double curve = ((c[3] * tau + c[2]) * tau + c[1]) * tau + c[0];
    v4d p;
    powers(tau, p);
    addTo(local + k * kResidualWidth, p * std::fabs(y[i] - curve));
    ++i;
  }
}

// The kernels compiled twice: with AVX2 and FMA where the processor has
// them, and for whatever the baseline offers (two SSE2 halves on x86-64, NEON
// on a phone). The choice is made once per process.
using GatherFn = bool (*)(const double*, const double*, long, long, double, double*);
using ResidualFn = void (*)(const double*, const double*, long, long, const double*, double*);

bool gatherBaseline(const double* x, const double* y, long count, long n, double shift, double* local) {
  return gatherKernel(x, y, count, n, shift, local);
}
void residualBaseline(const double* x, const double* y, long count, long n, const double* cubic,
                      double* local) {
  residualKernel(x, y, count, n, cubic, local);
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define LUMEO_HAS_WIDE_KERNELS 1
__attribute__((target("arch=x86-64-v3"))) bool gatherWide4(const double* x, const double* y, long count,
                                                           long n, double shift, double* local) {
  return gatherKernel(x, y, count, n, shift, local);
}
__attribute__((target("arch=x86-64-v3"))) void residualWide4(const double* x, const double* y, long count,
                                                             long n, const double* cubic, double* local) {
  residualKernel(x, y, count, n, cubic, local);
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
  double r;
  if (!periodPosition(x, static_cast<double>(n), r)) {
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

DesignSums sumDesign(long m, const double* x, const double* y, long n, double shift) {
  DesignSums sums;
  sums.gram.assign(static_cast<size_t>(n * n), 0.0);
  sums.shiftedB.assign(static_cast<size_t>(n), 0.0);
  sums.columnSums.assign(static_cast<size_t>(n), 0.0);
  const long width = n * kGatherWidth;
  Scratch localScratch(static_cast<size_t>(width));
  Scratch totalScratch(static_cast<size_t>(width));
  double* local = localScratch.data();
  double* total = totalScratch.data();
  for (long start = 0; start < m; start += kBlock) {
    const long count = std::min(m - start, kBlock);
    if (start > 0) std::fill(local, local + width, 0.0);
    if (!kernels().gather(x + start, y + start, count, n, shift, local)) {
      sums.finite = false;
      return sums;
    }
    for (long e = 0; e < width; ++e) total[e] += local[e];
  }

  // Turn the moments of each interval into its 4 x 4 block of basis
  // products and its 4 weighted values, and fold those into the n x n matrix.
  double shiftedTotal = 0.0;
  for (long k = 0; k < n; ++k) {
    const double* moments = total + k * kGatherWidth;
    const double* values = moments + kValueMoments;
    shiftedTotal += values[0];
    for (int a = 0; a < 4; ++a) {
      // hankel[q] = Σ_p kCubic[a][p] · Σtau^(p+q)
      double hankel[4];
      for (int q = 0; q < 4; ++q) {
        double s = 0.0;
        for (int p = 0; p < 4; ++p) s += kCubic[a][p] * moments[p + q];
        hankel[q] = s;
      }
      const long ja = wrap(k - a, n);
      double* row = sums.gram.data() + ja * n;
      for (int b = 0; b < 4; ++b) {
        double s = 0.0;
        for (int q = 0; q < 4; ++q) s += kCubic[b][q] * hankel[q];
        row[wrap(k - b, n)] += s;
      }
      double weighted = 0.0;
      double ones = 0.0;
      for (int p = 0; p < 4; ++p) {
        weighted += kCubic[a][p] * values[p];
        ones += kCubic[a][p] * moments[p];
      }
      sums.shiftedB[static_cast<size_t>(ja)] += weighted;
      sums.columnSums[static_cast<size_t>(ja)] += ones;
    }
  }
  sums.sumShiftedY = shiftedTotal;
  if (!std::isfinite(sums.sumShiftedY)) sums.finite = false;
  for (double v : sums.shiftedB)
    if (!std::isfinite(v)) sums.finite = false;
  return sums;
}

std::vector<double> sumResiduals(long m, const double* x, const double* y, long n, const double* coefficients,
                                 double offset) {
  // The curve on each interval as a cubic in tau.
  Scratch cubicScratch(static_cast<size_t>(n * 4));
  double* cubic = cubicScratch.data();
  for (long k = 0; k < n; ++k) {
    double* c = cubic + k * 4;
    for (int a = 0; a < 4; ++a) {
      const double coefficient = coefficients[wrap(k - a, n)];
      for (int p = 0; p < 4; ++p) c[p] += coefficient * kCubic[a][p];
    }
    c[0] += offset;
  }
  const long width = n * kResidualWidth;
  Scratch localScratch(static_cast<size_t>(width));
  Scratch totalScratch(static_cast<size_t>(width));
  double* local = localScratch.data();
  double* total = totalScratch.data();
  for (long start = 0; start < m; start += kBlock) {
    const long count = std::min(m - start, kBlock);
    if (start > 0) std::fill(local, local + width, 0.0);
    kernels().residual(x + start, y + start, count, n, cubic, local);
    for (long e = 0; e < width; ++e) total[e] += local[e];
  }
  std::vector<double> atr(static_cast<size_t>(n), 0.0);
  for (long k = 0; k < n; ++k) {
    const double* moments = total + k * kResidualWidth;
    for (int a = 0; a < 4; ++a) {
      double s = 0.0;
      for (int p = 0; p < 4; ++p) s += kCubic[a][p] * moments[p];
      atr[static_cast<size_t>(wrap(k - a, n))] += s;
    }
  }
  return atr;
}

}  // namespace lumeo
