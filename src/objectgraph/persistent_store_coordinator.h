// The coordinator joins a model to one persistent store: an SQLite file, or
// an SQLite database held in memory. It owns the store's connection and
// serialises all access to it; contexts read and save through it.
// Thread-safe: every call may come from any thread.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object_id.h"
#include "objectgraph/managed_object_model.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

class SQLiteStore;

inline constexpr const char* kSQLiteStoreType = "SQLite";
inline constexpr const char* kInMemoryStoreType = "InMemory";
// Event files use this type; it is an SQLite file as well.
inline constexpr const char* kBinaryStoreType = "Binary";

// Store options (a dictionary, as the callers keep them).
inline constexpr const char* kMigratePersistentStoresAutomaticallyOption =
    "MigratePersistentStoresAutomaticallyOption";
inline constexpr const char* kInferMappingModelAutomaticallyOption = "InferMappingModelAutomaticallyOption";
// Dictionary of pragma name to value, e.g. {"journal_mode": "DELETE"}.
inline constexpr const char* kSQLitePragmasOption = "SQLitePragmasOption";
inline constexpr const char* kReadOnlyPersistentStoreOption = "ReadOnlyPersistentStoreOption";

// Store metadata keys.
inline constexpr const char* kStoreUUIDKey = "StoreUUID";
inline constexpr const char* kStoreTypeKey = "StoreType";

class PersistentStore {
 public:
  const std::string& type() const { return type_; }
  // The file; empty for an in-memory store.
  const std::filesystem::path& URL() const { return url_; }
  const std::string& identifier() const { return identifier_; }
  const Value::Dictionary& options() const { return options_; }
  Value::Dictionary metadata() const;

 private:
  friend class PersistentStoreCoordinator;
  std::string type_;
  std::filesystem::path url_;
  std::string identifier_;
  Value::Dictionary options_;
  Value::Dictionary metadata_;
};

class PersistentStoreCoordinator : public std::enable_shared_from_this<PersistentStoreCoordinator> {
 public:
  // Finalizes the model if that was not done.
  explicit PersistentStoreCoordinator(std::shared_ptr<ManagedObjectModel> model);
  ~PersistentStoreCoordinator();
  PersistentStoreCoordinator(const PersistentStoreCoordinator&) = delete;
  PersistentStoreCoordinator& operator=(const PersistentStoreCoordinator&) = delete;

  const ManagedObjectModel& managedObjectModel() const { return *model_; }
  std::shared_ptr<ManagedObjectModel> managedObjectModelPtr() const { return model_; }

  // Opens (creating if needed) the store. One store per coordinator; a second
  // add fails with kPersistentStoreOperationError. Migration of an older file
  // runs here: added entities, attributes and relationships are added to the
  // file when both migration options are true; otherwise a file made by
  // another model fails with kPersistentStoreIncompatibleVersionHashError.
  // On failure nothing of the file is changed and null is returned.
  PersistentStore* addPersistentStoreWithType(const std::string& type, const std::filesystem::path& url,
                                              const Value::Dictionary& options, OptionalError& error);
  PersistentStore* addPersistentStoreWithType(const std::string& type, const std::filesystem::path& url,
                                              const Value::Dictionary& options = {});
  bool removePersistentStore(PersistentStore* store, OptionalError& error);
  std::vector<PersistentStore*> persistentStores() const;
  PersistentStore* persistentStoreForURL(const std::filesystem::path& url) const;

  // The ID a URI stands for, if it names an entity of this model and the
  // coordinator's store. The object may no longer exist.
  std::optional<ManagedObjectID> managedObjectIDForURIRepresentation(const std::string& uri) const;

  // Reads a store file's metadata without opening it through a coordinator;
  // empty with an error when the file is no store.
  static Value::Dictionary metadataForPersistentStoreOfType(const std::string& type,
                                                            const std::filesystem::path& url,
                                                            OptionalError& error);

  // Runs `block` holding the coordinator's lock: no context reads or saves
  // through this coordinator meanwhile.
  void performBlockAndWait(const std::function<void()>& block);

  // For contexts: the store, or null when none was added.
  SQLiteStore* sqliteStore() const { return store_.get(); }
  std::recursive_mutex& mutex() const { return mutex_; }

 private:
  std::shared_ptr<ManagedObjectModel> model_;
  mutable std::recursive_mutex mutex_;
  std::unique_ptr<SQLiteStore> store_;
  std::unique_ptr<PersistentStore> storeInfo_;
};

}  // namespace lumeo
