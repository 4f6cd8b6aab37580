# The export and backup screens: Quick Tests by objectName on a real sample
# journal (the report read back with pdfinfo, a restore from the screen and
# one by `lumeo backup restore` while the window is open), and screenshots of
# the export screen in both themes. Included by this folder's CMakeLists.txt.
add_executable(gui_export_quick_tests gui_export_quick_tests.cpp gui_test_support.cpp gui_test_support.h)
set_target_properties(gui_export_quick_tests PROPERTIES AUTOMOC ON)
target_include_directories(gui_export_quick_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(gui_export_quick_tests PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,lumeo-gui-lib>"
                                                     lumeo-gui-qmlplugin Qt6::QuickTest)
target_compile_definitions(gui_export_quick_tests PRIVATE
                           QUICK_TEST_SOURCE_DIR="${CMAKE_CURRENT_LIST_DIR}/export_quick")
add_test(NAME gui_export_quick COMMAND gui_export_quick_tests)
set_tests_properties(gui_export_quick PROPERTIES TIMEOUT 180
  ENVIRONMENT "${gui_test_env};LUMEO_CLI=$<TARGET_FILE:lumeo>")

add_test(NAME gui_export_screenshots
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/export_screenshots_test.sh $<TARGET_FILE:lumeo-gui>
          ${CMAKE_CURRENT_LIST_DIR}/export_screenshots ${CMAKE_CURRENT_BINARY_DIR}/export_screenshots)
set_tests_properties(gui_export_screenshots PROPERTIES TIMEOUT 180)
