// One side's tag list of the Summary tab ("#Sleep 7.5" rows coloured by
// their average), and the photos of that side's records for the carousel
// above it. Both read the core's MoodTopTagsViewController, which ranks the
// tags and picks the photos; they change only when it says so.
#pragma once

#include "list_model.h"

namespace lumeo {
class MoodTopTagsViewController;
}

namespace lumeo::gui {

class SummaryTopTagsModel : public ListModel {
  Q_OBJECT

 public:
  enum Role {
    NameRole = Qt::UserRole + 1,
    LabelRole,
    LabelMarkupRole,
    AverageRole,
    AverageTextRole,
    FrequencyRole,
    ColorRole
  };

  explicit SummaryTopTagsModel(MoodTopTagsViewController& controller, QObject* parent = nullptr);

  QVariant data(const QModelIndex& index, int role) const override;
  // The controller ranked again.
  void reset();

 private:
  MoodTopTagsViewController& controller_;
};

class SummaryPhotosModel : public ListModel {
  Q_OBJECT

 public:
  enum Role { ThumbRole = Qt::UserRole + 1, LevelRole, ColorRole };

  explicit SummaryPhotosModel(MoodTopTagsViewController& controller, QObject* parent = nullptr);

  QVariant data(const QModelIndex& index, int role) const override;
  // The controller ranked again.
  void reset();

 private:
  MoodTopTagsViewController& controller_;
};

}  // namespace lumeo::gui
