// The command line's wait after wrong codes: how it grows, that it outlives
// the process, and that a right code clears it.
#include "lock/passcode_attempt_throttle.h"

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

TEST(PasscodeAttemptThrottleTest, TheWaitDoublesUpToFifteenMinutes) {
  EXPECT_EQ(PasscodeAttemptThrottle::delayAfter(0), 0);
  EXPECT_EQ(PasscodeAttemptThrottle::delayAfter(1), 1);
  EXPECT_EQ(PasscodeAttemptThrottle::delayAfter(2), 2);
  EXPECT_EQ(PasscodeAttemptThrottle::delayAfter(5), 16);
  EXPECT_EQ(PasscodeAttemptThrottle::delayAfter(10), 512);
  EXPECT_EQ(PasscodeAttemptThrottle::delayAfter(11), 900);
  EXPECT_EQ(PasscodeAttemptThrottle::delayAfter(10000), 900);
}

TEST(PasscodeAttemptThrottleTest, TheCountOutlivesTheProcessAndARightCodeClearsIt) {
  ScopedSimulatedClock clock(Date::fromTimeIntervalSince1970(1763800000));
  testing::TempDir dir;
  {
    PasscodeAttemptThrottle throttle(dir.path());
    EXPECT_EQ(throttle.secondsToWait(), 0);
    for (int i = 0; i < 3; ++i) ASSERT_FALSE(throttle.recordWrong());
  }
  clock.clock().advance(1);
  {
    PasscodeAttemptThrottle throttle(dir.path());
    EXPECT_EQ(throttle.wrongInARow(), 3);
    EXPECT_DOUBLE_EQ(throttle.secondsToWait(), 3) << "four seconds after the third wrong code";
    clock.clock().advance(10);
    EXPECT_EQ(throttle.secondsToWait(), 0);
    ASSERT_FALSE(throttle.recordRight());
  }
  PasscodeAttemptThrottle throttle(dir.path());
  EXPECT_EQ(throttle.wrongInARow(), 0);
  EXPECT_EQ(throttle.secondsToWait(), 0);
}

}  // namespace
}  // namespace lumeo
