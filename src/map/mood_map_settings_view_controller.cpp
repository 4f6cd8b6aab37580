// Choosing "Auto" without permission would silently do nothing, so the
// screen refuses it and points at the place where location is allowed.
#include "map/mood_map_settings_view_controller.h"

#include "capture/location_helper.h"
#include "platform/localization.h"
#include "platform/log.h"
#include "store/mood_user_defaults_operator.h"

namespace lumeo {

MoodMapSettingsViewController::MoodMapSettingsViewController(MoodUserDefaultsOperator& defaults,
                                                             std::function<void()> removeCoordinates)
    : MoodViewController("MoodMapSettingsViewController"),
      defaults_(defaults),
      removeCoordinates_(std::move(removeCoordinates)) {}

std::vector<MoodMapSettingsRow> MoodMapSettingsViewController::rows() const {
  return {{kMapTitle, localized("LOCATING")},
          {kMapAuto, localized("Auto")},
          {kMapManual, localized("Manual")},
          {kMapSpace0, {}},
          {kMapDelete, localized("Delete Geolocation")},
          {kMapSpace1, {}},
          {kMapDeleteDescription, localized("Delete geolocation data from all mood records")}};
}

bool MoodMapSettingsViewController::isAutomatic() const {
  return defaults_.isMapAutomaticSelectLocation();
}

void MoodMapSettingsViewController::chooseAutomatic() {
  if (!LocationHelper::sharedInstance().isEnabled()) {
    showAlert(localized("Enable geolocation in the application settings"), {}, localized("Open"),
              localized("Cancel"), [this](int result) {
                if (result == 1 && openSettings_) openSettings_();
              });
    return;
  }
  LUMEO_DROP_ERROR(defaults_.setIsMapAutomaticSelectLocation(true));
}

void MoodMapSettingsViewController::chooseManual() {
  LUMEO_DROP_ERROR(defaults_.setIsMapAutomaticSelectLocation(false));
}

void MoodMapSettingsViewController::deleteGeolocation() {
  showAlert(localized("Attention!"),
            localized("All location data will be permanently deleted. Are you sure?"), localized("Yes"),
            localized("Cancel"), [this](int result) {
              if (result != 1) return;
              if (removeCoordinates_) removeCoordinates_();
              showAlert({}, localized("All location data has been successfully deleted"), localized("OK"));
            });
}

}  // namespace lumeo
