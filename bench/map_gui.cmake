# map_gui_probe opens the Map tab of lumeo-gui (or, as the peer, a bare Qt
# Quick map of the same tiles) offscreen with the software renderer and
# reports the tab's opening and the frame times of a drag; bench/map_gui.sh
# drives it on a journal of 10,000 located records.
if(TARGET lumeo-gui-lib)
  add_executable(map_gui_probe ${CMAKE_CURRENT_LIST_DIR}/map_gui_probe.cpp)
  target_link_libraries(map_gui_probe PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,lumeo-gui-lib>" lumeo-gui-qmlplugin lumeo-bench-journal)
endif()
