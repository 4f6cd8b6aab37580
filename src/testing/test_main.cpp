// Main of every unit-test binary. Tests start from a known locale and time
// zone so that date texts and calendar facts do not depend on the machine;
// a test that wants another sets it itself.
#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
  setenv("TZ", "UTC", 0);
  setenv("LANG", "en_US.UTF-8", 0);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
