#include "history_tag_filter_model.h"

#include <algorithm>

#include "browse/mood_history_view_controller.h"
#include "store/mood_tag.h"

namespace lumeo::gui {

HistoryTagFilterModel::HistoryTagFilterModel(MoodHistoryViewController& controller, QObject* parent)
    : QAbstractListModel(parent), controller_(controller) {}

int HistoryTagFilterModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : count_;
}

QVariant HistoryTagFilterModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) return {};
  const auto& tag = tags_[static_cast<std::size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
    case NameRole:
      return QString::fromStdString(tag->tagName());
    case FrequencyRole:
      return static_cast<int>(tag->frequency());
    case ChosenRole: {
      const auto& chosen = controller_.selectedTags();
      return std::find(chosen.begin(), chosen.end(), tag) != chosen.end();
    }
    default:
      return {};
  }
}

QHash<int, QByteArray> HistoryTagFilterModel::roleNames() const {
  return {{NameRole, "name"}, {FrequencyRole, "frequency"}, {ChosenRole, "chosen"}};
}

void HistoryTagFilterModel::toggle(int row) {
  if (row < 0 || row >= count_) return;
  controller_.toggleSelectedTag(tags_[static_cast<std::size_t>(row)]);
  Q_EMIT dataChanged(index(row), index(row), {ChosenRole});
}

void HistoryTagFilterModel::refresh() {
  beginResetModel();
  tags_ = controller_.tags();
  count_ = static_cast<int>(tags_.size());
  endResetModel();
  Q_EMIT countChanged();
}

}  // namespace lumeo::gui
