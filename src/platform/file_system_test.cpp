// The file-system seam: the POSIX implementation keeps each method's
// contract (modes whatever the umask, errno values as error codes), and the
// fault injector fails exactly the operation it was told to.
#include "platform/file_system.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : previous_(::umask(mask)) {}
  ~ScopedUmask() { ::umask(previous_); }

 private:
  mode_t previous_;
};

template <class T>
int errorCode(const FileResult<T>& result) {
  const auto* error = std::get_if<Error>(&result);
  if (!error) return 0;
  EXPECT_EQ(error->domain, kPOSIXErrorDomain);
  return static_cast<int>(error->code);
}

int errorCode(const OptionalError& error) {
  if (!error) return 0;
  EXPECT_EQ(error->domain, kPOSIXErrorDomain);
  return static_cast<int>(error->code);
}

void writeThrough(FileSystem& fs, const std::filesystem::path& path, const std::string& text) {
  auto file = fs.createFile(path, kPrivateFileMode);
  ASSERT_EQ(errorCode(file), 0);
  auto& f = *std::get<std::unique_ptr<WritableFile>>(file);
  ASSERT_FALSE(f.append(text.data(), text.size()));
  ASSERT_FALSE(f.sync());
  ASSERT_FALSE(f.close());
  ASSERT_FALSE(f.close());  // a second close does nothing
}

TEST(PosixFileSystem, MakesPrivateFilesAndFoldersWhateverTheUmask) {
  testing::TempDir dir;
  ScopedUmask mask(0);
  PosixFileSystem fs;
  ASSERT_FALSE(fs.makeFolders(dir / "a" / "b", kPrivateFolderMode));
  for (auto folder : {dir / "a", dir / "a" / "b"}) {
    auto status = std::get<FileStatus>(fs.status(folder));
    EXPECT_TRUE(status.isFolder);
    EXPECT_EQ(status.permissions, 0700u);
  }
  writeThrough(fs, dir / "a" / "b" / "f", "hello");
  auto status = std::get<FileStatus>(fs.status(dir / "a" / "b" / "f"));
  EXPECT_FALSE(status.isFolder);
  EXPECT_EQ(status.permissions, 0600u);
  EXPECT_EQ(status.size, 5u);

  // A folder that is there stays as it is; a file in the way is refused.
  ASSERT_FALSE(fs.setPermissions(dir / "a", 0750));
  EXPECT_FALSE(fs.makeFolder(dir / "a", kPrivateFolderMode));
  EXPECT_EQ(std::get<FileStatus>(fs.status(dir / "a")).permissions, 0750u);
  EXPECT_EQ(errorCode(fs.makeFolder(dir / "a" / "b" / "f", kPrivateFolderMode)), EEXIST);
  EXPECT_EQ(errorCode(fs.makeFolders(dir / "a" / "b" / "f" / "g", kPrivateFolderMode)), ENOTDIR);
}

TEST(PosixFileSystem, ReportsEachFailureByItsErrno) {
  testing::TempDir dir;
  PosixFileSystem fs;
  writeThrough(fs, dir / "f", "x");
  EXPECT_EQ(errorCode(fs.createFile(dir / "f", kPrivateFileMode)), EEXIST);
  EXPECT_EQ(testing::readFile(dir / "f"), "x");
  EXPECT_EQ(errorCode(fs.readFile(dir / "missing")), ENOENT);
  EXPECT_EQ(errorCode(fs.readFile(dir.path())), EISDIR);
  EXPECT_EQ(errorCode(fs.removeFile(dir / "missing")), ENOENT);
  EXPECT_EQ(errorCode(fs.rename(dir / "missing", dir / "g")), ENOENT);
  EXPECT_EQ(errorCode(fs.listFolder(dir / "missing")), ENOENT);
  EXPECT_EQ(errorCode(fs.status(dir / "missing")), ENOENT);
  auto error = std::get<Error>(fs.readFile(dir / "missing"));
  EXPECT_EQ(error.userInfo.at("path").toString(), (dir / "missing").string());
}

TEST(PosixFileSystem, ListsRenamesAndRemoves) {
  testing::TempDir dir;
  PosixFileSystem fs;
  writeThrough(fs, dir / "one", "1");
  writeThrough(fs, dir / ".hidden", "2");
  ASSERT_FALSE(fs.makeFolder(dir / "sub", kPrivateFolderMode));
  auto entries = std::get<std::vector<FolderEntry>>(fs.listFolder(dir.path()));
  std::sort(entries.begin(), entries.end(), [](auto& a, auto& b) { return a.name < b.name; });
  EXPECT_EQ(entries, (std::vector<FolderEntry>{{".hidden", false}, {"one", false}, {"sub", true}}));

  ASSERT_FALSE(fs.rename(dir / ".hidden", dir / "one"));
  const auto bytes = std::get<std::vector<std::uint8_t>>(fs.readFile(dir / "one"));
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "2");
  ASSERT_FALSE(fs.removeFile(dir / "one"));
  EXPECT_FALSE(fs.exists(dir / "one"));
  EXPECT_FALSE(fs.syncFolder(dir.path()));
}

TEST(FaultInjectingFileSystem, FailsOnlyTheNthOperation) {
  testing::TempDir dir;
  auto faults = std::make_shared<FaultInjectingFileSystem>();
  writeThrough(*faults, dir / "a", "aaaa");
  EXPECT_EQ(faults->operationCount(), 4);  // create, write, fsync, close
  EXPECT_FALSE(faults->faultFired());

  faults->failAt(2, EACCES);
  EXPECT_EQ(errorCode(faults->status(dir / "a")), 0);
  EXPECT_EQ(errorCode(faults->readFile(dir / "a")), EACCES);
  EXPECT_TRUE(faults->faultFired());
  EXPECT_EQ(errorCode(faults->readFile(dir / "a")), 0);
  EXPECT_EQ(faults->operations(), (std::vector<std::string>{"stat " + (dir / "a").string(),
                                                            "read " + (dir / "a").string() + " (fails)",
                                                            "read " + (dir / "a").string()}));

  // A failed write has stored part of the data, as on a full disk; the
  // other steps fail without touching anything.
  faults->failAt(2, ENOSPC);
  auto file = faults->createFile(dir / "b", kPrivateFileMode);
  auto& f = *std::get<std::unique_ptr<WritableFile>>(file);
  EXPECT_EQ(errorCode(f.append("12345678", 8)), ENOSPC);
  EXPECT_FALSE(f.close());
  EXPECT_EQ(testing::readFile(dir / "b"), "1234");

  faults->failAt(1, EIO);
  EXPECT_EQ(errorCode(faults->rename(dir / "a", dir / "c")), EIO);
  EXPECT_EQ(testing::readFile(dir / "a"), "aaaa");
  faults->failAt(1, EIO);
  EXPECT_EQ(errorCode(faults->removeFile(dir / "a")), EIO);
  EXPECT_TRUE(std::filesystem::exists(dir / "a"));
  faults->failAt(1, EROFS);
  EXPECT_EQ(errorCode(faults->makeFolder(dir / "d", kPrivateFolderMode)), EROFS);
  EXPECT_FALSE(std::filesystem::exists(dir / "d"));
}

TEST(FileSystem, ScopedInstallReplacesTheProcessFileSystem) {
  auto original = FileSystem::current();
  {
    auto faults = std::make_shared<FaultInjectingFileSystem>();
    ScopedFileSystem installed(faults);
    EXPECT_EQ(FileSystem::current(), faults);
  }
  EXPECT_EQ(FileSystem::current(), original);
}

}  // namespace
}  // namespace lumeo
