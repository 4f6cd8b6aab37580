// The store stack and the application's fetches of the journal.
#include "store/journal_store.h"

#include <fstream>
#include <string_view>
#include <system_error>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/persistent_store_coordinator.h"
#include "objectgraph/predicate.h"
#include "platform/file_system.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "store/image_store.h"
#include "store/journal_model.h"
#include "store/journal_store_options.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo {

Value::Dictionary journalStoreOptions() {
  Value::Dictionary pragmas{{"journal_mode", Value("DELETE")}};
  return {{kMigratePersistentStoresAutomaticallyOption, Value(true)},
          {kInferMappingModelAutomaticallyOption, Value(true)},
          {kSQLitePragmasOption, Value(pragmas)}};
}

namespace {

OptionalError foreignStoreFileError(const std::filesystem::path& file) {
  std::error_code ec;
  if (!std::filesystem::exists(file, ec) && !ec) return std::nullopt;
  if (std::filesystem::is_regular_file(file, ec) && std::filesystem::file_size(file, ec) == 0 && !ec) {
    return std::nullopt;  // an empty file is a fresh database to SQLite
  }
  std::ifstream in(file, std::ios::binary);
  char header[16] = {};
  in.read(header, sizeof header);
  if (in && std::string_view(header, sizeof header) == std::string_view("SQLite format 3\0", 16)) {
    return std::nullopt;
  }
  return Error(kJournalStoreErrorDomain, kJournalStoreNotADatabase,
               "the journal store " + file.string() +
                   " is not an SQLite database; it was left as it is. Move it away to start a new journal.");
}

}  // namespace

JournalStore::JournalStore(Locations locations, std::shared_ptr<UserDefaults> defaults)
    : locations_(std::move(locations)),
      defaults_(defaults ? std::move(defaults) : UserDefaults::standard()) {}

JournalStore::~JournalStore() = default;

std::shared_ptr<ManagedObjectModel> JournalStore::managedObjectModel() {
  if (!model_) model_ = makeJournalModel();
  return model_;
}

std::filesystem::path JournalStore::storeURL() const {
  return locations_.libraryDirectory / kJournalStoreFileName;
}

std::shared_ptr<PersistentStoreCoordinator> JournalStore::persistentStoreCoordinator() {
  if (coordinator_) return coordinator_;

  // Builds that kept the store in the documents directory are upgraded by
  // this move; on every later start the source is gone and the move fails
  // harmlessly. It never replaces a store that is already in place.
  std::error_code ec;
  std::filesystem::path old = locations_.documentsDirectory / kJournalStoreFileName;
  if (!locations_.documentsDirectory.empty() && std::filesystem::exists(old, ec) &&
      !std::filesystem::exists(storeURL(), ec)) {
    std::filesystem::create_directories(locations_.libraryDirectory, ec);
    std::filesystem::rename(old, storeURL(), ec);
  }

  coordinator_ = std::make_shared<PersistentStoreCoordinator>(managedObjectModel());
  // A file that is there but is no SQLite database (something else under
  // the store's name, or a journal damaged beyond its header) is left as it
  // is and not opened: the store stays without a file, and the launch never
  // takes it for a fresh journal.
  if (auto foreign = foreignStoreFileError(storeURL())) {
    openError_ = foreign;
    NotificationCenter::defaultCenter().post(MoodStopMigrationNotification);
    return coordinator_;
  }
  Value::Dictionary options = journalStoreOptions();
  std::filesystem::create_directories(locations_.libraryDirectory, ec);
  OptionalError error;
  coordinator_->addPersistentStoreWithType(kSQLiteStoreType, storeURL(), options, error);
  openError_ = error;
  // SQLite makes a new store file readable by all (0644 less the umask); the
  // journal is private. Its -journal, -wal and -shm files take the store
  // file's mode when SQLite makes them; ones left by an older version are
  // tightened here too.
  if (!error) {
    const std::shared_ptr<FileSystem> fs = FileSystem::current();
    for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
      std::filesystem::path file = storeURL();
      file += suffix;
      (void)fs->makePrivate(file);
    }
  }
  NotificationCenter::defaultCenter().post(MoodStopMigrationNotification);
  return coordinator_;
}

std::shared_ptr<ManagedObjectContext> JournalStore::managedObjectContext() {
  if (context_ && context_->persistentStoreCoordinator()) return context_;
  auto coordinator = persistentStoreCoordinator();
  if (!coordinator) return context_;
  context_ = std::make_shared<ManagedObjectContext>(ConcurrencyType::kMainQueue);
  context_->setName("journal main");
  context_->setPersistentStoreCoordinator(coordinator);
  // Deleted descriptions take their image files with them, through the
  // image store of this journal.
  std::filesystem::path library = locations_.libraryDirectory;
  MoodDescription::setImageFileRemover([library](const std::string& name) {
    auto images = ImageStore::shared();
    if (!images) images = std::make_shared<ImageStore>(library);
    images->deleteImageWithName(name);
  });
  if (contextCreated_) contextCreated_(context_);
  return context_;
}

bool JournalStore::hasStore() {
  auto coordinator = persistentStoreCoordinator();
  return coordinator && !coordinator->persistentStores().empty();
}

void JournalStore::saveContext() {
  if (context_ && context_->hasChanges()) {
    // Dropped on purpose: objects stay changed in the context and nothing is
    // shown; the command line reads lastSaveError().
    saveError_ = context_->save();
  } else {
    saveError_.reset();
  }
  // The cached PDF no longer matches the journal.
  LUMEO_DROP_ERROR(defaults_->removeObjectForKey(kCreatedPDF));
  defaults_->synchronize();
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
}

void JournalStore::applicationDropLinks() {
  context_.reset();
  coordinator_.reset();
  model_.reset();
  openError_.reset();
}

FetchResults JournalStore::executeFetch(const FetchRequest& request) {
  auto context = managedObjectContext();
  if (!context) return {};
  OptionalError error;
  FetchResults results = context->executeFetchRequest(request, error);
  if (error) return {};
  return results;
}

template <class T>
std::vector<std::shared_ptr<T>> JournalStore::fetchAs(const FetchRequest& request) {
  std::vector<std::shared_ptr<T>> out;
  for (const auto& object : executeFetch(request)) {
    if (auto typed = std::dynamic_pointer_cast<T>(object)) out.push_back(std::move(typed));
  }
  return out;
}

std::shared_ptr<MoodRecord> JournalStore::insertRecordWithDescription() {
  auto context = managedObjectContext();
  if (!context) return nullptr;
  auto record = context->insertNewObject<MoodRecord>(kMoodRecordEntity);
  auto description = context->insertNewObject<MoodDescription>(kMoodDescriptionEntity);
  record->setMoodDescription(description);
  return record;
}

OptionalError JournalStore::deleteRecord(const std::shared_ptr<MoodRecord>& record) {
  auto context = managedObjectContext();
  if (!context || !record) return std::nullopt;
  // The record first: its delete reads the tags it leaves, and when that
  // fails nothing has changed yet. The description, unlinked by then, has
  // nothing left to read.
  auto description = record->moodDescription();
  if (auto error = context->deleteObject(record)) return error;
  if (description) return context->deleteObject(description);
  return std::nullopt;
}

std::shared_ptr<MoodRecord> JournalStore::recordWithURI(const std::string& uri) {
  auto coordinator = persistentStoreCoordinator();
  auto context = managedObjectContext();
  if (!coordinator || !context) return nullptr;
  auto id = coordinator->managedObjectIDForURIRepresentation(uri);
  if (!id || id->entityName() != kMoodRecordEntity) return nullptr;
  return std::dynamic_pointer_cast<MoodRecord>(context->existingObjectWithID(*id));
}

std::shared_ptr<MoodRecord> JournalStore::recordWithRowNumber(std::int64_t row) {
  if (row <= 0 || !hasStore()) return nullptr;
  const EntityDescription* entity = managedObjectModel()->entityNamed(kMoodRecordEntity);
  auto stores = persistentStoreCoordinator()->persistentStores();
  auto id = ManagedObjectID::makePermanent(*entity, stores.front()->identifier(), row);
  return std::dynamic_pointer_cast<MoodRecord>(managedObjectContext()->existingObjectWithID(id));
}

std::shared_ptr<MoodTag> JournalStore::tagNamed(const std::string& name) {
  FetchRequest request(kMoodTagEntity);
  // ==[cd], not like[cd]: a name is literal, so "w*" never finds "walk".
  request.setPredicate(Predicate::predicateWithFormat("tagName ==[cd] %@", name));
  request.setFetchLimit(1);
  auto tags = fetchAs<MoodTag>(request);
  return tags.empty() ? nullptr : tags.front();
}

std::optional<Date> JournalStore::getFirstDate() {
  FetchRequest request(kMoodRecordEntity);
  request.setSortDescriptors({SortDescriptor("date", true)});
  request.setFetchLimit(1);
  auto records = fetchAs<MoodRecord>(request);
  if (records.empty()) return std::nullopt;
  return records.front()->date();
}

void JournalStore::requestDates(const std::function<void(Date, Date)>& block) {
  FetchRequest request(kMoodRecordEntity);
  request.setResultType(FetchRequestResultType::kDictionary);
  request.setExpressionsToFetch(
      {{"minDate", "min:", "date", AttributeType::kDate}, {"maxDate", "max:", "date", AttributeType::kDate}});
  FetchResults results = executeFetch(request);
  const auto& rows = results.dictionaries();
  if (rows.size() != 1) return;
  Value row(rows.front());
  const Value& minDate = row["minDate"];
  const Value& maxDate = row["maxDate"];
  if (!minDate.asDate() || !maxDate.asDate()) return;
  if (block) block(*minDate.asDate(), *maxDate.asDate());
}

void JournalStore::removeCoordinates() {
  for (const auto& description : locatedDescriptions()) {
    description->setLatitude(MoodDescription::kNoCoordinate);
    description->setLongitude(MoodDescription::kNoCoordinate);
  }
  saveContext();
}

bool JournalStore::isKnownEmpty() {
  auto context = managedObjectContext();
  if (!context || !hasStore()) return false;
  FetchRequest request(kMoodRecordEntity);
  request.setFetchLimit(1);
  OptionalError error;
  FetchResults results = context->executeFetchRequest(request, error);
  return !error && results.empty();
}

bool JournalStore::hasAnyRecord() {
  FetchRequest request(kMoodRecordEntity);
  request.setFetchLimit(1);
  return !executeFetch(request).empty();
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::recordsSortedByDate() {
  FetchRequest request(kMoodRecordEntity);
  request.setSortDescriptors({SortDescriptor("date", true)});
  return fetchAs<MoodRecord>(request);
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::allRecords() {
  return fetchAs<MoodRecord>(FetchRequest(kMoodRecordEntity));
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::recordsFrom(Date from, Date to) {
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat("date >= %@ AND date <= %@", from, to));
  request.setSortDescriptors({SortDescriptor("date", true)});
  return fetchAs<MoodRecord>(request);
}

std::vector<JournalStore::DatedLevel> JournalStore::datedLevels(std::optional<Date> from,
                                                                std::optional<Date> to) {
  std::vector<DatedLevel> out;
  auto context = managedObjectContext();
  if (!context) return out;
  FetchRequest request(kMoodRecordEntity);
  if (from && to)
    request.setPredicate(Predicate::predicateWithFormat("date >= %@ AND date <= %@", *from, *to));
  request.setSortDescriptors({SortDescriptor("date", true)});
  if (context->hasChanges()) {
    for (const auto& record : fetchAs<MoodRecord>(request)) {
      if (auto date = record->date()) out.push_back({*date, record->moodLevel()});
    }
    return out;
  }
  // A 100,000-record journal is read several times faster this way: no
  // object, snapshot, registry entry or dictionary per record.
  request.setPropertiesToFetch({"date", "moodLevel"});
  auto error = context->forEachFetchedRow(request, [&](const std::vector<Value>& row) {
    if (const Date* date = row[0].asDate()) out.push_back({*date, static_cast<long>(row[1].toInt())});
  });
  if (error) {
    LUMEO_LOG_DEBUG("reading dates and levels failed: %@", error->toString());
    out.clear();
  }
  return out;
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::newestRecordsFrom(Date from, Date to,
                                                                         std::size_t limit) {
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat("date >= %@ AND date <= %@", from, to));
  request.setSortDescriptors({SortDescriptor("date", false)});
  request.setFetchLimit(limit);
  return fetchAs<MoodRecord>(request);
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::recordsFromWithAnyTag(
    Date from, Date to, const std::vector<std::shared_ptr<MoodTag>>& tags) {
  std::vector<PredicateValue> items;
  for (const auto& tag : tags) items.emplace_back(ManagedObjectPtr(tag));
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat("date >= %@ && date <= %@ && (ANY moodTags IN %@)",
                                                      from, to, PredicateValue(std::move(items))));
  request.setSortDescriptors({SortDescriptor("date", true)});
  return fetchAs<MoodRecord>(request);
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::recordsFromWithTag(
    Date from, Date to, const std::shared_ptr<MoodTag>& tag) {
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat("(date >= %@ AND date <= %@) AND ANY moodTags == %@",
                                                      from, to, ManagedObjectPtr(tag)));
  request.setSortDescriptors({SortDescriptor("date", true)});
  return fetchAs<MoodRecord>(request);
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::recordsWithTag(const std::shared_ptr<MoodTag>& tag) {
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat("ANY moodTags == %@", ManagedObjectPtr(tag)));
  request.setSortDescriptors({SortDescriptor("date", true)});
  return fetchAs<MoodRecord>(request);
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::recordsWithPhoto(bool positive) {
  std::string format = std::string("moodDescription.photoName != NIL") +
                       (positive ? " && moodLevel >= 6" : " && moodLevel <= 5");
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::predicateWithFormat(format));
  request.setSortDescriptors({SortDescriptor("date", true)});
  return fetchAs<MoodRecord>(request);
}

std::vector<std::shared_ptr<MoodRecord>> JournalStore::locatedRecordsFrom(
    Date from, Date to, const std::vector<std::string>& tagNames) {
  std::vector<Predicate> parts;
  parts.push_back(Predicate::predicateWithFormat(
      "moodDescription.longitude != %@ AND moodDescription.latitude != %@", -1, -1));
  parts.push_back(Predicate::predicateWithFormat("date >= %@ AND date <= %@", from, to));
  if (!tagNames.empty()) {
    std::vector<Predicate> anyTag;
    for (const auto& name : tagNames) {
      anyTag.push_back(
          Predicate::predicateWithFormat("SUBQUERY(moodTags, $x, $x.tagName == %@).@count > 0", name));
    }
    parts.push_back(Predicate::orPredicateWithSubpredicates(anyTag));
  }
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::andPredicateWithSubpredicates(parts));
  auto records = fetchAs<MoodRecord>(request);
  // "!= -1" also matches a NULL (a NaN that SQLite kept); such a record
  // has no place.
  std::erase_if(records, [](const auto& record) {
    auto description = record->moodDescription();
    return !description || !description->hasPosition();
  });
  return records;
}

std::vector<std::shared_ptr<MoodDescription>> JournalStore::allDescriptions() {
  return fetchAs<MoodDescription>(FetchRequest(kMoodDescriptionEntity));
}

std::set<std::string> JournalStore::imageNamesInUse() {
  FetchRequest request(kMoodDescriptionEntity);
  request.setPredicate(Predicate::predicateWithFormat("photoName != NIL OR thumbName != NIL"));
  request.setResultType(FetchRequestResultType::kDictionary);
  request.setPropertiesToFetch({"photoName", "thumbName"});
  std::set<std::string> names;
  FetchResults results = executeFetch(request);
  for (const auto& row : results.dictionaries()) {
    for (const char* key : {"photoName", "thumbName"}) {
      auto it = row.find(key);
      if (it != row.end() && it->second.asString() && !it->second.asString()->empty())
        names.insert(*it->second.asString());
    }
  }
  return names;
}

std::vector<std::shared_ptr<MoodDescription>> JournalStore::locatedDescriptions() {
  FetchRequest request(kMoodDescriptionEntity);
  request.setPredicate(Predicate::predicateWithFormat("latitude != %@ && longitude != %@", -1, -1));
  auto descriptions = fetchAs<MoodDescription>(request);
  std::erase_if(descriptions, [](const auto& description) { return !description->hasPosition(); });
  return descriptions;
}

std::vector<std::shared_ptr<MoodTag>> JournalStore::tagsNamedLike(const std::string& name) {
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat("tagName ==[cd] %@", name));
  return fetchAs<MoodTag>(request);
}

std::vector<std::shared_ptr<MoodTag>> JournalStore::completionTags(const std::string& typed) {
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat("tagName like[cd] %@", typed + "*"));
  request.setSortDescriptors({SortDescriptor("frequency", false), SortDescriptor("tagName", true)});
  request.setFetchLimit(100);
  return fetchAs<MoodTag>(request);
}

std::vector<std::shared_ptr<MoodTag>> JournalStore::suggestedTags(const std::string& typed,
                                                                  std::size_t limit) {
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat("tagName like[cd] %@", typed + "*"));
  request.setSortDescriptors({SortDescriptor("frequency", false)});
  request.setFetchLimit(limit);
  return fetchAs<MoodTag>(request);
}

std::shared_ptr<MoodTag> JournalStore::tagWithExactName(const std::string& name) {
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat("tagName == %@", name));
  request.setFetchLimit(1);
  auto tags = fetchAs<MoodTag>(request);
  return tags.empty() ? nullptr : tags.front();
}

std::shared_ptr<MoodTag> JournalStore::tagSelf(const std::shared_ptr<MoodTag>& tag) {
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat("self == %@", ManagedObjectPtr(tag)));
  request.setFetchLimit(1);
  auto tags = fetchAs<MoodTag>(request);
  return tags.empty() ? nullptr : tags.front();
}

std::vector<std::shared_ptr<MoodTag>> JournalStore::tagsContaining(const std::string& text) {
  FetchRequest request(kMoodTagEntity);
  if (!text.empty()) request.setPredicate(Predicate::predicateWithFormat("tagName CONTAINS[cd] %@", text));
  request.setSortDescriptors({SortDescriptor("tagName", true)});
  return fetchAs<MoodTag>(request);
}

std::vector<std::shared_ptr<MoodTag>> JournalStore::usedTags() {
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat("frequency > 0"));
  return fetchAs<MoodTag>(request);
}

std::vector<std::shared_ptr<MoodTag>> JournalStore::usedTagsFrom(Date from, Date to) {
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat(
      "frequency > 0 AND (ANY moodRecords.date >= %@ ) AND (ANY moodRecords.date <= %@)", from, to));
  return fetchAs<MoodTag>(request);
}

std::vector<std::shared_ptr<MoodTag>> JournalStore::tagsByFrequency(std::size_t limit) {
  FetchRequest request(kMoodTagEntity);
  request.setSortDescriptors({SortDescriptor("frequency", false)});
  request.setFetchLimit(limit);
  return fetchAs<MoodTag>(request);
}

}  // namespace lumeo
