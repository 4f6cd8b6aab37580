// The capture tab: ten level tiles, one touch records the level and opens
// the editor over the new record. The record's identifier is kept in the
// defaults while its editor is open, so that a record left by a crash or a
// termination comes back in the editor at the next launch.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "capture/mood_record_edit_view_controller.h"
#include "capture/mood_record_state.h"
#include "platform/color.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"
#include "shell/shell_services.h"

namespace lumeo {

class UserDefaults;

// One tile: level 10 is the top tile, index 0.
struct MoodCaptureLevelTile {
  long level = 0;
  std::string text;
  Color color;
};

// Also the shell's capture hooks, so the application object's launch can
// resume an unfinished record through it.
class MoodCaptureViewController : public MoodViewController,
                                  public MoodRecordEditViewControllerDelegate,
                                  public CaptureHooks {
 public:
  MoodCaptureViewController(RecordStateServices services, std::filesystem::path libraryDirectory,
                            std::shared_ptr<UserDefaults> defaults);

  // What finishing a new record touches outside the tab. Unset members use
  // the running application (its passcode gate, unlock state and tab bar);
  // without one they do nothing.
  struct FinishHooks {
    // The rate prompt hears of a significant event.
    std::function<void(bool significant)> userDidSignificantEvent;
    // The history tab selects the record: its unique identifier, and the
    // index -2 that says "find it by identifier".
    std::function<void(const std::string& uniqueIdentifier, long selectedIndex)> selectHistoryRecord;
    // No passcode, or the journal is unlocked.
    std::function<bool()> mayShowHistory;
    std::function<void()> showHistoryTab;
  };
  void setFinishHooks(FinishHooks hooks) { finishHooks_ = std::move(hooks); }
  static constexpr long kSelectByIdentifierIndex = -2;

  // Called with each editor the tab opens, so a front end can show it.
  void setEditorOpenedHandler(std::function<void(MoodRecordEditViewController&)> handler) {
    editorOpened_ = std::move(handler);
  }

  // Rebuilds the ten tiles from the level table; off the main thread it does
  // nothing. Runs on appearing and after every saveContext (the level
  // editor posts the same notification).
  void updateColors();
  void viewWillAppear() { updateColors(); }
  const std::vector<MoodCaptureLevelTile>& tiles() const { return tiles_; }

  // The tile index under a position along the control; -1 out of bounds.
  static int indexForPosition(double position, double tileHeight);
  // The finger lifted on tile `selectedView` (-1: none).
  void selectMenu(int selectedView);
  void presentEditControllerWithRecord(const std::shared_ptr<MoodRecord>& record, bool animated);
  // At launch: reopens the editor on an unfinished record, as a new one.
  // Any failure does nothing and keeps the key.
  void checkForRecordBeingCreated() override;
  // The share sheet's Edit: an editor on an existing record, whose done and
  // cancel hand it to `finished` (the application closes it).
  std::shared_ptr<Screen> editorForExistingRecord(const std::shared_ptr<MoodRecord>& record,
                                                  std::function<void(Screen& editor)> finished) override;

  void viewControllerDone(MoodRecordEditViewController& editor) override;
  void viewControllerDidCancel(MoodRecordEditViewController& editor) override;

  std::shared_ptr<MoodRecordEditViewController> editor() const { return editor_; }

 private:
  RecordStateServices services_;
  std::filesystem::path libraryDirectory_;
  std::shared_ptr<UserDefaults> defaults_;
  std::vector<MoodCaptureLevelTile> tiles_;
  std::shared_ptr<MoodRecordEditViewController> editor_;
  FinishHooks finishHooks_;
  ScopedObserver modelObserver_;
  std::function<void(MoodRecordEditViewController&)> editorOpened_;
  // The delegate of the editor opened by editorForExistingRecord; an editor
  // only holds its delegate weakly.
  std::shared_ptr<MoodRecordEditViewControllerDelegate> existingEditorDelegate_;
};

}  // namespace lumeo
