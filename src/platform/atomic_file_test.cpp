// All-or-nothing writes: the old contents stand after a failed write and no
// temporary file is ever left beside the target.
#include "platform/atomic_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>

#include "platform/file_system.h"
#include "testing/temp_dir.h"

// Every umask() call of the process passes here (see
// WritingNeverTouchesTheUmask).
static std::atomic<int> umaskCalls{0};
extern "C" mode_t umask(mode_t mask) noexcept {
  ++umaskCalls;
  return static_cast<mode_t>(::syscall(SYS_umask, mask));
}

namespace lumeo {
namespace {

std::size_t filesIn(const std::filesystem::path& folder) {
  std::size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++n;
  return n;
}

TEST(AtomicFile, WritesReplacesAndReadsBack) {
  testing::TempDir dir;
  const auto path = dir / "table.plist";
  ASSERT_FALSE(writeFileAtomically(path, std::string_view("first")));
  ASSERT_FALSE(writeFileAtomically(path, std::string_view("second, longer")));
  auto bytes = readFileBytes(path);
  ASSERT_TRUE(std::holds_alternative<std::vector<std::uint8_t>>(bytes));
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  EXPECT_EQ(std::string(data.begin(), data.end()), "second, longer");
  EXPECT_EQ(filesIn(dir.path()), 1u);
  // Empty files are files too.
  ASSERT_FALSE(writeFileAtomically(path, std::vector<std::uint8_t>{}));
  EXPECT_TRUE(std::get<std::vector<std::uint8_t>>(readFileBytes(path)).empty());
}

TEST(AtomicFile, FailuresNameTheirKindAndLeaveNothingBehind) {
  testing::TempDir dir;
  auto missing = readFileBytes(dir / "nothing-here");
  ASSERT_TRUE(std::holds_alternative<Error>(missing));
  EXPECT_TRUE(std::get<Error>(missing).is(kFileErrorDomain, kFileNotFound));

  auto folder = readFileBytes(dir.path());
  ASSERT_TRUE(std::holds_alternative<Error>(folder));
  EXPECT_TRUE(std::get<Error>(folder).is(kFileErrorDomain, kFileReadFailed));

  auto noFolder = writeFileAtomically(dir / "no" / "such" / "file", std::string_view("x"));
  ASSERT_TRUE(noFolder);
  EXPECT_TRUE(noFolder->is(kFileErrorDomain, kFileWriteFailed));

  // A folder in the way: the rename fails after the data was written, and
  // the temporary copy must go.
  std::filesystem::create_directory(dir / "occupied");
  testing::writeFile(dir / "occupied" / "keep", "kept");
  auto blocked = writeFileAtomically(dir / "occupied", std::string_view("data"));
  ASSERT_TRUE(blocked);
  EXPECT_TRUE(blocked->is(kFileErrorDomain, kFileWriteFailed));
  EXPECT_EQ(filesIn(dir.path()), 1u);
  EXPECT_EQ(testing::readFile(dir / "occupied" / "keep"), "kept");
}

mode_t modeOf(const std::filesystem::path& path) {
  struct stat st {};
  ::stat(path.c_str(), &st);
  return st.st_mode & 0777;
}

// Sets the umask for one test and puts the old one back.
class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : previous_(::umask(mask)) {}
  ~ScopedUmask() { ::umask(previous_); }

 private:
  mode_t previous_;
};

TEST(AtomicFile, PrivateFilesIgnoreTheUmaskAndExportsFollowIt) {
  testing::TempDir dir;
  ScopedUmask mask(022);
  EXPECT_EQ(currentUmask(), 022u);
  ASSERT_FALSE(writeFileAtomically(dir / "journal-file", std::string_view("x")));
  EXPECT_EQ(modeOf(dir / "journal-file"), 0600u);
  ASSERT_FALSE(writeFileAtomically(dir / "export.png", std::string_view("x"), FileAccess::kUserDefault));
  EXPECT_EQ(modeOf(dir / "export.png"), 0644u);
  ScopedUmask strict(027);
  EXPECT_EQ(currentUmask(), 027u);
  ASSERT_FALSE(writeFileAtomically(dir / "export.png", std::string_view("y"), FileAccess::kUserDefault));
  EXPECT_EQ(modeOf(dir / "export.png"), 0640u);
}

// Reading the umask by setting it to 0 and back opens a window in which a
// file made by any other thread is readable and writable by everyone. The
// test binary interposes umask() to see whether a write calls it at all.
TEST(AtomicFile, WritingNeverTouchesTheUmask) {
  testing::TempDir dir;
  ScopedUmask mask(077);
  const int before = umaskCalls.load();
  ASSERT_FALSE(writeFileAtomically(dir / "export", std::string_view("x"), FileAccess::kUserDefault));
  ASSERT_FALSE(writeFileAtomically(dir / "private", std::string_view("x")));
  EXPECT_EQ(umaskCalls.load(), before);
  EXPECT_EQ(modeOf(dir / "export"), 0600u);
}

bool isOldOrNew(const std::filesystem::path& path, const std::string& oldText, const std::string& newText) {
  const std::string now = testing::readFile(path);
  return now == oldText || now == newText;
}

// The fault sweep: fail the first, second, ... file operation of a write
// until the write gets through. After each failure the old contents stand
// whole and nothing else is in the folder.
TEST(AtomicFile, AFailureAtAnyStepLeavesTheOldFileAndNoDebris) {
  testing::TempDir dir;
  const auto path = dir / "table.plist";
  const std::string oldText = "old contents";
  const std::string newText(100000, 'n');
  ASSERT_FALSE(writeFileAtomically(path, std::string_view(oldText)));

  auto faults = std::make_shared<FaultInjectingFileSystem>();
  ScopedFileSystem installed(faults);
  int failures = 0;
  for (int n = 1; n < 50; ++n) {
    faults->failAt(n, ENOSPC);
    OptionalError error = writeFileAtomically(path, std::string_view(newText));
    if (!faults->faultFired()) {
      // The sweep passed every step; only the flush of the folder may fail
      // without failing the write.
      ASSERT_FALSE(error);
      EXPECT_EQ(testing::readFile(path), newText);
      break;
    }
    SCOPED_TRACE(faults->operations().back());
    EXPECT_TRUE(isOldOrNew(path, oldText, newText));
    if (error) {
      ++failures;
      EXPECT_TRUE(error->is(kFileErrorDomain, kFileWriteFailed));
      EXPECT_EQ(error->userInfo.at("errno").toInt(), ENOSPC);
      EXPECT_EQ(testing::readFile(path), oldText);
    } else {
      // Only the last step, the folder flush, is allowed to fail quietly.
      EXPECT_EQ(faults->operations().back().rfind("fsync folder", 0), 0u);
      EXPECT_EQ(testing::readFile(path), newText);
      ASSERT_FALSE(writeFileAtomically(path, std::string_view(oldText)));
    }
    EXPECT_EQ(filesIn(dir.path()), 1u);
  }
  // create, write, fsync, close and rename can each fail.
  EXPECT_EQ(failures, 5);
}

}  // namespace
}  // namespace lumeo
