// The wrong-code count of the command line, in a locked file.
#include "lock/passcode_attempt_throttle.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <fstream>
#include <sstream>

#include "platform/atomic_file.h"
#include "platform/clock.h"

namespace lumeo {

PasscodeAttemptThrottle::PasscodeAttemptThrottle(std::filesystem::path folder)
    : file_(folder / "passcode-attempts") {
  std::filesystem::path lock = folder / "passcode-attempts.lock";
  lockFd_ = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lockFd_ >= 0) {
    while (::flock(lockFd_, LOCK_EX) != 0 && errno == EINTR) {
    }
  }
  // "wrong <count>\nlast <seconds since 1970>\n"; anything unreadable
  // counts as no wrong code.
  std::ifstream in(file_);
  std::string word;
  double last = 0;
  while (in >> word) {
    if (word == "wrong") in >> wrong_;
    if (word == "last") in >> last;
  }
  wrong_ = std::max(wrong_, 0);
  lastWrong_ = Date::fromTimeIntervalSince1970(last);
}

PasscodeAttemptThrottle::~PasscodeAttemptThrottle() {
  if (lockFd_ >= 0) ::close(lockFd_);  // closing releases the lock
}

double PasscodeAttemptThrottle::delayAfter(int wrongInARow) {
  if (wrongInARow <= 0) return 0;
  if (wrongInARow > 11) return kLongestWaitSeconds;
  return std::min(std::ldexp(1.0, wrongInARow - 1), kLongestWaitSeconds);
}

double PasscodeAttemptThrottle::secondsToWait() const {
  if (wrong_ <= 0) return 0;
  double due = lastWrong_.timeIntervalSince1970() + delayAfter(wrong_);
  return std::max(0.0, due - Clock::current()->now().timeIntervalSince1970());
}

OptionalError PasscodeAttemptThrottle::recordWrong() {
  ++wrong_;
  lastWrong_ = Clock::current()->now();
  return save();
}

OptionalError PasscodeAttemptThrottle::recordRight() {
  if (wrong_ == 0) return std::nullopt;
  wrong_ = 0;
  return save();
}

OptionalError PasscodeAttemptThrottle::save() {
  std::ostringstream text;
  text.precision(17);
  text << "wrong " << wrong_ << "\nlast " << lastWrong_.timeIntervalSince1970() << "\n";
  return writeFileAtomically(file_, text.str());
}

}  // namespace lumeo
