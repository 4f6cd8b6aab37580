// Truncated singular value decomposition of a sparse matrix by single-vector
// Lanczos with selective reorthogonalisation on AᵀA. The curve fit asks it for
// every triplet of a design matrix of at most 14 columns; which triplets come
// back, and in which order, is decided by the convergence tests of the method,
// and the fit's smoothness depends on exactly that.
//
// Thread contract: the solver keeps process-wide state (machine constants,
// the Lanczos vector store, the error flag) and is not re-entrant. Every entry
// takes one process-wide lock, so a second caller on another thread waits for
// the first to finish instead of corrupting the state.
#pragma once

#include <memory>
#include <vector>

#include "insight/dense_matrix.h"
#include "insight/sparse_matrix.h"

namespace lumeo {

struct SVDRec {
  long d = 0;                          // number of triplets
  std::unique_ptr<DMat> leftVectors;   // d rows of A.rows entries
  std::vector<double> singularValues;  // d values, descending
  std::unique_ptr<DMat> rightVectors;  // d rows of A.cols entries
};

std::unique_ptr<SVDRec> svdNewSVDRec();
inline void svdReleaseSVDRec(std::unique_ptr<SVDRec> rec) {
  rec.reset();
}

// The error flag of the most recent decomposition: 0, 8192 when the matrix
// maps every start vector to zero, or the index of an eigenvalue that the QL
// iteration could not resolve.
long svdErrorFlag();

// The short entry: all the triplets that converge, up to `dimensions`
// (0 meaning as many as the matrix has). A null A prints a message and gives
// null.
std::unique_ptr<SVDRec> svdLanczosAll(const SMat* A, long dimensions);

// The full entry. `iterations` bounds the Lanczos steps (0: as many as the
// smaller dimension), Ritz values inside (end[0], end[1]) stop the run once
// they converge, and a triplet is reported when its error bound is at most
// `accuracy` times its value. Faulty parameters print
// "svdLanczos parameter error: ..." on standard error and give null. A matrix
// at least 1.2 times wider than tall is decomposed through its transpose.
std::unique_ptr<SVDRec> svdLanczos(const SMat* A, long dimensions, long iterations, const double end[2],
                                   double accuracy);

// The same decomposition as svdLanczosAll(A, dimensions) for a matrix known
// only by its row count and its Gram matrix G = AᵀA (cols x cols, by rows;
// symmetric, as AᵀA is: the products use its rows as its columns).
// It runs the identical Lanczos process, since that process only ever sees A
// through products with AᵀA, and reports singular values and right vectors;
// leftVectors is null (uᵢ = A·vᵢ / σᵢ is left to the caller, who has A).
// The matrix must not be wide (cols < 1.2 · rows): a wide one is decomposed
// through its transpose, whose Gram matrix is a different one; null otherwise.
std::unique_ptr<SVDRec> svdLanczosGram(long rows, long cols, const double* gram, long dimensions);

}  // namespace lumeo
