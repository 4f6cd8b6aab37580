// The entries of the Lanczos solver: parameter checks, transposition of
// wide matrices, the lock around the process-wide state, and the Ritz
// vectors built from a finished run. The matrix is touched only through
// multiplyNormal (AᵀA·x) and multiplyA (A·x), so no dense copy of it ever
// exists here.
#include "insight/svd_lanczos.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <new>

#include "insight/lanczos_run.h"
#include "insight/lanczos_workspace.h"
#include "insight/tridiagonal_ql.h"

namespace lumeo {

using namespace lanczos;

namespace {

std::mutex solverMutex;

// The Ritz vectors: combinations of the stored Lanczos vectors with the
// eigenvectors of the final tridiagonal matrix, for the values whose bounds
// are within `accuracy`. Rows of rightVectors are filled from the bottom up in
// ascending order of value and then rotated, so the largest comes first.
long ritzVectors(const NormalOperator& op, SVDRec& rec, double accuracy, const lanczos::LanczosRun& run,
                 const double* ritz, const double* bnd, long steps, long converged, bool wantLeft) {
  const long n = op.cols;
  const long js = steps + 1;
  std::vector<double> solved;
  const double* s = run.eigenvectors();
  if (run.eigenvectorOrder() != js) {
    if (!allocate(solved, js * js, "ritzVectors: s")) return 0;
    for (long i = 0; i < js; ++i) solved[static_cast<size_t>(i * js + i)] = 1.0;
    long qlError = ierr;
    tridiagonalQL(js, run.diag(), run.offdiag(), solved.data(), qlError);
    ierr = qlError;
    if (ierr != 0) return 0;
    s = solved.data();
  }
  double* work = run.work();

  DMat& right = *rec.rightVectors;
  const long d = rec.d;
  long x = 0;
  long kept = 0;
  for (long k = 0; k < js; ++k) {
    if (bnd[k] <= accuracy * std::fabs(ritz[k]) && k > js - converged - 1) {
      if (--x < 0) x = d - 1;
      double* row = right[x];
      std::fill(row, row + n, 0.0);
      for (long i = 0; i < js; ++i) axpy(n, s[k * js + i], storedQ(i), row);
      ++kept;
    }
  }
  if (kept == 0) return 0;

  std::vector<double>& rotated = sharedWorkspace().rotated;
  if (!allocate(rotated, d * n, "ritzVectors: xv2")) return 0;
  for (long i = 0; i < d; ++i) copy(n, right[(x + i) % d], rotated.data() + i * n);
  for (long i = 0; i < d; ++i) copy(n, rotated.data() + i * n, right[i]);

  const long reported = std::min(d, kept);
  for (long i = 0; i < reported; ++i) {
    op.multiplyNormal(right[i], work);
    const double t = dot(n, right[i], work);
    const double sigma = std::sqrt(std::max(t, 0.0));
    rec.singularValues[static_cast<size_t>(i)] = sigma;
    if (wantLeft) {
      double* left = (*rec.leftVectors)[i];
      op.multiplyA(right[i], left);
      if (sigma > 0.0) scale(op.rows, 1.0 / sigma, left);
    }
  }
  return reported;
}

// Settles the defaults of dimensions and iterations and checks the
// parameters in a fixed order; returns the text of the first fault, or null.
const char* checkParameters(long rows, long cols, long& dimensions, long& iterations, const double end[2]) {
  const long k = std::min(rows, cols);
  if (dimensions < 1 || dimensions > k) dimensions = k;
  if (iterations < 1 || iterations > k) iterations = k;
  if (iterations < dimensions) iterations = dimensions;

  if (end[0] > end[1]) return "ENDL MUST BE LESS THAN ENDR";
  if (dimensions > iterations) return "REQUESTED DIMENSIONS CANNOT EXCEED NUM ITERATIONS";
  if (cols <= 0 || rows <= 0) return "ONE OF YOUR DIMENSIONS IS LESS THAN OR EQUAL TO ZERO";
  if (iterations <= 0 || iterations > cols || iterations > rows)
    return "NUM ITERATIONS (NUMBER OF LANCZOS STEPS) IS INVALID";
  if (dimensions <= 0) return "REQUESTED DIMENSIONS (NUMBER OF EIGENPAIRS DESIRED) IS INVALID";
  return nullptr;
  // Kept with the others for completeness; the work space here grows with
  // the problem, so these limits cannot be hit:
  //   "6*N+4*ITERATIONS+1 + ITERATIONS*ITERATIONS CANNOT EXCEED NW"
  //   "6*N+4*ITERATIONS+1 CANNOT EXCEED NW"
}

// Largest column count for which the solver trades the sparse products for
// one Gram matrix; beyond it the n x n matrix would outgrow the savings.
constexpr long kMaxGramColumns = 32;

// Runs the decomposition of the worked matrix behind `op`, with the lock held
// and the parameters checked.
std::unique_ptr<SVDRec> runLanczos(NormalOperator& op, long dimensions, long iterations, const double end[2],
                                   double accuracy, bool wantLeft) {
  const long n = op.cols;
  ierr = 0;
  measureMachine(n);

  Workspace& ws = sharedWorkspace();
  bool ok = ws.allocate(n, iterations) && resetStore(iterations);
  if (ok && op.matrix) ok = allocate(normalProductTemp, op.rows, "lanczos: normalProductTemp");
  std::vector<double> gram;
  if (ok && op.matrix && !op.gram && n <= kMaxGramColumns && n * n <= op.matrix->vals) {
    try {
      gram = gramOf(*op.matrix, normalProductTemp);
      op.gram = gram.data();
    } catch (const std::exception&) {
      // Not fatal: the products then go through the sparse matrix.
    }
  }
  if (!ok) {
    fprintf(stderr, "svdLanczos: fatal error, aborting\n");
    releaseState();
    return nullptr;
  }
  if (op.gram) {
    op.gramStride = (n + 1) / 2 * 2;
    try {
      ws.paddedGram.assign(static_cast<size_t>(n * op.gramStride), 0.0);
      for (long i = 0; i < n; ++i) copy(n, op.gram + i * n, ws.paddedGram.data() + i * op.gramStride);
      op.paddedGram = ws.paddedGram.data();
    } catch (const std::exception&) {
      // Not fatal: the products then use the plain Gram matrix.
    }
  }

  LanczosRun lanczos(op, ws, iterations, dimensions, end);
  long converged = 0;
  const long steps = lanczos.run(converged);

  accuracy = std::max(std::fabs(accuracy), epsThreeQuarters);

  auto rec = svdNewSVDRec();
  if (rec) {
    rec->d = dimensions;
    if (wantLeft) rec->leftVectors = svdNewDMat(dimensions, op.rows);
    rec->rightVectors = svdNewDMat(dimensions, n);
    if (!allocate(rec->singularValues, dimensions, "lanczos: R->s")) rec.reset();
  }
  if (!rec || !rec->rightVectors || (wantLeft && !rec->leftVectors)) {
    fprintf(stderr, "svdLanczos: allocation of R failed\n");
    releaseState();
    return nullptr;
  }

  const long reported =
      ritzVectors(op, *rec, accuracy, lanczos, ws.ritz.data(), ws.bnd.data(), steps, converged, wantLeft);
  rec->d = reported;
  rec->singularValues.resize(static_cast<size_t>(reported));
  rec->rightVectors->truncateRows(reported);
  if (rec->leftVectors) rec->leftVectors->truncateRows(reported);
  op.gram = nullptr;
  op.paddedGram = nullptr;
  releaseState();
  return rec;
}

}  // namespace

std::unique_ptr<SVDRec> svdNewSVDRec() {
  try {
    return std::make_unique<SVDRec>();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    perror("svdNewSVDRec");
    return nullptr;
  }
}

long svdErrorFlag() {
  std::lock_guard<std::mutex> lock(solverMutex);
  return ierr;
}

std::unique_ptr<SVDRec> svdLanczos(const SMat* A, long dimensions, long iterations, const double end[2],
                                   double accuracy) {
  if (!A) {
    fprintf(stderr, "svdLanczos called with NULL array\n");
    return nullptr;
  }
  std::lock_guard<std::mutex> lock(solverMutex);
  if (const char* fault = checkParameters(A->rows, A->cols, dimensions, iterations, end)) {
    fprintf(stderr, "svdLanczos parameter error: %s\n", fault);
    return nullptr;
  }

  // A wide matrix is decomposed through its transpose, whose AᵀA is the
  // smaller of the two normal matrices.
  const bool transposed = static_cast<double>(A->cols) >= 1.2 * static_cast<double>(A->rows);
  std::unique_ptr<SMat> transpose;
  const SMat* worked = A;
  if (transposed) {
    transpose = svdTransposedSMat(*A);
    if (!transpose) {
      fprintf(stderr, "svdLanczos: fatal error, aborting\n");
      return nullptr;
    }
    worked = transpose.get();
  }
  NormalOperator op;
  op.rows = worked->rows;
  op.cols = worked->cols;
  op.matrix = worked;
  auto rec = runLanczos(op, dimensions, iterations, end, accuracy, true);
  if (rec && transposed) std::swap(rec->leftVectors, rec->rightVectors);
  return rec;
}

std::unique_ptr<SVDRec> svdLanczosAll(const SMat* A, long dimensions) {
  if (!A) {
    fprintf(stderr, "svdLanczosAll called with NULL array\n");
    return nullptr;
  }
  const double end[2] = {-1.0e-30, 1.0e-30};
  return svdLanczos(A, dimensions, 0, end, 1.0e-6);
}

std::unique_ptr<SVDRec> svdLanczosGram(long rows, long cols, const double* gram, long dimensions) {
  if (!gram) {
    fprintf(stderr, "svdLanczosGram called with NULL array\n");
    return nullptr;
  }
  std::lock_guard<std::mutex> lock(solverMutex);
  const double end[2] = {-1.0e-30, 1.0e-30};
  long iterations = 0;
  if (const char* fault = checkParameters(rows, cols, dimensions, iterations, end)) {
    fprintf(stderr, "svdLanczos parameter error: %s\n", fault);
    return nullptr;
  }
  if (static_cast<double>(cols) >= 1.2 * static_cast<double>(rows)) {
    fprintf(stderr,
            "svdLanczosGram: a wide matrix is decomposed through its transpose; pass the sparse matrix\n");
    return nullptr;
  }
  NormalOperator op;
  op.rows = rows;
  op.cols = cols;
  op.gram = gram;
  return runLanczos(op, dimensions, iterations, end, 1.0e-6, false);
}

}  // namespace lumeo
