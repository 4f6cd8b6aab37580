// The application's location service on top of a platform position source
// (GeoClue on Linux): what LocationHelper listens to. Location counts as
// enabled until the source has said it is denied or absent; the next start
// asks again, so a permission granted later is noticed.
#pragma once

#include <memory>

#include "platform/position_source.h"
#include "shell/shell_services.h"

namespace lumeo {

class PositionLocationService : public LocationService {
 public:
  explicit PositionLocationService(std::shared_ptr<PositionSource> source) : source_(std::move(source)) {}
  ~PositionLocationService() override;

  bool isEnabled() const override;
  bool isEnabledOnlyServices() const override;
  void startUpdatingLocation() override;
  void stopUpdatingLocation() override;

  // The last failure the source reported, if the last start failed.
  const OptionalError& lastError() const { return lastError_; }

 private:
  std::shared_ptr<PositionSource> source_;
  OptionalError lastError_;
  bool running_ = false;
};

}  // namespace lumeo
