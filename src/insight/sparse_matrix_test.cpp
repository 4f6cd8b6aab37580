// Dense and sparse matrices: conversion drops exact zeros only, keeps rows
// ascending within a column, and transposition and conversion round-trip.
#include "insight/sparse_matrix.h"

#include <gtest/gtest.h>

#include <random>

namespace lumeo {
namespace {

std::unique_ptr<DMat> randomSparseDense(unsigned seed, long rows, long cols) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  auto dense = svdNewDMat(rows, cols);
  for (long i = 0; i < rows; ++i)
    for (long j = 0; j < cols; ++j) (*dense)[i][j] = unit(rng) < 0.3 ? unit(rng) - 0.5 : 0.0;
  (*dense)[0][0] = -0.0;                  // a negative zero is still a zero
  (*dense)[rows - 1][cols - 1] = 1e-300;  // a tiny value is not
  return dense;
}

void expectEqual(const DMat& a, const DMat& b) {
  ASSERT_EQ(a.rows, b.rows);
  ASSERT_EQ(a.cols, b.cols);
  for (long i = 0; i < a.rows; ++i)
    for (long j = 0; j < a.cols; ++j) EXPECT_EQ(a[i][j], b[i][j]) << i << "," << j;
}

TEST(SparseMatrix, ConversionKeepsEveryNonZeroInColumnOrder) {
  auto dense = randomSparseDense(1, 37, 9);
  auto sparse = svdConvertDtoS(*dense);
  ASSERT_TRUE(sparse);
  long nonZeros = 0;
  for (long i = 0; i < 37; ++i)
    for (long j = 0; j < 9; ++j) nonZeros += (*dense)[i][j] != 0.0;
  EXPECT_EQ(sparse->vals, nonZeros);
  EXPECT_EQ(sparse->pointr[0], 0);
  EXPECT_EQ(sparse->pointr[9], nonZeros);
  for (long j = 0; j < 9; ++j)
    for (long k = sparse->pointr[j] + 1; k < sparse->pointr[j + 1]; ++k)
      EXPECT_LT(sparse->rowind[k - 1], sparse->rowind[k]);
  expectEqual(*svdConvertStoD(*sparse), *dense);
}

TEST(SparseMatrix, TransposesRoundTrip) {
  auto dense = randomSparseDense(2, 13, 40);
  auto sparse = svdConvertDtoS(*dense);
  auto transposed = svdTransposedSMat(*sparse);
  ASSERT_TRUE(transposed);
  EXPECT_EQ(transposed->rows, 40);
  EXPECT_EQ(transposed->cols, 13);
  for (long j = 0; j < transposed->cols; ++j)
    for (long k = transposed->pointr[j] + 1; k < transposed->pointr[j + 1]; ++k)
      EXPECT_LT(transposed->rowind[k - 1], transposed->rowind[k]);
  expectEqual(*svdConvertStoD(*transposed), *svdTransposedDMat(*dense));
  expectEqual(*svdConvertStoD(*svdTransposedSMat(*transposed)), *dense);
}

TEST(SparseMatrix, EmptyAndFaultySizes) {
  auto empty = svdNewDMat(0, 5);
  ASSERT_TRUE(empty);
  auto sparse = svdConvertDtoS(*empty);
  ASSERT_TRUE(sparse);
  EXPECT_EQ(sparse->vals, 0);
  EXPECT_EQ(sparse->pointr.size(), 6u);

  ::testing::internal::CaptureStderr();
  EXPECT_EQ(svdNewDMat(-1, 3), nullptr);
  EXPECT_EQ(svdNewSMat(3, 3, -2), nullptr);
  EXPECT_EQ(svdNewDMat(1L << 40, 1L << 40), nullptr);
  const std::string messages = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(messages.find("svdNewDMat"), std::string::npos);
  EXPECT_NE(messages.find("svdNewSMat"), std::string::npos);
}

TEST(SparseMatrix, TruncatedRowsKeepTheirContents) {
  auto dense = randomSparseDense(3, 6, 4);
  std::vector<double> thirdRow((*dense)[2], (*dense)[2] + 4);
  dense->truncateRows(3);
  EXPECT_EQ(dense->rows, 3);
  EXPECT_EQ(std::vector<double>((*dense)[2], (*dense)[2] + 4), thirdRow);
}

}  // namespace
}  // namespace lumeo
