// Construction, conversion and transposition of column-compressed matrices.
// Allocation failures print the failing array's name and give null; the caller
// decides whether that is fatal.
#include "insight/sparse_matrix.h"

#include <cerrno>
#include <cstdio>
#include <new>

namespace lumeo {

namespace {

template <typename T>
bool allocate(std::vector<T>& array, long count, const char* tag) {
  try {
    array.assign(count, T{});
    return true;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    perror(tag);
    return false;
  } catch (const std::length_error&) {
    errno = ENOMEM;
    perror(tag);
    return false;
  }
}

}  // namespace

std::unique_ptr<SMat> svdNewSMat(long rows, long cols, long vals) {
  if (rows < 0 || cols < 0 || vals < 0) {
    errno = EINVAL;
    perror("svdNewSMat");
    return nullptr;
  }
  auto matrix = std::make_unique<SMat>();
  matrix->rows = rows;
  matrix->cols = cols;
  matrix->vals = vals;
  if (!allocate(matrix->pointr, cols + 1, "svdNewSMat: pointr")) return nullptr;
  if (!allocate(matrix->rowind, vals, "svdNewSMat: rowind")) return nullptr;
  if (!allocate(matrix->value, vals, "svdNewSMat: value")) return nullptr;
  return matrix;
}

std::unique_ptr<SMat> svdConvertDtoS(const DMat& dense) {
  long count = 0;
  for (long i = 0; i < dense.rows; ++i)
    for (long j = 0; j < dense.cols; ++j)
      if (dense[i][j] != 0.0) ++count;

  auto sparse = svdNewSMat(dense.rows, dense.cols, count);
  if (!sparse) {
    fprintf(stderr, "svdConvertDtoS: failed to allocate S\n");
    return nullptr;
  }
  long n = 0;
  for (long j = 0; j < dense.cols; ++j) {
    sparse->pointr[j] = n;
    for (long i = 0; i < dense.rows; ++i) {
      if (dense[i][j] == 0.0) continue;
      sparse->rowind[n] = i;
      sparse->value[n] = dense[i][j];
      ++n;
    }
  }
  sparse->pointr[dense.cols] = count;
  return sparse;
}

std::unique_ptr<DMat> svdConvertStoD(const SMat& sparse) {
  auto dense = svdNewDMat(sparse.rows, sparse.cols);
  if (!dense) return nullptr;
  for (long j = 0; j < sparse.cols; ++j)
    for (long k = sparse.pointr[j]; k < sparse.pointr[j + 1]; ++k)
      (*dense)[sparse.rowind[k]][j] = sparse.value[k];
  return dense;
}

std::unique_ptr<SMat> svdTransposedSMat(const SMat& matrix) {
  auto transposed = svdNewSMat(matrix.cols, matrix.rows, matrix.vals);
  if (!transposed) return nullptr;
  // Count the entries of each row, which become the columns of the transpose.
  std::vector<long>& pointr = transposed->pointr;
  for (long k = 0; k < matrix.vals; ++k) ++pointr[matrix.rowind[k] + 1];
  for (long i = 0; i < matrix.rows; ++i) pointr[i + 1] += pointr[i];
  // Walking the source column by column fills each target column in ascending
  // order of its new row index.
  std::vector<long> next(pointr.begin(), pointr.end() - 1);
  for (long j = 0; j < matrix.cols; ++j) {
    for (long k = matrix.pointr[j]; k < matrix.pointr[j + 1]; ++k) {
      const long row = matrix.rowind[k];
      const long slot = next[row]++;
      transposed->rowind[slot] = j;
      transposed->value[slot] = matrix.value[k];
    }
  }
  return transposed;
}

}  // namespace lumeo
