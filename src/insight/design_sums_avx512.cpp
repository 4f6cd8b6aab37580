// The curve fit's pass kernels for processors with AVX-512: groups of eight
// samples, with the ten sums of a run held in eight-lane registers (there are
// 32 of them, so nothing spills) and a group's interval test made in mask
// registers. A run on the open time line spans hundreds of samples, so the
// few samples at each interval's end that go alone cost little. The build
// compiles this file alone for that instruction set; design_sums.cpp only
// calls into it after asking the processor.
#include "insight/design_kernels.h"

#if defined(__AVX512F__)
#include <immintrin.h>
#endif

namespace lumeo::design {

#if defined(__AVX512F__)

namespace {

struct Avx512Lanes {
  typedef double V __attribute__((vector_size(64)));

  static LUMEO_INLINE bool allInside(const V& tau) {
    const __m512d t = reinterpret_cast<__m512d>(tau);
    const __mmask8 low = _mm512_cmp_pd_mask(t, _mm512_set1_pd(-0.5), _CMP_GE_OQ);
    const __mmask8 high = _mm512_cmp_pd_mask(t, _mm512_set1_pd(0.5), _CMP_LT_OQ);
    return (low & high) == 0xFF;
  }
};

bool gather(const double* x, const double* y, long count, long n, double shift, double* local) {
  return gatherKernel<Avx512Lanes>(x, y, count, n, shift, local);
}

void residual(const double* x, const double* y, long count, long n, const double* cubic, double* local) {
  residualKernel<Avx512Lanes>(x, y, count, n, cubic, local);
}

const Kernels kAvx512{gather, residual};

}  // namespace

const Kernels* avx512Kernels() {
  return &kAvx512;
}

#else

const Kernels* avx512Kernels() {
  return nullptr;
}

#endif

}  // namespace lumeo::design
