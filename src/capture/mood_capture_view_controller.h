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
#include "shell/mood_view_controller.h"

namespace lumeo {

class UserDefaults;

// One tile: level 10 is the top tile, index 0.
struct MoodCaptureLevelTile {
  long level = 0;
  std::string text;
  Color color;
};

class MoodCaptureViewController : public MoodViewController, public MoodRecordEditViewControllerDelegate {
 public:
  MoodCaptureViewController(RecordStateServices services, std::filesystem::path libraryDirectory,
                            std::shared_ptr<UserDefaults> defaults);

  // Hands a finished record to the history tab (its unique identifier);
  // `switchTab` is false while a passcode locks the journal.
  using RecordFinishedHandler = std::function<void(const std::string& uniqueIdentifier)>;
  void setRecordFinishedHandler(RecordFinishedHandler handler) { recordFinished_ = std::move(handler); }
  // Called with each editor the tab opens, so a front end can show it.
  void setEditorOpenedHandler(std::function<void(MoodRecordEditViewController&)> handler) {
    editorOpened_ = std::move(handler);
  }

  // Rebuilds the ten tiles from the level table.
  void updateColors();
  const std::vector<MoodCaptureLevelTile>& tiles() const { return tiles_; }

  // The tile index under a position along the control; -1 out of bounds.
  static int indexForPosition(double position, double tileHeight);
  // The finger lifted on tile `selectedView` (-1: none).
  void selectMenu(int selectedView);
  void presentEditControllerWithRecord(const std::shared_ptr<MoodRecord>& record, bool animated);
  // At launch: reopens the editor on an unfinished record, as a new one.
  // Any failure does nothing and keeps the key.
  void checkForRecordBeingCreated();

  void viewControllerDone(MoodRecordEditViewController& editor) override;
  void viewControllerDidCancel(MoodRecordEditViewController& editor) override;

  std::shared_ptr<MoodRecordEditViewController> editor() const { return editor_; }

 private:
  RecordStateServices services_;
  std::filesystem::path libraryDirectory_;
  std::shared_ptr<UserDefaults> defaults_;
  std::vector<MoodCaptureLevelTile> tiles_;
  std::shared_ptr<MoodRecordEditViewController> editor_;
  RecordFinishedHandler recordFinished_;
  std::function<void(MoodRecordEditViewController&)> editorOpened_;
};

}  // namespace lumeo
