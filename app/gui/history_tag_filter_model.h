// The calendar's tag sheet as a list model: every tag, most used first,
// with whether it is chosen. The choice itself lives in the history
// controller; this only shows it.
#pragma once

#include <memory>
#include <vector>

#include "list_model.h"

namespace lumeo {
class MoodHistoryViewController;
class MoodTag;
}  // namespace lumeo

namespace lumeo::gui {

class HistoryTagFilterModel : public ListModel {
  Q_OBJECT

 public:
  enum Role { NameRole = Qt::UserRole + 1, FrequencyRole, ChosenRole };

  explicit HistoryTagFilterModel(MoodHistoryViewController& controller, QObject* parent = nullptr);

  QVariant data(const QModelIndex& index, int role) const override;

  void toggle(int row);
  // Takes the controller's tags afresh (when the sheet opens, and when the
  // choice was emptied).
  void refresh();

 private:
  MoodHistoryViewController& controller_;
  std::vector<std::shared_ptr<MoodTag>> tags_;
};

}  // namespace lumeo::gui
