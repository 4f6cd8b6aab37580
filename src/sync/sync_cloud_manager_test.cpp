// The cloud manager's edge cases: what counts as present in the cloud, how
// photos land in the image store, what the clean-up may remove, and files
// that arrive damaged, half-written or out of order.
#include <gtest/gtest.h>

#include <fstream>

#include "platform/image.h"
#include "platform/log.h"
#include "platform/notification_center.h"
#include "store/mood_description.h"
#include "store/notification_names.h"
#include "sync/sync_cloud_manager_test_device.h"
#include "sync/sync_local_cloud_file_system.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::filesIn;
using testing::SyncCloudDevice;
using testing::TempDir;

namespace fs = std::filesystem;

class SyncCloudManagerTest : public ::testing::Test {
 protected:
  SyncCloudManagerTest()
      : cloudRoot_(dir_ / "cloud"), a_(dir_ / "a", makeCloud()), b_(dir_ / "b", makeCloud()) {}

  std::shared_ptr<SyncCloudFileSystem> makeCloud() {
    fs::create_directories(cloudRoot_);
    return std::make_shared<SyncLocalCloudFileSystem>(cloudRoot_);
  }
  fs::path remote(const std::string& directory) { return cloudRoot_ / "MainStore" / directory; }

  void joinBoth() {
    a_.leech();
    b_.leech();
    a_.merge();
    b_.merge();
    a_.merge();
  }

  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  fs::path cloudRoot_;
  SyncCloudDevice a_;
  SyncCloudDevice b_;
};

TEST_F(SyncCloudManagerTest, CleanUpWithoutASnapshotRemovesNothing) {
  a_.leech();
  SyncCloudManager& manager = a_.merger().cloudManager();
  auto error = manager.removeOutdatedRemoteFiles();
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kSyncErrorDomain);
  EXPECT_EQ(error->code, kSyncErrorCodeNoSnapshot);
  ASSERT_FALSE(manager.snapshotRemoteFiles());
  EXPECT_TRUE(manager.snapshotEventFilenames()->empty());
  manager.clearSnapshot();
  EXPECT_FALSE(manager.snapshotDataFilenames());
  EXPECT_EQ(manager.importNewRemoteNonBaselineEvents()->code, kSyncErrorCodeNoSnapshot);
}

TEST_F(SyncCloudManagerTest, ABaselineUnderItsOlderNameIsNeitherFetchedNorPublishedAgain) {
  a_.leech();
  a_.merge();
  auto baselines = filesIn(remote("baselines"));
  ASSERT_EQ(baselines.size(), 1u);
  std::string preferred = *baselines.begin();
  auto file = SyncEventFile::fromFilename(preferred);
  ASSERT_TRUE(file);
  std::string older = file->aliases().back();
  ASSERT_NE(older, preferred);
  fs::rename(remote("baselines") / preferred, remote("baselines") / older);

  a_.restart();
  auto report = a_.merge();
  EXPECT_EQ(report.counts.baselinesImported, 0u);
  EXPECT_EQ(report.counts.filesUploaded, 0u);
  EXPECT_EQ(filesIn(remote("baselines")), std::set<std::string>{older});
}

TEST_F(SyncCloudManagerTest, ABaselineUnderBothItsNamesArrivesOnce) {
  a_.leech();
  a_.merge();
  auto baselines = filesIn(remote("baselines"));
  ASSERT_EQ(baselines.size(), 1u);
  auto file = SyncEventFile::fromFilename(*baselines.begin());
  ASSERT_TRUE(file);
  fs::copy_file(remote("baselines") / *baselines.begin(), remote("baselines") / file->aliases().back());

  b_.leech();
  auto report = b_.merge();
  EXPECT_EQ(report.counts.baselinesImported, 1u);
  a_.merge();
  EXPECT_EQ(a_.dump(), b_.dump());
}

TEST_F(SyncCloudManagerTest, DataFilesAlreadyHereAreNotFetchedAndPhotosWithTheRightChecksumAreLeftAlone) {
  joinBoth();
  auto record = a_.replica().addRecord(6, "with photo");
  auto photo = Image::filled(40, 30, Color(0.8, 0.2, 0.1, 1));
  auto photoName = std::get<std::string>(a_.replica().images().writeNewImage(photo));
  auto thumbName =
      std::get<std::string>(a_.replica().images().writeNewImage(Image::filled(10, 10, Color(0, 0, 1, 1))));
  auto description = record->moodDescription();
  description->setPhotoName(photoName);
  description->setPhotoChecksum(*a_.replica().images().checksumForName(photoName));
  description->setThumbName(thumbName);
  description->setThumbChecksum(*a_.replica().images().checksumForName(thumbName));
  a_.replica().save();
  a_.merge();
  ASSERT_EQ(filesIn(remote("data")), std::set<std::string>{photoName});

  // The photo is on b already, with the right bytes; the thumbnail is not.
  fs::copy_file(*a_.replica().images().imageURLForName(photoName),
                *b_.replica().images().imageURLForName(photoName));
  auto photoTime = fs::last_write_time(*b_.replica().images().imageURLForName(photoName));
  std::vector<std::string> saved;
  ScopedObserver observer(
      NotificationCenter::defaultCenter(), SyncImageSaved, nullptr,
      [&](const Notification& n) { saved.push_back(std::any_cast<std::string>(n.object)); });
  auto report = b_.merge();
  MainLoop::shared().runUntilIdle();
  EXPECT_EQ(report.counts.dataFilesImported, 1u);
  EXPECT_EQ(fs::last_write_time(*b_.replica().images().imageURLForName(photoName)), photoTime);
  EXPECT_EQ(saved, std::vector<std::string>{thumbName});
  auto thumb = Image::readFile(*b_.replica().images().imageURLForName(thumbName));
  ASSERT_TRUE(std::holds_alternative<Image>(thumb));
  EXPECT_EQ(std::get<Image>(thumb).width(), kThumbnailSize);
  EXPECT_EQ(std::get<Image>(thumb).height(), kThumbnailSize);

  // Received once: in "newdata" or "data" now, never fetched again.
  b_.restart();
  saved.clear();
  report = b_.merge();
  MainLoop::shared().runUntilIdle();
  EXPECT_EQ(report.counts.dataFilesImported, 0u);
  EXPECT_TRUE(saved.empty());
}

TEST_F(SyncCloudManagerTest, AHalfWrittenEventFileIsSkippedKeptAndImportedOnceWhole) {
  joinBoth();
  a_.replica().addRecord(7, "one");
  a_.replica().save();
  a_.replica().addRecord(8, "two");
  a_.replica().save();
  a_.merge();
  auto events = filesIn(remote("events"));
  ASSERT_EQ(events.size(), 2u);
  std::vector<std::string> names(events.begin(), events.end());
  syncSortFilenamesByGlobalCount(names);
  // The later file arrives first and cut short, as a sync client leaves it
  // while still downloading; the earlier one has not arrived at all.
  fs::path holding = dir_ / "holding";
  fs::create_directories(holding);
  for (const auto& name : names) fs::rename(remote("events") / name, holding / name);
  std::string bytes = testing::readFile(holding / names[1]);
  std::ofstream(remote("events") / names[1], std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  std::string before = b_.dump();

  auto report = b_.tryMerge();
  ASSERT_TRUE(std::holds_alternative<SyncCloudMergeReport>(report)) << std::get<Error>(report).toString();
  const auto& skipped = std::get<SyncCloudMergeReport>(report).skippedFiles;
  ASSERT_EQ(skipped.size(), 1u);
  EXPECT_EQ(skipped[0].first, names[1]);
  EXPECT_EQ(skipped[0].second.code, kSyncErrorCodeFileAccessFailed);
  EXPECT_TRUE(fs::exists(remote("events") / names[1]));  // another device may still need it
  EXPECT_EQ(b_.dump(), before);

  // Both arrive whole, in the wrong order: nothing twice, nothing lost.
  fs::copy_file(holding / names[1], remote("events") / names[1], fs::copy_options::overwrite_existing);
  b_.restart();
  auto waiting = b_.tryMerge();  // the earlier event is missing: the later waits
  ASSERT_TRUE(std::holds_alternative<Error>(waiting));
  EXPECT_EQ(std::get<Error>(waiting).code, kSyncErrorCodeDiscontinuousRevisions);
  EXPECT_EQ(b_.dump(), before);
  fs::copy_file(holding / names[0], remote("events") / names[0]);
  b_.restart();
  b_.merge();
  a_.merge();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(b_.replica().records().size(), 2u);
}

// Downloads into the transit cache are not flushed to disk, so a crash or
// power cut in the middle of a fetch may leave there a file cut short, one
// of the right length but zeros, a hidden half-written temporary file, or
// nothing at all. The next run must fetch each event again from the cloud,
// import it once and whole, and leave the cache empty.
TEST_F(SyncCloudManagerTest, WhatACrashLeavesInTheTransitCacheIsRepairedByTheNextFetch) {
  joinBoth();
  for (int i = 0; i < 4; ++i) {
    a_.replica().addRecord(10 + i, "event " + std::to_string(i));
    a_.replica().save();
  }
  a_.merge();
  auto events = filesIn(remote("events"));
  ASSERT_EQ(events.size(), 4u);
  std::vector<std::string> names(events.begin(), events.end());
  syncSortFilenamesByGlobalCount(names);

  fs::path download = b_.merger().cloudManager().localDownloadDirectory();
  fs::path upload = b_.merger().cloudManager().localUploadDirectory();
  std::string whole = testing::readFile(remote("events") / names[0]);
  std::ofstream(download / names[0], std::ios::binary);  // emptied by the power cut
  std::ofstream(download / names[1], std::ios::binary) << whole.substr(0, whole.size() / 2);
  std::ofstream(download / names[2], std::ios::binary) << std::string(whole.size(), '\0');
  std::ofstream(download / (".lumeo-partial-" + names[3] + ".0000000000000000-1"), std::ios::binary)
      << whole.substr(0, 10);
  std::ofstream(upload / ".lumeo-partial-registration.0000000000000000-2", std::ios::binary) << "<?xml";

  b_.restart();  // the next run of the program
  auto report = b_.merge();
  EXPECT_TRUE(report.skippedFiles.empty());
  EXPECT_EQ(report.counts.eventsImported, 4u);
  EXPECT_EQ(b_.replica().records().size(), 4u);
  EXPECT_EQ(a_.dump(), b_.dump());
  for (const auto& cache : {download, upload}) {
    EXPECT_TRUE(fs::is_empty(cache)) << cache << " still holds " << fs::directory_iterator(cache)->path();
  }
  // Nothing arrives twice after that.
  b_.restart();
  EXPECT_EQ(b_.merge().counts.eventsImported, 0u);
  EXPECT_EQ(b_.replica().records().size(), 4u);
}

// A local folder that remembers what was downloaded from it.
class RecordingCloudFileSystem : public SyncLocalCloudFileSystem {
 public:
  using SyncLocalCloudFileSystem::SyncLocalCloudFileSystem;
  void downloadFromPath(const std::string& path, const std::string& toLocalFile,
                        SyncCloudCompletion completion) override {
    downloaded.push_back(path);
    SyncLocalCloudFileSystem::downloadFromPath(path, toLocalFile, std::move(completion));
  }
  std::vector<std::string> downloaded;
};

// After a rebase on one device, the event files its baseline absorbed may
// stay in the other device's view of the cloud for a while: a sync client
// passes files on in any order, the new baseline before the removals. The
// other device must not fetch them again and again in the meantime.
TEST_F(SyncCloudManagerTest, EventsTheBaselineCoversAreNeitherDownloadedNorImportedAgain) {
  auto recording = std::make_shared<RecordingCloudFileSystem>(cloudRoot_);
  b_.restart(recording);
  joinBoth();
  for (int i = 0; i < 3; ++i) {
    b_.replica().addRecord(1 + i, "from b " + std::to_string(i), 500 + i);
    b_.replica().save();
  }
  b_.merge();
  for (int i = 0; i < 51; ++i) {
    a_.replica().addRecord(1 + i % 10, "entry " + std::to_string(i), 1000 + i);
    a_.replica().save();
  }
  a_.merge();
  b_.merge();
  // What a's rebase will fold, as b's sync client keeps showing it.
  fs::path lagging = dir_ / "lagging";
  fs::copy(remote("events"), lagging);
  ASSERT_TRUE(a_.merge().rebased);
  std::set<std::string> folded;
  for (const auto& name : filesIn(lagging)) {
    if (!fs::exists(remote("events") / name)) folded.insert(name);
  }
  ASSERT_GT(folded.size(), 40u);

  for (int round = 0; round < 2; ++round) {
    for (const auto& name : folded) {
      if (!fs::exists(remote("events") / name)) fs::copy_file(lagging / name, remote("events") / name);
    }
    recording->downloaded.clear();
    std::size_t importedBefore = b_.merger().cloudManager().counts().eventsImported;
    auto report = b_.merge();
    for (const auto& path : recording->downloaded) {
      EXPECT_FALSE(folded.count(fs::path(path).filename().string())) << "round " << round << ": " << path;
    }
    EXPECT_EQ(report.counts.eventsImported, importedBefore) << "round " << round;
  }
  a_.merge();
  b_.merge();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(b_.replica().records().size(), 54u);
}

TEST_F(SyncCloudManagerTest, NamesThatAreNotOursAreLeftInTheCloud) {
  joinBoth();
  for (const char* name : {"junk.txt", "12_STORE_7.syncevent.part", "3_A_1 (conflicted copy).syncevent"}) {
    std::ofstream(remote("events") / name) << "not an event";
  }
  auto report = a_.merge();
  EXPECT_TRUE(report.skippedFiles.empty());
  EXPECT_EQ(report.counts.eventsImported, 0u);
  EXPECT_TRUE(fs::exists(remote("events") / "junk.txt"));
  EXPECT_TRUE(fs::exists(remote("events") / "3_A_1 (conflicted copy).syncevent"));
}

TEST_F(SyncCloudManagerTest, AFolderThatDisappearsEndsTheMergeWithAClearErrorAndTheJournalStays) {
  joinBoth();
  b_.replica().addRecord(4, "waiting");
  b_.replica().save();
  b_.merge();
  std::string before = a_.dump();
  fs::remove_all(cloudRoot_);
  auto result = a_.tryMerge();
  ASSERT_TRUE(std::holds_alternative<Error>(result));
  EXPECT_EQ(std::get<Error>(result).domain, kSyncErrorDomain);
  EXPECT_EQ(a_.dump(), before);

  // Registration: missing gives nothing and no error once the folder is back.
  fs::create_directories(cloudRoot_);
  SyncCloudManager& manager = a_.merger().cloudManager();
  ASSERT_FALSE(manager.createRemoteDirectoryStructure());
  auto info = manager.retrieveRegistrationInfoForStoreWithIdentifier("NOBODY");
  ASSERT_TRUE(std::holds_alternative<std::optional<Value::Dictionary>>(info));
  EXPECT_FALSE(std::get<std::optional<Value::Dictionary>>(info));
  ASSERT_FALSE(manager.setRegistrationInfo({{"storeIdentifier", Value("X")}}, "X"));
  ASSERT_FALSE(manager.setRegistrationInfo({{"storeIdentifier", Value("Y")}}, "X"));
  info = manager.retrieveRegistrationInfoForStoreWithIdentifier("X");
  EXPECT_EQ((*std::get<std::optional<Value::Dictionary>>(info))["storeIdentifier"].toString(), "Y");
}

}  // namespace
}  // namespace lumeo
