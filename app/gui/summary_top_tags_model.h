// One side's tag list of the Summary tab ("#Sleep 7.5" rows coloured by
// their average), and the photos of that side's records for the carousel
// above it. Both read the core's MoodTopTagsViewController, which ranks the
// tags and picks the photos; they change only when it says so.
#pragma once

#include <QAbstractListModel>

namespace lumeo {
class MoodTopTagsViewController;
}

namespace lumeo::gui {

class SummaryTopTagsModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ count NOTIFY countChanged)

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

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;
  int count() const { return count_; }
  void reset();

 Q_SIGNALS:
  void countChanged();

 private:
  MoodTopTagsViewController& controller_;
  int count_ = 0;
};

class SummaryPhotosModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ count NOTIFY countChanged)

 public:
  enum Role { ThumbRole = Qt::UserRole + 1, LevelRole, ColorRole };

  explicit SummaryPhotosModel(MoodTopTagsViewController& controller, QObject* parent = nullptr);

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;
  int count() const { return count_; }
  void reset();

 Q_SIGNALS:
  void countChanged();

 private:
  MoodTopTagsViewController& controller_;
  int count_ = 0;
};

}  // namespace lumeo::gui
