// Moves events between the event store and event files: exports one event,
// a baseline or a run of this store's events into a file, and imports files
// into the store. A file is imported whole or not at all: it is read and
// checked completely before the first row is inserted, and its rows are
// committed with one save of the event context.
//
// Global identifiers are merged by value on import: an object named in many
// event files has one row here. A row's `storeURI` never leaves the device.
//
// Thread: every call does its store work inside the event context's blocking
// perform and may be made from any thread; the ...WithCompletion variants
// run on a background queue and call back on the main queue.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"
#include "sync/sync_event_file.h"

namespace lumeo {

class SyncEventStore;
class SyncStoreModificationEvent;
class ManagedObjectContext;

class SyncEventMigrator {
 public:
  explicit SyncEventMigrator(std::shared_ptr<SyncEventStore> eventStore);

  // This store's event with that revision and one of the types.
  OptionalError migrateLocalEventWithRevision(std::int64_t revisionNumber, const std::filesystem::path& file,
                                              const std::vector<int>& allowedTypes);
  OptionalError migrateLocalBaselineWithUniqueIdentifier(
      const std::string& uniqueIdentifier, std::int64_t globalCount,
      const std::optional<std::string>& persistentStorePrefix, const std::filesystem::path& file);
  // This store's save and merge events after that revision, in one file.
  OptionalError migrateNonBaselineEventsSinceRevision(std::int64_t revisionNumber,
                                                      const std::filesystem::path& file);
  // The common export; the events must belong to the event store's context.
  OptionalError migrateStoreModificationEvents(
      const std::vector<std::shared_ptr<SyncStoreModificationEvent>>& events,
      const std::filesystem::path& file);
  // Imports the files in the given order. The first file that fails ends
  // the loop with its error; earlier files stay imported, that file and the
  // later ones add nothing.
  OptionalError migrateEventsInFromFiles(const std::vector<std::filesystem::path>& files);

  void migrateEventsInFromFilesWithCompletion(std::vector<std::filesystem::path> files,
                                              std::function<void(OptionalError)> completion);

  // The rows of the events (on the event context's queue); `prefetch` loads
  // their rows first (leave it to callers that fetched them already).
  static SyncEventFileContents contentsForStoreModificationEvents(
      const std::vector<std::shared_ptr<SyncStoreModificationEvent>>& events, bool prefetch = true);
  // Adds the rows to the store with one save; nothing on failure.
  OptionalError importContents(const SyncEventFileContents& contents);
  // The rows of several files with one save: all or nothing.
  OptionalError importContents(const std::vector<const SyncEventFileContents*>& files);
  // What can be checked without the store (types, archives, data file
  // names): code -1 with the reason.
  static OptionalError checkContents(const SyncEventFileContents& contents);
  // Reads, decodes and checks one file.
  static SyncResult<SyncEventFileContents> readEventFile(const std::filesystem::path& file);

 private:
  std::shared_ptr<SyncEventStore> eventStore_;
};

}  // namespace lumeo
