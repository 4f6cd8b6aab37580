// The B-spline fit and its band. A sample touches only four of the n basis
// functions, so the fit never needs the m x n design matrix A: one pass over
// the samples gathers AᵀA (n x n) and Aᵀy, the solver decomposes AᵀA exactly
// as it would decompose A (it only ever sees A through AᵀA), and since
// uᵢ·y = vᵢ·(Aᵀy) / σᵢ the left vectors are never formed. Only a wide design
// (fewer samples than about n / 1.2), which the solver decomposes through its
// transpose, goes the long way through the sparse matrix.
#include "insight/spline_fit.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "insight/dense_matrix.h"
#include "insight/sparse_matrix.h"
#include "insight/svd_lanczos.h"

namespace lumeo {

namespace {

// Singular values at or below this fraction of the largest are dropped: the
// truncation is the fit's only smoothing.
constexpr double kTruncation = 0.2;
constexpr double kBandFloor = 0.02;
// Partial sums are closed every this many samples, which keeps the rounding
// of sums over a million samples near that of a thousand.
constexpr long kBlock = 4096;

bool usesGram(long m, long n) {
  return n >= 4 && static_cast<double>(n) < 1.2 * static_cast<double>(m);
}

// Position of x within one period, in [0, n). Returns false for NaN and
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
// (modulo n) with the values of the bump at distances t, t+1, t+2, t+3 from
// their starts, where t is the fractional part of x's position.
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

inline long wrap(long j, long n) { return j < 0 ? j + n : j; }

// What one pass over the samples learns about the design matrix.
struct DesignSums {
  std::vector<double> gram;      // AᵀA, n x n
  std::vector<double> shiftedB;  // Aᵀ(y - shift)
  std::vector<double> columnSums;  // Aᵀ1
  double sumY = 0.0;
  bool finite = true;
};

// Per-start-index sums: the 10 products of the four weights (upper triangle
// of the 4 x 4 block), the 4 weighted values and the 4 weights.
constexpr int kLocalWidth = 18;

DesignSums sumDesign(long m, const double* x, const double* y, long n, double shift) {
  DesignSums sums;
  sums.gram.assign(static_cast<size_t>(n * n), 0.0);
  sums.shiftedB.assign(static_cast<size_t>(n), 0.0);
  sums.columnSums.assign(static_cast<size_t>(n), 0.0);
  const double period = static_cast<double>(n);
  std::vector<double> local(static_cast<size_t>(n * kLocalWidth));
  std::vector<double> total(static_cast<size_t>(n * kLocalWidth), 0.0);
  double sumY = 0.0;
  for (long start = 0; start < m; start += kBlock) {
    const long stop = std::min(m, start + kBlock);
    std::fill(local.begin(), local.end(), 0.0);
    double blockSumY = 0.0;
    for (long i = start; i < stop; ++i) {
      long k;
      double w[4];
      if (!basisAt(x[i], n, period, k, w)) {
        sums.finite = false;
        return sums;
      }
      double* acc = local.data() + k * kLocalWidth;
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
      const double v = y[i] - shift;
      acc[10] += v * w[0];
      acc[11] += v * w[1];
      acc[12] += v * w[2];
      acc[13] += v * w[3];
      acc[14] += w[0];
      acc[15] += w[1];
      acc[16] += w[2];
      acc[17] += w[3];
      blockSumY += y[i];
    }
    for (size_t i = 0; i < total.size(); ++i) total[i] += local[i];
    sumY += blockSumY;
  }
  sums.sumY = sumY;

  // Fold the per-start blocks into the n x n matrix.
  static constexpr int kPair[4][4] = {{0, 1, 2, 3}, {1, 4, 5, 6}, {2, 5, 7, 8}, {3, 6, 8, 9}};
  for (long k = 0; k < n; ++k) {
    const double* acc = total.data() + k * kLocalWidth;
    for (int a = 0; a < 4; ++a) {
      const long ja = wrap(k - a, n);
      for (int b = 0; b < 4; ++b) sums.gram[static_cast<size_t>(ja * n + wrap(k - b, n))] += acc[kPair[a][b]];
      sums.shiftedB[static_cast<size_t>(ja)] += acc[10 + a];
      sums.columnSums[static_cast<size_t>(ja)] += acc[14 + a];
    }
  }
  if (!std::isfinite(sumY)) sums.finite = false;
  for (double v : sums.shiftedB)
    if (!std::isfinite(v)) sums.finite = false;
  return sums;
}

// coefficients = V · Σ⁺ · Uᵀ · y, written with Uᵀy = Σ⁻¹ · Vᵀ · (Aᵀy).
long coefficientsFromGram(const SVDRec& rec, const double* aty, long n, double* coefficients) {
  std::fill(coefficients, coefficients + n, 0.0);
  if (rec.d < 1) return 0;
  const double threshold = rec.singularValues[0] * kTruncation;
  std::vector<double> w(static_cast<size_t>(rec.d), 0.0);
  long kept = 0;
  for (long j = 0; j < rec.d; ++j) {
    const double sigma = rec.singularValues[static_cast<size_t>(j)];
    if (sigma > threshold) {
      const double* v = (*rec.rightVectors)[j];
      double projection = 0.0;
      for (long k = 0; k < n; ++k) projection += v[k] * aty[k];
      w[static_cast<size_t>(j)] = projection / sigma / sigma;
      ++kept;
    }
  }
  for (long j = 0; j < rec.d; ++j) {
    const double* v = (*rec.rightVectors)[j];
    for (long k = 0; k < n; ++k) coefficients[k] += v[k] * w[static_cast<size_t>(j)];
  }
  return kept;
}

// The long way: dense design matrix, sparse copy, full decomposition with
// left vectors.
long fitThroughSparseMatrix(long m, const double* x, const double* y, long n, double* coefficients) {
  std::fill(coefficients, coefficients + n, 0.0);
  std::unique_ptr<SMat> sparse;
  {
    auto dense = svdNewDMat(m, n);
    if (!dense) return 0;
    for (long i = 0; i < m; ++i)
      for (long j = 0; j < n; ++j) (*dense)[i][j] = splineBump(n, x[i] - static_cast<double>(j));
    sparse = svdConvertDtoS(*dense);
  }
  if (!sparse) return 0;
  auto rec = svdLanczosAll(sparse.get(), 0);
  sparse.reset();
  if (!rec || rec->d < 1) return 0;

  const double threshold = rec->singularValues[0] * kTruncation;
  std::vector<double> w(static_cast<size_t>(rec->d), 0.0);
  long kept = 0;
  for (long j = 0; j < rec->d; ++j) {
    const double sigma = rec->singularValues[static_cast<size_t>(j)];
    if (sigma > threshold) {
      const double* u = (*rec->leftVectors)[j];
      double projection = 0.0;
      for (long i = 0; i < m; ++i) projection += u[i] * y[i];
      w[static_cast<size_t>(j)] = projection / sigma;
      ++kept;
    }
  }
  for (long j = 0; j < rec->d; ++j) {
    const double* v = (*rec->rightVectors)[j];
    for (long k = 0; k < n; ++k) coefficients[k] += v[k] * w[static_cast<size_t>(j)];
  }
  return kept;
}

bool allFinite(long m, const double* values) {
  for (long i = 0; i < m; ++i)
    if (!std::isfinite(values[i])) return false;
  return true;
}

// Centred fit through the Gram path; keeps the decomposition for a second
// fit on the same design.
struct CentredGramFit {
  long count = 0;
  double mean = 0.0;
  std::unique_ptr<SVDRec> rec;
};

CentredGramFit centredGramFit(long m, const double* x, const double* y, long n, double* coefficients) {
  CentredGramFit fit;
  std::fill(coefficients, coefficients + n, 0.0);
  // Shifting by the first value keeps Aᵀ(y - mean) free of cancellation, and
  // exact when all values are equal.
  const double shift = y[0];
  DesignSums sums = sumDesign(m, x, y, n, shift);
  fit.mean = sums.sumY / static_cast<double>(m);
  if (!sums.finite) return fit;
  fit.rec = svdLanczosGram(m, n, sums.gram.data(), 0);
  if (!fit.rec) return fit;
  std::vector<double> centredB(static_cast<size_t>(n));
  for (long j = 0; j < n; ++j)
    centredB[static_cast<size_t>(j)] =
        sums.shiftedB[static_cast<size_t>(j)] - (fit.mean - shift) * sums.columnSums[static_cast<size_t>(j)];
  fit.count = coefficientsFromGram(*fit.rec, centredB.data(), n, coefficients);
  return fit;
}

}  // namespace

double splineBump(long n, double v) {
  double r = std::fmod(v, static_cast<double>(n));
  if (r < 0.0) r += static_cast<double>(n);
  if (r > 4.0) return 0.0;
  const double u = r > 2.0 ? 4.0 - r : r;
  if (u < 1.0) return u * u * u;
  return u * (u * (u * -3.0 + 12.0) + -12.0) + 4.0;
}

long splineFit(long m, const double* x, const double* y, long n, double* coefficients) {
  if (n < 1) return 0;
  std::fill(coefficients, coefficients + n, 0.0);
  if (m < 1) return 0;
  if (!usesGram(m, n)) {
    if (!allFinite(m, x) || !allFinite(m, y)) return 0;
    return fitThroughSparseMatrix(m, x, y, n, coefficients);
  }
  DesignSums sums = sumDesign(m, x, y, n, 0.0);
  if (!sums.finite) return 0;
  auto rec = svdLanczosGram(m, n, sums.gram.data(), 0);
  if (!rec) return 0;
  return coefficientsFromGram(*rec, sums.shiftedB.data(), n, coefficients);
}

long splineFitCentred(long m, const double* x, const double* y, long n, double* coefficients, double& mean) {
  mean = 0.0;
  if (n < 1) return 0;
  std::fill(coefficients, coefficients + n, 0.0);
  if (m < 1) return 0;
  if (usesGram(m, n)) {
    CentredGramFit fit = centredGramFit(m, x, y, n, coefficients);
    mean = fit.mean;
    return fit.count;
  }
  double sum = 0.0;
  for (long i = 0; i < m; ++i) sum += y[i];
  mean = sum / static_cast<double>(m);
  std::vector<double> centred(y, y + m);
  for (double& v : centred) v -= mean;
  return splineFit(m, x, centred.data(), n, coefficients);
}

double splineEval(long n, const double* coefficients, double x, double offset) {
  double value = offset;
  for (long j = 0; j < n; ++j) value += splineBump(n, x - static_cast<double>(j)) * coefficients[j];
  return value;
}

double splineBandHalfWidth(double raw) {
  if (raw < kBandFloor) return kBandFloor * kBandFloor / (2.0 * kBandFloor - raw);
  return raw;
}

SplineBand splineBand(long m, const double* x, const double* y, long n) {
  SplineBand band;
  const long size = std::max(n, 0L);
  band.coefficients.assign(static_cast<size_t>(size), 0.0);
  band.spreadCoefficients.assign(static_cast<size_t>(size), 0.0);

  if (m >= 1 && usesGram(m, n)) {
    CentredGramFit fit = centredGramFit(m, x, y, n, band.coefficients.data());
    band.count = fit.count;
    band.mean = fit.mean;
    if (fit.rec) {
      // Residual pass: |y - curve| at every sample, gathered straight into
      // Aᵀr for the second fit, which reuses the decomposition.
      const double* c = band.coefficients.data();
      const double period = static_cast<double>(n);
      std::vector<double> window(static_cast<size_t>(n * 4));
      for (long k = 0; k < n; ++k)
        for (long a = 0; a < 4; ++a) window[static_cast<size_t>(k * 4 + a)] = c[wrap(k - a, n)];
      std::vector<double> local(static_cast<size_t>(n * 4));
      std::vector<double> total(static_cast<size_t>(n * 4), 0.0);
      for (long start = 0; start < m; start += kBlock) {
        const long stop = std::min(m, start + kBlock);
        std::fill(local.begin(), local.end(), 0.0);
        for (long i = start; i < stop; ++i) {
          long k;
          double w[4];
          basisAt(x[i], n, period, k, w);  // every x passed the first pass
          const double* cw = window.data() + k * 4;
          const double curve = fit.mean + (cw[3] * w[3] + cw[2] * w[2] + cw[1] * w[1] + cw[0] * w[0]);
          const double residual = std::fabs(y[i] - curve);
          double* acc = local.data() + k * 4;
          acc[0] += residual * w[0];
          acc[1] += residual * w[1];
          acc[2] += residual * w[2];
          acc[3] += residual * w[3];
        }
        for (size_t i = 0; i < total.size(); ++i) total[i] += local[i];
      }
      std::vector<double> atr(static_cast<size_t>(n), 0.0);
      for (long k = 0; k < n; ++k)
        for (long a = 0; a < 4; ++a) atr[static_cast<size_t>(wrap(k - a, n))] += total[static_cast<size_t>(k * 4 + a)];
      coefficientsFromGram(*fit.rec, atr.data(), n, band.spreadCoefficients.data());
    }
  } else if (m >= 1 && n >= 1) {
    band.count = splineFitCentred(m, x, y, n, band.coefficients.data(), band.mean);
    std::vector<double> residuals(static_cast<size_t>(m));
    for (long i = 0; i < m; ++i)
      residuals[static_cast<size_t>(i)] = std::fabs(y[i] - splineEval(n, band.coefficients.data(), x[i], band.mean));
    splineFit(m, x, residuals.data(), n, band.spreadCoefficients.data());
  }

  double gridX = 0.0;
  for (int i = 0; i < kSplineGridPoints; ++i) {
    band.x[static_cast<size_t>(i)] = gridX;
    band.curve[static_cast<size_t>(i)] = splineEval(n, band.coefficients.data(), gridX, band.mean);
    band.halfWidth[static_cast<size_t>(i)] =
        splineBandHalfWidth(splineEval(n, band.spreadCoefficients.data(), gridX, 0.0));
    gridX += kSplineGridStep;
  }
  return band;
}

}  // namespace lumeo
