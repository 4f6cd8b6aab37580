// The solver's process-wide state and the routines that manage it: the
// arithmetic probe, the start-vector generator, the Gram matrix of a sparse
// matrix, and the store of Lanczos vectors.
#include "insight/lanczos_workspace.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace lumeo::lanczos {

double eps = 0.0;
double epsN = 0.0;
double rootEps = 0.0;
double epsThreeQuarters = 0.0;
long ierr = 0;
std::vector<std::vector<double>> lanczosStore;
std::vector<char> lanczosStored;
std::vector<double> normalProductTemp;
long productCount = 0;

void reportError(bool fatal, const std::string& message) {
  fprintf(stderr, "\aERROR: %s\n", message.c_str());
  if (fatal) exit(1);
}

bool allocate(std::vector<double>& array, long count, const char* tag) {
  try {
    array.assign(static_cast<size_t>(count), 0.0);
    return true;
  } catch (const std::exception&) {
    errno = ENOMEM;
    perror(tag);
    return false;
  }
}

namespace {

// The classic probe of the floating-point arithmetic: find the radix from the
// spacing of large numbers, then the smallest power of the radix that still
// changes 1 when added to it. On IEEE doubles that is 2^-52.
double probeEpsilon() {
  volatile double a = 1.0;
  volatile double b = 0.0;
  volatile double c = 0.0;
  do {
    a = a + a;
    b = a + 1.0;
    c = b - a;
  } while (c - 1.0 == 0.0);
  volatile double step = 1.0;
  double radix = 0.0;
  do {
    step = step + step;
    b = a + step;
    radix = b - a;
  } while (radix == 0.0);
  volatile double e = 1.0;
  for (;;) {
    volatile double smaller = e / radix;
    volatile double sum = 1.0 + smaller;
    if (sum == 1.0) break;
    e = smaller;
  }
  return e;
}

}  // namespace

// The arithmetic does not change while the program runs, so it is probed
// once; the constants that depend on n are set on every run.
void measureMachine(long n) {
  static const double measured = probeEpsilon();
  eps = measured;
  epsN = eps * std::sqrt(static_cast<double>(n));
  rootEps = std::sqrt(eps);
  epsThreeQuarters = rootEps * std::sqrt(rootEps);
}

// The fixed linear congruence behind the start vectors. It runs on a 64-bit
// seed with wrap-around, so after the first draw the values are large and of
// either sign; only the direction of the vector matters, and it is the same on
// every run and every machine.
double randomValue(int64_t& seed) {
  constexpr uint64_t kTwo31 = 2147483648ULL;
  uint64_t iy = static_cast<uint64_t>(seed) * 843314861ULL;
  if (static_cast<int64_t>(iy) > 1693666955) iy -= kTwo31;
  iy += 453816693ULL;
  if (static_cast<int64_t>(iy) >= 2147483650LL) iy -= kTwo31;
  if (static_cast<int64_t>(iy) < 0) iy += kTwo31;
  seed = static_cast<int64_t>(iy);
  return static_cast<double>(seed) * 4.656612873077392578125e-10;  // 2^-31
}

// AᵀA of a column-compressed matrix: scatter one column into a dense scratch
// vector, then dot it with every later column.
std::vector<double> gramOf(const SMat& a, std::vector<double>& scratch) {
  const long n = a.cols;
  std::vector<double> gram(static_cast<size_t>(n * n), 0.0);
  for (long j = 0; j < n; ++j) {
    for (long k = a.pointr[j]; k < a.pointr[j + 1]; ++k) scratch[a.rowind[k]] = a.value[k];
    for (long l = j; l < n; ++l) {
      double sum = 0.0;
      for (long k = a.pointr[l]; k < a.pointr[l + 1]; ++k) sum += a.value[k] * scratch[a.rowind[k]];
      gram[j * n + l] = sum;
      gram[l * n + j] = sum;
    }
    for (long k = a.pointr[j]; k < a.pointr[j + 1]; ++k) scratch[a.rowind[k]] = 0.0;
  }
  return gram;
}

// The Lanczos vector store: q_j at slot j + 2, p_0 and p_1 at slots 0 and 1.
// Slots are allocated on first use, one for each step actually made.
void store(long n, int code, long j, double* s) {
  switch (code) {
    case kStoreQ: {
      auto& slot = lanczosStore[static_cast<size_t>(j + kMaxLL)];
      if (!lanczosStored[static_cast<size_t>(j + kMaxLL)]) {
        try {
          slot.resize(static_cast<size_t>(n));
        } catch (const std::exception&) {
          reportError(true,
                      "svdLanczos: failed to allocate lanczosStore[" + std::to_string(j + kMaxLL) + "]");
        }
        lanczosStored[static_cast<size_t>(j + kMaxLL)] = 1;
      }
      copy(n, s, slot.data());
      break;
    }
    case kRetrieveQ: {
      const auto& slot = lanczosStore[static_cast<size_t>(j + kMaxLL)];
      if (!lanczosStored[static_cast<size_t>(j + kMaxLL)]) {
        reportError(false, "svdLanczos: store (RETRQ) called on index " + std::to_string(j + kMaxLL) +
                               " (not allocated)");
        break;
      }
      copy(n, slot.data(), s);
      break;
    }
    case kStoreP: {
      if (j >= kMaxLL) {
        reportError(false, "svdLanczos: store (STORP) called with j >= MAXLL");
        break;
      }
      auto& slot = lanczosStore[static_cast<size_t>(j)];
      if (!lanczosStored[static_cast<size_t>(j)]) {
        try {
          slot.resize(static_cast<size_t>(n));
        } catch (const std::exception&) {
          reportError(true, "svdLanczos: failed to allocate lanczosStore[" + std::to_string(j) + "]");
        }
        lanczosStored[static_cast<size_t>(j)] = 1;
      }
      copy(n, s, slot.data());
      break;
    }
    case kRetrieveP: {
      if (j >= kMaxLL) {
        reportError(false, "svdLanczos: store (RETRP) called with j >= MAXLL");
        break;
      }
      const auto& slot = lanczosStore[static_cast<size_t>(j)];
      if (!lanczosStored[static_cast<size_t>(j)]) {
        reportError(false,
                    "svdLanczos: store (RETRP) called on index " + std::to_string(j) + " (not allocated)");
        break;
      }
      copy(n, slot.data(), s);
      break;
    }
    default:
      break;
  }
}

// Read-only view of a stored q, to spare a copy in the inner loops.
const double* storedQ(long j) {
  const auto& slot = lanczosStore[static_cast<size_t>(j + kMaxLL)];
  if (!lanczosStored[static_cast<size_t>(j + kMaxLL)]) {
    reportError(
        true, "svdLanczos: store (RETRQ) called on index " + std::to_string(j + kMaxLL) + " (not allocated)");
  }
  return slot.data();
}

const double* storedP(long j) {
  if (j < 0 || j >= kMaxLL || !lanczosStored[static_cast<size_t>(j)]) {
    reportError(true, "svdLanczos: store (RETRP) called on index " + std::to_string(j) + " (not allocated)");
  }
  return lanczosStore[static_cast<size_t>(j)].data();
}

bool resetStore(long iterations) {
  try {
    const auto slots = static_cast<size_t>(iterations + kMaxLL);
    if (lanczosStore.size() < slots) lanczosStore.resize(slots);
    lanczosStored.assign(slots, 0);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

namespace {

// Memory kept between runs, in doubles; a fit of 14 columns needs a few
// hundred.
constexpr size_t kKeptDoubles = size_t{1} << 16;

size_t heldDoubles(const std::vector<double>& v) {
  return v.capacity();
}

void giveBack(std::vector<double>& v) {
  v.clear();
  v.shrink_to_fit();
}

}  // namespace

void releaseState() {
  lanczosStored.clear();
  size_t held = heldDoubles(normalProductTemp);
  for (const auto& slot : lanczosStore) held += heldDoubles(slot);
  Workspace& ws = sharedWorkspace();
  for (const auto& v : ws.wptr) held += heldDoubles(v);
  held += heldDoubles(ws.ritz) + heldDoubles(ws.bnd) + heldDoubles(ws.eigenvectors) +
          heldDoubles(ws.paddedGram) + heldDoubles(ws.rotated);
  if (held <= kKeptDoubles) return;
  lanczosStore.clear();
  lanczosStore.shrink_to_fit();
  giveBack(normalProductTemp);
  for (auto& v : ws.wptr) giveBack(v);
  giveBack(ws.ritz);
  giveBack(ws.bnd);
  giveBack(ws.eigenvectors);
  giveBack(ws.paddedGram);
  giveBack(ws.rotated);
}

Workspace& sharedWorkspace() {
  static Workspace workspace;
  return workspace;
}

bool Workspace::allocate(long n, long iterations) {
  static const char* const kTags[10] = {
      "lanczos: wptr[0]", "lanczos: wptr[1]", "lanczos: wptr[2]", "lanczos: wptr[3]", "lanczos: wptr[4]",
      "lanczos: wptr[5]", "lanczos: wptr[6]", "lanczos: wptr[7]", "lanczos: wptr[8]", "lanczos: wptr[9]"};
  for (int i = 0; i < 6; ++i)
    if (!lanczos::allocate(wptr[i], n, kTags[i])) return false;
  for (int i = 6; i < 9; ++i)
    if (!lanczos::allocate(wptr[i], iterations, kTags[i])) return false;
  if (!lanczos::allocate(wptr[9], iterations + 1, kTags[9])) return false;
  if (!lanczos::allocate(ritz, iterations + 1, "lanczos: ritz")) return false;
  if (!lanczos::allocate(bnd, iterations + 1, "lanczos: bnd")) return false;
  if (!lanczos::allocate(eigenvectors, (iterations + 1) * (iterations + 1), "ritzVectors: s")) return false;
  // Every byte 127: a huge positive bound that no convergence test passes.
  std::memset(bnd.data(), 127, bnd.size() * sizeof(double));
  return true;
}

}  // namespace lumeo::lanczos
