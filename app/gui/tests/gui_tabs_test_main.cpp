// Main of the tab adapters' tests: a QGuiApplication on the offscreen
// platform (the adapters make pictures and colours), a known locale and
// time zone, then GoogleTest.
#include <gtest/gtest.h>

#include <QGuiApplication>
#include <cstdlib>

int main(int argc, char** argv) {
  setenv("TZ", "UTC", 0);
  setenv("LANG", "en_US.UTF-8", 0);
  setenv("QT_QPA_PLATFORM", "offscreen", 0);
  QGuiApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
