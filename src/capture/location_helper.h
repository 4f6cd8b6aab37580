// The shared source of the device's position, which stamps a record waiting
// for one. It sits on the application's LocationService: the helper keeps
// the last fix and decides which fix is good enough for a record (accurate
// within 100 m, at most 100 seconds old); the service only reports fixes.
// Without a service that knows a position, location is unavailable and no
// record is ever stamped.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "shell/shell_services.h"

namespace lumeo {

class MoodRecord;

class LocationHelper {
 public:
  // A fix stamps a record only when its accuracy is below this (metres) ...
  static constexpr double kAcceptedAccuracy = 100.0;
  // ... and it is at most this old (seconds).
  static constexpr double kMaximumFixAge = 100.0;

  // The one helper of the process, made on first use. Main thread only.
  static LocationHelper& sharedInstance();

  // The service listened to. Unset (or null), the running application's
  // service is used, and without an application one that has no position.
  // Setting a service forgets the last fix, the waiting record and the
  // target.
  void setLocationService(std::shared_ptr<LocationService> service);
  LocationService& locationService();

  bool isEnabledOnlyServices() { return locationService().isEnabledOnlyServices(); }
  bool isEnabled() { return locationService().isEnabled(); }
  void startUpdatingLocation() { locationService().startUpdatingLocation(); }
  void stopUpdatingLocation() { locationService().stopUpdatingLocation(); }

  // Names the record to stamp with the next good fix (null: none). Held
  // weakly: a record deleted meanwhile (a cancelled capture) is never
  // written to.
  void setRecord(const std::shared_ptr<MoodRecord>& record);
  std::shared_ptr<MoodRecord> record() const { return record_.lock(); }
  // Called once each time a waiting record has been stamped.
  void setTarget(std::function<void()> target) { target_ = std::move(target); }

  // Asks for a position for the waiting record.
  void requestLocation();
  // Stamps at once from a good fix already known, then starts updates so a
  // better one can still come.
  void getLocation();
  // Writes the last fix to the waiting record: each coordinate only where
  // the description still holds -1, so a place the user chose stays. Needs
  // location to be enabled. Clears the waiting record and calls the target.
  void requestLocationName();

  // The service's reports.
  void locationManagerDidUpdateLocations(const LocationFix& fix);
  void locationManagerDidFailWithError(const Error& error);

  // The last fix; latitude, longitude and accuracy are 0 and the location
  // absent before the first fix and after a failure.
  const std::optional<LocationFix>& location() const { return location_; }
  double latitude() const { return latitude_; }
  double longitude() const { return longitude_; }
  double accuracy() const { return accuracy_; }
  bool locationAccepted() const { return locationAccepted_; }

 private:
  LocationHelper() = default;
  void listenTo(const std::shared_ptr<LocationService>& service);
  bool hasGoodKnownFix() const;

  std::shared_ptr<LocationService> explicitService_;
  std::shared_ptr<LocationService> listened_;
  std::optional<LocationFix> location_;
  double latitude_ = 0;
  double longitude_ = 0;
  double accuracy_ = 0;
  std::weak_ptr<MoodRecord> record_;
  bool locationAccepted_ = false;
  std::function<void()> target_;
};

}  // namespace lumeo
