// Which fix may stamp a record. A fix that is old (the system often
// replays the last known position first) or coarse (a cell-tower guess)
// would put the record in the wrong place, so only a recent, accurate fix
// stamps; later fixes still update the known position.
#include "capture/location_helper.h"

#include <cmath>

#include "objectgraph/managed_object_context.h"
#include "shell/mood_app_delegate.h"
#include "store/mood_description.h"
#include "store/mood_record.h"

namespace lumeo {

LocationHelper& LocationHelper::sharedInstance() {
  static LocationHelper* helper = new LocationHelper();  // lives as long as the process
  return *helper;
}

void LocationHelper::setLocationService(std::shared_ptr<LocationService> service) {
  explicitService_ = std::move(service);
  location_.reset();
  latitude_ = longitude_ = accuracy_ = 0;
  record_.reset();
  locationAccepted_ = false;
  target_ = nullptr;
  locationService();  // listen from now on, before anyone asks
}

LocationService& LocationHelper::locationService() {
  std::shared_ptr<LocationService> service = explicitService_;
  if (!service) {
    if (MoodAppDelegate* app = MoodAppDelegate::sharedDelegate()) service = app->services().location;
  }
  if (!service) {
    static const auto none = std::make_shared<LocationService>();
    service = none;
  }
  listenTo(service);
  return *service;
}

void LocationHelper::listenTo(const std::shared_ptr<LocationService>& service) {
  if (service == listened_) return;
  if (listened_) listened_->setHandlers(nullptr, nullptr);
  listened_ = service;
  listened_->setHandlers([this](const LocationFix& fix) { locationManagerDidUpdateLocations(fix); },
                         [this](const Error& error) { locationManagerDidFailWithError(error); });
}

void LocationHelper::setRecord(const std::shared_ptr<MoodRecord>& record) {
  record_ = record;
}

// A phone wraps this in a background task so that the answer can still
// arrive after the user left the application; a desktop process keeps
// running, so the request is the fetch itself.
void LocationHelper::requestLocation() {
  getLocation();
}

bool LocationHelper::hasGoodKnownFix() const {
  return location_ && accuracy_ >= 0 && accuracy_ < kAcceptedAccuracy;
}

void LocationHelper::getLocation() {
  locationAccepted_ = false;
  if (record() && hasGoodKnownFix()) requestLocationName();
  startUpdatingLocation();
}

void LocationHelper::requestLocationName() {
  if (!isEnabled()) return;
  locationAccepted_ = true;
  auto record = record_.lock();
  if (!location_ || !record) return;
  latitude_ = location_->latitude;
  longitude_ = location_->longitude;
  auto description =
      record->managedObjectContext() && !record->isDeleted() ? record->moodDescription() : nullptr;
  if (description) {
    if (description->latitude() == MoodDescription::kNoCoordinate) description->setLatitude(latitude_);
    if (description->longitude() == MoodDescription::kNoCoordinate) description->setLongitude(longitude_);
  }
  record_.reset();
  if (description && target_) {
    auto target = target_;  // the target may set a new one
    target();
  }
}

void LocationHelper::locationManagerDidUpdateLocations(const LocationFix& fix) {
  accuracy_ = fix.horizontalAccuracy;
  latitude_ = fix.latitude;
  longitude_ = fix.longitude;
  location_ = fix;
  if (!record() || locationAccepted_ || accuracy_ < 0) return;
  double age = std::fabs(Date::now().timeIntervalSinceDate(fix.timestamp));
  if (age > kMaximumFixAge) return;
  if (accuracy_ < kAcceptedAccuracy) requestLocationName();
}

void LocationHelper::locationManagerDidFailWithError(const Error&) {
  location_.reset();
  accuracy_ = latitude_ = longitude_ = 0;
}

}  // namespace lumeo
