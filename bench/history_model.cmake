# history_model_bench: the GUI's History list on journals of 1,000 to 100,000
# records: opening it (the controller's fetch plus the list model) against
# the core controller's fetch alone, and reading the rows a flick shows
# against reading the same records' level and time directly.
if(TARGET lumeo-gui-lib)
  add_executable(history_model_bench ${CMAKE_CURRENT_LIST_DIR}/history_model_bench.cpp)
  target_link_libraries(history_model_bench PRIVATE lumeo-gui-lib lumeo-bench-journal benchmark::benchmark)
endif()
