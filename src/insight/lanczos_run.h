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

}  // namespace lumeo::lanczos
