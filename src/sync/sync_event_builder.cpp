// Making events out of journal objects.
#include "sync/sync_event_builder.h"

#include <algorithm>
#include <set>

#include "objectgraph/fetch_request.h"
#include "objectgraph/predicate.h"
#include "platform/atomic_file.h"
#include "platform/date.h"
#include "platform/log.h"
#include "store/image_store.h"
#include "store/mood_description.h"
#include "sync/sync_error.h"
#include "sync/sync_event_store.h"
#include "sync/sync_revision_manager.h"

namespace lumeo {

namespace {

constexpr std::size_t kCaptureBatchSize = 50;

bool isDescription(const ManagedObject& object) {
  return object.entity().name() == "MoodDescription";
}

bool hasPhoto(const ManagedObject& object) {
  if (!isDescription(object)) return false;
  Value name = object.valueForKey("photoName");
  return name.asString() && !name.asString()->empty();
}

int changeTypeForProperty(const PropertyDescription& property) {
  if (property.isAttribute()) return kSyncPropertyChangeTypeAttribute;
  const auto& relationship = static_cast<const RelationshipDescription&>(property);
  if (!relationship.isToMany()) return kSyncPropertyChangeTypeToOneRelationship;
  return relationship.isOrdered() ? kSyncPropertyChangeTypeOrderedToManyRelationship
                                  : kSyncPropertyChangeTypeToManyRelationship;
}

// Gives temporary IDs among `ids` permanent ones through their objects.
std::vector<ManagedObjectID> permanentIDs(const std::vector<ManagedObjectID>& ids,
                                          ManagedObjectContext& context, const char* failure) {
  std::map<ManagedObjectID, ManagedObjectPtr> temporary;
  for (const auto& id : ids) {
    if (id.isTemporaryID()) {
      if (auto object = context.objectRegisteredForID(id)) temporary[id] = object;
    }
  }
  if (temporary.empty()) return ids;
  std::vector<ManagedObjectPtr> objects;
  for (const auto& [id, object] : temporary) objects.push_back(object);
  if (OptionalError error = context.obtainPermanentIDsForObjects(objects)) {
    LUMEO_LOG_ERROR(failure, static_cast<const Error&>(*error));
    return ids;
  }
  std::vector<ManagedObjectID> resolved;
  resolved.reserve(ids.size());
  for (const auto& id : ids) {
    auto it = temporary.find(id);
    resolved.push_back(it == temporary.end() ? id : it->second->objectID());
  }
  return resolved;
}

std::map<std::string, std::string> globalIdStringsForURIs(const std::set<std::string>& uris,
                                                          ManagedObjectContext& eventContext) {
  std::vector<std::string> list(uris.begin(), uris.end());
  auto rows = SyncGlobalIdentifier::fetchGlobalIdentifiersForObjectURIs(list, eventContext);
  std::map<std::string, std::string> out;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (rows[i]) out[list[i]] = rows[i]->globalIdentifier();
  }
  return out;
}

}  // namespace

SyncEventBuilder::SyncEventBuilder(SyncEventStore& eventStore,
                                   std::shared_ptr<ManagedObjectContext> eventContext)
    : eventStore_(eventStore),
      eventContext_(eventContext ? std::move(eventContext) : eventStore.managedObjectContext()) {}

void SyncEventBuilder::performBlockAndWait(const std::function<void()>& block) {
  eventContext_->performBlockAndWait(block);
}

SyncRevision SyncEventBuilder::makeNewEventOfType(std::int16_t type,
                                                  const std::optional<std::string>& uniqueIdentifier) {
  SyncRevision revision;
  performBlockAndWait([&] {
    eventType_ = type;
    std::int64_t lastRevision = eventStore_.lastRevisionSaved();
    std::string store = eventStore_.persistentStoreIdentifier().value_or("");
    SyncRevisionManager revisionManager(eventStore_, eventContext_);
    std::int64_t globalCount = revisionManager.maximumGlobalCount() + 1;

    event_ = eventContext_->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
    event_->setType(kSyncEventTypeIncomplete);
    event_->setTimestamp(Date::now().timeIntervalSinceReferenceDate());
    event_->setGlobalCount(globalCount);
    if (ensemble_ && ensemble_->managedObjectModel) {
      event_->setModelVersion(sync_entityHashesPropertyList(*ensemble_->managedObjectModel));
    }
    if (uniqueIdentifier) event_->setUniqueIdentifier(*uniqueIdentifier);

    auto own = SyncEventRevision::makeEventRevisionForPersistentStoreIdentifier(store, lastRevision + 1,
                                                                                *eventContext_);
    event_->setObjectForKey("eventRevision", own);
    if (type == kSyncEventTypeSave || type == kSyncEventTypeMerge) {
      SyncRevisionSet others = revisionManager.revisionSetForLastMergeOrBaseline();
      others.removeRevisionForPersistentStoreIdentifier(store);
      event_->setRevisionSetOfOtherStoresAtCreation(others);
    }
    eventContext_->processPendingChanges();
    revision = SyncRevision(store, lastRevision + 1, globalCount);
  });
  return revision;
}

void SyncEventBuilder::finalizeNewEvent() {
  performBlockAndWait([&] {
    if (event_) event_->setType(eventType_);
  });
}

// --- Values -----------------------------------------------------------------------

std::vector<std::string> SyncEventBuilder::propertyNamesWithPhoto(const ManagedObject& object,
                                                                  std::vector<std::string> names) {
  if (hasPhoto(object) && std::find(names.begin(), names.end(), kSyncPhotoDataPropertyName) == names.end()) {
    names.push_back(kSyncPhotoDataPropertyName);
  }
  return names;
}

std::vector<SyncPropertyChangeValue> SyncEventBuilder::propertyChangesForObject(
    const ManagedObject& object, const std::vector<std::string>& propertyNames, bool isPreSave,
    bool storeValues) {
  std::vector<SyncPropertyChangeValue> values;
  values.reserve(propertyNames.size());
  for (const auto& name : propertyNames) {
    int type = kSyncPropertyChangeTypeAttribute;
    if (name != kSyncPhotoDataPropertyName) {
      const PropertyDescription* property = object.entity().propertyNamed(name);
      if (!property || property->isTransient()) continue;
      type = changeTypeForProperty(*property);
    }
    SyncPropertyChangeValue value(type, name);
    value.objectID = object.objectID();
    updateWithObject(value, object, isPreSave, storeValues);
    values.push_back(std::move(value));
  }
  return values;
}

void SyncEventBuilder::updateWithObject(SyncPropertyChangeValue& value, const ManagedObject& object,
                                        bool isPreSave, bool storeValues) {
  const bool isPhoto = value.propertyName == kSyncPhotoDataPropertyName;
  const std::string& name = isPhoto ? std::string("photoName") : value.propertyName;
  const PropertyDescription* property = object.entity().propertyNamed(name);
  if (!property) return;
  ManagedObjectContext* context = object.managedObjectContext();

  const RelationshipDescription* relationship =
      property->isRelationship() ? static_cast<const RelationshipDescription*>(property) : nullptr;
  if (relationship && relationship->isToMany() && isPreSave) {
    value.relatedObjectIDs = object.committedObjectIDsForKey(name);
  }
  if (!storeValues) return;

  if (isPhoto) {
    // The photo travels as a file under the journal's own image name.
    Value photoName = object.valueForKey("photoName");
    value.value = Value();
    value.filename.reset();
    const std::string* fileName = photoName.asString();
    std::shared_ptr<ImageStore> images =
        ensemble_ && ensemble_->imageStore ? ensemble_->imageStore : ImageStore::shared();
    if (fileName && !fileName->empty() && images) {
      if (auto path = images->imageURLForName(*fileName)) {
        auto bytes = readFileBytes(*path);
        if (auto* data = std::get_if<Value::Data>(&bytes)) {
          value.filename = eventStore_.storeDataInFile(*data, *fileName);
        }
      }
    }
    if (!value.filename) value.value = photoName;
    return;
  }

  if (!relationship) {
    const auto& attribute = static_cast<const AttributeDescription&>(*property);
    Value v = object.valueForKey(name);
    if (!attribute.valueTransformerName().empty() && !v.isNull()) {
      if (auto transformer = ValueTransformer::valueTransformerForName(attribute.valueTransformerName())) {
        v = Value(transformer->transformedValue(v));
      }
    }
    value.value = Value();
    value.filename.reset();
    if (const Value::Data* data = v.asData(); data && data->size() > kSyncMaximumInlineDataLength) {
      value.filename = eventStore_.storeDataInFile(*data);
    }
    if (!value.filename) value.value = std::move(v);
    return;
  }

  if (!relationship->isToMany()) {
    value.relatedObjectID = ManagedObjectID();
    if (auto target = object.objectIDForKey(name)) {
      ManagedObjectID id = *target;
      if (id.isTemporaryID() && context) {
        id = permanentIDs({id}, *context, "Could not get permanent ID for object: %@").front();
      }
      value.relatedObjectID = id;
    }
    return;
  }

  std::vector<ManagedObjectID> members = object.objectIDsForRelationshipNamed(name);
  if (context) members = permanentIDs(members, *context, "Failed to get permanent ids: %@");
  std::set<ManagedObjectID> now(members.begin(), members.end());
  value.addedObjectIDs.clear();
  value.removedObjectIDs.clear();
  if (value.relatedObjectIDs) {
    std::set<ManagedObjectID> before(value.relatedObjectIDs->begin(), value.relatedObjectIDs->end());
    for (const auto& id : now) {
      if (!before.count(id)) value.addedObjectIDs.push_back(id);
    }
    for (const auto& id : before) {
      if (!now.count(id)) value.removedObjectIDs.push_back(id);
    }
  } else {
    value.addedObjectIDs.assign(now.begin(), now.end());
  }
  value.movedObjectIDsByIndex.clear();
  if (relationship->isOrdered()) {
    for (std::size_t i = 0; i < members.size(); ++i)
      value.movedObjectIDsByIndex[std::int64_t(i)] = members[i];
  }
}

// --- Changes data ---------------------------------------------------------------------

SyncInsertChangesData SyncEventBuilder::changesDataForInsertedObjects(
    const std::vector<ManagedObjectPtr>& objects, bool objectsAreSaved, ManagedObjectContext& context) {
  SyncInsertChangesData data;
  context.performBlockAndWait([&] {
    sync_enumerateObjectsDrainingEveryIterations(
        objects, kCaptureBatchSize, [&](const ManagedObjectPtr& object, std::size_t, bool&) {
          std::vector<std::string> names = propertyNamesWithPhoto(*object, object->entity().propertyNames());
          data.changeArrays.push_back(propertyChangesForObject(*object, names, !objectsAreSaved, true));
          data.entityNames.push_back(object->entity().name());
          data.objectURIs.push_back(object->objectID().URIRepresentation());
        });
    if (ensemble_ && ensemble_->globalIdentifiersForManagedObjects) {
      data.globalIdStrings = ensemble_->globalIdentifiersForManagedObjects(objects);
    }
  });
  return data;
}

SyncUpdateChangesData SyncEventBuilder::changesDataForUpdatedObjects(
    const std::vector<ManagedObjectPtr>& objects, ManagedObjectContext& context, unsigned options,
    const SyncPropertyChangeValuesByObjectID* valuesByObjectID) {
  SyncUpdateChangesData data;
  const bool isPreSave =
      (options & (kSyncUpdateOptionIsPreSave | kSyncUpdateOptionIsPreSaveAndStoreValues)) != 0;
  const bool storeValues =
      (options & (kSyncUpdateOptionStoreValues | kSyncUpdateOptionIsPreSaveAndStoreValues)) != 0;
  if (!valuesByObjectID) return data;
  context.performBlockAndWait([&] {
    for (const auto& object : objects) {
      auto it = valuesByObjectID->find(object->objectID());
      if (it == valuesByObjectID->end()) continue;
      std::vector<SyncPropertyChangeValue> values = it->second;
      for (auto& value : values) updateWithObject(value, *object, isPreSave, storeValues);
      data.objectIDs.push_back(object->objectID());
      data.propertyChangeValuesByObjectID[object->objectID()] = std::move(values);
    }
  });
  return data;
}

SyncDeleteChangesData SyncEventBuilder::changesDataForDeletedObjects(
    const std::vector<ManagedObjectPtr>& objects, ManagedObjectContext&) {
  SyncDeleteChangesData data;
  for (const auto& object : objects) data.orderedObjectIDs.push_back(object->objectID());
  return data;
}

// --- Rows -----------------------------------------------------------------------------------

void SyncEventBuilder::addGlobalIdentifiersForInsertChangesData(SyncInsertChangesData& data) {
  performBlockAndWait([&] {
    std::vector<std::shared_ptr<SyncGlobalIdentifier>> existing(data.entityNames.size());
    if (data.globalIdStrings) {
      std::vector<std::string> strings;
      std::vector<std::string> names;
      std::vector<std::size_t> positions;
      for (std::size_t i = 0; i < data.globalIdStrings->size() && i < data.entityNames.size(); ++i) {
        if ((*data.globalIdStrings)[i]) {
          strings.push_back(*(*data.globalIdStrings)[i]);
          names.push_back(data.entityNames[i]);
          positions.push_back(i);
        }
      }
      auto found =
          SyncGlobalIdentifier::fetchGlobalIdentifiersForIdentifierStrings(strings, names, *eventContext_);
      for (std::size_t k = 0; k < positions.size(); ++k) existing[positions[k]] = found[k];
    }
    data.globalIds.clear();
    for (std::size_t i = 0; i < data.entityNames.size(); ++i) {
      auto row = existing[i];
      if (!row) {
        row = eventContext_->insertNewObject<SyncGlobalIdentifier>(kSyncGlobalIdentifierEntity);
        row->setNameOfEntity(data.entityNames[i]);
        if (data.globalIdStrings && i < data.globalIdStrings->size() && (*data.globalIdStrings)[i]) {
          row->setGlobalIdentifier(*(*data.globalIdStrings)[i]);
        }
      }
      // A string made independently on two devices names one object: the
      // row now stands for the object inserted here.
      row->setStoreURI(data.objectURIs[i]);
      data.globalIds.push_back(row);
    }
    if (OptionalError error = eventContext_->save()) {
      LUMEO_LOG_ERROR("Error saving event store: %@", static_cast<const Error&>(*error));
    }
  });
}

void SyncEventBuilder::addInsertChangesForChangesData(const SyncInsertChangesData& data) {
  performBlockAndWait([&] {
    for (std::size_t i = 0; i < data.globalIds.size(); ++i) {
      addObjectChangeOfType(kSyncObjectChangeTypeInsert, data.globalIds[i], data.entityNames[i],
                            data.changeArrays[i]);
    }
  });
}

void SyncEventBuilder::addUpdateChangesForChangesData(const SyncUpdateChangesData& data) {
  performBlockAndWait([&] {
    std::vector<std::string> uris;
    uris.reserve(data.objectIDs.size());
    for (const auto& id : data.objectIDs) uris.push_back(id.URIRepresentation());
    auto rows = SyncGlobalIdentifier::fetchGlobalIdentifiersForObjectURIs(uris, *eventContext_);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (!rows[i]) {
        LUMEO_LOG_WARNING("Tried to store updates for object with no global identifier. Skipping.");
        continue;
      }
      auto it = data.propertyChangeValuesByObjectID.find(data.objectIDs[i]);
      if (it == data.propertyChangeValuesByObjectID.end()) continue;
      addObjectChangeOfType(kSyncObjectChangeTypeUpdate, rows[i], data.objectIDs[i].entityName(), it->second);
    }
  });
}

void SyncEventBuilder::addDeleteChangesForChangesData(const SyncDeleteChangesData& data) {
  performBlockAndWait([&] {
    std::vector<std::string> uris;
    for (const auto& id : data.orderedObjectIDs) uris.push_back(id.URIRepresentation());
    auto rows = SyncGlobalIdentifier::fetchGlobalIdentifiersForObjectURIs(uris, *eventContext_);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (!rows[i]) {
        LUMEO_LOG_WARNING("Deleted object with no global identifier. Skipping: %@", uris[i]);
        continue;
      }
      auto change = eventContext_->insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
      change->setType(kSyncObjectChangeTypeDelete);
      change->setNameOfEntity(data.orderedObjectIDs[i].entityName());
      change->setGlobalIdentifier(rows[i]);
      change->setStoreModificationEvent(event_);
      FetchRequest request(kSyncDataFileEntity);
      request.setPredicate(Predicate::predicateWithFormat("objectChange.globalIdentifier == %@", rows[i]));
      for (const auto& file : eventContext_->executeFetchRequest(request)) {
        LUMEO_DROP_ERROR(eventContext_->deleteObject(file));
      }
    }
  });
}

void SyncEventBuilder::addObjectChangeOfType(std::int16_t type,
                                             const std::shared_ptr<SyncGlobalIdentifier>& globalIdentifier,
                                             const std::string& entityName,
                                             std::optional<std::vector<SyncPropertyChangeValue>> values) {
  // The object's earlier changes give up their files: this change carries
  // what is current.
  FetchRequest request(kSyncDataFileEntity);
  request.setPredicate(
      Predicate::predicateWithFormat("objectChange.globalIdentifier == %@", globalIdentifier));
  for (const auto& file : eventContext_->executeFetchRequest(request)) {
    LUMEO_DROP_ERROR(eventContext_->deleteObject(file));
  }

  auto change = eventContext_->insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
  change->setType(type);
  change->setNameOfEntity(entityName);
  change->setGlobalIdentifier(globalIdentifier);
  change->setStoreModificationEvent(event_);

  if (values) {
    std::set<std::string> uris;
    for (const auto& v : *values) {
      if (v.relatedObjectID) uris.insert(v.relatedObjectID.URIRepresentation());
      for (const auto& id : v.addedObjectIDs) uris.insert(id.URIRepresentation());
      for (const auto& id : v.removedObjectIDs) uris.insert(id.URIRepresentation());
      for (const auto& [index, id] : v.movedObjectIDsByIndex) uris.insert(id.URIRepresentation());
    }
    std::map<std::string, std::string> strings = globalIdStringsForURIs(uris, *eventContext_);
    auto lookup = [&](const ManagedObjectID& id) -> std::optional<std::string> {
      auto it = strings.find(id.URIRepresentation());
      if (it == strings.end()) return std::nullopt;
      return it->second;
    };
    for (auto& v : *values) {
      switch (v.type) {
        case kSyncPropertyChangeTypeToOneRelationship:
          v.relatedIdentifier.reset();
          if (v.relatedObjectID) {
            v.relatedIdentifier = lookup(v.relatedObjectID);
            if (!v.relatedIdentifier) {
              LUMEO_LOG_WARNING("No global id found for to-one relationship with target objectID: %@",
                                v.relatedObjectID.URIRepresentation());
            }
          }
          break;
        case kSyncPropertyChangeTypeToManyRelationship:
        case kSyncPropertyChangeTypeOrderedToManyRelationship: {
          std::set<std::string> added;
          std::set<std::string> removed;
          for (const auto& id : v.addedObjectIDs) {
            if (auto s = lookup(id)) {
              added.insert(*s);
            } else {
              LUMEO_LOG_WARNING("No global id found for added object: %@", id.URIRepresentation());
            }
          }
          for (const auto& id : v.removedObjectIDs) {
            if (auto s = lookup(id)) removed.insert(*s);
          }
          v.addedIdentifiers = std::move(added);
          v.removedIdentifiers = std::move(removed);
          if (v.type == kSyncPropertyChangeTypeOrderedToManyRelationship) {
            std::map<std::int64_t, std::string> moved;
            for (const auto& [index, id] : v.movedObjectIDsByIndex) {
              if (auto s = lookup(id)) {
                moved[index] = *s;
              } else {
                LUMEO_LOG_WARNING("Missing global id for moved object with objectID: %@",
                                  id.URIRepresentation());
              }
            }
            v.movedIdentifiersByIndex = std::move(moved);
          }
          break;
        }
        default:
          break;
      }
    }
  }
  change->setPropertyChangeValues(values);
}

// --- One go ---------------------------------------------------------------------------------

void SyncEventBuilder::addChangesForInsertedObjects(const std::vector<ManagedObjectPtr>& objects,
                                                    bool objectsAreSaved, ManagedObjectContext& context) {
  if (objects.empty()) return;
  SyncInsertChangesData data = changesDataForInsertedObjects(objects, objectsAreSaved, context);
  addGlobalIdentifiersForInsertChangesData(data);
  addInsertChangesForChangesData(data);
}

void SyncEventBuilder::addChangesForDeletedObjects(const std::vector<ManagedObjectPtr>& objects,
                                                   ManagedObjectContext& context) {
  if (objects.empty()) return;
  addDeleteChangesForChangesData(changesDataForDeletedObjects(objects, context));
}

void SyncEventBuilder::addChangesForUpdatedObjects(
    const std::vector<ManagedObjectPtr>& objects, ManagedObjectContext& context, unsigned options,
    const SyncPropertyChangeValuesByObjectID* valuesByObjectID) {
  if (objects.empty()) return;
  addUpdateChangesForChangesData(changesDataForUpdatedObjects(objects, context, options, valuesByObjectID));
}

void SyncEventBuilder::addChangesForUnsavedUpdatedObjects(const std::vector<ManagedObjectPtr>& objects,
                                                          ManagedObjectContext& context) {
  if (objects.empty()) return;
  SyncPropertyChangeValuesByObjectID values;
  context.performBlockAndWait([&] {
    for (const auto& object : objects) {
      std::vector<std::string> names = propertyNamesWithPhoto(*object, object->changedPropertyNames());
      auto list = propertyChangesForObject(*object, names, true, true);
      if (!list.empty()) values[object->objectID()] = std::move(list);
    }
  });
  addChangesForUpdatedObjects(objects, context,
                              kSyncUpdateOptionIsPreSave | kSyncUpdateOptionIsPreSaveAndStoreValues, &values);
}

OptionalError SyncEventBuilder::addChangesForUnsavedManagedObjectContext(ManagedObjectContext& context) {
  std::vector<ManagedObjectPtr> inserted;
  std::vector<ManagedObjectPtr> updated;
  std::vector<ManagedObjectPtr> deleted;
  OptionalError error;
  context.performBlockAndWait([&] {
    inserted = context.insertedObjects();
    updated = context.updatedObjects();
    deleted = context.deletedObjects();
    if (!inserted.empty()) error = context.obtainPermanentIDsForObjects(inserted);
  });
  if (error) return error;
  addChangesForInsertedObjects(inserted, false, context);
  addChangesForDeletedObjects(deleted, context);
  addChangesForUnsavedUpdatedObjects(updated, context);
  return std::nullopt;
}

}  // namespace lumeo
