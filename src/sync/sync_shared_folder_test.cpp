// The shared folder's own robustness: what sync clients leave behind, the
// folder's identity, the repair of duplicated directories, atomic uploads
// under injected faults, and a folder that hangs or goes away.
#include "sync/sync_shared_folder.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <fstream>

#include "platform/file_system.h"
#include "sync/sync_cloud_file_system_test_support.h"
#include "sync/sync_error.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::CloudCalls;
using testing::isCloudError;
using testing::readFile;
using testing::TempDir;
using testing::writeFile;

namespace fs = std::filesystem;

// Every name in a folder, hidden ones too, sorted.
std::vector<std::string> rawNames(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

class SharedFolderTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(folder_); }

  std::unique_ptr<SyncSharedFolderFileSystem> prepared(fs::path folder = {}) {
    auto cloud = std::make_unique<SyncSharedFolderFileSystem>(folder.empty() ? folder_ : folder);
    bool done = false;
    OptionalError error;
    cloud->performInitialPreparation([&](OptionalError e) {
      error = std::move(e);
      done = true;
    });
    testing::waitFor(done);
    EXPECT_FALSE(error) << error->toString();
    return cloud;
  }

  fs::path local(const std::string& contents) {
    auto path = dir_ / ("local" + std::to_string(next_++));
    writeFile(path, contents);
    return path;
  }

  TempDir dir_;
  fs::path folder_ = dir_ / "Nextcloud" / "Lumeo";
  int next_ = 0;
};

TEST(SharedFolderIgnoredEntries, SyncClientsDebrisIsIgnoredAndLumeosNamesAreNot) {
  const std::vector<std::string> ignored = {
      ".stfolder",
      ".syncthing.12_abc_3.syncevent.tmp",
      "~syncthing~12_abc_3.syncevent.tmp",
      "12_abc_3.sync-conflict-20261123-101010-ABCDEFG.syncevent",
      "12_abc_3 (Ana's conflicted copy 2026-11-23).syncevent",
      "12_abc_3 (conflicted copy 2026-11-23 101010).syncevent",
      "12_abc_3_conflict-20261123-101010.syncevent",
      ".~lock.12_abc_3.syncevent#",
      ".12_abc_3.syncevent.~1a2b",
      "12_abc_3.syncevent.part",
      "12_abc_3.syncevent.nextcloud",
      "photo.jpg.crdownload",
      ".dropbox.cache",
      ".lumeo-partial-12_abc_3.syncevent.0123456789abcdef-1",
  };
  for (const auto& name : ignored)
    EXPECT_TRUE(SyncSharedFolderFileSystem::isIgnoredEntry(name, false, 10)) << name;
  const std::vector<std::string> kept = {
      "12_abc_3.syncevent",
      "0_baseline-id_1_abc.syncevent",
      "0123456789abcdef0123.jpg",
      "MainStore",
      "stores",
      "A1B2-C3D4-store",
      "data",
  };
  for (const auto& name : kept)
    EXPECT_FALSE(SyncSharedFolderFileSystem::isIgnoredEntry(name, false, 10)) << name;
  // Empty files are still arriving; empty directories are directories.
  EXPECT_TRUE(SyncSharedFolderFileSystem::isIgnoredEntry("12_abc_3.syncevent", false, 0));
  EXPECT_FALSE(SyncSharedFolderFileSystem::isIgnoredEntry("events", true, 0));
}

TEST_F(SharedFolderTest, ListingsSkipDebrisAndLeaveItInPlace) {
  auto cloud = prepared();
  CloudCalls calls(*cloud);
  fs::create_directories(folder_ / "MainStore" / "events");
  auto events = folder_ / "MainStore" / "events";
  writeFile(events / "12_abc_3.syncevent", "event");
  writeFile(events / "12_abc_3.sync-conflict-20261123-101010-ABCDEFG.syncevent", "event");
  writeFile(events / "13_abc_4.syncevent.part", "ev");
  writeFile(events / "14_abc_5.syncevent", "");
  writeFile(events / ".syncthing.15_abc_6.syncevent.tmp", "e");
  fs::create_directories(events / "sub (conflicted copy 2026-11-23 101010)");

  EXPECT_EQ(calls.names("/MainStore/events"), std::vector<std::string>{"12_abc_3.syncevent"});
  // The empty file arrives whole later and is listed then.
  writeFile(events / "14_abc_5.syncevent", "event 5");
  EXPECT_EQ(calls.names("/MainStore/events"),
            (std::vector<std::string>{"12_abc_3.syncevent", "14_abc_5.syncevent"}));
  // Nothing was removed, and what is ignored can still be reached by name.
  EXPECT_EQ(rawNames(events).size(), 6u);
  EXPECT_TRUE(calls.exists("/MainStore/events/13_abc_4.syncevent.part").exists);
}

TEST_F(SharedFolderTest, TheIdentityIsMadeOnceAndFollowsTheFolder) {
  auto first = prepared();
  ASSERT_TRUE(first->identityToken());
  auto id = SyncSharedFolderFileSystem::readIdentity(folder_);
  ASSERT_TRUE(id);
  EXPECT_EQ(*first->identityToken(), SyncSharedFolderFileSystem::tokenForIdentity(*id));
  EXPECT_EQ(first->identityToken(), prepared()->identityToken())
      << "a second preparation made a new identity";

  // Another process, told what to expect, knows the token before reading.
  SyncSharedFolderFileSystem expecting(folder_, *id);
  EXPECT_EQ(expecting.identityToken(), first->identityToken());
  EXPECT_FALSE(expecting.isConnected());
  CloudCalls calls(expecting);
  EXPECT_TRUE(isCloudError(calls.mkdir("/x"), kSyncErrorCodeCloudNotConnected));
  ASSERT_FALSE(calls.connect());
  EXPECT_TRUE(expecting.isConnected());

  // The folder is swapped for another Lumeo folder: the token changes and
  // observers hear of it.
  int changes = 0;
  expecting.addIdentityTokenObserver([&] { ++changes; });
  fs::rename(folder_, dir_ / "old");
  fs::create_directories(folder_);
  auto other = prepared();
  ASSERT_FALSE(calls.connect());
  EXPECT_EQ(expecting.identityToken(), other->identityToken());
  EXPECT_NE(expecting.identityToken(), first->identityToken());
  MainLoop::shared().runUntil([&] { return changes > 0; }, 30);
  EXPECT_EQ(changes, 1);
}

TEST_F(SharedFolderTest, AnEmptyFolderInPlaceOfTheChosenOneIsNotANewCloud) {
  auto cloud = prepared();
  auto token = cloud->identityToken();
  CloudCalls calls(*cloud);
  ASSERT_FALSE(calls.mkdir("/MainStore"));

  // The drive is unmounted: its mount point is an empty folder.
  fs::rename(folder_, dir_ / "unmounted");
  fs::create_directories(folder_);
  EXPECT_TRUE(isCloudError(calls.connect(), kSyncErrorCodeServerError));
  EXPECT_FALSE(cloud->isConnected());
  EXPECT_EQ(cloud->identityToken(), token);
  EXPECT_TRUE(rawNames(folder_).empty()) << "nothing may be written into the empty folder";

  // Mounted again, all is as before.
  fs::remove(folder_);
  fs::rename(dir_ / "unmounted", folder_);
  ASSERT_FALSE(calls.connect());
  EXPECT_TRUE(calls.exists("/MainStore").isDirectory);
}

TEST_F(SharedFolderTest, AFolderThatGoesAwayEndsOperationsWithAClearError) {
  auto cloud = prepared();
  CloudCalls calls(*cloud);
  ASSERT_FALSE(calls.upload(local("x"), "/file"));
  fs::rename(folder_, dir_ / "away");
  EXPECT_TRUE(isCloudError(calls.upload(local("y"), "/file"), kSyncErrorCodeServerError));
  EXPECT_FALSE(cloud->isConnected());
  EXPECT_TRUE(isCloudError(calls.mkdir("/MainStore"), kSyncErrorCodeCloudNotConnected));
  EXPECT_FALSE(fs::exists(folder_));

  SyncSharedFolderFileSystem missing(dir_ / "never-made");
  CloudCalls missingCalls(missing);
  EXPECT_TRUE(isCloudError(missingCalls.connect(), kSyncErrorCodeServerError));
  writeFile(dir_ / "a-file", "x");
  SyncSharedFolderFileSystem file(dir_ / "a-file");
  CloudCalls fileCalls(file);
  EXPECT_TRUE(isCloudError(fileCalls.connect(), kSyncErrorCodeServerError));
}

TEST_F(SharedFolderTest, DuplicatedDirectoriesAreMergedBackIntoTheOriginal) {
  auto cloud = prepared();
  CloudCalls calls(*cloud);
  auto store = folder_ / "MainStore";
  fs::create_directories(store / "events");
  writeFile(store / "events" / "1_a_1.syncevent", "original");
  auto duplicate = folder_ / "MainStore 2";
  fs::create_directories(duplicate / "events");
  fs::create_directories(duplicate / "baselines");
  writeFile(duplicate / "events" / "1_a_1.syncevent", "the duplicate's copy");
  writeFile(duplicate / "events" / "2_b_1.syncevent", "from b");
  writeFile(duplicate / "baselines" / "0_x_1_b.syncevent", "baseline");
  writeFile(duplicate / "events" / ".lumeo-partial-3_b_2.syncevent.00-1", "half");
  fs::create_directories(folder_ / "MainStore (1)" / "data");
  writeFile(folder_ / "MainStore (1)" / "data" / "photo.jpg", "jpeg");
  // Not duplicates: a tenth copy, and a sibling of the folder without the
  // ensemble in it.
  fs::create_directories(folder_ / "MainStore 10");
  fs::create_directories(dir_ / "Nextcloud" / "Lumeo 2" / "Other");
  // A sibling of the folder that holds the ensemble is a duplicate of it.
  fs::create_directories(dir_ / "Nextcloud" / "Lumeo 3" / "MainStore" / "stores");
  writeFile(dir_ / "Nextcloud" / "Lumeo 3" / "MainStore" / "stores" / "store-c", "registration");

  ASSERT_FALSE(calls.repair("/MainStore"));

  EXPECT_EQ(readFile(store / "events" / "1_a_1.syncevent"), "original");
  EXPECT_EQ(readFile(store / "events" / "2_b_1.syncevent"), "from b");
  EXPECT_EQ(readFile(store / "baselines" / "0_x_1_b.syncevent"), "baseline");
  EXPECT_EQ(readFile(store / "data" / "photo.jpg"), "jpeg");
  EXPECT_EQ(readFile(store / "stores" / "store-c"), "registration");
  EXPECT_EQ(rawNames(store / "events"), (std::vector<std::string>{"1_a_1.syncevent", "2_b_1.syncevent"}));
  EXPECT_FALSE(fs::exists(duplicate));
  EXPECT_FALSE(fs::exists(folder_ / "MainStore (1)"));
  EXPECT_FALSE(fs::exists(dir_ / "Nextcloud" / "Lumeo 3"));
  EXPECT_TRUE(fs::exists(folder_ / "MainStore 10"));
  EXPECT_TRUE(fs::exists(dir_ / "Nextcloud" / "Lumeo 2" / "Other"));
  // Nothing left to do the second time.
  ASSERT_FALSE(calls.repair("/MainStore"));
}

// Fails the nth file operation of an upload over an existing file and
// checks after each that the cloud holds the old file or the new one,
// whole, and no temporary file.
TEST_F(SharedFolderTest, AFailureAtAnyStepOfAnUploadLeavesTheOldFileOrTheNew) {
  auto cloud = prepared();
  CloudCalls calls(*cloud);
  ASSERT_FALSE(calls.mkdir("/MainStore"));
  auto target = folder_ / "MainStore" / "registration";
  writeFile(target, "old registration");
  auto source = local("new registration, longer than the old");
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  ScopedFileSystem scope(faults);
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    faults->failAt(n, EIO);
    auto error = calls.upload(source, "/MainStore/registration");
    auto contents = readFile(target);
    EXPECT_TRUE(contents == "old registration" || contents == "new registration, longer than the old")
        << contents;
    EXPECT_EQ(rawNames(folder_ / "MainStore"), std::vector<std::string>{"registration"});
    if (!faults->faultFired()) {
      EXPECT_FALSE(error);
      EXPECT_EQ(contents, "new registration, longer than the old");
      break;
    }
    // Only the last flush of the folder may fail without failing the upload.
    if (error) {
      EXPECT_TRUE(isCloudError(error, kSyncErrorCodeFileAccessFailed, EIO));
    }
    writeFile(target, "old registration");
    ASSERT_LT(n, 50);
  }
}

TEST_F(SharedFolderTest, AFailureAtAnyStepOfADownloadLeavesTheLocalFileAsItWas) {
  auto cloud = prepared();
  CloudCalls calls(*cloud);
  writeFile(folder_ / "event", "from the cloud");
  auto target = dir_ / "work" / "event";
  fs::create_directories(target.parent_path());
  writeFile(target, "local");
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  ScopedFileSystem scope(faults);
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    faults->failAt(n, ENOSPC);
    auto error = calls.download("/event", target);
    auto contents = readFile(target);
    EXPECT_TRUE(contents == "local" || contents == "from the cloud") << contents;
    EXPECT_EQ(rawNames(target.parent_path()), std::vector<std::string>{"event"});
    if (!faults->faultFired()) break;
    if (error) {
      EXPECT_EQ(contents, "local");
    }
    writeFile(target, "local");
    ASSERT_LT(n, 50);
  }
}

// What survives a power cut. An upload's content is on disk before its
// name; the folder is flushed once after a run of uploads into it, before
// anything else touches the folder (a removal must never outlive the file
// that replaced what it removes) and when the file system goes away. A
// download lands in the engine's scratch space and is never flushed.
TEST_F(SharedFolderTest, UploadsAreFlushedBeforeTheirRenameAndTheFolderOnceAfterARun) {
  auto cloud = prepared();
  CloudCalls calls(*cloud);
  ASSERT_FALSE(calls.mkdir("/events"));
  auto first = local("first event");
  auto second = local("second event");
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  ScopedFileSystem scope(faults);
  faults->disarm();
  ASSERT_FALSE(calls.upload(first, "/events/1"));
  ASSERT_FALSE(calls.upload(second, "/events/2"));
  ASSERT_FALSE(calls.remove("/events/1"));
  auto ops = faults->operations();
  auto at = [&](const std::string& prefix, std::size_t from = 0) {
    for (std::size_t i = from; i < ops.size(); ++i)
      if (ops[i].rfind(prefix, 0) == 0) return i;
    return ops.size();
  };
  auto events = (folder_ / "events").string();
  std::size_t firstFlush = at("fsync " + events + "/.lumeo-partial-1.");
  std::size_t firstRename = at("rename " + events + "/.lumeo-partial-1.");
  std::size_t secondFlush = at("fsync " + events + "/.lumeo-partial-2.");
  std::size_t secondRename = at("rename " + events + "/.lumeo-partial-2.");
  std::size_t folderFlush = at("fsync folder " + events);
  std::size_t removal = at("remove " + events + "/1");
  std::string trace;
  for (const auto& op : ops) trace += op + "\n";
  ASSERT_LT(removal, ops.size()) << trace;
  EXPECT_LT(firstFlush, firstRename) << trace;
  EXPECT_LT(secondFlush, secondRename) << trace;
  EXPECT_GT(folderFlush, secondRename) << trace;
  EXPECT_LT(folderFlush, removal) << trace;
  EXPECT_EQ(at("fsync folder", folderFlush + 1), ops.size()) << trace;

  faults->disarm();
  auto copy = dir_ / "copy";
  ASSERT_FALSE(calls.download("/events/2", copy));
  EXPECT_EQ(readFile(copy), "second event");
  ops = faults->operations();
  EXPECT_EQ(at("fsync"), ops.size()) << "a download flushed: " << ops[at("fsync")];

  faults->disarm();
  ASSERT_FALSE(calls.upload(first, "/events/3"));
  cloud.reset();
  ops = faults->operations();
  EXPECT_LT(at("fsync folder " + events), ops.size()) << "the last run of uploads was never flushed";
}

// A file system whose reads hang until released, like a network share that
// stopped answering.
class HangingFileSystem : public FileSystemWrapper {
 public:
  HangingFileSystem() : FileSystemWrapper(std::make_shared<PosixFileSystem>()) {}
  FileResult<std::vector<std::uint8_t>> readFile(const fs::path& path) override {
    std::unique_lock lock(mutex_);
    condition_.wait(lock, [&] { return released_; });
    return FileSystemWrapper::readFile(path);
  }
  void release() {
    std::lock_guard lock(mutex_);
    released_ = true;
    condition_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool released_ = false;
};

TEST_F(SharedFolderTest, AFolderThatStopsAnsweringEndsTheCallAfterItsTimeout) {
  prepared();
  SyncSharedFolderFileSystem cloud(folder_, std::nullopt, {.operationTimeout = 0.5});
  CloudCalls calls(cloud);
  ASSERT_FALSE(calls.connect());
  writeFile(folder_ / "event", "contents");
  auto hanging = std::make_shared<HangingFileSystem>();
  {
    ScopedFileSystem scope(hanging);
    auto started = std::chrono::steady_clock::now();
    EXPECT_TRUE(isCloudError(calls.download("/event", dir_ / "copy"), kSyncErrorCodeFileCoordinatorTimedOut));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(60));
    hanging->release();
  }
  // The late answer is dropped; the next call works.
  EXPECT_FALSE(calls.download("/event", dir_ / "copy2"));
  EXPECT_EQ(readFile(dir_ / "copy2"), "contents");
}

}  // namespace
}  // namespace lumeo
