// The journal's writer lock: one advisory lock file next to the store
// ("Model.sqlite.lock"), held by whoever reads the journal to change it,
// from the first read to the last write. Two processes that add records at
// once (two `lumeo add`, or a command while the GUI saves) then run one
// after the other, so neither saves over what the other wrote: no record is
// refused as "changed since it was read", a new tag name gets one row, and
// the backup counter in the settings counts every record.
//
// The lock is flock(2) on an open file description: it is released when the
// holder closes it or dies, so a crashed writer never blocks the journal.
#pragma once

#include <filesystem>
#include <optional>
#include <variant>

#include "platform/error.h"

namespace lumeo {

inline constexpr const char* kJournalLockErrorDomain = "LumeoJournalLockErrorDomain";
inline constexpr long kJournalLockBusy = 1;         // another writer held it for the whole wait
inline constexpr long kJournalLockUnavailable = 2;  // the lock file cannot be made or locked

class JournalLock {
 public:
  // The lock file of the store in `libraryDirectory`.
  static std::filesystem::path lockFileFor(const std::filesystem::path& libraryDirectory);

  // Takes the lock, waiting up to `waitSeconds` for another holder to let
  // go. Makes the folder and the lock file (mode 0600) if needed.
  static std::variant<JournalLock, Error> acquire(const std::filesystem::path& libraryDirectory,
                                                  double waitSeconds = 30);

  JournalLock(JournalLock&& other) noexcept;
  JournalLock& operator=(JournalLock&& other) noexcept;
  JournalLock(const JournalLock&) = delete;
  JournalLock& operator=(const JournalLock&) = delete;
  ~JournalLock();

  // Lets go early; the destructor does it otherwise.
  void release();
  bool held() const { return fd_ >= 0; }

 private:
  explicit JournalLock(int fd) : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace lumeo
