// One suite for every cloud file system: what the engine relies on, run the
// same way against each implementation, as backup tools test each of their
// backends. A backend that cannot run here (its server is not installed)
// skips with the reason.
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <random>

#include "sync/sync_cloud_file_system.h"
#include "sync/sync_cloud_file_system_test_support.h"
#include "sync/sync_error.h"
#include "sync/sync_local_cloud_file_system.h"
#include "sync/sync_shared_folder.h"
#include "sync/sync_webdav.h"
#include "sync/sync_webdav_test_servers.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using testing::CloudCalls;
using testing::isCloudError;
using testing::TempDir;

// A place where a fresh, empty cloud of one kind can be had.
class CloudBackend {
 public:
  virtual ~CloudBackend() = default;
  // Why this backend cannot run here, or "".
  virtual std::string unavailableReason() { return {}; }
  // A connected-to-nothing-yet file system on an empty root.
  virtual std::unique_ptr<SyncCloudFileSystem> makeFileSystem() = 0;
};

class LocalBackend : public CloudBackend {
 public:
  std::unique_ptr<SyncCloudFileSystem> makeFileSystem() override {
    auto root = dir_.path() / ("cloud" + std::to_string(next_++));
    std::filesystem::create_directories(root);
    return std::make_unique<SyncLocalCloudFileSystem>(root);
  }

 private:
  TempDir dir_;
  int next_ = 0;
};

class SharedFolderBackend : public CloudBackend {
 public:
  std::unique_ptr<SyncCloudFileSystem> makeFileSystem() override {
    auto root = dir_.path() / ("Nextcloud " + std::to_string(next_++)) / "Lumeo";
    std::filesystem::create_directories(root);
    return std::make_unique<SyncSharedFolderFileSystem>(root);
  }

 private:
  TempDir dir_;
  int next_ = 0;
};

// One server of each kind for the whole run, a new folder on it per test.
template <class Server>
class WebDavBackend : public CloudBackend {
 public:
  std::string unavailableReason() override { return server().unavailableReason(); }
  std::unique_ptr<SyncCloudFileSystem> makeFileSystem() override {
    auto& s = server();
    auto url = s.makeFolder("test " + std::to_string(next()));
    auto secrets = std::make_shared<InMemorySecretStore>();
    if (!s.user().empty()) (void)secrets->add(syncWebDavCredentialKey(url, s.user()), "test", s.password());
    return std::make_unique<SyncWebDavFileSystem>(url, s.user(), SyncWebDavFileSystem::Options(), secrets);
  }

 private:
  static Server& server() {
    static Server instance;
    return instance;
  }
  static int next() {
    static int n = 0;
    return n++;
  }
};

struct BackendParam {
  std::string name;
  std::function<std::unique_ptr<CloudBackend>()> make;
};

class CloudConformanceTest : public ::testing::TestWithParam<BackendParam> {
 protected:
  void SetUp() override {
    backend_ = GetParam().make();
    if (auto reason = backend_->unavailableReason(); !reason.empty()) GTEST_SKIP() << reason;
    fs_ = backend_->makeFileSystem();
    calls_ = std::make_unique<CloudCalls>(*fs_);
    ASSERT_FALSE(calls_->connect());
    ASSERT_TRUE(fs_->isConnected());
  }

  std::filesystem::path localFile(const std::string& contents) {
    auto path = local_ / ("file" + std::to_string(nextLocal_++));
    testing::writeFile(path, contents);
    return path;
  }

  std::string downloaded(const std::string& cloudPath) {
    auto path = local_ / ("download" + std::to_string(nextLocal_++));
    auto error = calls_->download(cloudPath, path);
    EXPECT_FALSE(error) << error->toString();
    return testing::readFile(path);
  }

  CloudCalls& cloud() { return *calls_; }

  std::unique_ptr<CloudBackend> backend_;
  std::unique_ptr<SyncCloudFileSystem> fs_;
  std::unique_ptr<CloudCalls> calls_;
  TempDir local_;
  int nextLocal_ = 0;
};

TEST_P(CloudConformanceTest, DirectoriesAreMadeOneLevelAtATime) {
  EXPECT_TRUE(cloud().exists("/").isDirectory);
  EXPECT_FALSE(cloud().exists("/MainStore").exists);
  ASSERT_FALSE(cloud().mkdir("/MainStore"));
  auto made = cloud().exists("/MainStore");
  EXPECT_TRUE(made.exists && made.isDirectory);
  EXPECT_FALSE(made.error);

  // No intermediate directories, and no second creation.
  EXPECT_TRUE(isCloudError(cloud().mkdir("/Other/events"), kSyncErrorCodeFileAccessFailed, ENOENT));
  EXPECT_FALSE(cloud().exists("/Other").exists);
  EXPECT_TRUE(isCloudError(cloud().mkdir("/MainStore"), kSyncErrorCodeFileAccessFailed, EEXIST));
  ASSERT_FALSE(cloud().mkdir("/MainStore/events"));
  EXPECT_EQ(cloud().names("/MainStore"), std::vector<std::string>{"events/"});
}

TEST_P(CloudConformanceTest, ListingsHoldZeroOneAndManyEntriesWithTheirSizes) {
  ASSERT_FALSE(cloud().mkdir("/d"));
  EXPECT_TRUE(cloud().list("/d").empty());

  ASSERT_FALSE(cloud().upload(localFile("abc"), "/d/one.syncevent"));
  auto one = cloud().list("/d");
  ASSERT_EQ(one.size(), 1u);
  ASSERT_NE(one[0].file(), nullptr);
  EXPECT_EQ(one[0].file()->name, "one.syncevent");
  EXPECT_EQ(one[0].file()->path, "/d/one.syncevent");
  EXPECT_EQ(one[0].file()->size, 3u);

  ASSERT_FALSE(cloud().mkdir("/many"));
  auto source = localFile("x");
  std::vector<std::string> expected;
  for (int i = 0; i < 500; ++i) {
    std::string name = std::to_string(1000 + i) + "_store.syncevent";
    ASSERT_FALSE(cloud().upload(source, "/many/" + name));
    expected.push_back(name);
  }
  ASSERT_FALSE(cloud().mkdir("/many/sub"));
  ASSERT_FALSE(cloud().upload(source, "/many/sub/hidden-by-depth"));
  expected.push_back("sub/");
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(cloud().names("/many"), expected);
  for (const auto& item : cloud().list("/many")) {
    if (item.isDirectory()) {
      EXPECT_EQ(item.path(), "/many/sub");
      EXPECT_TRUE(item.directory()->contents.empty());
    }
  }
}

TEST_P(CloudConformanceTest, FilesOfZeroOneAndFiveMillionBytesComeBackByteForByte) {
  std::string big(5 * 1024 * 1024, '\0');
  std::mt19937 random(7);
  for (auto& c : big) c = static_cast<char>(random());
  for (const std::string& contents : {std::string(), std::string("\x01"), big}) {
    SCOPED_TRACE(contents.size());
    std::string path = "/f" + std::to_string(contents.size());
    ASSERT_FALSE(cloud().upload(localFile(contents), path));
    auto there = cloud().exists(path);
    EXPECT_TRUE(there.exists && !there.isDirectory);
    EXPECT_TRUE(downloaded(path) == contents);
  }
}

TEST_P(CloudConformanceTest, AnUploadOntoAFileReplacesItOrFailsLeavingItAsItWas) {
  ASSERT_FALSE(cloud().upload(localFile("old"), "/file"));
  auto error = cloud().upload(localFile("new contents"), "/file");
  if (fs_->replacesOnUpload()) {
    EXPECT_FALSE(error);
    EXPECT_EQ(downloaded("/file"), "new contents");
  } else {
    EXPECT_TRUE(isCloudError(error, kSyncErrorCodeFileAccessFailed, EEXIST));
    EXPECT_EQ(downloaded("/file"), "old");
  }
  EXPECT_EQ(cloud().names("/"), std::vector<std::string>{"file"});
}

TEST_P(CloudConformanceTest, ADownloadReplacesTheLocalFileAndAFailedOneLeavesIt) {
  ASSERT_FALSE(cloud().upload(localFile("cloud"), "/file"));
  auto target = localFile("local, longer than the cloud's");
  ASSERT_FALSE(cloud().download("/file", target));
  EXPECT_EQ(testing::readFile(target), "cloud");

  testing::writeFile(target, "kept");
  EXPECT_TRUE(isCloudError(cloud().download("/missing", target), kSyncErrorCodeFileAccessFailed, ENOENT));
  EXPECT_EQ(testing::readFile(target), "kept");
}

TEST_P(CloudConformanceTest, RemovingTakesFilesAndWholeDirectories) {
  ASSERT_FALSE(cloud().mkdir("/MainStore"));
  ASSERT_FALSE(cloud().mkdir("/MainStore/events"));
  ASSERT_FALSE(cloud().upload(localFile("1"), "/MainStore/events/a"));
  ASSERT_FALSE(cloud().upload(localFile("2"), "/MainStore/b"));

  ASSERT_FALSE(cloud().remove("/MainStore/b"));
  EXPECT_FALSE(cloud().exists("/MainStore/b").exists);
  ASSERT_FALSE(cloud().remove("/MainStore"));
  EXPECT_FALSE(cloud().exists("/MainStore").exists);
  EXPECT_TRUE(cloud().list("/").empty());
}

TEST_P(CloudConformanceTest, MissingPathsAndMissingParentsAreClearErrors) {
  EXPECT_TRUE(isCloudError(cloud().remove("/missing"), kSyncErrorCodeFileAccessFailed, ENOENT));
  OptionalError listError;
  EXPECT_TRUE(cloud().names("/missing", &listError).empty());
  EXPECT_TRUE(isCloudError(listError, kSyncErrorCodeFileAccessFailed, ENOENT));
  EXPECT_TRUE(isCloudError(cloud().upload(localFile("x"), "/no/such/parent"), kSyncErrorCodeFileAccessFailed,
                           ENOENT));
  EXPECT_FALSE(cloud().exists("/no").exists);
  EXPECT_TRUE(
      isCloudError(cloud().download("/missing", local_ / "d"), kSyncErrorCodeFileAccessFailed, ENOENT));
  EXPECT_FALSE(std::filesystem::exists(local_ / "d"));
  // A local file that is not there cannot be uploaded, and nothing appears.
  EXPECT_TRUE(isCloudError(cloud().upload(local_ / "absent", "/x"), kSyncErrorCodeFileAccessFailed, ENOENT));
  EXPECT_FALSE(cloud().exists("/x").exists);
}

TEST_P(CloudConformanceTest, NamesWithSpacesAndLettersBeyondAsciiKeepTheirSpelling) {
  const std::string dir = "/Mon journal d\u2019\u00e9t\u00e9 2";
  const std::string file = dir + "/\u65e5\u8a18 #1 + 50% & more.syncevent";
  ASSERT_FALSE(cloud().mkdir(dir));
  ASSERT_FALSE(cloud().upload(localFile("\u00e9t\u00e9"), file));
  auto top = cloud().list("/");
  ASSERT_EQ(top.size(), 1u);
  EXPECT_EQ(top[0].path(), dir);
  auto inside = cloud().list(dir);
  ASSERT_EQ(inside.size(), 1u);
  EXPECT_EQ(inside[0].path(), file);
  EXPECT_EQ(inside[0].name(), "\u65e5\u8a18 #1 + 50% & more.syncevent");
  EXPECT_EQ(downloaded(file), "\u00e9t\u00e9");
  EXPECT_TRUE(cloud().exists(file).exists);
  ASSERT_FALSE(cloud().remove(dir));
  EXPECT_TRUE(cloud().list("/").empty());
}

TEST_P(CloudConformanceTest, HiddenNamesAreLeftOutOfListings) {
  ASSERT_FALSE(cloud().upload(localFile("x"), "/.hidden"));
  ASSERT_FALSE(cloud().upload(localFile("x"), "/shown"));
  EXPECT_EQ(cloud().names("/"), std::vector<std::string>{"shown"});
  EXPECT_TRUE(cloud().exists("/.hidden").exists);
}

TEST_P(CloudConformanceTest, PathsThatLeaveTheRootAreRefused) {
  for (std::string path : {"relative", "/../outside", "/a/../../outside", ""}) {
    SCOPED_TRACE(path);
    EXPECT_TRUE(isCloudError(cloud().upload(localFile("x"), path), kSyncErrorCodeFileAccessFailed, EINVAL));
    EXPECT_TRUE(isCloudError(cloud().mkdir(path), kSyncErrorCodeFileAccessFailed, EINVAL));
  }
  // The root itself is never removed.
  EXPECT_TRUE(isCloudError(cloud().remove("/"), kSyncErrorCodeFileAccessFailed, EINVAL));
  EXPECT_TRUE(cloud().exists("/").isDirectory);
}

std::vector<BackendParam> backends() {
  return {
      {"Local", [] { return std::make_unique<LocalBackend>(); }},
      {"SharedFolder", [] { return std::make_unique<SharedFolderBackend>(); }},
      {"ApacheWebDav", [] { return std::make_unique<WebDavBackend<testing::ApacheDavServer>>(); }},
      {"RcloneWebDav", [] { return std::make_unique<WebDavBackend<testing::RcloneDavServer>>(); }},
  };
}

INSTANTIATE_TEST_SUITE_P(AllFileSystems, CloudConformanceTest, ::testing::ValuesIn(backends()),
                         [](const auto& info) { return info.param.name; });

}  // namespace
}  // namespace lumeo
