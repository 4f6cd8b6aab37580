// The desktop's background and foreground for the application object
// (singleton `LockWindow`): a window that is hidden, minimised, no longer
// exposed (another virtual desktop), an application the platform hides or
// suspends, or a screen saver or screen lock that comes on, is "in the
// background"; the window seen again is the return. Each change of that
// one state becomes the shell's windowHidden() or windowShown(), so the
// core's background walk runs (and may put the passcode screen up) while
// nothing is on screen, and the window's next frame already shows it.
//
// Losing the keyboard focus is not the background: the window stays in
// view, and a backup running behind it goes on.
#pragma once

#include <QObject>
#include <QPointer>

class QWindow;

namespace lumeo::gui {

class GuiRuntime;

class LockWindowWatch : public QObject {
  Q_OBJECT
  // True while the window counts as in the background.
  Q_PROPERTY(bool background READ background NOTIFY backgroundChanged)
 public:
  LockWindowWatch(GuiRuntime& runtime, QObject* parent = nullptr);

  // Follows this window from now on (the last one given).
  Q_INVOKABLE void watch(QWindow* window);
  bool background() const { return background_; }

  // The desktop's screen saver or screen lock came on or went off.
  Q_INVOKABLE void setScreenLocked(bool locked);

 Q_SIGNALS:
  void backgroundChanged();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private Q_SLOTS:
  void screenSaverActiveChanged(bool active) { setScreenLocked(active); }

 private:
  void update();
  bool computeBackground() const;

  GuiRuntime& runtime_;
  QPointer<QWindow> window_;
  // A window counts as unexposed only after it was exposed once: before
  // its first frame it is simply not up yet.
  bool wasExposed_ = false;
  bool screenLocked_ = false;
  bool background_ = false;
};

}  // namespace lumeo::gui
