// The curve fit under every chart: a least-squares fit of periodic uniform
// cubic B-splines to scattered mood samples, smoothed by truncating the
// singular value decomposition of the design matrix at a fifth of its largest
// singular value, and the spread band around it. Positions x lie on a scale of
// 0 to 10; n is 14 for open time lines and 10 for cycles that wrap around.
//
// The fit uses the process-wide solver and so holds its lock while it runs;
// a second thread waits.
#pragma once

#include <array>
#include <vector>

namespace lumeo {

// 6 times the uniform cubic B-spline on the knots 0..4, repeated with period
// n: 0 at 0 and 4, 1 at 1 and 3, 4 at 2. The basis function of index j is
// splineBump(n, x - j); the n copies sum to 6 everywhere.
double splineBump(long n, double v);

// Fits y[0..m-1] at x[0..m-1] with n basis functions into coefficients[0..n-1]
// and returns the number of singular values kept (the effective rank, which
// the charts use to decide whether there is enough data). With m < 1, n < 1,
// or a sample that is not a finite number, the coefficients are all 0 and the
// count is 0.
long splineFit(long m, const double* x, const double* y, long n, double* coefficients);

// Removes the mean of y (written to `mean`), then fits as splineFit.
long splineFitCentred(long m, const double* x, const double* y, long n, double* coefficients, double& mean);

// The fit at x plus offset (the mean for a centred fit, 0 for a residual fit).
double splineEval(long n, const double* coefficients, double x, double offset);

// Curves are drawn from 100 points; x advances by 10/99 by repeated addition,
// so the last point lies at 10 up to rounding.
constexpr int kSplineGridPoints = 100;
constexpr double kSplineGridStep = 0.10101010101010101;

// Half-widths below 0.02 (a fifth of one mood level on the normalised scale)
// give way to a soft floor that joins at 0.02 with value and slope, gives
// 0.01 at 0 and stays positive, so the band never closes or inverts.
double splineBandHalfWidth(double raw);

// A curve with its spread band, sampled on the 100-point grid.
struct SplineBand {
  long count = 0;                          // singular values kept by the curve's fit
  double mean = 0.0;                       // mean of the samples, the curve's offset
  std::vector<double> coefficients;        // the centred fit
  std::vector<double> spreadCoefficients;  // the fit of the absolute residuals
  std::array<double, kSplineGridPoints> x{};
  std::array<double, kSplineGridPoints> curve{};
  std::array<double, kSplineGridPoints> halfWidth{};
};

// The curve and band in the documented order: centred fit, absolute
// residuals, their (uncentred) fit, then the grid. Both fits share one design
// matrix, so its decomposition is made once.
SplineBand splineBand(long m, const double* x, const double* y, long n);

}  // namespace lumeo
