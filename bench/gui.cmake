# gui_probe starts the desktop application (or, as the peer, a bare Qt Quick
# window) offscreen with the software renderer and reports its first frame,
# its memory after each tab and the frame times of a History flick;
# bench/gui.sh drives it on a journal of 100,000 records.
if(TARGET lumeo-gui-lib)
  add_executable(gui_probe ${CMAKE_CURRENT_LIST_DIR}/gui_probe.cpp)
  target_link_libraries(gui_probe PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,lumeo-gui-lib>" lumeo-gui-qmlplugin)
endif()
