// The dense matrix of the curve fit's design and of the solver's singular
// vectors: rows of doubles in one contiguous, zero-initialised block, with a
// pointer to the start of each row so that a row reads like a C array.
#pragma once

#include <memory>
#include <vector>

namespace lumeo {

struct DMat {
  long rows = 0;
  long cols = 0;
  std::vector<double*> value;  // value[i] points at row i inside storage

  double* operator[](long i) { return value[i]; }
  const double* operator[](long i) const { return value[i]; }

  DMat() = default;
  DMat(const DMat&) = delete;
  DMat& operator=(const DMat&) = delete;

  // Keeps the first `newRows` rows; the block is not reallocated, so row
  // pointers stay valid.
  void truncateRows(long newRows);

 private:
  friend std::unique_ptr<DMat> svdNewDMat(long rows, long cols);
  std::vector<double> storage_;
};

// A zeroed rows x cols matrix, or null (after perror("svdNewDMat")) when the
// sizes are negative or the memory is not there.
std::unique_ptr<DMat> svdNewDMat(long rows, long cols);
inline void svdReleaseDMat(std::unique_ptr<DMat> matrix) {
  matrix.reset();
}

// The transpose as a new matrix; null when the copy cannot be allocated.
std::unique_ptr<DMat> svdTransposedDMat(const DMat& matrix);

}  // namespace lumeo
