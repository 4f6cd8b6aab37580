// The QML singletons "History" and "Summary" of Lumeo.Core: each makes its
// tab's adapter on the open journal the first time the tab shows (the
// journal opens after the splash, later than the singletons are made), and
// keeps it for the rest of the session, or until a restore replaces the
// journal.
#pragma once

#include <QObject>
#include <functional>

namespace lumeo::gui {

class GuiRuntime;

class LazyTab : public QObject {
  Q_OBJECT
  Q_PROPERTY(QObject* controller READ controller NOTIFY controllerChanged)

 public:
  // `make` makes the adapter, as a child of the given parent, on the open
  // journal.
  using Make = std::function<QObject*(GuiRuntime& runtime, QObject* parent)>;
  LazyTab(GuiRuntime& runtime, Make make, QObject* parent = nullptr);

  QObject* controller() const { return controller_; }
  // Makes the adapter when the journal is open; returns it (or null).
  Q_INVOKABLE QObject* open();
  // Drops the adapter (a restore replaced the journal); the next open()
  // makes a new one.
  void reset();

 Q_SIGNALS:
  void controllerChanged();

 private:
  GuiRuntime& runtime_;
  Make make_;
  QObject* controller_ = nullptr;
};

}  // namespace lumeo::gui
