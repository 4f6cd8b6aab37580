// The lumeo-gui program: its command line, the session on the user's
// journal (or a throwaway sample journal), the QML window, and the
// screenshot mode that renders one tab of a fixed sample journal to a PNG.
//
//   lumeo-gui [--home DIR] [--capture] [--sample-journal]
//   lumeo-gui --screenshot FILE [--tab N] [--size WxH] [--theme light|dark]
#pragma once

#include <QSize>
#include <QString>
#include <optional>

namespace lumeo::gui {

struct GuiOptions {
  std::optional<QString> home;
  bool capture = false;        // open on the capture tab (a reminder's action)
  bool sampleJournal = false;  // a throwaway journal of sample records
  std::optional<QString> screenshot;
  int tab = 0;
  QSize size{420, 760};
  QString theme;  // "", "light" or "dark"
  // A screen to open over the tab before the screenshot ("settings").
  QString screen;
};

// Runs the program; returns the exit status. The QML module's static
// plugin must be imported by the caller (main.cpp does).
int runGuiApplication(int argc, char** argv);

}  // namespace lumeo::gui
