# The Summary and History tabs' adapters and models against a real journal
# in a temporary folder (GoogleTest, with QAbstractItemModelTester on every
# model). Included by this folder's CMakeLists.txt.
add_executable(gui_tabs_tests
  ${CMAKE_CURRENT_LIST_DIR}/gui_tabs_test_main.cpp
  ${CMAKE_CURRENT_LIST_DIR}/history_controller_test.cpp
  ${CMAKE_CURRENT_LIST_DIR}/summary_controller_test.cpp
)
target_link_libraries(gui_tabs_tests PRIVATE lumeo-gui-lib Qt6::Test GTest::gtest GTest::gmock lumeo-test-support)
add_test(NAME gui_tabs COMMAND gui_tabs_tests)
set_tests_properties(gui_tabs PROPERTIES TIMEOUT 300
  ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LUMEO_SOURCE_DIR=${PROJECT_SOURCE_DIR};LUMEO_BUILD_DIR=${PROJECT_BINARY_DIR}")

# Quick Test of the two tabs' screens, driven by objectName.
lumeo_gui_quick_test(gui_tabs_quick DIR ${CMAKE_CURRENT_LIST_DIR}/tabs_quick TIMEOUT 180
  ENV LUMEO_ARTEFACTS=${CMAKE_CURRENT_BINARY_DIR}/tabs_artefacts)

# Screenshots of the two tabs against the checked-in references.
add_test(NAME gui_tabs_screenshots
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/tabs_screenshots_test.sh $<TARGET_FILE:lumeo-gui>
          ${CMAKE_CURRENT_LIST_DIR}/tabs_screenshots ${CMAKE_CURRENT_BINARY_DIR}/tabs_screenshots)
set_tests_properties(gui_tabs_screenshots PROPERTIES TIMEOUT 300)
