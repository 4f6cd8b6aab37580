#include "history_controller.h"

#include <QDateTime>
#include <QQmlEngine>
#include <QTimeZone>

#include "browse/browse_text.h"
#include "browse/mood_date_history_view_controller.h"
#include "browse/mood_tag_history_view_controller.h"
#include "calendar_model.h"
#include "capture/mood_levels_presentation.h"
#include "gallery_model.h"
#include "gui_runtime.h"
#include "history_model.h"
#include "history_tag_filter_model.h"
#include "shell/mood_app_delegate.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "summary_pictures.h"
#include "tagged_text_layout.h"
#include "theme.h"

namespace lumeo::gui {

namespace {

Date dateFromQDate(const QDate& date) {
  return Date::fromTimeIntervalSince1970(
      static_cast<double>(QDateTime(date, QTime(0, 0)).toSecsSinceEpoch()));
}

QDate qDateFromDate(const std::optional<Date>& date) {
  if (!date) return {};
  return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(date->timeIntervalSince1970())).date();
}

}  // namespace

HistoryController::HistoryController(JournalStore& store, MoodHistoryEnvironment environment, QObject* parent)
    : HistoryController(store, std::make_shared<MoodHistoryViewController>(std::move(environment)),
                        QString::fromStdString(browseText("History")), true, parent) {}

HistoryController::HistoryController(JournalStore& store,
                                     std::shared_ptr<MoodHistoryViewController> controller, QString title,
                                     bool showsCalendar, QObject* parent)
    : QObject(parent),
      store_(store),
      controller_(std::move(controller)),
      title_(std::move(title)),
      showsCalendar_(showsCalendar) {
  // QML must not collect it: its page closes it.
  QQmlEngine::setObjectOwnership(this, QQmlEngine::CppOwnership);
  model_ = new HistoryModel(*controller_, this);
  tagFilter_ = new HistoryTagFilterModel(*controller_, this);
  comment_ = new TaggedTextLayout(this);
  if (showsCalendar_) {
    calendar_ = new CalendarModel(store_, this);
    connect(calendar_, &CalendarModel::dayPressed, this,
            [this](int year, int month, int day, bool exist) { openDay(year, month, day, exist); });
  }
  // New level texts or colours (the level editor) redraw the rows.
  if (GuiRuntime* runtime = GuiRuntime::instance())
    connect(&runtime->theme(), &Theme::levelsChanged, model_, &HistoryModel::refreshLooks);
  connectView();
  controller_->viewDidLoad();
  controller_->reloadMoodRecords(false);
  model_->reset();
}

HistoryController::~HistoryController() {
  controller_->setView(nullptr);
  controller_->historyView().setUpdates({});
}

void HistoryController::connectView() {
  controller_->setView(this);
  MoodHistoryViewUpdates updates;
  updates.reloadData = [this] {
    model_->reset();
    Q_EMIT countChanged();
  };
  // The list has already lost the record: find the row it had from the
  // regrouped days. A section that went held that one record.
  updates.deleteRow = [this](long section, long row) {
    const auto& groups = controller_->historyView().moodRecordGroups();
    model_->removeRecordAt(section >= 0 && section < static_cast<long>(groups.size()) ? groups[section] + row
                                                                                      : -1);
    Q_EMIT countChanged();
  };
  updates.deleteSection = [this](long section) {
    auto& view = controller_->historyView();
    const long index = section < view.numberOfSections()
                           ? view.moodRecordGroups()[section]
                           : static_cast<long>(controller_->moodRecords().size());
    model_->removeRecordAt(index);
    Q_EMIT countChanged();
  };
  updates.scrollToIndex = [this](long index, bool, bool toMiddle) {
    Q_EMIT scrollRequested(static_cast<int>(index), toMiddle);
  };
  controller_->historyView().setUpdates(std::move(updates));
}

QString HistoryController::title() const {
  if (auto* tag = dynamic_cast<MoodTagHistoryViewController*>(controller_.get()))
    return QString::fromStdString(tag->title());
  if (auto* day = dynamic_cast<MoodDateHistoryViewController*>(controller_.get()))
    return QString::fromStdString(day->title());
  return title_;
}

QObject* HistoryController::model() const {
  return model_;
}
QObject* HistoryController::comment() const {
  return comment_;
}
QObject* HistoryController::tagFilter() const {
  return tagFilter_;
}
QObject* HistoryController::calendar() const {
  return calendar_;
}
int HistoryController::count() const {
  return model_->count();
}

void HistoryController::setSelectedIndex(int index) {
  if (index == selectedIndex()) return;
  controller_->setSelectedMoodRecordIndex(index);
}

int HistoryController::detailLevel() const {
  auto record = controller_->selectedRecord();
  return record ? static_cast<int>(record->moodLevel()) : 0;
}

QString HistoryController::detailLevelText() const {
  auto presentation = MoodLevelsPresentation().presentationForMoodLevel(detailLevel());
  return presentation ? QString::fromStdString(presentation->text) : QString();
}

QColor HistoryController::detailColor() const {
  auto color = MoodLevelsPresentation().interpolatedColorForMoodLevel(detailLevel());
  return color ? toQColor(*color) : QColor(Qt::gray);
}

QUrl HistoryController::detailPhoto() const {
  const auto& file = controller_->detail().thumbFile;
  return file ? QUrl::fromLocalFile(QString::fromStdString(file->string())) : QUrl();
}

void HistoryController::setCalendarMode(bool calendar) {
  if (calendar && !showsCalendar_) return;
  if (calendar == calendarMode()) return;
  controller_->setSelectedHistoryViewType(calendar ? MoodHistoryViewController::kCalendar
                                                   : MoodHistoryViewController::kList);
  tagFilter_->refresh();
  Q_EMIT modeChanged();
  Q_EMIT filterChanged();
}

QString HistoryController::fromLabel() const {
  return QString::fromStdString(controller_->filter().fromLabel());
}
QString HistoryController::toLabel() const {
  return QString::fromStdString(controller_->filter().toLabel());
}
QDate HistoryController::filterFrom() const {
  return qDateFromDate(controller_->filter().dateFrom);
}
QDate HistoryController::filterTo() const {
  return qDateFromDate(controller_->filter().dateTo);
}
QDate HistoryController::minimumDate() const {
  return qDateFromDate(controller_->filter().minimumDate);
}
QDate HistoryController::maximumDate() const {
  return qDateFromDate(controller_->filter().maximumDate);
}

void HistoryController::appear() {
  controller_->viewWillAppear();
  if (calendar_ && calendarMode()) calendar_->reload();
}

void HistoryController::disappear() {
  controller_->viewWillDisappear();
}

void HistoryController::share() {
  controller_->chooseAction();
}

void HistoryController::edit() {
  auto record = controller_->selectedRecord();
  if (!record) return;
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) app->moodEditActivityFinished(record);
}

void HistoryController::remove() {
  // Only the tab's share sheet offers Delete; a tag's or a day's list
  // does not.
  if (!controller_->selectedRecord() || controller_->chooseActionKind() != 1) return;
  // The same road as the share sheet's Delete: its warning, then the
  // deletion notification that this screen answers.
  if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate())
    app->moodDeleteActivityChosen(controller_->chooseActionKind());
}

void HistoryController::openPeriodFilter() {
  controller_->openPeriodFilter();
  Q_EMIT filterChanged();
}

void HistoryController::pickFrom(const QDate& date) {
  if (!date.isValid()) return;
  controller_->setEditingBound(MoodHistoryPeriodFilter::kEditingFrom);
  controller_->periodDateSelected(dateFromQDate(date));
  Q_EMIT filterChanged();
}

void HistoryController::pickTo(const QDate& date) {
  if (!date.isValid()) return;
  controller_->setEditingBound(MoodHistoryPeriodFilter::kEditingTo);
  controller_->periodDateSelected(dateFromQDate(date));
  Q_EMIT filterChanged();
}

void HistoryController::applyPeriodFilter() {
  controller_->filterDoneClicked();
  Q_EMIT filterChanged();
}

void HistoryController::clearPeriodFilter() {
  controller_->filterResetClicked();
  Q_EMIT filterChanged();
}

void HistoryController::openTagFilter() {
  tagFilter_->refresh();
}

void HistoryController::toggleTag(int row) {
  tagFilter_->toggle(row);
}

void HistoryController::applyTagFilter() {
  controller_->tagFilterDoneClicked();
  Q_EMIT filterChanged();
}

QObject* HistoryController::openTag(const QString& name) {
  auto tag = store_.tagNamed(name.toStdString());
  if (!tag) return nullptr;
  auto screen = std::dynamic_pointer_cast<MoodHistoryViewController>(
      controller_->taggedTextViewDidSelectTag(name.toStdString()));
  if (!screen) {
    // A tag's list takes the other tag itself.
    Q_EMIT titleChanged();
    return nullptr;
  }
  auto* history = new HistoryController(store_, screen, {}, false, this);
  Q_EMIT historyOpened(history);
  return history;
}

void HistoryController::openDay(long year, long month, long day, bool exist) {
  auto screen = controller_->didCalendarViewPressed(year, month, day, exist);
  if (!screen) return;
  auto* history = new HistoryController(store_, screen, {}, false, this);
  Q_EMIT historyOpened(history);
}

QObject* HistoryController::openGallery() {
  auto gallery = controller_->photoTouchUpInside();
  if (!gallery) return nullptr;
  auto* model = new GalleryModel(gallery, this);
  Q_EMIT galleryOpened(model);
  return model;
}

void HistoryController::showDetail(const MoodHistoryDetail& detail) {
  comment_->setShortLines(detail.photoVisible ? static_cast<int>(detail.shortLinesCount) : 0);
  comment_->setShortIndent(detail.photoVisible ? detail.shortLinesIndent : 0);
  comment_->setMaxLines(static_cast<int>(detail.maxLinesCount));
  comment_->setText(QString::fromStdString(detail.comment));
  const long now = controller_->selectedMoodRecordIndex();
  model_->selectionChanged(shownSelection_, now);
  shownSelection_ = now;
  Q_EMIT selectionChanged();
}

void HistoryController::imageUpdated(const std::filesystem::path&) {
  Q_EMIT selectionChanged();
}

void HistoryController::showFilterButton(const std::string&) {
  Q_EMIT filterChanged();
}

void HistoryController::reloadCalendar(const std::vector<std::shared_ptr<MoodTag>>& tags) {
  if (!calendar_) return;
  calendar_->setTags(tags);
}

void HistoryController::scrollCalendarToCurrentMonth() {
  if (calendar_) calendar_->scrollToCurrentMonth();
}

void HistoryController::closeSheets() {
  Q_EMIT sheetsClosed();
}

}  // namespace lumeo::gui
