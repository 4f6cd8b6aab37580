# The export and backup screens: Quick Tests by objectName on a real sample
# journal (the report read back with pdfinfo, a restore from the screen and
# one by `lumeo backup restore` while the window is open), and screenshots of
# the export screen in both themes. Included by this folder's CMakeLists.txt.
lumeo_gui_quick_test(gui_export_quick DIR ${CMAKE_CURRENT_LIST_DIR}/export_quick TIMEOUT 180
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/export_quick_fixture.cpp)

add_test(NAME gui_export_screenshots
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/export_screenshots_test.sh $<TARGET_FILE:lumeo-gui>
          ${CMAKE_CURRENT_LIST_DIR}/export_screenshots ${CMAKE_CURRENT_BINARY_DIR}/export_screenshots)
set_tests_properties(gui_export_screenshots PROPERTIES TIMEOUT 180)
