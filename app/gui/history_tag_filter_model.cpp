#include "history_tag_filter_model.h"

#include <algorithm>

#include "browse/mood_history_view_controller.h"
#include "store/mood_tag.h"

namespace lumeo::gui {

HistoryTagFilterModel::HistoryTagFilterModel(MoodHistoryViewController& controller, QObject* parent)
    : ListModel({{NameRole, "name"}, {FrequencyRole, "frequency"}, {ChosenRole, "chosen"}}, parent),
      controller_(controller) {}

QVariant HistoryTagFilterModel::data(const QModelIndex& index, int role) const {
  const auto row = rowOf(index);
  if (!row) return {};
  const auto& tag = tags_[*row];
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

void HistoryTagFilterModel::toggle(int row) {
  if (row < 0 || row >= count()) return;
  controller_.toggleSelectedTag(tags_[static_cast<std::size_t>(row)]);
  rowsChanged(row, row, {ChosenRole});
}

void HistoryTagFilterModel::refresh() {
  resetRows([this] {
    tags_ = controller_.tags();
    return static_cast<int>(tags_.size());
  });
}

}  // namespace lumeo::gui
