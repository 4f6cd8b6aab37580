# The window lock, the lock settings and the reminder screens: a Quick Test
# binary driven by objectName (with the `lumeo` command line on the same
# journal), their screenshots against references, and the window lock in a
# real X window. Included by this folder's CMakeLists.txt.
lumeo_gui_quick_test(gui_lockrem_quick DIR ${CMAKE_CURRENT_LIST_DIR}/lockrem_quick TIMEOUT 240
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/lockrem_quick_fixture.cpp)

add_test(NAME gui_lockrem_screenshots
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/lockrem_screenshots_test.sh $<TARGET_FILE:lumeo-gui>
          ${CMAKE_CURRENT_LIST_DIR}/lockrem_screenshots ${CMAKE_CURRENT_BINARY_DIR}/lockrem_screenshots)
set_tests_properties(gui_lockrem_screenshots PROPERTIES TIMEOUT 240 ENVIRONMENT "${gui_test_env}")

add_test(NAME gui_lock_e2e_xvfb
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/lock_e2e_xvfb_test.sh $<TARGET_FILE:lumeo-gui> $<TARGET_FILE:lumeo>
          ${CMAKE_CURRENT_BINARY_DIR}/lock_e2e)
set_tests_properties(gui_lock_e2e_xvfb PROPERTIES TIMEOUT 240 ENVIRONMENT "TZ=UTC;LC_ALL=C.UTF-8;LANGUAGE=en")
