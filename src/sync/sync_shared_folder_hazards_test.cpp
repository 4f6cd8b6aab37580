// Two devices syncing through one shared folder while a sync client does
// what sync clients do: conflict copies beside the real files, partial and
// zero-length files still arriving, files arriving out of order, and one
// device whose clock runs a day ahead. Nothing may be imported twice and
// nothing lost: after the hazards pass, both journals are equal and whole,
// and the debris is still where the client left it.
#include <gtest/gtest.h>

#include <fstream>

#include "platform/clock.h"
#include "platform/log.h"
#include "sync/sync_cloud_manager_test_device.h"
#include "sync/sync_shared_folder.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::filesIn;
using testing::readFile;
using testing::SyncCloudDevice;
using testing::TempDir;
using testing::writeFile;

namespace fs = std::filesystem;

class SharedFolderHazardsTest : public ::testing::Test {
 protected:
  SharedFolderHazardsTest()
      : folder_(makeFolder(dir_ / "Syncthing" / "Lumeo")),
        a_(dir_ / "a", std::make_shared<SyncSharedFolderFileSystem>(folder_)),
        b_(dir_ / "b", std::make_shared<SyncSharedFolderFileSystem>(folder_)) {}

  static fs::path makeFolder(const fs::path& path) {
    fs::create_directories(path);
    return path;
  }
  fs::path events() { return folder_ / "MainStore" / "events"; }

  void addRecords(SyncCloudDevice& device, const std::string& prefix, int count, double date) {
    for (int i = 0; i < count; ++i) {
      device.replica().addRecord(1 + i % 10, prefix + " " + std::to_string(i), date + i);
      device.replica().save();
    }
  }

  std::set<std::string> comments(SyncCloudDevice& device) {
    std::set<std::string> out;
    for (const auto& record : device.replica().records()) {
      auto description = record->moodDescription();
      EXPECT_TRUE(out.insert(description ? description->comment().value_or("") : "").second)
          << "a record arrived twice";
    }
    return out;
  }

  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  fs::path folder_;
  SyncCloudDevice a_;
  SyncCloudDevice b_;
};

TEST_F(SharedFolderHazardsTest, DebrisOfSyncClientsIsNeitherImportedNorLost) {
  a_.leech();
  b_.leech();
  addRecords(a_, "from a", 3, 1000);
  a_.merge();
  auto published = filesIn(events());
  ASSERT_FALSE(published.empty());
  const std::string real = *published.begin();
  const std::string bytes = readFile(events() / real);
  auto stem = real.substr(0, real.rfind('.'));

  // What Syncthing, Dropbox, Nextcloud and ownCloud leave beside it.
  const std::vector<std::string> debris = {
      stem + ".sync-conflict-20261123-101010-ABCDEFG.syncevent",
      stem + " (b's conflicted copy 2026-11-23).syncevent",
      stem + "_conflict-20261123-101010.syncevent",
      "." + real + ".~1a2b3c",
      real + ".part",
      ".syncthing." + real + ".tmp",
  };
  for (const auto& name : debris) writeFile(events() / name, bytes);
  // A half-arrived copy under a name that parses, hidden as clients do.
  writeFile(events() / ("." + real), bytes.substr(0, bytes.size() / 2));

  // Each real file is fetched and imported once; no piece of debris is
  // even tried.
  auto report = b_.merge();
  EXPECT_EQ(report.counts.eventsImported + report.counts.baselinesImported,
            published.size() + filesIn(folder_ / "MainStore" / "baselines").size());
  for (const auto& [name, error] : report.skippedFiles) ADD_FAILURE() << name << ": " << error.toString();
  a_.merge();
  b_.merge();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(comments(b_), (std::set<std::string>{"from a 0", "from a 1", "from a 2"}));
  // Ignored, not removed: the client owns them.
  for (const auto& name : debris) EXPECT_TRUE(fs::exists(events() / name)) << name;
  EXPECT_TRUE(fs::exists(events() / ("." + real)));
}

TEST_F(SharedFolderHazardsTest, AFileStillArrivingEmptyIsTakenOnceItIsWhole) {
  a_.leech();
  b_.leech();
  addRecords(a_, "from a", 2, 1000);
  a_.merge();
  auto published = filesIn(events());
  ASSERT_FALSE(published.empty());
  // On b's machine the client has made the files but not filled them yet.
  std::map<std::string, std::string> whole;
  for (const auto& name : published) {
    whole[name] = readFile(events() / name);
    writeFile(events() / name, "");
  }
  auto early = b_.tryMerge();
  // Whatever the merge says, nothing half is in b's journal.
  (void)early;
  EXPECT_TRUE(comments(b_).empty() || comments(b_).size() == 2u);
  for (const auto& [name, contents] : whole) writeFile(events() / name, contents);
  b_.merge();
  EXPECT_EQ(comments(b_), (std::set<std::string>{"from a 0", "from a 1"}));
  a_.merge();
  b_.merge();
  EXPECT_EQ(a_.dump(), b_.dump());
}

TEST_F(SharedFolderHazardsTest, FilesArrivingOutOfOrderWaitForTheirPredecessors) {
  a_.leech();
  b_.leech();
  addRecords(a_, "first", 1, 1000);
  a_.merge();
  auto firstFiles = filesIn(events());
  addRecords(a_, "second", 2, 2000);
  a_.merge();
  auto allFiles = filesIn(events());
  // The later files reach b's machine first.
  fs::path parked = dir_ / "parked";
  fs::create_directories(parked);
  for (const auto& name : firstFiles) fs::rename(events() / name, parked / name);
  (void)b_.tryMerge();
  for (const auto& name : firstFiles) fs::rename(parked / name, events() / name);
  EXPECT_EQ(filesIn(events()), allFiles);
  b_.merge();
  a_.merge();
  b_.merge();
  EXPECT_EQ(comments(b_), (std::set<std::string>{"first 0", "second 0", "second 1"}));
  EXPECT_EQ(a_.dump(), b_.dump());
}

TEST_F(SharedFolderHazardsTest, ADeviceWhoseClockRunsADayAheadStillAgrees) {
  a_.leech();
  b_.leech();
  addRecords(a_, "on time", 2, 1000);
  {
    ScopedSimulatedClock ahead(
        Date::fromTimeIntervalSinceReferenceDate(Date::now().timeIntervalSinceReferenceDate() + 86400));
    addRecords(b_, "a day ahead", 2, 1000);
  }
  a_.merge();
  b_.merge();
  a_.merge();
  b_.merge();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(comments(a_),
            (std::set<std::string>{"on time 0", "on time 1", "a day ahead 0", "a day ahead 1"}));
}

}  // namespace
}  // namespace lumeo
