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
lumeo_gui_quick_test(gui_map_quick DIR ${CMAKE_CURRENT_LIST_DIR}/map_quick TIMEOUT 240
  SOURCES ${CMAKE_CURRENT_LIST_DIR}/map_quick_fixture.cpp
  DEFINES MAP_TILE_SERVER="${map_tile_server}" MAP_PLACES_DIR="${PROJECT_SOURCE_DIR}/testdata/map/nominatim"
  ENV LUMEO_ARTEFACTS=${CMAKE_CURRENT_BINARY_DIR}/map_artefacts)

add_test(NAME gui_map_screenshots
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/map_screenshots_test.sh $<TARGET_FILE:lumeo-gui> ${map_tile_server}
          ${CMAKE_CURRENT_LIST_DIR}/map_screenshots ${CMAKE_CURRENT_BINARY_DIR}/map_screenshots)
set_tests_properties(gui_map_screenshots PROPERTIES TIMEOUT 240)

# The own position through GeoClue: a fake GeoClue on a private bus.
add_test(NAME gui_map_geoclue
  COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/map_geoclue_test.sh $<TARGET_FILE:gui_map_quick_tests> ${PROJECT_SOURCE_DIR})
set_tests_properties(gui_map_geoclue PROPERTIES TIMEOUT 120 ENVIRONMENT "${gui_test_env}")
