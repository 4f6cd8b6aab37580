// The Lanczos solver: parameter checks, the run-time measure of the
// arithmetic, the Lanczos process with selective reorthogonalisation, error
// bounds from the tridiagonal eigenproblem, and the Ritz vectors. The matrix
// is touched only through the two operators multiplyNormal (AᵀA·x) and
// multiplyA (A·x), so no dense copy of it ever exists here.
#include "insight/svd_lanczos.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

#include "insight/tridiagonal_ql.h"

namespace lumeo {

namespace {

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

// Process-wide state. Guarded by solverMutex for the length of a run.
std::mutex solverMutex;
double eps = 0.0;
double epsN = 0.0;
double rootEps = 0.0;
double epsThreeQuarters = 0.0;
long ierr = 0;
std::vector<std::vector<double>> lanczosStore;
std::vector<double> normalProductTemp;
long productCount = 0;  // products with A; kept for debugging sessions

void reportError(bool fatal, const std::string& message) {
  fprintf(stderr, "\aERROR: %s\n", message.c_str());
  if (fatal) exit(1);
}

bool allocate(std::vector<double>& array, long count, const char* tag) {
  try {
    array.assign(static_cast<size_t>(count), 0.0);
    return true;
  } catch (const std::exception&) {
    errno = ENOMEM;
    perror(tag);
    return false;
  }
}

// The classic probe of the floating-point arithmetic: find the radix from the
// spacing of large numbers, then the smallest power of the radix that still
// changes 1 when added to it. On IEEE doubles that is 2^-52.
double probeEpsilon() {
  volatile double a = 1.0;
  volatile double b = 0.0;
  volatile double c = 0.0;
  do {
    a = a + a;
    b = a + 1.0;
    c = b - a;
  } while (c - 1.0 == 0.0);
  volatile double step = 1.0;
  double radix = 0.0;
  do {
    step = step + step;
    b = a + step;
    radix = b - a;
  } while (radix == 0.0);
  volatile double e = 1.0;
  for (;;) {
    volatile double smaller = e / radix;
    volatile double sum = 1.0 + smaller;
    if (sum == 1.0) break;
    e = smaller;
  }
  return e;
}

// The arithmetic does not change while the program runs, so it is probed
// once; the constants that depend on n are set on every run.
void measureMachine(long n) {
  static const double measured = probeEpsilon();
  eps = measured;
  epsN = eps * std::sqrt(static_cast<double>(n));
  rootEps = std::sqrt(eps);
  epsThreeQuarters = rootEps * std::sqrt(rootEps);
}

// The fixed linear congruence behind the start vectors. It runs on a 64-bit
// seed with wrap-around, so after the first draw the values are large and of
// either sign; only the direction of the vector matters, and it is the same on
// every run and every machine.
double randomValue(int64_t& seed) {
  constexpr uint64_t kTwo31 = 2147483648ULL;
  uint64_t iy = static_cast<uint64_t>(seed) * 843314861ULL;
  if (static_cast<int64_t>(iy) > 1693666955) iy -= kTwo31;
  iy += 453816693ULL;
  if (static_cast<int64_t>(iy) >= 2147483650LL) iy -= kTwo31;
  if (static_cast<int64_t>(iy) < 0) iy += kTwo31;
  seed = static_cast<int64_t>(iy);
  return static_cast<double>(seed) * 4.656612873077392578125e-10;  // 2^-31
}

double dot(long n, const double* x, const double* y) {
  double sum = 0.0;
  for (long i = 0; i < n; ++i) sum += x[i] * y[i];
  return sum;
}

void axpy(long n, double alpha, const double* x, double* y) {
  for (long i = 0; i < n; ++i) y[i] += alpha * x[i];
}

void scale(long n, double alpha, double* x) {
  for (long i = 0; i < n; ++i) x[i] *= alpha;
}

void copy(long n, const double* from, double* to) { std::copy(from, from + n, to); }

// Copies n values of `from` into `to` in reverse order (the stride -1 copy).
void copyReversed(long n, const double* from, double* to) {
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

  // y = AᵀA·x
  void multiplyNormal(const double* x, double* y) const {
    productCount += 2;
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
std::vector<double> gramOf(const SMat& a, std::vector<double>& scratch) {
  const long n = a.cols;
  std::vector<double> gram(static_cast<size_t>(n * n), 0.0);
  for (long j = 0; j < n; ++j) {
    for (long k = a.pointr[j]; k < a.pointr[j + 1]; ++k) scratch[a.rowind[k]] = a.value[k];
    for (long l = j; l < n; ++l) {
      double sum = 0.0;
      for (long k = a.pointr[l]; k < a.pointr[l + 1]; ++k) sum += a.value[k] * scratch[a.rowind[k]];
      gram[j * n + l] = sum;
      gram[l * n + j] = sum;
    }
    for (long k = a.pointr[j]; k < a.pointr[j + 1]; ++k) scratch[a.rowind[k]] = 0.0;
  }
  return gram;
}

// The Lanczos vector store: q_j at slot j + 2, p_0 and p_1 at slots 0 and 1.
// Slots are allocated on first use, one for each step actually made.
void store(long n, int code, long j, double* s) {
  switch (code) {
    case kStoreQ: {
      auto& slot = lanczosStore[static_cast<size_t>(j + kMaxLL)];
      if (slot.empty()) {
        try {
          slot.resize(static_cast<size_t>(n));
        } catch (const std::exception&) {
          reportError(true, "svdLanczos: failed to allocate lanczosStore[" + std::to_string(j + kMaxLL) + "]");
        }
      }
      copy(n, s, slot.data());
      break;
    }
    case kRetrieveQ: {
      const auto& slot = lanczosStore[static_cast<size_t>(j + kMaxLL)];
      if (slot.empty()) {
        reportError(false, "svdLanczos: store (RETRQ) called on index " + std::to_string(j + kMaxLL) +
                               " (not allocated)");
        break;
      }
      copy(n, slot.data(), s);
      break;
    }
    case kStoreP: {
      if (j >= kMaxLL) {
        reportError(false, "svdLanczos: store (STORP) called with j >= MAXLL");
        break;
      }
      auto& slot = lanczosStore[static_cast<size_t>(j)];
      if (slot.empty()) {
        try {
          slot.resize(static_cast<size_t>(n));
        } catch (const std::exception&) {
          reportError(true, "svdLanczos: failed to allocate lanczosStore[" + std::to_string(j) + "]");
        }
      }
      copy(n, s, slot.data());
      break;
    }
    case kRetrieveP: {
      if (j >= kMaxLL) {
        reportError(false, "svdLanczos: store (RETRP) called with j >= MAXLL");
        break;
      }
      const auto& slot = lanczosStore[static_cast<size_t>(j)];
      if (slot.empty()) {
        reportError(false, "svdLanczos: store (RETRP) called on index " + std::to_string(j) + " (not allocated)");
        break;
      }
      copy(n, slot.data(), s);
      break;
    }
    default:
      break;
  }
}

// Read-only view of a stored q, to spare a copy in the inner loops.
const double* storedQ(long j) {
  const auto& slot = lanczosStore[static_cast<size_t>(j + kMaxLL)];
  if (slot.empty()) {
    reportError(true, "svdLanczos: store (RETRQ) called on index " + std::to_string(j + kMaxLL) +
                          " (not allocated)");
  }
  return slot.data();
}

const double* storedP(long j) {
  const auto& slot = lanczosStore[static_cast<size_t>(j)];
  if (j >= kMaxLL || slot.empty()) {
    reportError(true, "svdLanczos: store (RETRP) called on index " + std::to_string(j) + " (not allocated)");
  }
  return slot.data();
}

struct Workspace {
  std::vector<double> wptr[10];
  std::vector<double> ritz;
  std::vector<double> bnd;

  bool allocate(long n, long iterations) {
    static const char* const kTags[10] = {"lanczos: wptr[0]", "lanczos: wptr[1]", "lanczos: wptr[2]",
                                          "lanczos: wptr[3]", "lanczos: wptr[4]", "lanczos: wptr[5]",
                                          "lanczos: wptr[6]", "lanczos: wptr[7]", "lanczos: wptr[8]",
                                          "lanczos: wptr[9]"};
    for (int i = 0; i < 6; ++i)
      if (!lumeo::allocate(wptr[i], n, kTags[i])) return false;
    for (int i = 6; i < 9; ++i)
      if (!lumeo::allocate(wptr[i], iterations, kTags[i])) return false;
    if (!lumeo::allocate(wptr[9], iterations + 1, kTags[9])) return false;
    if (!lumeo::allocate(ritz, iterations + 1, "lanczos: ritz")) return false;
    if (!lumeo::allocate(bnd, iterations + 1, "lanczos: bnd")) return false;
    // Every byte 127: a huge positive bound that no convergence test passes.
    std::memset(bnd.data(), 127, bnd.size() * sizeof(double));
    return true;
  }
};

// One run of the Lanczos process on AᵀA of the worked matrix.
class LanczosRun {
 public:
  LanczosRun(const NormalOperator& op, Workspace& ws, long iterations, long dimensions, const double end[2])
      : op_(op),
        n_(op.cols),
        iterations_(iterations),
        dimensions_(dimensions),
        endl_(end[0]),
        endr_(end[1]),
        r_(ws.wptr[0].data()),
        q_(ws.wptr[1].data()),
        prevQ_(ws.wptr[2].data()),
        p_(ws.wptr[3].data()),
        prevP_(ws.wptr[4].data()),
        work_(ws.wptr[5].data()),
        diag_(ws.wptr[6].data()),
        orth_(ws.wptr[7].data()),
        prevOrth_(ws.wptr[8].data()),
        offdiag_(ws.wptr[9].data()),
        ritz_(ws.ritz.data()),
        bnd_(ws.bnd.data()) {}

  // Runs the process; returns the index of the last step (`steps`) and sets
  // `converged` to the number of Ritz values whose bounds passed.
  long run(long& converged);

  double* diag() const { return diag_; }
  double* offdiag() const { return offdiag_; }
  double* work() const { return work_; }

 private:
  double startVector(long step);
  bool firstStep();
  long steps(long first, long last);
  void updateOrthogonality(long j);
  void purge(long j);
  long errorBounds(long j);

  const NormalOperator& op_;
  const long n_;
  const long iterations_;
  const long dimensions_;
  const double endl_;
  const double endr_;
  double* r_;
  double* q_;
  double* prevQ_;
  double* p_;
  double* prevP_;
  double* work_;
  double* diag_;
  double* orth_;
  double* prevOrth_;
  double* offdiag_;
  double* ritz_;
  double* bnd_;
  double rnorm_ = 0.0;
  double tol_ = 0.0;
  double matrixNorm_ = 0.0;
  long ll_ = 0;
  bool finished_ = false;
};

// A new start vector for step `step`: random, pushed through AᵀA once so that
// it lies in the range, and orthogonalised against every earlier Lanczos
// vector. Returns its norm (0 when nothing independent is left), or -1 with
// ierr set when the matrix sends even random vectors to zero.
double LanczosRun::startVector(long step) {
  double rnorm2 = dot(n_, r_, r_);
  for (int round = 0; round < 3; ++round) {
    if (round > 0 || step > 0 || rnorm2 == 0.0) {
      int64_t seed = kStartSeed + step;
      for (long i = 0; i < n_; ++i) r_[i] = randomValue(seed);
    }
    copy(n_, r_, p_);
    op_.multiplyNormal(p_, r_);
    copy(n_, r_, p_);
    rnorm2 = dot(n_, r_, p_);
    if (rnorm2 > 0.0) break;
  }
  if (rnorm2 <= 0.0) {
    ierr = kStartVectorFailed;
    return -1.0;
  }
  if (step > 0) {
    for (long i = 0; i < step; ++i) {
      const double* qi = storedQ(i);
      axpy(n_, -dot(n_, p_, qi), qi, r_);
    }
    // A second pass along the newest vector, with the updated r, picks up
    // what the first pass left behind through rounding.
    axpy(n_, -dot(n_, r_, prevQ_), prevQ_, r_);
    copy(n_, r_, p_);
  }
  double t = dot(n_, p_, r_);
  if (t <= eps * rnorm2) t = 0.0;
  return std::sqrt(t);
}

bool LanczosRun::firstStep() {
  rnorm_ = startVector(0);
  if (rnorm_ == 0.0 || ierr != 0) return false;

  double t = 1.0 / rnorm_;
  for (long i = 0; i < n_; ++i) q_[i] = t * r_[i];
  scale(n_, t, p_);
  op_.multiplyNormal(p_, r_);
  diag_[0] = dot(n_, r_, p_);
  axpy(n_, -diag_[0], q_, r_);
  t = dot(n_, r_, p_);
  axpy(n_, -t, q_, r_);
  diag_[0] += t;
  copy(n_, r_, prevP_);
  rnorm_ = std::sqrt(dot(n_, r_, prevP_));
  matrixNorm_ = rnorm_ + std::fabs(diag_[0]);
  tol_ = rootEps * matrixNorm_;
  return true;
}

// Lanczos steps first .. last-1. Returns the step at which it stopped (last
// when all were made).
long LanczosRun::steps(long first, long last) {
  long j = first;
  for (; j < last; ++j) {
    std::swap(q_, prevQ_);
    std::swap(p_, prevP_);
    store(n_, kStoreQ, j - 1, prevQ_);
    if (j - 1 < kMaxLL) store(n_, kStoreP, j - 1, prevP_);
    offdiag_[j] = rnorm_;

    // An invariant subspace was found: restart from a fresh vector that is
    // orthogonal to all before it, or stop when there is none.
    if (rnorm_ == 0.0) {
      rnorm_ = startVector(j);
      if (ierr != 0) {
        rnorm_ = 0.0;
        finished_ = true;
      } else if (rnorm_ == 0.0) {
        finished_ = true;
      }
    }
    if (finished_) {
      std::swap(q_, prevQ_);
      break;
    }

    double t = 1.0 / rnorm_;
    for (long i = 0; i < n_; ++i) q_[i] = t * r_[i];
    scale(n_, t, p_);
    op_.multiplyNormal(p_, r_);
    axpy(n_, -rnorm_, prevQ_, r_);
    diag_[j] = dot(n_, r_, p_);
    axpy(n_, -diag_[j], q_, r_);

    // A sharp drop of the diagonal in the first steps means the start vector
    // was poor; those early vectors are then kept orthogonal for good.
    if (j <= 2 && std::fabs(diag_[j - 1]) > 4.0 * std::fabs(diag_[j])) ll_ = j;
    for (long i = 0; i < std::min(ll_, j - 1); ++i) {
      t = dot(n_, storedP(i), r_);
      axpy(n_, -t, storedQ(i), r_);
      orth_[i] = prevOrth_[i] = epsN;
    }

    // Local reorthogonalisation against the two newest vectors.
    t = dot(n_, r_, prevP_);
    axpy(n_, -t, prevQ_, r_);
    if (offdiag_[j] > 0.0) offdiag_[j] += t;
    t = dot(n_, r_, p_);
    axpy(n_, -t, q_, r_);
    diag_[j] += t;
    copy(n_, r_, prevP_);
    rnorm_ = std::sqrt(dot(n_, r_, prevP_));
    matrixNorm_ = offdiag_[j] + std::fabs(diag_[j]) + rnorm_;
    tol_ = rootEps * matrixNorm_;

    updateOrthogonality(j);
    purge(j);
    if (rnorm_ <= tol_) rnorm_ = 0.0;
  }
  return j;
}

// Recurrence for the estimated loss of orthogonality between the new vector
// and each earlier one.
void LanczosRun::updateOrthogonality(long j) {
  if (j < 1) return;
  if (rnorm_ != 0.0 && j > 1) {
    prevOrth_[0] =
        (offdiag_[1] * orth_[1] + (diag_[0] - diag_[j]) * orth_[0] - offdiag_[j] * prevOrth_[0]) / rnorm_ + epsN;
    for (long i = 1; i <= j - 2; ++i) {
      prevOrth_[i] = (offdiag_[i + 1] * orth_[i + 1] + (diag_[i] - diag_[j]) * orth_[i] +
                      offdiag_[i] * orth_[i - 1] - offdiag_[j] * prevOrth_[i]) /
                         rnorm_ +
                     epsN;
    }
  }
  prevOrth_[j - 1] = epsN;
  for (long i = 0; i < j; ++i) std::swap(orth_[i], prevOrth_[i]);
  orth_[j] = epsN;
}

// Selective reorthogonalisation: once the estimate says orthogonality to the
// earlier vectors is lost beyond √eps, remove their components from q and r.
void LanczosRun::purge(long j) {
  if (j < ll_ + 2) return;
  long worst = ll_;
  for (long i = ll_ + 1; i < j; ++i)
    if (std::fabs(orth_[i]) > std::fabs(orth_[worst])) worst = i;
  if (std::fabs(orth_[worst]) <= rootEps) return;
  {
    const double rootEpsN = epsN / rootEps;
    for (int round = 0; round < 2 && rnorm_ > tol_; ++round) {
      double tq = 0.0;
      double tr = 0.0;
      for (long i = ll_; i < j; ++i) {
        const double* qi = storedQ(i);
        double t = -dot(n_, q_, qi);
        tq += std::fabs(t);
        axpy(n_, t, qi, q_);
        t = -dot(n_, r_, qi);
        tr += std::fabs(t);
        axpy(n_, t, qi, r_);
      }
      copy(n_, q_, p_);
      const double t = -dot(n_, r_, p_);
      tr += std::fabs(t);
      axpy(n_, t, q_, r_);
      copy(n_, r_, prevP_);
      rnorm_ = std::sqrt(dot(n_, prevP_, r_));
      if (tq <= rootEpsN && tr <= rootEpsN * rnorm_) break;
    }
  }
  // The vectors are orthogonal again to working precision.
  for (long i = ll_; i <= j; ++i) orth_[i] = prevOrth_[i] = epsN;
}

// Refines the bounds of the Ritz values 0..j (sorted ascending) and counts
// the converged ones. Bounds of values that sit closer together than the
// method can resolve are pooled into one of the pair, and a bound smaller than
// the gap to the neighbours is sharpened quadratically by that gap.
long LanczosRun::errorBounds(long j) {
  long mid = 0;
  for (long i = 1; i <= j; ++i)
    if (std::fabs(bnd_[i]) > std::fabs(bnd_[mid])) mid = i;

  // Walk inwards from both ends towards the largest bound; the pooled bound
  // goes to the outer value of the pair and the inner one is cleared.
  for (long i = j; i >= mid + 1; --i) {
    if (std::fabs(ritz_[i - 1] - ritz_[i]) < epsThreeQuarters * std::fabs(ritz_[i]) && bnd_[i] > tol_ &&
        bnd_[i - 1] > tol_) {
      bnd_[i] = std::sqrt(bnd_[i] * bnd_[i] + bnd_[i - 1] * bnd_[i - 1]);
      bnd_[i - 1] = 0.0;
    }
  }
  for (long i = 1; i <= mid - 1; ++i) {
    if (std::fabs(ritz_[i + 1] - ritz_[i]) < epsThreeQuarters * std::fabs(ritz_[i]) && bnd_[i] > tol_ &&
        bnd_[i + 1] > tol_) {
      bnd_[i] = std::sqrt(bnd_[i] * bnd_[i] + bnd_[i + 1] * bnd_[i + 1]);
      bnd_[i + 1] = 0.0;
    }
  }

  long converged = 0;
  double gapl = ritz_[j] - ritz_[0];
  for (long i = 0; i <= j; ++i) {
    double gap = gapl;
    if (i < j) gapl = ritz_[i + 1] - ritz_[i];
    gap = std::min(gap, gapl);
    if (gap > bnd_[i]) bnd_[i] = bnd_[i] * (bnd_[i] / gap);
    if (bnd_[i] <= 16.0 * eps * std::fabs(ritz_[i])) {
      ++converged;
      if (!finished_) finished_ = endl_ < ritz_[i] && ritz_[i] < endr_;
    }
  }
  return converged;
}

long LanczosRun::run(long& converged) {
  converged = 0;
  if (!firstStep()) return 0;

  orth_[0] = epsN;
  prevOrth_[0] = epsN;
  ll_ = 0;
  long first = 1;
  long intro = 0;
  long last = std::min(dimensions_ + std::max(8L, dimensions_), iterations_);
  long j = 0;
  for (;;) {
    if (rnorm_ <= tol_) rnorm_ = 0.0;
    j = steps(first, last) - 1;
    first = j + 1;
    offdiag_[j + 1] = rnorm_;

    // Eigenvalues of the tridiagonal matrix, block by block where it splits.
    // Each block is reversed so that imtqlb's first components are the last
    // components of the eigenvectors, which give the residual bounds.
    long l = 0;
    while (l <= j) {
      long i = l;
      for (; i <= j; ++i)
        if (offdiag_[i + 1] == 0.0) break;
      i = std::min(i, j);
      const long size = i - l + 1;
      copyReversed(size, diag_ + l, ritz_ + l);
      copyReversed(size, offdiag_ + l + 1, work_ + l);
      long qlError = 0;
      imtqlb(size, ritz_ + l, work_ + l, bnd_ + l, qlError);
      ierr = qlError;
      if (ierr != 0) {
        fprintf(stderr, "svdLanczos: imtqlb failed to converge (ierr = %ld)\n", ierr);
        fprintf(stderr, "  l = %ld  i = %ld\n", l, i);
        for (long k = l; k <= i; ++k)
          fprintf(stderr, "  %ld  %lg  %lg  %lg\n", k, ritz_[k], work_[k], bnd_[k]);
      }
      for (long k = l; k <= i; ++k) bnd_[k] = rnorm_ * std::fabs(bnd_[k]);
      l = i + 1;
    }

    // Shell sort of the Ritz values, ascending, bounds following.
    const long count = j + 1;
    for (long gap = count / 2; gap > 0; gap /= 2) {
      for (long i = gap; i < count; ++i) {
        for (long k = i - gap; k >= 0 && ritz_[k] > ritz_[k + gap]; k -= gap) {
          std::swap(ritz_[k], ritz_[k + gap]);
          std::swap(bnd_[k], bnd_[k + gap]);
        }
      }
    }

    converged = errorBounds(j);

    if (converged < dimensions_) {
      if (converged == 0) {
        last = first + 9;
        intro = first;
      } else {
        last = first + std::max(3L, 1 + ((j - intro) * (dimensions_ - converged)) / converged);
      }
      last = std::min(last, iterations_);
    } else {
      finished_ = true;
    }
    if (first >= iterations_) finished_ = true;
    if (finished_) break;
  }
  store(n_, kStoreQ, j, q_);
  return j;
}

// The Ritz vectors: combinations of the stored Lanczos vectors with the
// eigenvectors of the final tridiagonal matrix, for the values whose bounds
// are within `accuracy`. Rows of rightVectors are filled from the bottom up in
// ascending order of value and then rotated, so the largest comes first.
long ritzVectors(const NormalOperator& op, SVDRec& rec, double accuracy, const double* ritz, const double* bnd,
                 double* diag, double* offdiag, double* work, long steps, long converged, bool wantLeft) {
  const long n = op.cols;
  const long js = steps + 1;
  std::vector<double> s;
  if (!allocate(s, js * js, "ritzVectors: s")) return 0;
  for (long i = 0; i < js; ++i) s[static_cast<size_t>(i * js + i)] = 1.0;
  long qlError = ierr;
  tridiagonalQL(js, diag, offdiag, s.data(), qlError);
  ierr = qlError;
  if (ierr != 0) return 0;

  DMat& right = *rec.rightVectors;
  const long d = rec.d;
  long x = 0;
  long kept = 0;
  for (long k = 0; k < js; ++k) {
    if (bnd[k] <= accuracy * std::fabs(ritz[k]) && k > js - converged - 1) {
      if (--x < 0) x = d - 1;
      double* row = right[x];
      std::fill(row, row + n, 0.0);
      for (long i = 0; i < js; ++i) axpy(n, s[static_cast<size_t>(k * js + i)], storedQ(i), row);
      ++kept;
    }
  }
  if (kept == 0) return 0;

  std::vector<double> rotated;
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

void releaseState() {
  lanczosStore.clear();
  lanczosStore.shrink_to_fit();
  normalProductTemp.clear();
  normalProductTemp.shrink_to_fit();
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

  Workspace ws;
  bool ok = ws.allocate(n, iterations);
  if (ok) {
    try {
      lanczosStore.assign(static_cast<size_t>(iterations + kMaxLL), {});
    } catch (const std::exception&) {
      ok = false;
    }
  }
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

  const long reported = ritzVectors(op, *rec, accuracy, ws.ritz.data(), ws.bnd.data(), lanczos.diag(),
                                    lanczos.offdiag(), lanczos.work(), steps, converged, wantLeft);
  rec->d = reported;
  rec->singularValues.resize(static_cast<size_t>(reported));
  rec->rightVectors->truncateRows(reported);
  if (rec->leftVectors) rec->leftVectors->truncateRows(reported);
  op.gram = nullptr;
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
    fprintf(stderr, "svdLanczosGram: a wide matrix is decomposed through its transpose; pass the sparse matrix\n");
    return nullptr;
  }
  NormalOperator op;
  op.rows = rows;
  op.cols = cols;
  op.gram = gram;
  return runLanczos(op, dimensions, iterations, end, 1.0e-6, false);
}

}  // namespace lumeo
