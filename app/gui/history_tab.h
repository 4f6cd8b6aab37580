// The QML singletons "History" and "Summary" of Lumeo.Core: each makes its
// tab's adapter on the open journal the first time the tab shows (the
// journal opens after the splash, later than the singletons are made), and
// keeps it for the rest of the session.
#pragma once

#include <QObject>

namespace lumeo::gui {

class GuiRuntime;
class HistoryController;
class SummaryController;

class HistoryTab : public QObject {
  Q_OBJECT
  Q_PROPERTY(QObject* controller READ controller NOTIFY controllerChanged)

 public:
  HistoryTab(GuiRuntime& runtime, QObject* parent = nullptr);
  QObject* controller() const;
  // Makes the adapter when the journal is open; returns it (or null).
  Q_INVOKABLE QObject* open();
  // Drops the adapter (a restore replaced the journal); the next open()
  // makes a new one.
  void reset();

 Q_SIGNALS:
  void controllerChanged();

 private:
  GuiRuntime& runtime_;
  HistoryController* controller_ = nullptr;
};

class SummaryTab : public QObject {
  Q_OBJECT
  Q_PROPERTY(QObject* controller READ controller NOTIFY controllerChanged)

 public:
  SummaryTab(GuiRuntime& runtime, QObject* parent = nullptr);
  QObject* controller() const;
  Q_INVOKABLE QObject* open();
  void reset();

 Q_SIGNALS:
  void controllerChanged();

 private:
  GuiRuntime& runtime_;
  SummaryController* controller_ = nullptr;
};

}  // namespace lumeo::gui
