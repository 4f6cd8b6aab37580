// The Summary tab for QML: the three pages of the core's
// MoodSummaryViewController (averages and charts, positive tags, negative
// tags). The period, the averages, the bars' lengths and colours, the
// charts and their not-enough-data flags, the ranked tags and the photos
// all come from the core; the charts are drawn by it on the Canvas and
// served as pictures. From here the user opens the graph, a tag's history
// and the gallery of a side's photos.
#pragma once

#include <QObject>
#include <QSize>
#include <QStringList>
#include <QVariantList>
#include <memory>
#include <optional>

#include "platform/image.h"

namespace lumeo {
class JournalStore;
class UserDefaults;
class MoodSummaryViewController;
}  // namespace lumeo

namespace lumeo::gui {

class SummaryTopTagsModel;
class SummaryPhotosModel;

class SummaryController : public QObject {
  Q_OBJECT
  Q_PROPERTY(int page READ page WRITE setPage NOTIFY pageChanged)
  Q_PROPERTY(QStringList periodTitles READ periodTitles CONSTANT)
  Q_PROPERTY(int period READ period NOTIFY summaryChanged)
  Q_PROPERTY(QString periodTitle READ periodTitle NOTIFY summaryChanged)
  Q_PROPERTY(bool pickerVisible READ pickerVisible NOTIFY pickerChanged)
  Q_PROPERTY(int recordCount READ recordCount NOTIFY summaryChanged)
  Q_PROPERTY(QString rangeText READ rangeText NOTIFY summaryChanged)
  Q_PROPERTY(QVariantList statBars READ statBars NOTIFY summaryChanged)
  Q_PROPERTY(QVariantList cards READ cards NOTIFY summaryChanged)
  Q_PROPERTY(QObject* positiveTags READ positiveTags CONSTANT)
  Q_PROPERTY(QObject* negativeTags READ negativeTags CONSTANT)
  Q_PROPERTY(QObject* positivePhotos READ positivePhotos CONSTANT)
  Q_PROPERTY(QObject* negativePhotos READ negativePhotos CONSTANT)
  Q_PROPERTY(QString positiveEmptyTags READ positiveEmptyTags NOTIFY tagsChanged)
  Q_PROPERTY(QString negativeEmptyTags READ negativeEmptyTags NOTIFY tagsChanged)
  Q_PROPERTY(QString positiveEmptyPhotos READ positiveEmptyPhotos NOTIFY tagsChanged)
  Q_PROPERTY(QString negativeEmptyPhotos READ negativeEmptyPhotos NOTIFY tagsChanged)
  Q_PROPERTY(int positiveCarouselIndex READ positiveCarouselIndex NOTIFY tagsChanged)
  Q_PROPERTY(int negativeCarouselIndex READ negativeCarouselIndex NOTIFY tagsChanged)

 public:
  SummaryController(JournalStore& store, std::shared_ptr<UserDefaults> defaults = nullptr,
                    QObject* parent = nullptr);
  ~SummaryController() override;

  MoodSummaryViewController& core() { return *summary_; }

  int page() const;
  void setPage(int page);
  QStringList periodTitles() const;
  int period() const;
  QString periodTitle() const;
  bool pickerVisible() const { return pickerVisible_; }
  int recordCount() const;
  QString rangeText() const;
  // {title, text, fraction (of the longest bar), color, hidden}
  QVariantList statBars() const;
  // {kind, title, info, source, notEnoughData, hasGraph, button}
  QVariantList cards() const;
  QObject* positiveTags() const;
  QObject* negativeTags() const;
  QObject* positivePhotos() const;
  QObject* negativePhotos() const;
  QString positiveEmptyTags() const;
  QString negativeEmptyTags() const;
  QString positiveEmptyPhotos() const;
  QString negativeEmptyPhotos() const;
  int positiveCarouselIndex() const;
  int negativeCarouselIndex() const;

  // The tab shows or hides.
  Q_INVOKABLE void appear();
  Q_INVOKABLE void disappear();
  // The cards' size in points: the charts are drawn again at that size.
  Q_INVOKABLE void setChartSize(double width, double height);
  // The period button of a card, and the picker's choice.
  Q_INVOKABLE void openPeriodPicker();
  Q_INVOKABLE void choosePeriod(int row);
  // The trend card's graph button: the scrollable graph.
  Q_INVOKABLE QObject* openGraph();
  // A tag row of a side (negative: true for the negative page).
  Q_INVOKABLE QObject* openTag(bool negative, int row);
  // A tap on a carousel photo: the centre one opens the gallery, another
  // one comes to the centre.
  Q_INVOKABLE QObject* tapPhoto(bool negative, int index);

 Q_SIGNALS:
  void pageChanged();
  void summaryChanged();
  void pickerChanged();
  void tagsChanged();
  void graphOpened(QObject* graph);
  void historyOpened(QObject* history);
  void galleryOpened(QObject* gallery);
  void carouselMoved(bool negative, int index);

 private:
  struct Bridge;
  friend struct Bridge;
  std::optional<Image> renderCard(int kind, const QSize& requested) const;

  JournalStore& store_;
  std::shared_ptr<UserDefaults> defaults_;
  std::unique_ptr<MoodSummaryViewController> summary_;
  std::shared_ptr<Bridge> bridge_;
  SummaryTopTagsModel* positiveTags_ = nullptr;
  SummaryTopTagsModel* negativeTags_ = nullptr;
  SummaryPhotosModel* positivePhotos_ = nullptr;
  SummaryPhotosModel* negativePhotos_ = nullptr;
  bool pickerVisible_ = false;
  int revision_ = 0;
  QString cardKeys_[3];
  QObject* pending_ = nullptr;
};

}  // namespace lumeo::gui
