// Recording the journal as it stands after a crash.
#include "sync/sync_capture_recovery.h"

#include <unordered_set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "platform/log.h"
#include "store/mood_record.h"
#include "sync/sync_event_builder.h"
#include "sync/sync_event_store.h"

namespace lumeo {

SyncResult<SyncRecoveryReport> syncRecoverAfterCrash(SyncEventStore& eventStore,
                                                     ManagedObjectContext& journal,
                                                     const SyncEnsembleHooks* ensemble) {
  SyncRecoveryReport report;
  if (!eventStore.containsEventData()) return report;
  report.removedIncompleteEvents = eventStore.removeIncompleteEvents();
  if (report.removedIncompleteEvents.empty()) return report;
  LUMEO_LOG_WARNING("A save may have missed its event; recording the journal as it stands");

  auto eventContext = eventStore.managedObjectContext();
  auto coordinator = journal.persistentStoreCoordinator();
  if (!coordinator) return syncError(kSyncErrorCodeUnknown, "The journal context has no store");

  // What the event store knows: every row that points into this journal and
  // that some change vouches for. A row without changes may be what a
  // crash left of an event that never got its changes.
  std::unordered_set<std::string> known;
  std::vector<ManagedObjectID> gone;
  eventContext->performBlockAndWait([&] {
    FetchRequest request(kSyncGlobalIdentifierEntity);
    request.setPredicate(Predicate::predicateWithFormat("storeURI != NIL AND objectChanges.@count > 0"));
    for (const auto& row : eventContext->executeFetchRequest(request)) {
      std::string uri = row->valueForKey("storeURI").toString();
      known.insert(uri);
      auto id = coordinator->managedObjectIDForURIRepresentation(uri);
      if (!id) continue;
      OptionalError error;
      if (!journal.existingObjectWithID(*id, error) && error &&
          error->code == kManagedObjectReferentialIntegrityError) {
        gone.push_back(*id);
      }
    }
  });

  std::vector<ManagedObjectPtr> unrecorded;
  std::vector<ManagedObjectPtr> recorded;
  SyncPropertyChangeValuesByObjectID values;
  SyncEventBuilder builder(eventStore);
  builder.setEnsemble(ensemble);
  for (const EntityDescription* entity : coordinator->managedObjectModel().entities()) {
    if (entity->isAbstract()) continue;
    FetchRequest request(entity->name());
    request.setIncludesSubentities(false);
    OptionalError error;
    FetchResults objects = journal.executeFetchRequest(request, error);
    if (error) return *error;
    for (const auto& object : objects) {
      if (known.count(object->objectID().URIRepresentation())) {
        recorded.push_back(object);
        std::vector<std::string> names =
            SyncEventBuilder::propertyNamesWithPhoto(*object, entity->propertyNames());
        values[object->objectID()] = builder.propertyChangesForObject(*object, names, false, false);
      } else {
        unrecorded.push_back(object);
      }
    }
  }
  if (unrecorded.empty() && recorded.empty() && gone.empty()) return report;

  std::string identifier = globallyUniqueString();
  eventStore.registerIncompleteEventIdentifier(identifier, true);
  SyncInsertChangesData inserted = builder.changesDataForInsertedObjects(unrecorded, true, journal);
  SyncUpdateChangesData updated =
      builder.changesDataForUpdatedObjects(recorded, journal, kSyncUpdateOptionStoreValues, &values);
  SyncDeleteChangesData deleted;
  deleted.orderedObjectIDs = gone;
  builder.addGlobalIdentifiersForInsertChangesData(inserted);
  builder.makeNewEventOfType(kSyncEventTypeSave, identifier);
  builder.addInsertChangesForChangesData(inserted);
  builder.addUpdateChangesForChangesData(updated);
  builder.addDeleteChangesForChangesData(deleted);
  builder.finalizeNewEvent();
  OptionalError saveError;
  eventContext->performBlockAndWait([&] { saveError = eventContext->save(); });
  if (saveError) return *saveError;
  eventStore.deregisterIncompleteEventIdentifier(identifier);
  report.recaptured = true;
  return report;
}

}  // namespace lumeo
