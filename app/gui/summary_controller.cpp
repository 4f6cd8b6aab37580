#include "summary_controller.h"

#include <QSize>
#include <QVariantMap>
#include <cmath>

#include "browse/mood_gallery_view_controller.h"
#include "browse/mood_tag_history_view_controller.h"
#include "gallery_model.h"
#include "graph_controller.h"
#include "history_controller.h"
#include "insight/mood_summary_view_controller.h"
#include "platform/date_formatter.h"
#include "shell/mood_app_delegate.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "summary_pictures.h"
#include "summary_top_tags_model.h"

namespace lumeo::gui {

// The core's view delegates, held by shared pointers as the core wants
// them; each call goes on to the adapter while it lives.
struct SummaryController::Bridge : MoodSummaryTotalViewDelegate,
                                   MoodTopTagsViewDelegate,
                                   MoodGalleryViewControllerDelegate {
  explicit Bridge(SummaryController* owner) : owner(owner) {}
  SummaryController* owner;
  // The side whose gallery is open.
  MoodTopTagsViewController* gallerySide = nullptr;
  std::weak_ptr<MoodGalleryViewController> gallery;

  void summaryViewsUpdated(MoodSummaryTotalViewController&) override {
    if (!owner) return;
    ++owner->revision_;
    Q_EMIT owner->summaryChanged();
  }
  void setPeriodPickerVisible(bool visible, long) override {
    if (!owner || owner->pickerVisible_ == visible) return;
    owner->pickerVisible_ = visible;
    Q_EMIT owner->pickerChanged();
  }
  void presentGraph() override {
    if (!owner) return;
    auto* graph = new GraphController(owner->store_, owner->defaults_, owner);
    owner->pending_ = graph;
    Q_EMIT owner->graphOpened(graph);
  }
  void topTagsUpdated(MoodTopTagsViewController& side) override {
    if (!owner) return;
    const bool negative = side.negativeFilter();
    (negative ? owner->negativeTags_ : owner->positiveTags_)->reset();
    (negative ? owner->negativePhotos_ : owner->positivePhotos_)->reset();
    Q_EMIT owner->tagsChanged();
  }
  void scrollCarouselToItem(long index, bool) override {
    if (!owner) return;
    // Which side moved is not said; both report their own index.
    Q_EMIT owner->tagsChanged();
    (void)index;
  }
  void pushGallery(const std::vector<std::shared_ptr<MoodRecord>>& records, long index) override {
    if (!owner) return;
    auto controller = std::make_shared<MoodGalleryViewController>();
    gallerySide = owner->page() == MoodSummaryViewController::kNegativePage ? &owner->summary_->negative()
                                                                            : &owner->summary_->positive();
    gallery = controller;
    controller->setMoodRecords(records);
    controller->setCurrentRecord(index);
    // After a change of the journal: that side's photos, fetched again.
    controller->setRecordsSource([store = &owner->store_, positive = !gallerySide->negativeFilter()]() {
      return std::optional<std::vector<std::shared_ptr<MoodRecord>>>(store->recordsWithPhoto(positive));
    });
    controller->setDelegate(std::shared_ptr<MoodGalleryViewControllerDelegate>(owner->bridge_, this));
    auto* model = new GalleryModel(controller, owner);
    owner->pending_ = model;
    Q_EMIT owner->galleryOpened(model);
  }
  void pushTagHistory(const std::shared_ptr<MoodTag>& tag) override {
    if (!owner || !tag) return;
    MoodHistoryEnvironment environment;
    environment.store = &owner->store_;
    environment.defaults = owner->defaults_;
    auto screen = std::make_shared<MoodTagHistoryViewController>(tag, environment);
    auto* history = new HistoryController(owner->store_, screen, {}, false, owner);
    owner->pending_ = history;
    Q_EMIT owner->historyOpened(history);
  }

  // MoodGalleryViewControllerDelegate: the gallery of a side's photos.
  std::string titleForMoodGallery() override { return gallerySide ? gallerySide->titleForMoodGallery() : ""; }
  void selectMoodRecord(const std::shared_ptr<MoodRecord>& record) override {
    if (gallerySide) gallerySide->selectMoodRecord(record);
  }
  void chooseAction() override {
    // The summary has no list to delete from: its share sheet offers Edit
    // only, as a tag's list does.
    auto shown = gallery.lock();
    MoodAppDelegate* app = MoodAppDelegate::sharedDelegate();
    if (shown && app) app->chooseActionForRecord(shown->selectedMoodRecord(), 2, 0);
  }
};

SummaryController::SummaryController(JournalStore& store, std::shared_ptr<UserDefaults> defaults,
                                     QObject* parent)
    : QObject(parent),
      store_(store),
      defaults_(std::move(defaults)),
      summary_(std::make_unique<MoodSummaryViewController>(store, defaults_)) {
  bridge_ = std::make_shared<Bridge>(this);
  summary_->total().setDelegate(std::shared_ptr<MoodSummaryTotalViewDelegate>(bridge_, bridge_.get()));
  summary_->positive().setDelegate(std::shared_ptr<MoodTopTagsViewDelegate>(bridge_, bridge_.get()));
  summary_->negative().setDelegate(std::shared_ptr<MoodTopTagsViewDelegate>(bridge_, bridge_.get()));
  positiveTags_ = new SummaryTopTagsModel(summary_->positive(), this);
  negativeTags_ = new SummaryTopTagsModel(summary_->negative(), this);
  positivePhotos_ = new SummaryPhotosModel(summary_->positive(), this);
  negativePhotos_ = new SummaryPhotosModel(summary_->negative(), this);
  for (int kind = 0; kind < 3; ++kind) {
    cardKeys_[kind] = TabPictures::newKey(QStringLiteral("chart"));
    TabPictures::registerRenderer(
        cardKeys_[kind], [this, kind](const QSize& requested) { return renderCard(kind, requested); });
  }
}

SummaryController::~SummaryController() {
  for (const QString& key : cardKeys_) TabPictures::unregisterRenderer(key);
  bridge_->owner = nullptr;
}

int SummaryController::page() const {
  return summary_->selectedPage();
}

void SummaryController::setPage(int page) {
  if (page == this->page()) return;
  summary_->selectPage(page);
  Q_EMIT pageChanged();
}

QStringList SummaryController::periodTitles() const {
  QStringList titles;
  for (const auto& title : MoodSummaryChartView::summaryTypes()) titles.append(QString::fromStdString(title));
  return titles;
}

int SummaryController::period() const {
  return static_cast<int>(summary_->total().chartType());
}

QString SummaryController::periodTitle() const {
  return QString::fromStdString(MoodSummaryChartView::summaryType(period()).value_or(""));
}

int SummaryController::recordCount() const {
  return static_cast<int>(summary_->total().recordCount());
}

QString SummaryController::rangeText() const {
  auto& total = summary_->total();
  if (total.recordCount() == 0 || !total.firstRecordDate() || !total.lastRecordDate()) return {};
  DateFormatter formatter;
  formatter.setDateStyle(DateFormatter::Style::kMedium);
  formatter.setTimeStyle(DateFormatter::Style::kNone);
  return QString::fromStdString(formatter.stringFromDate(*total.firstRecordDate())) + QStringLiteral(" – ") +
         QString::fromStdString(formatter.stringFromDate(*total.lastRecordDate()));
}

QVariantList SummaryController::statBars() const {
  QVariantList bars;
  auto& total = summary_->total();
  for (MoodSummaryStatBar* bar : {&total.totalStatBar(), &total.weekStatBar(), &total.monthStatBar()}) {
    bars.append(QVariantMap{
        {QStringLiteral("title"), QString::fromStdString(bar->title())},
        {QStringLiteral("text"), bar->barHidden()
                                     ? QString::fromStdString(MoodSummaryStatBar::notEnoughDataText())
                                     : QString::fromStdString(bar->levelText())},
        // The core's length is for the phone's bar of ten levels; the
        // card stretches it to its own width.
        {QStringLiteral("fraction"), bar->barLength() / (10 * MoodSummaryStatBar::kPointsPerLevel)},
        {QStringLiteral("color"), toQColor(bar->barColor())},
        {QStringLiteral("hidden"), bar->barHidden()},
    });
  }
  return bars;
}

QVariantList SummaryController::cards() const {
  QVariantList list;
  auto& total = summary_->total();
  MoodSummaryChartView* views[] = {&total.chartViewAlltime(), &total.chartViewWeekly(),
                                   &total.chartViewDaily()};
  const bool empty = total.recordCount() == 0;
  for (int kind = 0; kind < 3; ++kind) {
    MoodSummaryChartView& card = *views[kind];
    const bool hasPicture = !empty && card.chartImage().has_value();
    list.append(QVariantMap{
        {QStringLiteral("kind"), kind},
        {QStringLiteral("title"), QString::fromStdString(card.infoTitleText())},
        {QStringLiteral("info"), QString::fromStdString(card.infoLabelText())},
        {QStringLiteral("source"), TabPictures::source(cardKeys_[kind], revision_)},
        {QStringLiteral("notEnoughData"), empty || card.notEnoughData() || !hasPicture},
        {QStringLiteral("hasGraph"), card.hasTagButton()},
        {QStringLiteral("button"), QString::fromStdString(card.buttonStartTitle())},
    });
  }
  return list;
}

std::optional<Image> SummaryController::renderCard(int kind, const QSize& requested) const {
  auto& total = summary_->total();
  const std::optional<Image>* images[] = {&total.chartImageAlltime(), &total.chartImageWeekly(),
                                          &total.chartImageDaily()};
  const auto& chart = *images[kind];
  if (!chart || chart->empty()) return std::nullopt;
  (void)requested;  // drawn at the size the cards were given, at screen scale
  const double w = chart->width();
  const double h = chart->height();
  Canvas canvas(chart->width(), chart->height());
  MoodSummaryChartView::drawBackground(canvas, Rect{0, 0, w, h}, MoodSummaryChartView::currentBackground());
  canvas.drawImage(*chart, Rect{0, 0, w, h});
  return canvas.image();
}

QObject* SummaryController::positiveTags() const {
  return positiveTags_;
}
QObject* SummaryController::negativeTags() const {
  return negativeTags_;
}
QObject* SummaryController::positivePhotos() const {
  return positivePhotos_;
}
QObject* SummaryController::negativePhotos() const {
  return negativePhotos_;
}

namespace {
QString text(const std::optional<std::string>& value) {
  return value ? QString::fromStdString(*value) : QString();
}
}  // namespace

QString SummaryController::positiveEmptyTags() const {
  return text(summary_->positive().emptyTagsText());
}
QString SummaryController::negativeEmptyTags() const {
  return text(summary_->negative().emptyTagsText());
}
QString SummaryController::positiveEmptyPhotos() const {
  return text(summary_->positive().emptyPhotosText());
}
QString SummaryController::negativeEmptyPhotos() const {
  return text(summary_->negative().emptyPhotosText());
}
int SummaryController::positiveCarouselIndex() const {
  return static_cast<int>(summary_->positive().currentCarouselIndex());
}
int SummaryController::negativeCarouselIndex() const {
  return static_cast<int>(summary_->negative().currentCarouselIndex());
}

void SummaryController::appear() {
  summary_->viewWillAppear();
  // The tag pages are cheap next to the charts: keep both sides current so
  // that switching pages shows them at once.
  if (!summary_->positive().dataUpToDate()) summary_->positive().reloadMoodRecords();
  if (!summary_->negative().dataUpToDate()) summary_->negative().reloadMoodRecords();
  positiveTags_->reset();
  negativeTags_->reset();
  positivePhotos_->reset();
  negativePhotos_->reset();
  Q_EMIT tagsChanged();
  Q_EMIT summaryChanged();
}

void SummaryController::disappear() {
  summary_->viewDidDisappear();
}

void SummaryController::setChartSize(double width, double height) {
  if (width < 100 || height < 80) return;
  auto& total = summary_->total();
  const Size size{std::round(width), std::round(height)};
  if (total.frameForFirstChart() == size) return;
  total.setChartSize(size);
  // On screen the charts are drawn again at once, otherwise when it shows.
  total.invalidate();
}

void SummaryController::openPeriodPicker() {
  summary_->total().moodSummaryStartDateClicked(summary_->total().chartViewAlltime());
}

void SummaryController::choosePeriod(int row) {
  summary_->total().doneButtonClicked(row);
}

QObject* SummaryController::openGraph() {
  pending_ = nullptr;
  summary_->total().chartViewAlltime().tagButtonClicked();
  return pending_;
}

QObject* SummaryController::openTag(bool negative, int row) {
  pending_ = nullptr;
  if (row < 0) return nullptr;
  (negative ? summary_->negative() : summary_->positive()).didSelectRowAtIndex(static_cast<std::size_t>(row));
  return pending_;
}

QObject* SummaryController::tapPhoto(bool negative, int index) {
  pending_ = nullptr;
  auto& side = negative ? summary_->negative() : summary_->positive();
  // The gallery goes back to the side it came from.
  summary_->selectPage(negative ? MoodSummaryViewController::kNegativePage
                                : MoodSummaryViewController::kPositivePage);
  side.carouselDidSelectItemAtIndex(index);
  Q_EMIT carouselMoved(negative, static_cast<int>(side.currentCarouselIndex()));
  Q_EMIT tagsChanged();
  Q_EMIT pageChanged();
  return pending_;
}

}  // namespace lumeo::gui
