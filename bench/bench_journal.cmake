# The journals the benchmarks fill (bench/bench_journal.*), shared by every
# bench that needs records.
add_library(lumeo-bench-journal STATIC ${CMAKE_CURRENT_LIST_DIR}/bench_journal.cpp)
target_link_libraries(lumeo-bench-journal PUBLIC lumeo-store)
target_include_directories(lumeo-bench-journal PUBLIC ${CMAKE_CURRENT_LIST_DIR})
