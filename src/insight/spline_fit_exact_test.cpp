// The fit is bit-identical on every machine: synced devices draw the same
// curve from the same records, and which singular triplets converge depends
// on the last bits of the sums. Fixed inputs (made with integer arithmetic
// only, so that no library's random distribution enters) must give exactly
// the coefficients in the table below, checked in from an x86-64 build;
// an ARM64 build must match them bit for bit.
//
// After a deliberate change to the numerics, regenerate the table with
//   LUMEO_PRINT_FIT_TABLE=1 build/src/insight/insight_tests --gtest_filter='SplineFitExact.*'
// and say in the commit why the curves moved.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "insight/spline_fit.h"

namespace lumeo {
namespace {

struct Input {
  const char* name;
  long m;
  long n;
  bool cycle;
};

// Positions on 0..10 (sorted, as a journal comes) and levels 1..10
// normalised, from a 64-bit linear congruence; divisions by powers of ten
// and of two are correctly rounded everywhere.
void makeSamples(const Input& input, std::vector<double>& x, std::vector<double>& y) {
  std::uint64_t state = 0x2545F4914F6CDD1DULL ^ static_cast<std::uint64_t>(input.m * 31 + input.n);
  auto next = [&state] {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return state >> 33;
  };
  x.clear();
  y.clear();
  long level = 6;
  for (long i = 0; i < input.m; ++i) {
    x.push_back(static_cast<double>(next() % 100000) / 10000.0);
    level += static_cast<long>(next() % 3) - 1;
    level = std::clamp(level, 1L, 10L);
    y.push_back((static_cast<double>(level) - 0.5) / 10.0);
  }
  if (!input.cycle) std::sort(x.begin(), x.end());
}

constexpr Input kInputs[] = {
    {"trend 2000", 2000, 14, false},
    {"weekly 700", 700, 10, true},
    {"trend 40", 40, 14, false},
    {"few 6", 6, 14, false},
};

struct Expected {
  long count;
  std::uint64_t mean;
  std::uint64_t coefficients[14];
  std::uint64_t spread[14];
  std::uint64_t curveAt[3];  // grid points 0, 50 and 99
};

// clang-format off
constexpr Expected kExpected[] = {
    {11, 0x3fe18adab9f559ceULL,
     {0x3fac6b5464789e5eULL, 0xbfafcf2a6e33761aULL, 0x3fba95179dd62751ULL, 0x3f75b6ad3ec401fcULL, 0x3fa16bdc3bbda62eULL, 0xbfa6142c073d7adbULL, 0xbf66c25c053223a8ULL, 0x3f67e5861e7fe798ULL, 0xbfba6a5c46b5d1eaULL, 0xbf8ec4e2b0531ddcULL, 0x0000000000000000ULL, 0x3f81875d690e7582ULL, 0x3f8b426fd21ed95aULL, 0xbfab4d70138cad5bULL},
     {0x3f875bb3d19d9dc8ULL, 0x3fb0dc3135b57bf6ULL, 0x3f52fcd98d8252e0ULL, 0x3fa758bf81c2481fULL, 0x3f945c64ad570452ULL, 0x3faf270ef98ab3f5ULL, 0x3f9ebe967066b496ULL, 0x3fa79baa4101e6b2ULL, 0x3f73563a1b9e6f58ULL, 0xbf60f4364395809bULL, 0x0000000000000000ULL, 0xbf0e420e02d50500ULL, 0x3f96cc63ec010587ULL, 0x3fa9949ee5f8f73eULL},
     {0x3fe1d0482b82b664ULL, 0x3fe653058dc42a98ULL, 0x3fbf93f48fbd2250ULL}},  // trend 2000
    {10, 0x3fe0e1dd7a0095cbULL,
     {0xbf8bcc8a4f93f7daULL, 0x3f8c223a8e636ac6ULL, 0x3f5924870498bcf4ULL, 0x3f59c99e6a6ffeb0ULL, 0x3f3f90f662f704a0ULL, 0xbf68e4f55af19756ULL, 0xbf8c2e486a137459ULL, 0x3f85d32fbd890952ULL, 0xbf809e8ca9d6cbf9ULL, 0x3f87c283ce443d59ULL, 0x0000000000000000ULL, 0x0000000000000000ULL, 0x0000000000000000ULL, 0x0000000000000000ULL},
     {0x3fa8619fa1614a3eULL, 0x3fa1571adc2feff8ULL, 0x3fa2ceffebf88338ULL, 0x3fa1f9f585b6d6f0ULL, 0x3fa72452b1f43dbaULL, 0x3f9a3f4e8ef7c2fcULL, 0x3fa6263fe4272f1aULL, 0x3f9e7da96bd7016cULL, 0x3fa3f1a608877b02ULL, 0x3f9aec80e921f436ULL, 0x0000000000000000ULL, 0x0000000000000000ULL, 0x0000000000000000ULL, 0x0000000000000000ULL},
     {0x3fe08e4b7d925e26ULL, 0x3fe1249405233c6aULL, 0x3fe08e4b7d925e26ULL}},  // weekly 700
    {9, 0x3fe15c28f5c28f5dULL,
     {0x3faa34c712cda94bULL, 0xbfa473714321f4d0ULL, 0x3f90c3536e6f6133ULL, 0x3fa1c1b650531a5dULL, 0x3f99b48a6f20c335ULL, 0x3f752ea9a24b46ecULL, 0xbf93f5f627f7adeeULL, 0xbf72c20645c79d4aULL, 0x3f5421ec43f93edeULL, 0x3f2247d5e8f35342ULL, 0x0000000000000000ULL, 0x3f73c8a70075e753ULL, 0xbf855da1fd7e8486ULL, 0xbfa65c435a8e3fefULL},
     {0xbf490d72bd14dfd8ULL, 0x3f88cd313feb1edaULL, 0x3f5ec0209d850aeeULL, 0x3f8b02446a198541ULL, 0x3f622d32c3380236ULL, 0xbf2d92f9568ed710ULL, 0x3f83e67c6ae6d122ULL, 0x3f8c3ee83f842befULL, 0x3f7cf2485e9ae64cULL, 0x3f24cc1e4cceefd8ULL, 0x0000000000000000ULL, 0x3f2f1d7fdc35fe40ULL, 0x3f7b63dcdfdf1a02ULL, 0x3f7a8e1f011534c5ULL},
     {0x3fdd9037dc855dc8ULL, 0x3fe729717329b2baULL, 0x3fe1600d3f1d81d5ULL}},  // trend 40
    {6, 0x3fdbbbbbbbbbbbbdULL,
     {0x3f612af9bf0fd910ULL, 0x3f5909d31c527452ULL, 0x3f91c3d364cfff64ULL, 0xbf910d31cc3641b4ULL, 0xbf8e35cfe940d9d6ULL, 0x3f36466acc7eb360ULL, 0xbef99d721deb4bb0ULL, 0x3f83458a4611ee90ULL, 0x3f9a4ddf68cd9881ULL, 0x3f71c0c08515f9c5ULL, 0x0000000000000000ULL, 0x0000000000000000ULL, 0x3f34d6f0873c78daULL, 0x3f6c1f5ad09deed7ULL},
     {0x3d284364ed70d7a6ULL, 0x3cd17adc92a1a534ULL, 0x3cf92f705b8083baULL, 0x3d0ce66a61af7156ULL, 0x3d0619e9c0aa3dc8ULL, 0x3cd077cad468a334ULL, 0x3cb439b20d3b79f5ULL, 0x3cd4f44b52281e05ULL, 0x3ce9637d8cc354a7ULL, 0x3cc1217795e1a78bULL, 0x0000000000000000ULL, 0x0000000000000000ULL, 0x3cfd73d70ec8dd64ULL, 0x3d33df675e04280eULL},
     {0x3fdc08d161e43414ULL, 0x3fd757c2aa30a492ULL, 0x3fe19831751a049dULL}},  // few 6
};
// clang-format on

std::uint64_t bits(double v) {
  return std::bit_cast<std::uint64_t>(v);
}

TEST(SplineFitExact, CoefficientsMatchTheTableBitForBit) {
  const bool print = std::getenv("LUMEO_PRINT_FIT_TABLE") != nullptr;
  for (std::size_t c = 0; c < std::size(kInputs); ++c) {
    const Input& input = kInputs[c];
    std::vector<double> x, y;
    makeSamples(input, x, y);
    const SplineBand band = splineBand(input.m, x.data(), y.data(), input.n);
    if (print) {
      std::printf("    {%ld, 0x%016" PRIx64 "ULL,\n     {", band.count, bits(band.mean));
      for (long k = 0; k < 14; ++k)
        std::printf("0x%016" PRIx64 "ULL%s", k < input.n ? bits(band.coefficients[k]) : 0,
                    k < 13 ? ", " : "");
      std::printf("},\n     {");
      for (long k = 0; k < 14; ++k)
        std::printf("0x%016" PRIx64 "ULL%s", k < input.n ? bits(band.spreadCoefficients[k]) : 0,
                    k < 13 ? ", " : "");
      std::printf("},\n     {0x%016" PRIx64 "ULL, 0x%016" PRIx64 "ULL, 0x%016" PRIx64 "ULL}},  // %s\n",
                  bits(band.curve[0]), bits(band.curve[50]), bits(band.curve[99]), input.name);
      continue;
    }
    ASSERT_LT(c, std::size(kExpected));
    const Expected& expected = kExpected[c];
    EXPECT_EQ(band.count, expected.count) << input.name;
    EXPECT_EQ(bits(band.mean), expected.mean) << input.name << " mean " << band.mean;
    for (long k = 0; k < input.n; ++k) {
      EXPECT_EQ(bits(band.coefficients[k]), expected.coefficients[k])
          << input.name << " coefficient " << k << " = " << band.coefficients[k];
      EXPECT_EQ(bits(band.spreadCoefficients[k]), expected.spread[k])
          << input.name << " spread coefficient " << k << " = " << band.spreadCoefficients[k];
    }
    EXPECT_EQ(bits(band.curve[0]), expected.curveAt[0]) << input.name;
    EXPECT_EQ(bits(band.curve[50]), expected.curveAt[1]) << input.name;
    EXPECT_EQ(bits(band.curve[99]), expected.curveAt[2]) << input.name;
  }
}

}  // namespace
}  // namespace lumeo
