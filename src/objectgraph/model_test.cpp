// Models and stores: version hashes, model faults, values of every attribute
// type through a file, transformers, lightweight migration of an older file,
// and the refusal of files that are no store.
#include <gtest/gtest.h>

#include <fstream>

#include "objectgraph/managed_object_context.h"
#include "objectgraph/object_graph_error.h"
#include "objectgraph/test_model.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

std::string hex(const Value::Data& d) {
  static const char* digits = "0123456789abcdef";
  std::string out;
  for (auto b : d) {
    out += digits[b >> 4];
    out += digits[b & 15];
  }
  return out;
}

TEST(ModelTest, VersionHashesAreStableAndFollowTheShapeOfTheData) {
  auto a = testing::makeTestModel();
  auto b = testing::makeTestModel();
  a->finalize();
  b->finalize();
  EXPECT_EQ(a->entityVersionHashesByName(), b->entityVersionHashesByName());
  // Pinned: the hash must not change between runs, builds or machines.
  EXPECT_EQ(hex(a->entityNamed("MoodTag")->versionHash()).size(), 64u);
  const std::string pinned = hex(a->entityNamed("SyncDataFile")->versionHash());
  EXPECT_EQ(pinned, "cadad28257e5509784b97b40fe79d64634ae91b05e356561e254f98573652b55");
  auto c = std::make_shared<ManagedObjectModel>();
  auto& file = c->addEntity("SyncDataFile");
  file.addAttribute("filename", AttributeType::kString).setIndexed(true).setDefaultValue("x");
  file.addRelationship("objectChange", "SyncObjectChange").setInverseName("dataFiles");
  c->addEntity("SyncObjectChange")
      .addRelationship("dataFiles", "SyncDataFile")
      .setToMany(true)
      .setInverseName("objectChange");
  c->finalize();
  EXPECT_EQ(hex(c->entityNamed("SyncDataFile")->versionHash()), pinned)
      << "indexes and defaults do not count";

  auto d = testing::makeTestModel();
  d->entityNamed("MoodTag");
  const_cast<EntityDescription*>(d->entityNamed("MoodTag"))->addAttribute("colour", AttributeType::kString);
  d->finalize();
  EXPECT_NE(d->entityNamed("MoodTag")->versionHash(), a->entityNamed("MoodTag")->versionHash());
  EXPECT_EQ(d->entityNamed("MoodRecord")->versionHash(), a->entityNamed("MoodRecord")->versionHash());
}

TEST(ModelTest, FaultsInAModelAreNamed) {
  auto unknown = std::make_shared<ManagedObjectModel>();
  unknown->addEntity("A").addRelationship("b", "Missing");
  EXPECT_THROW(unknown->finalize(), std::invalid_argument);
  auto badInverse = std::make_shared<ManagedObjectModel>();
  badInverse->addEntity("A").addRelationship("b", "B").setInverseName("nope");
  badInverse->addEntity("B");
  EXPECT_THROW(badInverse->finalize(), std::invalid_argument);
  auto duplicate = std::make_shared<ManagedObjectModel>();
  auto& a = duplicate->addEntity("A");
  a.addAttribute("x", AttributeType::kString);
  a.addAttribute("x", AttributeType::kDouble);
  EXPECT_THROW(duplicate->finalize(), std::invalid_argument);
  auto model = testing::makeTestModel();
  model->finalize();
  EXPECT_THROW(const_cast<EntityDescription*>(model->entityNamed("MoodTag"))
                   ->addAttribute("late", AttributeType::kString),
               std::logic_error);
}

class Reverse : public ValueTransformer {
 public:
  Value::Data transformedValue(const Value& v) const override {
    std::string s = v.toString();
    return Value::Data(s.rbegin(), s.rend());
  }
  Value reverseTransformedValue(const Value::Data& d) const override {
    return Value(std::string(d.rbegin(), d.rend()));
  }
};

TEST(ModelTest, AttributeLookupsStayRightAcrossModelsNamesAndSubentities) {
  // Lookups are remembered per thread; a model made where an earlier one
  // lived, names sharing a memory slot, and inherited attributes must all
  // still give the right answer.
  for (int round = 0; round < 20; ++round) {
    auto model = std::make_shared<ManagedObjectModel>();
    auto& entry = model->addEntity("Entry");
    entry.addAttribute("title", AttributeType::kString);
    entry.addAttribute(round % 2 ? "tally" : "total", AttributeType::kInteger32);
    auto& photo = model->addEntity("PhotoEntry").setSuperentityName("Entry");
    photo.addAttribute("pixels", AttributeType::kInteger32);
    model->finalize();
    const EntityDescription& e = *model->entityNamed("Entry");
    const EntityDescription& p = *model->entityNamed("PhotoEntry");
    ASSERT_TRUE(e.attributeNamed("title"));
    EXPECT_EQ(e.attributeNamed("title")->entity().name(), "Entry");
    EXPECT_EQ(p.attributeNamed("title"), e.attributeNamed("title"));
    EXPECT_EQ(e.attributeNamed("pixels"), nullptr) << "a subentity's attribute is not the parent's";
    EXPECT_EQ(p.attributeNamed("pixels")->slot(), 2u);
    const char* present = round % 2 ? "tally" : "total";
    const char* absent = round % 2 ? "total" : "tally";
    EXPECT_EQ(e.attributeNamed(present)->name(), present) << "round " << round;
    EXPECT_EQ(e.attributeNamed(absent), nullptr) << "round " << round;
    EXPECT_EQ(e.attributeNamed(""), nullptr);
  }
}

TEST(StoreTest, EveryAttributeTypeSurvivesTheFile) {
  lumeo::testing::TempDir dir;
  ValueTransformer::setValueTransformer(std::make_shared<Reverse>(), "Reverse");
  auto model = std::make_shared<ManagedObjectModel>();
  auto& e = model->addEntity("Everything");
  e.addAttribute("s", AttributeType::kString);
  e.addAttribute("i16", AttributeType::kInteger16);
  e.addAttribute("i64", AttributeType::kInteger64);
  e.addAttribute("d", AttributeType::kDouble);
  e.addAttribute("b", AttributeType::kBoolean);
  e.addAttribute("t", AttributeType::kDate);
  e.addAttribute("bin", AttributeType::kBinary);
  e.addAttribute("any", AttributeType::kTransformable);
  e.addAttribute("named", AttributeType::kTransformable).setValueTransformerName("Reverse");
  const std::string path = (dir / "all.sqlite").string();
  const Value any(Value::Dictionary{{"list", Value(Value::Array{1, "two", 3.5})},
                                    {"when", Date::fromTimeIntervalSince1970(7)}});
  {
    testing::TestStack stack(path, model);
    auto o = stack.context->insertNewObjectForEntityForName("Everything");
    o->setValueForKey("s", "héllo");
    o->setValueForKey("i16", 12.9);  // coerced to 12
    o->setValueForKey("i64", 1LL << 40);
    o->setValueForKey("d", 0.1);
    o->setValueForKey("b", 1);
    o->setValueForKey("t", Date::fromTimeIntervalSince1970(1e9 + 0.25));
    o->setValueForKey("bin", Value::Data{0, 1, 255});
    o->setValueForKey("any", any);
    o->setValueForKey("named", "abc");
    EXPECT_THROW(o->setValueForKey("t", "not a date"), std::invalid_argument);
    EXPECT_THROW(o->setValueForKey("nope", 1), std::invalid_argument);
    ASSERT_FALSE(stack.context->save());
  }
  testing::TestStack stack(path, model);
  auto o = stack.context->executeFetchRequest(FetchRequest("Everything"))[0];
  EXPECT_EQ(o->valueForKey("s").toString(), "héllo");
  EXPECT_EQ(o->valueForKey("i16"), Value(12));
  EXPECT_EQ(o->valueForKey("i64").toInt(), 1LL << 40);
  EXPECT_EQ(o->valueForKey("d").toDouble(), 0.1);
  EXPECT_EQ(o->valueForKey("b"), Value(true));
  EXPECT_EQ(*o->valueForKey("t").asDate(), Date::fromTimeIntervalSince1970(1e9 + 0.25));
  EXPECT_EQ(*o->valueForKey("bin").asData(), (Value::Data{0, 1, 255}));
  EXPECT_EQ(o->valueForKey("any"), any);
  EXPECT_EQ(o->valueForKey("named").toString(), "abc");
  EXPECT_TRUE(decodeValue(Value::Data{9, 9, 9}).isNull()) << "damaged coded data reads as nil";
}

TEST(StoreTest, AnOlderFileGainsNewEntitiesAndAttributesWithTheirDefaults) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  auto old = std::make_shared<ManagedObjectModel>();
  old->addEntity("MoodTag").addAttribute("tagName", AttributeType::kString);
  {
    testing::TestStack stack(path, old);
    stack.context->insertNewObjectForEntityForName("MoodTag")->setValueForKey("tagName", "kept");
    ASSERT_FALSE(stack.context->save());
  }
  auto newer = std::make_shared<ManagedObjectModel>();
  auto& tag = newer->addEntity("MoodTag");
  tag.addAttribute("tagName", AttributeType::kString);
  tag.addAttribute("frequency", AttributeType::kInteger32).setDefaultValue(4);
  newer->addEntity("Extra").addAttribute("x", AttributeType::kString);

  auto strict = std::make_shared<PersistentStoreCoordinator>(newer);
  OptionalError error;
  EXPECT_FALSE(strict->addPersistentStoreWithType(kSQLiteStoreType, path, {}, error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, kPersistentStoreIncompatibleVersionHashError);

  testing::TestStack migrated(path, newer);
  auto kept = migrated.context->executeFetchRequest(FetchRequest("MoodTag"))[0];
  EXPECT_EQ(kept->valueForKey("tagName").toString(), "kept");
  EXPECT_EQ(kept->valueForKey("frequency").toInt(), 4);
  migrated.context->insertNewObjectForEntityForName("Extra")->setValueForKey("x", "y");
  ASSERT_FALSE(migrated.context->save());
  OptionalError metaError;
  auto metadata =
      PersistentStoreCoordinator::metadataForPersistentStoreOfType(kSQLiteStoreType, path, metaError);
  EXPECT_TRUE(newer->isConfigurationCompatibleWithStoreMetadata(metadata));
  EXPECT_FALSE(old->isConfigurationCompatibleWithStoreMetadata(metadata));
}

TEST(StoreTest, FilesThatAreNoStoreAreRefusedUntouched) {
  lumeo::testing::TempDir dir;
  const auto text = dir / "notes.txt";
  lumeo::testing::writeFile(text, "just some words, not a database at all........................");
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(testing::makeTestModel());
  OptionalError error;
  EXPECT_FALSE(coordinator->addPersistentStoreWithType(kSQLiteStoreType, text, {}, error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, kPersistentStoreInvalidTypeError);
  EXPECT_EQ(lumeo::testing::readFile(text), "just some words, not a database at all........................");

  error.reset();
  EXPECT_FALSE(coordinator->addPersistentStoreWithType("Bogus", dir / "x.sqlite", {}, error));
  EXPECT_EQ(error->code, kPersistentStoreInvalidTypeError);
  error.reset();
  EXPECT_FALSE(coordinator->addPersistentStoreWithType(
      kSQLiteStoreType, dir / "y.sqlite",
      {{kSQLitePragmasOption, Value::Dictionary{{"journal_mode", "x; DROP"}}}}, error));
  EXPECT_EQ(error->code, kPersistentStoreOpenError);
}

// Reading a journal must not touch its file: a backup tool or a sync
// client would otherwise see a change after every `lumeo list`.
TEST(StoreTest, OpeningAStoreThatNeedsNoChangeLeavesItsBytesAlone) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  {
    testing::TestStack stack(path);
    stack.context->insertNewObjectForEntityForName("MoodTag")->setValueForKey("tagName", "calm");
    ASSERT_FALSE(stack.context->save());
  }
  const std::string before = lumeo::testing::readFile(path);
  {
    testing::TestStack stack(path);
    FetchRequest request("MoodTag");
    EXPECT_EQ(stack.context->executeFetchRequest(request).size(), 1u);
  }
  EXPECT_TRUE(lumeo::testing::readFile(path) == before) << "the file changed on a plain open";
}

TEST(StoreTest, ThePragmaOptionSetsTheJournalMode) {
  lumeo::testing::TempDir dir;
  const std::string path = (dir / "Model.sqlite").string();
  testing::TestStack stack(path);  // asks for journal_mode DELETE
  stack.context->insertNewObjectForEntityForName("MoodTag");
  ASSERT_FALSE(stack.context->save());
  EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
  auto coordinator = std::make_shared<PersistentStoreCoordinator>(testing::makeTestModel());
  ASSERT_TRUE(coordinator->addPersistentStoreWithType(kSQLiteStoreType, dir / "wal.sqlite"));
  auto context = std::make_shared<ManagedObjectContext>();
  context->setPersistentStoreCoordinator(coordinator);
  context->insertNewObjectForEntityForName("MoodTag");
  ASSERT_FALSE(context->save());
  EXPECT_TRUE(std::filesystem::exists(dir / "wal.sqlite-wal")) << "write-ahead logging by default";
}

}  // namespace
}  // namespace lumeo
