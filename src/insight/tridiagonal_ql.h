// Eigenvalues of the small symmetric tridiagonal matrices that the Lanczos
// process builds, by the implicit QL method. imtqlb is the cheap form used at
// every restart (values and first eigenvector components only); tridiagonalQL
// keeps whole eigenvectors for the final Ritz vectors.
#pragma once

namespace lumeo {

// sqrt(a*a + b*b) without overflow or destructive underflow.
double hypotenuse(double a, double b);

// |a| carrying the sign of b (a stays when both are non-negative or both are
// negative, and is negated otherwise).
double signTransfer(double a, double b);

// Symmetric tridiagonal matrix of order n: d[0..n-1] the diagonal,
// e[1..n-1] the subdiagonal (e[i] couples i-1 and i; e[0] is ignored).
// On return d holds the eigenvalues in ascending order and bnd[i] the first
// component of the unit eigenvector of d[i]; e is destroyed. ierr is 0, or the
// index of the eigenvalue that did not converge in 30 iterations.
void imtqlb(long n, double* d, double* e, double* bnd, long& ierr);

// Same matrix layout. z holds n vectors of n entries, vector k at z[k*n];
// on entry they are normally the identity, on return z[k*n..] is the
// eigenvector of d[k] expressed in them, with d sorted ascending. A matrix of
// order 1 returns at once and leaves ierr untouched.
void tridiagonalQL(long n, double* d, double* e, double* z, long& ierr);

}  // namespace lumeo
