// The solver against LAPACK's dgesdd on the matrices the curve fit builds, and
// its edge cases: zero and wide matrices, a missing basis column, parameter
// faults and two threads at once.
#include "insight/svd_lanczos.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <thread>

#include "insight/fit_test_data.h"
#include "insight/lapack_reference.h"
#include "insight/spline_fit.h"

namespace lumeo {
namespace {

std::unique_ptr<SMat> sparseFromRows(long m, long n, const std::vector<double>& rows) {
  auto dense = svdNewDMat(m, n);
  for (long i = 0; i < m; ++i)
    for (long j = 0; j < n; ++j) (*dense)[i][j] = rows[static_cast<size_t>(i * n + j)];
  return svdConvertDtoS(*dense);
}

// Every reported triplet must be one of the reference's: the value to 1e-9
// relative, both vectors up to sign. Reported values come in descending order.
void expectMatchesReference(long m, long n, const std::vector<double>& rows, const SVDRec& rec,
                            const std::string& label) {
  const reference::Svd ref = reference::svd(m, n, rows);
  ASSERT_EQ(ref.info, 0);
  ASSERT_LE(rec.d, ref.k) << label;
  ASSERT_EQ(rec.leftVectors->rows, rec.d);
  ASSERT_EQ(rec.rightVectors->rows, rec.d);
  for (long j = 0; j < rec.d; ++j) {
    const double sigma = rec.singularValues[static_cast<size_t>(j)];
    if (j > 0) {
      EXPECT_LE(sigma, rec.singularValues[static_cast<size_t>(j - 1)]) << label;
    }
    long match = 0;
    for (long k = 1; k < ref.k; ++k)
      if (std::fabs(ref.s[static_cast<size_t>(k)] - sigma) <
          std::fabs(ref.s[static_cast<size_t>(match)] - sigma))
        match = k;
    const double expected = ref.s[static_cast<size_t>(match)];
    EXPECT_NEAR(sigma, expected, 1e-9 * expected) << label << " triplet " << j;
    // Vectors of a value that sits within the tolerance of another are not
    // unique; the fit data never has such pairs, but guard the comparison.
    double gap = INFINITY;
    for (long k = 0; k < ref.k; ++k)
      if (k != match) gap = std::min(gap, std::fabs(ref.s[static_cast<size_t>(k)] - expected));
    if (gap < 1e-6 * expected) continue;
    double right = 0.0;
    for (long k = 0; k < n; ++k)
      right += (*rec.rightVectors)[j][k] * ref.vt[static_cast<size_t>(match * n + k)];
    double left = 0.0;
    for (long i = 0; i < m; ++i)
      left += (*rec.leftVectors)[j][i] * ref.u[static_cast<size_t>(i * ref.k + match)];
    EXPECT_NEAR(std::fabs(right), 1.0, 1e-9) << label << " right vector " << j;
    EXPECT_NEAR(std::fabs(left), 1.0, 1e-9) << label << " left vector " << j;
    EXPECT_NEAR(right * left, std::fabs(right * left), 1e-9) << label << " signs of the pair " << j;
  }
}

void checkDesign(const testing::Samples& samples, long n, const std::string& label) {
  const long m = samples.size();
  const std::vector<double> rows = reference::designMatrix(m, samples.x.data(), n);
  auto sparse = sparseFromRows(m, n, rows);
  auto rec = svdLanczosAll(sparse.get(), 0);
  ASSERT_TRUE(rec) << label;
  ASSERT_GE(rec->d, 1) << label;
  expectMatchesReference(m, n, rows, *rec, label);
}

TEST(SvdLanczos, MatchesLapackOnRandomDesignMatrices) {
  for (long n : {10L, 14L}) {
    for (long m : {1L, 2L, 3L, 7L, 8L, 9L, 11L, 12L, 13L, 14L, 15L, 17L, 40L, 300L, 5000L, 100000L}) {
      checkDesign(testing::randomSamples(static_cast<unsigned>(m * 31 + n), m), n,
                  "m=" + std::to_string(m) + " n=" + std::to_string(n));
    }
  }
}

TEST(SvdLanczos, MatchesLapackOnJournalData) {
  using testing::Scale;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    for (int days : {3, 20, 400}) {
      const std::string label = "seed " + std::to_string(seed) + " days " + std::to_string(days);
      checkDesign(testing::journalSamples(seed, days, Scale::kTrend), 14, "trend " + label);
      checkDesign(testing::journalSamples(seed, days, Scale::kWeekly), 10, "weekly " + label);
      checkDesign(testing::journalSamples(seed, days, Scale::kDaily), 10, "daily " + label);
    }
  }
}

TEST(SvdLanczos, ReportsTheLargestTripletsInDescendingOrderWhenFewerAreAsked) {
  const testing::Samples samples = testing::randomSamples(7, 500);
  const std::vector<double> rows = reference::designMatrix(500, samples.x.data(), 14);
  auto sparse = sparseFromRows(500, 14, rows);
  auto all = svdLanczosAll(sparse.get(), 0);
  auto three = svdLanczosAll(sparse.get(), 3);
  ASSERT_TRUE(all && three);
  ASSERT_EQ(three->d, 3);
  for (long j = 0; j < 3; ++j)
    EXPECT_NEAR(three->singularValues[static_cast<size_t>(j)], all->singularValues[static_cast<size_t>(j)],
                1e-9 * all->singularValues[0]);
}

TEST(SvdLanczos, GeneralSparseMatrixGivesItsLargestTriplets) {
  // Beyond the fit: a sparse random matrix, a few triplets wanted, with and
  // without a cap on the Lanczos steps. Whatever is reported is the top of
  // the spectrum, in order.
  std::mt19937 rng(3);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> normal;
  const long m = 200;
  const long n = 120;
  std::vector<double> rows(static_cast<size_t>(m * n), 0.0);
  for (double& v : rows)
    if (unit(rng) < 0.08) v = normal(rng);
  auto sparse = sparseFromRows(m, n, rows);
  const reference::Svd ref = reference::svd(m, n, rows);
  const double end[2] = {-1e-30, 1e-30};
  for (long iterations : {0L, 30L}) {
    auto rec = svdLanczos(sparse.get(), 5, iterations, end, 1e-6);
    ASSERT_TRUE(rec);
    ASSERT_GE(rec->d, 1);
    ASSERT_LE(rec->d, 5);
    if (iterations == 0) {
      EXPECT_EQ(rec->d, 5);
    }
    for (long j = 0; j < rec->d; ++j)
      EXPECT_NEAR(rec->singularValues[static_cast<size_t>(j)], ref.s[static_cast<size_t>(j)],
                  1e-9 * ref.s[static_cast<size_t>(j)]);
  }
}

TEST(SvdLanczos, GramEntryRunsTheSameDecomposition) {
  for (long m : {12L, 100L, 20000L}) {
    const testing::Samples samples = testing::randomSamples(static_cast<unsigned>(m), m);
    const std::vector<double> rows = reference::designMatrix(m, samples.x.data(), 14);
    std::vector<double> gram(14 * 14, 0.0);
    for (long i = 0; i < m; ++i)
      for (long a = 0; a < 14; ++a)
        for (long b = 0; b < 14; ++b)
          gram[static_cast<size_t>(a * 14 + b)] +=
              rows[static_cast<size_t>(i * 14 + a)] * rows[static_cast<size_t>(i * 14 + b)];
    auto sparse = sparseFromRows(m, 14, rows);
    auto fromSparse = svdLanczosAll(sparse.get(), 0);
    auto fromGram = svdLanczosGram(m, 14, gram.data(), 0);
    ASSERT_TRUE(fromSparse && fromGram);
    EXPECT_EQ(fromGram->leftVectors, nullptr);
    ASSERT_EQ(fromGram->d, fromSparse->d) << m;
    for (long j = 0; j < fromGram->d; ++j)
      EXPECT_NEAR(fromGram->singularValues[static_cast<size_t>(j)],
                  fromSparse->singularValues[static_cast<size_t>(j)], 1e-10 * fromSparse->singularValues[0]);
  }
}

TEST(SvdLanczos, RunsAfterOthersGiveTheSameResults) {
  // The work space and the vector store are kept from run to run; nothing of
  // an earlier run, small or large, may reach a later one.
  const testing::Samples small = testing::journalSamples(21, 60, testing::Scale::kTrend);
  const std::vector<double> smallRows = reference::designMatrix(small.size(), small.x.data(), 14);
  auto smallMatrix = sparseFromRows(small.size(), 14, smallRows);
  auto first = svdLanczosAll(smallMatrix.get(), 0);
  ASSERT_TRUE(first);

  const testing::Samples cycle = testing::journalSamples(22, 400, testing::Scale::kDaily);
  auto cycleMatrix =
      sparseFromRows(cycle.size(), 10, reference::designMatrix(cycle.size(), cycle.x.data(), 10));
  ASSERT_TRUE(svdLanczosAll(cycleMatrix.get(), 3));
  // Wide enough to give its memory back at the end of the run.
  const long wide = 70000;
  const testing::Samples many = testing::randomSamples(23, wide);
  auto manyMatrix = sparseFromRows(wide, 14, reference::designMatrix(wide, many.x.data(), 14));
  ASSERT_TRUE(svdLanczosAll(manyMatrix.get(), 0));
  auto zero = svdNewSMat(20, 14, 0);
  ASSERT_TRUE(svdLanczosAll(zero.get(), 0));

  auto again = svdLanczosAll(smallMatrix.get(), 0);
  ASSERT_TRUE(again);
  ASSERT_EQ(again->d, first->d);
  for (long j = 0; j < first->d; ++j) {
    EXPECT_EQ(again->singularValues[static_cast<size_t>(j)], first->singularValues[static_cast<size_t>(j)])
        << j;
    for (long k = 0; k < 14; ++k) EXPECT_EQ((*again->rightVectors)[j][k], (*first->rightVectors)[j][k]) << j;
  }
  expectMatchesReference(small.size(), 14, smallRows, *again, "again");
}

TEST(SvdLanczos, ZeroMatrixGivesNoTripletsAndFlagsTheStartVector) {
  auto zero = svdNewSMat(20, 10, 0);
  auto rec = svdLanczosAll(zero.get(), 0);
  ASSERT_TRUE(rec);
  EXPECT_EQ(rec->d, 0);
  EXPECT_EQ(svdErrorFlag(), 8192);

  // The flag belongs to one run: the next good matrix clears it.
  const testing::Samples samples = testing::randomSamples(3, 50);
  const std::vector<double> rows = reference::designMatrix(50, samples.x.data(), 10);
  auto good = sparseFromRows(50, 10, rows);
  ASSERT_TRUE(svdLanczosAll(good.get(), 0));
  EXPECT_EQ(svdErrorFlag(), 0);
}

TEST(SvdLanczos, WideAndSquareMatrices) {
  // One sample with n = 14 is a 1 x 14 matrix: decomposed through its
  // transpose, one triplet, left vector of one entry, right vector of 14.
  const double x = 3.25;
  const std::vector<double> row = reference::designMatrix(1, &x, 14);
  auto single = sparseFromRows(1, 14, row);
  auto rec = svdLanczosAll(single.get(), 0);
  ASSERT_TRUE(rec);
  ASSERT_EQ(rec->d, 1);
  EXPECT_EQ(rec->leftVectors->cols, 1);
  EXPECT_EQ(rec->rightVectors->cols, 14);
  double norm = 0.0;
  for (double v : row) norm += v * v;
  EXPECT_NEAR(rec->singularValues[0], std::sqrt(norm), 1e-12);
  EXPECT_NEAR(std::fabs((*rec->leftVectors)[0][0]), 1.0, 1e-12);

  // Square: no transposition, vectors in their own places.
  std::mt19937 rng(5);
  std::normal_distribution<double> normal;
  std::vector<double> square(14 * 14);
  for (double& v : square) v = normal(rng);
  auto sparse = sparseFromRows(14, 14, square);
  auto squareRec = svdLanczosAll(sparse.get(), 0);
  ASSERT_TRUE(squareRec);
  expectMatchesReference(14, 14, square, *squareRec, "square");

  // A general wide matrix.
  std::vector<double> wide(6 * 40);
  for (double& v : wide) v = normal(rng);
  auto wideSparse = sparseFromRows(6, 40, wide);
  auto wideRec = svdLanczosAll(wideSparse.get(), 0);
  ASSERT_TRUE(wideRec);
  EXPECT_EQ(wideRec->leftVectors->cols, 6);
  EXPECT_EQ(wideRec->rightVectors->cols, 40);
  expectMatchesReference(6, 40, wide, *wideRec, "wide");
}

TEST(SvdLanczos, ZeroColumnLowersTheRank) {
  // On the open time line no sample reaches basis 10: its column is zero and
  // at most 13 triplets exist.
  const testing::Samples samples = testing::randomSamples(11, 2000);
  const std::vector<double> rows = reference::designMatrix(2000, samples.x.data(), 14);
  auto sparse = sparseFromRows(2000, 14, rows);
  EXPECT_EQ(sparse->pointr[11] - sparse->pointr[10], 0);
  auto rec = svdLanczosAll(sparse.get(), 0);
  ASSERT_TRUE(rec);
  EXPECT_LE(rec->d, 13);
  EXPECT_GE(rec->d, 1);
  for (long j = 0; j < rec->d; ++j) EXPECT_NEAR((*rec->rightVectors)[j][10], 0.0, 1e-9);
  expectMatchesReference(2000, 14, rows, *rec, "zero column");
}

TEST(SvdLanczos, ParameterFaultsAreReportedAndGiveNull) {
  auto matrix = svdNewSMat(5, 4, 0);
  const double reversed[2] = {1.0, -1.0};
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(svdLanczos(matrix.get(), 0, 0, reversed, 1e-6), nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "svdLanczos parameter error: ENDL MUST BE LESS THAN ENDR\n");

  auto empty = svdNewSMat(0, 4, 0);
  const double end[2] = {-1e-30, 1e-30};
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(svdLanczos(empty.get(), 0, 0, end, 1e-6), nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "svdLanczos parameter error: ONE OF YOUR DIMENSIONS IS LESS THAN OR EQUAL TO ZERO\n");

  ::testing::internal::CaptureStderr();
  EXPECT_EQ(svdLanczosAll(nullptr, 0), nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "svdLanczosAll called with NULL array\n");

  // The Gram entry refuses a wide matrix instead of decomposing the wrong one.
  std::vector<double> gram(14 * 14, 1.0);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(svdLanczosGram(5, 14, gram.data(), 0), nullptr);
  EXPECT_NE(::testing::internal::GetCapturedStderr(), "");
}

TEST(SvdLanczos, ConcurrentCallersWaitForEachOther) {
  const testing::Samples a = testing::randomSamples(21, 3000);
  const testing::Samples b = testing::randomSamples(22, 17);
  auto sparseA = sparseFromRows(3000, 14, reference::designMatrix(3000, a.x.data(), 14));
  auto sparseB = sparseFromRows(17, 10, reference::designMatrix(17, b.x.data(), 10));
  auto expectedA = svdLanczosAll(sparseA.get(), 0);
  auto expectedB = svdLanczosAll(sparseB.get(), 0);

  auto hammer = [](const SMat* matrix, const SVDRec* expected, int rounds, int* failures) {
    for (int i = 0; i < rounds; ++i) {
      auto rec = svdLanczosAll(matrix, 0);
      if (!rec || rec->d != expected->d || rec->singularValues != expected->singularValues) ++*failures;
    }
  };
  int failuresA = 0;
  int failuresB = 0;
  std::thread first(hammer, sparseA.get(), expectedA.get(), 40, &failuresA);
  std::thread second(hammer, sparseB.get(), expectedB.get(), 200, &failuresB);
  first.join();
  second.join();
  EXPECT_EQ(failuresA, 0);
  EXPECT_EQ(failuresB, 0);
}

}  // namespace
}  // namespace lumeo
