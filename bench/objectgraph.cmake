# objectgraph_bench: the object-graph store against raw SQLite prepared
# statements on the same file (inserts with links, date-range and sorted
# fetches, peak memory of a batched walk over a million rows).
add_executable(objectgraph_bench ${CMAKE_CURRENT_LIST_DIR}/objectgraph_bench.cpp)
target_link_libraries(objectgraph_bench PRIVATE lumeo-objectgraph benchmark::benchmark)
