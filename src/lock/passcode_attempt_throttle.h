// The growing wait after wrong passcodes typed at the command line. A script
// could otherwise try all 10,000 codes in seconds, so each wrong code is
// counted in a small file beside the journal ("passcode-attempts" in the
// library folder: the count and the time of the last wrong code, never a
// code), and after n wrong codes in a row the next attempt may start only
// min(2^(n-1), 900) seconds after the last one. A right code clears it. The
// entry screen of the GUI has no such wait.
//
// An object holds an exclusive lock on "passcode-attempts.lock" for its
// life, so that attempts of several processes run one after the other and
// each sees the count the one before it left.
#pragma once

#include <filesystem>

#include "platform/date.h"
#include "platform/error.h"

namespace lumeo {

class PasscodeAttemptThrottle {
 public:
  static constexpr double kLongestWaitSeconds = 900;

  // Locks and reads the state in `folder`; waits while another process
  // holds the lock.
  explicit PasscodeAttemptThrottle(std::filesystem::path folder);
  ~PasscodeAttemptThrottle();
  PasscodeAttemptThrottle(const PasscodeAttemptThrottle&) = delete;
  PasscodeAttemptThrottle& operator=(const PasscodeAttemptThrottle&) = delete;

  // The wait that follows `wrongInARow` wrong codes: 0, then 1, 2, 4, ... s.
  static double delayAfter(int wrongInARow);

  int wrongInARow() const { return wrong_; }
  // Seconds from now (on Clock::current()) until the next attempt may run.
  double secondsToWait() const;
  // Notes the outcome of an attempt; an error when the file cannot be written.
  [[nodiscard]] OptionalError recordWrong();
  [[nodiscard]] OptionalError recordRight();

 private:
  OptionalError save();

  std::filesystem::path file_;
  int lockFd_ = -1;
  int wrong_ = 0;
  Date lastWrong_;
};

}  // namespace lumeo
