// Turns inserted, updated and deleted journal objects into an event: one
// SyncObjectChange per object, holding SyncPropertyChangeValues for its
// attributes and relationships, with every related object named by its
// global identifier. Save events (capture), merge events (repairs during a
// merge) and, later, baselines are all made here.
//
// Work is split in two: the "changes data" is read from the journal
// objects on the saving context's thread; the rows are written on the event
// context's queue.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_context.h"
#include "sync/sync_ensemble_hooks.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_property_change_value.h"
#include "sync/sync_revision.h"

namespace lumeo {

class SyncEventStore;

// Options of updateWithObject: which values a change reads.
enum SyncUpdateOption : unsigned {
  kSyncUpdateOptionIsPreSave = 2,
  kSyncUpdateOptionIsPreSaveAndStoreValues = 4,
  kSyncUpdateOptionStoreValues = 8,
};

struct SyncInsertChangesData {
  std::vector<std::vector<SyncPropertyChangeValue>> changeArrays;
  std::vector<std::string> entityNames;
  std::vector<std::string> objectURIs;
  std::optional<std::vector<std::optional<std::string>>> globalIdStrings;
  std::vector<std::shared_ptr<SyncGlobalIdentifier>> globalIds;  // filled on the event context
};

struct SyncUpdateChangesData {
  std::vector<ManagedObjectID> objectIDs;
  std::map<ManagedObjectID, std::vector<SyncPropertyChangeValue>> propertyChangeValuesByObjectID;
};

struct SyncDeleteChangesData {
  std::vector<ManagedObjectID> orderedObjectIDs;
};

// Values before a save, filed by object: what the save monitor keeps from
// will-save to did-save.
using SyncPropertyChangeValuesByObjectID = std::map<ManagedObjectID, std::vector<SyncPropertyChangeValue>>;

class SyncEventBuilder {
 public:
  explicit SyncEventBuilder(SyncEventStore& eventStore,
                            std::shared_ptr<ManagedObjectContext> eventManagedObjectContext = nullptr);

  void setEnsemble(const SyncEnsembleHooks* ensemble) { ensemble_ = ensemble; }
  SyncEventStore& eventStore() { return eventStore_; }
  std::shared_ptr<ManagedObjectContext> eventManagedObjectContext() const { return eventContext_; }
  std::shared_ptr<SyncStoreModificationEvent> event() const { return event_; }
  std::int16_t eventType() const { return eventType_; }

  // Inserts the event, in the incomplete type, with the next revision of
  // this store and the next global count. Returns its own revision.
  SyncRevision makeNewEventOfType(std::int16_t type, const std::optional<std::string>& uniqueIdentifier);
  // Gives the event its real type: the last step of making it.
  void finalizeNewEvent();
  void performBlockAndWait(const std::function<void()>& block);

  // --- One go (on the saving context's thread).
  void addChangesForInsertedObjects(const std::vector<ManagedObjectPtr>& objects, bool objectsAreSaved,
                                    ManagedObjectContext& context);
  void addChangesForDeletedObjects(const std::vector<ManagedObjectPtr>& objects,
                                   ManagedObjectContext& context);
  void addChangesForUpdatedObjects(const std::vector<ManagedObjectPtr>& objects,
                                   ManagedObjectContext& context, unsigned options,
                                   const SyncPropertyChangeValuesByObjectID* valuesByObjectID);
  void addChangesForUnsavedUpdatedObjects(const std::vector<ManagedObjectPtr>& objects,
                                          ManagedObjectContext& context);
  // Everything unsaved in `context` (a repair): obtains permanent IDs for
  // its new objects first.
  OptionalError addChangesForUnsavedManagedObjectContext(ManagedObjectContext& context);

  // --- Step one, on the saving context's thread.
  SyncInsertChangesData changesDataForInsertedObjects(const std::vector<ManagedObjectPtr>& objects,
                                                      bool objectsAreSaved, ManagedObjectContext& context);
  SyncUpdateChangesData changesDataForUpdatedObjects(
      const std::vector<ManagedObjectPtr>& objects, ManagedObjectContext& context, unsigned options,
      const SyncPropertyChangeValuesByObjectID* valuesByObjectID);
  SyncDeleteChangesData changesDataForDeletedObjects(const std::vector<ManagedObjectPtr>& objects,
                                                     ManagedObjectContext& context);

  // --- The rest, on the event context's queue (they wait for it).
  void addGlobalIdentifiersForInsertChangesData(SyncInsertChangesData& data);
  void addInsertChangesForChangesData(const SyncInsertChangesData& data);
  void addUpdateChangesForChangesData(const SyncUpdateChangesData& data);
  void addDeleteChangesForChangesData(const SyncDeleteChangesData& data);
  void addObjectChangeOfType(std::int16_t type, const std::shared_ptr<SyncGlobalIdentifier>& globalIdentifier,
                             const std::string& entityName,
                             std::optional<std::vector<SyncPropertyChangeValue>> values);

  // Values for the named properties of an object (attributes, to-one, to-many,
  // ordered to-many and "photoData").
  std::vector<SyncPropertyChangeValue> propertyChangesForObject(const ManagedObject& object,
                                                                const std::vector<std::string>& propertyNames,
                                                                bool isPreSave, bool storeValues);
  void updateWithObject(SyncPropertyChangeValue& value, const ManagedObject& object, bool isPreSave,
                        bool storeValues);

  // The property names captured for an object: the given ones, plus
  // "photoData" for a description that has a photo.
  static std::vector<std::string> propertyNamesWithPhoto(const ManagedObject& object,
                                                         std::vector<std::string> names);

 private:
  SyncEventStore& eventStore_;
  std::shared_ptr<ManagedObjectContext> eventContext_;
  const SyncEnsembleHooks* ensemble_ = nullptr;
  std::shared_ptr<SyncStoreModificationEvent> event_;
  std::int16_t eventType_ = kSyncEventTypeIncomplete;
};

}  // namespace lumeo
