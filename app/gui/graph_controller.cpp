#include "graph_controller.h"

#include <QQmlEngine>
#include <QVariantMap>
#include <cmath>

#include "insight/mood_summary_graph_view_controller.h"
#include "platform/date_formatter.h"
#include "summary_pictures.h"

namespace lumeo::gui {

struct GraphController::Bridge : MoodSummaryGraphViewDelegate {
  explicit Bridge(GraphController* owner) : owner(owner) {}
  GraphController* owner;
  // The settings changed (smooth, width): draw again.
  void graphNeedsRedraw() override {
    if (owner) owner->changed();
  }
};

GraphController::GraphController(JournalStore& store, std::shared_ptr<UserDefaults> defaults, QObject* parent)
    : QObject(parent),
      graph_(std::make_unique<MoodSummaryGraphViewController>(store, defaults)),
      settings_(std::make_unique<MoodGraphSettingsViewController>(defaults)),
      key_(TabPictures::newKey(QStringLiteral("graph"))) {
  // QML must not collect it: its page closes it.
  QQmlEngine::setObjectOwnership(this, QQmlEngine::CppOwnership);
  bridge_ = std::make_shared<Bridge>(this);
  graph_->setDelegate(std::shared_ptr<MoodSummaryGraphViewDelegate>(bridge_, bridge_.get()));
  graph_->viewDidLoad();
  rebuildArea();
  TabPictures::registerRenderer(key_, [this](const QSize&) -> std::optional<Image> {
    if (!area_ || area_->empty()) return std::nullopt;
    const Size size{std::round(width_), std::round(height_)};
    Canvas canvas(static_cast<int>(size.width), static_cast<int>(size.height));
    graph_->renderGraph(canvas, size, *area_);
    return canvas.image();
  });
}

GraphController::~GraphController() {
  TabPictures::unregisterRenderer(key_);
  bridge_->owner = nullptr;
}

void GraphController::rebuildArea() {
  // The range the user looked at survives a new width.
  std::optional<std::pair<Date, Date>> shown;
  if (area_ && !area_->empty()) shown = std::make_pair(area_->startDate(), area_->endDate());
  area_ = std::make_unique<GraphScrollableArea>(graph_->records(), width_);
  if (area_->empty()) return;
  area_->scrollToRecentObjects();
  if (shown) (void)area_->setVisibleRange(shown->first, shown->second);
  area_->updateTags(graph_->tagLines());
}

void GraphController::changed() {
  if (area_) area_->updateTags(graph_->tagLines());
  ++revision_;
  Q_EMIT graphChanged();
}

bool GraphController::empty() const {
  return !area_ || area_->empty();
}

QString GraphController::source() const {
  if (empty()) return {};
  return TabPictures::source(key_, revision_);
}

QVariantList GraphController::series() const {
  QVariantList list;
  const auto& selected = graph_->selectedTags();
  const auto lines = graph_->tagLines();
  for (const auto& key : graph_->orderedKeys()) {
    QColor color;
    for (const auto& line : lines) {
      if (line.key == key) color = toQColor(line.color);
    }
    list.append(QVariantMap{
        {QStringLiteral("key"), QString::fromStdString(key)},
        {QStringLiteral("range"), QString::fromStdString(graph_->rowRangeText(key))},
        {QStringLiteral("count"), QString::fromStdString(graph_->rowCountText(key))},
        {QStringLiteral("selected"), std::find(selected.begin(), selected.end(), key) != selected.end()},
        {QStringLiteral("color"), color},
    });
  }
  return list;
}

QVariantList GraphController::settings() const {
  QVariantList list;
  for (const auto& row : settings_->rows()) {
    list.append(QVariantMap{{QStringLiteral("key"), QString::fromStdString(row.key)},
                            {QStringLiteral("title"), QString::fromStdString(row.title)},
                            {QStringLiteral("on"), row.on}});
  }
  return list;
}

QString GraphController::zoomText() const {
  return area_ ? QString::fromStdString(area_->zoomText()) : QString();
}
int GraphController::zoomRate() const {
  return area_ ? static_cast<int>(area_->zoomRate()) : 0;
}
bool GraphController::canMoveLeft() const {
  return area_ && !area_->empty() && area_->canMoveLeft();
}
bool GraphController::canMoveRight() const {
  return area_ && !area_->empty() && area_->canMoveRight();
}

QString GraphController::rangeText() const {
  if (empty()) return {};
  DateFormatter formatter;
  formatter.setDateStyle(DateFormatter::Style::kMedium);
  formatter.setTimeStyle(DateFormatter::Style::kNone);
  return QString::fromStdString(formatter.stringFromDate(area_->startDate())) + QStringLiteral(" – ") +
         QString::fromStdString(formatter.stringFromDate(area_->endDate()));
}

void GraphController::setViewSize(double width, double height) {
  if (width < 100 || height < 80) return;
  if (std::abs(width - width_) < 1 && std::abs(height - height_) < 1) return;
  const bool newWidth = std::abs(width - width_) >= 1;
  width_ = width;
  height_ = height;
  if (newWidth) rebuildArea();
  changed();
}

bool GraphController::toggleSeries(const QString& key) {
  if (!graph_->toggleTag(key.toStdString())) return false;
  changed();
  Q_EMIT seriesChanged();
  return true;
}

bool GraphController::setSetting(const QString& key, bool on) {
  // The change is announced; the graph hears it and asks to be redrawn.
  if (!settings_->setSwitch(key.toStdString(), on)) return false;
  changed();
  Q_EMIT seriesChanged();
  return true;
}

void GraphController::pinch(double scale) {
  if (empty()) return;
  area_->pinchChanged(scale);
  zooming_ = true;
  Q_EMIT zoomChanged();
}

void GraphController::pinchEnd() {
  if (empty()) return;
  area_->pinchEnded();
  zooming_ = false;
  Q_EMIT zoomChanged();
  changed();
}

void GraphController::wheel(int notches) {
  if (empty() || notches == 0) return;
  // A notch is a pinch of a quarter.
  area_->pinchChanged(std::pow(1.25, notches));
  area_->pinchEnded();
  Q_EMIT zoomChanged();
  changed();
}

bool GraphController::moveLeft() {
  if (empty() || !area_->tryMoveLeft()) return false;
  changed();
  return true;
}

bool GraphController::moveRight() {
  if (empty() || !area_->tryMoveRight()) return false;
  changed();
  return true;
}

}  // namespace lumeo::gui
