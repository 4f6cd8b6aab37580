// Speed of the whole curve-and-band fit (centred fit, residuals, residual
// fit, 100-point grid) against two peers run in the same process: LAPACK's
// dgelsd solving the same truncated least-squares problems on the dense design
// matrix, and one streaming pass over the samples, the floor for anything
// that reads them. The long way through the sparse matrix and the solver's
// left vectors is measured too, to show what the one-pass Gram matrix saves.
// At the end a table gives the ratios.
#include <benchmark/benchmark.h>
#include <lapacke.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "insight/dense_matrix.h"
#include "insight/sparse_matrix.h"
#include "insight/spline_fit.h"
#include "insight/svd_lanczos.h"

namespace {

using namespace lumeo;

struct Samples {
  std::vector<double> x;
  std::vector<double> y;
};

// Journal-like samples in time order: positions on the open time line
// increase, the level drifts by a step now and then.
const Samples& samplesFor(long m, bool cycle) {
  static std::map<std::pair<long, bool>, Samples> cache;
  auto found = cache.find({m, cycle});
  if (found != cache.end()) return found->second;
  std::mt19937_64 rng(static_cast<uint64_t>(m) * 7 + cycle);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  Samples s;
  s.x.resize(static_cast<size_t>(m));
  s.y.resize(static_cast<size_t>(m));
  for (auto& x : s.x) x = unit(rng);
  std::sort(s.x.begin(), s.x.end());
  int level = 6;
  for (long i = 0; i < m; ++i) {
    const double t = s.x[static_cast<size_t>(i)];
    // A cycle wraps many times over the journal; the trend sees it once.
    s.x[static_cast<size_t>(i)] = cycle ? 10.0 * std::fmod(t * 300.0, 1.0) : 10.0 * t;
    level = std::clamp(level + static_cast<int>(std::floor(unit(rng) * 3.0)) - 1, 1, 10);
    s.y[static_cast<size_t>(i)] = (level - 0.5) / 10.0;
  }
  return cache.emplace(std::make_pair(m, cycle), std::move(s)).first->second;
}

void fillGrid(long n, const double* c, double mean, const double* c2, double* curve, double* width) {
  double x = 0.0;
  for (int i = 0; i < kSplineGridPoints; ++i) {
    curve[i] = splineEval(n, c, x, mean);
    width[i] = splineBandHalfWidth(splineEval(n, c2, x, 0.0));
    x += kSplineGridStep;
  }
}

void BM_Band(benchmark::State& state, bool cycle) {
  const long m = state.range(0);
  const long n = cycle ? 10 : 14;
  const Samples& s = samplesFor(m, cycle);
  for (auto _ : state) {
    SplineBand band = splineBand(m, s.x.data(), s.y.data(), n);
    benchmark::DoNotOptimize(band.halfWidth[50]);
  }
  state.SetItemsProcessed(state.iterations() * m);
}

// The peer: dense column-major design matrix, dgelsd with rcond 0.2 (values
// at or below 0.2 · s₀ count as zero, the fit's truncation), twice.
void BM_LapackDgelsd(benchmark::State& state) {
  const long m = state.range(0);
  const long n = 14;
  const Samples& s = samplesFor(m, false);
  const lapack_int rows = static_cast<lapack_int>(m);
  for (auto _ : state) {
    std::vector<double> a(static_cast<size_t>(m * n));
    for (long j = 0; j < n; ++j)
      for (long i = 0; i < m; ++i)
        a[static_cast<size_t>(j * m + i)] =
            splineBump(n, s.x[static_cast<size_t>(i)] - static_cast<double>(j));
    std::vector<double> design(a);  // dgelsd overwrites its matrix
    double mean = 0.0;
    for (double y : s.y) mean += y;
    mean /= static_cast<double>(m);
    std::vector<double> b(static_cast<size_t>(std::max(m, n)));
    for (long i = 0; i < m; ++i) b[static_cast<size_t>(i)] = s.y[static_cast<size_t>(i)] - mean;
    std::vector<double> sv(static_cast<size_t>(n));
    lapack_int rank = 0;
    LAPACKE_dgelsd(LAPACK_COL_MAJOR, rows, n, 1, a.data(), rows, b.data(), rows, sv.data(), 0.2, &rank);
    std::vector<double> c(b.begin(), b.begin() + n);

    std::vector<double> r(static_cast<size_t>(std::max(m, n)));
    for (long i = 0; i < m; ++i) {
      double f = mean;
      for (long j = 0; j < n; ++j) f += design[static_cast<size_t>(j * m + i)] * c[static_cast<size_t>(j)];
      r[static_cast<size_t>(i)] = std::fabs(s.y[static_cast<size_t>(i)] - f);
    }
    LAPACKE_dgelsd(LAPACK_COL_MAJOR, rows, n, 1, design.data(), rows, r.data(), rows, sv.data(), 0.2, &rank);
    double curve[kSplineGridPoints];
    double width[kSplineGridPoints];
    fillGrid(n, c.data(), mean, r.data(), curve, width);
    benchmark::DoNotOptimize(width[50]);
  }
  state.SetItemsProcessed(state.iterations() * m);
}

// The long way: dense matrix, sparse copy, full decomposition with left
// vectors, once for each of the two fits.
long sparseRouteFit(long m, const double* x, const double* y, long n, double* coefficients) {
  std::fill(coefficients, coefficients + n, 0.0);
  auto dense = svdNewDMat(m, n);
  for (long i = 0; i < m; ++i)
    for (long j = 0; j < n; ++j) (*dense)[i][j] = splineBump(n, x[i] - static_cast<double>(j));
  auto sparse = svdConvertDtoS(*dense);
  dense.reset();
  auto rec = svdLanczosAll(sparse.get(), 0);
  long kept = 0;
  for (long j = 0; j < rec->d; ++j) {
    const double sigma = rec->singularValues[static_cast<size_t>(j)];
    if (!(sigma > 0.2 * rec->singularValues[0])) continue;
    ++kept;
    double uy = 0.0;
    for (long i = 0; i < m; ++i) uy += (*rec->leftVectors)[j][i] * y[i];
    for (long k = 0; k < n; ++k) coefficients[k] += (*rec->rightVectors)[j][k] * uy / sigma;
  }
  return kept;
}

void BM_SparseRoute(benchmark::State& state) {
  const long m = state.range(0);
  const long n = 14;
  const Samples& s = samplesFor(m, false);
  for (auto _ : state) {
    double mean = 0.0;
    for (double y : s.y) mean += y;
    mean /= static_cast<double>(m);
    std::vector<double> centred(s.y);
    for (double& v : centred) v -= mean;
    std::vector<double> c(static_cast<size_t>(n));
    std::vector<double> c2(static_cast<size_t>(n));
    sparseRouteFit(m, s.x.data(), centred.data(), n, c.data());
    std::vector<double> r(static_cast<size_t>(m));
    for (long i = 0; i < m; ++i)
      r[static_cast<size_t>(i)] =
          std::fabs(s.y[static_cast<size_t>(i)] - splineEval(n, c.data(), s.x[static_cast<size_t>(i)], mean));
    sparseRouteFit(m, s.x.data(), r.data(), n, c2.data());
    double curve[kSplineGridPoints];
    double width[kSplineGridPoints];
    fillGrid(n, c.data(), mean, c2.data(), curve, width);
    benchmark::DoNotOptimize(width[50]);
  }
  state.SetItemsProcessed(state.iterations() * m);
}

// The floor: read every x and y once, with enough independent sums that the
// loads, not the additions, set the pace.
void BM_StreamingPass(benchmark::State& state) {
  const long m = state.range(0);
  const Samples& s = samplesFor(m, false);
  const double* x = s.x.data();
  const double* y = s.y.data();
  for (auto _ : state) {
    double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
    long i = 0;
    for (; i + 1 < m; i += 2) {
      s0 += x[i];
      s1 += y[i];
      s2 += x[i + 1];
      s3 += y[i + 1];
    }
    for (; i < m; ++i) s0 += x[i] + y[i];
    benchmark::DoNotOptimize(s0 + s1 + s2 + s3);
  }
  state.SetItemsProcessed(state.iterations() * m);
}

void sizes(benchmark::internal::Benchmark* b) {
  for (long m : {1000L, 10000L, 100000L, 1000000L}) b->Arg(m);
  b->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(BM_Band, trend14, false)->Apply(sizes);
BENCHMARK_CAPTURE(BM_Band, weekly10, true)->Apply(sizes);
BENCHMARK(BM_LapackDgelsd)->Apply(sizes);
BENCHMARK(BM_SparseRoute)->Apply(sizes);
BENCHMARK(BM_StreamingPass)->Apply(sizes);

// Console output plus a table of ratios per sample count.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      const std::string name = run.benchmark_name();
      const size_t slash = name.rfind('/');
      const long m = std::stol(name.substr(slash + 1));
      // CPU time: the machine is shared, and wall time counts the waits.
      times_[m][name.substr(0, slash)] = run.cpu_accumulated_time / static_cast<double>(run.iterations);
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    printf("\n%9s %12s %12s %12s %12s %10s %10s %10s\n", "m", "band us", "dgelsd us", "sparse us", "floor us",
           "band/lapk", "band/floor", "sparse/band");
    for (const auto& [m, t] : times_) {
      auto get = [&](const char* key) {
        auto it = t.find(key);
        return it == t.end() ? NAN : it->second * 1e6;
      };
      const double band = get("BM_Band/trend14");
      const double lapack = get("BM_LapackDgelsd");
      const double sparse = get("BM_SparseRoute");
      const double floor = get("BM_StreamingPass");
      printf("%9ld %12.1f %12.1f %12.1f %12.2f %10.4f %10.2f %10.1f\n", m, band, lapack, sparse, floor,
             band / lapack, band / floor, sparse / band);
    }
  }

 private:
  std::map<long, std::map<std::string, double>> times_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
