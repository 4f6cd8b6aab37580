// Two devices on this machine, each with its journal and event store,
// exchanging through one cloud folder: what one records the other gets,
// concurrent edits end the same on both, and after a rebase a third device
// starts from the baseline alone.
#include <gtest/gtest.h>

#include "platform/log.h"
#include "sync/sync_cloud_manager_test_device.h"
#include "sync/sync_local_cloud_file_system.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::filesIn;
using testing::SyncCloudDevice;
using testing::TempDir;

class SyncTwoDevicesTest : public ::testing::Test {
 protected:
  SyncTwoDevicesTest()
      : cloudRoot_(dir_ / "cloud"), a_(dir_ / "a", makeCloud()), b_(dir_ / "b", makeCloud()) {}

  std::shared_ptr<SyncCloudFileSystem> makeCloud() {
    std::filesystem::create_directories(cloudRoot_);
    return std::make_shared<SyncLocalCloudFileSystem>(cloudRoot_);
  }
  std::filesystem::path remote(const std::string& directory) { return cloudRoot_ / "MainStore" / directory; }

  void exchange() {
    a_.merge();
    b_.merge();
    a_.merge();
  }

  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  std::filesystem::path cloudRoot_;
  SyncCloudDevice a_;
  SyncCloudDevice b_;
};

TEST_F(SyncTwoDevicesTest, EditsOnBothSidesEndTheSameOnBoth) {
  // Records made before joining come along in the joining baseline.
  a_.replica().addRecord(6, "before sync on a");
  a_.replica().save();
  b_.replica().addRecord(4, "before sync on b");
  b_.replica().save();
  a_.leech();
  b_.leech();
  EXPECT_EQ(filesIn(remote("stores")).size(), 2u);
  exchange();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(a_.replica().records().size(), 2u);

  // Concurrent edits: a new tagged record on each side, a level changed on
  // one, a record deleted on the other.
  auto onA = a_.replica().addRecord(8, "walk #walk");
  onA->addMoodTagsObject(a_.replica().tagNamed("walk", true));
  a_.replica().save();
  auto onB = b_.replica().addRecord(3, "run #run");
  onB->addMoodTagsObject(b_.replica().tagNamed("run", true));
  b_.replica().save();
  for (const auto& record : a_.replica().records()) {
    if (record->moodDescription()->comment() == "before sync on b") record->setMoodLevel(9);
  }
  a_.replica().save();
  for (const auto& record : b_.replica().records()) {
    if (record->moodDescription()->comment() == "before sync on a") {
      ASSERT_FALSE(b_.replica().context().deleteObject(record));
    }
  }
  b_.replica().save();
  exchange();
  std::string dump = a_.dump();
  EXPECT_EQ(dump, b_.dump());
  EXPECT_EQ(a_.replica().records().size(), 3u) << dump;
  EXPECT_NE(dump.find("level=9"), std::string::npos) << dump;
  EXPECT_NE(dump.find("tag run"), std::string::npos) << dump;
  EXPECT_NE(dump.find("tag walk"), std::string::npos) << dump;

  // A device that runs again (a new manager) finds nothing new to do.
  a_.restart();
  auto report = a_.merge();
  EXPECT_EQ(report.counts.eventsImported + report.counts.baselinesImported + report.counts.filesUploaded, 0u);
  EXPECT_EQ(a_.dump(), dump);
}

TEST_F(SyncTwoDevicesTest, ARebaseAfterFiftyOneEventsLetsAThirdDeviceStartFromTheBaselineAlone) {
  b_.replica().addRecord(5, "from b");
  b_.replica().save();
  a_.leech();
  b_.leech();
  exchange();
  for (int i = 0; i < 51; ++i) {
    a_.replica().addRecord(1 + i % 10, "entry " + std::to_string(i), 1000 + i);
    a_.replica().save();
  }
  auto first = a_.merge();  // 51 events here: a rebase
  EXPECT_TRUE(first.rebased);
  b_.merge();
  a_.merge();
  EXPECT_EQ(a_.dump(), b_.dump());
  EXPECT_EQ(a_.replica().records().size(), 52u);
  // The 51 event files went into the baseline and left the cloud; what
  // stays is a merge event newer than the baseline.
  EXPECT_LE(filesIn(remote("events")).size(), 2u);

  // Start a third device from the baselines and data files alone.
  TempDir other;
  std::filesystem::create_directories(other / "MainStore");
  std::filesystem::copy(remote("baselines"), other / "MainStore" / "baselines",
                        std::filesystem::copy_options::recursive);
  std::filesystem::copy(remote("data"), other / "MainStore" / "data",
                        std::filesystem::copy_options::recursive);
  std::filesystem::create_directories(other / "MainStore" / "events");
  std::filesystem::create_directories(other / "MainStore" / "stores");
  EXPECT_LE(filesIn(remote("baselines")).size(), 2u);
  SyncCloudDevice c(dir_ / "c", std::make_shared<SyncLocalCloudFileSystem>(other.path()));
  c.leech();
  c.merge();
  EXPECT_EQ(c.dump(), a_.dump());
}

}  // namespace
}  // namespace lumeo
