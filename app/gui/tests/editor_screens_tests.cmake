# The level editor's and the template screen's adapters, and saves after
# another process wrote the journal (QtTest, offscreen, with the real
# `lumeo` binary as the other process). Included by this folder's
# CMakeLists.txt.
add_executable(gui_editor_screens_tests ${CMAKE_CURRENT_LIST_DIR}/editor_screens_tests.cpp
                                        ${CMAKE_CURRENT_LIST_DIR}/gui_test_support.cpp)
set_target_properties(gui_editor_screens_tests PROPERTIES AUTOMOC ON)
target_include_directories(gui_editor_screens_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(gui_editor_screens_tests PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,lumeo-gui-lib>" Qt6::Test)
target_compile_definitions(gui_editor_screens_tests PRIVATE LUMEO_CLI_BINARY="$<TARGET_FILE:lumeo>")
add_dependencies(gui_editor_screens_tests lumeo)
add_test(NAME gui_editor_screens COMMAND gui_editor_screens_tests)
set_tests_properties(gui_editor_screens PROPERTIES TIMEOUT 180 ENVIRONMENT "${gui_test_env}")
