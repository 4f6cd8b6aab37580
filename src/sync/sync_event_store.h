// A device's private log of what happened to the journal, for one ensemble:
// the database "events.sqlite", the metadata file "store.plist", and two
// folders of data files ("data" for files events refer to, "newdata" for
// downloaded files not read yet), all under
//   <event data root>/<ensemble identifier>/
// The log is never shared as it stands; event files made from it are.
//
// Thread: the database context runs on its own private queue; every method
// here may be called from any thread and does its database work inside the
// context's blocking perform. Completions run on the main queue.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

inline constexpr char kSyncEventStoreFileName[] = "events.sqlite";
inline constexpr char kSyncStoreInfoFileName[] = "store.plist";
inline constexpr char kSyncDataFileDirectoryName[] = "data";
inline constexpr char kSyncNewlyImportedDataFileDirectoryName[] = "newdata";
inline constexpr char kSyncEventDataDirectoryName[] = "com.quorvane.confluence.eventdata";

class SyncEventStore {
 public:
  // Reads the metadata; when it names a store, makes the folders and opens
  // the database. An unreadable "store.plist" or a database file that is no
  // event store leaves the object without data and setupError() says why;
  // nothing on disk is changed.
  explicit SyncEventStore(std::string ensembleIdentifier,
                          std::optional<std::filesystem::path> pathToEventDataRootDirectory = std::nullopt);
  ~SyncEventStore();
  SyncEventStore(const SyncEventStore&) = delete;
  SyncEventStore& operator=(const SyncEventStore&) = delete;

  // The root used when none is given: the application support directory,
  // then the application's identifier, then kSyncEventDataDirectoryName.
  static std::filesystem::path defaultPathToEventDataRootDirectory();
  static void setDefaultPathToEventDataRootDirectory(std::filesystem::path path);

  const OptionalError& setupError() const { return setupError_; }

  const std::string& ensembleIdentifier() const { return ensembleIdentifier_; }
  std::filesystem::path pathToEventDataRootDirectory() const { return root_; }
  std::filesystem::path pathToEventStoreRootDirectory() const { return root_ / ensembleIdentifier_; }
  std::filesystem::path pathToEventStore() const {
    return pathToEventStoreRootDirectory() / kSyncEventStoreFileName;
  }
  std::filesystem::path pathToStoreInfoFile() const {
    return pathToEventStoreRootDirectory() / kSyncStoreInfoFileName;
  }
  std::filesystem::path pathToDataFileDirectory() const {
    return pathToEventStoreRootDirectory() / kSyncDataFileDirectoryName;
  }
  std::filesystem::path pathToNewlyImportedDataFileDirectory() const {
    return pathToEventStoreRootDirectory() / kSyncNewlyImportedDataFileDirectoryName;
  }

  // --- Metadata.
  std::optional<std::string> persistentStoreIdentifier() const;
  std::optional<Value::Data> cloudFileSystemIdentity() const;
  void setCloudFileSystemIdentity(std::optional<Value::Data> identity);
  bool verifiesStoreRegistrationInCloud() const;
  void setVerifiesStoreRegistrationInCloud(bool verifies);
  std::optional<std::string> identifierOfBaselineUsedToConstructStore() const;
  void setIdentifierOfBaselineUsedToConstructStore(const std::optional<std::string>& identifier);

  // The context on the database (null when there is no event data).
  std::shared_ptr<ManagedObjectContext> managedObjectContext() const;
  void performBlockAndWait(const std::function<void()>& block) const;

  // --- Lifecycle.
  OptionalError prepareNewEventStore();
  bool removeEventStore();
  void dismantle();
  bool containsEventData() const;
  // Saves the metadata and the context.
  OptionalError flush();
  void flushWithCompletion(std::function<void(OptionalError)> completion);

  // --- Incomplete events: registered before an event is made, removed once
  // it is whole; a leftover after a crash names a partial event.
  void registerIncompleteEventIdentifier(const std::string& identifier, bool isMandatory);
  void deregisterIncompleteEventIdentifier(const std::string& identifier);
  std::vector<std::string> incompleteEventIdentifiers() const;
  std::vector<std::string> incompleteMandatoryEventIdentifiers() const;
  // After a crash: deletes every event whose identifier is still registered
  // as incomplete (and any event left in the incomplete type), deregisters
  // them and returns the identifiers that were mandatory.
  std::vector<std::string> removeIncompleteEvents();

  // --- Revisions of this store (-1 when there is none). Throw SyncException
  // "Failed to fetch revisions" when the database cannot be read.
  std::int64_t lastSaveRevisionSaved() const;
  std::int64_t lastMergeRevisionSaved() const;
  std::int64_t lastRevisionSaved() const;
  std::int64_t baselineRevision() const;
  std::optional<std::string> currentBaselineIdentifier() const;

  void removeUnusedData();
  void removeUnusedDataWithCompletion(std::function<void()> completion);

  // --- Data files.
  std::optional<std::string> storeDataInFile(const Value::Data& data);
  std::optional<std::string> storeDataInFile(const Value::Data& data, const std::string& name);
  bool importDataFile(const std::filesystem::path& path);
  bool exportDataFile(const std::string& name, const std::filesystem::path& directory);
  // Moves a newly imported file to "data" on its first read.
  std::optional<Value::Data> dataForFile(const std::string& name);
  std::set<std::string> allDataFilenames() const;
  std::set<std::string> previouslyReferencedDataFilenames() const;
  std::set<std::string> newlyImportedDataFilenames() const;
  bool removePreviouslyReferencedDataFile(const std::string& name);
  bool removeNewlyImportedDataFile(const std::string& name);
  // Deletes every file in "data" that no data file row of a change names.
  void removeUnreferencedDataFiles();

 private:
  OptionalError readStoreMetadata();
  void saveStoreMetadata();
  OptionalError setupCoreDataStack();
  std::int64_t lastRevisionMatching(const std::string& format, int typeA, int typeB) const;

  std::string ensembleIdentifier_;
  std::filesystem::path root_;
  OptionalError setupError_;

  mutable std::recursive_mutex mutex_;
  std::optional<std::string> persistentStoreIdentifier_;
  std::optional<Value::Data> cloudFileSystemIdentity_;
  bool verifiesStoreRegistrationInCloud_ = true;
  std::optional<std::string> identifierOfBaselineUsedToConstructStore_;
  std::map<std::string, bool> incompleteEventIdentifiers_;

  std::shared_ptr<PersistentStoreCoordinator> coordinator_;
  std::shared_ptr<ManagedObjectContext> context_;
  ScopedObserver didSaveObserver_;
};

}  // namespace lumeo
