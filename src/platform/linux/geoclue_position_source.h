// The position from GeoClue2, the desktop's location service on the system
// bus: the Manager's GetClient, the client's DesktopId and accuracy level,
// Start, and a fix read from the Location object that each LocationUpdated
// names. The desktop's agent may ask the user and refuse (AccessDenied):
// that is kDenied. No GeoClue on the bus is kNoService.
//
// The D-Bus conversation runs on a worker thread with its own GLib main
// context; fixes and failures are handed to the main queue.
#pragma once

#include <memory>
#include <string>

#include "platform/position_source.h"

namespace lumeo {

class GeoCluePositionSource : public PositionSource {
 public:
  // GeoClue's accuracy levels (the client's RequestedAccuracyLevel).
  static constexpr unsigned kAccuracyLevelCity = 4;
  static constexpr unsigned kAccuracyLevelExact = 8;

  // `desktopId` names the application to the user's agent (the .desktop
  // file's name without the suffix). An empty `busAddress` takes
  // $DBUS_SYSTEM_BUS_ADDRESS, else the system bus.
  explicit GeoCluePositionSource(std::string desktopId = "lumeo", std::string busAddress = {});
  ~GeoCluePositionSource() override;

  Availability availability() const override;
  void start(FixHandler onFix, FailureHandler onFailure) override;
  void stop() override;

  struct Impl;

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace lumeo
