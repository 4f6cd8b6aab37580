# sync_files_bench: events written to and read from event files, and a whole
# fetch-and-integrate from a cloud folder; bench/sync_files.sh runs it beside
# the replay benchmark (the part-1 figure) in the same run.
add_executable(sync_files_bench ${CMAKE_CURRENT_LIST_DIR}/sync_files_bench.cpp)
target_link_libraries(sync_files_bench PRIVATE sync_event_stream lumeo-sync lumeo-store lumeo-platform-linux)
