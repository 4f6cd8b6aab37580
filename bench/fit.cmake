# fit_bench: the whole curve-and-band fit against LAPACK's dgelsd solving the
# same least-squares problem on the dense design matrix, and against one
# streaming pass over the samples (the floor no fit can beat).
find_library(LUMEO_BENCH_LAPACKE lapacke REQUIRED)
find_library(LUMEO_BENCH_LAPACK lapack REQUIRED)
find_library(LUMEO_BENCH_BLAS blas REQUIRED)
add_executable(fit_bench ${CMAKE_CURRENT_SOURCE_DIR}/fit_bench.cpp)
target_link_libraries(fit_bench PRIVATE lumeo-insight benchmark::benchmark
  ${LUMEO_BENCH_LAPACKE} ${LUMEO_BENCH_LAPACK} ${LUMEO_BENCH_BLAS})
