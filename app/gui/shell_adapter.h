// The application shell for QML (singleton `Shell`): the launch and the
// splash, the four tabs with their gate and enabled states, the screens the
// core presents or pushes over the tabs (settings, the editor, the passcode
// entry), the journal's error state and the window's life cycle. It mirrors
// the core's navigation model (Window, Screen) and decides nothing itself.
#pragma once

#include <QObject>
#include <QStringList>
#include <QVariantList>

namespace lumeo {
class Screen;
class MoodTabBarController;
}  // namespace lumeo

namespace lumeo::gui {

class GuiRuntime;

class ShellAdapter : public QObject {
  Q_OBJECT
  Q_PROPERTY(bool launched READ launched NOTIFY changed)
  Q_PROPERTY(QString launchError READ launchError NOTIFY changed)
  Q_PROPERTY(bool splashDone READ splashDone NOTIFY changed)
  Q_PROPERTY(QString journalError READ journalError NOTIFY changed)
  Q_PROPERTY(QString storePath READ storePath CONSTANT)
  Q_PROPERTY(int currentTab READ currentTab NOTIFY changed)
  Q_PROPERTY(QStringList tabTitles READ tabTitles NOTIFY changed)
  Q_PROPERTY(QVariantList tabEnabled READ tabEnabled NOTIFY changed)
  // The passcode entry covers the whole window (after a start or a return
  // with a lock set).
  Q_PROPERTY(bool locked READ locked NOTIFY changed)
  // The screens over the tabs, bottom first: [{className, url}].
  Q_PROPERTY(QVariantList screens READ screens NOTIFY changed)
  // The journal holds no record (the capture tab then offers sample data).
  Q_PROPERTY(bool journalEmpty READ journalEmpty NOTIFY changed)

 public:
  ShellAdapter(GuiRuntime& runtime, QObject* parent = nullptr);

  bool launched() const;
  QString launchError() const;
  bool splashDone() const;
  QString journalError() const;
  QString storePath() const;
  int currentTab() const { return currentTab_; }
  QStringList tabTitles() const { return tabTitles_; }
  QVariantList tabEnabled() const { return tabEnabled_; }
  bool locked() const { return locked_; }
  QVariantList screens() const { return screens_; }
  bool journalEmpty() const { return journalEmpty_; }

  // The splash's icon finished fading in: the store opens and the tabs come.
  Q_INVOKABLE void splashFaded();
  // Asks to show a tab; the gate may refuse it or grant it later. True
  // when the tab is shown now.
  Q_INVOKABLE bool selectTab(int index);
  Q_INVOKABLE void showSettings();
  // A reminder or the desktop's "New record": the capture tab, as a tapped
  // reminder opens it (an unfinished record is left as it is).
  Q_INVOKABLE void showCapture();
  // The window was hidden or minimised, or came back.
  Q_INVOKABLE void windowHidden();
  Q_INVOKABLE void windowShown();
  // Closes the screen of this class (the top one of that class): pops it
  // off its navigation stack or dismisses it from the screen below.
  Q_INVOKABLE void closeScreen(const QString& className);
  // The welcome screen was read: it does not come again, and closes.
  Q_INVOKABLE void finishTutorial();
  // Opens a throwaway journal of sample records in a second window.
  Q_INVOKABLE bool exploreSampleData();
  // Reads the core's state again; called after every user action.
  Q_INVOKABLE void refresh();

  // The screen of this class in the chain over the tabs, if it is there.
  Screen* findScreen(const QString& className) const;
  MoodTabBarController* tabBar() const;

 Q_SIGNALS:
  void changed();

 private:
  GuiRuntime& runtime_;
  int currentTab_ = 0;
  QStringList tabTitles_;
  QVariantList tabEnabled_;
  bool locked_ = false;
  QVariantList screens_;
  bool journalEmpty_ = false;
  bool lastSplashDone_ = false;
  QString lastJournalError_;
  bool pendingCapture_ = false;
};

}  // namespace lumeo::gui
