# The Map tab: its tiles against a tile server on 127.0.0.1 (QtTest), its
# screens by objectName (Quick Test), and its screenshots with local tiles.
# Included by this folder's CMakeLists.txt.
set(map_tile_server ${CMAKE_CURRENT_LIST_DIR}/map_tile_server.py)

add_executable(gui_map_tests ${CMAKE_CURRENT_LIST_DIR}/map_tiles_test.cpp)
set_target_properties(gui_map_tests PROPERTIES AUTOMOC ON)
target_link_libraries(gui_map_tests PRIVATE lumeo-gui-lib Qt6::Test)
target_compile_definitions(gui_map_tests PRIVATE MAP_TILE_SERVER="${map_tile_server}")
add_test(NAME gui_map_tiles COMMAND gui_map_tests)
set_tests_properties(gui_map_tiles PROPERTIES TIMEOUT 180 ENVIRONMENT "QT_QPA_PLATFORM=offscreen;LC_ALL=C.UTF-8")

# The tile server is down here (port 9): tiles fail, pins must not.
add_executable(gui_map_quick_tests ${CMAKE_CURRENT_LIST_DIR}/gui_map_quick_tests.cpp
                                   ${CMAKE_CURRENT_LIST_DIR}/gui_test_support.cpp ${CMAKE_CURRENT_LIST_DIR}/gui_test_support.h)
set_target_properties(gui_map_quick_tests PROPERTIES AUTOMOC ON)
target_include_directories(gui_map_quick_tests PRIVATE ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(gui_map_quick_tests PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,lumeo-gui-lib>" lumeo-gui-qmlplugin
                                                  Qt6::QuickTest)
target_compile_definitions(gui_map_quick_tests PRIVATE QUICK_TEST_SOURCE_DIR="${CMAKE_CURRENT_LIST_DIR}/map_quick"
                                                       LUMEO_CLI="$<TARGET_FILE:lumeo>"
                                                       MAP_TILE_SERVER="${map_tile_server}"
                                                       MAP_PLACES_DIR="${PROJECT_SOURCE_DIR}/testdata/map/nominatim")
add_dependencies(gui_map_quick_tests lumeo)
add_test(NAME gui_map_quick COMMAND gui_map_quick_tests)
set_tests_properties(gui_map_quick PROPERTIES TIMEOUT 240
  ENVIRONMENT "${gui_test_env};LUMEO_MAP_ARTEFACTS=${CMAKE_CURRENT_BINARY_DIR}/map_artefacts")

add_test(NAME gui_map_screenshots
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/map_screenshots_test.sh $<TARGET_FILE:lumeo-gui> ${map_tile_server}
          ${CMAKE_CURRENT_LIST_DIR}/map_screenshots ${CMAKE_CURRENT_BINARY_DIR}/map_screenshots)
set_tests_properties(gui_map_screenshots PROPERTIES TIMEOUT 240)

# The own position through GeoClue: a fake GeoClue on a private bus.
add_test(NAME gui_map_geoclue
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/map_geoclue_test.sh $<TARGET_FILE:gui_map_quick_tests> ${PROJECT_SOURCE_DIR})
set_tests_properties(gui_map_geoclue PROPERTIES TIMEOUT 120 ENVIRONMENT "${gui_test_env}")
