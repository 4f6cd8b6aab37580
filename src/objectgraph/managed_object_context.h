// A context is a scratch pad of objects over a coordinator or a parent
// context: it tracks inserts, changes and deletes, runs the objects' hooks,
// and saves all of it at once. A root context saves into the store in one
// SQLite transaction; a child context saves into its parent.
//
// Threading contract:
// - kMainQueue: use from the main thread, or through performBlock, which
//   queues the block on the main queue.
// - kPrivateQueue: use only inside performBlock / performBlockAndWait, which
//   run on the context's own serial queue.
// - kConfinement: use from one thread at a time; performBlock and
//   performBlockAndWait run the block at once on the caller's thread.
// Every call takes the context's (recursive) lock, and a child takes its
// parent's lock after its own, never the other way round, so that a child
// on a private queue may read and save through a main-queue parent.
//
// Notifications (NotificationCenter::defaultCenter()), posted on the thread
// that saves, with the context as sender and a ContextSaveInfo as object:
//   kManagedObjectContextWillSaveNotification, before the hooks run;
//   kManagedObjectContextDidSaveNotification, after a successful save, with
//   the inserted, updated and deleted objects.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_id.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "platform/error.h"
#include "platform/notification_center.h"

namespace lumeo {

class DispatchQueue;
class ContextCore;

enum class ConcurrencyType { kConfinement, kPrivateQueue, kMainQueue };

// What wins when a save finds that the store's row changed since the object
// was read: kError fails the save with kManagedObjectMergeError (133020);
// kObjectTrump writes the context's changed properties over the store's
// (the event store's policy); kStoreTrump keeps the store's values for the
// changed properties; kRollback drops the context's change of that object.
enum class MergePolicy { kError, kObjectTrump, kStoreTrump, kRollback };

inline constexpr const char* kManagedObjectContextWillSaveNotification =
    "ManagedObjectContextWillSaveNotification";
inline constexpr const char* kManagedObjectContextDidSaveNotification =
    "ManagedObjectContextDidSaveNotification";
inline constexpr const char* kManagedObjectContextObjectsDidChangeNotification =
    "ManagedObjectContextObjectsDidChangeNotification";

// Key of the userInfo of an objects-did-change notification after a merge:
// an array of the URI strings of the objects that left the context (and
// "refreshed" for those reloaded).
inline constexpr const char* kDeletedObjectsKey = "deleted";

class ManagedObjectContext;

// The object of will-save and did-save notifications.
struct ContextSaveInfo {
  ManagedObjectContext* context = nullptr;  // identity only; may be gone
  std::weak_ptr<ManagedObjectContext> contextRef;
  std::shared_ptr<PersistentStoreCoordinator> coordinator;  // root saves only
  bool isChildSave = false;                                 // the save went into a parent context
  // Did-save only. Objects as they are in the saving context; IDs are the
  // permanent ones given by this save.
  std::vector<ManagedObjectPtr> insertedObjects;
  std::vector<ManagedObjectPtr> updatedObjects;
  std::vector<ManagedObjectPtr> deletedObjects;
  std::vector<ManagedObjectID> insertedObjectIDs;
  std::vector<ManagedObjectID> updatedObjectIDs;
  std::vector<ManagedObjectID> deletedObjectIDs;

  // The info of a will-save or did-save notification, or null.
  static std::shared_ptr<const ContextSaveInfo> fromNotification(const Notification& notification);
};

class ManagedObjectContext : public std::enable_shared_from_this<ManagedObjectContext> {
 public:
  explicit ManagedObjectContext(ConcurrencyType type = ConcurrencyType::kConfinement);
  ~ManagedObjectContext();
  ManagedObjectContext(const ManagedObjectContext&) = delete;
  ManagedObjectContext& operator=(const ManagedObjectContext&) = delete;

  ConcurrencyType concurrencyType() const { return type_; }
  void setName(std::string name);
  std::string name() const;

  // A context has either a coordinator or a parent. A child reads through its
  // parent (and sees its unsaved objects) and saves into it.
  void setPersistentStoreCoordinator(std::shared_ptr<PersistentStoreCoordinator> coordinator);
  std::shared_ptr<PersistentStoreCoordinator> persistentStoreCoordinator() const;
  void setParentContext(std::shared_ptr<ManagedObjectContext> parent);
  std::shared_ptr<ManagedObjectContext> parentContext() const;

  void setMergePolicy(MergePolicy policy);
  MergePolicy mergePolicy() const;

  void performBlock(std::function<void()> block);
  void performBlockAndWait(const std::function<void()>& block);

  // --- Objects.
  // Throws std::invalid_argument for an unknown or abstract entity.
  ManagedObjectPtr insertNewObjectForEntityForName(const std::string& entityName);
  template <class T>
  std::shared_ptr<T> insertNewObject(const std::string& entityName) {
    return std::dynamic_pointer_cast<T>(insertNewObjectForEntityForName(entityName));
  }
  // Runs prepareForDeletion, then applies the delete rules (nullify or
  // cascade) of the object's relationships. Everything those rules walk is
  // read first: when a read fails, nothing is deleted and the error returns.
  [[nodiscard]] OptionalError deleteObject(const ManagedObjectPtr& object);
  // The registered object or a fault for the ID; the fault is not checked
  // against the store until read.
  ManagedObjectPtr objectWithID(const ManagedObjectID& id);
  // The object if it exists (loading it); null otherwise, with `error` set
  // to kManagedObjectReferentialIntegrityError when there is no such row,
  // or to the store's error when it could not be read. The second form
  // logs the error at debug level.
  ManagedObjectPtr existingObjectWithID(const ManagedObjectID& id, OptionalError& error);
  ManagedObjectPtr existingObjectWithID(const ManagedObjectID& id);
  ManagedObjectPtr objectRegisteredForID(const ManagedObjectID& id) const;

  // --- Fetching. On failure the results are empty and `error` is set; the
  // forms without `error` log it at debug level.
  FetchResults executeFetchRequest(const FetchRequest& request, OptionalError& error);
  FetchResults executeFetchRequest(const FetchRequest& request);
  // The saved values of the request's properties to fetch (and
  // expressions), row by row in the request's order, as dictionary results
  // would hold them but without making a dictionary per row: `row` gets one
  // value per property, null where the row has none. Like dictionary
  // results, it reads the store and does not see unsaved changes.
  [[nodiscard]] OptionalError forEachFetchedRow(const FetchRequest& request,
                                                const std::function<void(const std::vector<Value>&)>& row);
  // Count of matching objects; SIZE_MAX with `error` set on failure.
  std::size_t countForFetchRequest(const FetchRequest& request, OptionalError& error);
  std::size_t countForFetchRequest(const FetchRequest& request);

  // --- Changes.
  bool hasChanges() const;
  std::vector<ManagedObjectPtr> insertedObjects() const;
  std::vector<ManagedObjectPtr> updatedObjects() const;
  std::vector<ManagedObjectPtr> deletedObjects() const;
  std::vector<ManagedObjectPtr> registeredObjects() const;
  // Kept for API compatibility: changes are processed as they are made.
  void processPendingChanges() {}

  // Saves every change. On failure returns the error, keeps every change in
  // the context, and leaves the store (or the parent) as it was. A change
  // that could not be made whole because a read failed (a relationship's
  // other side that could not be loaded) fails every save with that error
  // until rollback() or reset(): the file never gets half of it.
  [[nodiscard]] OptionalError save();

  // Turns the object back into a fault (mergeChanges false: its unsaved
  // changes are dropped) or reloads it and reapplies its unsaved changes on
  // top (mergeChanges true).
  void refreshObject(const ManagedObjectPtr& object, bool mergeChanges);
  void refreshAllObjects();
  // Forgets every object: all registered objects lose their context.
  void reset();
  // Drops all unsaved changes.
  void rollback();

  // Gives the objects permanent IDs now (reserving their rows) rather than at
  // the save.
  [[nodiscard]] OptionalError obtainPermanentIDsForObjects(const std::vector<ManagedObjectPtr>& objects);

  // Brings the effects of another context's save (on the same store) into
  // this one: updated objects are reloaded (keeping this context's own
  // unsaved changes on top), deleted ones are removed, and a fetch sees the
  // inserted ones. Posts kManagedObjectContextObjectsDidChangeNotification.
  void mergeChangesFromContextDidSaveNotification(const Notification& notification);

  // Internal machinery shared with objects and fetch results.
  ContextCore& core() const { return *core_; }
  std::recursive_mutex& mutex() const;

 private:
  ConcurrencyType type_;
  std::unique_ptr<ContextCore> core_;
  std::shared_ptr<DispatchQueue> queue_;
};

}  // namespace lumeo
