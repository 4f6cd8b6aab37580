// Allocation and transposition of dense matrices. Failures are reported the
// way the rest of the solver reports them, on standard error, and give null.
#include "insight/dense_matrix.h"

#include <cerrno>
#include <cstdio>
#include <limits>
#include <new>

namespace lumeo {

void DMat::truncateRows(long newRows) {
  if (newRows < 0 || newRows >= rows) return;
  rows = newRows;
  value.resize(newRows);
}

std::unique_ptr<DMat> svdNewDMat(long rows, long cols) {
  if (rows < 0 || cols < 0 || (cols > 0 && rows > std::numeric_limits<long>::max() / 8 / cols)) {
    errno = EINVAL;
    perror("svdNewDMat");
    return nullptr;
  }
  try {
    auto matrix = std::make_unique<DMat>();
    matrix->rows = rows;
    matrix->cols = cols;
    matrix->storage_.assign(static_cast<size_t>(rows * cols), 0.0);
    matrix->value.resize(rows);
    for (long i = 0; i < rows; ++i) matrix->value[i] = matrix->storage_.data() + i * cols;
    return matrix;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    perror("svdNewDMat");
    return nullptr;
  }
}

std::unique_ptr<DMat> svdTransposedDMat(const DMat& matrix) {
  auto transposed = svdNewDMat(matrix.cols, matrix.rows);
  if (!transposed) return nullptr;
  for (long i = 0; i < matrix.rows; ++i)
    for (long j = 0; j < matrix.cols; ++j) (*transposed)[j][i] = matrix[i][j];
  return transposed;
}

}  // namespace lumeo
