// What the GUI's list models share: the row count QML binds to (`count`,
// also rowCount()), the role names given once, the check every data() call
// makes, and the change announcements wrapped around the model's own rows.
// A model keeps its rows as it likes; it changes them only inside
// resetRows, insertRowAt and removeRowAt, so the count and the views
// always agree with them.
#pragma once

#include <QAbstractListModel>
#include <QHash>
#include <QList>
#include <cstddef>
#include <functional>
#include <optional>

namespace lumeo::gui {

class ListModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ count NOTIFY countChanged)

 public:
  int rowCount(const QModelIndex& parent = {}) const final { return parent.isValid() ? 0 : count_; }
  QHash<int, QByteArray> roleNames() const final { return roles_; }
  int count() const { return count_; }

 Q_SIGNALS:
  void countChanged();

 protected:
  ListModel(QHash<int, QByteArray> roles, QObject* parent);

  // The row `index` stands for, when it is a valid index of this list.
  std::optional<std::size_t> rowOf(const QModelIndex& index) const;
  // The whole list changes: `change` replaces the rows and returns how many
  // there are now.
  void resetRows(const std::function<int()>& change);
  // A row comes in at `row`: `insert` puts it into the rows.
  void insertRowAt(int row, const std::function<void()>& insert);
  // The row at `row` goes: `erase` takes it out of the rows.
  void removeRowAt(int row, const std::function<void()>& erase);
  // Rows first..last show something else (these roles; all when empty).
  void rowsChanged(int first, int last, const QList<int>& roles = {});

 private:
  QHash<int, QByteArray> roles_;
  int count_ = 0;
};

}  // namespace lumeo::gui
