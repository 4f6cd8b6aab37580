// The inner loops of the curve fit's two streaming passes, in portable
// vector code: groups of two samples in one 128-bit register, which every
// x86-64 (SSE2) and ARM64 (NEON) processor has; the running sums of a run
// then fit in the registers of either, where four lanes made the compiler
// keep them on the stack. There is
// one copy for every processor, and the insight module is compiled without
// contracting a multiply and an add into one rounding (-ffp-contract=off):
// every sum is made of the same IEEE operations in the same order
// everywhere, so synced devices fit bit-identical curves from the same
// records.
#pragma once

#include <cmath>
#include <cstring>

namespace lumeo::design {

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

// One block of each pass: `local` holds n x kGatherWidth (n x
// kResidualWidth) sums, zeroed by the caller. The design pass returns false
// at the first sample that is not a finite position; the residual pass takes
// positions that have passed it. cubic[k*4 + p] is the curve on [k, k + 1)
// as a cubic in tau, offset included.
bool gather(const double* x, const double* y, long count, long n, double shift, double* local);
void residual(const double* x, const double* y, long count, long n, const double* cubic, double* local);

namespace {

#define LUMEO_INLINE inline __attribute__((always_inline))

typedef double v4d __attribute__((vector_size(32)));
// A group of samples: two lanes, one SSE2 or NEON register, so that the ten
// running sums of a run stay in registers on either (16 and 32 of them).
typedef double v2d __attribute__((vector_size(16)));

// Position of x within one period, in [0, period). False for NaN and
// infinities.
LUMEO_INLINE bool periodPosition(double x, double period, double& r) {
  r = x;
  if (!(r >= 0.0 && r < period)) {
    r = std::fmod(x, period);
    if (r < 0.0) r += period;
    if (r >= period) r -= period;  // a tiny negative x rounds up to the period
  }
  return r >= 0.0 && r < period;
}

// Start index k and offset tau of x from the centre of [k, k + 1).
LUMEO_INLINE bool intervalAt(double x, long n, double period, long& k, double& tau) {
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

// The lanes of a group added in a fixed order.
LUMEO_INLINE double laneSum(const v2d& v) {
  return (0.0 + v[0]) + v[1];
}

// Whether both offsets of a group lie in [-1/2, 1/2).
LUMEO_INLINE bool allInside(const v2d& tau) {
  return tau[0] >= -0.5 && tau[0] < 0.5 && tau[1] >= -0.5 && tau[1] < 0.5;
}

LUMEO_INLINE void makeAbsolute(v2d& v) {
  v[0] = std::fabs(v[0]);
  v[1] = std::fabs(v[1]);
}

// Journals come in time order, so samples arrive in runs on one interval
// [k, k + 1): a run is summed a group of lanes at a time in registers until a
// group leaves the interval, and the rest of the run, too short for a group,
// one sample at a time, its sums still in registers (a cycle chart's runs are
// a few samples long, so this is where most of its samples go). A position
// outside the period goes alone through fmod. Every sample is tested against
// its run's interval, so data in any order comes out right.
//
// Both passes walk the samples this way; what they sum differs. For each run
// `makeRun(k)` gives the run's sums, then `run.group(tau, i)` takes each
// group of lanes (samples i, i + 1, tau their offsets from the centre),
// `run.endGroups(samples)` adds the group sums once groups stop (when there
// were any), `run.one(tau, i)` takes each sample of the rest and
// `run.endRest()` adds those sums (when there were any). `lone(i)` takes a
// sample outside the period; its false ends the walk with false.
template <class MakeRun, class Lone>
LUMEO_INLINE bool walkRuns(const double* x, long count, long n, MakeRun makeRun, Lone lone) {
  using V = v2d;
  constexpr long kGroup = 2;
  const double period = static_cast<double>(n);
  long i = 0;
  while (i < count) {
    const double first = x[i];
    if (first >= 0.0 && first < period) {
      const long k = static_cast<long>(first);
      const double centre = static_cast<double>(k) + 0.5;
      auto run = makeRun(k);
      const long start = i;
      for (; i + kGroup <= count; i += kGroup) {
        V tau;
        std::memcpy(&tau, x + i, sizeof tau);
        tau -= centre;
        if (!allInside(tau)) break;
        run.group(tau, i);
      }
      if (i > start) run.endGroups(i - start);
      // The rest of the run. It takes at least the run's first sample, whose
      // offset from the centre is inside by construction, so the loop always
      // moves on.
      const long rest = i;
      for (; i < count; ++i) {
        const double tau = x[i] - centre;
        if (!(tau >= -0.5 && tau < 0.5)) break;
        run.one(tau, i);
      }
      if (i > rest) run.endRest();
      continue;
    }
    if (!lone(i)) return false;
    ++i;
  }
  return true;
}

LUMEO_INLINE bool gatherKernel(const double* x, const double* y, long count, long n, double shift,
                               double* local) {
  using V = v2d;
  struct Run {
    const double* y;
    double shift;
    double* target;
    V m1 = {}, m2 = {}, m3 = {}, m4 = {}, m5 = {}, m6 = {};
    V y0 = {}, y1 = {}, y2 = {}, y3 = {};
    v4d p0 = {}, p4 = {}, pv = {};

    LUMEO_INLINE void group(const V& tau, long i) {
      V v;
      std::memcpy(&v, y + i, sizeof v);
      v -= shift;
      const V t2 = tau * tau;
      const V t3 = t2 * tau;
      const V t4 = t2 * t2;
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
    LUMEO_INLINE void endGroups(long samples) {
      target[0] += static_cast<double>(samples);
      target[1] += laneSum(m1);
      target[2] += laneSum(m2);
      target[3] += laneSum(m3);
      target[4] += laneSum(m4);
      target[5] += laneSum(m5);
      target[6] += laneSum(m6);
      target[kValueMoments + 0] += laneSum(y0);
      target[kValueMoments + 1] += laneSum(y1);
      target[kValueMoments + 2] += laneSum(y2);
      target[kValueMoments + 3] += laneSum(y3);
    }
    LUMEO_INLINE void one(double tau, long i) {
      v4d p;
      powers(tau, p);
      p0 += p;
      p4 += p * (p[2] * p[2]);
      pv += p * (y[i] - shift);
    }
    LUMEO_INLINE void endRest() {
      addTo(target, p0);
      addTo(target + 4, p4);
      addTo(target + kValueMoments, pv);
    }
  };
  return walkRuns(
      x, count, n,
      [&](long k) {
        return Run{y, shift, local + k * kGatherWidth};
      },
      [&](long i) {
        long k;
        double tau;
        if (!intervalAt(x[i], n, static_cast<double>(n), k, tau)) return false;
        v4d p;
        powers(tau, p);
        double* target = local + k * kGatherWidth;
        addTo(target, p);
        addTo(target + 4, p * (p[2] * p[2]));
        addTo(target + kValueMoments, p * (y[i] - shift));
        return true;
      });
}

// On [k, k + 1) the curve is a cubic in tau, so a residual costs three steps
// of Horner's rule.
LUMEO_INLINE void residualKernel(const double* x, const double* y, long count, long n, const double* cubic,
                                 double* local) {
  using V = v2d;
  struct Run {
    const double* y;
    const double* c;
    double* target;
    V c0 = {c[0], c[0]}, c1 = {c[1], c[1]}, c2 = {c[2], c[2]}, c3 = {c[3], c[3]};
    V r0 = {}, r1 = {}, r2 = {}, r3 = {};
    v4d sums = {};

    LUMEO_INLINE void group(const V& tau, long i) {
      V v;
      std::memcpy(&v, y + i, sizeof v);
      const V curve = ((c3 * tau + c2) * tau + c1) * tau + c0;
      V r = v - curve;
      makeAbsolute(r);
      const V t2 = tau * tau;
      r0 += r;
      r1 += r * tau;
      r2 += r * t2;
      r3 += r * (t2 * tau);
    }
    LUMEO_INLINE void endGroups(long) {
      target[0] += laneSum(r0);
      target[1] += laneSum(r1);
      target[2] += laneSum(r2);
      target[3] += laneSum(r3);
    }
    LUMEO_INLINE void one(double tau, long i) {
      const double curve = ((c[3] * tau + c[2]) * tau + c[1]) * tau + c[0];
      v4d p;
      powers(tau, p);
      sums += p * std::fabs(y[i] - curve);
    }
    LUMEO_INLINE void endRest() { addTo(target, sums); }
  };
  walkRuns(
      x, count, n,
      [&](long k) {
        return Run{y, cubic + k * 4, local + k * kResidualWidth};
      },
      [&](long i) {
        long k;
        double tau;
        intervalAt(x[i], n, static_cast<double>(n), k, tau);
        const double* c = cubic + k * 4;
        const double curve = ((c[3] * tau + c[2]) * tau + c[1]) * tau + c[0];
        v4d p;
        powers(tau, p);
        addTo(local + k * kResidualWidth, p * std::fabs(y[i] - curve));
        return true;
      });
}

}  // namespace
}  // namespace lumeo::design
