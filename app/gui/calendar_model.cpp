#include "calendar_model.h"

#include <QUrl>
#include <QVariantMap>
#include <algorithm>
#include <cmath>

#include "platform/date.h"
#include "store/mood_record.h"
#include "summary_pictures.h"

namespace lumeo::gui {

CalendarModel::CalendarModel(JournalStore& store, QObject* parent)
    : QAbstractListModel(parent), store_(store) {}

CalendarModel::~CalendarModel() = default;

int CalendarModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(slots_.size());
}

QVariant CalendarModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
  const long month = slots_[static_cast<std::size_t>(index.row())];
  if (role == MonthIndexRole) return static_cast<int>(month);
  if (month < 0 || !view_) {
    if (role == DaysRole) return QVariantList();
    if (role == TitleRole) return QString();
    if (role == YRole || role == HeightRole) return 0.0;
    return {};
  }
  switch (role) {
    case YRole:
      return view_->layout().monthFrame(month).y;
    case HeightRole:
      return view_->layout().monthFrame(month).height;
    case TitleRole:
      return QString::fromStdString(MoodCalendarView::headerByMonthIndex(month));
    case DaysRole:
      if (auto* monthView = view_->monthViewForIndex(month)) return daysOf(*monthView);
      return QVariantList();
    default:
      return {};
  }
}

QHash<int, QByteArray> CalendarModel::roleNames() const {
  return {{MonthIndexRole, "monthIndex"},
          {YRole, "monthY"},
          {HeightRole, "monthHeight"},
          {TitleRole, "title"},
          {DaysRole, "days"}};
}

QVariantList CalendarModel::daysOf(const MoodCalendarMonthView& monthView) const {
  QVariantList days;
  for (const MoodDayView& day : monthView.dayViews()) {
    if (day.hidden) continue;
    QVariantList strip;
    QStringList levels;
    for (const MoodDayStripPiece& piece : day.strip()) {
      strip.append(QVariantMap{{QStringLiteral("x"), piece.x},
                               {QStringLiteral("width"), piece.width},
                               {QStringLiteral("color"), toQColor(piece.color)}});
      levels.append(QString::number(piece.level));
    }
    auto background = day.background();
    QUrl image;
    if (day.look() == MoodDayView::Look::kPhoto && day.imageFile())
      image = QUrl::fromLocalFile(QString::fromStdString(day.imageFile()->string()));
    days.append(QVariantMap{
        {QStringLiteral("day"), static_cast<int>(day.day)},
        {QStringLiteral("x"), day.frame.x},
        {QStringLiteral("y"), day.frame.y},
        {QStringLiteral("look"), static_cast<int>(day.look())},
        {QStringLiteral("background"), background ? toQColor(*background) : QColor(Qt::transparent)},
        {QStringLiteral("numberColor"), toQColor(day.numberColor())},
        {QStringLiteral("image"), image},
        {QStringLiteral("strip"), strip},
        {QStringLiteral("levels"), levels.join(QStringLiteral(", "))},
        {QStringLiteral("exists"), day.exists()},
    });
  }
  return days;
}

double CalendarModel::contentHeight() const {
  return view_ ? view_->layout().contentHeight() : 0;
}
double CalendarModel::contentOffset() const {
  return view_ ? view_->contentOffset() : 0;
}

QStringList CalendarModel::weekdays() const {
  QStringList list;
  for (const auto& letter : MoodCalendarMonthView::weekdayHeadings())
    list.append(QString::fromStdString(letter));
  return list;
}

QString CalendarModel::currentMonthTitle() const {
  return view_ ? QString::fromStdString(view_->monthButtonTitle()) : QString();
}

int CalendarModel::currentMonthIndex() const {
  return view_ ? static_cast<int>(view_->currentMonthIndex()) : -1;
}
int CalendarModel::monthCount() const {
  return view_ ? static_cast<int>(view_->layout().monthCount()) : 0;
}

void CalendarModel::setViewport(double width, double height) {
  if (width < 100 || height < 100) return;
  // Seven days and six gaps fill the width, within sizes a finger and an
  // eye accept.
  MoodCalendarMetrics metrics;
  metrics.width = width;
  metrics.space = 5;
  metrics.daySize = std::clamp(std::floor((width - 6 * metrics.space) / 7), 36.0, 96.0);
  if (view_ && metrics.daySize == metrics_.daySize && std::abs(height - viewportHeight_) < 1) return;
  const long keep = view_ ? view_->currentMonthIndex() : -1;
  metrics_ = metrics;
  viewportHeight_ = height;
  beginResetModel();
  view_ = std::make_unique<MoodCalendarView>(store_, metrics_, viewportHeight_, Date::now());
  view_->setDelegate(this);
  view_->setTags(tags_);
  slots_.clear();
  endResetModel();
  Q_EMIT layoutChanged();
  view_->scrollToMonthIndex(keep >= 0 ? keep : view_->lastMonthIndex(), false);
  sync();
  Q_EMIT currentMonthChanged();
}

void CalendarModel::scrolled(double offset) {
  if (!view_) return;
  view_->scrollViewDidScroll(offset);
  sync();
}

void CalendarModel::dragStarted() {
  if (view_) view_->scrollViewWillBeginDragging();
}

void CalendarModel::dragEnded(bool willDecelerate) {
  if (!view_) return;
  view_->scrollViewDidEndDragging(willDecelerate);
  sync();
}

void CalendarModel::decelerationEnded() {
  if (!view_) return;
  view_->scrollViewDidEndDecelerating();
  sync();
}

void CalendarModel::scrollToCurrentMonth() {
  if (!view_) return;
  view_->scrollToMonthIndex(view_->lastMonthIndex(), true);
  sync();
}

void CalendarModel::pickMonth(int year, int month) {
  if (!view_) return;
  view_->monthPicked(year, month);
  sync();
}

void CalendarModel::pressDay(int row, int day) {
  if (!view_ || row < 0 || row >= static_cast<int>(slots_.size())) return;
  auto* monthView = view_->monthViewForIndex(slots_[static_cast<std::size_t>(row)]);
  if (!monthView || day < 0 || day >= static_cast<int>(monthView->dayViews().size())) return;
  const MoodDayView& dayView = monthView->dayViews()[static_cast<std::size_t>(day)];
  if (!dayView.hidden) dayView.buttonPressed();
}

void CalendarModel::reload() {
  if (!view_) return;
  view_->reload();
  if (!slots_.empty()) Q_EMIT dataChanged(index(0), index(static_cast<int>(slots_.size()) - 1), {DaysRole});
}

void CalendarModel::setTags(std::vector<std::shared_ptr<MoodTag>> tags) {
  tags_ = std::move(tags);
  if (!view_) return;
  view_->setTags(tags_);
  reload();
}

void CalendarModel::didCalendarViewPressed(long year, long month, long day, bool exist) {
  Q_EMIT dayPressed(static_cast<int>(year), static_cast<int>(month), static_cast<int>(day), exist);
}

void CalendarModel::didCalendarViewCurrentMonthIndexChanged(long) {
  Q_EMIT currentMonthChanged();
}

void CalendarModel::sync() {
  // Which month each view shows now.
  std::vector<long> now(static_cast<std::size_t>(view_->monthRecycler().viewsMade()), -1);
  for (auto [month, viewNumber] : view_->monthRecycler().viewsInUse())
    now[static_cast<std::size_t>(viewNumber)] = month;
  if (now.size() > slots_.size()) {
    beginInsertRows({}, static_cast<int>(slots_.size()), static_cast<int>(now.size()) - 1);
    const std::size_t old = slots_.size();
    slots_.resize(now.size(), -1);
    for (std::size_t i = old; i < now.size(); ++i) slots_[i] = now[i];
    endInsertRows();
  }
  for (std::size_t i = 0; i < now.size(); ++i) {
    if (slots_[i] == now[i]) continue;
    slots_[i] = now[i];
    Q_EMIT dataChanged(index(static_cast<int>(i)), index(static_cast<int>(i)));
  }
  QVariantList headers;
  for (auto [month, viewNumber] : view_->headerRecycler().viewsInUse()) {
    (void)viewNumber;
    const Rect& frame = view_->layout().headerFrame(month);
    headers.append(QVariantMap{
        {QStringLiteral("y"), frame.y},
        {QStringLiteral("height"), frame.height},
        {QStringLiteral("title"), QString::fromStdString(MoodCalendarView::headerByMonthIndex(month))}});
  }
  if (headers != headers_) {
    headers_ = headers;
    Q_EMIT headersChanged();
  }
  Q_EMIT offsetChanged();
}

}  // namespace lumeo::gui
