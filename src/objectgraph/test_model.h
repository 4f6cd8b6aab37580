// A model for the object-graph tests: the journal's three entities with
// typed classes that use the hooks, an event store shaped like the sync
// engine's, an inheritance chain and an ordered relationship. Test-only.
#pragma once

#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include "objectgraph/managed_object.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/managed_object_model.h"
#include "objectgraph/persistent_store_coordinator.h"

namespace lumeo::testing {

// One number read straight from the store file, past the object graph: what
// a save really wrote. -1 when the query fails.
inline long long sqlCount(const std::string& path, const std::string& sql) {
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* s = nullptr;
  long long n = -1;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW) {
    n = sqlite3_column_int64(s, 0);
  }
  sqlite3_finalize(s);
  sqlite3_close(db);
  return n;
}

// Every hook call, as "hook:Entity:<name or id>".
inline std::vector<std::string>& hookLog() {
  static std::vector<std::string> log;
  return log;
}

inline std::string label(const ManagedObject& o) {
  Value name = o.entity().attributeNamed("tagName") ? o.valueForKey("tagName") : Value();
  if (name.asString()) return *name.asString();
  Value uid = o.entity().attributeNamed("uniqueIdentifier") ? o.valueForKey("uniqueIdentifier") : Value();
  return uid.toString("?");
}

class TestRecord : public ManagedObject {
 protected:
  void awakeFromInsert() override {
    ManagedObject::awakeFromInsert();
    static int serial = 0;
    if (valueForKey("uniqueIdentifier").isNull())
      setValueForKey("uniqueIdentifier", "rec-" + std::to_string(++serial));
    hookLog().push_back("awakeFromInsert:MoodRecord:" + label(*this));
  }
  void willSave() override {
    ManagedObject::willSave();
    hookLog().push_back("willSave:MoodRecord:" + label(*this));
  }
  void prepareForDeletion() override {
    ManagedObject::prepareForDeletion();
    hookLog().push_back("prepareForDeletion:MoodRecord:" + label(*this));
  }
};

class TestDescription : public ManagedObject {
 protected:
  void awakeFromInsert() override {
    ManagedObject::awakeFromInsert();
    hookLog().push_back("awakeFromInsert:MoodDescription");
  }
  void willSave() override {
    ManagedObject::willSave();
    hookLog().push_back("willSave:MoodDescription");
  }
  void prepareForDeletion() override {
    ManagedObject::prepareForDeletion();
    // Reads its record while the link still stands.
    auto record = objectForKey("moodRecord");
    hookLog().push_back("prepareForDeletion:MoodDescription:" +
                        (record ? label(*record) : std::string("none")));
  }
};

// The journal's rule: frequency follows the number of records, set only
// when it differs so that the hook settles.
class TestTag : public ManagedObject {
 protected:
  void willSave() override {
    ManagedObject::willSave();
    hookLog().push_back("willSave:MoodTag:" + label(*this));
    const auto count = static_cast<long long>(countForKey("moodRecords"));
    if (valueForKey("frequency").toInt() != count) setValueForKey("frequency", count);
  }
};

inline std::shared_ptr<ManagedObjectModel> makeTestModel() {
  auto model = std::make_shared<ManagedObjectModel>();
  auto& record = model->addEntity("MoodRecord").setInstanceClass<TestRecord>();
  record.addAttribute("uniqueIdentifier", AttributeType::kString);
  record.addAttribute("date", AttributeType::kDate).setIndexed(true);
  record.addAttribute("moodLevel", AttributeType::kInteger16).setDefaultValue(0);
  record.addRelationship("moodDescription", "MoodDescription")
      .setInverseName("moodRecord")
      .setDeleteRule(DeleteRule::kCascade);
  record.addRelationship("moodTags", "MoodTag").setToMany(true).setInverseName("moodRecords");

  auto& description = model->addEntity("MoodDescription").setInstanceClass<TestDescription>();
  description.addAttribute("uniqueIdentifier", AttributeType::kString);
  description.addAttribute("comment", AttributeType::kString);
  description.addAttribute("thumbName", AttributeType::kString);
  description.addAttribute("photoName", AttributeType::kString);
  description.addAttribute("wasEdited", AttributeType::kBoolean).setDefaultValue(false);
  description.addAttribute("latitude", AttributeType::kDouble).setDefaultValue(-1.0);
  description.addAttribute("longitude", AttributeType::kDouble).setDefaultValue(-1.0);
  description.addRelationship("moodRecord", "MoodRecord").setInverseName("moodDescription");

  auto& tag = model->addEntity("MoodTag").setInstanceClass<TestTag>();
  tag.addAttribute("tagName", AttributeType::kString).setIndexed(true);
  tag.addAttribute("tagUnit", AttributeType::kString);
  tag.addAttribute("frequency", AttributeType::kInteger32).setDefaultValue(0);
  tag.addRelationship("moodRecords", "MoodRecord").setToMany(true).setInverseName("moodTags");

  auto& event = model->addEntity("SyncStoreModificationEvent");
  event.addAttribute("uniqueIdentifier", AttributeType::kString);
  event.addAttribute("type", AttributeType::kInteger16);
  event.addAttribute("globalCount", AttributeType::kInteger64);
  event.addAttribute("timestamp", AttributeType::kDouble);
  event.addRelationship("eventRevision", "SyncEventRevision")
      .setInverseName("storeModificationEvent")
      .setDeleteRule(DeleteRule::kCascade);
  event.addRelationship("eventRevisionsOfOtherStores", "SyncEventRevision")
      .setToMany(true)
      .setInverseName("storeModificationEventForOtherStores")
      .setDeleteRule(DeleteRule::kCascade);
  event.addRelationship("objectChanges", "SyncObjectChange")
      .setToMany(true)
      .setInverseName("storeModificationEvent")
      .setDeleteRule(DeleteRule::kCascade);

  auto& revision = model->addEntity("SyncEventRevision");
  revision.addAttribute("persistentStoreIdentifier", AttributeType::kString);
  revision.addAttribute("revisionNumber", AttributeType::kInteger64);
  revision.addRelationship("storeModificationEvent", "SyncStoreModificationEvent")
      .setInverseName("eventRevision");
  revision.addRelationship("storeModificationEventForOtherStores", "SyncStoreModificationEvent")
      .setInverseName("eventRevisionsOfOtherStores");

  auto& change = model->addEntity("SyncObjectChange");
  change.addAttribute("type", AttributeType::kInteger16);
  change.addAttribute("nameOfEntity", AttributeType::kString);
  change.addAttribute("propertyChangeValues", AttributeType::kTransformable);
  change.addRelationship("storeModificationEvent", "SyncStoreModificationEvent")
      .setInverseName("objectChanges");
  change.addRelationship("globalIdentifier", "SyncGlobalIdentifier").setInverseName("objectChanges");
  change.addRelationship("dataFiles", "SyncDataFile").setToMany(true).setInverseName("objectChange");

  auto& global = model->addEntity("SyncGlobalIdentifier");
  global.addAttribute("globalIdentifier", AttributeType::kString).setIndexed(true);
  global.addAttribute("storeURI", AttributeType::kString);
  global.addAttribute("nameOfEntity", AttributeType::kString);
  global.addRelationship("objectChanges", "SyncObjectChange")
      .setToMany(true)
      .setInverseName("globalIdentifier");

  auto& file = model->addEntity("SyncDataFile");
  file.addAttribute("filename", AttributeType::kString);
  file.addRelationship("objectChange", "SyncObjectChange").setInverseName("dataFiles");

  auto& entry = model->addEntity("Entry");
  entry.addAttribute("title", AttributeType::kString);
  auto& photoEntry = model->addEntity("PhotoEntry").setSuperentityName("Entry");
  photoEntry.addAttribute("pixels", AttributeType::kInteger32);

  auto& playlist = model->addEntity("Playlist");
  playlist.addAttribute("name", AttributeType::kString);
  playlist.addRelationship("items", "MoodRecord").setOrdered(true);
  return model;
}

// A coordinator on a file (or in memory when `path` is empty) and a
// confined root context.
struct TestStack {
  std::shared_ptr<ManagedObjectModel> model;
  std::shared_ptr<PersistentStoreCoordinator> coordinator;
  std::shared_ptr<ManagedObjectContext> context;

  explicit TestStack(const std::string& path = {}, std::shared_ptr<ManagedObjectModel> m = makeTestModel())
      : model(m) {
    coordinator = std::make_shared<PersistentStoreCoordinator>(model);
    OptionalError error;
    coordinator->addPersistentStoreWithType(
        path.empty() ? kInMemoryStoreType : kSQLiteStoreType, path,
        {{kMigratePersistentStoresAutomaticallyOption, true},
         {kInferMappingModelAutomaticallyOption, true},
         {kSQLitePragmasOption, Value::Dictionary{{"journal_mode", "DELETE"}}}},
        error);
    if (error) throw std::runtime_error(error->toString());
    context = newContext();
  }
  std::shared_ptr<ManagedObjectContext> newContext(
      ConcurrencyType type = ConcurrencyType::kConfinement) const {
    auto c = std::make_shared<ManagedObjectContext>(type);
    c->setPersistentStoreCoordinator(coordinator);
    return c;
  }
};

}  // namespace lumeo::testing
