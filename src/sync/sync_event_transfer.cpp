// Archiving and importing events; installing shipped photos.
#include "sync/sync_event_transfer.h"

#include <system_error>

#include "objectgraph/fetch_request.h"
#include "objectgraph/predicate.h"
#include "platform/atomic_file.h"
#include "platform/image.h"
#include "platform/log.h"
#include "platform/md5.h"
#include "platform/notification_center.h"
#include "store/image_store.h"
#include "sync/sync_error.h"
#include "sync/sync_event_store.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

Value archiveEvent(SyncStoreModificationEvent& event, std::set<std::string>& files) {
  Value::Dictionary d;
  d["uniqueIdentifier"] = Value(event.uniqueIdentifier());
  d["type"] = Value(int(event.type()));
  d["globalCount"] = Value(static_cast<long long>(event.globalCount()));
  d["timestamp"] = Value(event.timestamp());
  if (auto version = event.modelVersion()) d["modelVersion"] = Value(*version);
  auto own = event.eventRevision();
  d["persistentStoreIdentifier"] = Value(own ? own->persistentStoreIdentifier() : std::string());
  d["revisionNumber"] = Value(static_cast<long long>(own ? own->revisionNumber() : -1));
  Value::Dictionary others;
  for (const auto& r : event.revisionSetOfOtherStoresAtCreation().revisions()) {
    others[r.persistentStoreIdentifier()] = Value(static_cast<long long>(r.revisionNumber()));
  }
  d["otherStores"] = Value(std::move(others));
  Value::Array changes;
  for (const auto& change : event.objectChanges()) {
    Value::Dictionary c;
    c["type"] = Value(int(change->type()));
    c["nameOfEntity"] = Value(change->nameOfEntity());
    auto global = change->globalIdentifier();
    c["globalIdentifier"] = Value(global ? global->globalIdentifier() : std::string());
    Value values = change->valueForKey("propertyChangeValues");
    if (!values.isNull()) c["propertyChangeValues"] = values;
    for (const auto& file : change->objectsForKey("dataFiles"))
      files.insert(file->valueForKey("filename").toString());
    changes.push_back(Value(std::move(c)));
  }
  d["objectChanges"] = Value(std::move(changes));
  return Value(std::move(d));
}

const Value& requireField(const Value::Dictionary& d, const char* key, Value::Type type) {
  auto it = d.find(key);
  if (it == d.end() || it->second.type() != type) {
    throw SyncException(std::string("Event archive field \"") + key + "\" is missing or of the wrong type");
  }
  return it->second;
}

}  // namespace

namespace {

std::vector<SyncArchivedEvent> archiveMatching(SyncEventStore& eventStore, const Predicate& predicate) {
  std::vector<SyncArchivedEvent> out;
  auto context = eventStore.managedObjectContext();
  if (!context) return out;
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncStoreModificationEventEntity);
    request.setPredicate(predicate);
    request.setRelationshipKeyPathsForPrefetching({"eventRevision", "eventRevisionsOfOtherStores",
                                                   "objectChanges", "objectChanges.globalIdentifier",
                                                   "objectChanges.dataFiles"});
    for (const auto& object : context->executeFetchRequest(request)) {
      auto event = std::dynamic_pointer_cast<SyncStoreModificationEvent>(object);
      if (!event) continue;
      std::set<std::string> files;
      SyncArchivedEvent archived;
      archived.event = archiveEvent(*event, files);
      for (const auto& name : files) {
        if (auto data = eventStore.dataForFile(name)) archived.dataFiles[name] = std::move(*data);
      }
      out.push_back(std::move(archived));
    }
  });
  return out;
}

}  // namespace

std::vector<SyncArchivedEvent> syncArchiveEvents(SyncEventStore& eventStore) {
  return archiveMatching(eventStore,
                         Predicate::predicateWithFormat("type != %@", int(kSyncEventTypeIncomplete)));
}

std::vector<SyncArchivedEvent> syncArchiveOwnEvents(SyncEventStore& eventStore,
                                                    std::int64_t sinceRevisionNumber) {
  auto store = eventStore.persistentStoreIdentifier();
  if (!store) return {};
  return archiveMatching(
      eventStore, Predicate::predicateWithFormat(
                      "type != %@ AND eventRevision.persistentStoreIdentifier = %@ "
                      "AND eventRevision.revisionNumber > %@",
                      int(kSyncEventTypeIncomplete), *store, static_cast<long long>(sinceRevisionNumber)));
}

OptionalError syncImportEvent(SyncEventStore& eventStore, const SyncArchivedEvent& archived) {
  auto context = eventStore.managedObjectContext();
  if (!context) return syncError(103, "The event store holds no event data");
  OptionalError result;
  context->performBlockAndWait([&] {
    try {
      const Value::Dictionary* d = archived.event.asDictionary();
      if (!d) throw SyncException("Event archive is not a dictionary");
      const std::string& identifier = *requireField(*d, "uniqueIdentifier", Value::Type::kString).asString();
      std::int64_t type = requireField(*d, "type", Value::Type::kInteger).toInt();
      if (type != kSyncEventTypeBaseline && type != kSyncEventTypeSave && type != kSyncEventTypeMerge) {
        throw SyncException("Event archive has the unknown type " + std::to_string(type));
      }
      std::int64_t globalCount = requireField(*d, "globalCount", Value::Type::kInteger).toInt();
      double timestamp = requireField(*d, "timestamp", Value::Type::kReal).toDouble();
      const std::string& store =
          *requireField(*d, "persistentStoreIdentifier", Value::Type::kString).asString();
      std::int64_t revisionNumber = requireField(*d, "revisionNumber", Value::Type::kInteger).toInt();
      const Value::Dictionary& others =
          *requireField(*d, "otherStores", Value::Type::kDictionary).asDictionary();
      const Value::Array& changes = *requireField(*d, "objectChanges", Value::Type::kArray).asArray();

      FetchRequest existing(kSyncStoreModificationEventEntity);
      existing.setPredicate(
          Predicate::predicateWithFormat("uniqueIdentifier = %@ AND eventRevision.persistentStoreIdentifier "
                                         "= %@ AND eventRevision.revisionNumber = %@",
                                         identifier, store, static_cast<long long>(revisionNumber)));
      OptionalError fetchError;
      if (context->countForFetchRequest(existing, fetchError) > 0 && !fetchError) return;
      if (fetchError) throw SyncException("Could not look for the event: " + fetchError->toString());

      auto event = context->insertNewObject<SyncStoreModificationEvent>(kSyncStoreModificationEventEntity);
      event->setUniqueIdentifier(identifier);
      event->setType(kSyncEventTypeIncomplete);
      event->setGlobalCount(globalCount);
      event->setTimestamp(timestamp);
      auto version = d->find("modelVersion");
      if (version != d->end() && version->second.asString())
        event->setModelVersion(*version->second.asString());
      SyncRevisionSet set;
      set.addRevision(SyncRevision(store, revisionNumber));
      for (const auto& [otherStore, number] : others) {
        if (number.type() != Value::Type::kInteger) throw SyncException("Event archive has a bad revision");
        if (otherStore != store) set.addRevision(SyncRevision(otherStore, number.toInt()));
      }
      event->setRevisionSet(set, store);

      std::vector<std::string> globalStrings;
      std::vector<std::string> entityNames;
      for (const auto& item : changes) {
        const Value::Dictionary* c = item.asDictionary();
        if (!c) throw SyncException("Event archive holds a change that is not a dictionary");
        globalStrings.push_back(*requireField(*c, "globalIdentifier", Value::Type::kString).asString());
        entityNames.push_back(*requireField(*c, "nameOfEntity", Value::Type::kString).asString());
      }
      auto rows = SyncGlobalIdentifier::fetchGlobalIdentifiersForIdentifierStrings(globalStrings, entityNames,
                                                                                   *context);
      std::map<std::pair<std::string, std::string>, std::shared_ptr<SyncGlobalIdentifier>> made;
      for (std::size_t i = 0; i < changes.size(); ++i) {
        const Value::Dictionary& c = *changes[i].asDictionary();
        std::shared_ptr<SyncGlobalIdentifier> row = rows[i];
        auto key = std::make_pair(globalStrings[i], entityNames[i]);
        if (!row && made.count(key)) row = made[key];
        if (!row) {
          row = context->insertNewObject<SyncGlobalIdentifier>(kSyncGlobalIdentifierEntity);
          row->setGlobalIdentifier(globalStrings[i]);
          row->setNameOfEntity(entityNames[i]);
          made[key] = row;
        }
        auto change = context->insertNewObject<SyncObjectChange>(kSyncObjectChangeEntity);
        change->setType(static_cast<std::int16_t>(requireField(c, "type", Value::Type::kInteger).toInt()));
        change->setNameOfEntity(entityNames[i]);
        change->setGlobalIdentifier(row);
        change->setStoreModificationEvent(event);
        auto values = c.find("propertyChangeValues");
        // Read strictly now, so that a bad archive is refused whole.
        std::optional<std::vector<SyncPropertyChangeValue>> decoded =
            values == c.end() ? std::nullopt : SyncPropertyChangeValue::unarchiveArray(values->second);
        change->setPropertyChangeValues(decoded);
        if (OptionalError invalid = change->validatePropertyChangeValues())
          throw SyncException(invalid->description);
      }
      event->setType(static_cast<std::int16_t>(type));
      if (OptionalError saveError = context->save()) {
        context->rollback();
        result = saveError;
        return;
      }
    } catch (const SyncException& e) {
      context->rollback();
      result = errorForSyncException(e.reason());
      return;
    }
  });
  if (result) return result;
  for (const auto& [name, bytes] : archived.dataFiles) {
    if (name.empty() || fs::path(name).filename() != name) continue;
    std::error_code ec;
    if (fs::exists(eventStore.pathToDataFileDirectory() / name, ec) ||
        fs::exists(eventStore.pathToNewlyImportedDataFileDirectory() / name, ec)) {
      continue;
    }
    fs::create_directories(eventStore.pathToNewlyImportedDataFileDirectory(), ec);
    if (OptionalError error =
            writeFileAtomically(eventStore.pathToNewlyImportedDataFileDirectory() / name, bytes)) {
      LUMEO_LOG_ERROR("Could not move file to event store data directory: %@",
                      static_cast<const Error&>(*error));
    }
  }
  return std::nullopt;
}

std::vector<std::string> syncInstallPhotosAndThumbs(SyncEventStore& eventStore, const ImageStore& imageStore,
                                                    const Value::Dictionary& photos) {
  std::vector<std::string> written;
  for (const auto& [photoName, entryValue] : photos) {
    const Value& entry = entryValue;
    auto photoPath = imageStore.imageURLForName(photoName);
    if (!photoPath) continue;
    std::error_code ec;
    if (!fs::exists(*photoPath, ec)) {
      if (auto data = eventStore.dataForFile(photoName)) {
        if (!writeFileAtomically(*photoPath, *data)) written.push_back(photoName);
      }
    }
    const std::string* thumbName = entry["thumbName"].asString();
    if (!thumbName || thumbName->empty()) continue;
    auto thumbPath = imageStore.imageURLForName(*thumbName);
    if (!thumbPath) continue;
    const std::string* checksum = entry["thumbChecksum"].asString();
    if (fs::exists(*thumbPath, ec)) {
      if (checksum && md5HashOfPath(*thumbPath) == *checksum) continue;
      fs::remove(*thumbPath, ec);
    }
    auto photo = Image::readFile(*photoPath);
    auto* image = std::get_if<Image>(&photo);
    if (!image || image->empty()) continue;
    auto jpeg = imageByScalingToSize(*image, kThumbnailSize, kThumbnailSize).jpegData(kImageStoreJPEGQuality);
    auto* bytes = std::get_if<std::vector<std::uint8_t>>(&jpeg);
    if (!bytes || writeFileAtomically(*thumbPath, *bytes)) continue;
    written.push_back(*thumbName);
    NotificationCenter::defaultCenter().post("SyncImageSaved", nullptr, {}, {{"name", Value(*thumbName)}});
  }
  return written;
}

}  // namespace lumeo
