# summary_bench: a full summary refresh (fetch, averages, three fits, three
# charts) against the bare fetch of the same records through raw SQLite.
find_package(SQLite3 REQUIRED)
add_executable(summary_bench ${CMAKE_CURRENT_LIST_DIR}/summary_bench.cpp)
target_link_libraries(summary_bench PRIVATE lumeo-insight lumeo-bench-journal SQLite::SQLite3 benchmark::benchmark)
