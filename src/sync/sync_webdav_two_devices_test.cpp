// Two devices on this machine exchanging through one WebDAV server (Apache
// with mod_dav on 127.0.0.1): edits on both sides end the same on both, and
// after a rebase a third device that joins later starts from the baseline.
#include <gtest/gtest.h>

#include "platform/log.h"
#include "sync/sync_cloud_manager_test_device.h"
#include "sync/sync_webdav.h"
#include "sync/sync_webdav_test_servers.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::SyncCloudDevice;
using testing::TempDir;

namespace fs = std::filesystem;

std::shared_ptr<SyncCloudFileSystem> webDav(const std::string& url) {
  return std::make_shared<SyncWebDavFileSystem>(url, "", SyncWebDavFileSystem::Options(),
                                                std::make_shared<InMemorySecretStore>());
}

std::size_t filesIn(const fs::path& directory) {
  std::size_t count = 0;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(directory, ec)) {
    if (entry.is_regular_file() && entry.path().filename().string()[0] != '.') ++count;
  }
  return count;
}

TEST(SyncWebDavTwoDevicesTest, EditsOnBothSidesAndARebaseEndTheSameEverywhere) {
  testing::ApacheDavServer server;
  if (!server.unavailableReason().empty()) GTEST_SKIP() << server.unavailableReason();
  ScopedLogCapture log(kLogLevelError);
  TempDir dir;
  std::string url = server.makeFolder("Lumeo");
  SyncCloudDevice a(dir / "a", webDav(url));
  SyncCloudDevice b(dir / "b", webDav(url));

  a.replica().addRecord(6, "before sync on a");
  a.replica().save();
  b.replica().addRecord(4, "before sync on b");
  b.replica().save();
  a.leech();
  b.leech();
  auto exchange = [&] {
    a.merge();
    b.merge();
    a.merge();
  };
  exchange();
  EXPECT_EQ(a.dump(), b.dump());
  EXPECT_EQ(a.replica().records().size(), 2u);

  // Concurrent edits: a record on each side, a level changed on one side,
  // the other side's first record deleted on the other.
  a.replica().addRecord(8, "walk");
  a.replica().save();
  b.replica().addRecord(3, "run");
  b.replica().save();
  for (const auto& record : a.replica().records()) {
    if (record->moodDescription()->comment() == "before sync on b") record->setMoodLevel(9);
  }
  a.replica().save();
  for (const auto& record : b.replica().records()) {
    if (record->moodDescription()->comment() == "before sync on a") {
      ASSERT_FALSE(b.replica().context().deleteObject(record));
    }
  }
  b.replica().save();
  exchange();
  std::string dump = a.dump();
  EXPECT_EQ(dump, b.dump());
  EXPECT_EQ(a.replica().records().size(), 3u) << dump;
  EXPECT_NE(dump.find("level=9"), std::string::npos) << dump;

  // 51 events on one side: a rebase folds them into a baseline, and the
  // event files leave the server.
  for (int i = 0; i < 51; ++i) {
    a.replica().addRecord(1 + i % 10, "entry " + std::to_string(i), 1000 + i);
    a.replica().save();
  }
  EXPECT_TRUE(a.merge().rebased);
  b.merge();
  a.merge();
  EXPECT_EQ(a.dump(), b.dump());
  EXPECT_EQ(a.replica().records().size(), 54u);
  auto events = server.folder() / "Lumeo" / "MainStore" / "events";
  EXPECT_LE(filesIn(events), 3u);

  // A third device joins now and gets everything.
  SyncCloudDevice c(dir / "c", webDav(url));
  c.leech();
  c.merge();
  EXPECT_EQ(c.dump(), a.dump());
}

}  // namespace
}  // namespace lumeo
