// Capturing saves of the journal store as events.
#include "sync/sync_save_monitor.h"

#include <system_error>

#include "objectgraph/persistent_store_coordinator.h"
#include "platform/log.h"
#include "store/mood_record.h"
#include "sync/sync_event_integrator.h"
#include "sync/sync_event_store.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kCaptureBatchSize = 50;

}  // namespace

SyncSaveMonitor::SyncSaveMonitor(fs::path storePath, std::shared_ptr<SyncEventStore> eventStore)
    : storePath_(syncStandardisedPath(storePath)),
      storeMatch_(storePath_),
      eventStore_(std::move(eventStore)) {
  auto& center = NotificationCenter::defaultCenter();
  willSaveObserver_ = ScopedObserver(center, kManagedObjectContextWillSaveNotification, nullptr,
                                     [this](const Notification& n) { contextWillSave(n); });
  didSaveObserver_ = ScopedObserver(center, kManagedObjectContextDidSaveNotification, nullptr,
                                    [this](const Notification& n) { contextDidSave(n); });
}

SyncSaveMonitor::~SyncSaveMonitor() {
  stopMonitoring();
}

void SyncSaveMonitor::stopMonitoring() {
  willSaveObserver_.reset();
  didSaveObserver_.reset();
}

bool SyncSaveMonitor::isMonitoredContext(const ManagedObjectContext& context) const {
  if (context.parentContext()) return false;
  auto coordinator = context.persistentStoreCoordinator();
  if (!coordinator) return false;
  for (PersistentStore* store : coordinator->persistentStores()) {
    if (!store->URL().empty() && storeMatch_.matches(store->URL())) return true;
  }
  return false;
}

std::vector<ManagedObjectPtr> SyncSaveMonitor::monitoredManagedObjectsInSet(
    const std::vector<ManagedObjectPtr>& objects) const {
  std::vector<ManagedObjectPtr> out;
  for (const auto& object : objects) {
    ManagedObjectContext* context = object->managedObjectContext();
    if (context && isMonitoredContext(*context)) out.push_back(object);
  }
  return out;
}

void SyncSaveMonitor::contextWillSave(const Notification& notification) {
  auto info = ContextSaveInfo::fromNotification(notification);
  if (!info || info->isChildSave || !info->context) return;
  if (!eventStore_->containsEventData()) return;
  ManagedObjectContext& context = *info->context;
  if (!isMonitoredContext(context)) return;
  NotificationCenter::defaultCenter().post(kSyncMonitoredManagedObjectContextWillSaveNotification, &context);

  std::vector<ManagedObjectPtr> updated = monitoredManagedObjectsInSet(context.updatedObjects());
  LUMEO_LOG_VERBOSE("Storing pre-save changes from updated objects");
  SyncEventBuilder builder(*eventStore_);
  SyncPropertyChangeValuesByObjectID values;
  sync_enumerateObjectsDrainingEveryIterations(
      updated, kCaptureBatchSize, [&](const ManagedObjectPtr& object, std::size_t, bool&) {
        std::vector<std::string> names =
            SyncEventBuilder::propertyNamesWithPhoto(*object, object->changedPropertyNames());
        auto list = builder.propertyChangesForObject(*object, names, true, false);
        if (!list.empty()) values[object->objectID()] = std::move(list);
      });
  std::lock_guard lock(mutex_);
  PendingSave& pending = changedValuesByContext_[&context];
  pending.values = std::move(values);
  // Registered before the journal is written, not after: a crash between
  // the journal's commit and the event must leave this mark behind. A save
  // that failed before keeps its mark for the retry.
  if (pending.eventIdentifier.empty()) {
    pending.eventIdentifier = globallyUniqueString();
    eventStore_->registerIncompleteEventIdentifier(pending.eventIdentifier, true);
  }
}

void SyncSaveMonitor::contextDidSave(const Notification& notification) {
  auto info = ContextSaveInfo::fromNotification(notification);
  if (!info || info->isChildSave || !info->context) return;
  if (!eventStore_->containsEventData()) return;
  ManagedObjectContext& context = *info->context;
  if (auto integrator = integrator_.lock()) {
    if (integrator->managedObjectContext().get() == &context) return;
  }
  if (!isMonitoredContext(context)) return;

  LUMEO_LOG_VERBOSE("Storing changes post-save");
  SyncPropertyChangeValuesByObjectID preSave;
  std::string eventIdentifier;
  {
    std::lock_guard lock(mutex_);
    auto it = changedValuesByContext_.find(&context);
    if (it != changedValuesByContext_.end()) {
      preSave = std::move(it->second.values);
      eventIdentifier = std::move(it->second.eventIdentifier);
      changedValuesByContext_.erase(it);
    }
  }
  if (eventIdentifier.empty()) {
    eventIdentifier = globallyUniqueString();
    eventStore_->registerIncompleteEventIdentifier(eventIdentifier, true);
  }
  if (info->insertedObjects.empty() && info->updatedObjects.empty() && info->deletedObjects.empty()) {
    eventStore_->deregisterIncompleteEventIdentifier(eventIdentifier);
    return;
  }

  auto builder = std::make_shared<SyncEventBuilder>(*eventStore_);
  builder->setEnsemble(ensemble_);
  auto inserted = std::make_shared<SyncInsertChangesData>(builder->changesDataForInsertedObjects(
      monitoredManagedObjectsInSet(info->insertedObjects), true, context));
  auto updated = std::make_shared<SyncUpdateChangesData>(builder->changesDataForUpdatedObjects(
      monitoredManagedObjectsInSet(info->updatedObjects), context, kSyncUpdateOptionStoreValues, &preSave));
  // Deleted objects have left their context: take them as the save gave them.
  auto deleted = std::make_shared<SyncDeleteChangesData>();
  deleted->orderedObjectIDs = info->deletedObjectIDs;
  if (deleted->orderedObjectIDs.empty()) {
    for (const auto& object : info->deletedObjects) deleted->orderedObjectIDs.push_back(object->objectID());
  }
  {
    std::vector<ManagedObjectID> kept;
    for (const auto& id : deleted->orderedObjectIDs) {
      if (!id.isTemporaryID() && !id.storeIdentifier().empty()) kept.push_back(id);
    }
    deleted->orderedObjectIDs = std::move(kept);
  }

  if (inserted->changeArrays.empty() && updated->objectIDs.empty() && deleted->orderedObjectIDs.empty()) {
    eventStore_->deregisterIncompleteEventIdentifier(eventIdentifier);
    return;
  }

  std::shared_ptr<SyncEventStore> eventStore = eventStore_;
  auto eventContext = eventStore->managedObjectContext();
  eventContext->performBlock(
      [eventStore, eventContext, builder, inserted, updated, deleted, eventIdentifier] {
        auto saveEvents = [&] {
          if (OptionalError error = eventContext->save()) {
            LUMEO_LOG_ERROR("Error saving event store: %@", static_cast<const Error&>(*error));
          }
        };
        builder->addGlobalIdentifiersForInsertChangesData(*inserted);
        builder->makeNewEventOfType(kSyncEventTypeSave, eventIdentifier);
        builder->addInsertChangesForChangesData(*inserted);
        saveEvents();
        builder->addUpdateChangesForChangesData(*updated);
        saveEvents();
        builder->addDeleteChangesForChangesData(*deleted);
        builder->finalizeNewEvent();
        saveEvents();
        eventStore->deregisterIncompleteEventIdentifier(eventIdentifier);
      });
  NotificationCenter::defaultCenter().post(kSyncMonitoredManagedObjectContextDidSaveNotification, &context);
}

}  // namespace lumeo
