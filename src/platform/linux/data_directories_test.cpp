// Where Lumeo's folders land: the --home override over LUMEO_HOME over the
// XDG variables, relative or empty variables ignored, and create() making the
// folders or saying that it could not.
#include "platform/linux/data_directories.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

class DataDirectoriesTest : public ::testing::Test {
 protected:
  static constexpr const char* kVariables[] = {"HOME", "LUMEO_HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME",
                                               "XDG_RUNTIME_DIR"};

  void SetUp() override {
    for (const char* name : kVariables) {
      if (const char* v = std::getenv(name)) saved_[name] = v;
      unsetenv(name);
    }
    setenv("HOME", (temp_.path() / "user").c_str(), 1);
    DataDirectories::setHomeOverride(std::nullopt);
  }

  void TearDown() override {
    DataDirectories::setHomeOverride(std::nullopt);
    for (const char* name : kVariables) {
      auto it = saved_.find(name);
      if (it != saved_.end()) {
        setenv(name, it->second.c_str(), 1);
      } else {
        unsetenv(name);
      }
    }
  }

  testing::TempDir temp_;
  std::map<std::string, std::string> saved_;
};

TEST_F(DataDirectoriesTest, XdgDefaultsUnderTheUsersHome) {
  const auto home = temp_.path() / "user";
  DataDirectories d = DataDirectories::current();
  EXPECT_EQ(d.library, home / ".local/share/lumeo/Library");
  EXPECT_EQ(d.documents, home / ".local/share/lumeo/Documents");
  EXPECT_EQ(d.applicationSupport, home / ".local/share/lumeo/Application Support");
  EXPECT_EQ(d.defaultsFile, home / ".config/lumeo/defaults.plist");
  EXPECT_EQ(d.temporary, std::filesystem::path("/tmp") / ("lumeo-" + std::to_string(getuid())));
}

TEST_F(DataDirectoriesTest, XdgVariablesMoveEachFolder) {
  setenv("XDG_DATA_HOME", (temp_.path() / "data").c_str(), 1);
  setenv("XDG_CONFIG_HOME", (temp_.path() / "config").c_str(), 1);
  setenv("XDG_RUNTIME_DIR", (temp_.path() / "run").c_str(), 1);
  DataDirectories d = DataDirectories::current();
  EXPECT_EQ(d.library, temp_.path() / "data/lumeo/Library");
  EXPECT_EQ(d.applicationSupport, temp_.path() / "data/lumeo/Application Support");
  EXPECT_EQ(d.defaultsFile, temp_.path() / "config/lumeo/defaults.plist");
  EXPECT_EQ(d.temporary, temp_.path() / "run/lumeo");
}

TEST_F(DataDirectoriesTest, RelativeOrEmptyXdgVariablesAreIgnored) {
  setenv("XDG_DATA_HOME", "relative/data", 1);
  setenv("XDG_CONFIG_HOME", "", 1);
  DataDirectories d = DataDirectories::current();
  EXPECT_EQ(d.library, temp_.path() / "user/.local/share/lumeo/Library");
  EXPECT_EQ(d.defaultsFile, temp_.path() / "user/.config/lumeo/defaults.plist");
}

TEST_F(DataDirectoriesTest, LumeoHomePutsEverythingInOneFolder) {
  setenv("XDG_DATA_HOME", (temp_.path() / "data").c_str(), 1);
  setenv("LUMEO_HOME", (temp_.path() / "device-a").c_str(), 1);
  DataDirectories d = DataDirectories::current();
  for (const auto& p : {d.library, d.documents, d.applicationSupport, d.temporary, d.defaultsFile}) {
    EXPECT_EQ(p.parent_path(), temp_.path() / "device-a") << p;
  }
  EXPECT_EQ(d.defaultsFile.filename(), "defaults.plist");
}

TEST_F(DataDirectoriesTest, RelativeLumeoHomeIsTakenFromTheWorkingFolder) {
  setenv("LUMEO_HOME", "phone", 1);
  DataDirectories d = DataDirectories::current();
  EXPECT_TRUE(d.library.is_absolute());
  EXPECT_EQ(d.library, std::filesystem::current_path() / "phone" / "Library");
}

TEST_F(DataDirectoriesTest, HomeOverrideWinsOverLumeoHomeUntilCleared) {
  setenv("LUMEO_HOME", (temp_.path() / "from-env").c_str(), 1);
  DataDirectories::setHomeOverride(temp_.path() / "from-option");
  EXPECT_EQ(DataDirectories::current().library, temp_.path() / "from-option/Library");
  DataDirectories::setHomeOverride(std::nullopt);
  EXPECT_EQ(DataDirectories::current().library, temp_.path() / "from-env/Library");
}

TEST_F(DataDirectoriesTest, CreateMakesEveryFolderAndReportsWhatItCannot) {
  DataDirectories d = DataDirectories::underHome(temp_.path() / "fresh");
  ASSERT_TRUE(d.create());
  for (const auto& p :
       {d.library, d.documents, d.applicationSupport, d.temporary, d.defaultsFile.parent_path()}) {
    EXPECT_TRUE(std::filesystem::is_directory(p)) << p;
  }
  EXPECT_FALSE(std::filesystem::exists(d.defaultsFile));  // a file, not a folder
  EXPECT_TRUE(d.create());                                // again: nothing to do

  // A plain file where a folder must go.
  testing::writeFile(temp_.path() / "blocked", "not a folder");
  EXPECT_FALSE(DataDirectories::underHome(temp_.path() / "blocked").create());
}

mode_t modeOf(const std::filesystem::path& path) {
  struct stat st {};
  ::stat(path.c_str(), &st);
  return st.st_mode & 07777;
}

// The journal holds a person's moods and photos: on a shared computer no
// other user may read it, whatever umask the session has.
TEST_F(DataDirectoriesTest, FoldersArePrivateWhateverTheUmask) {
  const mode_t previous = ::umask(022);
  DataDirectories d = DataDirectories::underHome(temp_.path() / "fresh" / "home");
  ASSERT_TRUE(d.create());
  for (const auto& p : {d.library, d.documents, d.applicationSupport, d.temporary, d.library.parent_path(),
                        temp_.path() / "fresh"}) {
    EXPECT_EQ(modeOf(p), 0700u) << p;
  }
  ::umask(previous);
}

TEST_F(DataDirectoriesTest, LaunchTightensAJournalThatAnEarlierVersionLeftReadable) {
  const mode_t previous = ::umask(022);
  DataDirectories d = DataDirectories::underHome(temp_.path() / "home");
  for (const auto& p : {d.library / "imageStore", d.documents, d.applicationSupport, d.temporary}) {
    std::filesystem::create_directories(p);
  }
  for (const char* name : {"Model.sqlite", "Model.sqlite-journal", "Model.sqlite-wal", "Model.sqlite-shm",
                           "mood.plist", "imageStore/0123456789abcdef01234567.jpg"}) {
    testing::writeFile(d.library / name, "x");
  }
  testing::writeFile(d.defaultsFile, "<plist/>");
  ASSERT_EQ(modeOf(d.library), 0755u);
  ASSERT_EQ(modeOf(d.library / "Model.sqlite"), 0644u);

  ASSERT_TRUE(d.create());
  for (const auto& p :
       {d.library, d.library / "imageStore", d.documents, d.applicationSupport, d.temporary}) {
    EXPECT_EQ(modeOf(p), 0700u) << p;
  }
  for (const char* name :
       {"Model.sqlite", "Model.sqlite-journal", "Model.sqlite-wal", "Model.sqlite-shm", "mood.plist"}) {
    EXPECT_EQ(modeOf(d.library / name), 0600u) << name;
  }
  EXPECT_EQ(modeOf(d.defaultsFile), 0600u);
  // The home folder is the user's choice and keeps its mode.
  EXPECT_EQ(modeOf(temp_.path() / "home"), 0755u);
  ::umask(previous);
}

}  // namespace
}  // namespace lumeo
