// What the curve fit needs to know about its design matrix A (one row per
// sample, A[i][j] = splineBump(n, x[i] - j)), gathered in streaming passes
// over the samples without ever forming A: the n x n matrix AᵀA, Aᵀy, and,
// for the band, Aᵀ|y - curve|. A sample touches only four basis functions, so
// each pass costs a few dozen operations a sample.
#pragma once

#include <vector>

namespace lumeo {

struct DesignSums {
  std::vector<double> gram;        // AᵀA, n x n by rows
  std::vector<double> shiftedB;    // Aᵀ(y - shift)
  std::vector<double> columnSums;  // Aᵀ1
  double sumShiftedY = 0.0;        // Σ(y - shift)
  bool finite = true;              // false when a sample is NaN or infinite
};

// The four basis functions that are non-zero at x: k is the index of the one
// whose bump starts just below x, w[a] the value of basis k - a (modulo n).
// Needs n >= 4; false when x is NaN or infinite.
bool splineBasisAt(double x, long n, long& k, double w[4]);

// One pass over m samples with n >= 4 basis functions. `shift` is subtracted
// from every y before it is weighted, which keeps a later centring free of
// cancellation.
DesignSums sumDesign(long m, const double* x, const double* y, long n, double shift);

// Aᵀr with r[i] = |y[i] - (offset + Σ_j coefficients[j] · A[i][j])|, the
// absolute residuals of a fit, in one pass. x must have passed sumDesign.
std::vector<double> sumResiduals(long m, const double* x, const double* y, long n, const double* coefficients,
                                 double offset);

}  // namespace lumeo
