# backup_bench: making the backup archive of a journal of 10,000 records
# with 200 photos against `zip -1 -r` of the same files, and the CSV export
# of 1,000,000 records against `sqlite3 -csv` of the same query.
find_package(SQLite3 REQUIRED)
add_executable(backup_bench ${CMAKE_CURRENT_LIST_DIR}/backup_bench.cpp)
target_link_libraries(backup_bench PRIVATE lumeo-backup lumeo-bench-journal SQLite::SQLite3)
target_compile_definitions(backup_bench PRIVATE LUMEO_BENCH_RESOURCES="${PROJECT_SOURCE_DIR}/resources")
