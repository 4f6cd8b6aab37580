// Replays a stream of events into an empty journal and reports events per
// second. The stream is made from a fixed seed: 40% inserts of a description
// with 6 properties, 50% updates of one property of a live object, 10%
// deletes. With --emit FILE the same stream is written as JSON lines for the
// peer (bench/sync_replay_yjs.mjs), so both replay the same operations.
//
//   sync_replay_bench [--events N] [--emit FILE] [--dir DIR]
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "store/journal_model.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_event_integrator.h"
#include "sync/sync_event_store.h"
#include "sync_event_stream.h"

using namespace lumeo;

int main(int argc, char** argv) {
  int count = 100000;
  std::string emitPath;
  std::filesystem::path dir;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string arg = argv[i];
    if (arg == "--events") count = std::atoi(argv[i + 1]);
    if (arg == "--emit") emitPath = argv[i + 1];
    if (arg == "--dir") dir = argv[i + 1];
  }
  bool ownDir = dir.empty();
  if (ownDir) {
    std::string pattern = (std::filesystem::temp_directory_path() / "lumeo-sync-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return 1;
    dir = pattern;
  }
  std::vector<bench::StreamOperation> ops = bench::makeEventStream(count);
  if (!emitPath.empty()) bench::emitEventStream(ops, emitPath);

  auto events = std::make_shared<SyncEventStore>("MainStore", dir / "events");
  if (auto error = events->prepareNewEventStore()) {
    std::fprintf(stderr, "%s\n", error->toString().c_str());
    return 1;
  }
  auto setupStart = std::chrono::steady_clock::now();
  bench::writeEventStream(*events, ops, "PEER");
  double setupSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - setupStart).count();

  std::filesystem::path journal = dir / "Model.sqlite";
  auto model = makeJournalModel();
  {
    auto coordinator = std::make_shared<PersistentStoreCoordinator>(model);
    coordinator->addPersistentStoreWithType(kSQLiteStoreType, journal);
  }
  auto integrator = std::make_shared<SyncEventIntegrator>(journal, model, events);
  auto start = std::chrono::steady_clock::now();
  SyncMergeResult result = integrator->mergeEvents();
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (!result.succeeded || result.error) {
    std::fprintf(stderr, "merge failed: %s\n", result.error ? result.error->toString().c_str() : "no reason");
    return 1;
  }
  int live = 0;
  {
    auto coordinator = std::make_shared<PersistentStoreCoordinator>(model);
    coordinator->addPersistentStoreWithType(kSQLiteStoreType, journal);
    ManagedObjectContext context;
    context.setPersistentStoreCoordinator(coordinator);
    live = int(context.countForFetchRequest(FetchRequest("MoodDescription")));
  }
  std::printf("lumeo: %d events (written in %.2f s) integrated in %.3f s: %.0f events/s, %d objects live\n",
              count, setupSeconds, seconds, count / seconds, live);
  if (ownDir) std::filesystem::remove_all(dir);
  return 0;
}
