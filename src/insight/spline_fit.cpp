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
#include "insight/design_sums.h"
#include "insight/sparse_matrix.h"
#include "insight/svd_lanczos.h"

namespace lumeo {

namespace {

// Singular values at or below this fraction of the largest are dropped: the
// truncation is the fit's only smoothing.
constexpr double kTruncation = 0.2;
constexpr double kBandFloor = 0.02;

bool usesGram(long m, long n) {
  return n >= 4 && static_cast<double>(n) < 1.2 * static_cast<double>(m);
}

// coefficients = V · Σ⁺ · Uᵀ · y, written with Uᵀy = Σ⁻¹ · Vᵀ · (Aᵀy).
long coefficientsFromGram(const SVDRec& rec, const double* aty, long n, double* coefficients) {
  std::fill(coefficients, coefficients + n, 0.0);
  if (rec.d < 1) return 0;
  const double threshold = rec.singularValues[0] * kTruncation;
  // Discarded components contribute 0, so each kept one is added as it is
  // found.
  long kept = 0;
  for (long j = 0; j < rec.d; ++j) {
    const double sigma = rec.singularValues[static_cast<size_t>(j)];
    if (sigma > threshold) {
      const double* v = (*rec.rightVectors)[j];
      double projection = 0.0;
      for (long k = 0; k < n; ++k) projection += v[k] * aty[k];
      const double w = projection / sigma / sigma;
      for (long k = 0; k < n; ++k) coefficients[k] += v[k] * w;
      ++kept;
    }
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

double meanInArrayOrder(long m, const double* y) {
  double sum = 0.0;
  for (long i = 0; i < m; ++i) sum += y[i];
  return sum / static_cast<double>(m);
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
  // The mean is the sum of y in array order over m, as the centred fit
  // defines it; the pass then weighs y - mean itself, so Aᵀ(y - mean) needs
  // no correction afterwards.
  fit.mean = meanInArrayOrder(m, y);
  DesignSums sums = sumDesign(m, x, y, n, fit.mean);
  if (!sums.finite) {
    fit.mean = 0.0;
    return fit;
  }
  fit.rec = svdLanczosGram(m, n, sums.gram.data(), 0);
  if (!fit.rec) return fit;
  fit.count = coefficientsFromGram(*fit.rec, sums.shiftedB.data(), n, coefficients);
  return fit;
}

// The grid's x values and, for each, the four basis indices and values
// that are not zero there (as splineBasisAt gives them, index k - a for
// weight a, wrapped).
struct GridBasis {
  std::array<double, kSplineGridPoints> x{};
  std::array<std::array<long, 4>, kSplineGridPoints> index{};
  std::array<std::array<double, 4>, kSplineGridPoints> weight{};

  explicit GridBasis(long n) {
    double gridX = 0.0;
    for (size_t i = 0; i < x.size(); ++i) {
      x[i] = gridX;
      long k = 0;
      double w[4] = {};
      splineBasisAt(gridX, n, k, w);
      for (int a = 0; a < 4; ++a) {
        index[i][static_cast<size_t>(a)] = k - a < 0 ? k - a + n : k - a;
        weight[i][static_cast<size_t>(a)] = w[a];
      }
      gridX += kSplineGridStep;
    }
  }
};

// The tables of the two basis counts the charts use; null for any other.
const GridBasis* gridBasisFor(long n) {
  static const GridBasis open(14);
  static const GridBasis cycle(10);
  if (n == 14) return &open;
  if (n == 10) return &cycle;
  return nullptr;
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
  mean = meanInArrayOrder(m, y);
  std::vector<double> centred(y, y + m);
  for (double& v : centred) v -= mean;
  return splineFit(m, x, centred.data(), n, coefficients);
}

double splineEval(long n, const double* coefficients, double x, double offset) {
  // Only four basis functions are non-zero at any x; summing just those
  // spares the other n - 4 their fmod.
  long k;
  double w[4];
  if (n >= 4 && splineBasisAt(x, n, k, w)) {
    double sum = 0.0;
    for (int a = 3; a >= 0; --a) sum += coefficients[k - a < 0 ? k - a + n : k - a] * w[a];
    return offset + sum;
  }
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
      // |y - curve| at every sample, gathered straight into Aᵀr; the second
      // fit has the same design matrix and so reuses the decomposition.
      const std::vector<double> atr = sumResiduals(m, x, y, n, band.coefficients.data(), fit.mean);
      coefficientsFromGram(*fit.rec, atr.data(), n, band.spreadCoefficients.data());
    }
  } else if (m >= 1 && n >= 1) {
    band.count = splineFitCentred(m, x, y, n, band.coefficients.data(), band.mean);
    std::vector<double> residuals(static_cast<size_t>(m));
    for (long i = 0; i < m; ++i)
      residuals[static_cast<size_t>(i)] =
          std::fabs(y[i] - splineEval(n, band.coefficients.data(), x[i], band.mean));
    splineFit(m, x, residuals.data(), n, band.spreadCoefficients.data());
  }

  // Both curves share the grid, and the grid is the same for every fit of
  // the charts' basis counts, so its basis values are worked out once; the
  // sums are those of splineEval, term for term.
  const GridBasis* grid = gridBasisFor(n);
  const double* c = band.coefficients.data();
  const double* c2 = band.spreadCoefficients.data();
  for (int i = 0; i < kSplineGridPoints; ++i) {
    const auto at = static_cast<size_t>(i);
    if (grid) {
      band.x[at] = grid->x[at];
      double curve = 0.0;
      double width = 0.0;
      for (int a = 3; a >= 0; --a) {
        const long j = grid->index[at][a];
        const double w = grid->weight[at][a];
        curve += c[j] * w;
        width += c2[j] * w;
      }
      band.curve[at] = band.mean + curve;
      band.halfWidth[at] = splineBandHalfWidth(0.0 + width);
    } else {
      const double gridX = at == 0 ? 0.0 : band.x[at - 1] + kSplineGridStep;
      band.x[at] = gridX;
      band.curve[at] = splineEval(n, c, gridX, band.mean);
      band.halfWidth[at] = splineBandHalfWidth(splineEval(n, c2, gridX, 0.0));
    }
  }
  return band;
}

}  // namespace lumeo
