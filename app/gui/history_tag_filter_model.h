// The calendar's tag sheet as a list model: every tag, most used first,
// with whether it is chosen. The choice itself lives in the history
// controller; this only shows it.
#pragma once

#include <QAbstractListModel>
#include <memory>
#include <vector>

namespace lumeo {
class MoodHistoryViewController;
class MoodTag;
}  // namespace lumeo

namespace lumeo::gui {

class HistoryTagFilterModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ count NOTIFY countChanged)

 public:
  enum Role { NameRole = Qt::UserRole + 1, FrequencyRole, ChosenRole };

  explicit HistoryTagFilterModel(MoodHistoryViewController& controller, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;
  int count() const { return count_; }

  void toggle(int row);
  // Takes the controller's tags afresh (when the sheet opens, and when the
  // choice was emptied).
  void refresh();

 Q_SIGNALS:
  void countChanged();

 private:
  MoodHistoryViewController& controller_;
  std::vector<std::shared_ptr<MoodTag>> tags_;
  int count_ = 0;
};

}  // namespace lumeo::gui
