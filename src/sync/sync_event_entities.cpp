// The event store's model and entity classes.
#include "sync/sync_event_entities.h"

#include <algorithm>
#include <unordered_map>

#include "objectgraph/fetch_request.h"
#include "objectgraph/predicate.h"
#include "platform/log.h"
#include "store/mood_record.h"
#include "sync/sync_error.h"

namespace lumeo {

std::shared_ptr<ManagedObjectModel> makeSyncEventStoreModel() {
  auto model = std::make_shared<ManagedObjectModel>();

  auto& event = model->addEntity(kSyncStoreModificationEventEntity);
  event.setInstanceClass<SyncStoreModificationEvent>();
  event.addAttribute("uniqueIdentifier", AttributeType::kString).setIndexed(true);
  event.addAttribute("type", AttributeType::kInteger16).setDefaultValue(Value(0)).setIndexed(true);
  event.addAttribute("globalCount", AttributeType::kInteger64).setDefaultValue(Value(0)).setIndexed(true);
  event.addAttribute("timestamp", AttributeType::kDouble).setDefaultValue(Value(0.0));
  event.addAttribute("modelVersion", AttributeType::kString);
  // Deleting an event takes its revisions and changes along.
  event.addRelationship("eventRevision", kSyncEventRevisionEntity)
      .setInverseName("storeModificationEvent")
      .setDeleteRule(DeleteRule::kCascade);
  event.addRelationship("eventRevisionsOfOtherStores", kSyncEventRevisionEntity)
      .setToMany(true)
      .setInverseName("storeModificationEventForOtherStores")
      .setDeleteRule(DeleteRule::kCascade);
  event.addRelationship("objectChanges", kSyncObjectChangeEntity)
      .setToMany(true)
      .setInverseName("storeModificationEvent")
      .setDeleteRule(DeleteRule::kCascade);

  auto& revision = model->addEntity(kSyncEventRevisionEntity);
  revision.setInstanceClass<SyncEventRevision>();
  revision.addAttribute("persistentStoreIdentifier", AttributeType::kString).setIndexed(true);
  revision.addAttribute("revisionNumber", AttributeType::kInteger64)
      .setDefaultValue(Value(-1))
      .setIndexed(true);
  revision.addRelationship("storeModificationEvent", kSyncStoreModificationEventEntity)
      .setInverseName("eventRevision");
  revision.addRelationship("storeModificationEventForOtherStores", kSyncStoreModificationEventEntity)
      .setInverseName("eventRevisionsOfOtherStores");

  auto& change = model->addEntity(kSyncObjectChangeEntity);
  change.setInstanceClass<SyncObjectChange>();
  change.addAttribute("type", AttributeType::kInteger16).setDefaultValue(Value(0));
  change.addAttribute("nameOfEntity", AttributeType::kString);
  change.addAttribute("propertyChangeValues", AttributeType::kTransformable);
  change.addRelationship("storeModificationEvent", kSyncStoreModificationEventEntity)
      .setInverseName("objectChanges");
  change.addRelationship("globalIdentifier", kSyncGlobalIdentifierEntity).setInverseName("objectChanges");
  // A deleted change leaves its files' rows behind, unreferenced, so that
  // the files are found and removed.
  change.addRelationship("dataFiles", kSyncDataFileEntity)
      .setToMany(true)
      .setInverseName("objectChange")
      .setDeleteRule(DeleteRule::kNullify);

  auto& global = model->addEntity(kSyncGlobalIdentifierEntity);
  global.setInstanceClass<SyncGlobalIdentifier>();
  global.addAttribute("globalIdentifier", AttributeType::kString).setIndexed(true);
  global.addAttribute("storeURI", AttributeType::kString).setIndexed(true);
  global.addAttribute("nameOfEntity", AttributeType::kString);
  global.addRelationship("objectChanges", kSyncObjectChangeEntity)
      .setToMany(true)
      .setInverseName("globalIdentifier")
      .setDeleteRule(DeleteRule::kNullify);

  auto& file = model->addEntity(kSyncDataFileEntity);
  file.setInstanceClass<SyncDataFile>();
  file.addAttribute("filename", AttributeType::kString).setIndexed(true);
  file.addRelationship("objectChange", kSyncObjectChangeEntity).setInverseName("dataFiles");

  model->userInfo()["name"] = Value("SyncEventStoreModel");
  model->finalize();
  return model;
}

namespace {

template <class T>
std::vector<std::shared_ptr<T>> fetchAs(ManagedObjectContext& context, const FetchRequest& request,
                                        const char* failureFormat) {
  OptionalError error;
  FetchResults results = context.executeFetchRequest(request, error);
  if (error) {
    LUMEO_LOG_ERROR(failureFormat, static_cast<const Error&>(*error));
    throw SyncException(std::string("Fetch failed: ") + error->toString());
  }
  std::vector<std::shared_ptr<T>> out;
  out.reserve(results.size());
  for (const auto& object : results) {
    if (auto typed = std::dynamic_pointer_cast<T>(object)) out.push_back(std::move(typed));
  }
  return out;
}

template <class T>
std::shared_ptr<T> lastMatch(const std::vector<std::shared_ptr<T>>& matches) {
  if (matches.size() > 1) {
    LUMEO_LOG_WARNING("Multiple events with same revision from same device found: %@",
                      matches.back()->objectID().URIRepresentation());
  }
  return matches.empty() ? nullptr : matches.back();
}

std::vector<std::shared_ptr<SyncStoreModificationEvent>> sortedEvents(
    std::vector<std::shared_ptr<SyncStoreModificationEvent>> events) {
  std::stable_sort(events.begin(), events.end(),
                   [](const auto& a, const auto& b) { return syncEventPrecedes(*a, *b); });
  return events;
}

std::optional<std::string> optionalString(const Value& v) {
  if (const std::string* s = v.asString()) return *s;
  return std::nullopt;
}

}  // namespace

bool syncEventPrecedes(const SyncStoreModificationEvent& a, const SyncStoreModificationEvent& b) {
  if (a.globalCount() != b.globalCount()) return a.globalCount() < b.globalCount();
  if (a.timestamp() != b.timestamp()) return a.timestamp() < b.timestamp();
  return a.persistentStoreIdentifier() < b.persistentStoreIdentifier();
}

// --- SyncStoreModificationEvent ---------------------------------------------

void SyncStoreModificationEvent::awakeFromInsert() {
  ManagedObject::awakeFromInsert();
  if (valueForKey("uniqueIdentifier").isNull()) setUniqueIdentifier(globallyUniqueString());
}

void SyncStoreModificationEvent::awakeFromFetch() {
  ManagedObject::awakeFromFetch();
}

std::string SyncStoreModificationEvent::uniqueIdentifier() const {
  Value v = valueForKey("uniqueIdentifier");
  if (const std::string* s = v.asString()) return *s;
  // A stored event without one gets one when it is read.
  auto* self = const_cast<SyncStoreModificationEvent*>(this);
  std::string fresh = globallyUniqueString();
  self->setUniqueIdentifier(fresh);
  return fresh;
}
void SyncStoreModificationEvent::setUniqueIdentifier(const std::string& identifier) {
  setValueForKey("uniqueIdentifier", Value(identifier));
}
std::int16_t SyncStoreModificationEvent::type() const {
  return static_cast<std::int16_t>(valueForKey("type").toInt());
}
void SyncStoreModificationEvent::setType(std::int16_t type) {
  setValueForKey("type", Value(static_cast<int>(type)));
}
std::int64_t SyncStoreModificationEvent::globalCount() const {
  return valueForKey("globalCount").toInt();
}
void SyncStoreModificationEvent::setGlobalCount(std::int64_t count) {
  setValueForKey("globalCount", Value(static_cast<long long>(count)));
}
double SyncStoreModificationEvent::timestamp() const {
  return valueForKey("timestamp").toDouble();
}
void SyncStoreModificationEvent::setTimestamp(double timestamp) {
  setValueForKey("timestamp", Value(timestamp));
}
std::optional<std::string> SyncStoreModificationEvent::modelVersion() const {
  return optionalString(valueForKey("modelVersion"));
}
void SyncStoreModificationEvent::setModelVersion(const std::optional<std::string>& version) {
  setValueForKey("modelVersion", version ? Value(*version) : Value());
}

std::shared_ptr<SyncEventRevision> SyncStoreModificationEvent::eventRevision() const {
  return objectForKeyAs<SyncEventRevision>("eventRevision");
}

std::vector<std::shared_ptr<SyncEventRevision>> SyncStoreModificationEvent::eventRevisionsOfOtherStores()
    const {
  std::vector<std::shared_ptr<SyncEventRevision>> out;
  for (const auto& o : objectsForKey("eventRevisionsOfOtherStores")) {
    if (auto r = std::dynamic_pointer_cast<SyncEventRevision>(o)) out.push_back(std::move(r));
  }
  return out;
}

std::vector<std::shared_ptr<SyncObjectChange>> SyncStoreModificationEvent::objectChanges() const {
  std::vector<std::shared_ptr<SyncObjectChange>> out;
  for (const auto& o : objectsForKey("objectChanges")) {
    if (auto c = std::dynamic_pointer_cast<SyncObjectChange>(o)) out.push_back(std::move(c));
  }
  return out;
}

std::string SyncStoreModificationEvent::persistentStoreIdentifier() const {
  auto revision = eventRevision();
  return revision ? revision->persistentStoreIdentifier() : std::string();
}

SyncRevisionSet SyncStoreModificationEvent::revisionSetOfOtherStoresAtCreation() const {
  SyncRevisionSet set;
  for (const auto& r : eventRevisionsOfOtherStores()) set.addRevision(r->revision());
  return set;
}

void SyncStoreModificationEvent::setRevisionSetOfOtherStoresAtCreation(const SyncRevisionSet& set) {
  ManagedObjectContext* context = managedObjectContext();
  for (const auto& r : eventRevisionsOfOtherStores()) LUMEO_DROP_ERROR(context->deleteObject(r));
  auto rows = SyncEventRevision::makeEventRevisionsForRevisionSet(set, *context);
  std::vector<ManagedObjectPtr> objects(rows.begin(), rows.end());
  setObjectsForKey("eventRevisionsOfOtherStores", objects);
}

SyncRevisionSet SyncStoreModificationEvent::revisionSet() const {
  SyncRevisionSet set = revisionSetOfOtherStoresAtCreation();
  if (auto own = eventRevision()) set.addRevision(own->revision());
  return set;
}

void SyncStoreModificationEvent::setRevisionSet(SyncRevisionSet& set,
                                                const std::string& persistentStoreIdentifier) {
  std::optional<SyncRevision> taken;
  if (const SyncRevision* r = set.revisionForPersistentStoreIdentifier(persistentStoreIdentifier)) taken = *r;
  set.removeRevisionForPersistentStoreIdentifier(persistentStoreIdentifier);
  deleteEventRevisions();
  ManagedObjectContext* context = managedObjectContext();
  auto own = SyncEventRevision::makeEventRevisionForPersistentStoreIdentifier(
      persistentStoreIdentifier, taken ? taken->revisionNumber() : -1, *context);
  setObjectForKey("eventRevision", own);
  auto rows = SyncEventRevision::makeEventRevisionsForRevisionSet(set, *context);
  setObjectsForKey("eventRevisionsOfOtherStores", std::vector<ManagedObjectPtr>(rows.begin(), rows.end()));
  if (taken) set.addRevision(*taken);
}

void SyncStoreModificationEvent::deleteEventRevisions() {
  ManagedObjectContext* context = managedObjectContext();
  if (auto own = eventRevision()) LUMEO_DROP_ERROR(context->deleteObject(own));
  for (const auto& r : eventRevisionsOfOtherStores()) LUMEO_DROP_ERROR(context->deleteObject(r));
  context->processPendingChanges();
}

Predicate SyncStoreModificationEvent::predicateForAllowedTypes(
    const std::vector<int>& types, const std::optional<std::string>& persistentStoreIdentifier) {
  std::vector<Predicate> typePredicates;
  for (int type : types) typePredicates.push_back(Predicate::predicateWithFormat("type = %@", type));
  Predicate typePredicate = typePredicates.size() == 1
                                ? typePredicates.front()
                                : Predicate::orPredicateWithSubpredicates(typePredicates);
  if (!persistentStoreIdentifier) return typePredicate;
  return Predicate::andPredicateWithSubpredicates(
      {typePredicate, Predicate::predicateWithFormat("eventRevision.persistentStoreIdentifier = %@",
                                                     *persistentStoreIdentifier)});
}

std::vector<std::shared_ptr<SyncStoreModificationEvent>>
SyncStoreModificationEvent::fetchStoreModificationEventsWithTypes(
    const std::vector<int>& types, const std::optional<std::string>& persistentStoreIdentifier,
    ManagedObjectContext& context) {
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(predicateForAllowedTypes(types, persistentStoreIdentifier));
  request.setRelationshipKeyPathsForPrefetching({"eventRevision"});
  return fetchAs<SyncStoreModificationEvent>(context, request, "Could not retrieve local events: %@");
}

std::shared_ptr<SyncStoreModificationEvent>
SyncStoreModificationEvent::fetchStoreModificationEventWithUniqueIdentifier(
    const std::string& uniqueIdentifier, ManagedObjectContext& context) {
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(Predicate::predicateWithFormat("uniqueIdentifier = %@", uniqueIdentifier));
  return lastMatch(
      fetchAs<SyncStoreModificationEvent>(context, request, "Could not fetch store mod events: %@"));
}

std::shared_ptr<SyncStoreModificationEvent>
SyncStoreModificationEvent::fetchStoreModificationEventWithAllowedTypes(
    const std::vector<int>& types, const std::optional<std::string>& persistentStoreIdentifier,
    std::int64_t revisionNumber, ManagedObjectContext& context) {
  if (!persistentStoreIdentifier || revisionNumber < 0) return nullptr;
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(Predicate::andPredicateWithSubpredicates(
      {predicateForAllowedTypes(types, persistentStoreIdentifier),
       Predicate::predicateWithFormat("eventRevision.revisionNumber = %@",
                                      static_cast<long long>(revisionNumber))}));
  return lastMatch(
      fetchAs<SyncStoreModificationEvent>(context, request, "Could not fetch store mod events: %@"));
}

std::shared_ptr<SyncStoreModificationEvent>
SyncStoreModificationEvent::fetchNonBaselineEventForPersistentStoreIdentifier(
    const std::string& persistentStoreIdentifier, std::int64_t revisionNumber,
    ManagedObjectContext& context) {
  return fetchStoreModificationEventWithAllowedTypes({kSyncEventTypeMerge, kSyncEventTypeSave},
                                                     persistentStoreIdentifier, revisionNumber, context);
}

std::vector<std::shared_ptr<SyncStoreModificationEvent>>
SyncStoreModificationEvent::fetchNonBaselineEventsForPersistentStoreIdentifier(
    const std::string& persistentStoreIdentifier, std::int64_t sinceRevisionNumber,
    ManagedObjectContext& context) {
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(
      Predicate::predicateWithFormat("eventRevision.persistentStoreIdentifier = %@ && "
                                     "eventRevision.revisionNumber > %@ && type != %@ && type != %@",
                                     persistentStoreIdentifier, static_cast<long long>(sinceRevisionNumber),
                                     int(kSyncEventTypeBaseline), int(kSyncEventTypeIncomplete)));
  request.setRelationshipKeyPathsForPrefetching({"eventRevision"});
  return fetchAs<SyncStoreModificationEvent>(context, request, "Could not fetch events: %@");
}

std::shared_ptr<SyncStoreModificationEvent>
SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(ManagedObjectContext& context) {
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(Predicate::predicateWithFormat("type = %@", int(kSyncEventTypeBaseline)));
  request.setRelationshipKeyPathsForPrefetching({"eventRevision"});
  auto baselines =
      sortedEvents(fetchAs<SyncStoreModificationEvent>(context, request, "Could not fetch baselines: %@"));
  return baselines.empty() ? nullptr : baselines.back();
}

std::vector<std::shared_ptr<SyncStoreModificationEvent>>
SyncStoreModificationEvent::fetchNonBaselineEventsUpToGlobalCount(std::int64_t globalCount,
                                                                  ManagedObjectContext& context) {
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(Predicate::predicateWithFormat(
      "type != %@ AND type != %@ AND globalCount <= %@", int(kSyncEventTypeBaseline),
      int(kSyncEventTypeIncomplete), static_cast<long long>(globalCount)));
  request.setRelationshipKeyPathsForPrefetching({"eventRevision"});
  return sortedEvents(fetchAs<SyncStoreModificationEvent>(context, request, "Could not fetch events: %@"));
}

std::vector<std::shared_ptr<SyncStoreModificationEvent>> SyncStoreModificationEvent::fetchNonBaselineEvents(
    ManagedObjectContext& context) {
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(Predicate::predicateWithFormat(
      "type != %@ AND type != %@", int(kSyncEventTypeBaseline), int(kSyncEventTypeIncomplete)));
  request.setRelationshipKeyPathsForPrefetching({"eventRevision"});
  return sortedEvents(fetchAs<SyncStoreModificationEvent>(context, request, "Could not fetch events: %@"));
}

void SyncStoreModificationEvent::prefetchRelatedObjectsForStoreModificationEvents(
    const std::vector<std::shared_ptr<SyncStoreModificationEvent>>& events, ManagedObjectContext& context) {
  if (events.empty()) return;
  FetchRequest request(kSyncStoreModificationEventEntity);
  request.setPredicate(Predicate::predicateWithFormat("SELF IN %@", events));
  request.setRelationshipKeyPathsForPrefetching(
      {"objectChanges", "objectChanges.globalIdentifier", "eventRevision", "eventRevisionsOfOtherStores"});
  (void)fetchAs<SyncStoreModificationEvent>(context, request, "Could not fetch events: %@");
}

// --- SyncEventRevision --------------------------------------------------------

std::string SyncEventRevision::persistentStoreIdentifier() const {
  return valueForKey("persistentStoreIdentifier").toString();
}
void SyncEventRevision::setPersistentStoreIdentifier(const std::string& identifier) {
  setValueForKey("persistentStoreIdentifier", Value(identifier));
}
std::int64_t SyncEventRevision::revisionNumber() const {
  return valueForKey("revisionNumber").toInt(-1);
}
void SyncEventRevision::setRevisionNumber(std::int64_t number) {
  setValueForKey("revisionNumber", Value(static_cast<long long>(number)));
}

SyncRevision SyncEventRevision::revision() const {
  std::int64_t globalCount = -1;
  auto event = objectForKeyAs<SyncStoreModificationEvent>("storeModificationEvent");
  if (!event) event = objectForKeyAs<SyncStoreModificationEvent>("storeModificationEventForOtherStores");
  if (event) globalCount = event->globalCount();
  return SyncRevision(persistentStoreIdentifier(), revisionNumber(), globalCount);
}

std::set<std::string> SyncEventRevision::fetchPersistentStoreIdentifiers(ManagedObjectContext& context) {
  FetchRequest request(kSyncEventRevisionEntity);
  request.setResultType(FetchRequestResultType::kDictionary);
  request.setPropertiesToFetch({"persistentStoreIdentifier"});
  OptionalError error;
  FetchResults results = context.executeFetchRequest(request, error);
  if (error) throw SyncException("Fetch of revisions failed");
  std::set<std::string> out;
  for (const auto& row : results.dictionaries()) {
    auto it = row.find("persistentStoreIdentifier");
    if (it != row.end() && it->second.asString()) out.insert(*it->second.asString());
  }
  return out;
}

std::shared_ptr<SyncEventRevision> SyncEventRevision::makeEventRevisionForPersistentStoreIdentifier(
    const std::string& identifier, std::int64_t revisionNumber, ManagedObjectContext& context) {
  auto row = context.insertNewObject<SyncEventRevision>(kSyncEventRevisionEntity);
  row->setPersistentStoreIdentifier(identifier);
  row->setRevisionNumber(revisionNumber);
  return row;
}

std::vector<std::shared_ptr<SyncEventRevision>> SyncEventRevision::makeEventRevisionsForRevisionSet(
    const SyncRevisionSet& set, ManagedObjectContext& context) {
  std::vector<std::shared_ptr<SyncEventRevision>> rows;
  for (const auto& r : set.revisions()) {
    rows.push_back(makeEventRevisionForPersistentStoreIdentifier(r.persistentStoreIdentifier(),
                                                                 r.revisionNumber(), context));
  }
  return rows;
}

// --- SyncObjectChange ---------------------------------------------------------

std::int16_t SyncObjectChange::type() const {
  return static_cast<std::int16_t>(valueForKey("type").toInt());
}
void SyncObjectChange::setType(std::int16_t type) {
  setValueForKey("type", Value(static_cast<int>(type)));
}
std::string SyncObjectChange::nameOfEntity() const {
  return valueForKey("nameOfEntity").toString();
}
void SyncObjectChange::setNameOfEntity(const std::string& name) {
  setValueForKey("nameOfEntity", Value(name));
}
std::shared_ptr<SyncGlobalIdentifier> SyncObjectChange::globalIdentifier() const {
  return objectForKeyAs<SyncGlobalIdentifier>("globalIdentifier");
}
void SyncObjectChange::setGlobalIdentifier(const std::shared_ptr<SyncGlobalIdentifier>& identifier) {
  setObjectForKey("globalIdentifier", identifier);
}
std::shared_ptr<SyncStoreModificationEvent> SyncObjectChange::storeModificationEvent() const {
  return objectForKeyAs<SyncStoreModificationEvent>("storeModificationEvent");
}
void SyncObjectChange::setStoreModificationEvent(const std::shared_ptr<SyncStoreModificationEvent>& event) {
  setObjectForKey("storeModificationEvent", event);
}

std::optional<std::vector<SyncPropertyChangeValue>> SyncObjectChange::propertyChangeValues() const {
  return SyncPropertyChangeValue::unarchiveArray(valueForKey("propertyChangeValues"));
}

void SyncObjectChange::setPropertyChangeValues(
    const std::optional<std::vector<SyncPropertyChangeValue>>& values,
    const std::vector<std::string>& oldDataFiles) {
  setValueForKey("propertyChangeValues", values ? SyncPropertyChangeValue::archiveArray(*values) : Value());
  updateDataFiles(values ? &*values : nullptr, oldDataFiles);
}

void SyncObjectChange::updateDataFiles(const std::vector<SyncPropertyChangeValue>* values,
                                       const std::vector<std::string>& oldFiles) {
  std::set<std::string> wanted;
  if (values) {
    for (const auto& v : *values) {
      if (v.filename) wanted.insert(*v.filename);
    }
  }
  std::vector<ManagedObjectPtr> present = objectsForKey("dataFiles");
  if (present.empty() && wanted.empty()) return;
  std::set<std::string> have(oldFiles.begin(), oldFiles.end());
  for (const auto& f : present) have.insert(f->valueForKey("filename").toString());
  ManagedObjectContext* context = managedObjectContext();
  for (const auto& name : wanted) {
    if (have.count(name)) continue;
    auto row = context->insertNewObject<SyncDataFile>(kSyncDataFileEntity);
    row->setFilename(name);
    row->setObjectForKey("objectChange", shared_from_this());
  }
  for (const auto& name : have) {
    if (wanted.count(name)) continue;
    FetchRequest request(kSyncDataFileEntity);
    request.setPredicate(Predicate::predicateWithFormat("filename ==[cd] %@", name));
    for (const auto& row : context->executeFetchRequest(request))
      LUMEO_DROP_ERROR(context->deleteObject(row));
  }
}

std::optional<SyncPropertyChangeValue> SyncObjectChange::propertyChangeValueForPropertyName(
    const std::string& name) const {
  auto values = propertyChangeValues();
  if (!values) return std::nullopt;
  for (auto it = values->rbegin(); it != values->rend(); ++it) {
    if (it->propertyName == name) return *it;
  }
  return std::nullopt;
}

void SyncObjectChange::mergeValuesFromSubordinateObjectChange(const SyncObjectChange& subordinate) {
  auto mine = propertyChangeValues().value_or(std::vector<SyncPropertyChangeValue>{});
  auto theirs = subordinate.propertyChangeValues().value_or(std::vector<SyncPropertyChangeValue>{});
  std::unordered_map<std::string, std::size_t> index;
  for (std::size_t i = 0; i < mine.size(); ++i) index[mine[i].propertyName] = i;
  bool appended = false;
  for (const auto& value : theirs) {
    auto it = index.find(value.propertyName);
    if (it == index.end()) {
      index[value.propertyName] = mine.size();
      mine.push_back(value);
      appended = true;
    } else if (value.type == kSyncPropertyChangeTypeToManyRelationship ||
               value.type == kSyncPropertyChangeTypeOrderedToManyRelationship) {
      mine[it->second].mergeToManyRelationshipFromSubordinatePropertyChangeValue(value);
    }
  }
  if (appended) setPropertyChangeValues(mine);
}

OptionalError SyncObjectChange::validatePropertyChangeValues() const {
  if (valueForKey("propertyChangeValues").isNull() && type() != kSyncObjectChangeTypeDelete) {
    return syncError(kSyncErrorCodeUnknown, "An object change other than a delete has no property values");
  }
  return std::nullopt;
}

// --- SyncGlobalIdentifier -----------------------------------------------------

void SyncGlobalIdentifier::awakeFromInsert() {
  ManagedObject::awakeFromInsert();
  if (valueForKey("globalIdentifier").isNull()) setGlobalIdentifier(globallyUniqueString());
}
std::string SyncGlobalIdentifier::globalIdentifier() const {
  return valueForKey("globalIdentifier").toString();
}
void SyncGlobalIdentifier::setGlobalIdentifier(const std::string& identifier) {
  setValueForKey("globalIdentifier", Value(identifier));
}
std::optional<std::string> SyncGlobalIdentifier::storeURI() const {
  return optionalString(valueForKey("storeURI"));
}
void SyncGlobalIdentifier::setStoreURI(const std::optional<std::string>& uri) {
  setValueForKey("storeURI", uri ? Value(*uri) : Value());
}
std::string SyncGlobalIdentifier::nameOfEntity() const {
  return valueForKey("nameOfEntity").toString();
}
void SyncGlobalIdentifier::setNameOfEntity(const std::string& name) {
  setValueForKey("nameOfEntity", Value(name));
}

std::vector<std::shared_ptr<SyncGlobalIdentifier>> SyncGlobalIdentifier::fetchGlobalIdentifiersForObjectURIs(
    const std::vector<std::string>& uris, ManagedObjectContext& context) {
  if (uris.empty()) return {};
  FetchRequest request(kSyncGlobalIdentifierEntity);
  request.setPredicate(Predicate::predicateWithFormat("storeURI IN %@", uris));
  auto rows = fetchAs<SyncGlobalIdentifier>(context, request, "Fetch for global ids failed: %@");
  std::unordered_map<std::string, std::shared_ptr<SyncGlobalIdentifier>> byURI;
  for (auto& row : rows) {
    if (auto uri = row->storeURI()) byURI[*uri] = row;
  }
  std::vector<std::shared_ptr<SyncGlobalIdentifier>> out;
  out.reserve(uris.size());
  for (const auto& uri : uris) {
    auto it = byURI.find(uri);
    out.push_back(it == byURI.end() ? nullptr : it->second);
  }
  return out;
}

std::vector<std::shared_ptr<SyncGlobalIdentifier>>
SyncGlobalIdentifier::fetchGlobalIdentifiersForIdentifierStrings(const std::vector<std::string>& identifiers,
                                                                 const std::vector<std::string>& entityNames,
                                                                 ManagedObjectContext& context) {
  if (identifiers.empty()) return {};
  FetchRequest request(kSyncGlobalIdentifierEntity);
  request.setPredicate(Predicate::predicateWithFormat("globalIdentifier IN %@", identifiers));
  auto rows = fetchAs<SyncGlobalIdentifier>(context, request, "Fetch for global ids failed: %@");
  std::map<std::pair<std::string, std::string>, std::shared_ptr<SyncGlobalIdentifier>> byKey;
  for (auto& row : rows) byKey[{row->globalIdentifier(), row->nameOfEntity()}] = row;
  std::vector<std::shared_ptr<SyncGlobalIdentifier>> out;
  out.reserve(identifiers.size());
  for (std::size_t i = 0; i < identifiers.size(); ++i) {
    const std::string& entity = i < entityNames.size() ? entityNames[i] : std::string();
    auto it = byKey.find({identifiers[i], entity});
    out.push_back(it == byKey.end() ? nullptr : it->second);
  }
  return out;
}

std::vector<std::shared_ptr<SyncGlobalIdentifier>> SyncGlobalIdentifier::fetchUnreferencedGlobalIdentifiers(
    ManagedObjectContext& context) {
  FetchRequest request(kSyncGlobalIdentifierEntity);
  request.setPredicate(Predicate::predicateWithFormat("objectChanges.@count == 0"));
  return fetchAs<SyncGlobalIdentifier>(context, request, "Fetch for global ids failed: %@");
}

// --- SyncDataFile ---------------------------------------------------------------

std::string SyncDataFile::filename() const {
  return valueForKey("filename").toString();
}
void SyncDataFile::setFilename(const std::string& name) {
  setValueForKey("filename", Value(name));
}

namespace {
std::set<std::string> filenamesMatching(const Predicate& predicate, ManagedObjectContext& context) {
  FetchRequest request(kSyncDataFileEntity);
  request.setPredicate(predicate);
  OptionalError error;
  FetchResults results = context.executeFetchRequest(request, error);
  std::set<std::string> out;
  if (error) {
    LUMEO_LOG_ERROR("Could not fetch data files: %@", static_cast<const Error&>(*error));
    return out;
  }
  for (const auto& row : results) out.insert(row->valueForKey("filename").toString());
  return out;
}
}  // namespace

std::set<std::string> SyncDataFile::allFilenames(ManagedObjectContext& context) {
  return filenamesMatching(Predicate::predicateWithFormat("objectChange != NIL"), context);
}
std::set<std::string> SyncDataFile::unreferencedFilenames(ManagedObjectContext& context) {
  return filenamesMatching(Predicate::predicateWithFormat("objectChange = NIL"), context);
}
std::set<std::string> SyncDataFile::filenamesInStoreModificationEvents(
    const std::vector<std::shared_ptr<SyncStoreModificationEvent>>& events, ManagedObjectContext& context) {
  if (events.empty()) return {};
  return filenamesMatching(
      Predicate::predicateWithFormat("objectChange.storeModificationEvent IN %@", events), context);
}

}  // namespace lumeo
