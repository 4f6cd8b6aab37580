// The base of nearly all screens. It carries the alert helpers, which turn
// button titles and results into a request for the Presenter, and the rule
// that picks the tall-phone layout of a screen.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "shell/presenter.h"
#include "shell/screen.h"

namespace lumeo {

// An item of an action sheet. The results 4 and 5 carry meaning: 4 is shown
// in the destructive style and 5 in the cancel style.
struct MoodActionItem {
  std::string title;
  int result = 0;
};

inline constexpr int kMoodActionDestructive = 4;
inline constexpr int kMoodActionCancel = 5;

class MoodViewController : public Screen {
 public:
  explicit MoodViewController(std::string className);

  bool isMoodViewController() const override { return true; }

  // The presenter that all screens use; the front end installs it at start.
  // Without one, alerts go nowhere (SilentPresenter).
  static void setSharedPresenter(std::shared_ptr<Presenter> presenter);
  static Presenter& presenter();

  // Every alert and sheet handler goes through one guard: it runs only while
  // this screen lives (and keeps it alive for the call), and an answer that
  // arrives after the screen is gone is dropped. Handlers may therefore
  // capture `this`. A screen not held by a shared_ptr never runs them.
  //
  // One-button alert.
  void showAlert(const std::string& title, const std::string& message, const std::string& done);
  // Buttons only for the titles that are present; cancel has the cancel
  // style. The handler gets 1 for done and 0 for cancel.
  void showAlert(const std::string& title, const std::string& message, const std::optional<std::string>& done,
                 const std::optional<std::string>& cancel, std::function<void(int)> completionHandler);
  void showAlert(const std::string& title, const std::string& message, const std::optional<std::string>& done,
                 std::optional<RGBAColor> doneColor, AlertActionStyle doneStyle,
                 const std::optional<std::string>& cancel, std::optional<RGBAColor> cancelColor,
                 std::function<void(int)> completionHandler);
  // Sheet of items; the handler gets the chosen item's result.
  void showActionSheet(const std::string& title, const std::string& message,
                       const std::vector<MoodActionItem>& items, std::function<void(int)> completionHandler);
  void showActionSheet(const std::string& title, const std::string& message,
                       const std::vector<MoodActionItem>& items, const Screen* view,
                       std::function<void(int)> completionHandler);

  // The layout name of a screen: the tall phones get the "X" variant of the
  // screens listed in kTallLayoutScreens, unless the name has it already.
  // The guard above, for handlers that reach the presenter another way.
  std::function<void(int)> guardedHandler(std::function<void(int)> handler);

  static std::string nibNameForDevice(const std::string& nibName, bool isTallPhone);
  static const std::vector<std::string>& tallLayoutScreens();
};

}  // namespace lumeo
