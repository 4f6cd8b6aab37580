// Backup archives end to end on real files: a journal with awkward data
// goes through an archive into an empty home and comes back byte for byte;
// archives of the phone app's looser documents restore; bad and hostile
// archives are refused with the journal untouched; and a failure of any
// file operation during a restore or a backup leaves the old state whole.
#include "backup/mood_dropbox_helper.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <set>

#include "backup/backup_journal_reader.h"
#include "backup/backup_test_support.h"
#include "backup/mood_json_util.h"
#include "backup/zip_file.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/user_defaults.h"
#include "store/mood_user_defaults_operator.h"
#include "store/settings_keys.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::addRecord;
using testing::canonicalDump;
using testing::RecordSpec;

std::filesystem::path sourceDir() {
  const char* dir = std::getenv("LUMEO_SOURCE_DIR");
  return dir ? std::filesystem::path(dir) : std::filesystem::path(LUMEO_TEST_SOURCE_DIR);
}

Date at(int day, int hour, int minute = 0, int second = 0) {
  return Date::fromTimeIntervalSince1970(1772409600.0 + day * 86400.0 + hour * 3600.0 + minute * 60.0 +
                                         second);
}

// One home folder with a journal, its settings and a helper on it.
struct Home {
  std::filesystem::path root;
  std::filesystem::path library;
  std::shared_ptr<UserDefaults> defaults;
  std::unique_ptr<JournalStore> store;
  int reminderPasses = 0;  // reschedules the restore asked for

  explicit Home(const std::filesystem::path& folder) : root(folder), library(folder / "Library") {
    std::filesystem::create_directories(library);
    std::filesystem::create_directories(root / "tmp");
    defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
    store = std::make_unique<JournalStore>(JournalStore::Locations{library, root / "Documents"}, defaults);
    store->managedObjectContext();
  }

  MoodDropboxHelper helper(const std::string& device = "Test Phone") {
    BackupEnvironment environment;
    environment.library = library;
    environment.temporary = root / "tmp";
    environment.resources = sourceDir() / "resources";
    environment.store = store.get();
    environment.defaults = defaults;
    environment.deviceName = device;
    environment.reschedule = [this] { ++reminderPasses; };
    return MoodDropboxHelper(environment);
  }

  std::string picture(std::size_t size, unsigned seed) {
    std::mt19937 random(seed);
    std::string bytes(size, '\0');
    for (auto& c : bytes) c = static_cast<char>(random());
    char name[32];
    std::snprintf(name, sizeof name, "%08x%08x%08x.jpg", seed, seed * 7u, seed * 13u);
    std::filesystem::create_directories(library / "imageStore");
    testing::writeFile(library / "imageStore" / name, bytes);
    return name;
  }

  // Everything of the journal's files, for "nothing changed" checks.
  std::string files() const {
    std::string out;
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
      paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths) {
      out += std::filesystem::relative(path, root).string();
      if (std::filesystem::is_regular_file(path) && path.filename() != "before-restore.backup") {
        out += " " + std::to_string(std::filesystem::file_size(path)) + " " +
               testing::readFile(path).substr(0, 0);
        out += md5HashOfPath(path);
      }
      out += "\n";
    }
    return out;
  }
};

class BackupTest : public ::testing::Test {
 protected:
  BackupTest() : env_({{"TZ", "Europe/Berlin"}, {"LANG", "en_US.UTF-8"}, {"LC_ALL", std::nullopt}}) {}

  std::filesystem::path archiveOf(Home& home) {
    auto made = home.helper().createBackupInFolder(dir_.path(), false);
    EXPECT_TRUE(std::holds_alternative<std::filesystem::path>(made)) << std::get<Error>(made).toString();
    return std::holds_alternative<std::filesystem::path>(made) ? std::get<std::filesystem::path>(made)
                                                               : std::filesystem::path();
  }

  // An archive of the given members, written through the zip layer.
  std::filesystem::path zipOf(const std::string& name,
                              const std::vector<std::pair<std::string, std::string>>& members) {
    auto path = dir_ / name;
    ZipFile zip(path, ZipFileMode::kCreate);
    for (const auto& [member, data] : members) {
      auto stream = zip.writeFileInZipWithName(member, 1);
      stream->writeData(data.data(), data.size());
      stream->finishedWriting();
    }
    zip.close();
    return path;
  }

  void fillAwkwardJournal(Home& home) {
    std::string big(1 << 20, 'x');
    for (std::size_t i = 0; i < big.size(); i += 97) big[i] = '\n';
    const std::vector<std::string> comments = {
        "she said \"hi\" and left",
        "a back\\slash, two \\\\ and one at the end \\",
        "written literally: \\n and \\t and \\u0041 and \\q",
        "tab\there\r\nCRLF and a bell \x07 and \x01",
        "emoji 😀👩‍👩‍👧 and a flag 🇩🇪",
        "right to left: שלום עולם, مرحبا بالعالم",
        "#sleep:7.5h #run:5km #Mood",
        big,
        "",
    };
    std::vector<std::string> photos;
    for (unsigned i = 0; i < 4; ++i) photos.push_back(home.picture(40000 + i * 1000, i + 1));
    for (std::size_t i = 0; i < comments.size(); ++i) {
      RecordSpec spec{
          .level = static_cast<long>(i % 10) + 1,
          .date = at(static_cast<int>(i), static_cast<int>(i) % 24, 5, 9).dateByAddingTimeInterval(0.123456),
          .comment = comments[i]};
      if (i < photos.size()) {
        spec.photoName = photos[i];
        spec.thumbName = photos[(i + 1) % photos.size()];
      }
      if (i % 3 == 0) spec.tags = {"sleep", "Run"};
      if (i % 3 == 1) spec.tags = {"mood"};
      if (i == 6) spec.tagUnit = "h";
      if (i % 2 == 0) {
        spec.latitude = 55.755831 + static_cast<double>(i);
        spec.longitude = -37.617673;
      }
      if (i == 5) spec.latitude = 12.5;  // a latitude without a longitude
      spec.wasEdited = i % 2 == 1;
      addRecord(*home.store, spec);
    }
    // A record without a comment at all.
    addRecord(*home.store, {.level = 4, .date = at(30, 23, 59, 59)});
    // The instant that occurs twice when clocks go back in Berlin.
    addRecord(*home.store, {.level = 9, .date = Date::fromTimeIntervalSince1970(1792371600.0 + 1800)});
    home.store->saveContext();
    ASSERT_FALSE(home.store->lastSaveError());
  }

  testing::TempDir dir_;
  testing::ScopedEnvironment env_;
};

TEST_F(BackupTest, AnAwkwardJournalComesBackByteForByteInAnEmptyHome) {
  Home a(dir_ / "a");
  fillAwkwardJournal(a);
  MoodUserDefaultsOperator settings(a.defaults);
  Value::Dictionary alarm{{"hour", Value(8)}, {"text", Value("Write \"now\" \\ please")}};
  ASSERT_FALSE(settings.setRemindersAlarms({Value(alarm)}));
  ASSERT_FALSE(settings.setGradientColorEnabled(true));
  ASSERT_FALSE(settings.setFromColor(Color(0.25, 0.5, 0.75)));
  const auto archive = archiveOf(a);
  ASSERT_FALSE(archive.empty());
  EXPECT_EQ(testing::runCommand("unzip -tq '" + archive.string() + "' >/dev/null"), 0);

  Home b(dir_ / "b");
  auto restored = b.helper().restore(archive);
  ASSERT_TRUE(std::holds_alternative<RestoreResult>(restored)) << std::get<Error>(restored).toString();
  EXPECT_EQ(std::get<RestoreResult>(restored).records, 11u);
  EXPECT_EQ(std::get<RestoreResult>(restored).images, 4u);
  const std::string dumpA = canonicalDump(a.library);
  EXPECT_EQ(canonicalDump(b.library), dumpA);
  EXPECT_NE(dumpA.find("\\xf0\\x9f\\x98\\x80"), std::string::npos);  // the emoji is in the dump
  MoodUserDefaultsOperator restoredSettings(b.defaults);
  EXPECT_EQ(restoredSettings.remindersAlarms(), Value::Array{Value(alarm)});
  EXPECT_TRUE(restoredSettings.gradientColorEnabled());
  EXPECT_FLOAT_EQ(static_cast<float>(restoredSettings.fromColor().blue), 0.75f);
  // The restored journal opens as the journal, with its records.
  EXPECT_EQ(b.store->allRecords().size(), 11u);

  // And the restored journal's own backup restores to the same again.
  Home c(dir_ / "c");
  auto again = c.helper().restore(archiveOf(b));
  ASSERT_TRUE(std::holds_alternative<RestoreResult>(again));
  EXPECT_EQ(canonicalDump(c.library), dumpA);
}

TEST_F(BackupTest, ARestoreKeepsThePreviousJournalAsAnArchiveThatRestoresIt) {
  Home a(dir_ / "a");
  addRecord(*a.store, {.level = 8, .date = at(1, 9), .comment = "from a", .tags = {"a"}});
  a.store->saveContext();
  Home b(dir_ / "b");
  addRecord(*b.store, {.level = 2, .date = at(2, 9), .comment = "b's own", .photoName = b.picture(1000, 9)});
  b.store->saveContext();
  const std::string before = canonicalDump(b.library);
  auto restored = b.helper().restore(archiveOf(a));
  ASSERT_TRUE(std::holds_alternative<RestoreResult>(restored)) << std::get<Error>(restored).toString();
  const auto kept = std::get<RestoreResult>(restored).beforeRestoreArchive;
  EXPECT_EQ(kept, b.root / kBeforeRestoreArchiveName);
  EXPECT_EQ(canonicalDump(b.library), canonicalDump(a.library));
  EXPECT_FALSE(std::filesystem::exists(b.root / "Backup"));
  // The kept archive is the old-format kind (the store file itself) and
  // brings the previous journal back whole.
  auto contents = MoodDropboxHelper::verify(kept);
  ASSERT_TRUE(std::holds_alternative<BackupContents>(contents));
  EXPECT_TRUE(std::get<BackupContents>(contents).oldFormat);
  std::filesystem::copy_file(kept, dir_ / "kept.backup");
  auto back = b.helper().restore(dir_ / "kept.backup");
  ASSERT_TRUE(std::holds_alternative<RestoreResult>(back)) << std::get<Error>(back).toString();
  EXPECT_TRUE(std::get<RestoreResult>(back).oldFormat);
  EXPECT_EQ(canonicalDump(b.library), before);
}

// The documents as the phone app writes them: nothing escaped but line
// breaks and quotes in comments.
std::string phoneDocument() {
  auto phoneComment = [](std::string text) {
    std::string out;
    for (char c : text) out += c == '\n' ? std::string("\\n") : std::string(1, c);
    std::string quoted;
    for (char c : out) quoted += c == '"' ? std::string("\\\"") : std::string(1, c);
    return quoted;
  };
  return "[{\"date\":\"2026-03-02 12:05:09 AM\",\"moodLevel\":7,\"moodDescription\":{\"comment\":\"" +
         phoneComment("raw\ttab, \"quoted\"\nnext line and \\q") +
         "\",\"latitude\":\"55.755831\",\"longitude\":\"37.617673\",\"wasEdited\":1},\"moodTags\":[{"
         "\"tagName\":"
         "\"Sleep\",\"frequency\":1,\"cachedLevelSum\":7}]},"
         "{\"date\":\"2026-03-02 01:00:00 PM\",\"moodLevel\":3,\"moodDescription\":{\"comment\":\"typed\n"
         "by "
         "hand\",\"wasEdited\":0},\"moodTags\":[{\"tagName\":\"sleep\",\"frequency\":2,\"cachedLevelSum\":10}"
         "]}]";
}

TEST_F(BackupTest, AnArchiveOfThePhoneAppsLooserDocumentsRestores) {
  const auto archive =
      zipOf("phone.backup", {{"/backup.json", phoneDocument()},
                             {"/moods.json", "[\n  {\"text\" : \"Top\", \"color1\" : [1, 2, 3]}\n]"}});
  Home b(dir_ / "b");
  auto restored = b.helper().restore(archive);
  ASSERT_TRUE(std::holds_alternative<RestoreResult>(restored)) << std::get<Error>(restored).toString();
  auto records = b.store->recordsSortedByDate();
  ASSERT_EQ(records.size(), 2u);
  // Wall-clock times in the reader's zone; the raw tab and the unknown
  // escape stand as written; the two spellings are one tag, the last wins.
  EXPECT_EQ(records[0]->date(), Date::fromTimeIntervalSince1970(1772406309.0));
  EXPECT_EQ(records[0]->moodDescription()->comment(), "raw\ttab, \"quoted\"\nnext line and \\q");
  EXPECT_DOUBLE_EQ(records[0]->moodDescription()->latitude(), 55.755831);
  EXPECT_TRUE(records[0]->moodDescription()->wasEdited());
  EXPECT_EQ(records[1]->date(), Date::fromTimeIntervalSince1970(1772452800.0));
  EXPECT_EQ(records[1]->moodDescription()->comment(), "typed\nby hand");
  ASSERT_EQ(records[1]->moodTags().size(), 1u);
  EXPECT_EQ(records[0]->moodTags().front(), records[1]->moodTags().front());
  EXPECT_EQ(records[1]->moodTags().front()->tagName(), "sleep");
  EXPECT_TRUE(std::filesystem::exists(b.library / "mood.plist"));
}

TEST_F(BackupTest, TheArchiveNameAndItsMembers) {
  Home a(dir_ / "a");
  ScopedSimulatedClock clock(at(3, 14, 25));
  EXPECT_EQ(a.helper("Ann/Phone").archiveName(false, Date::now()), "Ann.Phone_05032026_1525.backup");
  EXPECT_EQ(a.helper("Ann/Phone").archiveName(true, Date::now()), "Ann.Phone_05032026_1525.backup1");
  // A file that merely holds a document's name in its own is no member:
  // an archive with it could not be restored.
  testing::writeFile(a.library / "oldbackup.json", "[]");
  testing::writeFile(a.library / "emotions.plist",
                     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
                     "version=\"1.0\"><array><string>calm</string></array></plist>\n");
  a.picture(100, 3);
  const auto archive = archiveOf(a);
  ZipFile zip(archive, ZipFileMode::kUnzip);
  std::vector<std::string> names;
  for (const auto& info : zip.listFileInZipInfos()) names.push_back(info.name);
  // The gradient is off: no colours document.
  EXPECT_EQ(names, (std::vector<std::string>{"/backup.json", "/moods.json", "/reminders.json",
                                             "/emotions.xml", "/imageStore/000000030000001500000027.jpg"}));
  EXPECT_THROW(zip.writeFileInZipWithName("x", 1), ZipException);
}

TEST_F(BackupTest, MembersWithOrWithoutALeadingSlashLandInTheWorkingFolder) {
  for (const std::string name : {"/backup.json", "backup.json"}) {
    Home b(dir_ / ("b" + std::to_string(name.size())));
    const auto archive = zipOf("slash" + std::to_string(name.size()) + ".backup", {{name, phoneDocument()}});
    auto restored = b.helper().restore(archive);
    ASSERT_TRUE(std::holds_alternative<RestoreResult>(restored)) << name;
    EXPECT_EQ(b.store->allRecords().size(), 2u) << name;
  }
}

TEST_F(BackupTest, MissingRemindersAndColoursBringBackTheFactoryRemindersAndTurnTheGradientOff) {
  Home b(dir_ / "b");
  MoodUserDefaultsOperator settings(b.defaults);
  ASSERT_FALSE(settings.setRemindersAlarms({Value(Value::Dictionary{{"hour", Value(7)}})}));
  ASSERT_FALSE(settings.setGradientColorEnabled(true));
  const auto archive = zipOf("bare.backup", {{"/backup.json", phoneDocument()}});
  ASSERT_TRUE(std::holds_alternative<RestoreResult>(b.helper().restore(archive)));
  EXPECT_FALSE(b.defaults->persistentDomain().count(kAlarm));
  EXPECT_FALSE(settings.gradientColorEnabled());
  // The notifications follow the restored reminders.
  EXPECT_EQ(b.reminderPasses, 1);
}

TEST_F(BackupTest, AnArchiveWithoutRecordsLeavesTheJournalAsItIs) {
  Home b(dir_ / "b");
  addRecord(*b.store, {.level = 2, .date = at(2, 9), .comment = "stays", .photoName = b.picture(500, 4)});
  b.store->saveContext();
  const std::string before = canonicalDump(b.library);
  auto restored = b.helper().restore(zipOf("empty.backup", {{"/backup.json", "[]"}}));
  ASSERT_TRUE(std::holds_alternative<RestoreResult>(restored));
  EXPECT_FALSE(std::get<RestoreResult>(restored).journalReplaced);
  EXPECT_EQ(canonicalDump(b.library), before);
}

TEST_F(BackupTest, AZipWithNoMembersFailsInTheZipLayerAndIsRefused) {
  auto path = dir_ / "nothing.zip";
  { ZipFile zip(path, ZipFileMode::kCreate); }
  EXPECT_EQ(testing::readFile(path).size(), 22u);  // the end record alone
  // minizip refuses the empty directory when it opens the archive (older
  // versions only when going to the first member): a ZipException either way.
  try {
    ZipFile zip(path, ZipFileMode::kUnzip);
    zip.goToFirstFileInZip();
    FAIL() << "no exception";
  } catch (const ZipException& exception) {
    EXPECT_TRUE(exception.reason() == "Error in going to first file in zip in '" + path.string() + "'" ||
                exception.reason() == "Cannot open '" + path.string() + "' as a zip file")
        << exception.reason();
  }
  Home b(dir_ / "b");
  std::optional<Error> seen;
  b.helper().restoreWithBackupFilePath(path, [&](OptionalError error) { seen = error; });
  ASSERT_TRUE(seen);
  EXPECT_TRUE(seen->is(kBackupErrorDomain, kBackupNoDocuments)) << seen->toString();
}

// Bad input: each refused with its reason, the journal's files untouched.
TEST_F(BackupTest, BadArchivesAndDocumentsAreRefusedAndTheJournalStays) {
  Home a(dir_ / "a");
  addRecord(*a.store, {.level = 8, .date = at(1, 9), .comment = "a"});
  a.store->saveContext();
  const auto good = archiveOf(a);
  const std::string goodBytes = testing::readFile(good);
  testing::writeFile(dir_ / "truncated.backup", goodBytes.substr(0, goodBytes.size() / 2));
  testing::writeFile(dir_ / "empty.backup", "");
  testing::writeFile(dir_ / "text.backup", "this is a text file, not an archive of a journal at all\n");
  struct Case {
    std::filesystem::path archive;
    long code;
  };
  const std::vector<Case> cases = {
      {dir_ / "truncated.backup", kBackupNotAnArchive},
      {dir_ / "empty.backup", kBackupNotAnArchive},
      {dir_ / "text.backup", kBackupNotAnArchive},
      {zipOf("nodocs.backup", {{"/moods.json", "[]"}, {"/imageStore/a.jpg", "x"}}), kBackupNoDocuments},
      {zipOf("notjson.backup", {{"/backup.json", "[{\"date\": oops}]"}}), kBackupDocumentUnreadable},
      {zipOf("types.backup",
             {{"/backup.json", "[{\"date\":\"2026-03-02 01:00:00 PM\",\"moodLevel\":\"7\"}]"}}),
       kBackupDocumentUnreadable},
      {zipOf("baddate.backup", {{"/backup.json", "[{\"date\":\"yesterday\",\"moodLevel\":7}]"}}),
       kBackupDocumentUnreadable},
      {zipOf("escape.backup", {{"/backup.json",
                                "[{\"date\":\"2026-03-02 01:00:00 PM\",\"moodLevel\":7,"
                                "\"moodDescription\":{\"photoName\":\"../../x\"}}]"}}),
       kBackupDocumentUnreadable},
      {zipOf("badreminders.backup", {{"/backup.json", phoneDocument()}, {"/reminders.json", "{not a plist"}}),
       kBackupDocumentUnreadable},
  };
  Home b(dir_ / "b");
  addRecord(*b.store, {.level = 2, .date = at(2, 9), .comment = "b's own", .photoName = b.picture(700, 5)});
  b.store->saveContext();
  const std::string dump = canonicalDump(b.library);
  const std::string files = b.files();
  for (const auto& c : cases) {
    auto restored = b.helper().restore(c.archive);
    ASSERT_TRUE(std::holds_alternative<Error>(restored)) << c.archive;
    const Error& error = std::get<Error>(restored);
    EXPECT_TRUE(error.is(kBackupErrorDomain, c.code)) << c.archive << ": " << error.toString();
    EXPECT_NE(error.description.find("nothing was changed"), std::string::npos) << error.description;
    EXPECT_EQ(canonicalDump(b.library), dump) << c.archive;
    EXPECT_EQ(b.files(), files) << c.archive;
    auto verified = MoodDropboxHelper::verify(c.archive);
    EXPECT_TRUE(std::holds_alternative<Error>(verified)) << c.archive;
  }
  EXPECT_EQ(b.reminderPasses, 0);
}

// The corpus of hostile archives, made by the script in testdata/backup.
TEST_F(BackupTest, EveryHostileArchiveIsRefusedAndNothingOfItIsWritten) {
  const auto corpus = dir_ / "corpus";
  ASSERT_EQ(
      testing::runCommand("python3 '" + (sourceDir() / "testdata/backup/make_hostile_corpus.py").string() +
                          "' '" + corpus.string() + "'"),
      0);
  Home b(dir_ / "home" / "b");
  addRecord(*b.store, {.level = 2, .date = at(2, 9), .comment = "b's own", .photoName = b.picture(700, 5)});
  b.store->saveContext();
  const std::string dump = canonicalDump(b.library);
  const std::string files = b.files();
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
    ++count;
    auto restored = b.helper().restore(entry.path());
    ASSERT_TRUE(std::holds_alternative<Error>(restored)) << entry.path();
    const Error& error = std::get<Error>(restored);
    EXPECT_TRUE(error.is(kBackupErrorDomain, kBackupHostileArchive) ||
                error.is(kBackupErrorDomain, kBackupNotAnArchive))
        << entry.path().filename() << ": " << error.toString();
    EXPECT_NE(error.description.find(entry.path().filename().string()), std::string::npos)
        << error.description;
    EXPECT_EQ(canonicalDump(b.library), dump) << entry.path();
    EXPECT_EQ(b.files(), files) << entry.path();
  }
  EXPECT_GE(count, 19u);
  // Nothing named by a hostile member appeared anywhere around the home.
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_.path())) {
    EXPECT_EQ(entry.path().filename().string().find("evil"), std::string::npos) << entry.path();
  }
}

// Fail the nth file operation of a restore for n = 1, 2, ... until it
// succeeds: after every failure the journal is the old one, after success
// the new one.
TEST_F(BackupTest, AFailedFileOperationAnywhereInARestoreLeavesTheOldJournal) {
  Home a(dir_ / "a");
  addRecord(*a.store,
            {.level = 8, .date = at(1, 9), .comment = "new", .tags = {"x"}, .photoName = a.picture(3000, 1)});
  addRecord(*a.store, {.level = 7, .date = at(1, 10), .thumbName = a.picture(2000, 2)});
  a.store->saveContext();
  const auto archive = archiveOf(a);
  const std::string newDump = canonicalDump(a.library);
  Home b(dir_ / "b");
  addRecord(*b.store, {.level = 2, .date = at(2, 9), .comment = "old", .photoName = b.picture(700, 5)});
  b.store->saveContext();
  const std::string oldDump = canonicalDump(b.library);
  const Value::Dictionary oldSettings = b.defaults->persistentDomain();
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  int n = 1;
  for (; n < 500; ++n) {
    std::variant<RestoreResult, Error> restored = Error();
    {
      ScopedFileSystem installed(faults);
      faults->failAt(n, n % 2 ? EIO : ENOSPC);
      restored = b.helper().restore(archive);
    }
    if (std::holds_alternative<RestoreResult>(restored)) break;
    ASSERT_TRUE(faults->faultFired()) << std::get<Error>(restored).toString();
    ASSERT_EQ(canonicalDump(b.library), oldDump)
        << "after failing operation " << n << ": " << std::get<Error>(restored).toString();
    ASSERT_EQ(b.defaults->persistentDomain(), oldSettings) << n;
    ASSERT_EQ(b.store->allRecords().size(), 1u) << n;
    ASSERT_FALSE(std::filesystem::exists(b.root / kBeforeRestoreArchiveName)) << n;
  }
  EXPECT_GT(n, 10);
  EXPECT_EQ(canonicalDump(b.library), newDump);
  EXPECT_EQ(b.store->allRecords().size(), 2u);
}

TEST_F(BackupTest, AFailedFileOperationWhileMakingABackupNeverLeavesAPartialArchive) {
  ScopedSimulatedClock clock(at(3, 14, 25));
  Home a(dir_ / "a");
  addRecord(*a.store, {.level = 8, .date = at(1, 9), .comment = "one", .photoName = a.picture(3000, 1)});
  a.store->saveContext();
  const auto good = archiveOf(a);
  const std::string goodBytes = testing::readFile(good);
  addRecord(*a.store, {.level = 3, .date = at(1, 10), .comment = "two", .photoName = a.picture(3000, 2)});
  a.store->saveContext();
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  int n = 1;
  for (; n < 200; ++n) {
    std::variant<std::filesystem::path, Error> made = Error();
    {
      ScopedFileSystem installed(faults);
      faults->failAt(n, ENOSPC);
      made = a.helper().createBackupInFolder(dir_.path(), false);
    }
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
    }
    ASSERT_EQ(names, std::vector<std::string>{good.filename().string()}) << n;
    if (std::holds_alternative<std::filesystem::path>(made)) {
      // Made in spite of the fault (a fall-back it could take): it must
      // be whole.
      auto contents = MoodDropboxHelper::verify(good);
      ASSERT_TRUE(std::holds_alternative<BackupContents>(contents)) << n;
      ASSERT_EQ(std::get<BackupContents>(contents).records, 2u) << n;
      if (!faults->faultFired()) break;
      testing::writeFile(good, goodBytes);
      continue;
    }
    ASSERT_TRUE(faults->faultFired());
    EXPECT_EQ(std::get<Error>(made).domain, kBackupErrorDomain);
    ASSERT_EQ(testing::readFile(good), goodBytes) << "after failing operation " << n;
  }
  EXPECT_GT(n, 10);
  auto contents = MoodDropboxHelper::verify(good);
  ASSERT_TRUE(std::holds_alternative<BackupContents>(contents));
  EXPECT_EQ(std::get<BackupContents>(contents).records, 2u);
}

}  // namespace
}  // namespace lumeo
