// Where the device's position comes from: a service that, once started,
// reports fixes until it is stopped. On Linux it is GeoClue2 over D-Bus
// (platform/linux/geoclue_position_source.h). A source that is denied by
// the user or absent from the machine says so as an error of the
// kLocationErrorDomain; both are ordinary outcomes, not faults.
#pragma once

#include <functional>

#include "platform/date.h"
#include "platform/error.h"

namespace lumeo {

inline constexpr const char* kLocationErrorDomain = "LumeoLocationErrorDomain";
// The user (or the desktop's policy) does not let Lumeo know the position.
inline constexpr long kLocationDenied = 1;
// No location service runs on this machine.
inline constexpr long kLocationNoService = 2;
// The service answered in a way that gives no position.
inline constexpr long kLocationFailed = 3;

struct PositionFix {
  double latitude = 0;
  double longitude = 0;
  // Radius of uncertainty in metres.
  double horizontalAccuracy = -1;
  Date timestamp;
};

class PositionSource {
 public:
  using FixHandler = std::function<void(const PositionFix& fix)>;
  using FailureHandler = std::function<void(const Error& error)>;

  enum class Availability { kUnknown, kAvailable, kDenied, kNoService };

  virtual ~PositionSource() = default;
  // What the last start found out; kUnknown before the first.
  virtual Availability availability() const = 0;
  // Starts reporting; fixes and the failure that ends a start arrive on the
  // main queue. Starting a running source does nothing.
  virtual void start(FixHandler onFix, FailureHandler onFailure) = 0;
  // Stops reporting; no handler runs after this returns. Main thread.
  virtual void stop() = 0;
};

}  // namespace lumeo
