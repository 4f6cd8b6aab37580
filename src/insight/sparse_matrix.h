// The sparse matrix the solver works on: compressed by columns, entries of a
// column in ascending row order. The curve fit's design matrix has at most
// four non-zeros a row, so this form is a fraction of the dense one.
#pragma once

#include <memory>
#include <vector>

#include "insight/dense_matrix.h"

namespace lumeo {

struct SMat {
  long rows = 0;
  long cols = 0;
  long vals = 0;              // number of stored (non-zero) entries
  std::vector<long> pointr;   // cols + 1 entries: first entry of each column, then vals
  std::vector<long> rowind;   // row of each entry
  std::vector<double> value;  // value of each entry
};

// An empty rows x cols matrix with room for `vals` entries (pointr zeroed), or
// null after perror with the name of the array that failed.
std::unique_ptr<SMat> svdNewSMat(long rows, long cols, long vals);
inline void svdReleaseSMat(std::unique_ptr<SMat> matrix) {
  matrix.reset();
}

// Dense to sparse, column by column, dropping values that are exactly 0.0.
std::unique_ptr<SMat> svdConvertDtoS(const DMat& dense);
// Sparse to dense (used by tests and by callers that want to look at A).
std::unique_ptr<DMat> svdConvertStoD(const SMat& sparse);
// The transpose, again compressed by columns with ascending rows.
std::unique_ptr<SMat> svdTransposedSMat(const SMat& matrix);

}  // namespace lumeo
