// Inside the Lanczos solver: its process-wide state (machine constants,
// error flag, vector store, scratch), the small vector routines, the operator
// through which it sees the matrix, and the work vectors of one run. Used only
// by the solver's own files, always with the solver's lock held.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "insight/sparse_matrix.h"

namespace lumeo::lanczos {

// Codes of the Lanczos vector store.
constexpr int kStoreQ = 1;
constexpr int kRetrieveQ = 2;
constexpr int kStoreP = 3;
constexpr int kRetrieveP = 4;
// Only the first two p vectors are ever needed (for the early reorthogonalisation
// against the first, possibly ill-conditioned, steps).
constexpr long kMaxLL = 2;

constexpr long kStartVectorFailed = 8192;
constexpr long kStartSeed = 918273;

// Process-wide state, guarded by the solver's lock for the length of a run.
extern double eps;
extern double epsN;
extern double rootEps;
extern double epsThreeQuarters;
extern long ierr;
extern std::vector<std::vector<double>> lanczosStore;
extern std::vector<char> lanczosStored;  // which slots hold a vector in this run
extern std::vector<double> normalProductTemp;
extern long productCount;  // products with A; kept for debugging sessions

// A bell, "ERROR: " and the message on standard error; a fatal one exits
// with status 1.
void reportError(bool fatal, const std::string& message);

// Sizes and zeroes `array`; false after perror(tag) when memory runs out.
bool allocate(std::vector<double>& array, long count, const char* tag);

// Sets eps (probed once per process) and the constants derived from it for
// vectors of n entries.
void measureMachine(long n);

// The fixed linear congruence behind the start vectors. It runs on a 64-bit
// seed with wrap-around, so after the first draw the values are large and of
// either sign; only the direction of the vector matters, and it is the same on
// every run and every machine.
double randomValue(int64_t& seed);

// Four partial sums: the vectors are short and every Lanczos step waits for
// several dot products in turn, so the length of the chain of additions is
// what counts.
inline double dot(long n, const double* x, const double* y) {
  double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
  long i = 0;
  for (; i + 4 <= n; i += 4) {
    s0 += x[i] * y[i];
    s1 += x[i + 1] * y[i + 1];
    s2 += x[i + 2] * y[i + 2];
    s3 += x[i + 3] * y[i + 3];
  }
  for (; i < n; ++i) s0 += x[i] * y[i];
  return (s0 + s2) + (s1 + s3);
}

inline void axpy(long n, double alpha, const double* x, double* y) {
  for (long i = 0; i < n; ++i) y[i] += alpha * x[i];
}

inline void scale(long n, double alpha, double* x) {
  for (long i = 0; i < n; ++i) x[i] *= alpha;
}

inline void copy(long n, const double* from, double* to) {
  std::copy(from, from + n, to);
}

// Copies n values of `from` into `to` in reverse order (the stride -1 copy).
inline void copyReversed(long n, const double* from, double* to) {
  for (long i = 0; i < n; ++i) to[i] = from[n - 1 - i];
}

// The matrix as the solver sees it: the one actually worked on (A or its
// transpose), and optionally its Gram matrix. When the columns are few, one
// product with the n x n Gram matrix costs n² instead of two passes over all
// non-zeros, and the process needs dozens of such products.
struct NormalOperator {
  long rows = 0;
  long cols = 0;
  const SMat* matrix = nullptr;
  const double* gram = nullptr;
  // The Gram matrix again with its rows padded by zeros to an even length
  // (gramStride entries), so that a product runs on whole vectors.
  const double* paddedGram = nullptr;
  long gramStride = 0;

  // y = AᵀA·x
  void multiplyNormal(const double* x, double* y) const {
    productCount += 2;
    if (paddedGram) {
      switch (gramStride / 2) {
        case 1:
          return gramProduct<1>(x, y);
        case 2:
          return gramProduct<2>(x, y);
        case 3:
          return gramProduct<3>(x, y);
        case 4:
          return gramProduct<4>(x, y);
        case 5:
          return gramProduct<5>(x, y);
        case 6:
          return gramProduct<6>(x, y);
        case 7:
          return gramProduct<7>(x, y);
        case 8:
          return gramProduct<8>(x, y);
        default:
          break;
      }
      for (long i = 0; i < cols; ++i) y[i] = dot(cols, paddedGram + i * gramStride, x);
      return;
    }
    if (gram) {
      for (long i = 0; i < cols; ++i) y[i] = dot(cols, gram + i * cols, x);
      return;
    }
    double* temp = normalProductTemp.data();
    std::fill(temp, temp + rows, 0.0);
    const long* pointr = matrix->pointr.data();
    const long* rowind = matrix->rowind.data();
    const double* value = matrix->value.data();
    for (long j = 0; j < cols; ++j)
      for (long k = pointr[j]; k < pointr[j + 1]; ++k) temp[rowind[k]] += value[k] * x[j];
    for (long j = 0; j < cols; ++j) {
      double sum = 0.0;
      for (long k = pointr[j]; k < pointr[j + 1]; ++k) sum += value[k] * temp[rowind[k]];
      y[j] = sum;
    }
  }

  // y = G·x with G the padded Gram matrix, kPairs pairs of entries a row.
  // G is symmetric, so y = Σ_j x_j · (row j): the sums run across pairs of
  // lanes (the width every x86-64 has), stay in registers, and no sum waits
  // for another.
  template <int kPairs>
  void gramProduct(const double* x, double* y) const {
    typedef double v2 __attribute__((vector_size(16)));
    v2 sums[kPairs] = {};
    for (long j = 0; j < cols; ++j) {
      const v2 xj = v2{} + x[j];
      const double* row = paddedGram + j * gramStride;
#pragma GCC unroll 8
      for (int b = 0; b < kPairs; ++b) {
        v2 g;
        std::memcpy(&g, row + 2 * b, sizeof g);
        sums[b] += xj * g;
      }
    }
    double out[2 * kPairs];
    std::memcpy(out, sums, sizeof out);
    std::copy(out, out + cols, y);
  }

  // y = A·x (rows entries)
  void multiplyA(const double* x, double* y) const {
    productCount += 1;
    std::fill(y, y + rows, 0.0);
    const long* pointr = matrix->pointr.data();
    for (long j = 0; j < cols; ++j)
      for (long k = pointr[j]; k < pointr[j + 1]; ++k) y[matrix->rowind[k]] += matrix->value[k] * x[j];
  }
};

// AᵀA of a column-compressed matrix: scatter one column into a dense scratch
// vector, then dot it with every later column.
std::vector<double> gramOf(const SMat& a, std::vector<double>& scratch);

// The Lanczos vector store: q_j at slot j + 2, p_0 and p_1 at slots 0 and 1.
// Slots are allocated on first use, one for each step actually made.
void store(long n, int code, long j, double* s);
// Read-only views of stored vectors, to spare a copy in the inner loops.
const double* storedQ(long j);
const double* storedP(long j);

// Empties the store for a run of `iterations` steps; false when memory runs
// out.
bool resetStore(long iterations);

// Ends a run: the store is emptied, and the memory of the store, the scratch
// vector and the work space is kept for the next run when it is small (the
// curve fit decomposes matrices of at most 14 columns several times per
// refresh), or given back when a large matrix needed it.
void releaseState();

struct Workspace {
  std::vector<double> wptr[10];
  std::vector<double> ritz;
  std::vector<double> bnd;
  std::vector<double> eigenvectors;  // (iterations + 1)², see LanczosRun
  std::vector<double> paddedGram;
  std::vector<double> rotated;  // scratch of the Ritz step

  // Sizes every vector for n-long Lanczos vectors and `iterations` steps;
  // false (after perror with the vector's tag) when memory runs out.
  bool allocate(long n, long iterations);
};

// The one work space, reused from run to run under the solver's lock.
Workspace& sharedWorkspace();

}  // namespace lumeo::lanczos
