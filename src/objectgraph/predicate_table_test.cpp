// Every predicate the journal and the sync engine ask of the store, run
// against data on both sides of each test: once translated to SQL in the
// store and once evaluated in memory over all objects. Both must pick the
// same objects, and neither may pick all or none.
#include <gtest/gtest.h>

#include <set>

#include "objectgraph/predicate_sql.h"
#include "objectgraph/sqlite_store.h"
#include "objectgraph/test_model.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

Date day(int d) {
  return Date::fromTimeIntervalSince1970(1767225600.0 + 86400.0 * d);
}

class PredicateTableTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack = std::make_unique<testing::TestStack>((dir / "Model.sqlite").string());
    auto& c = *stack->context;
    auto tag = [&](const std::string& name) {
      auto t = c.insertNewObjectForEntityForName("MoodTag");
      t->setValueForKey("tagName", name);
      tags[name] = t;
      return t;
    };
    tag("Sleep")->setValueForKey("tagUnit", "h");
    tag("work");
    tag("Café");
    tag("unused");
    struct Row {
      int level;
      std::vector<std::string> tags;
      const char* photo;
      const char* thumb;
      double latitude;
      bool edited;
    };
    const Row rows[] = {
        {2, {"Sleep"}, "p1.jpg", "t1.jpg", 10, false},
        {5, {"work"}, nullptr, nullptr, -1, true},
        {6, {"Sleep", "work"}, "p3.jpg", nullptr, 30, false},
        {8, {"Café"}, nullptr, "t4.jpg", -1, true},
        {9, {}, "p5.jpg", nullptr, 50, false},
        {3, {"Sleep"}, nullptr, nullptr, -1, false},
    };
    int d = 0;
    for (const Row& row : rows) {
      auto r = c.insertNewObjectForEntityForName("MoodRecord");
      r->setValueForKey("uniqueIdentifier", "Rec-" + std::to_string(++d));
      r->setValueForKey("date", day(d));
      r->setValueForKey("moodLevel", row.level);
      auto description = c.insertNewObjectForEntityForName("MoodDescription");
      if (row.photo) description->setValueForKey("photoName", row.photo);
      if (row.thumb) description->setValueForKey("thumbName", row.thumb);
      description->setValueForKey("latitude", row.latitude);
      description->setValueForKey("longitude", row.latitude < 0 ? -1.0 : row.latitude + 10);
      description->setValueForKey("wasEdited", row.edited);
      r->setObjectForKey("moodDescription", description);
      for (const auto& name : row.tags) r->addObjectForKey("moodTags", tags[name]);
      records.push_back(r);
    }
    auto revision = [&](const std::string& store, long long number) {
      auto rev = c.insertNewObjectForEntityForName("SyncEventRevision");
      rev->setValueForKey("persistentStoreIdentifier", store);
      rev->setValueForKey("revisionNumber", number);
      return rev;
    };
    auto event = [&](const std::string& uid, int type, long long count, const std::string& store,
                     long long number) {
      auto e = c.insertNewObjectForEntityForName("SyncStoreModificationEvent");
      e->setValueForKey("uniqueIdentifier", uid);
      e->setValueForKey("type", type);
      e->setValueForKey("globalCount", count);
      e->setValueForKey("timestamp", static_cast<double>(count) * 10);
      e->setObjectForKey("eventRevision", revision(store, number));
      events.push_back(e);
      return e;
    };
    event("e1", 200, 1, "storeA", 0)->addObjectForKey("eventRevisionsOfOtherStores", revision("storeB", 3));
    event("e2", 300, 2, "storeA", 1);
    event("e3", 100, 3, "storeB", 0);
    event("e4", 0, 4, "storeB", 1);
    auto global = [&](const std::string& gid, const char* uri, const std::string& entity) {
      auto g = c.insertNewObjectForEntityForName("SyncGlobalIdentifier");
      g->setValueForKey("globalIdentifier", gid);
      if (uri) g->setValueForKey("storeURI", uri);
      g->setValueForKey("nameOfEntity", entity);
      globals.push_back(g);
      return g;
    };
    auto change = [&](const ManagedObjectPtr& e, const ManagedObjectPtr& g, int type,
                      const std::string& entity) {
      auto ch = c.insertNewObjectForEntityForName("SyncObjectChange");
      ch->setValueForKey("type", type);
      ch->setValueForKey("nameOfEntity", entity);
      ch->setObjectForKey("storeModificationEvent", e);
      ch->setObjectForKey("globalIdentifier", g);
      changes.push_back(ch);
      return ch;
    };
    auto g1 = global("g1", "uri1", "MoodRecord");
    auto g2 = global("g2", nullptr, "MoodTag");
    global("g3", "uri3", "MoodRecord");
    auto c1 = change(events[0], g1, 100, "MoodRecord");
    change(events[1], g2, 200, "MoodTag");
    change(events[2], g1, 200, "MoodRecord");
    auto file = [&](const std::string& name, const ManagedObjectPtr& owner) {
      auto f = c.insertNewObjectForEntityForName("SyncDataFile");
      f->setValueForKey("filename", name);
      if (owner) f->setObjectForKey("objectChange", owner);
    };
    file("File1.JPG", c1);
    file("orphan.bin", nullptr);
    auto error = c.save();
    ASSERT_FALSE(error) << error->toString();
  }

  // Objects picked by the store, and by memory over every object.
  void check(const std::string& entity, const Predicate& predicate, std::set<std::string>* picked = nullptr) {
    SCOPED_TRACE(entity + ": " + predicate.predicateFormat());
    const EntityDescription& e = *stack->model->entityNamed(entity);
    SqlTranslation sql = PredicateSQL::translate(predicate, e, *stack->coordinator->sqliteStore());
    EXPECT_TRUE(sql.complete()) << "runs wholly in SQL";
    // A fresh context, so that the store answers and no object is cached.
    auto context = stack->newContext();
    FetchRequest request(entity);
    request.setPredicate(predicate);
    OptionalError error;
    auto fetched = context->executeFetchRequest(request, error);
    ASSERT_FALSE(error) << error->toString();
    std::set<std::string> inStore;
    for (const auto& o : fetched) inStore.insert(o->objectID().URIRepresentation());
    std::set<std::string> inMemory;
    std::size_t total = 0;
    for (const auto& o : context->executeFetchRequest(FetchRequest(entity))) {
      ++total;
      if (predicate.evaluateWithObject(*o)) inMemory.insert(o->objectID().URIRepresentation());
    }
    EXPECT_EQ(inStore, inMemory);
    EXPECT_GT(inStore.size(), 0u) << "some object matches";
    EXPECT_LT(inStore.size(), total) << "some object does not";
    EXPECT_EQ(context->countForFetchRequest(request), inStore.size());
    if (picked) {
      picked->clear();
      for (const auto& o : fetched) {
        Value v = o->entity().attributeNamed("tagName")            ? o->valueForKey("tagName")
                  : o->entity().attributeNamed("uniqueIdentifier") ? o->valueForKey("uniqueIdentifier")
                                                                   : Value();
        picked->insert(v.toString());
      }
    }
  }

  lumeo::testing::TempDir dir;
  std::unique_ptr<testing::TestStack> stack;
  std::map<std::string, ManagedObjectPtr> tags;
  std::vector<ManagedObjectPtr> records, events, globals, changes;
};

TEST_F(PredicateTableTest, JournalRecordQueries) {
  std::set<std::string> picked;
  check("MoodRecord", Predicate::predicateWithFormat("date >= %@ AND date <= %@", day(2), day(4)), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Rec-2", "Rec-3", "Rec-4"}));
  check("MoodRecord", Predicate::predicateWithFormat("date >= %@ && date <= %@", day(5), day(9)));
  check("MoodRecord", Predicate::predicateWithFormat("(date >= %@ AND date <= %@)", day(1), day(1)));
  check("MoodRecord",
        Predicate::predicateWithFormat("date >= %@ && date <= %@ && (ANY moodTags IN %@)", day(1), day(5),
                                       std::vector<ManagedObjectPtr>{tags["work"], tags["Café"]}),
        &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Rec-2", "Rec-3", "Rec-4"}));
  check("MoodRecord",
        Predicate::predicateWithFormat("(date >= %@ AND date <= %@) AND ANY moodTags == %@", day(1), day(4),
                                       tags["Sleep"]),
        &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Rec-1", "Rec-3"}));
  check("MoodRecord", Predicate::predicateWithFormat("ANY moodTags == %@", tags["work"]));
  check("MoodRecord", Predicate::predicateWithFormat("moodDescription.photoName != NIL && moodLevel <= 5"),
        &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Rec-1"}));
  check("MoodRecord", Predicate::predicateWithFormat("moodDescription.photoName != NIL && moodLevel >= 6"));
  check("MoodRecord",
        Predicate::predicateWithFormat("moodDescription.longitude != %@ AND moodDescription.latitude != %@ "
                                       "AND date >= %@ AND date <= %@ AND "
                                       "(SUBQUERY(moodTags, $x, $x.tagName == %@).@count > 0 OR "
                                       "SUBQUERY(moodTags, $x, $x.tagName == %@).@count > 0)",
                                       -1, -1, day(1), day(6), "work", "Sleep"),
        &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Rec-1", "Rec-3"}));
  // The history list's in-memory filters, also pushed down.
  check("MoodRecord", Predicate::predicateWithFormat("uniqueIdentifier == [cd]%@", "rec-2"), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Rec-2"}));
  check("MoodRecord", Predicate::predicateWithFormat("self.uniqueIdentifier == [cd]%@", "REC-3"));
  check("MoodRecord", Predicate::predicateWithFormat("moodDescription.thumbName != NULL"));
}

TEST_F(PredicateTableTest, JournalDescriptionAndTagQueries) {
  std::set<std::string> picked;
  check("MoodDescription", Predicate::predicateWithFormat("latitude != %@ && longitude != %@", -1, -1));
  check("MoodDescription",
        Predicate::predicateWithFormat("%K != %@ AND %K = FALSE AND %K BEGINSWITH %@", "photoName", "p3.jpg",
                                       "wasEdited", "photoName", "p"));
  check("MoodTag", Predicate::predicateWithFormat("tagName like[cd] %@", "SLEEP"), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Sleep"}));
  check("MoodTag", Predicate::predicateWithFormat("tagName like[cd] %@", "cafe"), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Café"}));
  check("MoodTag", Predicate::predicateWithFormat("tagName like[cd] %@", std::string("w") + "*"), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"work"}));
  check("MoodTag", Predicate::predicateWithFormat("tagName like[cd] %@", "?LEEP"));
  check("MoodTag", Predicate::predicateWithFormat("tagName LIKE %@", "Sl*"));
  check("MoodTag", Predicate::predicateWithFormat("tagName == %@", "work"));
  check("MoodTag", Predicate::predicateWithFormat("self == %@", tags["Café"]));
  check("MoodTag", Predicate::predicateWithFormat("tagName CONTAINS[cd] %@", "E"), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Sleep", "Café", "unused"}));
  check("MoodTag", Predicate::predicateWithFormat("frequency > 0"), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Sleep", "work", "Café"}));
  check(
      "MoodTag",
      Predicate::predicateWithFormat(
          "frequency > 0 AND (ANY moodRecords.date >= %@ ) AND (ANY moodRecords.date <= %@)", day(4), day(5)),
      &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"Sleep", "Café"}));
  check("MoodTag",
        Predicate::predicateWithFormat("moodRecords.@count >= 2 AND NOT (tagName BEGINSWITH[c] %@)", "W"));
}

TEST_F(PredicateTableTest, EventStoreQueries) {
  std::set<std::string> picked;
  check("SyncEventRevision",
        Predicate::predicateWithFormat("persistentStoreIdentifier = %@ AND storeModificationEvent.type = %d",
                                       "storeA", 200));
  check("SyncEventRevision",
        Predicate::predicateWithFormat("persistentStoreIdentifier = %@ AND (storeModificationEvent.type != "
                                       "%d OR storeModificationEventForOtherStores.type != %d)",
                                       "storeB", 0, 0));
  check("SyncEventRevision",
        Predicate::predicateWithFormat(
            "storeModificationEvent != NIL OR storeModificationEventForOtherStores.type = %d", 300));
  check("SyncEventRevision",
        Predicate::predicateWithFormat(
            "storeModificationEvent.type != %d && storeModificationEvent.type != %d", 100, 0));
  check("SyncGlobalIdentifier", Predicate::predicateWithFormat("objectChanges.@count == 0"), &picked);
  check("SyncGlobalIdentifier",
        Predicate::predicateWithFormat("storeURI IN %@", std::vector<std::string>{"uri1", "nope"}));
  check("SyncGlobalIdentifier",
        Predicate::predicateWithFormat("globalIdentifier IN %@", std::vector<std::string>{"g2", "g3"}));
  check("SyncDataFile", Predicate::predicateWithFormat("objectChange != NIL"));
  check("SyncDataFile", Predicate::predicateWithFormat("objectChange = NIL"));
  check("SyncDataFile", Predicate::predicateWithFormat("objectChange.storeModificationEvent IN %@",
                                                       std::vector<ManagedObjectPtr>{events[0], events[3]}));
  check("SyncDataFile", Predicate::predicateWithFormat("filename == [cd]%@", "file1.jpg"));
  check("SyncDataFile",
        Predicate::predicateWithFormat("objectChange.globalIdentifier == [cd]%@", globals[0]));
  check("SyncObjectChange", Predicate::predicateWithFormat(
                                "nameOfEntity = %@ && type = %d && storeModificationEvent in %@",
                                "MoodRecord", 100, std::vector<ManagedObjectPtr>{events[0], events[1]}));
  const std::string E = "SyncStoreModificationEvent";
  check(E, Predicate::predicateWithFormat("uniqueIdentifier = %@", "e2"), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"e2"}));
  check(E, Predicate::predicateWithFormat("uniqueIdentifier = %@ AND globalCount = %lld AND "
                                          "eventRevision.persistentStoreIdentifier BEGINSWITH %@",
                                          "e1", 1LL, "store"));
  check(E, Predicate::predicateWithFormat("eventRevision.revisionNumber = %lld", 1LL));
  check(E,
        Predicate::predicateWithFormat("eventRevision.persistentStoreIdentifier = %@ && "
                                       "eventRevision.revisionNumber > %lld && type != %d && type != %d",
                                       "storeA", 0LL, 100, 0),
        &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"e2"}));
  check(E, Predicate::predicateWithFormat("type = %d", 100));
  check(E, Predicate::predicateWithFormat("type != %d AND type != %d AND globalCount <= %lld", 100, 0, 1LL));
  check(E, Predicate::predicateWithFormat("type != %d AND type != %d", 100, 0), &picked);
  EXPECT_EQ(picked, (std::set<std::string>{"e1", "e2"}));
  check(E, Predicate::predicateWithFormat("SELF IN %@", std::vector<ManagedObjectPtr>{events[0], events[2]}));
  check(E, Predicate::predicateWithFormat("NOT (SELF IN %@)", std::vector<ManagedObjectPtr>{events[0]}));
  check(E, Predicate::orPredicateWithSubpredicates({Predicate::predicateWithFormat("type = %@", 200),
                                                    Predicate::predicateWithFormat("type = %@", 300)}));
  check(E, Predicate::andPredicateWithSubpredicates(
               {Predicate::predicateWithFormat("type = %@", 300),
                Predicate::predicateWithFormat("eventRevision.persistentStoreIdentifier = %@", "storeA")}));
  check(
      E,
      Predicate::predicateWithFormat(
          "eventRevision.persistentStoreIdentifier = %@ && eventRevision.revisionNumber = %lld && type != %d",
          "storeB", 1LL, 100));
  check(E, Predicate::predicateWithFormat(
               "eventRevision.persistentStoreIdentifier = %@ AND type != %d AND type != %d", "storeB", 100,
               200));
  check(E, Predicate::predicateWithFormat("eventRevision.revisionNumber <= %lld", 0LL));
  check(E, Predicate::predicateWithFormat(
               "eventRevision.revisionNumber > %lld AND eventRevision.persistentStoreIdentifier = %@ && type "
               "!= %d && type != %d",
               -1LL, "storeA", 100, 0));
  check(E, Predicate::predicateWithFormat("type = %d AND globalCount = %lld AND uniqueIdentifier = %@", 300,
                                          2LL, "e2"));
  check(E, Predicate::predicateWithFormat("(type = %d OR type = %d) AND globalCount = %lld AND "
                                          "eventRevision.persistentStoreIdentifier = %@ AND "
                                          "eventRevision.revisionNumber = %lld",
                                          200, 300, 1LL, "storeA", 0LL));
}

}  // namespace
}  // namespace lumeo
