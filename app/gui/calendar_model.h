// The History tab's calendar for QML. The core's MoodCalendarView lays out
// every month since January 1970, decides which months the scroll offset
// shows, recycles their views and fetches each month's records once; this
// model has one row per month view the core made (a screenful, however far
// the user scrolls) and says which month each row shows now, where, and
// what its days look like. QML only places the rows and forwards the
// scrolling and the taps.
#pragma once

#include <QAbstractListModel>
#include <QStringList>
#include <QVariantList>
#include <memory>
#include <vector>

#include "browse/mood_calendar_view.h"

namespace lumeo {
class JournalStore;
class MoodTag;
}  // namespace lumeo

namespace lumeo::gui {

class CalendarModel : public QAbstractListModel, public MoodCalendarViewDelegate {
  Q_OBJECT
  Q_PROPERTY(double contentHeight READ contentHeight NOTIFY layoutChanged)
  Q_PROPERTY(double contentOffset READ contentOffset NOTIFY offsetChanged)
  Q_PROPERTY(double daySize READ daySize NOTIFY layoutChanged)
  Q_PROPERTY(double space READ space NOTIFY layoutChanged)
  Q_PROPERTY(double headerHeight READ headerHeight NOTIFY layoutChanged)
  Q_PROPERTY(double weekdaysHeight READ weekdaysHeight NOTIFY layoutChanged)
  Q_PROPERTY(QStringList weekdays READ weekdays NOTIFY layoutChanged)
  Q_PROPERTY(QVariantList headers READ headers NOTIFY headersChanged)
  Q_PROPERTY(QString currentMonthTitle READ currentMonthTitle NOTIFY currentMonthChanged)
  Q_PROPERTY(int currentMonthIndex READ currentMonthIndex NOTIFY currentMonthChanged)
  Q_PROPERTY(int monthCount READ monthCount NOTIFY layoutChanged)

 public:
  enum Role { MonthIndexRole = Qt::UserRole + 1, YRole, HeightRole, TitleRole, DaysRole };

  explicit CalendarModel(JournalStore& store, QObject* parent = nullptr);
  ~CalendarModel() override;

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

  double contentHeight() const;
  double contentOffset() const;
  double daySize() const { return metrics_.daySize; }
  double space() const { return metrics_.space; }
  double headerHeight() const { return metrics_.headerHeight; }
  double weekdaysHeight() const { return metrics_.weekdaysHeight; }
  QStringList weekdays() const;
  QVariantList headers() const { return headers_; }
  QString currentMonthTitle() const;
  int currentMonthIndex() const;
  int monthCount() const;
  // Views the core made so far: stays about a screenful.
  int viewsMade() const { return static_cast<int>(slots_.size()); }

  // The item's size: the layout is built for it (again when it changes),
  // the months sized to fill the width.
  Q_INVOKABLE void setViewport(double width, double height);
  Q_INVOKABLE void scrolled(double offset);
  Q_INVOKABLE void dragStarted();
  Q_INVOKABLE void dragEnded(bool willDecelerate);
  Q_INVOKABLE void decelerationEnded();
  Q_INVOKABLE void scrollToCurrentMonth();
  Q_INVOKABLE void pickMonth(int year, int month);
  // A tap on day `day` (zero-based) of the month shown by row `row`.
  Q_INVOKABLE void pressDay(int row, int day);
  // Refetches the months on screen.
  Q_INVOKABLE void reload();
  void setTags(std::vector<std::shared_ptr<MoodTag>> tags);

  // MoodCalendarViewDelegate.
  void didCalendarViewPressed(long year, long month, long day, bool exist) override;
  void didCalendarViewCurrentMonthIndexChanged(long index) override;

 Q_SIGNALS:
  void layoutChanged();
  void offsetChanged();
  void headersChanged();
  void currentMonthChanged();
  void dayPressed(int year, int month, int day, bool exist);

 private:
  void sync();
  QVariantList daysOf(const MoodCalendarMonthView& view) const;

  JournalStore& store_;
  MoodCalendarMetrics metrics_;
  double viewportHeight_ = 0;
  std::unique_ptr<MoodCalendarView> view_;
  std::vector<std::shared_ptr<MoodTag>> tags_;
  // By view number: the month index it shows, -1 while pooled.
  std::vector<long> slots_;
  QVariantList headers_;
};

}  // namespace lumeo::gui
