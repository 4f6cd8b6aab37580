#include "reminder_editor_adapter.h"

#include "gui_runtime.h"
#include "main_queue_pump.h"
#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "qt_presenter.h"
#include "reminder_screens.h"
#include "shell_adapter.h"

namespace lumeo::gui {

namespace {

constexpr const char* kEditorClass = "MoodReminderViewController";
constexpr const char* kSoundClass = "MoodReminderSoundViewController";

ShellAdapter* shellOf(GuiRuntime& runtime) {
  return qobject_cast<ShellAdapter*>(runtime.singleton(QStringLiteral("Shell")));
}

QString shortTime(const std::optional<Date>& date) {
  if (!date) return {};
  return QString::fromStdString(DateFormatter::localizedStringFromDate(*date, DateFormatter::Style::kNone,
                                                                       DateFormatter::Style::kShort));
}

}  // namespace

ReminderEditorAdapter::ReminderEditorAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime) {
  connect(&runtime.pump(), &MainQueuePump::drained, this, &ReminderEditorAdapter::changed);
  // An answered alert may have changed what the screen shows (after its
  // handler ran).
  connect(&runtime.presenter(), &QtPresenter::currentChanged, this, &ReminderEditorAdapter::changed,
          Qt::QueuedConnection);
}

ReminderEditorScreen* ReminderEditorAdapter::editor() const {
  ShellAdapter* shell = shellOf(runtime_);
  return dynamic_cast<ReminderEditorScreen*>(shell ? shell->findScreen(QString::fromLatin1(kEditorClass))
                                                   : nullptr);
}

ReminderSoundScreen* ReminderEditorAdapter::soundScreen() const {
  ShellAdapter* shell = shellOf(runtime_);
  return dynamic_cast<ReminderSoundScreen*>(shell ? shell->findScreen(QString::fromLatin1(kSoundClass))
                                                  : nullptr);
}

void ReminderEditorAdapter::appear() {
  ReminderEditorScreen* e = editor();
  // viewDidLoad once per editor: it fills a new reminder's defaults and
  // clamps the count; a second run would undo the user's changes.
  if (e && e != loaded_) {
    e->viewDidLoad();
    loaded_ = e;
  }
  Q_EMIT changed();
}

bool ReminderEditorAdapter::isNew() const {
  ReminderEditorScreen* e = editor();
  return e && e->index() < 0;
}
bool ReminderEditorAdapter::periodic() const {
  ReminderEditorScreen* e = editor();
  return e && e->reminder().isPeriodic;
}
bool ReminderEditorAdapter::random() const {
  ReminderEditorScreen* e = editor();
  return e && e->reminder().isRandom;
}
int ReminderEditorAdapter::count() const {
  ReminderEditorScreen* e = editor();
  return e ? static_cast<int>(e->reminder().reminderCount) : 1;
}
int ReminderEditorAdapter::minimumCount() const {
  return static_cast<int>(MoodReminderViewController::kMinimumCount);
}
int ReminderEditorAdapter::maximumCount() const {
  return static_cast<int>(MoodReminderViewController::kMaximumCount);
}
int ReminderEditorAdapter::remindType() const {
  ReminderEditorScreen* e = editor();
  return e ? e->remindType() : 0;
}
bool ReminderEditorAdapter::pickerVisible() const {
  ReminderEditorScreen* e = editor();
  return e && e->pickerVisible();
}
int ReminderEditorAdapter::pickerHour() const {
  ReminderEditorScreen* e = editor();
  auto date = e ? e->pickerDate() : std::nullopt;
  return date ? static_cast<int>(Calendar::current().component(CalendarUnit::kHour, *date)) : 0;
}
int ReminderEditorAdapter::pickerMinute() const {
  ReminderEditorScreen* e = editor();
  auto date = e ? e->pickerDate() : std::nullopt;
  return date ? static_cast<int>(Calendar::current().component(CalendarUnit::kMinute, *date)) : 0;
}
QString ReminderEditorAdapter::fromText() const {
  ReminderEditorScreen* e = editor();
  return e ? shortTime(e->reminder().timeFrom) : QString();
}
QString ReminderEditorAdapter::toText() const {
  ReminderEditorScreen* e = editor();
  return e ? shortTime(e->reminder().timeTo) : QString();
}
QString ReminderEditorAdapter::reminderText() const {
  ReminderEditorScreen* e = editor();
  return e ? QString::fromStdString(e->reminderText()) : QString();
}
QString ReminderEditorAdapter::templateText() const {
  ReminderEditorScreen* e = editor();
  return e ? QString::fromStdString(e->templateText()) : QString();
}
QString ReminderEditorAdapter::soundName() const {
  ReminderEditorScreen* e = editor();
  if (!e) return {};
  return QString::fromStdString(MoodReminderUtil::displayNameOfSoundFilename(
      e->reminder().soundFilename.value_or(kDefaultReminderSound)));
}
bool ReminderEditorAdapter::onlyIfNothingRecorded() const {
  ReminderEditorScreen* e = editor();
  return e && e->reminder().onlyIfNothingRecorded;
}

QVariantList ReminderEditorAdapter::sounds() const {
  QVariantList out;
  ReminderSoundScreen* picker = soundScreen();
  if (!picker) return out;
  for (std::size_t row = 0; row < picker->numberOfRows(); ++row) {
    out.append(QVariantMap{{"title", QString::fromStdString(picker->titleForRow(row))},
                           {"checked", row == picker->checkedRow()}});
  }
  return out;
}

void ReminderEditorAdapter::setPeriodic(bool periodic) {
  if (ReminderEditorScreen* e = editor()) e->periodicValueChanged(periodic);
  Q_EMIT changed();
}
void ReminderEditorAdapter::setRandom(bool random) {
  if (ReminderEditorScreen* e = editor()) e->randomSwitchValueChanged(random);
  Q_EMIT changed();
}
void ReminderEditorAdapter::editFrom() {
  if (ReminderEditorScreen* e = editor()) e->fromButtonClick();
  Q_EMIT changed();
}
void ReminderEditorAdapter::editTo() {
  if (ReminderEditorScreen* e = editor()) e->toButtonClick();
  Q_EMIT changed();
}

void ReminderEditorAdapter::setTime(int hour, int minute) {
  ReminderEditorScreen* e = editor();
  if (!e || hour < 0 || hour > 23 || minute < 0 || minute > 59) return;
  Calendar calendar = Calendar::current();
  DateComponents today = calendar.components(kYearMonthDay, Date::now());
  today.hour = hour;
  today.minute = minute;
  today.second = 0;
  if (auto date = calendar.dateFromComponents(today)) e->timePickerValueChanged(*date);
  Q_EMIT changed();
}

void ReminderEditorAdapter::setCount(int count) {
  if (ReminderEditorScreen* e = editor()) e->stepperValueChanged(count);
  Q_EMIT changed();
}
void ReminderEditorAdapter::setReminderText(const QString& text) {
  if (ReminderEditorScreen* e = editor()) e->setReminderText(text.toStdString());
}
void ReminderEditorAdapter::setTemplateText(const QString& text) {
  if (ReminderEditorScreen* e = editor()) e->setTemplateText(text.toStdString());
}
void ReminderEditorAdapter::setOnlyIfNothingRecorded(bool on) {
  if (ReminderEditorScreen* e = editor()) e->reminder().onlyIfNothingRecorded = on;
  Q_EMIT changed();
}

void ReminderEditorAdapter::openSounds() {
  ReminderEditorScreen* e = editor();
  if (!e) return;
  auto self = std::static_pointer_cast<ReminderEditorScreen>(e->shared_from_this());
  if (NavigationController* nav = e->navigationController())
    nav->pushViewController(std::make_shared<ReminderSoundScreen>(self), true);
  if (ShellAdapter* shell = shellOf(runtime_)) shell->refresh();
  Q_EMIT changed();
}

void ReminderEditorAdapter::selectSound(int row) {
  if (ReminderSoundScreen* picker = soundScreen(); picker && row >= 0)
    picker->didSelectRow(static_cast<std::size_t>(row));
  Q_EMIT changed();
}

void ReminderEditorAdapter::closeSounds() {
  reminderSoundPlayer()->stop();
  if (ShellAdapter* shell = shellOf(runtime_)) shell->closeScreen(QString::fromLatin1(kSoundClass));
  Q_EMIT changed();
}

void ReminderEditorAdapter::leaveEditor() {
  reminderSoundPlayer()->stop();
  loaded_ = nullptr;
  if (ShellAdapter* shell = shellOf(runtime_)) shell->closeScreen(QString::fromLatin1(kEditorClass));
  Q_EMIT changed();
}

void ReminderEditorAdapter::save() {
  ReminderEditorScreen* e = editor();
  if (!e) return;
  e->saveClick();
  leaveEditor();
}

void ReminderEditorAdapter::cancel() {
  ReminderEditorScreen* e = editor();
  if (!e) return;
  e->cancelClick();
  leaveEditor();
}

static const GuiRegistration kReminderEditor(31, [](GuiRuntime& runtime) {
  runtime.addSingleton("ReminderEditor", new ReminderEditorAdapter(runtime, &runtime));
});

}  // namespace lumeo::gui
