#include "list_model.h"

#include <algorithm>

namespace lumeo::gui {

ListModel::ListModel(QHash<int, QByteArray> roles, QObject* parent)
    : QAbstractListModel(parent), roles_(std::move(roles)) {}

std::optional<std::size_t> ListModel::rowOf(const QModelIndex& index) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
    return std::nullopt;
  return static_cast<std::size_t>(index.row());
}

void ListModel::resetRows(const std::function<int()>& change) {
  beginResetModel();
  count_ = change();
  endResetModel();
  // Said even when the number stayed: what binds to it reads the new rows.
  Q_EMIT countChanged();
}

void ListModel::insertRowAt(int row, const std::function<void()>& insert) {
  beginInsertRows({}, row, row);
  insert();
  ++count_;
  endInsertRows();
  Q_EMIT countChanged();
}

void ListModel::removeRowAt(int row, const std::function<void()>& erase) {
  if (row < 0 || row >= count_) return;
  beginRemoveRows({}, row, row);
  erase();
  --count_;
  endRemoveRows();
  Q_EMIT countChanged();
}

void ListModel::rowsChanged(int first, int last, const QList<int>& roles) {
  first = std::max(first, 0);
  last = std::min(last, count_ - 1);
  if (first > last) return;
  Q_EMIT dataChanged(index(first), index(last), roles);
}

}  // namespace lumeo::gui
