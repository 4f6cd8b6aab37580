// The settings menu: one row per settings screen, then the cloud-drive
// rows. Each row pushes its screen; the watch row hides itself when no
// watch is paired, and the last visible row is a little taller.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class CloudLinkService;
class WatchService;
class UserDefaults;

struct MoodSettingsRow {
  std::string key;     // "kMoodsRow", ...; "" for an empty filler row
  std::string title;   // localised
  std::string image;   // image resource name
  std::string screen;  // class of the screen the row pushes ("" for none)
};

class MoodSettingsViewController : public MoodViewController {
 public:
  // Unset services are taken from the application object.
  MoodSettingsViewController(std::shared_ptr<CloudLinkService> cloudLink = nullptr,
                             std::shared_ptr<WatchService> watch = nullptr,
                             std::shared_ptr<UserDefaults> defaults = nullptr);

  // Builds `sections` from the fixed rows and the link state.
  void loadSections();
  const std::vector<std::string>& sections() const { return sections_; }
  const std::vector<MoodSettingsRow>& rows() const { return rows_; }
  const MoodSettingsRow* rowForKey(const std::string& key) const;
  double heightForRow(std::size_t index) const;

  // A tap on a row: pushes its screen, animated; the unlink row asks first.
  void didSelectRow(std::size_t index);

  // Who makes the screen a row pushes. The subsystem behind a row (or the
  // front end that shows it) registers a maker for the screen's class;
  // without one the row pushes a plain screen of that name. Registering
  // again replaces the maker; an empty maker removes it. Main thread only.
  using ScreenMaker = std::function<std::shared_ptr<Screen>()>;
  static void registerScreenMaker(const std::string& className, ScreenMaker maker);
  static std::shared_ptr<Screen> makeScreen(const std::string& className);

  // The cloud account was linked: shows who linked it.
  void dropboxLinked();
  const std::string& dropboxLoginString() const { return dropboxLoginString_; }
  // Number of times the account row was reloaded (the front end redraws it).
  int accountRowReloads() const { return accountRowReloads_; }

 private:
  std::shared_ptr<CloudLinkService> cloudLink_;
  std::shared_ptr<WatchService> watch_;
  std::shared_ptr<UserDefaults> defaults_;
  std::vector<std::string> sections_;
  std::vector<MoodSettingsRow> rows_;
  std::string dropboxLoginString_;
  int accountRowReloads_ = 0;
  ScopedObserver linkedObserver_;
};

}  // namespace lumeo
