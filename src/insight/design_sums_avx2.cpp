// The curve fit's pass kernels for processors with AVX2 and FMA: groups of
// four samples, and a group's interval test read with one mask move. The
// build compiles this file alone for that instruction set; design_sums.cpp
// only calls into it after asking the processor.
#include "insight/design_kernels.h"

#if defined(__AVX2__) && defined(__FMA__)
#include <immintrin.h>
#endif

namespace lumeo::design {

#if defined(__AVX2__) && defined(__FMA__)

namespace {

struct Avx2Lanes {
  typedef double V __attribute__((vector_size(32)));

  static LUMEO_INLINE bool allInside(const V& tau) {
    const __m256d t = reinterpret_cast<__m256d>(tau);
    const __m256d inside = _mm256_and_pd(_mm256_cmp_pd(t, _mm256_set1_pd(-0.5), _CMP_GE_OQ),
                                         _mm256_cmp_pd(t, _mm256_set1_pd(0.5), _CMP_LT_OQ));
    return _mm256_movemask_pd(inside) == 0xF;
  }
};

bool gather(const double* x, const double* y, long count, long n, double shift, double* local) {
  return gatherKernel<Avx2Lanes>(x, y, count, n, shift, local);
}

void residual(const double* x, const double* y, long count, long n, const double* cubic, double* local) {
  residualKernel<Avx2Lanes>(x, y, count, n, cubic, local);
}

const Kernels kAvx2{gather, residual};

}  // namespace

const Kernels* avx2Kernels() {
  return &kAvx2;
}

#else

const Kernels* avx2Kernels() {
  return nullptr;
}

#endif

}  // namespace lumeo::design
