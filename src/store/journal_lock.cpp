// The writer lock: flock(2) on "Model.sqlite.lock", polled while another
// process holds it so that the wait has an end.
#include "store/journal_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>

#include "store/journal_store.h"

namespace lumeo {

std::filesystem::path JournalLock::lockFileFor(const std::filesystem::path& libraryDirectory) {
  return libraryDirectory / (std::string(kJournalStoreFileName) + ".lock");
}

std::variant<JournalLock, Error> JournalLock::acquire(const std::filesystem::path& libraryDirectory,
                                                      double waitSeconds) {
  const std::filesystem::path file = lockFileFor(libraryDirectory);
  std::error_code ec;
  std::filesystem::create_directories(libraryDirectory, ec);
  int fd = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    return Error(kJournalLockErrorDomain, kJournalLockUnavailable,
                 "cannot open the journal's lock file " + file.string() + ": " + std::strerror(errno));
  }
  // Polled rather than blocking, so that a writer that never lets go (a
  // hung process) gives an error instead of a hang. The first waits are
  // short: most writers hold the lock for milliseconds.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(waitSeconds);
  auto pause = std::chrono::milliseconds(1);
  for (;;) {
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return JournalLock(fd);
    const int error = errno;
    if (error == EINTR) continue;
    if (error != EWOULDBLOCK) {
      ::close(fd);
      return Error(kJournalLockErrorDomain, kJournalLockUnavailable,
                   "cannot lock the journal (" + file.string() + "): " + std::strerror(error));
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      ::close(fd);
      return Error(kJournalLockErrorDomain, kJournalLockBusy,
                   "the journal is busy: another Lumeo has been changing it for too long (" + file.string() +
                       " stays locked)");
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::milliseconds(20));
  }
}

JournalLock::JournalLock(JournalLock&& other) noexcept : fd_(other.fd_) {
  other.fd_ = -1;
}

JournalLock& JournalLock::operator=(JournalLock&& other) noexcept {
  if (this != &other) {
    release();
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

JournalLock::~JournalLock() {
  release();
}

void JournalLock::release() {
  if (fd_ < 0) return;
  ::flock(fd_, LOCK_UN);
  ::close(fd_);
  fd_ = -1;
}

}  // namespace lumeo
