// The capture tab inside a launched application: finishing a new record
// opens the history tab only when the passcode allows it, the editor's save
// tells the watch, and the location helper follows the application's
// location service when none was set for it.
#include "capture/mood_capture_view_controller.h"

#include <gtest/gtest.h>

#include "capture/location_helper.h"
#include "shell/shell_test_support.h"
#include "store/image_store.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo {
namespace {

class CaptureInAppTest : public testing::ShellTest {
 protected:
  // The application takes its image store down with it; the store other
  // tests in this binary installed comes back.
  CaptureInAppTest() : previousImages_(ImageStore::shared()) {}
  ~CaptureInAppTest() override {
    app_.reset();
    ImageStore::setShared(previousImages_);
  }

  std::shared_ptr<MoodCaptureViewController> launchCapture() {
    launch();
    auto capture = std::make_shared<MoodCaptureViewController>(RecordStateServices::fromSharedDelegate(),
                                                               dir_ / "Library", defaults_);
    return capture;
  }
  void finishOneRecord(MoodCaptureViewController& capture, const std::string& comment) {
    capture.selectMenu(2);
    auto editor = capture.editor();
    ASSERT_TRUE(editor);
    editor->viewDidLoad();
    editor->textViewDidChange(comment, comment.size());
    editor->done();
  }

  std::shared_ptr<ImageStore> previousImages_;
};

TEST_F(CaptureInAppTest, DoneOpensHistoryOnlyWhenThePasscodeAllows) {
  auto capture = launchCapture();
  auto tabs = app_->tabBarController();
  ASSERT_TRUE(tabs);
  ASSERT_EQ(tabs->currentIndex(), MoodTabBarController::kCaptureTab);

  passcode_->passcodeStored = true;
  app_->passCodeUnlocked = false;
  finishOneRecord(*capture, "locked #away");
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kCaptureTab);
  EXPECT_FALSE(capture->editor());

  app_->passCodeUnlocked = true;
  finishOneRecord(*capture, "open again");
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kHistoryTab);

  tabs->selectTab(MoodTabBarController::kCaptureTab, false);
  passcode_->passcodeStored = false;
  app_->passCodeUnlocked = false;
  int saves = watch_->saves;
  finishOneRecord(*capture, "no passcode at all");
  EXPECT_EQ(tabs->currentIndex(), MoodTabBarController::kHistoryTab);
  EXPECT_GT(watch_->saves, saves);  // the editor's save told the watch
  EXPECT_EQ(app_->store().tagNamed("away")->frequency(), 1);
}

TEST_F(CaptureInAppTest, LocationHelperUsesTheApplicationsService) {
  launch();
  LocationHelper& helper = LocationHelper::sharedInstance();
  helper.setLocationService(nullptr);
  location_->enabled = true;
  EXPECT_TRUE(helper.isEnabled());
  location_->enabled = false;
  EXPECT_FALSE(helper.isEnabled());
  app_.reset();
  EXPECT_FALSE(helper.isEnabled());  // no application: no position
}

// The share sheet's Edit opens the real editor on the record, in editing
// mode; done keeps the edit, cancel restores the record, and both close it.
TEST_F(CaptureInAppTest, ShareSheetEditOpensTheEditorOnTheRecord) {
  seedRecord(4);
  auto capture = launchCapture();
  app_->setCaptureHooks(capture);
  auto record = app_->store().allRecords().front();
  Screen* top = app_->window().visibleViewController();
  ASSERT_TRUE(top);

  app_->moodEditActivityFinished(record);
  auto* editor = dynamic_cast<MoodRecordEditViewController*>(app_->window().visibleViewController());
  ASSERT_TRUE(editor);
  EXPECT_TRUE(editor->editing());
  editor->viewDidLoad();
  editor->textViewDidChange("shared #edit", 12);
  editor->done();
  EXPECT_EQ(app_->window().visibleViewController(), top);
  EXPECT_EQ(record->moodDescription()->comment(), "shared #edit");
  EXPECT_TRUE(record->moodDescription()->wasEdited());

  app_->moodEditActivityFinished(record);
  editor = dynamic_cast<MoodRecordEditViewController*>(app_->window().visibleViewController());
  ASSERT_TRUE(editor);
  editor->viewDidLoad();
  editor->textViewDidChange("thrown away", 11);
  EXPECT_FALSE(editor->saveChanges());
  editor->confirmCancel();
  EXPECT_EQ(app_->window().visibleViewController(), top);
  EXPECT_EQ(record->moodDescription()->comment(), "shared #edit");
}

}  // namespace
}  // namespace lumeo
