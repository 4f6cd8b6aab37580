// The level editor driven as a user would: typing labels, moving between
// rows, done, reset with its question, the colour panel and the gradient
// mode, on a real library folder and an in-memory settings store.
#include "capture/mood_capture_edit_view_controller.h"

#include <gtest/gtest.h>

#include "platform/notification_center.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

class RecordingView : public MoodCaptureEditViewDelegate {
 public:
  void reloadRows() override { ++reloads; }
  void rowColorChanged(int) override { ++colorChanges; }
  void focusRow(int index) override { focused.push_back(index); }
  void updateSegmentButtons(bool previous, bool next) override {
    previousEnabled = previous;
    nextEnabled = next;
  }
  void showPickerColor(const Color& color) override { pickerColor = color; }
  void moveColorPanel(double position, double seconds) override {
    panelMoves.emplace_back(position, seconds);
  }
  void setRowListScrollEnabled(bool enabled) override { rowScrolling = enabled; }
  void showActionSheet(const std::string& title, const std::vector<SheetItem>& items,
                       std::function<void(int)> handler) override {
    sheetTitle = title;
    sheetItems = items;
    handler(answer);
  }
  void close() override { ++closes; }

  int reloads = 0, colorChanges = 0, closes = 0;
  std::vector<int> focused;
  bool previousEnabled = true, nextEnabled = true, rowScrolling = true;
  Color pickerColor;
  std::vector<std::pair<double, double>> panelMoves;
  std::string sheetTitle;
  std::vector<SheetItem> sheetItems;
  int answer = kCancel;
  static constexpr int kCancel = 5;
};

class LevelEditorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    defaults_ = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
    UserDefaults::setStandard(defaults_);
    operator_ = std::make_unique<MoodUserDefaultsOperator>(defaults_);
    files_ = MoodLevelTableFiles{library_.path(), {}};
    view_ = std::make_shared<RecordingView>();
    modelChanges_ = NotificationCenter::defaultCenter().addObserver(
        MoodModelHasChangedNotification, nullptr, [this](const Notification&) { ++modelChanged_; });
  }
  void TearDown() override {
    NotificationCenter::defaultCenter().removeObserver(modelChanges_);
    UserDefaults::setStandard(nullptr);
  }

  std::unique_ptr<MoodCaptureEditViewController> open() {
    auto controller =
        std::make_unique<MoodCaptureEditViewController>(files_, *operator_, [this] { ++watchSaves_; });
    controller->setDelegate(view_);
    controller->viewDidLoad();
    return controller;
  }
  bool userTableExists() const { return std::filesystem::exists(files_.applicationNewCaptionURL()); }

  testing::TempDir library_;
  std::shared_ptr<UserDefaults> defaults_;
  std::unique_ptr<MoodUserDefaultsOperator> operator_;
  MoodLevelTableFiles files_;
  std::shared_ptr<RecordingView> view_;
  ObserverToken modelChanges_ = 0;
  int modelChanged_ = 0;
  int watchSaves_ = 0;
};

TEST_F(LevelEditorTest, OpensOnTheShippedTableWithTheMiddleColourSelected) {
  auto editor = open();
  ASSERT_EQ(editor->rows().size(), 10u);
  const MoodLevelsPresentation shipped(files_);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(editor->rows()[i].levelIndex, i);
    EXPECT_EQ(editor->rows()[i].levelText, shipped.levels()[i].text);
    EXPECT_EQ(editor->rows()[i].levelColor, shipped.levels()[i].baseColor);
  }
  EXPECT_EQ(editor->currentEdit(), MoodCaptureEditViewController::kNoEdit);
  EXPECT_FALSE(editor->isEdit());
  EXPECT_EQ(editor->selectedColorTag(), 1);
  EXPECT_EQ(view_->pickerColor, MoodUserDefaultsOperator::defaultMiddleColor());
  // Loading selects a button but does not switch the gradient mode on.
  EXPECT_FALSE(operator_->gradientColorEnabled());
  EXPECT_FALSE(userTableExists());
}

TEST_F(LevelEditorTest, TypingMovingAndReturnKeepEveryLabel) {
  auto editor = open();
  editor->moodCaptureStartEditView(0);
  EXPECT_FALSE(view_->previousEnabled);
  EXPECT_TRUE(view_->nextEnabled);
  editor->setRowText(0, "Over the moon");
  editor->previousRow();  // disabled on the first row
  EXPECT_EQ(editor->currentEdit(), 0);
  editor->nextRow();  // what was typed in row 0 is kept on leaving it
  EXPECT_EQ(editor->currentEdit(), 1);
  EXPECT_EQ(view_->focused, std::vector<int>{1});
  EXPECT_EQ(presentationFromTableEntry(editor->levels()[0]).text, "Over the moon");
  editor->setRowText(1, "Splendid");
  editor->moodCaptureEndEditView(1);
  EXPECT_EQ(editor->currentEdit(), MoodCaptureEditViewController::kNoEdit);
  EXPECT_FALSE(editor->isEdit());
  EXPECT_EQ(presentationFromTableEntry(editor->levels()[1]).text, "Splendid");

  editor->moodCaptureStartEditView(9);
  EXPECT_TRUE(view_->previousEnabled);
  EXPECT_FALSE(view_->nextEnabled);
  editor->setRowText(9, "Dreadful");
  // Done while a row is being edited takes every row as it stands.
  editor->done();
  EXPECT_EQ(modelChanged_, 1);
  EXPECT_EQ(watchSaves_, 1);
  EXPECT_EQ(view_->closes, 1);
  const MoodLevelsPresentation saved(files_);
  EXPECT_EQ(saved.presentationForMoodLevel(10)->text, "Over the moon");
  EXPECT_EQ(saved.presentationForMoodLevel(9)->text, "Splendid");
  EXPECT_EQ(saved.presentationForMoodLevel(1)->text, "Dreadful");
}

TEST_F(LevelEditorTest, DoneWithoutChangesStillWritesTheTable) {
  auto editor = open();
  editor->done();
  EXPECT_TRUE(userTableExists());
  EXPECT_EQ(modelChanged_, 0);
  EXPECT_EQ(watchSaves_, 1);
  EXPECT_EQ(MoodLevelsPresentation(files_).levels(), MoodLevelsPresentation(MoodLevelTableFiles{}).levels());
}

TEST_F(LevelEditorTest, GradientModeSamplesTenColoursFromThree) {
  const Color red(1, 0, 0), green(0, 1, 0), blue(0, 0, 1);
  EXPECT_FALSE(operator_->setGradientColorEnabled(true));
  EXPECT_FALSE(operator_->setFromColor(red));
  EXPECT_FALSE(operator_->setMiddleColor(green));
  EXPECT_FALSE(operator_->setToColor(blue));
  auto editor = open();
  EXPECT_TRUE(editor->isEdit());
  EXPECT_EQ(view_->colorChanges, 10);
  const auto& rows = editor->rows();
  // Level 10 takes the from colour; the samples stop short of the to colour.
  EXPECT_NEAR(rows[0].levelColor.red, 1.0, 0.01);
  EXPECT_GT(rows[9].levelColor.blue, 0.9);
  EXPECT_GT(rows[9].levelColor.green, 0.0);
  for (int i = 1; i < 10; ++i) {
    EXPECT_LE(rows[i].levelColor.red, rows[i - 1].levelColor.red) << i;
    EXPECT_GE(rows[i].levelColor.blue, rows[i - 1].levelColor.blue) << i;
  }
  // Around the middle sample (y = 212 and 265) green dominates.
  EXPECT_GT(rows[4].levelColor.green, 0.8);
  EXPECT_GT(rows[5].levelColor.green, 0.8);

  editor->done();
  EXPECT_EQ(modelChanged_, 1);
  const MoodLevelsPresentation saved(files_);
  for (int i = 0; i < 10; ++i) {
    const Color& stored = saved.levels()[i].baseColor;
    EXPECT_NEAR(stored.red, rows[i].levelColor.red, 1e-9);
    EXPECT_NEAR(stored.green, rows[i].levelColor.green, 1e-9);
    EXPECT_NEAR(stored.blue, rows[i].levelColor.blue, 1e-9);
  }
  // The colours are written as reals, as edited colours are.
  const Value table = std::get<Value>(readPropertyListFile(files_.applicationNewCaptionURL()));
  EXPECT_EQ((*table.asArray())[4]["color1"].asArray()->at(1).type(), Value::Type::kReal);
}

TEST_F(LevelEditorTest, ColourPanelTurnsTheModeOnOnlyOnceInitialised) {
  auto editor = open();
  ASSERT_FALSE(operator_->gradientColorEnabled());
  const Color violet(0.5, 0, 1);
  editor->colorPickerDidChangeSelection(violet);
  EXPECT_TRUE(operator_->gradientColorEnabled());
  EXPECT_EQ(operator_->middleColor(), violet);
  EXPECT_EQ(editor->buttonColors()[1], violet);
  EXPECT_TRUE(editor->isEdit());

  editor->selectColor(0);
  EXPECT_EQ(editor->selectedColorTag(), 0);
  EXPECT_EQ(view_->pickerColor, MoodUserDefaultsOperator::defaultFromColor());
  const Color black(0, 0, 0);
  editor->colorPickerDidChangeSelection(black);
  EXPECT_EQ(operator_->fromColor(), black);
  EXPECT_NEAR(editor->rows()[0].levelColor.red, 0.0, 0.01);
  editor->selectColor(7);  // not a button
  EXPECT_EQ(editor->selectedColorTag(), 0);
}

TEST_F(LevelEditorTest, GradientSwitchStartsTheModeAndOffKeepsTheSampledColours) {
  auto editor = open();
  const Color shippedTop = editor->rows()[0].levelColor;
  editor->selectColor(0);
  editor->colorPickerDidChangeSelection(Color(0, 0, 1));
  editor->setGradientMode(false);
  EXPECT_FALSE(editor->gradientMode());
  EXPECT_FALSE(operator_->gradientColorEnabled());
  const Color sampledTop = editor->rows()[0].levelColor;
  ASSERT_NE(sampledTop, shippedTop);
  // Another colour while the mode is off starts it again and recomputes.
  editor->colorPickerDidChangeSelection(Color(0, 0.5, 0));
  EXPECT_TRUE(editor->gradientMode());
  EXPECT_GT(editor->rows()[0].levelColor.green, 0.45);
  editor->setGradientMode(false);
  const Color keptTop = editor->rows()[0].levelColor;
  editor->done();
  EXPECT_EQ(modelChanged_, 1);

  // The mode stays off on the next open, and the rows show what was kept.
  auto again = open();
  EXPECT_FALSE(again->gradientMode());
  EXPECT_NEAR(again->rows()[0].levelColor.green, keptTop.green, 1e-9);
  EXPECT_FALSE(again->isEdit());
  // Switching it on is choosing the selected (middle) button.
  again->setGradientMode(true);
  EXPECT_TRUE(operator_->gradientColorEnabled());
  EXPECT_EQ(again->selectedColorTag(), 1);
  EXPECT_TRUE(again->isEdit());
  again->done();
  EXPECT_TRUE(open()->gradientMode());
}

TEST_F(LevelEditorTest, ModeOffOnOpenResetsThePanelColours) {
  EXPECT_FALSE(operator_->setFromColor(Color(0, 0, 0)));
  auto editor = open();
  EXPECT_EQ(operator_->fromColor(), MoodUserDefaultsOperator::defaultFromColor());
  EXPECT_FALSE(editor->isEdit());
}

TEST_F(LevelEditorTest, ResetAsksAndThenRestoresTheShippedTableAtOnce) {
  {
    auto editor = open();
    editor->moodCaptureStartEditView(3);
    editor->setRowText(3, "Mine");
    editor->done();
  }
  ASSERT_TRUE(userTableExists());
  EXPECT_FALSE(operator_->setGradientColorEnabled(true));
  auto editor = open();
  modelChanged_ = 0;

  view_->answer = MoodCaptureEditViewController::kCancelResult;
  editor->reset();
  EXPECT_EQ(view_->sheetTitle, "All mood labels and colors will be reset to default values. Continue?");
  ASSERT_EQ(view_->sheetItems.size(), 2u);
  EXPECT_EQ(view_->sheetItems[0].title, "Reset");
  EXPECT_EQ(view_->sheetItems[0].result, 4);
  EXPECT_EQ(view_->sheetItems[1].title, "Cancel");
  EXPECT_EQ(view_->sheetItems[1].result, 5);
  EXPECT_TRUE(userTableExists());
  EXPECT_EQ(modelChanged_, 0);

  view_->answer = MoodCaptureEditViewController::kResetResult;
  const int reloadsBefore = view_->reloads;
  editor->reset();
  EXPECT_FALSE(userTableExists());
  EXPECT_FALSE(operator_->gradientColorEnabled());
  EXPECT_EQ(modelChanged_, 1);
  EXPECT_EQ(view_->reloads, reloadsBefore + 1);
  EXPECT_EQ(editor->rows()[3].levelText, MoodLevelsPresentation(MoodLevelTableFiles{}).levels()[3].text);
  EXPECT_EQ(view_->closes, 1);  // the first editor's done only
}

TEST_F(LevelEditorTest, AFailedSaveKeepsTheOldTable) {
  {
    auto editor = open();
    editor->moodCaptureStartEditView(0);
    editor->setRowText(0, "Kept");
    editor->done();
  }
  // A folder where the file should go makes the atomic write fail.
  const MoodLevelTableFiles blocked{library_ / "blocked", {}};
  std::filesystem::create_directories(library_ / "blocked" / "mood.plist" / "inside");
  MoodCaptureEditViewController editor(blocked, *operator_);
  editor.setDelegate(view_);
  editor.viewDidLoad();
  editor.done();
  EXPECT_TRUE(std::filesystem::is_directory(library_ / "blocked" / "mood.plist" / "inside"));
  EXPECT_EQ(MoodLevelsPresentation(files_).presentationForMoodLevel(10)->text, "Kept");
}

TEST_F(LevelEditorTest, ColourPanelHintAndDrag) {
  auto editor = open();
  editor->setColorPanelRange(300, 500);
  EXPECT_FALSE(editor->isColorPanelOpen());
  editor->viewDidAppear();  // first time: the panel opens by itself
  ASSERT_EQ(view_->panelMoves.size(), 1u);
  EXPECT_EQ(view_->panelMoves[0], (std::pair<double, double>{300, 0.4}));
  EXPECT_TRUE(editor->isColorPanelOpen());
  EXPECT_FALSE(view_->rowScrolling);
  EXPECT_TRUE(defaults_->boolForKey(kIsFirstOpenCaptureEdit));
  editor->viewDidAppear();
  EXPECT_EQ(view_->panelMoves.size(), 1u);

  editor->panBegan(80);  // too far from the handle
  editor->panMoved(150);
  editor->panEnded();
  EXPECT_EQ(editor->colorPanelPosition(), 300);

  editor->panBegan(20);
  editor->panMoved(120);  // past the middle: snaps closed
  editor->panEnded();
  EXPECT_EQ(editor->colorPanelPosition(), 500);
  EXPECT_FALSE(editor->isColorPanelOpen());
  EXPECT_TRUE(view_->rowScrolling);
  EXPECT_EQ(view_->panelMoves.back(), (std::pair<double, double>{500, 0.4}));

  editor->panBegan(-10);
  editor->panMoved(-999);  // clamped to the open end
  EXPECT_EQ(editor->colorPanelPosition(), 300);
  editor->panEnded();
  EXPECT_TRUE(editor->isColorPanelOpen());
}

}  // namespace
}  // namespace lumeo
