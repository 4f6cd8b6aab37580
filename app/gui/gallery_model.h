// The gallery for QML: one page per record with a photo, as the core's
// MoodGalleryViewController pages through them. QML's horizontal list
// reports its offset; the controller decides the current page, keeps only
// the pages near it alive and hands the selection back to the list that
// opened it when scrolling stops. The bottom panel (comment as tagged
// text, date, title, "Back") comes from the controller. When the journal
// changes (a save, or another program's write read again) the controller
// fetches its list again and the model is reset: a deleted photo leaves,
// an added one joins, and the page stays on the same record or its
// neighbour.
#pragma once

#include <QAbstractListModel>
#include <QString>
#include <memory>

namespace lumeo {
class MoodGalleryViewController;
}

namespace lumeo::gui {

class TaggedTextLayout;

class GalleryModel : public QAbstractListModel {
  Q_OBJECT
  Q_PROPERTY(int count READ count NOTIFY recordsChanged)
  Q_PROPERTY(int currentIndex READ currentIndex NOTIFY currentChanged)
  Q_PROPERTY(double contentOffset READ contentOffset NOTIFY currentChanged)
  Q_PROPERTY(QString title READ title NOTIFY currentChanged)
  Q_PROPERTY(QString backTitle READ backTitle NOTIFY currentChanged)
  Q_PROPERTY(QString dateText READ dateText NOTIFY currentChanged)
  Q_PROPERTY(bool edited READ edited NOTIFY currentChanged)
  Q_PROPERTY(QObject* comment READ comment CONSTANT)
  Q_PROPERTY(bool panelHidden READ panelHidden NOTIFY panelChanged)
  Q_PROPERTY(bool scrollEnabled READ scrollEnabled NOTIFY recordsChanged)

 public:
  enum Role { PhotoRole = Qt::UserRole + 1, ReadyRole, AliveRole };

  explicit GalleryModel(std::shared_ptr<MoodGalleryViewController> gallery, QObject* parent = nullptr);
  ~GalleryModel() override;

  MoodGalleryViewController& core() { return *gallery_; }

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QHash<int, QByteArray> roleNames() const override;

  int count() const;
  int currentIndex() const;
  double contentOffset() const;
  QString title() const;
  QString backTitle() const;
  QString dateText() const;
  bool edited() const;
  QObject* comment() const;
  bool panelHidden() const;
  bool scrollEnabled() const;

  Q_INVOKABLE void setPageWidth(double width);
  Q_INVOKABLE void scrolled(double offset);
  Q_INVOKABLE void scrollEnded();
  Q_INVOKABLE void togglePanel();
  Q_INVOKABLE void share();
  // The page closed: the gallery goes.
  Q_INVOKABLE void close() { deleteLater(); }

 Q_SIGNALS:
  void currentChanged();
  void panelChanged();
  // The list was fetched again: the pages stand at currentIndex anew.
  void recordsChanged();

 private:
  void refresh();

  std::shared_ptr<MoodGalleryViewController> gallery_;
  TaggedTextLayout* comment_ = nullptr;
  long shownIndex_ = -1;
};

}  // namespace lumeo::gui
