// The writer lock between real processes: a second writer waits for the
// first, gives up with "busy" when the first never lets go, and gets the
// lock at once when the holder dies without releasing it.
#include "store/journal_lock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "testing/temp_dir.h"

namespace lumeo {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Forks a process that takes the lock, tells the parent through a pipe, and
// holds it for `holdSeconds` (forever when negative) before exiting.
pid_t holdInChild(const std::filesystem::path& library, double holdSeconds) {
  int ready[2];
  if (::pipe(ready) != 0) return -1;
  pid_t pid = ::fork();
  if (pid == 0) {
    ::close(ready[0]);
    auto lock = JournalLock::acquire(library, 5);
    char ok = std::holds_alternative<JournalLock>(lock) ? 'y' : 'n';
    (void)!::write(ready[1], &ok, 1);
    if (holdSeconds < 0) {
      for (;;) ::pause();
    }
    ::usleep(static_cast<useconds_t>(holdSeconds * 1e6));
    ::_exit(0);
  }
  ::close(ready[1]);
  char ok = 'n';
  if (::read(ready[0], &ok, 1) != 1) ok = 'n';
  ::close(ready[0]);
  return ok == 'y' ? pid : -1;
}

TEST(JournalLock, ASecondWriterWaitsForTheFirstToFinish) {
  testing::TempDir dir;
  const auto library = dir / "Library";
  pid_t child = holdInChild(library, 0.3);
  ASSERT_GT(child, 0);
  auto start = Clock::now();
  auto lock = JournalLock::acquire(library, 10);
  ASSERT_TRUE(std::holds_alternative<JournalLock>(lock)) << std::get<Error>(lock).description;
  EXPECT_GE(secondsSince(start), 0.2) << "taken only after the holder let go";
  EXPECT_TRUE(std::get<JournalLock>(lock).held());
  int status = 0;
  ::waitpid(child, &status, 0);

  // Private to the user, whatever the umask.
  struct stat st {};
  ASSERT_EQ(::stat(JournalLock::lockFileFor(library).c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST(JournalLock, AHolderThatNeverLetsGoGivesBusyAndADeadOneFreesTheLock) {
  testing::TempDir dir;
  const auto library = dir / "Library";
  pid_t child = holdInChild(library, -1);
  ASSERT_GT(child, 0);
  auto start = Clock::now();
  auto busy = JournalLock::acquire(library, 0.2);
  ASSERT_TRUE(std::holds_alternative<Error>(busy));
  EXPECT_TRUE(std::get<Error>(busy).is(kJournalLockErrorDomain, kJournalLockBusy));
  EXPECT_LT(secondsSince(start), 5.0);

  // A writer killed while holding the lock never blocks the journal.
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  auto lock = JournalLock::acquire(library, 0.5);
  ASSERT_TRUE(std::holds_alternative<JournalLock>(lock));

  // Within one process, a second acquisition waits for the first too (each
  // acquisition is its own open file), and release lets it through.
  auto second = JournalLock::acquire(library, 0.05);
  EXPECT_TRUE(std::holds_alternative<Error>(second));
  std::get<JournalLock>(lock).release();
  EXPECT_TRUE(std::holds_alternative<JournalLock>(JournalLock::acquire(library, 0.05)));
}

}  // namespace
}  // namespace lumeo
