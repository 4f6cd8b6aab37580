#include "shell_adapter.h"

#include <QCoreApplication>
#include <QProcess>

#include "capture/mood_capture_view_controller.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "main_queue_pump.h"
#include "platform/log.h"
#include "platform/user_defaults.h"
#include "shell/mood_app_delegate.h"
#include "shell/mood_tab_bar_controller.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"

namespace lumeo::gui {

namespace {

// The screens above the main interface: what is pushed on each navigation
// stack (above its root) and what is presented, bottom first. The tab bar
// itself, the main navigation stack and bare navigation containers are
// not screens of their own here.
void collectScreens(Screen* screen, bool isRoot, QList<Screen*>& out) {
  if (!screen) return;
  if (screen->isNavigationController()) {
    auto* navigation = static_cast<NavigationController*>(screen);
    const auto& stack = navigation->viewControllers();
    for (std::size_t i = 0; i < stack.size(); ++i) {
      // The main stack's root is the tab bar, shown as the tabs themselves;
      // the passcode stack's root is the entry screen, a screen like others.
      if (!(isRoot && i == 0 && stack[i]->className() == "MoodTabBarController")) out.append(stack[i].get());
      if (auto presented = stack[i]->presentedViewController()) collectScreens(presented.get(), false, out);
    }
  } else if (!isRoot) {
    out.append(screen);
  }
  if (auto presented = screen->presentedViewController()) collectScreens(presented.get(), false, out);
}

// Every screen over the tabs: what the capture tab presented (the editor of
// a new record) and then the window's chain.
QList<Screen*> screenChain(GuiSession& session) {
  QList<Screen*> chain;
  if (!session.launched()) return chain;
  if (auto capture = session.capture()) {
    if (auto presented = capture->presentedViewController()) collectScreens(presented.get(), false, chain);
  }
  collectScreens(session.app().window().rootViewController().get(), true, chain);
  return chain;
}

}  // namespace

ShellAdapter::ShellAdapter(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {
  connect(&runtime.pump(), &MainQueuePump::drained, this, &ShellAdapter::refresh);
  runtime.addScreen(QStringLiteral("MoodTutorialViewController"), QStringLiteral("WelcomeScreen.qml"));
  runtime.addScreen(QStringLiteral("MoodTutorialViewController.sync"), QStringLiteral("WelcomeScreen.qml"));
  if (runtime_.session().launched()) {
    runtime_.session().app().window().setChangeHandler(
        [this](const std::string&, Screen*, bool) { refresh(); });
  }
  refresh();
}

bool ShellAdapter::launched() const {
  return runtime_.session().launched();
}
QString ShellAdapter::launchError() const {
  return QString::fromStdString(runtime_.session().launchError());
}
bool ShellAdapter::splashDone() const {
  return runtime_.session().splashDone();
}
QString ShellAdapter::journalError() const {
  return QString::fromStdString(runtime_.session().journalError());
}
QString ShellAdapter::storePath() const {
  return QString::fromStdString(runtime_.session().storePath().string());
}

MoodTabBarController* ShellAdapter::tabBar() const {
  auto& session = runtime_.session();
  if (!session.launched() || !session.splashDone()) return nullptr;
  return session.app().tabBarController().get();
}

void ShellAdapter::refresh() {
  bool dirty = false;
  auto set = [&dirty](auto& field, const auto& value) {
    if (field == value) return;
    field = value;
    dirty = true;
  };
  auto& session = runtime_.session();
  if (session.splashDone() != lastSplashDone_) {
    lastSplashDone_ = session.splashDone();
    dirty = true;
  }
  const QString error = journalError();
  if (error != lastJournalError_) {
    lastJournalError_ = error;
    dirty = true;
  }
  if (MoodTabBarController* tabs = tabBar()) {
    set(currentTab_, tabs->currentIndex());
    QStringList titles;
    for (const auto& title : tabs->titles()) titles.append(QString::fromStdString(title));
    set(tabTitles_, titles);
    QVariantList enabled;
    for (int i = 0; i < 4; ++i) enabled.append(tabs->isButtonEnabled(i));
    set(tabEnabled_, enabled);
    set(locked_, session.app().isPasscodeScreenRoot());
    const QList<Screen*> chain = screenChain(session);
    QVariantList screens;
    for (Screen* screen : chain) {
      const QString name = QString::fromStdString(screen->className());
      // The screen's identity too: a screen replaced by another of its class
      // (a fresh entry screen of the window lock) gets a fresh QML item.
      screens.append(QVariantMap{{"className", name},
                                 {"url", runtime_.screenUrl(name).toString()},
                                 {"id", QString::number(reinterpret_cast<quintptr>(screen), 16)}});
    }
    set(screens_, screens);
    set(journalEmpty_, error.isEmpty() && !tabs->isSummaryAvailable());
  }
  if (dirty) Q_EMIT changed();
}

Screen* ShellAdapter::findScreen(const QString& className) const {
  auto& session = runtime_.session();
  const QList<Screen*> chain = screenChain(session);
  for (auto it = chain.rbegin(); it != chain.rend(); ++it)
    if (QString::fromStdString((*it)->className()) == className) return *it;
  return nullptr;
}

void ShellAdapter::splashFaded() {
  runtime_.session().splashFinished();
  if (pendingCapture_ && runtime_.session().splashDone()) {
    pendingCapture_ = false;
    runtime_.session().app().showMoodCaptureControllerAfterInactiveState(true);
  }
  if (runtime_.session().launched() && runtime_.session().splashDone()) {
    runtime_.session().app().window().setChangeHandler(
        [this](const std::string&, Screen*, bool) { refresh(); });
  }
  refresh();
}

bool ShellAdapter::selectTab(int index) {
  MoodTabBarController* tabs = tabBar();
  if (!tabs || index < 0 || index > 3 || !tabs->isButtonEnabled(index)) return false;
  const bool allowed = tabs->buttonGroupShouldSelectButtonAtIndex(index);
  if (allowed) tabs->selectTab(index, true);
  refresh();
  return allowed;
}

void ShellAdapter::showSettings() {
  if (MoodTabBarController* tabs = tabBar()) tabs->showSettings();
  refresh();
}

void ShellAdapter::showCapture() {
  auto& session = runtime_.session();
  if (!session.launched()) return;
  if (!session.splashDone()) {
    pendingCapture_ = true;
    return;
  }
  session.app().showMoodCaptureControllerAfterInactiveState(true);
  refresh();
}

void ShellAdapter::windowHidden() {
  runtime_.session().enterBackground();
  refresh();
}

void ShellAdapter::windowShown() {
  runtime_.session().enterForeground();
  refresh();
}

void ShellAdapter::closeScreen(const QString& className) {
  Screen* screen = findScreen(className);
  if (!screen) return;
  NavigationController* navigation = screen->navigationController();
  if (navigation && navigation->viewControllers().size() > 1 &&
      navigation->viewControllers().front().get() != screen) {
    std::vector<std::shared_ptr<Screen>> kept;
    for (const auto& entry : navigation->viewControllers())
      if (entry.get() != screen) kept.push_back(entry);
    navigation->setViewControllers(std::move(kept));
  } else if (screen->presentedViewController()) {
    screen->presentedViewController()->dismissViewControllerAnimated(true);
    screen->dismissViewControllerAnimated(true);
  } else {
    screen->dismissViewControllerAnimated(true);
  }
  refresh();
}

void ShellAdapter::finishTutorial() {
  auto& session = runtime_.session();
  if (!session.launched()) return;
  LUMEO_DROP_ERROR(session.defaults()->setBool(kTutorialCompleted, true));
  LUMEO_DROP_ERROR(session.defaults()->setBool(kTutorialSyncCompleted, true));
  (void)session.defaults()->synchronize();
  for (const char* name : {"MoodTutorialViewController", "MoodTutorialViewController.sync"})
    closeScreen(QString::fromLatin1(name));
}

bool ShellAdapter::exploreSampleData() {
  return QProcess::startDetached(QCoreApplication::applicationFilePath(),
                                 {QStringLiteral("--sample-journal")});
}

}  // namespace lumeo::gui
