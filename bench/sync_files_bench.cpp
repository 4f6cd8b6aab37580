// Event files: how fast events become files and files become events again,
// and a whole fetch-and-integrate from a cloud folder. The events are the
// seeded stream of the sync benchmarks (bench/sync_event_stream.cpp): 40%
// inserts of a description with 6 properties, 50% updates of one property,
// 10% deletes, one event each.
//
//   sync_files_bench --events N [--fetch M] [--flush K] [--dir DIR]
//
// Prints, for N events: the format alone (encode and decode in memory, bytes
// per event), the export from an event store into files of 1,000 events and
// the import of those files into an empty store; then, for M events (each
// its own file, as devices publish them, into a shared folder), a fetch of
// every file from the folder, their import and one merge into an empty
// journal; last, what flushing costs on this disk now: K of those files
// written into a folder (to a temporary name, renamed) with a flush of each
// file and of the folder after each, with a flush of each file and one of
// the folder at the end (as uploads into the shared folder are), and with
// none (as downloads into the transit cache are).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "store/journal_model.h"
#include "sync/sync_cloud_manager.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_event_file.h"
#include "sync/sync_event_integrator.h"
#include "sync/sync_event_migrator.h"
#include "sync/sync_event_store.h"
#include "sync/sync_local_cloud_file_system.h"
#include "sync/sync_shared_folder.h"
#include "sync_event_stream.h"

using namespace lumeo;
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;
double since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "sync_files_bench: %s\n", what.c_str());
  std::exit(1);
}

std::shared_ptr<SyncEventStore> newStore(const fs::path& root) {
  auto store = std::make_shared<SyncEventStore>("MainStore", root);
  if (auto error = store->prepareNewEventStore()) fail(error->toString());
  return store;
}

std::vector<std::shared_ptr<SyncStoreModificationEvent>> allEvents(SyncEventStore& store) {
  std::vector<std::shared_ptr<SyncStoreModificationEvent>> events;
  auto context = store.managedObjectContext();
  context->performBlockAndWait(
      [&] { events = SyncStoreModificationEvent::fetchNonBaselineEvents(*context); });
  return events;
}

std::uintmax_t folderBytes(const fs::path& folder) {
  std::uintmax_t total = 0;
  for (const auto& entry : fs::directory_iterator(folder)) total += entry.file_size();
  return total;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 100000;
  int fetch = 10000;
  int flush = 1000;
  fs::path dir;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string arg = argv[i];
    if (arg == "--events") count = std::atoi(argv[i + 1]);
    if (arg == "--fetch") fetch = std::atoi(argv[i + 1]);
    if (arg == "--flush") flush = std::atoi(argv[i + 1]);
    if (arg == "--dir") dir = argv[i + 1];
  }
  bool ownDir = dir.empty();
  if (ownDir) {
    std::string pattern = (fs::temp_directory_path() / "lumeo-sync-files-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return 1;
    dir = pattern;
  }

  // --- N events: the format, then export and import through files.
  {
    auto source = newStore(dir / "source");
    bench::writeEventStream(*source, bench::makeEventStream(count), *source->persistentStoreIdentifier());
    auto events = allEvents(*source);
    SyncEventFileContents contents;
    auto context = source->managedObjectContext();
    auto start = Clock::now();
    context->performBlockAndWait(
        [&] { contents = SyncEventMigrator::contentsForStoreModificationEvents(events); });
    double gather = since(start);
    start = Clock::now();
    std::vector<std::uint8_t> bytes = syncEncodeEventFile(contents);
    double encode = since(start);
    start = Clock::now();
    auto decoded = syncDecodeEventFile(bytes.data(), bytes.size());
    double decode = since(start);
    if (std::holds_alternative<Error>(decoded)) fail(std::get<Error>(decoded).toString());
    std::printf(
        "format: %d events, %.1f bytes/event; encode %.3f s (%.0f events/s), decode %.3f s (%.0f events/s)\n",
        count, double(bytes.size()) / count, encode, count / encode, decode, count / decode);

    fs::path files = dir / "files";
    fs::create_directories(files);
    SyncEventMigrator exporter(source);
    std::vector<fs::path> paths;
    start = Clock::now();
    for (std::size_t first = 0; first < events.size(); first += 1000) {
      std::vector<std::shared_ptr<SyncStoreModificationEvent>> slice(
          events.begin() + first, events.begin() + std::min(events.size(), first + 1000));
      char name[32];
      std::snprintf(name, sizeof name, "%06zu.syncevent", first);
      paths.push_back(files / name);
      if (auto error = exporter.migrateStoreModificationEvents(slice, paths.back())) fail(error->toString());
    }
    double exported = since(start);
    std::uintmax_t total = folderBytes(files);
    std::printf(
        "write: %d events into %zu files from the event store in %.2f s: %.0f events/s, %.1f bytes/event "
        "(reading the store's rows alone %.2f s)\n",
        count, paths.size(), exported, count / exported, double(total) / count, gather);

    auto target = newStore(dir / "target");
    SyncEventMigrator importer(target);
    start = Clock::now();
    if (auto error = importer.migrateEventsInFromFiles(paths)) fail(error->toString());
    double imported = since(start);
    std::printf("read: %d events from %zu files into an empty event store in %.2f s: %.0f events/s\n", count,
                paths.size(), imported, count / imported);
  }

  // --- M events published one file each, fetched and integrated.
  {
    fs::path cloudRoot = dir / "cloud";
    fs::create_directories(cloudRoot);
    auto cloud = std::make_shared<SyncSharedFolderFileSystem>(cloudRoot);
    auto publisher = newStore(dir / "publisher");
    bench::writeEventStream(*publisher, bench::makeEventStream(fetch),
                            *publisher->persistentStoreIdentifier());
    SyncCloudManager out(publisher, cloud);
    if (auto error =
            out.awaitCloud([&](SyncCloudCompletion done) { cloud->performInitialPreparation(done); }))
      fail(error->toString());
    if (auto error = out.createRemoteDirectoryStructure()) fail(error->toString());
    if (auto error = out.snapshotRemoteFiles()) fail(error->toString());
    auto start = Clock::now();
    if (auto error = out.exportNewLocalNonBaselineEvents()) fail(error->toString());
    double published = since(start);
    std::uintmax_t total = folderBytes(cloudRoot / "MainStore" / "events");

    auto receiver = newStore(dir / "receiver");
    fs::path journal = dir / "Model.sqlite";
    auto model = makeJournalModel();
    {
      auto coordinator = std::make_shared<PersistentStoreCoordinator>(model);
      coordinator->addPersistentStoreWithType(kSQLiteStoreType, journal);
    }
    SyncCloudManager in(receiver, cloud);
    start = Clock::now();
    if (auto error = in.snapshotRemoteFiles()) fail(error->toString());
    if (auto error = in.importNewRemoteNonBaselineEvents()) fail(error->toString());
    double fetched = since(start);
    auto integrator = std::make_shared<SyncEventIntegrator>(journal, model, receiver);
    auto mergeStart = Clock::now();
    SyncMergeResult result = integrator->mergeEvents();
    double merged = since(mergeStart);
    double whole = since(start);
    if (!result.succeeded || result.error) fail(result.error ? result.error->toString() : "merge failed");
    if (in.counts().eventsImported != std::size_t(fetch) || !in.skippedFiles().empty())
      fail("not every file arrived: " + std::to_string(in.counts().eventsImported));
    std::printf("publish: %d events as %d files in %.2f s: %.0f events/s, %.1f bytes/event on disk\n", fetch,
                fetch, published, fetch / published, double(total) / fetch);
    std::printf(
        "fetch-and-integrate: %d events: fetch and import %.2f s, merge %.2f s, whole %.2f s: %.0f "
        "events/s\n",
        fetch, fetched, merged, whole, fetch / whole);

    // --- What a flush costs now, on the published files.
    std::vector<std::vector<std::uint8_t>> contents;
    for (const auto& entry : fs::directory_iterator(cloudRoot / "MainStore" / "events")) {
      if (int(contents.size()) >= flush) break;
      std::string name = entry.path().filename().string();
      if (name.empty() || name[0] == '.') continue;
      auto bytes = FileSystem::current()->readFile(entry.path());
      if (auto* error = std::get_if<Error>(&bytes)) fail(error->toString());
      contents.push_back(std::move(std::get<std::vector<std::uint8_t>>(bytes)));
    }
    using sync_directory::Durability;
    std::printf("flush: %zu event files written to a temporary name and renamed:", contents.size());
    for (auto [durability, label] : {std::pair{Durability::kDurable, "file and folder flushed each"},
                                     std::pair{Durability::kContent, "file flushed each, folder once"},
                                     std::pair{Durability::kScratch, "no flush"}}) {
      fs::path folder = dir / ("flush-" + std::to_string(int(durability)));
      fs::create_directories(folder);
      auto flushStart = Clock::now();
      for (std::size_t i = 0; i < contents.size(); ++i) {
        if (auto error = sync_directory::writeReplacing(*FileSystem::current(), folder / std::to_string(i),
                                                        contents[i].data(), contents[i].size(), durability))
          fail(error->toString());
      }
      if (durability == Durability::kContent) (void)FileSystem::current()->syncFolder(folder);
      double took = since(flushStart);
      std::printf("%s %s %.2f s (%.0f files/s)", durability == Durability::kDurable ? "" : ";", label, took,
                  contents.size() / took);
    }
    std::printf("\n");
  }
  if (ownDir) fs::remove_all(dir);
  return 0;
}
