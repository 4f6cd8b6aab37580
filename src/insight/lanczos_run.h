// One run of the Lanczos process with selective reorthogonalisation on AᵀA:
// the steps, the estimates of lost orthogonality and the purges they call
// for, restarts from fresh start vectors, and the error bounds that decide
// which Ritz values have converged.
#pragma once

#include "insight/lanczos_workspace.h"

namespace lumeo::lanczos {

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
        bnd_(ws.bnd.data()),
        vectors_(ws.eigenvectors.data()) {}

  // Runs the process; returns the index of the last step (`steps`) and sets
  // `converged` to the number of Ritz values whose bounds passed.
  long run(long& converged);

  double* diag() const { return diag_; }
  double* offdiag() const { return offdiag_; }
  double* work() const { return work_; }

  // When the last batch's eigenproblem was solved with whole eigenvectors
  // (see run), their order (steps + 1) and the vectors, vector k at k * order
  // in the order of ritz; 0 and the Ritz step solves it itself otherwise.
  long eigenvectorOrder() const { return vectorsOrder_; }
  const double* eigenvectors() const { return vectors_; }

 private:
  double startVector(long step);
  bool firstStep();
  long steps(long first, long last);
  void updateOrthogonality(long j);
  void purge(long j);
  long errorBounds(long j);
  void ritzValues(long j, bool lastBatch);

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
  double* vectors_;
  long vectorsOrder_ = 0;
  double rnorm_ = 0.0;
  double tol_ = 0.0;
  double matrixNorm_ = 0.0;
  long ll_ = 0;
  bool finished_ = false;
};

}  // namespace lumeo::lanczos
