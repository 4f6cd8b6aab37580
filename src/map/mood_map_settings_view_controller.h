// The map's settings screen: automatic or manual location for new records,
// and the erasure of every position in the journal.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "shell/mood_view_controller.h"

namespace lumeo {

class JournalStore;
class MoodUserDefaultsOperator;

struct MoodMapSettingsRow {
  std::string key;    // "kMapTitle", "kMapAuto", ...
  std::string title;  // localised; empty for spacer rows
};

class MoodMapSettingsViewController : public MoodViewController {
 public:
  static constexpr const char* kMapTitle = "kMapTitle";
  static constexpr const char* kMapAuto = "kMapAuto";
  static constexpr const char* kMapManual = "kMapManual";
  static constexpr const char* kMapSpace0 = "kMapSpace0";
  static constexpr const char* kMapSpace1 = "kMapSpace1";
  static constexpr const char* kMapDelete = "kMapDelete";
  static constexpr const char* kMapDeleteDescription = "kMapDeleteDescription";

  // `removeCoordinates` erases every position (the application's; tests
  // give their own).
  MoodMapSettingsViewController(MoodUserDefaultsOperator& defaults, std::function<void()> removeCoordinates);

  std::vector<MoodMapSettingsRow> rows() const;
  // Which of the two modes is ticked.
  bool isAutomatic() const;

  // "Auto" needs location to be enabled; otherwise the user is offered the
  // system's settings, through the handler (the desktop's privacy panel).
  void setOpenSettingsHandler(std::function<void()> handler) { openSettings_ = std::move(handler); }
  void chooseAutomatic();
  void chooseManual();
  // Asks, then erases every position and says so.
  void deleteGeolocation();

 private:
  MoodUserDefaultsOperator& defaults_;
  std::function<void()> removeCoordinates_;
  std::function<void()> openSettings_;
};

}  // namespace lumeo
