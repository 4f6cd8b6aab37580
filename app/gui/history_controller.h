// The History tab for QML: one adapter over a MoodHistoryViewController (the
// tab itself, or a tag's or a day's history opened from it). It forwards
// what the user does to the controller and turns what the controller says
// into properties: the bars (HistoryModel), the selected record's detail
// pane with its tagged text, the period and tag filters, list or calendar,
// the calendar and the gallery. Share, edit and delete go through the
// core's share sheet and its Presenter; no rule of the screen lives here.
#pragma once

#include <QColor>
#include <QDate>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>
#include <memory>

#include "browse/mood_history_view_controller.h"

namespace lumeo::gui {

class HistoryModel;
class HistoryTagFilterModel;
class CalendarModel;
class GalleryModel;
class TaggedTextLayout;

class HistoryController : public QObject, public MoodHistoryViewControllerView {
  Q_OBJECT
  Q_PROPERTY(QString title READ title NOTIFY titleChanged)
  Q_PROPERTY(QObject* model READ model CONSTANT)
  Q_PROPERTY(int count READ count NOTIFY countChanged)
  Q_PROPERTY(int selectedIndex READ selectedIndex WRITE setSelectedIndex NOTIFY selectionChanged)
  Q_PROPERTY(bool hasDetail READ hasDetail NOTIFY selectionChanged)
  Q_PROPERTY(int detailLevel READ detailLevel NOTIFY selectionChanged)
  Q_PROPERTY(QString detailLevelText READ detailLevelText NOTIFY selectionChanged)
  Q_PROPERTY(QColor detailColor READ detailColor NOTIFY selectionChanged)
  Q_PROPERTY(QString detailDate READ detailDate NOTIFY selectionChanged)
  Q_PROPERTY(QUrl detailPhoto READ detailPhoto NOTIFY selectionChanged)
  Q_PROPERTY(bool detailEdited READ detailEdited NOTIFY selectionChanged)
  Q_PROPERTY(bool detailHasComment READ detailHasComment NOTIFY selectionChanged)
  Q_PROPERTY(QObject* comment READ comment CONSTANT)
  Q_PROPERTY(bool calendarMode READ calendarMode WRITE setCalendarMode NOTIFY modeChanged)
  Q_PROPERTY(bool canShowCalendar READ canShowCalendar CONSTANT)
  Q_PROPERTY(bool filtered READ filtered NOTIFY filterChanged)
  Q_PROPERTY(QString fromLabel READ fromLabel NOTIFY filterChanged)
  Q_PROPERTY(QString toLabel READ toLabel NOTIFY filterChanged)
  Q_PROPERTY(QDate filterFrom READ filterFrom NOTIFY filterChanged)
  Q_PROPERTY(QDate filterTo READ filterTo NOTIFY filterChanged)
  Q_PROPERTY(QDate minimumDate READ minimumDate NOTIFY filterChanged)
  Q_PROPERTY(QDate maximumDate READ maximumDate NOTIFY filterChanged)
  Q_PROPERTY(QObject* tagFilter READ tagFilter CONSTANT)
  Q_PROPERTY(QObject* calendar READ calendar CONSTANT)

 public:
  // The History tab on a journal; an empty environment means the running
  // application object's journal and share sheet.
  HistoryController(JournalStore& store, MoodHistoryEnvironment environment = {}, QObject* parent = nullptr);
  // Any history screen: the tab, a tag's or a day's.
  HistoryController(JournalStore& store, std::shared_ptr<MoodHistoryViewController> controller, QString title,
                    bool showsCalendar, QObject* parent = nullptr);
  ~HistoryController() override;

  MoodHistoryViewController& core() { return *controller_; }

  // The tab's title, or the core's title of a tag's or a day's list.
  QString title() const;
  QObject* model() const;
  int count() const;
  int selectedIndex() const { return static_cast<int>(controller_->selectedMoodRecordIndex()); }
  void setSelectedIndex(int index);
  bool hasDetail() const { return controller_->detail().hasRecord; }
  int detailLevel() const;
  QString detailLevelText() const;
  QColor detailColor() const;
  QString detailDate() const { return QString::fromStdString(controller_->detail().dateText); }
  QUrl detailPhoto() const;
  bool detailEdited() const { return controller_->detail().editedLabelVisible; }
  bool detailHasComment() const { return !controller_->detail().comment.empty(); }
  QObject* comment() const;
  bool calendarMode() const {
    return controller_->selectedHistoryViewType() == MoodHistoryViewController::kCalendar;
  }
  void setCalendarMode(bool calendar);
  bool canShowCalendar() const { return showsCalendar_; }
  bool filtered() const { return controller_->isFiltered(); }
  QString fromLabel() const;
  QString toLabel() const;
  QDate filterFrom() const;
  QDate filterTo() const;
  QDate minimumDate() const;
  QDate maximumDate() const;
  QObject* tagFilter() const;
  QObject* calendar() const;

  // The tab shows (reloads when stale) or hides.
  Q_INVOKABLE void appear();
  Q_INVOKABLE void disappear();
  Q_INVOKABLE void select(int index) { setSelectedIndex(index); }
  // The share sheet of the selected record (with Edit and, on the tab,
  // Delete), and its two activities directly.
  Q_INVOKABLE void share();
  Q_INVOKABLE void edit();
  Q_INVOKABLE void remove();
  // The period sheet: opening it makes the filter the whole journal; a
  // picked bound obeys the filter's rules; done applies, clear removes.
  Q_INVOKABLE void openPeriodFilter();
  Q_INVOKABLE void pickFrom(const QDate& date);
  Q_INVOKABLE void pickTo(const QDate& date);
  Q_INVOKABLE void applyPeriodFilter();
  Q_INVOKABLE void clearPeriodFilter();
  // The tag sheet of the calendar.
  Q_INVOKABLE void openTagFilter();
  Q_INVOKABLE void toggleTag(int row);
  Q_INVOKABLE void applyTagFilter();
  // A tag tapped in the comment: that tag's history (null for a name that
  // is no tag).
  Q_INVOKABLE QObject* openTag(const QString& name);
  // The gallery of the shown records with a photo, at the selected one.
  Q_INVOKABLE QObject* openGallery();
  // The page that showed this history closed: it goes (a tag's or a day's).
  Q_INVOKABLE void close() { deleteLater(); }

  // MoodHistoryViewControllerView.
  void showDetail(const MoodHistoryDetail& detail) override;
  void imageUpdated(const std::filesystem::path& file) override;
  void showFilterButton(const std::string& imageName) override;
  void reloadCalendar(const std::vector<std::shared_ptr<MoodTag>>& tags) override;
  void scrollCalendarToCurrentMonth() override;
  void closeSheets() override;

 Q_SIGNALS:
  void countChanged();
  void titleChanged();
  void selectionChanged();
  void modeChanged();
  void filterChanged();
  void sheetsClosed();
  // Bring a row into view (centred when `toMiddle`).
  void scrollRequested(int index, bool toMiddle);
  // A tag's or a day's history to show over this one.
  void historyOpened(QObject* history);
  void galleryOpened(QObject* gallery);

 private:
  void connectView();
  void openDay(long year, long month, long day, bool exist);

  JournalStore& store_;
  std::shared_ptr<MoodHistoryViewController> controller_;
  QString title_;
  bool showsCalendar_ = false;
  long shownSelection_ = -1;
  HistoryModel* model_ = nullptr;
  HistoryTagFilterModel* tagFilter_ = nullptr;
  CalendarModel* calendar_ = nullptr;
  TaggedTextLayout* comment_ = nullptr;
};

}  // namespace lumeo::gui
