# calendar_bench: the calendar's layout of every month since 1970, against
# the same layout with each month's weekday and length asked of the
# platform's calendar (ICU), as a straightforward port would do it.
add_executable(calendar_bench ${CMAKE_CURRENT_SOURCE_DIR}/calendar_bench.cpp)
target_link_libraries(calendar_bench PRIVATE lumeo-browse benchmark::benchmark)
