#include "reminder_list_adapter.h"

#include "gui_runtime.h"
#include "main_queue_pump.h"
#include "platform/localization.h"
#include "qt_presenter.h"
#include "reminder_desktop.h"
#include "reminder_screens.h"
#include "shell/mood_settings_view_controller.h"
#include "shell_adapter.h"

namespace lumeo::gui {

namespace {

constexpr const char* kListClass = "MoodRemindersViewController";
constexpr const char* kEditorClass = "MoodReminderViewController";
constexpr const char* kTextClass = "MoodNotificationTextEditViewController";

ShellAdapter* shellOf(GuiRuntime& runtime) {
  return qobject_cast<ShellAdapter*>(runtime.singleton(QStringLiteral("Shell")));
}

// "4 times, at random" under a window's times; nothing for a fixed time.
QString detailOf(const Value& alarm) {
  auto reminder = MoodReminder::dictionaryToReminder(alarm);
  if (!reminder || !reminder->isPeriodic) return {};
  const long count = static_cast<long>(std::max<std::int64_t>(1, reminder->reminderCount));
  try {
    return QString::fromStdString(
        localizedStringWithFormat(reminder->isRandom ? "%ld times, at random" : "%ld times, evenly", count));
  } catch (const std::exception&) {
    return QString::number(count);
  }
}

}  // namespace

ReminderListAdapter::ReminderListAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime) {
  connect(&runtime.pump(), &MainQueuePump::drained, this, &ReminderListAdapter::changed);
  // An answered alert may have changed what the screen shows (after its
  // handler ran).
  connect(&runtime.presenter(), &QtPresenter::currentChanged, this, &ReminderListAdapter::changed,
          Qt::QueuedConnection);
}

RemindersScreen* ReminderListAdapter::list() const {
  ShellAdapter* shell = shellOf(runtime_);
  return dynamic_cast<RemindersScreen*>(shell ? shell->findScreen(QString::fromLatin1(kListClass)) : nullptr);
}

NotificationTextScreen* ReminderListAdapter::textScreen() const {
  ShellAdapter* shell = shellOf(runtime_);
  return dynamic_cast<NotificationTextScreen*>(shell ? shell->findScreen(QString::fromLatin1(kTextClass))
                                                     : nullptr);
}

void ReminderListAdapter::refreshShell() {
  if (ShellAdapter* shell = shellOf(runtime_)) shell->refresh();
  Q_EMIT changed();
}

QString ReminderListAdapter::message() const {
  RemindersScreen* screen = list();
  return screen ? QString::fromStdString(screen->notificationMessage()) : QString();
}

QVariantList ReminderListAdapter::rows() const {
  QVariantList out;
  RemindersScreen* screen = list();
  if (!screen) return out;
  for (const Value& alarm : screen->alarmInfoArray()) {
    MoodRemindersCell cell = MoodRemindersCell::setAlarmInfo(alarm);
    out.append(QVariantMap{{"timeText", QString::fromStdString(cell.timeText)},
                           {"detail", detailOf(alarm)},
                           {"on", cell.switchOn},
                           {"dimmed", !cell.switchOn}});
  }
  return out;
}

bool ReminderListAdapter::empty() const {
  RemindersScreen* screen = list();
  return !screen || screen->noAlarmsLabelVisible();
}

QString ReminderListAdapter::text() const {
  NotificationTextScreen* screen = textScreen();
  return screen ? QString::fromStdString(screen->text()) : QString();
}

void ReminderListAdapter::appear() {
  if (RemindersScreen* screen = list()) screen->loadAlarms();
  Q_EMIT changed();
}

void ReminderListAdapter::setEnabled(int row, bool on) {
  RemindersScreen* screen = list();
  if (!screen || row < 0 || static_cast<std::size_t>(row) >= screen->alarmInfoArray().size()) return;
  auto reminder = MoodReminder::dictionaryToReminder(screen->alarmInfoArray()[static_cast<std::size_t>(row)]);
  if (!reminder) return;
  reminder->isEnabled = on;
  screen->settingsCellDidChangeAlarmInfo(*reminder, static_cast<std::size_t>(row));
  Q_EMIT changed();
}

void ReminderListAdapter::add() {
  RemindersScreen* screen = list();
  if (!screen) return;
  auto destination = screen->add();
  if (NavigationController* nav = screen->navigationController())
    nav->pushViewController(std::make_shared<ReminderEditorScreen>(destination.reminder, destination.index),
                            true);
  refreshShell();
}

void ReminderListAdapter::edit(int row) {
  RemindersScreen* screen = list();
  if (!screen || row < 0) return;
  // The desktop's rows carry their own edit button, the table's editing
  // mode of a phone.
  auto destination = screen->didSelectRow(1, static_cast<std::size_t>(row), true);
  if (destination.kind != MoodRemindersViewController::Destination::Kind::kReminderEditor) return;
  if (NavigationController* nav = screen->navigationController())
    nav->pushViewController(std::make_shared<ReminderEditorScreen>(destination.reminder, destination.index),
                            true);
  refreshShell();
}

void ReminderListAdapter::remove(int row) {
  RemindersScreen* screen = list();
  if (!screen || row < 0) return;
  (void)screen->commitDeleteRow(static_cast<std::size_t>(row));
  Q_EMIT changed();
}

void ReminderListAdapter::done() {
  if (RemindersScreen* screen = list()) screen->done();
  if (ShellAdapter* shell = shellOf(runtime_)) shell->closeScreen(QString::fromLatin1(kListClass));
  Q_EMIT changed();
}

void ReminderListAdapter::openText() {
  RemindersScreen* screen = list();
  if (!screen) return;
  auto destination = screen->didSelectRow(0, 0, false);
  if (destination.kind != MoodRemindersViewController::Destination::Kind::kTextEditor) return;
  if (NavigationController* nav = screen->navigationController())
    nav->pushViewController(std::make_shared<NotificationTextScreen>(), true);
  refreshShell();
}

void ReminderListAdapter::setText(const QString& text) {
  if (NotificationTextScreen* screen = textScreen()) screen->textViewDidChange(text.toStdString());
}

void ReminderListAdapter::textReturn() {
  if (NotificationTextScreen* screen = textScreen()) screen->returnPressed();
  if (ShellAdapter* shell = shellOf(runtime_)) shell->closeScreen(QString::fromLatin1(kTextClass));
  Q_EMIT changed();
}

void ReminderListAdapter::textBack() {
  if (NotificationTextScreen* screen = textScreen()) screen->backButtonClicked();
  if (ShellAdapter* shell = shellOf(runtime_)) shell->closeScreen(QString::fromLatin1(kTextClass));
  Q_EMIT changed();
}

static const GuiRegistration kReminderList(30, [](GuiRuntime& runtime) {
  runtime.addSingleton("Reminders", new ReminderListAdapter(runtime, &runtime));
  runtime.addScreen(QString::fromLatin1(kListClass), QStringLiteral("ReminderListScreen.qml"));
  runtime.addScreen(QString::fromLatin1(kTextClass), QStringLiteral("ReminderTextScreen.qml"));
  runtime.addScreen(QString::fromLatin1(kEditorClass), QStringLiteral("ReminderEditorScreen.qml"));
  runtime.addScreen(QStringLiteral("MoodReminderSoundViewController"),
                    QStringLiteral("ReminderSoundScreen.qml"));
  MoodSettingsViewController::registerScreenMaker(kListClass,
                                                  [] { return std::make_shared<RemindersScreen>(); });
  installReminderSoundPreview();
});

}  // namespace lumeo::gui
