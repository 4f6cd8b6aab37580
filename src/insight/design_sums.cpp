// The streaming passes of the curve fit. Journals are read in time order, so
// consecutive samples usually lie on the same unit interval [k, k + 1) (on
// the open time line for long runs, on a cycle for a day or so at a time).
// On one interval the four non-zero basis functions are fixed cubics, so a
// pass only sums powers of the sample's offset, a group of samples at a time
// in vector registers (design_kernels.h), and turns those moments into basis
// products once per interval at the end. A group that leaves the interval,
// and anything that is not a plain position inside the period, takes the
// scalar path, which adds straight into the per-interval sums. Partial sums are closed every block of
// samples, so the rounding of a million-sample sum stays near that of a few
// thousand.
#include "insight/design_sums.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "insight/design_kernels.h"

namespace lumeo {

namespace {

using namespace design;

constexpr long kBlock = 4096;

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

// The product of the cubics of bases k - a and k - b as a polynomial of
// degree 6 in tau, so that Σ w_a·w_b = Σ_r kProductOfCubics[a][b][r] · Σtau^r.
// Products of exact binary fractions of a few units, so exact themselves.
struct CubicProducts {
  double value[4][4][7] = {};
  constexpr CubicProducts() {
    for (int a = 0; a < 4; ++a)
      for (int b = 0; b < 4; ++b)
        for (int p = 0; p < 4; ++p)
          for (int q = 0; q < 4; ++q) value[a][b][p + q] += kCubic[a][p] * kCubic[b][q];
  }
};
constexpr CubicProducts kCubicProducts;
constexpr const auto& kProductOfCubics = kCubicProducts.value;

}  // namespace

bool design::gather(const double* x, const double* y, long count, long n, double shift, double* local) {
  return gatherKernel(x, y, count, n, shift, local);
}

void design::residual(const double* x, const double* y, long count, long n, const double* cubic,
                      double* local) {
  residualKernel(x, y, count, n, cubic, local);
}

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
    if (!design::gather(x + start, y + start, count, n, shift, local)) {
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
      const long ja = wrap(k - a, n);
      double* row = sums.gram.data() + ja * n;
      for (int b = a; b < 4; ++b) {
        const double* product = kProductOfCubics[a][b];
        double s = 0.0;
        for (int r = 0; r < 7; ++r) s += product[r] * moments[r];
        row[wrap(k - b, n)] += s;
        if (b != a) sums.gram[static_cast<size_t>(wrap(k - b, n) * n + ja)] += s;
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
    design::residual(x + start, y + start, count, n, cubic, local);
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
