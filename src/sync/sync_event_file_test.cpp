// Event file names, the event file format and the migrator: names parse the
// way other devices write them, a file carries its events to another device
// intact, and a damaged file adds nothing.
#include "sync/sync_event_file.h"

#include <gtest/gtest.h>

#include <fstream>

#include "objectgraph/fetch_request.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "sync/sync_event_migrator.h"
#include "sync/sync_test_replica.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::SyncReplica;
using testing::TempDir;

TEST(SyncEventFileNameTest, ThreePartsAreAnEventOrABaselineByTheLengthOfTheLastPart) {
  auto event = SyncEventFile::fromFilename("12_ABCDEF-1234_7.syncevent");
  ASSERT_TRUE(event);
  EXPECT_FALSE(event->isBaseline());
  EXPECT_EQ(event->globalCount(), 12);
  EXPECT_EQ(event->persistentStoreIdentifier(), "ABCDEF-1234");
  EXPECT_EQ(event->persistentStorePrefix(), "ABCDEF-1");
  EXPECT_EQ(event->revisionNumber(), 7);
  EXPECT_FALSE(event->uniqueIdentifier());
  EXPECT_TRUE(event->eventShouldBeUnique());
  EXPECT_EQ(event->preferredFilename(), "12_ABCDEF-1234_7.syncevent");
  EXPECT_EQ(event->aliases(), std::vector<std::string>{"12_ABCDEF-1234_7.syncevent"});

  auto baseline = SyncEventFile::fromFilename("12_ABCDEF-1234_7A2B9C01.syncevent");
  ASSERT_TRUE(baseline);
  EXPECT_TRUE(baseline->isBaseline());
  EXPECT_EQ(baseline->uniqueIdentifier(), "ABCDEF-1234");
  EXPECT_EQ(baseline->persistentStorePrefix(), "7A2B9C01");
  EXPECT_FALSE(baseline->persistentStoreIdentifier());
  EXPECT_EQ(baseline->revisionNumber(), -1);
  EXPECT_TRUE(baseline->eventShouldBeUnique());
  EXPECT_EQ(baseline->aliases(),
            (std::vector<std::string>{"12_ABCDEF-1234_7A2B9C01.syncevent", "12_ABCDEF-1234.syncevent"}));
  EXPECT_NE(baseline->eventFetchPredicate().predicateFormat().find("BEGINSWITH"), std::string::npos);

  // The naming scheme's limit: eight digits of revision read as a prefix.
  auto eightDigits = SyncEventFile::fromFilename("3_STORE-ID_12345678.syncevent");
  ASSERT_TRUE(eightDigits);
  EXPECT_TRUE(eightDigits->isBaseline());
}

TEST(SyncEventFileNameTest, TwoPartsAreAnOlderBaselineThatMayArriveAgain) {
  auto older = SyncEventFile::fromFilename("5_EVENT-UUID.syncevent");
  ASSERT_TRUE(older);
  EXPECT_TRUE(older->isBaseline());
  EXPECT_FALSE(older->eventShouldBeUnique());
  EXPECT_FALSE(older->persistentStorePrefix());
  EXPECT_EQ(older->preferredFilename(), "5_EVENT-UUID.syncevent");
  EXPECT_EQ(older->aliases().size(), 1u);
  std::string format = older->eventFetchPredicate().predicateFormat();
  EXPECT_EQ(format.find("persistentStoreIdentifier"), std::string::npos) << format;
}

TEST(SyncEventFileNameTest, OtherNamesAreNoEventFiles) {
  for (const char* name :
       {"1_2_3_4.syncevent", "12.syncevent", "x_STORE_7.syncevent", "12_STORE_x7.syncevent",
        "12__7.syncevent", "12_STORE_7", "12_STORE_7.syncevent.part",
        "12_STORE_7 (conflicted copy).syncevent", ".syncevent", ""}) {
    EXPECT_FALSE(SyncEventFile::fromFilename(name)) << name;
  }
}

TEST(SyncEventFileNameTest, AnEventNamesItselfAndNamesSortByGlobalCount) {
  SyncEventFile event(false, 40, "ignored", "STORE-ABCDEFGH-1", 9);
  EXPECT_EQ(event.preferredFilename(), "40_STORE-ABCDEFGH-1_9.syncevent");
  auto back = SyncEventFile::fromFilename(event.preferredFilename());
  ASSERT_TRUE(back);
  EXPECT_EQ(back->persistentStoreIdentifier(), "STORE-ABCDEFGH-1");
  EXPECT_EQ(back->revisionNumber(), 9);

  SyncEventFile baseline(true, 7, "EVENT", "SHORT", -1);
  EXPECT_EQ(baseline.preferredFilename(), "7_EVENT_SHORT.syncevent");

  std::vector<std::string> names{"100_A_1.syncevent", "9_B_2.syncevent", "junk", "10_C_1.syncevent",
                                 "9_A_1.syncevent"};
  syncSortFilenamesByGlobalCount(names);
  EXPECT_EQ(names, (std::vector<std::string>{"9_A_1.syncevent", "9_B_2.syncevent", "10_C_1.syncevent",
                                             "100_A_1.syncevent", "junk"}));
}

// --- The format ----------------------------------------------------------------

SyncEventFileContents sampleContents() {
  SyncEventFileContents contents;
  contents.globalIdentifiers = {{"record-1", "MoodRecord"}, {"walk", "MoodTag"}};
  SyncEventFileEvent event;
  event.uniqueIdentifier = "E-1";
  event.type = kSyncEventTypeSave;
  event.globalCount = 1LL << 40;
  event.timestamp = -12.5;
  event.modelVersion = "<plist/>";
  event.eventRevision = {"STORE-A", 3};
  event.eventRevisionsOfOtherStores = {{"STORE-B", -1}, {"STORE-C", 17}};
  SyncEventFileObjectChange change;
  change.type = kSyncObjectChangeTypeInsert;
  change.nameOfEntity = "MoodRecord";
  change.globalIdentifierIndex = 0;
  Value::Dictionary value{{"classVersion", Value(1)},
                          {"type", Value(0)},
                          {"propertyName", Value("comment")},
                          {"value", Value("ünïcode, \"quoted\"")}};
  Value::Dictionary date{{"classVersion", Value(1)},
                         {"type", Value(0)},
                         {"propertyName", Value("date")},
                         {"value", Value(Date::fromTimeIntervalSince1970(1.5e9))}};
  Value::Dictionary data{{"classVersion", Value(1)},
                         {"type", Value(0)},
                         {"propertyName", Value("blob")},
                         {"value", Value(Value::Data{0, 1, 2, 255})}};
  change.propertyChangeValues = Value(Value::Array{Value(value), Value(date), Value(data)});
  change.dataFiles = {"photo-1.jpg"};
  event.objectChanges.push_back(change);
  SyncEventFileObjectChange gone;
  gone.type = kSyncObjectChangeTypeDelete;
  gone.nameOfEntity = "MoodTag";
  gone.globalIdentifierIndex = 1;
  event.objectChanges.push_back(gone);
  contents.events.push_back(event);
  return contents;
}

TEST(SyncEventFileFormatTest, RowsComeBackAsTheyWentIn) {
  SyncEventFileContents contents = sampleContents();
  std::vector<std::uint8_t> bytes = syncEncodeEventFile(contents);
  auto decoded = syncDecodeEventFile(bytes.data(), bytes.size());
  ASSERT_TRUE(std::holds_alternative<SyncEventFileContents>(decoded)) << std::get<Error>(decoded).toString();
  const auto& back = std::get<SyncEventFileContents>(decoded);
  ASSERT_EQ(back.events.size(), 1u);
  const auto& event = back.events[0];
  EXPECT_EQ(event.uniqueIdentifier, "E-1");
  EXPECT_EQ(event.globalCount, 1LL << 40);
  EXPECT_EQ(event.timestamp, -12.5);
  EXPECT_EQ(event.modelVersion, "<plist/>");
  EXPECT_EQ(event.eventRevision.revisionNumber, 3);
  ASSERT_EQ(event.eventRevisionsOfOtherStores.size(), 2u);
  EXPECT_EQ(event.eventRevisionsOfOtherStores[0].revisionNumber, -1);
  EXPECT_EQ(event.eventRevisionsOfOtherStores[1].persistentStoreIdentifier, "STORE-C");
  ASSERT_EQ(event.objectChanges.size(), 2u);
  EXPECT_EQ(event.objectChanges[0].propertyChangeValues,
            contents.events[0].objectChanges[0].propertyChangeValues);
  EXPECT_EQ(event.objectChanges[0].dataFiles, std::vector<std::string>{"photo-1.jpg"});
  EXPECT_TRUE(event.objectChanges[1].propertyChangeValues.isNull());
  EXPECT_EQ(back.globalIdentifiers[event.objectChanges[1].globalIdentifierIndex].globalIdentifier, "walk");
  // Same rows, same bytes: a re-export does not look like news.
  EXPECT_EQ(syncEncodeEventFile(back), bytes);
}

TEST(SyncEventFileFormatTest, DamageAnywhereIsRefusedWithAClearError) {
  std::vector<std::uint8_t> bytes = syncEncodeEventFile(sampleContents());
  auto refused = [](const std::vector<std::uint8_t>& b) -> std::optional<Error> {
    auto decoded = syncDecodeEventFile(b.data(), b.size(), "7_S_1.syncevent");
    if (auto* error = std::get_if<Error>(&decoded)) return *error;
    return std::nullopt;
  };

  auto empty = refused({});
  ASSERT_TRUE(empty);
  EXPECT_EQ(empty->domain, kSyncErrorDomain);
  EXPECT_EQ(empty->code, kSyncErrorCodeFileAccessFailed);
  EXPECT_NE(empty->description.find("7_S_1.syncevent\" is empty"), std::string::npos) << empty->description;

  // Every truncation, every flipped bit of every byte.
  for (std::size_t size = 1; size < bytes.size(); ++size) {
    auto error = refused(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + size));
    ASSERT_TRUE(error) << "cut at " << size;
    EXPECT_EQ(error->code, kSyncErrorCodeFileAccessFailed);
  }
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      auto damaged = bytes;
      damaged[i] ^= std::uint8_t(1u << bit);
      ASSERT_TRUE(refused(damaged)) << "byte " << i << " bit " << bit;
    }
  }
  auto padded = bytes;
  padded.push_back(0);
  EXPECT_NE(refused(padded)->description.find("truncated or padded"), std::string::npos);
}

TEST(SyncEventFileFormatTest, AFutureVersionAsksForAnUpdate) {
  std::vector<std::uint8_t> bytes = syncEncodeEventFile(sampleContents());
  bytes[8] = 2;  // version, then the header's own checksum made right again
  std::uint32_t crc = syncCrc32(bytes.data(), 28);
  for (int i = 0; i < 4; ++i) bytes[28 + i] = std::uint8_t(crc >> (8 * i));
  auto decoded = syncDecodeEventFile(bytes.data(), bytes.size());
  ASSERT_TRUE(std::holds_alternative<Error>(decoded));
  const Error& error = std::get<Error>(decoded);
  EXPECT_EQ(error.code, kSyncErrorCodeUnknownModelVersion);
  EXPECT_NE(error.description.find("format version 2"), std::string::npos) << error.description;
}

TEST(SyncEventFileFormatTest, Crc32IsTheStandardOne) {
  const std::string check = "123456789";
  EXPECT_EQ(syncCrc32(reinterpret_cast<const std::uint8_t*>(check.data()), check.size()), 0xCBF43926u);
  // In pieces as at once.
  std::uint32_t first = syncCrc32(reinterpret_cast<const std::uint8_t*>(check.data()), 5);
  EXPECT_EQ(syncCrc32(reinterpret_cast<const std::uint8_t*>(check.data()) + 5, 4, first), 0xCBF43926u);
}

// --- Migrator ---------------------------------------------------------------------

class SyncEventMigratorTest : public ::testing::Test {
 protected:
  SyncEventMigratorTest() : a_(dir_ / "a"), b_(dir_ / "b") {}

  std::size_t eventCount(SyncReplica& r) {
    std::size_t count = 0;
    auto context = r.events().managedObjectContext();
    context->performBlockAndWait([&] {
      FetchRequest request(kSyncStoreModificationEventEntity);
      OptionalError error;
      count = context->countForFetchRequest(request, error);
    });
    return count;
  }
  std::size_t rowCount(SyncReplica& r, const char* entity) {
    std::size_t count = 0;
    auto context = r.events().managedObjectContext();
    context->performBlockAndWait([&] {
      FetchRequest request(entity);
      OptionalError error;
      count = context->countForFetchRequest(request, error);
    });
    return count;
  }

  ScopedSimulatedClock clock_{Date::fromTimeIntervalSinceReferenceDate(1000)};
  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  SyncReplica a_;
  SyncReplica b_;
};

TEST_F(SyncEventMigratorTest, EventsTravelAsFilesAndReplayTheSameJournal) {
  auto record = a_.addRecord(7, "good day #walk");
  record->addMoodTagsObject(a_.tagNamed("walk", true));
  a_.save();
  a_.records()[0]->setMoodLevel(8);
  a_.save();

  SyncEventMigrator exporter(a_.eventsPtr());
  auto first = dir_ / "first.syncevent";
  auto second = dir_ / "second.syncevent";
  ASSERT_FALSE(exporter.migrateLocalEventWithRevision(0, first, {kSyncEventTypeSave}));
  ASSERT_FALSE(exporter.migrateNonBaselineEventsSinceRevision(0, second));
  auto missing = exporter.migrateLocalEventWithRevision(5, dir_ / "none", {kSyncEventTypeSave});
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->description,
            "Failed to fetch local event in migrateLocalEventToTemporaryFilesForRevision...");
  EXPECT_FALSE(std::filesystem::exists(dir_ / "none"));

  SyncEventMigrator importer(b_.eventsPtr());
  ASSERT_FALSE(importer.migrateEventsInFromFiles({first, second}));
  EXPECT_EQ(eventCount(b_), 2u);
  EXPECT_TRUE(b_.events().incompleteEventIdentifiers().empty());
  // Three objects named twice: one global identifier row each.
  EXPECT_EQ(rowCount(b_, kSyncGlobalIdentifierEntity), 3u);
  SyncMergeResult merged = b_.merge();
  ASSERT_TRUE(merged.succeeded && !merged.error) << (merged.error ? merged.error->toString() : "");
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_NE(b_.dump().find("level=8"), std::string::npos);
}

TEST_F(SyncEventMigratorTest, ABadFileAmongGoodOnesStopsThereAndAddsNothingOfItself) {
  a_.addRecord(3, "one");
  a_.save();
  a_.addRecord(4, "two");
  a_.save();
  SyncEventMigrator exporter(a_.eventsPtr());
  auto good = dir_ / "good.syncevent";
  auto bad = dir_ / "bad.syncevent";
  auto later = dir_ / "later.syncevent";
  ASSERT_FALSE(exporter.migrateLocalEventWithRevision(0, good, {kSyncEventTypeSave}));
  ASSERT_FALSE(exporter.migrateLocalEventWithRevision(1, later, {kSyncEventTypeSave}));
  std::string bytes = testing::readFile(later);
  std::ofstream(bad, std::ios::binary) << bytes.substr(0, bytes.size() - 3);

  SyncEventMigrator importer(b_.eventsPtr());
  auto error = importer.migrateEventsInFromFiles({good, bad, later});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kSyncErrorDomain);
  EXPECT_NE(error->description.find("bad.syncevent"), std::string::npos) << error->description;
  EXPECT_EQ(eventCount(b_), 1u);
  EXPECT_EQ(rowCount(b_, kSyncObjectChangeEntity), 2u);

  // An archive that is not one: refused before a row is inserted.
  auto contents = std::get<SyncEventFileContents>(syncReadEventFile(later));
  contents.events[0].objectChanges[0].propertyChangeValues = Value(Value::Array{Value("not an archive")});
  ASSERT_FALSE(syncWriteEventFile(bad, contents));
  auto malformed = importer.migrateEventsInFromFiles({bad});
  ASSERT_TRUE(malformed);
  EXPECT_EQ(malformed->code, kSyncErrorCodeUnknown);
  contents = std::get<SyncEventFileContents>(syncReadEventFile(later));
  contents.events[0].objectChanges[0].dataFiles = {"../../escape"};
  ASSERT_FALSE(syncWriteEventFile(bad, contents));
  EXPECT_TRUE(importer.migrateEventsInFromFiles({bad}));
  EXPECT_EQ(eventCount(b_), 1u);
  EXPECT_EQ(rowCount(b_, kSyncObjectChangeEntity), 2u);
  EXPECT_TRUE(b_.events().incompleteEventIdentifiers().empty());

  ASSERT_FALSE(importer.migrateEventsInFromFiles({later}));
  EXPECT_EQ(eventCount(b_), 2u);
}

}  // namespace
}  // namespace lumeo
