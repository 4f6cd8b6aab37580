#include "map/mood_location_view_controller.h"

#include "capture/location_helper.h"
#include "platform/localization.h"

namespace lumeo {

std::shared_ptr<MoodLocationViewController> MoodLocationViewController::create(
    std::shared_ptr<MapView> mapView, std::shared_ptr<PlaceSearch> placeSearch) {
  return std::make_shared<MoodLocationViewController>(std::move(mapView), std::move(placeSearch));
}

MoodLocationViewController::MoodLocationViewController(std::shared_ptr<MapView> mapView,
                                                       std::shared_ptr<PlaceSearch> placeSearch)
    : MoodViewController("MoodLocationViewController"),
      mapView_(std::move(mapView)),
      placeSearch_(std::move(placeSearch)) {}

MoodLocationViewController::~MoodLocationViewController() {
  ownLocationCall_.cancel();
}

std::shared_ptr<MoodLocationViewController> MoodLocationViewController::self() {
  return std::static_pointer_cast<MoodLocationViewController>(shared_from_this());
}

std::string MoodLocationViewController::searchPlaceholder() {
  return localized("Search for places");
}

std::vector<std::string> MoodLocationViewController::mapTypeTitles() {
  return {localized("Standart"), localized("Satellite"), localized("Hybrid")};
}

void MoodLocationViewController::viewDidLoad() {
  LocationHelper::sharedInstance().startUpdatingLocation();
  std::weak_ptr<MoodLocationViewController> weak = self();
  ownLocationCall_ = DispatchQueue::main().after(kShowOwnLocationDelay, [weak] {
    if (auto screen = weak.lock()) screen->showOwnLocation();
  });
}

void MoodLocationViewController::showPlace(LocationCoordinate2D coordinate) {
  ownLocationCall_.cancel();
  mapView_->setRegion(CoordinateRegionMakeWithDistance(coordinate, kMapVisibleSquare, kMapVisibleSquare),
                      false);
}

void MoodLocationViewController::showOwnLocation() {
  LocationHelper& helper = LocationHelper::sharedInstance();
  if (helper.latitude() != 0 && helper.longitude() != 0) {
    mapView_->setRegion(CoordinateRegionMakeWithDistance({helper.latitude(), helper.longitude()},
                                                         kMapVisibleSquare, kMapVisibleSquare),
                        true);
    return;
  }
  std::weak_ptr<MoodLocationViewController> weak = self();
  ownLocationCall_ = DispatchQueue::main().after(kShowOwnLocationRetry, [weak] {
    if (auto screen = weak.lock()) screen->showOwnLocation();
  });
}

void MoodLocationViewController::searchButtonClicked() {
  std::string text = searchText_;
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.erase(0, 1);
  const std::uint64_t generation = ++searchGeneration_;
  if (text.empty()) {
    results_.clear();
    searching_ = false;
    if (view_) {
      view_->reloadResults();
      view_->setResultsHidden(true);
    }
    return;
  }
  searching_ = true;
  std::weak_ptr<MoodLocationViewController> weak = self();
  placeSearch_->search(text, mapView_->region(),
                       [weak, generation](const std::vector<Place>& places, const OptionalError& error) {
                         auto screen = weak.lock();
                         // An older search that answers late changes nothing.
                         if (!screen || generation != screen->searchGeneration_) return;
                         screen->searching_ = false;
                         screen->results_ = places;
                         if (!screen->view_) return;
                         screen->view_->reloadResults();
                         screen->view_->setResultsHidden(places.empty());
                         if (error) screen->view_->showSearchError(error->description);
                       });
}

void MoodLocationViewController::selectResult(std::size_t index) {
  if (index >= results_.size()) return;
  if (view_) view_->setResultsHidden(true);
  CoordinateRegion region = mapView_->region();
  region.center = results_[index].coordinate;
  mapView_->setRegion(mapView_->regionThatFits(region), true);
}

void MoodLocationViewController::done() {
  const LocationCoordinate2D centre = mapView_->centerCoordinate();
  if (auto delegate = delegate_.lock())
    delegate->didMoodLocationViewControllerLocationChanged(centre.latitude, centre.longitude);
  LocationHelper::sharedInstance().stopUpdatingLocation();
  ownLocationCall_.cancel();
}

}  // namespace lumeo
