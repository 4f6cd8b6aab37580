#include "map_tab.h"

#include <QProcess>
#include <QQmlEngine>
#include <algorithm>
#include <cmath>
#include <set>

#include "capture/location_helper.h"
#include "capture/mood_levels_presentation.h"
#include "gui_runtime.h"
#include "gui_session.h"
#include "main_queue_pump.h"
#include "map/geo_map_cluster_annotation.h"
#include "map/mood_circle_view.h"
#include "map/mood_location_view_controller.h"
#include "map/mood_map_settings_view_controller.h"
#include "map/mood_map_view_controller.h"
#include "map/nominatim_place_search.h"
#include "objectgraph/fetch_request.h"
#include "picture_provider.h"
#include "platform/calendar.h"
#include "platform/date_formatter.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "platform/user_date_parser.h"
#include "platform/user_defaults.h"
#include "qt_convert.h"
#include "shell/mood_app_delegate.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"
#include "tile_layer.h"

namespace lumeo::gui {

namespace {

// "pie/3/2-5-7" or "average/12/..." at the asked size: the pin as the
// command line's `lumeo map --png` draws it.
std::optional<Image> pinPicture(const QString& arguments, QSize size) {
  const QStringList parts = arguments.split('/');
  if (parts.size() != 3) return std::nullopt;
  MoodCircleView view;
  view.averageCircle = parts[0] == QLatin1String("average");
  bool ok = false;
  view.count = parts[1].toULongLong(&ok);
  if (!ok) return std::nullopt;
  if (parts[2] != QLatin1String("none")) {
    for (const QString& level : parts[2].split('-')) {
      const long value = level.toLong(&ok);
      if (!ok || value < 1 || value > 10) return std::nullopt;
      view.moodArray.push_back(value);
    }
  }
  const int side = std::max(size.width(), size.height());
  const double scale = side > 0 ? std::clamp(side / MoodCircleView::kSize, 0.25, 8.0) : 1.0;
  return view.image(MoodLevelsPresentation(), scale);
}

const GuiRegistration kMap(40, [](GuiRuntime& runtime) {
  runtime.addSingleton("MapTab", new MapTabAdapter(runtime, &runtime));
  runtime.addSingleton("MapSettings", new MapSettingsAdapter(runtime, &runtime));
  runtime.addSingleton("PlaceChooser", new PlaceChooserAdapter(runtime, &runtime));
  runtime.addScreen("MoodMapSettingsViewController", "MapSettingsScreen.qml");
  registerPictureSource("mappin", pinPicture);
  qmlRegisterType<TileLayer>(GuiRuntime::kCoreUri, 1, 0, "TileLayer");
});

QString tileTemplateFor(GuiRuntime& runtime) {
  const QString fromEnvironment = qEnvironmentVariable("LUMEO_TILE_URL");
  if (!fromEnvironment.isEmpty()) return fromEnvironment;
  if (auto defaults = runtime.session().defaults()) {
    if (auto stored = defaults->stringForKey(TileSource::kTemplateKey)) return q(*stored);
  }
  return QString::fromLatin1(TileSource::kDefaultTemplate);
}

}  // namespace

TileSource& sharedTileSource(GuiRuntime& runtime) {
  static QPointer<TileSource> source;
  if (!source || source->parent() != &runtime) {
    const DataDirectories& dirs = runtime.session().directories();
    source = new TileSource(tileTemplateFor(runtime),
                            TileSource::cacheDirectory(dirs.library, dirs.defaultsFile), &runtime);
  }
  return *source;
}

// --- The Map tab -------------------------------------------------------------------

class MapTabAdapter::View : public MoodMapView {
 public:
  explicit View(MapTabAdapter& adapter) : adapter_(adapter) {}
  void setFilterDateTexts(const std::string& start, const std::string& end) override {
    adapter_.dateFrom_ = q(start);
    adapter_.dateTo_ = q(end);
    Q_EMIT adapter_.filterChanged();
  }
  void setTagFilterText(const std::string& text) override {
    adapter_.tagText_ = q(text).trimmed();
    Q_EMIT adapter_.filterChanged();
  }
  void setModeButtonImage(const std::string& imageName) override {
    adapter_.modeImage_ = q(imageName);
    Q_EMIT adapter_.filterChanged();
  }
  void setMapType(int type) override {
    adapter_.mapType_ = type;
    Q_EMIT adapter_.filterChanged();
  }

 private:
  MapTabAdapter& adapter_;
};

MapTabAdapter::MapTabAdapter(GuiRuntime& runtime, QObject* parent) : QObject(parent), runtime_(runtime) {
  connect(&runtime_.pump(), &MainQueuePump::drained, this, &MapTabAdapter::drained);
  recheck_.setSingleShot(true);
  recheck_.setInterval(40);
  connect(&recheck_, &QTimer::timeout, this, &MapTabAdapter::drained);
}

MapTabAdapter::~MapTabAdapter() {
  if (controller_) controller_->dataReader().stopReadingData();
}

QObject* MapTabAdapter::tiles() {
  return &sharedTileSource(runtime_);
}

bool MapTabAdapter::open() {
  if (controller_) return true;
  if (!runtime_.session().journalOpen()) return false;
  controller_ = MoodMapViewController::create(runtime_.session().app().store(), viewport_.mapView());
  view_ = std::make_shared<View>(*this);
  controller_->setView(view_);
  controller_->viewDidLoad();
  modelChanged_ = ScopedObserver(NotificationCenter::defaultCenter(), MoodModelHasChangedNotification,
                                 nullptr, [this](const Notification&) {
                                   stale_ = true;
                                   if (visible_) appear();
                                 });
  visible_ = true;
  LocationHelper::sharedInstance().startUpdatingLocation();
  updateLocation();
  Q_EMIT readyChanged();
  Q_EMIT filterChanged();
  runtime_.pump().drain();
  return true;
}

void MapTabAdapter::appear() {
  visible_ = true;
  if (!controller_ || !stale_) return;
  stale_ = false;
  // Later on the main queue: the save that changed the journal is still
  // running when it says so.
  QMetaObject::invokeMethod(
      this,
      [this] {
        if (!controller_) return;
        controller_->refreshMap();
        pinRecords_.clear();
        Q_EMIT filterChanged();
        runtime_.pump().drain();
      },
      Qt::QueuedConnection);
}

void MapTabAdapter::drained() {
  if (!controller_) return;
  viewport_.refreshPins();
  const bool now = controller_->isSettled();
  // The clustering's last step may end on its own queue after the main
  // queue ran: look again shortly rather than wait for the next turn.
  if (!now && !recheck_.isActive()) recheck_.start();
  if (now != wasSettled_) {
    wasSettled_ = now;
    // The first complete read decides the opening view: every located record.
    if (now && !fitted_) {
      fitted_ = true;
      fitAll();
    }
    Q_EMIT pinsSettled();
  }
  updateLocation();
}

void MapTabAdapter::updateLocation() {
  LocationHelper& helper = LocationHelper::sharedInstance();
  QString problem;
  if (!helper.isEnabledOnlyServices()) {
    problem = q(localized("No location service: your own position cannot be shown."));
  } else if (!helper.isEnabled()) {
    problem = q(
        localized("Location is denied: allow Lumeo in the desktop's privacy settings to see where you are."));
  }
  if (problem != locationProblem_) {
    locationProblem_ = problem;
    Q_EMIT locationChanged();
  } else if (helper.location()) {
    Q_EMIT locationChanged();
  }
}

QStringList MapTabAdapter::selectedTags() const {
  QStringList tags;
  if (controller_) {
    for (const auto& name : controller_->selectedTags()) tags.append(q(name));
  }
  return tags;
}

bool MapTabAdapter::filtered() const {
  return controller_ && (controller_->startFilterDate() || controller_->endFilterDate() ||
                         !controller_->selectedTags().empty());
}

bool MapTabAdapter::averageDrawing() const {
  return controller_ && controller_->averageDrawing();
}

QStringList MapTabAdapter::mapTypeTitles() const {
  QStringList titles;
  for (const auto& title : MoodMapViewController::mapTypeTitles()) titles.append(q(title));
  return titles;
}

int MapTabAdapter::locatedCount() const {
  return controller_ ? static_cast<int>(controller_->allAnnotations().size()) : 0;
}

bool MapTabAdapter::settled() const {
  return controller_ && controller_->isSettled();
}

bool MapTabAdapter::hasOwnLocation() const {
  return LocationHelper::sharedInstance().location().has_value();
}

double MapTabAdapter::ownLatitude() const {
  return LocationHelper::sharedInstance().latitude();
}

double MapTabAdapter::ownLongitude() const {
  return LocationHelper::sharedInstance().longitude();
}

bool MapTabAdapter::screenshotReady() {
  return controller_ && controller_->isSettled() && fitted_ && !sharedTileSource(runtime_).loading();
}

void MapTabAdapter::pinClicked(int row) {
  if (!controller_) return;
  viewport_.settle();
  auto annotation = viewport_.pinModel().annotationAt(row);
  if (!annotation) return;
  // The map's selection tells the controller, which centres or fits.
  viewport_.mapView()->selectAnnotation(annotation, false);
  runtime_.pump().drain();
}

QVariantMap MapTabAdapter::pinDetails(int row) const {
  auto cluster = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(
      const_cast<MapViewport&>(viewport_).pinModel().annotationAt(row));
  if (!cluster) return {};
  QVariantList levels;
  for (long level : MoodMapViewController::moodsArrayForClusterAnnotation(*cluster))
    levels.append(static_cast<int>(level));
  return {{QStringLiteral("title"), q(cluster->title())},
          {QStringLiteral("subtitle"), q(cluster->subtitle())},
          {QStringLiteral("levels"), levels},
          {QStringLiteral("unique"), cluster->isUniqueLocation()}};
}

QVariantList MapTabAdapter::pinRecords(int row) {
  constexpr std::size_t kMaximumRows = 100;
  pinRecords_.clear();
  QVariantList rows;
  auto cluster = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(viewport_.pinModel().annotationAt(row));
  auto members = cluster ? cluster->annotations() : nullptr;
  if (!controller_ || !members || members->empty() || !runtime_.session().journalOpen()) return rows;
  // The pin knows places, not records: the records of the tab's filter at
  // exactly those places.
  std::set<std::pair<double, double>> places;
  double south = 90, north = -90, west = 180, east = -180;
  for (const auto& member : *members) {
    const LocationCoordinate2D c = member->coordinate();
    places.insert({c.latitude, c.longitude});
    south = std::min(south, c.latitude);
    north = std::max(north, c.latitude);
    west = std::min(west, c.longitude);
    east = std::max(east, c.longitude);
  }
  FetchRequest request(kMoodRecordEntity);
  request.setPredicate(Predicate::andPredicateWithSubpredicates(
      {controller_->dataReader().predicate(),
       Predicate::predicateWithFormat("moodDescription.latitude >= %@ AND moodDescription.latitude <= %@ AND "
                                      "moodDescription.longitude >= %@ AND moodDescription.longitude <= %@",
                                      south, north, west, east)}));
  request.setSortDescriptors({SortDescriptor{"date", false}});
  DateFormatter formatter;
  formatter.setDateStyle(DateFormatter::Style::kMedium);
  formatter.setTimeStyle(DateFormatter::Style::kShort);
  for (const auto& object : runtime_.session().app().store().executeFetch(request)) {
    auto record = std::dynamic_pointer_cast<MoodRecord>(object);
    auto description = record ? record->moodDescription() : nullptr;
    if (!description || !places.count({description->latitude(), description->longitude()})) continue;
    std::string text = description->comment().value_or("");
    if (const auto newline = text.find('\n'); newline != std::string::npos) text.resize(newline);
    rows.append(QVariantMap{
        {QStringLiteral("level"), static_cast<int>(record->moodLevel())},
        {QStringLiteral("date"), record->date() ? q(formatter.stringFromDate(*record->date())) : QString()},
        {QStringLiteral("text"), q(text).left(120)}});
    pinRecords_.push_back(record);
    if (pinRecords_.size() == kMaximumRows) break;
  }
  return rows;
}

bool MapTabAdapter::openRecord(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= pinRecords_.size() || !runtime_.session().journalOpen())
    return false;
  auto record = pinRecords_[static_cast<std::size_t>(index)];
  if (!record || record->isDeleted()) return false;
  runtime_.session().app().moodEditActivityFinished(record);
  runtime_.pump().drain();
  return true;
}

QString MapTabAdapter::setDates(const QString& from, const QString& to) {
  if (!controller_) return {};
  const Calendar& calendar = Calendar::current();
  std::optional<Date> start, end;
  if (!from.trimmed().isEmpty()) {
    start = parseUserDate(from.trimmed().toStdString(), calendar);
    if (!start) return q(localized("Write the first day as 2026-11-22."));
    start = calendar.startOfDay(*start);
  }
  if (!to.trimmed().isEmpty()) {
    end = parseUserDate(to.trimmed().toStdString(), calendar);
    if (!end) return q(localized("Write the last day as 2026-11-22."));
    auto next = calendar.dateByAddingUnit(CalendarUnit::kDay, 1, calendar.startOfDay(*end));
    end = next ? next->dateByAddingTimeInterval(-0.001) : *end;
  }
  if (start && end && *end < *start) return q(localized("The first day comes before the last."));
  // An open end means "since the beginning" or "until now": the map filters
  // only by a range with both ends.
  if (start && !end) end = Date::now();
  if (end && !start) start = Date::fromTimeIntervalSince1970(0);
  controller_->setFilterDates(start, end);
  runtime_.pump().drain();
  return {};
}

void MapTabAdapter::setTags(const QStringList& names) {
  if (!controller_) return;
  std::set<std::string> set;
  for (const QString& name : names) set.insert(name.toStdString());
  controller_->selectionCompleatedWithSet(set);
  runtime_.pump().drain();
}

void MapTabAdapter::clearFilter() {
  if (!controller_) return;
  controller_->resetFilter();
  runtime_.pump().drain();
}

QStringList MapTabAdapter::tagNames() const {
  QStringList names;
  if (!runtime_.session().journalOpen()) return names;
  for (const auto& tag : runtime_.session().app().store().tagsByFrequency()) names.append(q(tag->tagName()));
  return names;
}

void MapTabAdapter::toggleMode() {
  if (!controller_) return;
  controller_->changeModeButtonClicked();
  runtime_.pump().drain();
}

void MapTabAdapter::selectMapType(int type) {
  if (controller_) controller_->mapTypeSelected(type);
}

void MapTabAdapter::showMyLocation() {
  if (!controller_) return;
  LocationHelper::sharedInstance().startUpdatingLocation();
  controller_->showLocationClicked();
  updateLocation();
  runtime_.pump().drain();
}

QString MapTabAdapter::progress() {
  if (!controller_) return QStringLiteral("not open");
  return QStringLiteral("reading %1, clustering operations %2, pins read %3, pins shown %4")
      .arg(controller_->dataReader().isReading())
      .arg(controller_->clusterController().pendingOperationCount())
      .arg(controller_->allAnnotations().size())
      .arg(viewport_.pinCount());
}

void MapTabAdapter::fitAll() {
  if (!controller_) return;
  const auto& all = controller_->allAnnotations();
  if (all.empty()) return;
  double minX = kMapWorldWidth, minY = kMapWorldWidth, maxX = 0, maxY = 0;
  for (const auto& pin : all) {
    const MapPoint p = MapPointForCoordinate(pin->coordinate());
    minX = std::min(minX, p.x);
    maxX = std::max(maxX, p.x);
    minY = std::min(minY, p.y);
    maxY = std::max(maxY, p.y);
  }
  // A margin of a fifth on every side, and never closer than a town.
  const double w = std::max(maxX - minX, 20000.0), h = std::max(maxY - minY, 20000.0);
  const MapRect rect =
      MapRectMake((minX + maxX) / 2 - w * 0.7, (minY + maxY) / 2 - h * 0.7, w * 1.4, h * 1.4);
  viewport_.mapView()->fitMapRect(rect);
  runtime_.pump().drain();
}

// --- The settings screen --------------------------------------------------------------

MapSettingsAdapter::MapSettingsAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime) {}

MapSettingsAdapter::~MapSettingsAdapter() = default;

MoodMapSettingsViewController& MapSettingsAdapter::controller() {
  if (!controller_) {
    controller_ = std::make_shared<MoodMapSettingsViewController>(
        MoodUserDefaultsOperator::sharedOperator(), [] { MoodAppDelegate::removeCoordinates(); });
    // GNOME's privacy panel; other desktops have their own.
    controller_->setOpenSettingsHandler([] {
      QProcess::startDetached(QStringLiteral("gnome-control-center"), {QStringLiteral("location")});
    });
  }
  return *controller_;
}

QVariantList MapSettingsAdapter::rows() const {
  QVariantList rows;
  for (const auto& row : const_cast<MapSettingsAdapter*>(this)->controller().rows())
    rows.append(QVariantMap{{QStringLiteral("key"), q(row.key)}, {QStringLiteral("title"), q(row.title)}});
  return rows;
}

bool MapSettingsAdapter::automatic() const {
  return const_cast<MapSettingsAdapter*>(this)->controller().isAutomatic();
}

QString MapSettingsAdapter::tileTemplate() const {
  return sharedTileSource(runtime_).urlTemplate();
}

bool MapSettingsAdapter::tileTemplateFromEnvironment() const {
  return !qEnvironmentVariableIsEmpty("LUMEO_TILE_URL");
}

void MapSettingsAdapter::chooseAutomatic() {
  controller().chooseAutomatic();
  runtime_.pump().drain();
  Q_EMIT changed();
}

void MapSettingsAdapter::chooseManual() {
  controller().chooseManual();
  runtime_.pump().drain();
  Q_EMIT changed();
}

void MapSettingsAdapter::deleteGeolocation() {
  controller().deleteGeolocation();
  runtime_.pump().drain();
}

QString MapSettingsAdapter::setTileTemplate(const QString& urlTemplate) {
  const QString text = urlTemplate.trimmed();
  auto defaults = runtime_.session().defaults();
  if (text.isEmpty()) {
    if (defaults) LUMEO_DROP_ERROR(defaults->removeObjectForKey(TileSource::kTemplateKey));
    sharedTileSource(runtime_).setUrlTemplate(QString::fromLatin1(TileSource::kDefaultTemplate));
    Q_EMIT changed();
    return {};
  }
  const QString problem = TileSource::checkTemplate(text);
  if (!problem.isEmpty()) return problem;
  if (defaults) {
    if (auto error = defaults->setString(TileSource::kTemplateKey, text.toStdString()))
      return q(error->description);
  }
  sharedTileSource(runtime_).setUrlTemplate(text);
  Q_EMIT changed();
  return {};
}

// --- The place chooser ------------------------------------------------------------------

class PlaceChooserAdapter::Bridge : public MoodLocationViewControllerDelegate, public MoodLocationView {
 public:
  explicit Bridge(PlaceChooserAdapter& adapter) : adapter_(adapter) {}
  void didMoodLocationViewControllerLocationChanged(double latitude, double longtitude) override {
    Q_EMIT adapter_.chosen(latitude, longtitude);
  }
  void reloadResults() override { Q_EMIT adapter_.resultsChanged(); }
  void setResultsHidden(bool hidden) override {
    adapter_.resultsShown_ = !hidden;
    Q_EMIT adapter_.resultsChanged();
  }
  void showSearchError(const std::string& message) override {
    adapter_.searchError_ = q(message);
    Q_EMIT adapter_.resultsChanged();
  }

 private:
  PlaceChooserAdapter& adapter_;
};

PlaceChooserAdapter::PlaceChooserAdapter(GuiRuntime& runtime, QObject* parent)
    : QObject(parent), runtime_(runtime) {}

PlaceChooserAdapter::~PlaceChooserAdapter() = default;

QObject* PlaceChooserAdapter::tiles() {
  return &sharedTileSource(runtime_);
}

QVariantList PlaceChooserAdapter::results() const {
  QVariantList rows;
  if (!controller_) return rows;
  for (const Place& place : controller_->results()) {
    rows.append(QVariantMap{{QStringLiteral("name"), q(place.name)},
                            {QStringLiteral("displayName"), q(place.displayName)},
                            {QStringLiteral("latitude"), place.coordinate.latitude},
                            {QStringLiteral("longitude"), place.coordinate.longitude}});
  }
  return rows;
}

bool PlaceChooserAdapter::searching() const {
  return controller_ && controller_->isSearching();
}

QString PlaceChooserAdapter::placeholder() const {
  return q(MoodLocationViewController::searchPlaceholder());
}

QStringList PlaceChooserAdapter::mapTypeTitles() const {
  QStringList titles;
  for (const auto& title : MoodLocationViewController::mapTypeTitles()) titles.append(q(title));
  return titles;
}

void PlaceChooserAdapter::begin(double latitude, double longitude) {
  // The server may have changed since (`lumeo place server`): a new client
  // for a new server, the same one (and its cache) otherwise.
  NominatimPlaceSearch::Options options;
  if (auto defaults = runtime_.session().defaults()) {
    if (auto endpoint = defaults->stringForKey(kPlaceSearchEndpointKey)) options.endpoint = *endpoint;
  }
  if (!search_ || options.endpoint != searchEndpoint_) {
    searchEndpoint_ = options.endpoint;
    search_ = NominatimPlaceSearch::create(options);
  }
  // A fresh controller each time the chooser opens, as the editor presents
  // a new one.
  controller_ = MoodLocationViewController::create(viewport_.mapView(), search_);
  bridge_ = std::make_shared<Bridge>(*this);
  controller_->setDelegate(bridge_);
  controller_->setView(bridge_);
  resultsShown_ = false;
  searchError_.clear();
  const bool located =
      latitude != -1 && longitude != -1 && std::isfinite(latitude) && std::isfinite(longitude);
  if (located) {
    viewport_.centerOn(latitude, longitude, 14);
    controller_->showPlace({latitude, longitude});
  } else {
    // Until the position comes: the whole world.
    viewport_.centerOn(30, 10, 1.5);
    controller_->viewDidLoad();
  }
  Q_EMIT resultsChanged();
  runtime_.pump().drain();
}

void PlaceChooserAdapter::search(const QString& text) {
  if (!controller_) return;
  searchError_.clear();
  controller_->searchTextChanged(text.toStdString());
  controller_->searchButtonClicked();
  Q_EMIT resultsChanged();
  runtime_.pump().drain();
}

void PlaceChooserAdapter::selectResult(int index) {
  if (!controller_ || index < 0) return;
  controller_->selectResult(static_cast<std::size_t>(index));
  runtime_.pump().drain();
}

void PlaceChooserAdapter::pick(double x, double y) {
  viewport_.settle();
  const auto coordinate = viewport_.mapView()->convertPointToCoordinate({x, y});
  viewport_.mapView()->setCenterCoordinate(coordinate, true);
}

bool PlaceChooserAdapter::done() {
  if (!controller_) return false;
  viewport_.settle();
  const auto center = viewport_.mapView()->centerCoordinate();
  if (!std::isfinite(center.latitude) || !std::isfinite(center.longitude)) return false;
  controller_->done();
  controller_.reset();
  runtime_.pump().drain();
  return true;
}

void PlaceChooserAdapter::cancel() {
  if (controller_) LocationHelper::sharedInstance().stopUpdatingLocation();
  controller_.reset();
}

}  // namespace lumeo::gui
