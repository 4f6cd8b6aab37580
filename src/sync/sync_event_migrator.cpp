// Export of events into event files and import of event files.
#include "sync/sync_event_migrator.h"

#include <map>
#include <unordered_map>

#include "objectgraph/fetch_request.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/predicate.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "sync/sync_event_entities.h"
#include "sync/sync_event_store.h"
#include "sync/sync_property_change_value.h"

namespace lumeo {

namespace fs = std::filesystem;

using EventPtr = std::shared_ptr<SyncStoreModificationEvent>;

SyncEventMigrator::SyncEventMigrator(std::shared_ptr<SyncEventStore> eventStore)
    : eventStore_(std::move(eventStore)) {}

SyncEventFileContents SyncEventMigrator::contentsForStoreModificationEvents(
    const std::vector<EventPtr>& events, bool prefetch) {
  SyncEventFileContents contents;
  if (events.empty()) return contents;
  if (prefetch) {
    ManagedObjectContext& context = *events.front()->managedObjectContext();
    FetchRequest request(kSyncStoreModificationEventEntity);
    request.setPredicate(Predicate::predicateWithFormat("SELF IN %@", events));
    request.setRelationshipKeyPathsForPrefetching({"eventRevision", "eventRevisionsOfOtherStores",
                                                   "objectChanges", "objectChanges.globalIdentifier",
                                                   "objectChanges.dataFiles"});
    OptionalError prefetchError;
    (void)context.executeFetchRequest(request, prefetchError);
    if (prefetchError)
      throw SyncException("Could not read the events to export: " + prefetchError->toString());
  }

  std::map<std::pair<std::string, std::string>, std::uint32_t> identifierIndexes;
  contents.events.reserve(events.size());
  for (const auto& event : events) {
    SyncEventFileEvent& out = contents.events.emplace_back();
    out.uniqueIdentifier = event->uniqueIdentifier();
    out.type = event->type();
    out.globalCount = event->globalCount();
    out.timestamp = event->timestamp();
    out.modelVersion = event->modelVersion();
    if (auto own = event->eventRevision()) {
      out.eventRevision.persistentStoreIdentifier = own->persistentStoreIdentifier();
      out.eventRevision.revisionNumber = own->revisionNumber();
    }
    for (const auto& revision : event->eventRevisionsOfOtherStores()) {
      out.eventRevisionsOfOtherStores.push_back(
          {revision->persistentStoreIdentifier(), revision->revisionNumber()});
    }
    // Stable bytes for the same event: others by store.
    std::sort(out.eventRevisionsOfOtherStores.begin(), out.eventRevisionsOfOtherStores.end(),
              [](const auto& a, const auto& b) {
                return a.persistentStoreIdentifier < b.persistentStoreIdentifier;
              });
    auto changes = event->objectChanges();
    out.objectChanges.reserve(changes.size());
    for (const auto& change : changes) {
      auto global = change->globalIdentifier();
      if (!global)
        throw SyncException("An object change of event " + out.uniqueIdentifier +
                            " has no global identifier");
      // By value: rows are not kept alive from one change to the next.
      auto key = std::make_pair(global->globalIdentifier(), global->nameOfEntity());
      auto [it, fresh] =
          identifierIndexes.emplace(key, static_cast<std::uint32_t>(contents.globalIdentifiers.size()));
      if (fresh) contents.globalIdentifiers.push_back({key.first, key.second});
      SyncEventFileObjectChange& c = out.objectChanges.emplace_back();
      c.type = change->type();
      c.nameOfEntity = change->nameOfEntity();
      c.globalIdentifierIndex = it->second;
      c.propertyChangeValues = change->valueForKey("propertyChangeValues");
      for (const auto& file : change->objectsForKey("dataFiles"))
        c.dataFiles.push_back(file->valueForKey("filename").toString());
      std::sort(c.dataFiles.begin(), c.dataFiles.end());
    }
  }
  return contents;
}

OptionalError SyncEventMigrator::migrateStoreModificationEvents(const std::vector<EventPtr>& events,
                                                                const fs::path& file) {
  LUMEO_LOG_VERBOSE("Migrating event store events to file");
  auto context = eventStore_->managedObjectContext();
  if (!context) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  SyncEventFileContents contents;
  OptionalError error;
  context->performBlockAndWait([&] {
    try {
      contents = contentsForStoreModificationEvents(events);
    } catch (const SyncException& e) {
      error = errorForSyncException(e.reason());
    }
  });
  if (!error) error = syncWriteEventFile(file, contents);
  if (error)
    LUMEO_LOG_ERROR("Failed to migrate modification events out to file: %@",
                    static_cast<const Error&>(*error));
  return error;
}

OptionalError SyncEventMigrator::migrateLocalEventWithRevision(std::int64_t revisionNumber,
                                                               const fs::path& file,
                                                               const std::vector<int>& allowedTypes) {
  auto context = eventStore_->managedObjectContext();
  auto store = eventStore_->persistentStoreIdentifier();
  EventPtr event;
  if (context && store) {
    context->performBlockAndWait([&] {
      try {
        event = SyncStoreModificationEvent::fetchStoreModificationEventWithAllowedTypes(
            allowedTypes, store, revisionNumber, *context);
      } catch (const SyncException&) {
        event = nullptr;
      }
    });
  }
  if (!event) {
    return syncError(kSyncErrorCodeUnknown,
                     "Failed to fetch local event in migrateLocalEventToTemporaryFilesForRevision...");
  }
  return migrateStoreModificationEvents({event}, file);
}

OptionalError SyncEventMigrator::migrateLocalBaselineWithUniqueIdentifier(
    const std::string& uniqueIdentifier, std::int64_t globalCount,
    const std::optional<std::string>& persistentStorePrefix, const fs::path& file) {
  auto context = eventStore_->managedObjectContext();
  EventPtr baseline;
  if (context) {
    context->performBlockAndWait([&] {
      FetchRequest request(kSyncStoreModificationEventEntity);
      SyncEventFile name(true, globalCount, uniqueIdentifier, persistentStorePrefix.value_or(""), -1);
      request.setPredicate(
          persistentStorePrefix
              ? name.eventFetchPredicate()
              : Predicate::predicateWithFormat("type = %@ AND globalCount = %@ AND uniqueIdentifier = %@",
                                               int(kSyncEventTypeBaseline),
                                               static_cast<long long>(globalCount), uniqueIdentifier));
      OptionalError error;
      FetchResults found = context->executeFetchRequest(request, error);
      if (!error && !found.empty())
        baseline = std::dynamic_pointer_cast<SyncStoreModificationEvent>(found.lastObject());
    });
  }
  if (!baseline) {
    return syncError(kSyncErrorCodeUnknown,
                     "Failed to fetch local event in migrateLocalBaselineWithUniqueIdentifier...");
  }
  return migrateStoreModificationEvents({baseline}, file);
}

OptionalError SyncEventMigrator::migrateNonBaselineEventsSinceRevision(std::int64_t revisionNumber,
                                                                       const fs::path& file) {
  auto context = eventStore_->managedObjectContext();
  auto store = eventStore_->persistentStoreIdentifier();
  if (!context || !store) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  std::vector<EventPtr> events;
  OptionalError error;
  context->performBlockAndWait([&] {
    try {
      events = SyncStoreModificationEvent::fetchNonBaselineEventsForPersistentStoreIdentifier(
          *store, revisionNumber, *context);
    } catch (const SyncException& e) {
      error = errorForSyncException(e.reason());
    }
  });
  if (error) return error;
  return migrateStoreModificationEvents(events, file);
}

namespace {

bool isPlainFilename(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

bool isEventType(int type) {
  return type == kSyncEventTypeBaseline || type == kSyncEventTypeSave || type == kSyncEventTypeMerge;
}

bool isChangeType(int type) {
  return type == kSyncObjectChangeTypeInsert || type == kSyncObjectChangeTypeUpdate ||
         type == kSyncObjectChangeTypeDelete;
}

// Everything that can be checked without the store, so that a bad file
// is refused before a row is inserted.
void checkFileContents(const SyncEventFileContents& contents) {
  for (const auto& identifier : contents.globalIdentifiers) {
    if (identifier.globalIdentifier.empty() || identifier.nameOfEntity.empty())
      throw SyncException("The event file holds an empty global identifier");
  }
  for (const auto& event : contents.events) {
    if (event.uniqueIdentifier.empty())
      throw SyncException("The event file holds an event without identifier");
    if (!isEventType(event.type))
      throw SyncException("The event file holds an event of the unknown type " + std::to_string(event.type));
    if (event.eventRevision.persistentStoreIdentifier.empty())
      throw SyncException("The event file holds an event without its store");
    for (const auto& change : event.objectChanges) {
      if (!isChangeType(change.type)) throw SyncException("Invalid object change type");
      if (!change.propertyChangeValues.isNull())
        (void)SyncPropertyChangeValue::unarchiveArray(change.propertyChangeValues);
      if (change.propertyChangeValues.isNull() && change.type != kSyncObjectChangeTypeDelete)
        throw SyncException("The event file holds a change without values");
      for (const auto& file : change.dataFiles) {
        if (!isPlainFilename(file))
          throw SyncException("The event file names the data file \"" + file + "\"");
      }
    }
  }
}

}  // namespace

OptionalError SyncEventMigrator::importContents(const SyncEventFileContents& contents) {
  return importContents(std::vector<const SyncEventFileContents*>{&contents});
}

OptionalError SyncEventMigrator::checkContents(const SyncEventFileContents& contents) {
  try {
    checkFileContents(contents);
  } catch (const SyncException& e) {
    return errorForSyncException(e.reason());
  }
  return std::nullopt;
}

SyncResult<SyncEventFileContents> SyncEventMigrator::readEventFile(const fs::path& file) {
  auto read = syncReadEventFile(file);
  if (auto* error = std::get_if<Error>(&read)) return *error;
  if (OptionalError invalid = checkContents(std::get<SyncEventFileContents>(read))) {
    Error error = *invalid;
    error.description =
        "The event file \"" + file.filename().string() + "\" is malformed: " + error.description;
    return error;
  }
  return read;
}

OptionalError SyncEventMigrator::importContents(const std::vector<const SyncEventFileContents*>& files) {
  auto context = eventStore_->managedObjectContext();
  if (!context) return syncError(kSyncErrorCodeUnknown, "The event store holds no event data");
  OptionalError result;
  // All rows go in with one save, one SQLite transaction: a crash leaves all
  // of them or none, so no incomplete event needs registering.
  context->performBlockAndWait([&] {
    try {
      for (const SyncEventFileContents* contents : files) checkFileContents(*contents);

      // Global identifiers by value: the local row where there is one.
      std::vector<std::string> strings;
      std::vector<std::string> entities;
      for (const SyncEventFileContents* contents : files) {
        for (const auto& identifier : contents->globalIdentifiers) {
          strings.push_back(identifier.globalIdentifier);
          entities.push_back(identifier.nameOfEntity);
        }
      }
      auto rows =
          SyncGlobalIdentifier::fetchGlobalIdentifiersForIdentifierStrings(strings, entities, *context);
      std::map<std::pair<std::string, std::string>, std::shared_ptr<SyncGlobalIdentifier>> made;
      for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i]) continue;
        auto key = std::make_pair(strings[i], entities[i]);
        auto& row = made[key];
        if (!row) {
          row = context->insertNewObject<SyncGlobalIdentifier>(kSyncGlobalIdentifierEntity);
          row->setGlobalIdentifier(strings[i]);
          row->setNameOfEntity(entities[i]);
        }
        rows[i] = row;
      }

      std::vector<std::pair<EventPtr, std::int16_t>> inserted;
      std::size_t firstRow = 0;
      for (const SyncEventFileContents* contents : files) {
        for (const auto& event : contents->events) {
          auto row = context->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
          row->setUniqueIdentifier(event.uniqueIdentifier);
          row->setType(kSyncEventTypeIncomplete);
          row->setGlobalCount(event.globalCount);
          row->setTimestamp(event.timestamp);
          row->setModelVersion(event.modelVersion);
          auto own = SyncEventRevision::makeEventRevisionForPersistentStoreIdentifier(
              event.eventRevision.persistentStoreIdentifier, event.eventRevision.revisionNumber, *context);
          row->setObjectForKey("eventRevision", own);
          if (!event.eventRevisionsOfOtherStores.empty()) {
            std::vector<ManagedObjectPtr> others;
            others.reserve(event.eventRevisionsOfOtherStores.size());
            for (const auto& revision : event.eventRevisionsOfOtherStores) {
              others.push_back(SyncEventRevision::makeEventRevisionForPersistentStoreIdentifier(
                  revision.persistentStoreIdentifier, revision.revisionNumber, *context));
            }
            row->setObjectsForKey("eventRevisionsOfOtherStores", others);
          }
          for (const auto& change : event.objectChanges) {
            auto changeRow = context->insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
            changeRow->setType(change.type);
            changeRow->setNameOfEntity(change.nameOfEntity);
            changeRow->setGlobalIdentifier(rows[firstRow + change.globalIdentifierIndex]);
            changeRow->setValueForKey("propertyChangeValues", change.propertyChangeValues);
            for (const auto& name : change.dataFiles) {
              auto file = context->insertNewObject<SyncDataFile>(kSyncDataFileEntity);
              file->setFilename(name);
              file->setObjectForKey("objectChange", changeRow);
            }
            changeRow->setStoreModificationEvent(row);
          }
          inserted.emplace_back(row, event.type);
        }
        firstRow += contents->globalIdentifiers.size();
      }
      for (auto& [row, type] : inserted) row->setType(type);
      if (OptionalError saveError = context->save()) {
        context->rollback();
        result = saveError;
      }
      context->reset();
    } catch (const SyncException& e) {
      context->rollback();
      result = errorForSyncException(e.reason());
    }
  });
  return result;
}

OptionalError SyncEventMigrator::migrateEventsInFromFiles(const std::vector<fs::path>& files) {
  std::vector<std::string> names;
  for (const auto& file : files) names.push_back(file.filename().string());
  LUMEO_LOG_VERBOSE("Migrating file events to event store from paths: %@",
                    Value(Value::Array(names.begin(), names.end())));
  for (const auto& file : files) {
    auto read = syncReadEventFile(file);
    OptionalError error;
    if (auto* failure = std::get_if<Error>(&read)) {
      error = *failure;
    } else {
      error = importContents(std::get<SyncEventFileContents>(read));
    }
    if (error) {
      LUMEO_LOG_ERROR("Failed to migrate modification events: %@", static_cast<const Error&>(*error));
      return error;
    }
  }
  return std::nullopt;
}

void SyncEventMigrator::migrateEventsInFromFilesWithCompletion(
    std::vector<fs::path> files, std::function<void(OptionalError)> completion) {
  DispatchQueue::global().async([this, files = std::move(files), completion = std::move(completion)] {
    OptionalError error = migrateEventsInFromFiles(files);
    DispatchQueue::main().async([completion, error] {
      if (completion) completion(error);
    });
  });
}

}  // namespace lumeo
