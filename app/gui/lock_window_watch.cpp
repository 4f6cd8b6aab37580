#include "lock_window_watch.h"

#include <QDBusConnection>
#include <QEvent>
#include <QGuiApplication>
#include <QWindow>

#include "gui_runtime.h"
#include "shell_adapter.h"

namespace lumeo::gui {

namespace {

// Screen savers and screen lockers announce themselves on the session bus
// with ActiveChanged(bool): the freedesktop interface (KDE, Xfce, most
// lockers) and GNOME's own.
struct ScreenSaverSignal {
  const char* path;
  const char* interface;
};
constexpr ScreenSaverSignal kScreenSaverSignals[] = {
    {"/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver"},
    {"/ScreenSaver", "org.freedesktop.ScreenSaver"},
    {"/org/gnome/ScreenSaver", "org.gnome.ScreenSaver"},
};

}  // namespace

LockWindowWatch::LockWindowWatch(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {
  connect(qGuiApp, &QGuiApplication::applicationStateChanged, this, &LockWindowWatch::update);
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (bus.isConnected()) {
    for (const auto& s : kScreenSaverSignals) {
      bus.connect(QString(), QString::fromLatin1(s.path), QString::fromLatin1(s.interface),
                  QStringLiteral("ActiveChanged"), this, SLOT(screenSaverActiveChanged(bool)));
    }
  }
}

void LockWindowWatch::watch(QWindow* window) {
  if (window_ == window) return;
  if (window_) {
    window_->removeEventFilter(this);
    disconnect(window_, nullptr, this, nullptr);
  }
  window_ = window;
  wasExposed_ = window && window->isExposed();
  if (!window) return;
  window->installEventFilter(this);
  connect(window, &QWindow::visibilityChanged, this, &LockWindowWatch::update);
  update();
}

void LockWindowWatch::setScreenLocked(bool locked) {
  screenLocked_ = locked;
  update();
}

bool LockWindowWatch::eventFilter(QObject* watched, QEvent* event) {
  // Exposure changes without a visibility change when the window manager
  // unmaps the window (another virtual desktop) or maps it again.
  if (watched == window_ &&
      (event->type() == QEvent::Expose || event->type() == QEvent::Hide || event->type() == QEvent::Show)) {
    if (window_->isExposed()) wasExposed_ = true;
    update();
  }
  return QObject::eventFilter(watched, event);
}

bool LockWindowWatch::computeBackground() const {
  if (screenLocked_) return true;
  const Qt::ApplicationState state = QGuiApplication::applicationState();
  if (state == Qt::ApplicationHidden || state == Qt::ApplicationSuspended) return true;
  if (!window_) return false;
  const QWindow::Visibility visibility = window_->visibility();
  if (visibility == QWindow::Hidden || visibility == QWindow::Minimized) return true;
  return wasExposed_ && !window_->isExposed();
}

void LockWindowWatch::update() {
  const bool background = computeBackground();
  if (background == background_) return;
  background_ = background;
  if (auto* shell = qobject_cast<ShellAdapter*>(runtime_.singleton(QStringLiteral("Shell")))) {
    if (background) {
      shell->windowHidden();
    } else {
      shell->windowShown();
    }
  }
  Q_EMIT backgroundChanged();
}

static const GuiRegistration kLockWindow(5, [](GuiRuntime& runtime) {
  runtime.addSingleton("LockWindow", new LockWindowWatch(runtime, &runtime));
});

}  // namespace lumeo::gui
