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
