# Map clustering against supercluster: bench/cluster.sh runs this binary and
# the Node driver in bench/cluster/ on the same points and prints the ratios.
add_executable(cluster_bench ${CMAKE_CURRENT_LIST_DIR}/cluster_bench.cpp)
target_link_libraries(cluster_bench PRIVATE lumeo-map)
