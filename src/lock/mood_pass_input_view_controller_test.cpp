// The entry screen: when each stage checks, what a wrong code costs, the
// recovery alert, the refusals of a change, and the gate's answers.
#include "lock/mood_pass_input_view_controller.h"

#include <gtest/gtest.h>

#include "lock/lock_fixture.h"

namespace lumeo {
namespace {

using testing::LockTest;

constexpr char kMismatch[] = "Pass code didn't match. Try again.";

TEST(MoodPassInputViewTest, AFifthDigitIsDroppedWithoutAnEventAndDeleteAlwaysTells) {
  MoodPassInputView view;
  int events = 0;
  view.setValueChangedHandler([&] { ++events; });
  for (const char* digit : {"1", "2", "3", "4"}) view.insertText(digit);
  EXPECT_EQ(view.passCode(), "1234");
  EXPECT_EQ(events, 4);
  view.insertText("5");
  EXPECT_EQ(view.passCode(), "1234");
  EXPECT_EQ(events, 4);
  view.deleteBackward();
  EXPECT_EQ(view.passCode(), "123");
  EXPECT_EQ(events, 5);
  EXPECT_TRUE(view.hasText());
  EXPECT_EQ(MoodPassInputView::symbolPositions(2)[2], 148.5);
  EXPECT_EQ(MoodPassInputView::symbolPositions(1)[0], 25);
}

TEST_F(LockTest, EachStageChecksOnTheFourthDigitNotTheThird) {
  ready();
  setPasscode("1234");
  auto screen = std::make_shared<MoodPassInputViewController>(facade_);
  screen->changeCodeMode = true;
  int done = 0;
  screen->doneBlock = [&] { ++done; };
  screen->viewDidLoad();
  screen->viewWillAppear(false);
  ASSERT_EQ(screen->changeCodeStage(), 0);

  type(*screen, "123");
  EXPECT_EQ(screen->changeCodeStage(), 0);
  type(*screen, "4");
  EXPECT_EQ(screen->changeCodeStage(), 1);
  EXPECT_FALSE(screen->input().hasText()) << "a new stage starts empty";

  type(*screen, "567");
  EXPECT_EQ(screen->changeCodeStage(), 1);
  type(*screen, "8");
  EXPECT_EQ(screen->changeCodeStage(), 2);

  type(*screen, "567");
  EXPECT_EQ(done, 0);
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "1234");
  type(*screen, "8");
  EXPECT_EQ(done, 1);
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "5678");
  EXPECT_TRUE(MoodPasscodeStorage::passCodeUnlocked());
}

TEST_F(LockTest, AFirstPasscodeStartsAtTheNewCode) {
  ready();
  auto screen = std::make_shared<MoodPassInputViewController>(facade_);
  screen->changeCodeMode = true;
  screen->viewWillAppear(false);
  EXPECT_EQ(screen->changeCodeStage(), 1);
  type(*screen, "24682468");
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "2468");
  EXPECT_EQ(screen->title(), "Unlock");
}

TEST_F(LockTest, TheSameCodeIsRefusedAtTheNewStageAndAMismatchGoesBack) {
  ready();
  setPasscode("1234");
  auto screen = std::make_shared<MoodPassInputViewController>(facade_);
  screen->changeCodeMode = true;
  screen->viewWillAppear(false);
  type(*screen, "1234");
  ASSERT_EQ(screen->changeCodeStage(), 1);
  type(*screen, "1234");
  EXPECT_EQ(screen->changeCodeStage(), 1);
  EXPECT_FALSE(screen->input().hasText()) << "the shake wipes the digits";
  EXPECT_EQ(screen->stageLabel(1), "Enter new passcode");
  EXPECT_TRUE(presenter_->alerts.empty()) << "no message but the shake and the label";

  type(*screen, "1111");
  ASSERT_EQ(screen->changeCodeStage(), 2);
  type(*screen, "2222");
  EXPECT_EQ(screen->changeCodeStage(), 1);
  EXPECT_EQ(screen->stageLabel(1), kMismatch);
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "1234");
}

TEST_F(LockTest, TheShakeRunsSixSwingsOfShrinkingMagnitudeThenWipes) {
  struct View : MoodPassInputScreenView {
    std::vector<double> moves;
    std::vector<std::function<void()>> pending;
    void translateInput(double x, double, std::function<void()> done) override {
      moves.push_back(x);
      pending.push_back(std::move(done));
    }
  };
  ready();
  setPasscode("1234");
  auto view = std::make_shared<View>();
  auto screen = std::make_shared<MoodPassInputViewController>(facade_);
  screen->setScreenView(view);
  screen->viewWillAppear(false);
  type(*screen, "9999");
  while (!view->pending.empty()) {
    EXPECT_TRUE(screen->input().hasText()) << "the digits stay until the shake ends";
    auto next = std::move(view->pending.back());
    view->pending.pop_back();
    next();
  }
  ASSERT_EQ(view->moves.size(), 7u);
  EXPECT_DOUBLE_EQ(view->moves[0], 30);
  EXPECT_DOUBLE_EQ(view->moves[1], -24);
  EXPECT_DOUBLE_EQ(view->moves[6], 0);
  EXPECT_FALSE(screen->input().hasText());
}

TEST_F(LockTest, EveryFifthWrongCodeBringsTheRecoveryAlertWhenAKeyExists) {
  ready();
  setPasscode("1234", "blue whale");
  auto screen = std::make_shared<MoodPassInputViewController>(facade_);
  screen->viewWillAppear(false);
  for (int i = 0; i < 4; ++i) type(*screen, "0000");
  EXPECT_EQ(screen->tryOldCount, 4);
  EXPECT_TRUE(alerts_->shown.empty());
  EXPECT_EQ(screen->stageLabel(0), kMismatch);

  alerts_->answers.push_back({1, "blue whale"});
  type(*screen, "0000");
  ASSERT_EQ(alerts_->shown.size(), 1u);
  EXPECT_EQ(alerts_->shown[0].request.title, "Password recovery key");
  EXPECT_EQ(alerts_->shown[0].request.placeholder, "Password recovery key");
  EXPECT_EQ(screen->tryOldCount, 0);
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(presenter_->alerts[0].request.title, "Pass Code");
  EXPECT_EQ(presenter_->alerts[0].request.message, "1234") << "the right key shows the code itself";
  EXPECT_FALSE(MoodPasscodeStorage::passCodeUnlocked()) << "the lock does not open by itself";

  alerts_->answers.push_back({1, "Blue whale"});
  for (int i = 0; i < 5; ++i) type(*screen, "0000");
  ASSERT_EQ(presenter_->alerts.size(), 2u);
  EXPECT_EQ(presenter_->alerts[1].request.message, "You entered the wrong password recovery key");

  alerts_->answers.push_back({0, "blue whale"});  // Cancel does nothing
  for (int i = 0; i < 5; ++i) type(*screen, "0000");
  EXPECT_EQ(alerts_->shown.size(), 3u);
  EXPECT_EQ(presenter_->alerts.size(), 2u);
}

TEST_F(LockTest, WithoutAKeyTheTwentiethWrongCodeOnlyShakes) {
  ready();
  setPasscode("1234");
  auto screen = std::make_shared<MoodPassInputViewController>(facade_);
  int done = 0;
  screen->doneBlock = [&] { ++done; };
  screen->viewWillAppear(false);
  for (int i = 0; i < 20; ++i) type(*screen, "4321");
  EXPECT_EQ(screen->tryOldCount, 20);
  EXPECT_TRUE(alerts_->shown.empty());
  EXPECT_TRUE(presenter_->alerts.empty());
  type(*screen, "1234");
  EXPECT_EQ(done, 1) << "no lockout: the right code still opens";
}

TEST_F(LockTest, AKeyringThatFailsDuringAChangeKeepsTheOldCodeAndSaysWhy) {
  ready();
  setPasscode("1234");
  auto screen = std::make_shared<MoodPassInputViewController>(facade_);
  screen->changeCodeMode = true;
  int done = 0;
  screen->doneBlock = [&] { ++done; };
  screen->viewWillAppear(false);
  type(*screen, "12345678");
  keychain_->setLocked(true);
  type(*screen, "5678");
  EXPECT_EQ(done, 0);
  ASSERT_TRUE(screen->lastStoreError());
  EXPECT_EQ(screen->lastStoreError()->code, kSecretInteractionNotAllowed);
  EXPECT_EQ(screen->changeCodeStage(), 1);
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_EQ(presenter_->alerts[0].request.message, "the keyring is locked");
  keychain_->setLocked(false);
  EXPECT_EQ(MoodPasscodeStorage::passCode(), "1234");
}

TEST_F(LockTest, TheGateAnswersAtOnceWithoutAPasscodeAndAfterTheRightCodeOtherwise) {
  MoodAppDelegate& app = ready();
  Screen& from = *app.tabBarController();
  std::vector<std::pair<bool, bool>> answers;
  int dismissed = 0;
  auto ask = [&] {
    MoodPassInputViewController::requestPassCodeFromViewController(
        from, true, [&](bool passed, bool withoutAsking) { answers.emplace_back(passed, withoutAsking); },
        [&] { ++dismissed; });
  };
  ask();
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0], std::make_pair(true, true));
  EXPECT_FALSE(from.presentedViewController());

  setPasscode("1234");
  ask();
  EXPECT_EQ(answers.size(), 1u);
  auto entry = entryOver(from);
  ASSERT_TRUE(entry);
  entry->cancel();
  EXPECT_EQ(answers.back(), std::make_pair(false, false));
  EXPECT_FALSE(from.presentedViewController());
  EXPECT_EQ(dismissed, 1);

  ask();
  entry = entryOver(from);
  ASSERT_TRUE(entry);
  type(*entry, "1234");
  EXPECT_EQ(answers.back(), std::make_pair(true, false));
  EXPECT_TRUE(app.passCodeUnlocked);
  EXPECT_TRUE(from.presentedViewController()) << "dismissed half a second later";
  runMainLoop(1);
  EXPECT_FALSE(from.presentedViewController());
  EXPECT_EQ(dismissed, 2);

  ask();
  EXPECT_EQ(answers.back(), std::make_pair(true, true)) << "unlocked until the next background entry";
}

TEST_F(LockTest, AnUnreadableKeychainNeverOpensALockedJournal) {
  MoodAppDelegate& app = ready();
  setPasscode("1234");
  keychain_->setAvailable(false);
  std::optional<std::pair<bool, bool>> answer;
  MoodPassInputViewController::requestPassCodeFromViewController(
      *app.tabBarController(), true,
      [&](bool passed, bool without) {
        answer = {passed, without};
      },
      nullptr);
  ASSERT_TRUE(answer);
  EXPECT_EQ(*answer, std::make_pair(false, false));
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  EXPECT_TRUE(gate_->hasPasscode());
}

}  // namespace
}  // namespace lumeo
