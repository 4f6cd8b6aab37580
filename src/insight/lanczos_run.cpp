// The Lanczos process. Step by step it extends the orthonormal basis q_0,
// q_1, ... of the Krylov space of AᵀA and the tridiagonal matrix (diag,
// offdiag) of AᵀA in that basis; after each batch of steps the eigenvalues of
// that matrix (the Ritz values) and their error bounds say whether enough
// have converged.
#include "insight/lanczos_run.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "insight/tridiagonal_ql.h"

namespace lumeo::lanczos {

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
        (offdiag_[1] * orth_[1] + (diag_[0] - diag_[j]) * orth_[0] - offdiag_[j] * prevOrth_[0]) / rnorm_ +
        epsN;
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

// The Ritz values of the tridiagonal matrix 0..j, sorted ascending, and
// their residual bounds, which are rnorm times the last components of their
// eigenvectors. When this batch is known to be the last, and the matrix is
// one unreduced block, the eigenproblem is solved once with whole
// eigenvectors, which the Ritz step needs as well; otherwise imtqlb gives
// just the values and the components needed, block by block.
void LanczosRun::ritzValues(long j, bool lastBatch) {
  const long order = j + 1;
  vectorsOrder_ = 0;
  bool unreduced = order > 1;
  for (long i = 1; i <= j && unreduced; ++i) unreduced = offdiag_[i] != 0.0;
  if (lastBatch && unreduced) {
    double* z = vectors_;
    std::fill(z, z + order * order, 0.0);
    for (long i = 0; i < order; ++i) z[i * order + i] = 1.0;
    // Reversed, as for imtqlb: the Lanczos matrix's small entries gather at
    // its end, and the QL sweeps deflate from the top, so the reversed matrix
    // takes fewer rotations.
    copyReversed(order, diag_, ritz_);
    copyReversed(j, offdiag_ + 1, work_ + 1);
    long qlError = 0;
    tridiagonalQL(order, ritz_, work_, z, qlError);
    if (qlError == 0) {
      for (long k = 0; k < order; ++k) {
        double* vector = z + k * order;
        bnd_[k] = rnorm_ * std::fabs(vector[0]);
        std::reverse(vector, vector + order);
      }
      vectorsOrder_ = order;
      ierr = 0;
      return;
    }
  }

  // Block by block where the matrix splits. Each block is reversed so that
  // imtqlb's first components are the last components of the eigenvectors.
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
      for (long k = l; k <= i; ++k) fprintf(stderr, "  %ld  %lg  %lg  %lg\n", k, ritz_[k], work_[k], bnd_[k]);
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

    ritzValues(j, finished_ || first >= iterations_);
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

}  // namespace lumeo::lanczos
