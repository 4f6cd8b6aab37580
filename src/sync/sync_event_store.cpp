// The event store: metadata, database, data files.
#include "sync/sync_event_store.h"

#include <sys/mman.h>

#include <algorithm>
#include <system_error>

#include "objectgraph/fetch_request.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "platform/atomic_file.h"
#include "platform/dispatch_queue.h"
#include "platform/log.h"
#include "platform/property_list.h"
#include "store/mood_record.h"
#include "sync/sync_error.h"
#include "sync/sync_event_entities.h"

namespace lumeo {

namespace fs = std::filesystem;

namespace {

std::mutex defaultRootMutex;

fs::path& defaultRootSlot() {
  // Until the application sets its own (the application support folder and
  // its identifier), event data goes where a test build would put it.
  static fs::path root =
      fs::temp_directory_path() / "com.quorvane.confluence.tests" / kSyncEventDataDirectoryName;
  return root;
}

const std::shared_ptr<ManagedObjectModel>& eventStoreModel() {
  static std::shared_ptr<ManagedObjectModel> model = makeSyncEventStoreModel();
  return model;
}

std::set<std::string> listFiles(const fs::path& dir) {
  std::set<std::string> names;
  std::error_code ec;
  if (!fs::exists(dir, ec)) return names;
  for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) {
    if (it->is_regular_file(ec)) names.insert(it->path().filename().string());
  }
  if (ec) LUMEO_LOG_ERROR("Could not get data filenames: %@", ec.message());
  return names;
}

}  // namespace

fs::path SyncEventStore::defaultPathToEventDataRootDirectory() {
  std::lock_guard lock(defaultRootMutex);
  return defaultRootSlot();
}

void SyncEventStore::setDefaultPathToEventDataRootDirectory(fs::path path) {
  std::lock_guard lock(defaultRootMutex);
  defaultRootSlot() = std::move(path);
}

SyncEventStore::SyncEventStore(std::string ensembleIdentifier, std::optional<fs::path> root)
    : ensembleIdentifier_(std::move(ensembleIdentifier)),
      root_(root ? *root : defaultPathToEventDataRootDirectory()) {
  if (OptionalError error = readStoreMetadata()) {
    setupError_ = error;
    return;
  }
  if (!persistentStoreIdentifier_) return;
  if (OptionalError error = setupCoreDataStack()) {
    LUMEO_LOG_ERROR("Could not setup core data stack for event store: %@", static_cast<const Error&>(*error));
    setupError_ = error;
    std::lock_guard lock(mutex_);
    persistentStoreIdentifier_.reset();
  }
}

SyncEventStore::~SyncEventStore() {
  dismantle();
}

// --- Metadata -------------------------------------------------------------

OptionalError SyncEventStore::readStoreMetadata() {
  std::error_code ec;
  if (!fs::exists(pathToStoreInfoFile(), ec)) {
    verifiesStoreRegistrationInCloud_ = true;
    return std::nullopt;
  }
  auto read = readPropertyListFile(pathToStoreInfoFile());
  if (auto* error = std::get_if<Error>(&read)) {
    return Error(kSyncErrorDomain, kSyncErrorCodeUnknown,
                 "The event store's metadata file " + pathToStoreInfoFile().string() +
                     " is not a property list: " + error->description);
  }
  const Value& info = std::get<Value>(read);
  if (!info.asDictionary()) {
    return Error(
        kSyncErrorDomain, kSyncErrorCodeUnknown,
        "The event store's metadata file " + pathToStoreInfoFile().string() + " holds no dictionary");
  }
  std::lock_guard lock(mutex_);
  if (const std::string* s = info["persistentStoreIdentifier"].asString()) persistentStoreIdentifier_ = *s;
  if (const Value::Data* d = info["cloudFileSystemIdentity"].asData()) cloudFileSystemIdentity_ = *d;
  verifiesStoreRegistrationInCloud_ = info["verifiesStoreRegistrationInCloud"].toBool(false);
  if (const std::string* s = info["identifierOfBaselineUsedToConstructStore"].asString()) {
    identifierOfBaselineUsedToConstructStore_ = *s;
  }
  incompleteEventIdentifiers_.clear();
  if (const Value::Dictionary* incomplete = info["incompleteEventIdentifiers"].asDictionary()) {
    for (const auto& [identifier, mandatory] : *incomplete)
      incompleteEventIdentifiers_[identifier] = mandatory.toBool();
  }
  return std::nullopt;
}

void SyncEventStore::saveStoreMetadata() {
  std::lock_guard lock(mutex_);
  Value::Dictionary info;
  if (persistentStoreIdentifier_) {
    info["persistentStoreIdentifier"] = Value(*persistentStoreIdentifier_);
    if (cloudFileSystemIdentity_) info["cloudFileSystemIdentity"] = Value(*cloudFileSystemIdentity_);
    Value::Dictionary incomplete;
    for (const auto& [identifier, mandatory] : incompleteEventIdentifiers_)
      incomplete[identifier] = Value(mandatory);
    info["incompleteEventIdentifiers"] = Value(std::move(incomplete));
    info["verifiesStoreRegistrationInCloud"] = Value(verifiesStoreRegistrationInCloud_);
    if (identifierOfBaselineUsedToConstructStore_) {
      info["identifierOfBaselineUsedToConstructStore"] = Value(*identifierOfBaselineUsedToConstructStore_);
    }
  }
  std::error_code ec;
  fs::create_directories(pathToEventStoreRootDirectory(), ec);
  if (OptionalError error = writePropertyListFile(pathToStoreInfoFile(), Value(std::move(info)))) {
    LUMEO_LOG_ERROR("Could not write store info file");
  }
}

std::optional<std::string> SyncEventStore::persistentStoreIdentifier() const {
  std::lock_guard lock(mutex_);
  return persistentStoreIdentifier_;
}
std::optional<Value::Data> SyncEventStore::cloudFileSystemIdentity() const {
  std::lock_guard lock(mutex_);
  return cloudFileSystemIdentity_;
}
void SyncEventStore::setCloudFileSystemIdentity(std::optional<Value::Data> identity) {
  std::lock_guard lock(mutex_);
  cloudFileSystemIdentity_ = std::move(identity);
  saveStoreMetadata();
}
bool SyncEventStore::verifiesStoreRegistrationInCloud() const {
  std::lock_guard lock(mutex_);
  return verifiesStoreRegistrationInCloud_;
}
void SyncEventStore::setVerifiesStoreRegistrationInCloud(bool verifies) {
  std::lock_guard lock(mutex_);
  verifiesStoreRegistrationInCloud_ = verifies;
  saveStoreMetadata();
}
std::optional<std::string> SyncEventStore::identifierOfBaselineUsedToConstructStore() const {
  std::lock_guard lock(mutex_);
  return identifierOfBaselineUsedToConstructStore_;
}
void SyncEventStore::setIdentifierOfBaselineUsedToConstructStore(
    const std::optional<std::string>& identifier) {
  std::lock_guard lock(mutex_);
  if (identifier == identifierOfBaselineUsedToConstructStore_) return;
  identifierOfBaselineUsedToConstructStore_ = identifier;
  saveStoreMetadata();
}

// --- Database ---------------------------------------------------------------

OptionalError SyncEventStore::setupCoreDataStack() {
  std::error_code ec;
  fs::create_directories(pathToDataFileDirectory(), ec);
  fs::create_directories(pathToNewlyImportedDataFileDirectory(), ec);
  if (ec) return Error(kSyncErrorDomain, 107, "Could not make the event store's folders: " + ec.message());
  // The log is rebuilt from the cloud; a backup of it would be stale.
  fs::permissions(pathToEventStoreRootDirectory(), fs::perms::owner_all, ec);
  if (ec) LUMEO_LOG_WARNING("Could not exclude event store directory from backup");

  auto coordinator = std::make_shared<PersistentStoreCoordinator>(eventStoreModel());
  OptionalError error;
  Value::Dictionary options{{kMigratePersistentStoresAutomaticallyOption, Value(true)},
                            {kInferMappingModelAutomaticallyOption, Value(true)}};
  if (!coordinator->addPersistentStoreWithType(kSQLiteStoreType, pathToEventStore(), options, error)) {
    return error ? *error : Error(kSyncErrorDomain, kSyncErrorCodeUnknown, "Could not open the event store");
  }
  auto context = std::make_shared<ManagedObjectContext>(ConcurrencyType::kPrivateQueue);
  context->setPersistentStoreCoordinator(coordinator);
  context->setMergePolicy(MergePolicy::kObjectTrump);
  context->setName("SyncEventStore");
  std::weak_ptr<ManagedObjectContext> weak = context;
  // Child contexts of the event context save into it; nothing to merge from
  // other root contexts on this file, since the event store owns it alone.
  {
    std::lock_guard lock(mutex_);
    coordinator_ = std::move(coordinator);
    context_ = std::move(context);
  }
  return std::nullopt;
}

std::shared_ptr<ManagedObjectContext> SyncEventStore::managedObjectContext() const {
  std::lock_guard lock(mutex_);
  return context_;
}

void SyncEventStore::performBlockAndWait(const std::function<void()>& block) const {
  auto context = managedObjectContext();
  if (!context) return;
  context->performBlockAndWait(block);
}

OptionalError SyncEventStore::prepareNewEventStore() {
  removeEventStore();
  setupError_.reset();
  {
    std::lock_guard lock(mutex_);
    persistentStoreIdentifier_ = globallyUniqueString();
    identifierOfBaselineUsedToConstructStore_.reset();
    incompleteEventIdentifiers_.clear();
    cloudFileSystemIdentity_.reset();
    verifiesStoreRegistrationInCloud_ = true;
  }
  if (OptionalError error = setupCoreDataStack()) {
    std::lock_guard lock(mutex_);
    persistentStoreIdentifier_.reset();
    return error;
  }
  saveStoreMetadata();
  return std::nullopt;
}

bool SyncEventStore::removeEventStore() {
  dismantle();
  std::error_code ec;
  fs::remove_all(pathToEventStoreRootDirectory(), ec);
  return !ec;
}

void SyncEventStore::dismantle() {
  std::shared_ptr<ManagedObjectContext> context;
  {
    std::lock_guard lock(mutex_);
    context = context_;
  }
  if (context) context->performBlockAndWait([&] { context->reset(); });
  std::lock_guard lock(mutex_);
  persistentStoreIdentifier_.reset();
  incompleteEventIdentifiers_.clear();
  context_.reset();
  coordinator_.reset();
}

bool SyncEventStore::containsEventData() const {
  std::lock_guard lock(mutex_);
  return persistentStoreIdentifier_.has_value() && context_ != nullptr;
}

OptionalError SyncEventStore::flush() {
  saveStoreMetadata();
  auto context = managedObjectContext();
  OptionalError result;
  if (context) context->performBlockAndWait([&] { result = context->save(); });
  return result;
}

void SyncEventStore::flushWithCompletion(std::function<void(OptionalError)> completion) {
  OptionalError error = flush();
  if (completion) DispatchQueue::main().async([completion, error] { completion(error); });
}

// --- Incomplete events -------------------------------------------------------

void SyncEventStore::registerIncompleteEventIdentifier(const std::string& identifier, bool isMandatory) {
  std::lock_guard lock(mutex_);
  incompleteEventIdentifiers_[identifier] = isMandatory;
  saveStoreMetadata();
}

void SyncEventStore::deregisterIncompleteEventIdentifier(const std::string& identifier) {
  std::lock_guard lock(mutex_);
  incompleteEventIdentifiers_.erase(identifier);
  saveStoreMetadata();
}

std::vector<std::string> SyncEventStore::incompleteEventIdentifiers() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& [identifier, mandatory] : incompleteEventIdentifiers_) out.push_back(identifier);
  return out;
}

std::vector<std::string> SyncEventStore::incompleteMandatoryEventIdentifiers() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const auto& [identifier, mandatory] : incompleteEventIdentifiers_) {
    if (mandatory) out.push_back(identifier);
  }
  return out;
}

std::vector<std::string> SyncEventStore::removeIncompleteEvents() {
  auto context = managedObjectContext();
  if (!context) return {};
  std::vector<std::string> all = incompleteEventIdentifiers();
  std::vector<std::string> mandatory = incompleteMandatoryEventIdentifiers();
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncStoreModificationEventEntity);
    Predicate leftOver = Predicate::predicateWithFormat("type = %@", int(kSyncEventTypeIncomplete));
    if (!all.empty()) {
      leftOver = Predicate::orPredicateWithSubpredicates(
          {leftOver, Predicate::predicateWithFormat("uniqueIdentifier IN %@", all)});
    }
    request.setPredicate(leftOver);
    OptionalError error;
    FetchResults events = context->executeFetchRequest(request, error);
    if (error) {
      LUMEO_LOG_ERROR("Could not fetch store mod events: %@", static_cast<const Error&>(*error));
      return;
    }
    for (const auto& event : events) LUMEO_DROP_ERROR(context->deleteObject(event));
    if (OptionalError saveError = context->save()) {
      LUMEO_LOG_ERROR("Error saving event store: %@", static_cast<const Error&>(*saveError));
      context->rollback();
      return;
    }
    for (const auto& identifier : all) deregisterIncompleteEventIdentifier(identifier);
  });
  return mandatory;
}

// --- Revisions ----------------------------------------------------------------

std::int64_t SyncEventStore::lastRevisionMatching(const std::string& format, int typeA, int typeB) const {
  auto context = managedObjectContext();
  auto store = persistentStoreIdentifier();
  if (!context || !store) return -1;
  std::int64_t result = -1;
  bool failed = false;
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncEventRevisionEntity);
    request.setPredicate(typeB < 0 ? Predicate::predicateWithFormat(format, *store, typeA)
                                   : Predicate::predicateWithFormat(format, *store, typeA, typeB));
    request.setIncludesPendingChanges(false);
    request.setResultType(FetchRequestResultType::kDictionary);
    request.setExpressionsToFetch({{"max", "max:", "revisionNumber", AttributeType::kInteger64}});
    OptionalError error;
    FetchResults rows = context->executeFetchRequest(request, error);
    if (error) {
      failed = true;
      return;
    }
    if (!rows.dictionaries().empty()) {
      const Value& max =
          rows.dictionaries().front().count("max") ? rows.dictionaries().front().at("max") : Value();
      if (!max.isNull()) result = max.toInt(-1);
    }
  });
  if (failed) throw SyncException("Failed to fetch revisions");
  return result;
}

std::int64_t SyncEventStore::lastSaveRevisionSaved() const {
  return lastRevisionMatching("persistentStoreIdentifier = %@ AND storeModificationEvent.type = %@",
                              kSyncEventTypeSave, -1);
}

std::int64_t SyncEventStore::lastMergeRevisionSaved() const {
  return lastRevisionMatching("persistentStoreIdentifier = %@ AND storeModificationEvent.type = %@",
                              kSyncEventTypeMerge, -1);
}

std::int64_t SyncEventStore::lastRevisionSaved() const {
  return lastRevisionMatching(
      "persistentStoreIdentifier = %@ AND ((storeModificationEvent != NIL AND storeModificationEvent.type != "
      "%@) OR "
      "(storeModificationEventForOtherStores != NIL AND storeModificationEventForOtherStores.type != %@))",
      kSyncEventTypeIncomplete, kSyncEventTypeIncomplete);
}

std::int64_t SyncEventStore::baselineRevision() const {
  auto context = managedObjectContext();
  auto store = persistentStoreIdentifier();
  if (!context || !store) return -1;
  std::int64_t result = -1;
  context->performBlockAndWait([&] {
    auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context);
    if (!baseline) return;
    if (const SyncRevision* r = baseline->revisionSet().revisionForPersistentStoreIdentifier(*store)) {
      result = r->revisionNumber();
    }
  });
  return result;
}

std::optional<std::string> SyncEventStore::currentBaselineIdentifier() const {
  auto context = managedObjectContext();
  if (!context) return std::nullopt;
  std::optional<std::string> result;
  context->performBlockAndWait([&] {
    if (auto baseline = SyncStoreModificationEvent::fetchMostRecentBaselineStoreModificationEvent(*context)) {
      result = baseline->uniqueIdentifier();
    }
  });
  return result;
}

void SyncEventStore::removeUnusedData() {
  auto context = managedObjectContext();
  if (!context) return;
  context->performBlockAndWait([&] {
    for (const auto& row : SyncGlobalIdentifier::fetchUnreferencedGlobalIdentifiers(*context)) {
      LUMEO_DROP_ERROR(context->deleteObject(row));
    }
    if (OptionalError error = context->save()) {
      LUMEO_LOG_ERROR("Error saving event store: %@", static_cast<const Error&>(*error));
    }
  });
}

void SyncEventStore::removeUnusedDataWithCompletion(std::function<void()> completion) {
  removeUnusedData();
  if (completion) DispatchQueue::main().async(std::move(completion));
}

// --- Data files -----------------------------------------------------------------

std::optional<std::string> SyncEventStore::storeDataInFile(const Value::Data& data) {
  return storeDataInFile(data, globallyUniqueString());
}

std::optional<std::string> SyncEventStore::storeDataInFile(const Value::Data& data, const std::string& name) {
  if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
  std::error_code ec;
  fs::create_directories(pathToDataFileDirectory(), ec);
  if (OptionalError error = writeFileAtomically(pathToDataFileDirectory() / name, data)) return std::nullopt;
  return name;
}

bool SyncEventStore::importDataFile(const fs::path& path) {
  std::error_code ec;
  fs::create_directories(pathToNewlyImportedDataFileDirectory(), ec);
  fs::rename(path, pathToNewlyImportedDataFileDirectory() / path.filename(), ec);
  if (ec) {
    LUMEO_LOG_ERROR("Could not move file to event store data directory: %@", ec.message());
    return false;
  }
  return true;
}

bool SyncEventStore::exportDataFile(const std::string& name, const fs::path& directory) {
  std::error_code ec;
  fs::copy_file(pathToDataFileDirectory() / name, directory / name, fs::copy_options::overwrite_existing, ec);
  if (ec) {
    LUMEO_LOG_ERROR("Could not move file to event store data directory: %@", ec.message());
    return false;
  }
  return true;
}

std::optional<Value::Data> SyncEventStore::dataForFile(const std::string& name) {
  if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
  fs::path target = pathToDataFileDirectory() / name;
  fs::path imported = pathToNewlyImportedDataFileDirectory() / name;
  std::error_code ec;
  if (!fs::exists(target, ec) && fs::exists(imported, ec)) {
    fs::create_directories(pathToDataFileDirectory(), ec);
    fs::rename(imported, target, ec);
    if (ec) LUMEO_LOG_ERROR("Could not move file: %@", ec.message());
  }
  auto bytes = readFileBytes(target);
  if (auto* error = std::get_if<Error>(&bytes)) {
    LUMEO_LOG_ERROR("Failed to get file data for file %@: %@", name, *error);
    return std::nullopt;
  }
  return std::get<Value::Data>(std::move(bytes));
}

std::set<std::string> SyncEventStore::previouslyReferencedDataFilenames() const {
  return listFiles(pathToDataFileDirectory());
}

std::set<std::string> SyncEventStore::newlyImportedDataFilenames() const {
  return listFiles(pathToNewlyImportedDataFileDirectory());
}

std::set<std::string> SyncEventStore::allDataFilenames() const {
  std::set<std::string> all = previouslyReferencedDataFilenames();
  for (auto& name : newlyImportedDataFilenames()) all.insert(name);
  return all;
}

bool SyncEventStore::removePreviouslyReferencedDataFile(const std::string& name) {
  std::error_code ec;
  return fs::remove(pathToDataFileDirectory() / name, ec) && !ec;
}

bool SyncEventStore::removeNewlyImportedDataFile(const std::string& name) {
  std::error_code ec;
  return fs::remove(pathToNewlyImportedDataFileDirectory() / name, ec) && !ec;
}

void SyncEventStore::removeUnreferencedDataFiles() {
  auto context = managedObjectContext();
  if (!context) return;
  std::set<std::string> referenced;
  bool ok = true;
  context->performBlockAndWait([&] {
    FetchRequest request(kSyncDataFileEntity);
    request.setPredicate(Predicate::predicateWithFormat("objectChange != NIL"));
    OptionalError error;
    FetchResults rows = context->executeFetchRequest(request, error);
    if (error) {
      LUMEO_LOG_ERROR("Could not fetch data files: %@", static_cast<const Error&>(*error));
      ok = false;
      return;
    }
    for (const auto& row : rows) referenced.insert(row->valueForKey("filename").toString());
  });
  // A failed read must not look like "nothing is referenced".
  if (!ok) return;
  for (const auto& name : previouslyReferencedDataFilenames()) {
    if (!referenced.count(name)) removePreviouslyReferencedDataFile(name);
  }
}

}  // namespace lumeo
