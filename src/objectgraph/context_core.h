// The machinery behind a ManagedObjectContext: the registry of objects by ID,
// faulting from the parent or the store, change tracking, relationship
// maintenance, saving, merging and fetching. Every member runs with `mutex`
// held. Internal to the object-graph module.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/object_registry.h"
#include "objectgraph/object_state.h"

namespace lumeo {

class SQLiteStore;

struct FetchResults::Source {
  std::weak_ptr<ManagedObjectContext> context;
  ContextCore* core = nullptr;
  std::vector<ManagedObjectID> ids;       // unless holdsObjects
  std::vector<ManagedObjectPtr> objects;  // all of them when holdsObjects
  bool holdsObjects = false;              // object results, not batched
  std::size_t batchSize = 0;
  mutable std::size_t batchStart = 0;
  mutable std::vector<ManagedObjectPtr> batch;
  std::vector<ManagedObjectPtr> keepAlive;  // prefetched targets
  ManagedObjectPtr at(std::size_t index) const;
};

class ContextCore {
 public:
  explicit ContextCore(ManagedObjectContext& owner) : owner_(owner) {}
  ~ContextCore();

  ManagedObjectContext& owner_;
  mutable std::recursive_mutex mutex_;
  std::shared_ptr<PersistentStoreCoordinator> coordinator_;
  std::shared_ptr<ManagedObjectContext> parent_;
  MergePolicy mergePolicy_ = MergePolicy::kError;
  std::string name_;

  // --- Registry.
  PersistentStoreCoordinator* rootCoordinator() const;
  const ManagedObjectModel* model() const;
  ManagedObjectID resolveID(const ManagedObjectID& id) const;
  ManagedObjectPtr registeredObject(const ManagedObjectID& id) const;
  // The registered object or a new fault.
  ManagedObjectPtr objectForID(const ManagedObjectID& id);
  // The registered object (filled from the row if it is a fault) or a new one.
  ManagedObjectPtr objectFromSnapshot(RowSnapshot&& row);
  // The same for the row a selectPrefix() statement is on, read straight into
  // the object. awakeFromFetch is left to the caller (the filled objects are
  // appended to `awaken`): a hook may read the store, which must wait until
  // the statement is done.
  ManagedObjectPtr objectFromStatement(const SQLiteStore& store, const EntityDescription& anyOfChain,
                                       sqlite3_stmt* statement, std::vector<ManagedObject*>& awaken);
  void registerObject(const ManagedObjectPtr& object);
  void forget(const ManagedObjectID& id, const ManagedObject* object);
  void rekey(ManagedObject& object, const ManagedObjectID& newID);
  void detach(ManagedObject& object);
  std::vector<ManagedObjectPtr> allRegistered() const;

  // --- Faulting. False when the object's row does not exist (any more) or
  // could not be read; then `error` tells which: unset when the row is gone,
  // the store's error when reading failed. An object whose read failed stays
  // a fault, and a to-many set whose read failed stays unloaded, so that a
  // later call reads again rather than taking the failure for an empty row.
  [[nodiscard]] bool fireFault(ManagedObject& object, OptionalError& error) const;
  [[nodiscard]] bool loadSnapshot(const ManagedObjectID& id, RowSnapshot& out, OptionalError& error) const;
  [[nodiscard]] bool loadToMany(const ManagedObjectID& id, const RelationshipDescription& r,
                                std::vector<ManagedObjectID>& out, OptionalError& error) const;
  [[nodiscard]] bool ensureToManyLoaded(ObjectState& state, const RelationshipDescription& r,
                                        OptionalError& error) const;
  // For accessors, which have no way to report an error: a failed read is
  // logged and reads as a missing row or an empty set.
  [[nodiscard]] bool fireFaultForRead(ManagedObject& object) const;
  void ensureToManyLoadedForRead(ObjectState& state, const RelationshipDescription& r) const;
  // For changes, which have no way to report an error either: a failed read
  // leaves the change incomplete, so it is kept as the pending error that
  // fails the next save until a rollback or reset.
  [[nodiscard]] bool fireFaultForChange(ManagedObject& object);
  // Called by a child on its parent.
  [[nodiscard]] bool snapshotForChild(const ManagedObjectID& id, RowSnapshot& out, OptionalError& error);
  [[nodiscard]] bool toManyForChild(const ManagedObjectID& id, const RelationshipDescription& r,
                                    std::vector<ManagedObjectID>& out, OptionalError& error);
  // The first failed read behind a change since the last rollback or reset.
  OptionalError pendingError_;
  void notePendingError(const Error& error);

  // --- Changes.
  void markChanged(ObjectState& state);
  void track(ManagedObject& object);
  std::vector<ManagedObjectPtr> trackedObjects() const;
  ManagedObjectPtr insert(const EntityDescription& entity);
  // Reads everything the delete rules will walk (the rows and to-many sets
  // of the object and of all it cascades to) before changing anything, so
  // that a failed read leaves the context as it was and returns the error.
  [[nodiscard]] OptionalError deleteObject(ManagedObject& object);
  void setToOne(ManagedObject& object, const RelationshipDescription& r, const ManagedObjectID& target,
                bool maintainInverse);
  void addToMany(ManagedObject& object, const RelationshipDescription& r, const ManagedObjectID& member,
                 bool maintainInverse, std::optional<std::size_t> index = std::nullopt);
  void removeToMany(ManagedObject& object, const RelationshipDescription& r, const ManagedObjectID& member,
                    bool maintainInverse);
  bool hasChanges() const;

  // --- Save, refresh, merge (context_save.cpp).
  [[nodiscard]] OptionalError save();
  [[nodiscard]] OptionalError obtainPermanentIDs(const std::vector<ManagedObjectPtr>& objects);
  void refresh(ManagedObject& object, bool mergeChanges);
  void reset();
  void rollback();
  void mergeDidSave(const ContextSaveInfo& info);

  // --- Fetch (context_fetch.cpp).
  [[nodiscard]] FetchResults fetch(const FetchRequest& request, OptionalError& error);
  // The saved values of the request's properties, row by row (see
  // ManagedObjectContext::forEachFetchedRow).
  [[nodiscard]] OptionalError forEachRow(const FetchRequest& request,
                                         const std::function<void(const std::vector<Value>&)>& row);
  [[nodiscard]] std::size_t count(const FetchRequest& request, OptionalError& error);
  // Matching IDs in order, or, when `objects` is given, the matching objects
  // in order there and `ids` left empty (the objects carry their IDs, and a
  // second list of 100,000 IDs is memory a large fetch can do without).
  [[nodiscard]] bool fetchIDs(const FetchRequest& request, const EntityDescription& entity,
                              std::vector<ManagedObjectID>& ids, std::vector<ManagedObjectPtr>* objects,
                              OptionalError& error);
  void loadBatch(const FetchResults::Source& source, std::size_t start) const;

 private:
  void runWillSave(std::vector<ManagedObjectPtr>& tracked);
  [[nodiscard]] OptionalError saveToStore(std::vector<ManagedObjectPtr>& tracked,
                                          std::vector<ManagedObjectPtr>& refreshAfter);
  [[nodiscard]] OptionalError saveToParent(std::vector<ManagedObjectPtr>& tracked);
  [[nodiscard]] bool assignPermanentIDs(const std::vector<ManagedObject*>& objects,
                                        std::vector<std::pair<ManagedObject*, ManagedObjectID>>& assigned,
                                        OptionalError& error);
  void remapReferences(const IdTable<ManagedObjectID>& map, bool fromTemporary);
  [[nodiscard]] bool prefetch(const std::vector<ManagedObjectPtr>& objects, const std::string& keyPath,
                              std::vector<ManagedObjectPtr>& keepAlive, OptionalError& error);
  // With `row`, each row's values go to it (in the order of the fetched
  // properties and expressions) instead of into dictionaries.
  [[nodiscard]] FetchResults fetchDictionaries(
      const FetchRequest& request, const EntityDescription& entity, OptionalError& error,
      const std::function<void(const std::vector<Value>&)>* row = nullptr);

  [[nodiscard]] bool loadForDeletion(ManagedObject& object, std::unordered_set<const ManagedObject*>& visited,
                                     OptionalError& error);
  void deleteLoaded(ManagedObject& object);

  ObjectRegistry registered_;
  std::vector<ManagedObjectPtr> tracked_;
  IdTable<ManagedObjectID> remapped_;
};

}  // namespace lumeo
