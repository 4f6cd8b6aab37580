#include "history_model.h"

#include "browse/mood_history_view_controller.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "summary_pictures.h"

namespace lumeo::gui {

namespace {
// A row shows the comment's first line; more is the detail pane's job.
constexpr qsizetype kPreviewCharacters = 160;

QString preview(const std::optional<std::string>& comment) {
  if (!comment || comment->empty()) return {};
  // Only the head of a long comment is converted.
  const std::size_t head = std::min<std::size_t>(comment->size(), 4 * kPreviewCharacters);
  QString text = QString::fromUtf8(comment->data(), static_cast<qsizetype>(head));
  const qsizetype newline = text.indexOf(QLatin1Char('\n'));
  if (newline >= 0) text.truncate(newline);
  if (text.size() > kPreviewCharacters) text = text.left(kPreviewCharacters) + QStringLiteral("…");
  return text;
}
}  // namespace

HistoryModel::HistoryModel(MoodHistoryViewController& controller, QObject* parent)
    : ListModel({{LevelRole, "level"},
                 {LevelTextRole, "levelText"},
                 {ColorRole, "levelColor"},
                 {TimeRole, "time"},
                 {DayTitleRole, "dayTitle"},
                 {FirstOfDayRole, "firstOfDay"},
                 {CommentRole, "comment"},
                 {HasPhotoRole, "hasPhoto"},
                 {SelectedRole, "selected"}},
                parent),
      controller_(controller) {
  timeFormatter_.setDateStyle(DateFormatter::Style::kNone);
  timeFormatter_.setTimeStyle(DateFormatter::Style::kShort);
  reset();
}

QVariant HistoryModel::data(const QModelIndex& index, int role) const {
  const auto row = rowOf(index);
  if (!row) return {};
  const auto& record = rows_[*row];
  switch (role) {
    case Qt::DisplayRole:
    case LevelRole:
      return static_cast<int>(record->moodLevel());
    case LevelTextRole: {
      auto presentation = levels_.presentationForMoodLevel(record->moodLevel());
      return presentation ? QString::fromStdString(presentation->text) : QString();
    }
    case ColorRole: {
      auto color = levels_.interpolatedColorForMoodLevel(static_cast<double>(record->moodLevel()));
      return color ? toQColor(*color) : QColor(Qt::gray);
    }
    case TimeRole: {
      auto date = record->date();
      return date ? QString::fromStdString(timeFormatter_.stringFromDate(*date)) : QString();
    }
    case DayTitleRole: {
      auto& view = controller_.historyView();
      auto [section, unused] = view.sectionAndRowForIndex(index.row());
      (void)unused;
      return QString::fromStdString(view.sectionHeaderTitle(section));
    }
    case FirstOfDayRole: {
      auto [section, sectionRow] = controller_.historyView().sectionAndRowForIndex(index.row());
      return section >= 0 && sectionRow == 0;
    }
    case CommentRole:
      return extras(record.get()).comment;
    case HasPhotoRole:
      return extras(record.get()).hasPhoto;
    case SelectedRole:
      return record == controller_.selectedRecord();
    default:
      return {};
  }
}

const HistoryModel::Extras& HistoryModel::extras(const MoodRecord* record) const {
  constexpr std::size_t kMaxCached = 512;
  auto found = extras_.find(record);
  if (found != extras_.end()) return found->second;
  if (extras_.size() >= kMaxCached) extras_.clear();
  Extras extras;
  if (auto description = record->moodDescription()) {
    extras.comment = preview(description->comment());
    extras.hasPhoto = !description->photoName().value_or("").empty();
  }
  return extras_.emplace(record, std::move(extras)).first->second;
}

void HistoryModel::reset() {
  resetRows([this] {
    extras_.clear();
    rows_ = controller_.moodRecords();
    return static_cast<int>(rows_.size());
  });
}

void HistoryModel::removeRecordAt(long index) {
  if (index < 0 || index >= count()) {
    reset();
    return;
  }
  const int row = static_cast<int>(index);
  removeRowAt(row, [this, row] {
    extras_.erase(rows_[static_cast<std::size_t>(row)].get());
    rows_.erase(rows_.begin() + row);
  });
  // The row after it may have become the first of its day.
  rowsChanged(row, row);
}

void HistoryModel::selectionChanged(long oldIndex, long newIndex) {
  for (long i : {oldIndex, newIndex}) {
    if (i >= 0 && i < count()) rowsChanged(static_cast<int>(i), static_cast<int>(i), {SelectedRole});
  }
}

void HistoryModel::refreshLooks() {
  levels_ = MoodLevelsPresentation();
  timeFormatter_ = DateFormatter();
  timeFormatter_.setDateStyle(DateFormatter::Style::kNone);
  timeFormatter_.setTimeStyle(DateFormatter::Style::kShort);
  rowsChanged(0, count() - 1);
}

}  // namespace lumeo::gui
