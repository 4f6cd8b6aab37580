# sync_replay_bench: the event integrator replaying 100,000 events into an
# empty journal; bench/sync_replay.sh runs it against Yjs applying the same
# stream of updates in the same run.
add_executable(sync_replay_bench ${CMAKE_CURRENT_LIST_DIR}/sync_replay_bench.cpp)
target_link_libraries(sync_replay_bench PRIVATE lumeo-sync lumeo-store)
