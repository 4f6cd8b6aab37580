// Two devices on this machine, each with its journal and event store,
// exchanging through one cloud: a shared folder, Apache with mod_dav and
// `rclone serve webdav` on 127.0.0.1. What one records the other gets,
// concurrent edits end the same on both, and after a rebase a third device
// starts from the baseline alone.
#include <gtest/gtest.h>

#include "platform/log.h"
#include "sync/sync_cloud_manager_test_device.h"
#include "sync/sync_shared_folder.h"
#include "sync/sync_webdav.h"
#include "sync/sync_webdav_test_servers.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::filesIn;
using testing::SyncCloudDevice;
using testing::TempDir;

namespace fs = std::filesystem;

// One cloud, and a file system on it for each device.
class Cloud {
 public:
  virtual ~Cloud() = default;
  virtual std::string unavailableReason() const { return ""; }
  virtual std::shared_ptr<SyncCloudFileSystem> open() = 0;
  // The folder on disk that holds "/MainStore".
  virtual fs::path root() const = 0;
};

class SharedFolderCloud : public Cloud {
 public:
  SharedFolderCloud() { fs::create_directories(dir_ / "Sync"); }
  std::shared_ptr<SyncCloudFileSystem> open() override {
    return std::make_shared<SyncSharedFolderFileSystem>(dir_ / "Sync");
  }
  fs::path root() const override { return dir_ / "Sync"; }

 private:
  TempDir dir_;
};

template <class Server>
class WebDavCloud : public Cloud {
 public:
  WebDavCloud() {
    if (!server_.unavailableReason().empty()) return;
    url_ = server_.makeFolder("Lumeo sync");
    user_ = server_.user().empty() ? "ana" : server_.user();
    (void)secrets_->add(syncWebDavCredentialKey(url_, user_), "test",
                        server_.password().empty() ? "secret" : server_.password());
  }
  std::string unavailableReason() const override { return server_.unavailableReason(); }
  std::shared_ptr<SyncCloudFileSystem> open() override {
    return std::make_shared<SyncWebDavFileSystem>(url_, user_, SyncWebDavFileSystem::Options{}, secrets_);
  }
  fs::path root() const override { return server_.folder() / "Lumeo sync"; }

 private:
  Server server_;
  std::string url_;
  std::string user_;
  std::shared_ptr<InMemorySecretStore> secrets_ = std::make_shared<InMemorySecretStore>();
};

std::unique_ptr<Cloud> makeCloud(const std::string& kind) {
  if (kind == "apache") return std::make_unique<WebDavCloud<testing::ApacheDavServer>>();
  if (kind == "rclone") return std::make_unique<WebDavCloud<testing::RcloneDavServer>>();
  return std::make_unique<SharedFolderCloud>();
}

class SyncTwoDevicesTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    cloud_ = makeCloud(GetParam());
    if (!cloud_->unavailableReason().empty()) GTEST_SKIP() << cloud_->unavailableReason();
    a_ = std::make_unique<SyncCloudDevice>(dir_ / "a", cloud_->open());
    b_ = std::make_unique<SyncCloudDevice>(dir_ / "b", cloud_->open());
  }
  fs::path remote(const std::string& directory) { return cloud_->root() / "MainStore" / directory; }

  void exchange() {
    a_->merge();
    b_->merge();
    a_->merge();
  }

  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  std::unique_ptr<Cloud> cloud_;
  std::unique_ptr<SyncCloudDevice> a_;
  std::unique_ptr<SyncCloudDevice> b_;
};

TEST_P(SyncTwoDevicesTest, EditsOnBothSidesEndTheSameOnBoth) {
  // Records made before joining come along in the joining baseline.
  a_->replica().addRecord(6, "before sync on a");
  a_->replica().save();
  b_->replica().addRecord(4, "before sync on b");
  b_->replica().save();
  a_->leech();
  b_->leech();
  EXPECT_EQ(filesIn(remote("stores")).size(), 2u);
  exchange();
  EXPECT_EQ(a_->dump(), b_->dump());
  EXPECT_EQ(a_->replica().records().size(), 2u);

  // Concurrent edits: a new tagged record on each side, a level changed on
  // one, a record deleted on the other.
  auto onA = a_->replica().addRecord(8, "walk #walk");
  onA->addMoodTagsObject(a_->replica().tagNamed("walk", true));
  a_->replica().save();
  auto onB = b_->replica().addRecord(3, "run #run");
  onB->addMoodTagsObject(b_->replica().tagNamed("run", true));
  b_->replica().save();
  for (const auto& record : a_->replica().records()) {
    if (record->moodDescription()->comment() == "before sync on b") record->setMoodLevel(9);
  }
  a_->replica().save();
  for (const auto& record : b_->replica().records()) {
    if (record->moodDescription()->comment() == "before sync on a") {
      ASSERT_FALSE(b_->replica().context().deleteObject(record));
    }
  }
  b_->replica().save();
  exchange();
  std::string dump = a_->dump();
  EXPECT_EQ(dump, b_->dump());
  EXPECT_EQ(a_->replica().records().size(), 3u) << dump;
  EXPECT_NE(dump.find("level=9"), std::string::npos) << dump;
  EXPECT_NE(dump.find("tag run"), std::string::npos) << dump;
  EXPECT_NE(dump.find("tag walk"), std::string::npos) << dump;

  // A device that runs again (a new manager) finds nothing new to do.
  a_->restart(cloud_->open());
  auto report = a_->merge();
  EXPECT_EQ(report.counts.eventsImported + report.counts.baselinesImported + report.counts.filesUploaded, 0u);
  EXPECT_EQ(a_->dump(), dump);
}

TEST_P(SyncTwoDevicesTest, ARebaseAfterFiftyOneEventsLetsAThirdDeviceStartFromTheBaselineAlone) {
  b_->replica().addRecord(5, "from b");
  b_->replica().save();
  a_->leech();
  b_->leech();
  exchange();
  for (int i = 0; i < 51; ++i) {
    a_->replica().addRecord(1 + i % 10, "entry " + std::to_string(i), 1000 + i);
    a_->replica().save();
  }
  auto first = a_->merge();  // 51 events here: a rebase
  EXPECT_TRUE(first.rebased);
  b_->merge();
  a_->merge();
  EXPECT_EQ(a_->dump(), b_->dump());
  EXPECT_EQ(a_->replica().records().size(), 52u);
  // The 51 event files went into the baseline and left the cloud; what
  // stays is at most a merge event newer than the baseline.
  EXPECT_LE(filesIn(remote("events")).size(), 2u);

  // A third device from the baselines and data files alone: a copy of the
  // folder without its events.
  TempDir other;
  fs::create_directories(other / "MainStore" / "events");
  fs::create_directories(other / "MainStore" / "stores");
  fs::copy(remote("baselines"), other / "MainStore" / "baselines", fs::copy_options::recursive);
  fs::copy(remote("data"), other / "MainStore" / "data", fs::copy_options::recursive);
  SyncCloudDevice c(dir_ / "c", std::make_shared<SyncSharedFolderFileSystem>(other.path()));
  c.leech();
  c.merge();
  EXPECT_EQ(c.dump(), a_->dump());
}

INSTANTIATE_TEST_SUITE_P(Clouds, SyncTwoDevicesTest, ::testing::Values("folder", "apache", "rclone"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace lumeo
