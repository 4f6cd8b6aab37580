# The level editor's and the template screen's adapters, saves after
# another process wrote the journal, records that process deleted or added,
# and the restore's writer lock (QtTest, offscreen, with the real `lumeo`
# binary as the other process). Included by this folder's CMakeLists.txt.
add_executable(gui_editor_screens_tests ${CMAKE_CURRENT_LIST_DIR}/editor_screens_tests.cpp)
set_target_properties(gui_editor_screens_tests PROPERTIES AUTOMOC ON)
target_link_libraries(gui_editor_screens_tests PRIVATE lumeo-gui-test-support Qt6::Test)
add_dependencies(gui_editor_screens_tests lumeo)
add_test(NAME gui_editor_screens COMMAND gui_editor_screens_tests)
set_tests_properties(gui_editor_screens PROPERTIES TIMEOUT 180
  ENVIRONMENT "${gui_test_env};LUMEO_CLI=$<TARGET_FILE:lumeo>")
