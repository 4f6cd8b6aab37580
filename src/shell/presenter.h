// How controllers talk to the user: alerts, action sheets and the share
// sheet. The GUI implements it with dialogs, the CLI with prompts on a
// terminal, tests with scripted answers. Controllers never draw.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace lumeo {

class Screen;

enum class AlertActionStyle { kDefault, kCancel, kDestructive };

// An RGBA colour, components 0..1.
struct RGBAColor {
  double red = 0, green = 0, blue = 0, alpha = 1;
  friend bool operator==(const RGBAColor&, const RGBAColor&) = default;
};

struct AlertAction {
  std::string title;
  AlertActionStyle style = AlertActionStyle::kDefault;
  std::optional<RGBAColor> titleTextColor;
  int result = 0;  // what the handler receives when this button is chosen
};

struct AlertRequest {
  std::string title;
  std::string message;
  std::vector<AlertAction> actions;
  bool actionSheet = false;
  const Screen* anchor = nullptr;  // sheets: the view the sheet points at
};

// The share actions that a Linux desktop offers for a record, by Lumeo's
// own names. The front end shows the ones not excluded next to Lumeo's own
// activities ("MoodEditActivity", "MoodDeleteActivity").
// Saves the record's photo to a file the user picks.
inline constexpr const char* kShareActivitySave = "org.lumeo.share.save";
// Opens the photo with the desktop's default application for it.
inline constexpr const char* kShareActivityOpenWith = "org.lumeo.share.open-with";
// Starts an e-mail in the user's mail program with the text, and the photo
// as an attachment.
inline constexpr const char* kShareActivityEmail = "org.lumeo.share.email";
// Puts the text on the clipboard.
inline constexpr const char* kShareActivityCopy = "org.lumeo.share.copy";

struct ShareActivity {
  std::string type;   // "MoodEditActivity", "MoodDeleteActivity"
  std::string title;  // localised
  std::string image;  // image resource name
};

struct ShareSheetRequest {
  std::string text;
  std::optional<std::string> photoPath;  // the record's photo file, if any
  std::vector<ShareActivity> applicationActivities;
  std::vector<std::string> excludedActivityTypes;
  // The text that the placeholder item gives a chosen system activity.
  std::function<std::string(const std::string& activityType)> itemForActivityType;
};

class Presenter {
 public:
  virtual ~Presenter() = default;
  // Shows an alert or action sheet over `from`; `handler` later receives the
  // chosen action's result (on the main queue). Never called when the user
  // leaves the alert without choosing on platforms that allow it.
  virtual void presentAlert(Screen& from, const AlertRequest& request,
                            std::function<void(int result)> handler) = 0;
  // Shows the share sheet; `completion` gets the chosen activity type, or ""
  // when the sheet was closed without one.
  virtual void presentShareSheet(Screen& from, const ShareSheetRequest& request,
                                 std::function<void(const std::string& activityType)> completion) = 0;
  // Hides the on-screen keyboard, if any.
  virtual void endEditing() {}
};

// A presenter that shows nothing and answers nothing: for runs without a
// user, such as scripts.
class SilentPresenter : public Presenter {
 public:
  void presentAlert(Screen&, const AlertRequest&, std::function<void(int)>) override {}
  void presentShareSheet(Screen&, const ShareSheetRequest&,
                         std::function<void(const std::string&)>) override {}
};

}  // namespace lumeo
