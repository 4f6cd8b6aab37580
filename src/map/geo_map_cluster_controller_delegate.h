// What the owner of a cluster controller may answer or hear: the texts of a
// cluster annotation and the reuse of one for a new group. Called on the
// main thread.
#pragma once

#include <optional>
#include <string>

namespace lumeo {

class GeoMapClusterController;
class GeoMapClusterAnnotation;

class GeoMapClusterControllerDelegate {
 public:
  virtual ~GeoMapClusterControllerDelegate() = default;
  // No answer (nullopt) leaves the text empty.
  virtual std::optional<std::string> titleForMapClusterAnnotation(
      GeoMapClusterController& /*controller*/, const GeoMapClusterAnnotation& /*annotation*/) {
    return std::nullopt;
  }
  virtual std::optional<std::string> subtitleForMapClusterAnnotation(
      GeoMapClusterController& /*controller*/, const GeoMapClusterAnnotation& /*annotation*/) {
    return std::nullopt;
  }
  // A cluster annotation on the map now stands for another group; its view
  // should be refreshed.
  virtual void willReuseMapClusterAnnotation(GeoMapClusterController& /*controller*/,
                                             GeoMapClusterAnnotation& /*annotation*/) {}
};

}  // namespace lumeo
