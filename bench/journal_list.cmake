# journal_list_seed fills a journal with many records for bench/journal_list.sh,
# which times `lumeo list` against sqlite3 reading the same rows.
add_executable(journal_list_seed ${CMAKE_CURRENT_LIST_DIR}/journal_list_seed.cpp)
target_link_libraries(journal_list_seed PRIVATE lumeo-bench-journal lumeo-platform-linux)
