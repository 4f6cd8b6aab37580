#include "map/position_location_service.h"

namespace lumeo {

PositionLocationService::~PositionLocationService() {
  if (running_) source_->stop();
}

bool PositionLocationService::isEnabled() const {
  const auto availability = source_->availability();
  return availability == PositionSource::Availability::kUnknown ||
         availability == PositionSource::Availability::kAvailable;
}

bool PositionLocationService::isEnabledOnlyServices() const {
  return source_->availability() != PositionSource::Availability::kNoService;
}

void PositionLocationService::startUpdatingLocation() {
  running_ = true;
  lastError_.reset();
  source_->start(
      [this](const PositionFix& fix) {
        deliverFix({fix.latitude, fix.longitude, fix.horizontalAccuracy, fix.timestamp});
      },
      [this](const Error& error) {
        lastError_ = error;
        running_ = false;
        deliverFailure(error);
      });
}

void PositionLocationService::stopUpdatingLocation() {
  running_ = false;
  source_->stop();
}

}  // namespace lumeo
