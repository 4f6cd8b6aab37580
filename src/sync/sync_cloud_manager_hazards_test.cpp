// What sync clients do to a shared folder: conflict copies, partial
// downloads, zero-length placeholders, files arriving out of order, and a
// device whose clock runs a day ahead. Through all of it nothing is
// imported twice and nothing is lost.
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
using testing::SyncCloudDevice;
using testing::TempDir;

namespace fs = std::filesystem;

class SyncCloudHazardsTest : public ::testing::Test {
 protected:
  SyncCloudHazardsTest() {
    fs::create_directories(folder());
    a_ = std::make_unique<SyncCloudDevice>(dir_ / "a", open());
    b_ = std::make_unique<SyncCloudDevice>(dir_ / "b", open());
  }
  fs::path folder() const { return dir_ / "Nextcloud" / "Lumeo"; }
  fs::path remote(const std::string& directory) const { return folder() / "MainStore" / directory; }
  std::shared_ptr<SyncCloudFileSystem> open() {
    return std::make_shared<SyncSharedFolderFileSystem>(folder());
  }

  // Each record's comment, once per record: duplicates show as repeats.
  std::multiset<std::string> comments(SyncCloudDevice& device) {
    std::multiset<std::string> out;
    for (const auto& record : device.replica().records())
      out.insert(record->moodDescription()->comment().value_or(""));
    return out;
  }

  ScopedLogCapture log_{kLogLevelError};
  TempDir dir_;
  std::unique_ptr<SyncCloudDevice> a_;
  std::unique_ptr<SyncCloudDevice> b_;
};

TEST_F(SyncCloudHazardsTest, DebrisOfSyncClientsAndAClockADayAheadLoseNothingAndDuplicateNothing) {
  a_->leech();
  b_->leech();
  a_->merge();
  b_->merge();

  // Device a runs a day ahead while it records and syncs.
  {
    ScopedSimulatedClock ahead(Date::now().dateByAddingTimeInterval(86400));
    for (int i = 0; i < 3; ++i) {
      a_->replica().addRecord(5 + i, "ahead " + std::to_string(i));
      a_->replica().save();
    }
    a_->merge();
  }
  b_->replica().addRecord(2, "on time");
  b_->replica().save();

  // What the clients did to a's files before b sees them: a conflict copy
  // of each (Syncthing and Dropbox style), one file still arriving (a
  // zero-length placeholder under its own name and the partial download
  // beside it), and one that has not arrived at all.
  std::vector<std::string> names;
  for (const auto& name : filesIn(remote("events"))) names.push_back(name);
  syncSortFilenamesByGlobalCount(names);
  ASSERT_EQ(names.size(), 3u);
  std::string stem0 = names[0].substr(0, names[0].size() - 10);
  fs::copy_file(remote("events") / names[0],
                remote("events") / (stem0 + ".sync-conflict-20261123-101010-ABCDEFG.syncevent"));
  fs::copy_file(remote("events") / names[0], remote("events") / (stem0 + " (conflicted copy).syncevent"));
  fs::path holding = dir_ / "holding";
  fs::create_directories(holding);
  fs::rename(remote("events") / names[1], holding / names[1]);
  fs::rename(remote("events") / names[2], holding / names[2]);
  std::ofstream(remote("events") / names[1]).close();  // zero-length placeholder
  std::string bytes = testing::readFile(holding / names[1]);
  std::ofstream(remote("events") / (".~" + names[1] + ".part"), std::ios::binary) << bytes.substr(0, 40);
  std::ofstream(remote("events") / (names[1] + ".part"), std::ios::binary) << bytes.substr(0, 40);

  auto partial = b_->tryMerge();
  ASSERT_TRUE(std::holds_alternative<SyncCloudMergeReport>(partial)) << std::get<Error>(partial).toString();
  EXPECT_TRUE(std::get<SyncCloudMergeReport>(partial).skippedFiles.empty());
  EXPECT_EQ(comments(*b_), (std::multiset<std::string>{"ahead 0", "on time"}));
  // The placeholder is left for the client to fill.
  EXPECT_TRUE(fs::exists(remote("events") / names[1]));

  // The client finishes, in the wrong order: the last file first.
  fs::rename(holding / names[2], remote("events") / names[2]);
  b_->restart(open());
  auto waiting = b_->tryMerge();
  ASSERT_TRUE(std::holds_alternative<Error>(waiting));
  EXPECT_EQ(std::get<Error>(waiting).code, kSyncErrorCodeDiscontinuousRevisions);
  fs::rename(holding / names[1], remote("events") / names[1]);
  fs::remove(remote("events") / (names[1] + ".part"));
  fs::remove(remote("events") / (".~" + names[1] + ".part"));
  b_->restart(open());
  b_->merge();
  a_->restart(open());
  a_->merge();
  b_->merge();

  std::multiset<std::string> expected{"ahead 0", "ahead 1", "ahead 2", "on time"};
  EXPECT_EQ(comments(*a_), expected);
  EXPECT_EQ(comments(*b_), expected);
  EXPECT_EQ(a_->dump(), b_->dump());
  EXPECT_EQ(a_->dump().find("DUPLICATE"), std::string::npos);
  // Copies that the clients made are theirs to clear: still there.
  EXPECT_TRUE(fs::exists(remote("events") / (stem0 + " (conflicted copy).syncevent")));
  EXPECT_TRUE(fs::exists(remote("events") / (stem0 + ".sync-conflict-20261123-101010-ABCDEFG.syncevent")));
}

TEST_F(SyncCloudHazardsTest, ADuplicatedEnsembleDirectoryIsMergedBackAndItsFilesArrive) {
  a_->leech();
  a_->merge();
  b_->leech();
  // Before the clients met, b made its own "MainStore"; one client kept both.
  b_->replica().addRecord(3, "in the copy");
  b_->replica().save();
  fs::rename(folder() / "MainStore", folder() / "MainStore 2");
  b_->merge();  // writes a new "MainStore"
  a_->merge();  // repairs: "MainStore 2" goes back into "MainStore"
  b_->merge();
  a_->merge();
  EXPECT_FALSE(fs::exists(folder() / "MainStore 2"));
  EXPECT_EQ(a_->dump(), b_->dump());
  EXPECT_EQ(comments(*a_), std::multiset<std::string>{"in the copy"});
}

}  // namespace
}  // namespace lumeo
