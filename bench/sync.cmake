# sync_event_stream: the seeded stream of events that the sync benchmarks
# replay, and its writers into an event store and as JSON lines for the peer.
add_library(sync_event_stream STATIC ${CMAKE_CURRENT_LIST_DIR}/sync_event_stream.cpp)
target_include_directories(sync_event_stream PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(sync_event_stream PUBLIC lumeo-sync)
# sync_replay_bench: the event integrator replaying 100,000 events into an
# empty journal; bench/sync_replay.sh runs it against Yjs applying the same
# stream of updates in the same run.
add_executable(sync_replay_bench ${CMAKE_CURRENT_LIST_DIR}/sync_replay_bench.cpp)
target_link_libraries(sync_replay_bench PRIVATE sync_event_stream lumeo-sync lumeo-store)
