// The Map tab. Every refresh reads the located records again and hands them
// to a fresh clustering; pins know nothing of records but their level, so
// the pie of a pin is the levels of its members.
#include "map/mood_map_view_controller.h"

#include <algorithm>
#include <limits>

#include "capture/location_helper.h"
#include "map/geo_map_animator.h"
#include "map/geo_map_clusterer.h"
#include "platform/date_formatter.h"
#include "platform/localization.h"
#include "platform/string_format.h"
#include "store/journal_store.h"
#include "store/notification_names.h"

namespace lumeo {

std::shared_ptr<MoodMapViewController> MoodMapViewController::create(JournalStore& store,
                                                                     std::shared_ptr<MapView> mapView) {
  return std::make_shared<MoodMapViewController>(store, std::move(mapView));
}

MoodMapViewController::MoodMapViewController(JournalStore& store, std::shared_ptr<MapView> mapView)
    : MoodViewController("MoodMapViewController"),
      store_(store),
      mapView_(std::move(mapView)),
      reader_(MapDataReader::create(store)) {}

MoodMapViewController::~MoodMapViewController() {
  ownLocationCall_.cancel();
  reader_->stopReadingData();
}

std::shared_ptr<MoodMapViewController> MoodMapViewController::self() {
  return std::static_pointer_cast<MoodMapViewController>(shared_from_this());
}

void MoodMapViewController::viewDidLoad() {
  auto me = self();
  clusterController_ = GeoMapClusterController::initWithMapView(mapView_);
  clusterController_->setDelegate(me);
  delegateProxy_ = GeoMapViewDelegateProxy::attach(*mapView_, me);
  reader_->setDelegate(me);
  std::weak_ptr<MoodMapViewController> weak = me;
  backupLoaded_ = ScopedObserver(NotificationCenter::defaultCenter(), MoodBackupWasLoadedNotification,
                                 nullptr, [weak](const Notification&) {
                                   if (auto screen = weak.lock()) screen->resetFilter();
                                 });
  if (view_) view_->setModeButtonImage(averageDrawing_ ? "averageCircle" : "pieChart");
  updateWithSettings(MapSettings());
  if (followsOwnLocation_) scheduleOwnLocation(kShowOwnLocationDelay);
}

// --- Data -----------------------------------------------------------------

void MoodMapViewController::refreshMap() {
  reader_->setStartDate(startFilterDate_);
  reader_->setEndDate(endFilterDate_);
  reader_->setTagsSet(selectedTags_);
  updateWithSettings(MapSettings());
}

void MoodMapViewController::updateWithSettings(const MapSettings& settings) {
  if (!clusterController_) return;  // before viewDidLoad
  settings_ = settings;
  clusterController_->setCellSize(settings.cellSize);
  clusterController_->setMarginFactor(settings.marginFactor);
  clusterController_->setMaxZoomLevelForClustering(settings.maxZoomLevelForClustering);
  clusterController_->setMinUniqueLocationsForClustering(settings.minUniqueLocationsForClustering);
  if (settings.clusterer == 0) {
    clusterer_ = std::make_shared<GeoCenterOfMassMapClusterer>();
    clusterController_->setClusterer(clusterer_);
  } else if (settings.clusterer == 1) {
    clusterer_ = std::make_shared<GeoNearCenterMapClusterer>();
    clusterController_->setClusterer(clusterer_);
  }
  if (settings.animator == 0) {
    animator_ = std::make_shared<GeoFadeInOutMapAnimator>();
    clusterController_->setAnimator(animator_);
  }
  clusterController_->setDebuggingEnabled(settings.debuggingEnabled);
  reader_->stopReadingData();
  allAnnotations_.clear();
  clusterController_->removeAnnotations(clusterController_->annotations());
  reader_->startReadingMoodData();
  mapView_->removeOverlays(mapView_->overlays());
}

void MoodMapViewController::resetFilter() {
  startFilterDate_.reset();
  endFilterDate_.reset();
  selectedTags_.clear();
  if (view_) {
    view_->setFilterDateTexts({}, {});
    view_->setTagFilterText({});
  }
  refreshMap();
}

void MoodMapViewController::dataReaderAddAnnotations(MapDataReader&,
                                                     const MoodMapPointAnnotationList& annotations) {
  MapAnnotationList pins(annotations.begin(), annotations.end());
  clusterController_->addAnnotations(pins);
  allAnnotations_.insert(allAnnotations_.end(), annotations.begin(), annotations.end());
}

bool MoodMapViewController::isSettled() const {
  return clusterController_ && !reader_->isReading() && clusterController_->pendingOperationCount() == 0;
}

std::vector<GeoMapClusterAnnotationPtr> MoodMapViewController::clusterAnnotations() const {
  std::vector<GeoMapClusterAnnotationPtr> pins;
  for (const auto& shown : mapView_->annotations()) {
    if (auto pin = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(shown)) pins.push_back(std::move(pin));
  }
  return pins;
}

// Insertion from the end: the list is short (the members of one pin) and
// usually arrives nearly sorted.
std::vector<long> MoodMapViewController::moodsArrayForClusterAnnotation(
    const GeoMapClusterAnnotation& annotation) {
  std::vector<long> moods;
  auto members = annotation.annotations();
  if (!members) return moods;
  moods.reserve(members->size());
  for (const auto& member : *members) {
    auto point = std::dynamic_pointer_cast<MoodMapPointAnnotation>(member);
    if (!point) continue;
    const long level = point->moodLevel();
    moods.push_back(level);
    std::size_t i = moods.size() - 1;
    while (i > 0 && moods[i - 1] > level) {
      moods[i] = moods[i - 1];
      --i;
    }
    moods[i] = level;
  }
  return moods;
}

// --- Pins -------------------------------------------------------------------

std::string MoodMapViewController::titleForCount(std::size_t count) {
  return stringWithFormat("%tu %@", count, localized(count == 1 ? "annotation" : "annotations"));
}

std::string MoodMapViewController::subtitleForAnnotation(const GeoMapClusterAnnotation& annotation) {
  std::string text;
  auto members = annotation.annotations();
  if (!members) return text;
  const std::size_t shown = std::min<std::size_t>(members->size(), 5);
  for (std::size_t i = 0; i < shown; ++i) {
    if (i) text += ", ";
    text += (*members)[i]->title();
  }
  return text;
}

std::optional<std::string> MoodMapViewController::titleForMapClusterAnnotation(
    GeoMapClusterController&, const GeoMapClusterAnnotation& annotation) {
  return titleForCount(annotation.count());
}

std::optional<std::string> MoodMapViewController::subtitleForMapClusterAnnotation(
    GeoMapClusterController&, const GeoMapClusterAnnotation& annotation) {
  return subtitleForAnnotation(annotation);
}

void MoodMapViewController::configure(MapClusterAnnotationView& view,
                                      const GeoMapClusterAnnotation& annotation) const {
  view.uniqueLocation = annotation.isUniqueLocation();
  view.moodArray = moodsArrayForClusterAnnotation(annotation);
  view.count = annotation.count();
  view.averageDrawing = averageDrawing_;
}

void MoodMapViewController::willReuseMapClusterAnnotation(GeoMapClusterController&,
                                                          GeoMapClusterAnnotation& annotation) {
  auto shown = mapView_->viewForAnnotation(annotation.shared_from_this());
  if (auto view = std::dynamic_pointer_cast<MapClusterAnnotationView>(shown)) configure(*view, annotation);
}

AnnotationViewPtr MoodMapViewController::viewForAnnotation(MapView&, const MapAnnotationPtr& annotation) {
  auto cluster = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(annotation);
  if (!cluster) return nullptr;
  auto view = std::make_shared<MapClusterAnnotationView>(annotation);
  configure(*view, *cluster);
  return view;
}

void MoodMapViewController::didSelectAnnotationView(MapView&, const AnnotationViewPtr& view) {
  if (!view) return;
  if (auto cluster = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(view->annotation()))
    didSelectClusterAnnotation(cluster);
}

void MoodMapViewController::didSelectClusterAnnotation(const GeoMapClusterAnnotationPtr& annotation) {
  if (!annotation) return;
  if (annotation->isUniqueLocation()) {
    CoordinateRegion region = mapView_->region();
    region.center = annotation->coordinate();
    mapView_->setRegion(mapView_->regionThatFits(region), true);
  } else if (auto members = annotation->annotations(); members && !members->empty()) {
    double minX = std::numeric_limits<double>::max(), minY = minX;
    double maxX = std::numeric_limits<double>::lowest(), maxY = maxX;
    for (const auto& member : *members) {
      const MapPoint point = MapPointForCoordinate(member->coordinate());
      minX = std::min(minX, point.x);
      maxX = std::max(maxX, point.x);
      minY = std::min(minY, point.y);
      maxY = std::max(maxY, point.y);
    }
    const MapRect rect = MapRectMake(minX, minY, maxX - minX, maxY - minY);
    mapView_->setRegion(mapView_->regionThatFits(CoordinateRegionForMapRect(rect)), true);
  }
  mapView_->deselectAnnotation(annotation, false);
}

// --- Own location -------------------------------------------------------------

void MoodMapViewController::scheduleOwnLocation(double delay) {
  ownLocationCall_.cancel();
  std::weak_ptr<MoodMapViewController> weak = self();
  ownLocationCall_ = DispatchQueue::main().after(delay, [weak] {
    if (auto screen = weak.lock()) screen->showOwnLocation();
  });
}

void MoodMapViewController::showOwnLocation() {
  LocationHelper& helper = LocationHelper::sharedInstance();
  if (helper.isEnabled() && helper.latitude() != 0 && helper.longitude() != 0) {
    mapView_->setRegion(CoordinateRegionMakeWithDistance({helper.latitude(), helper.longitude()},
                                                         kMapVisibleSquare, kMapVisibleSquare),
                        true);
    return;
  }
  scheduleOwnLocation(kShowOwnLocationRetry);
}

void MoodMapViewController::showLocationClicked() {
  LocationHelper& helper = LocationHelper::sharedInstance();
  if (!helper.location()) return;
  CoordinateRegion region = mapView_->region();
  region.center = {helper.latitude(), helper.longitude()};
  mapView_->setRegion(mapView_->regionThatFits(region), true);
}

// --- Filters --------------------------------------------------------------------

std::vector<std::string> MoodMapViewController::mapTypeTitles() {
  return {localized("Standart"), localized("Satellite"), localized("Hybrid")};
}

void MoodMapViewController::mapTypeSelected(int type) {
  if (type < 0 || type > 2) return;
  if (view_) view_->setMapType(type);
}

void MoodMapViewController::setFilterDates(std::optional<Date> start, std::optional<Date> end) {
  startFilterDate_ = start;
  endFilterDate_ = end;
  if (view_) {
    DateFormatter formatter;
    formatter.setDateStyle(DateFormatter::Style::kLong);
    formatter.setTimeStyle(DateFormatter::Style::kNone);
    view_->setFilterDateTexts(start ? formatter.stringFromDate(*start) : std::string(),
                              end ? formatter.stringFromDate(*end) : std::string());
  }
  refreshMap();
}

std::string MoodMapViewController::tagFilterText(const std::vector<std::string>& sortedNames) {
  std::string text;
  for (const auto& name : sortedNames) text = stringWithFormat("%@ %@,", text, name);
  if (!text.empty()) text.pop_back();
  return text;
}

void MoodMapViewController::selectionCompleatedWithSet(const std::set<std::string>& tagNames) {
  tagSelecting_ = false;
  selectedTags_.assign(tagNames.begin(), tagNames.end());
  if (view_) view_->setTagFilterText(tagFilterText(selectedTags_));
  refreshMap();
}

void MoodMapViewController::changeModeButtonClicked() {
  averageDrawing_ = !averageDrawing_;
  if (view_) view_->setModeButtonImage(averageDrawing_ ? "averageCircle" : "pieChart");
  refreshMap();
}

}  // namespace lumeo
