// The capture flow on a real SQLite journal: a tile touch saves the record
// and opens the editor; done applies, cancel deletes a new record or writes
// an existing record's old values back (its date change stays); an
// unfinished record comes back after a restart; the text rules (unit after
// "#name:", completion with suggestions, templates) and the tag panel.
#include "capture/mood_record_edit_view_controller.h"

#include <gtest/gtest.h>

#include "capture/emotions_list.h"
#include "capture/mood_capture_view_controller.h"
#include "capture/record_capture.h"
#include "objectgraph/managed_object_context.h"
#include "platform/color.h"
#include "platform/localization.h"
#include "platform/property_list.h"
#include "platform/user_defaults.h"
#include "shell/shell_test_support.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"
#include "store/settings_keys.h"
#include "testing/scoped_environment.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

class CaptureFlowTest : public ::testing::Test {
 protected:
  CaptureFlowTest()
      : defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())),
        images_(std::make_shared<ImageStore>(library())) {
    previousDefaults_ = UserDefaults::standard();
    UserDefaults::setStandard(defaults_);
    openStore();
    std::filesystem::create_directories(library());
    EXPECT_FALSE(writePropertyListFile(
        emotionsListURL(library()), Value(Value::Array{Value(std::string("calm")), Value(std::string("sad")),
                                                       Value(std::string("Sleepy"))})));
  }
  ~CaptureFlowTest() override { UserDefaults::setStandard(previousDefaults_); }

  std::filesystem::path library() const { return dir_ / "Library"; }
  void openStore() {
    capture_.reset();
    store_ =
        std::make_unique<JournalStore>(JournalStore::Locations{library(), dir_ / "Documents"}, defaults_);
  }
  RecordStateServices services() {
    return {store_.get(), images_, [this](long d) { counter_ += d; }};
  }
  std::shared_ptr<MoodCaptureViewController> makeCapture() {
    capture_ = std::make_shared<MoodCaptureViewController>(services(), library(), defaults_);
    MoodCaptureViewController::FinishHooks hooks;
    hooks.userDidSignificantEvent = [this](bool significant) { significantEvents_.push_back(significant); };
    hooks.selectHistoryRecord = [this](const std::string& id, long index) {
      finished_ = id;
      selectedIndex_ = index;
    };
    hooks.mayShowHistory = [this] { return !locked_; };
    hooks.showHistoryTab = [this] { ++historyShown_; };
    capture_->setFinishHooks(hooks);
    return capture_;
  }
  std::shared_ptr<MoodRecord> existingRecord(const std::string& comment, long level = 6) {
    auto record = store_->insertRecordWithDescription();
    record->setMoodLevel(level);
    record->setDate(Date::fromTimeIntervalSince1970(1700000000));
    MoodRecordState state(*record, images_.get());
    state.comment = comment;
    state.photo = Image::filled(30, 20, Color::fromRGB255(250, 0, 0));
    state.thumb = Image::filled(10, 10, Color::fromRGB255(250, 0, 0));
    EXPECT_FALSE(state.applyToRecord(record, services()));
    return record;
  }
  // Types `typed` at the end of the editor's text, as a keyboard would.
  static void type(MoodRecordEditViewController& editor, const std::string& typed) {
    editor.shouldChangeTextInRange({editor.cursor(), 0}, typed);
    std::string text = editor.text();
    text.insert(editor.cursor(), typed);
    editor.textViewDidChange(text, editor.cursor() + typed.size());
  }
  static void backspace(MoodRecordEditViewController& editor) {
    editor.shouldChangeTextInRange({editor.cursor() - 1, 1}, "");
    std::string text = editor.text();
    text.erase(editor.cursor() - 1, 1);
    editor.textViewDidChange(text, editor.cursor() - 1);
  }
  static std::vector<std::string> names(const std::vector<std::shared_ptr<MoodTag>>& tags) {
    std::vector<std::string> out;
    for (const auto& t : tags) out.push_back(t->tagName());
    return out;
  }

  testing::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<UserDefaults> previousDefaults_;
  std::shared_ptr<ImageStore> images_;
  std::unique_ptr<JournalStore> store_;
  std::shared_ptr<MoodCaptureViewController> capture_;
  long counter_ = 0;
  std::string finished_;
  long selectedIndex_ = 0;
  std::vector<bool> significantEvents_;
  bool locked_ = false;
  int historyShown_ = 0;
};

// Records what the editor tells its view about the tag panel and pictures.
class PanelView : public MoodRecordEditView {
 public:
  std::vector<std::string> units;
  std::vector<std::string> unitField;
  std::vector<PickerSource> pickers;
  void showTagUnitButtons(const std::vector<std::string>& u) override { units = u; }
  void setTagUnitField(const std::string& unit) override { unitField.push_back(unit); }
  void showImagePicker(PickerSource source) override { pickers.push_back(source); }
};

TEST_F(CaptureFlowTest, TileTouchSavesAtOnceAndDoneAppliesTheText) {
  auto capture = makeCapture();
  // Tiles follow the level table after every save.
  EXPECT_TRUE(capture->tiles().empty());
  NotificationCenter::defaultCenter().post(MoodModelHasChangedNotification);
  ASSERT_EQ(capture->tiles().size(), 10u);
  EXPECT_EQ(capture->tiles().front().level, 10);
  EXPECT_EQ(capture->tiles().back().level, 1);
  EXPECT_EQ(MoodCaptureViewController::indexForPosition(0, 50), 0);
  EXPECT_EQ(MoodCaptureViewController::indexForPosition(499, 50), 9);
  EXPECT_EQ(MoodCaptureViewController::indexForPosition(500, 50), -1);
  capture->selectMenu(-1);
  EXPECT_FALSE(store_->hasAnyRecord());

  capture->selectMenu(0);
  auto editor = capture->editor();
  ASSERT_TRUE(editor);
  auto record = editor->recordInEdit();
  EXPECT_EQ(record->moodLevel(), 10);
  EXPECT_FALSE(record->objectID().isTemporaryID());  // saved before any typing
  EXPECT_EQ(defaults_->stringForKey(kMoodRecordInCreation), record->objectID().URIRepresentation());
  EXPECT_FALSE(editor->editing());
  EXPECT_FALSE(editor->initialState()->existing);

  editor->viewDidLoad();
  editor->viewWillAppear();
  type(*editor, "Good day #walk:3km");
  EXPECT_FALSE(editor->currentState()->wasEdited);  // a new record's typing is no edit
  editor->done();
  EXPECT_EQ(record->moodDescription()->comment(), "Good day #walk:3km");
  ASSERT_EQ(record->moodTags().size(), 1u);
  EXPECT_EQ(store_->tagNamed("walk")->tagUnit(), "km");
  EXPECT_EQ(finished_, *record->uniqueIdentifier());
  EXPECT_EQ(selectedIndex_, -2);
  EXPECT_EQ(significantEvents_, std::vector<bool>{true});
  EXPECT_EQ(historyShown_, 1);
  EXPECT_FALSE(defaults_->stringForKey(kMoodRecordInCreation));
  EXPECT_EQ(counter_, 1);

  // Behind a locked passcode the record is still handed over, but the tab
  // stays on capture.
  locked_ = true;
  capture->selectMenu(3);
  auto untouched = capture->editor()->recordInEdit();
  capture->editor()->viewDidLoad();
  capture->editor()->done();
  // Nothing typed and no template: the text view's empty text is stored.
  EXPECT_EQ(untouched->moodDescription()->comment(), "");
  EXPECT_EQ(significantEvents_.size(), 2u);
  EXPECT_EQ(historyShown_, 1);
  EXPECT_FALSE(capture->editor());
}

TEST_F(CaptureFlowTest, CancelOfANewRecordDeletesItAlsoAfterARestart) {
  makeCapture()->selectMenu(9);
  auto uri = capture_->editor()->recordInEdit()->objectID().URIRepresentation();
  EXPECT_EQ(capture_->editor()->recordInEdit()->moodLevel(), 1);
  type(*capture_->editor(), "half written");
  EXPECT_FALSE(capture_->editor()->saveChanges());  // the background save

  // The process ends with the editor open; the next launch resumes it,
  // through the hooks the application object calls.
  openStore();
  auto capture = makeCapture();
  std::shared_ptr<CaptureHooks> hooks = capture;
  hooks->checkForRecordBeingCreated();
  auto editor = capture->editor();
  ASSERT_TRUE(editor);
  EXPECT_EQ(editor->recordInEdit()->objectID().URIRepresentation(), uri);
  editor->viewDidLoad();
  EXPECT_EQ(editor->text(), "half written");
  editor->confirmCancel();
  EXPECT_FALSE(store_->hasAnyRecord());
  EXPECT_FALSE(defaults_->stringForKey(kMoodRecordInCreation));

  // A key that names no record any more does nothing and stays.
  EXPECT_FALSE(defaults_->setString(kMoodRecordInCreation, uri));
  capture->checkForRecordBeingCreated();
  EXPECT_FALSE(capture->editor());
  EXPECT_TRUE(defaults_->stringForKey(kMoodRecordInCreation));
}

TEST_F(CaptureFlowTest, CancelOfAnExistingRecordRestoresValuesButKeepsTheNewDate) {
  auto record = existingRecord("Old #work", 6);
  auto oldPhotoName = record->moodDescription()->photoName();
  auto editor = MoodRecordEditViewController::forExistingRecord(record, services(), library());
  EXPECT_TRUE(editor->editing());
  editor->viewDidLoad();
  EXPECT_EQ(editor->text(), "Old #work");
  type(*editor, " and #gym");
  EXPECT_TRUE(editor->currentState()->wasEdited);
  editor->imagePicked(Image::filled(1280, 860, Color::fromRGB255(0, 0, 250)));  // saves at once
  EXPECT_EQ(record->moodTags().size(), 2u);
  EXPECT_EQ(editor->currentState()->photo->width(), 640);
  EXPECT_EQ(editor->currentState()->thumb->width(), 264);
  editor->dateButtonClick();
  ASSERT_TRUE(editor->isTimeEditing());
  Date picked = Date::fromTimeIntervalSince1970(1690000000);
  editor->timePickerDone(picked);

  // Touching the text with the picker open takes the wheel's date, unless
  // the picker was cancelled.
  Date wheel = Date::fromTimeIntervalSince1970(1680000000);
  editor->dateButtonClick();
  editor->timePickerValueChanged(wheel);
  editor->timePickerCancel();
  editor->setSelection(0, 0);
  EXPECT_EQ(record->date(), picked);
  editor->dateButtonClick();
  editor->timePickerValueChanged(wheel);
  editor->setSelection(0, 0);
  EXPECT_FALSE(editor->isTimeEditing());
  EXPECT_EQ(record->date(), wheel);
  editor->dateButtonClick();
  editor->timePickerDone(picked);

  editor->confirmCancel();
  EXPECT_EQ(record->moodDescription()->comment(), "Old #work");
  EXPECT_EQ(record->moodTags().size(), 1u);
  EXPECT_EQ(record->date(), picked);
  // The old photo's pixels come back as a new file.
  auto photoName = record->moodDescription()->photoName();
  ASSERT_TRUE(photoName);
  EXPECT_NE(photoName, oldPhotoName);
  auto photo = images_->imageForName(photoName);
  ASSERT_TRUE(photo);
  EXPECT_EQ(photo->width(), 30);
  EXPECT_FALSE(editor->recordInEdit());
  EXPECT_FALSE(editor->saveChanges());  // the background save after a cancel does nothing
  EXPECT_EQ(record->moodDescription()->comment(), "Old #work");
}

// The record under an open editor went (another program deleted it); a new
// record takes its place. Done writes the working copy into it; Cancel
// deletes it and leaves the journal as it was.
TEST_F(CaptureFlowTest, AReplacementRecordTakesTheWorkingCopyOrGoesOnCancel) {
  for (bool done : {true, false}) {
    SCOPED_TRACE(done ? "done" : "cancel");
    auto record = existingRecord("Old #work", 6);
    auto editor = MoodRecordEditViewController::forExistingRecord(record, services(), library());
    editor->viewDidLoad();
    type(*editor, " and #gym");
    const auto recordsBefore = store_->allRecords().size();
    ASSERT_FALSE(store_->deleteRecord(record));
    store_->saveContext();

    auto replacement = store_->insertRecordWithDescription();
    replacement->setDate(Date::fromTimeIntervalSince1970(1700000000));
    editor->adoptReplacementRecord(replacement);
    EXPECT_EQ(editor->recordInEdit(), replacement);
    EXPECT_FALSE(editor->editing());
    EXPECT_EQ(editor->text(), "Old #work and #gym");
    if (done) {
      editor->done();
      ASSERT_FALSE(store_->lastSaveError());
      EXPECT_EQ(store_->allRecords().size(), recordsBefore);
      EXPECT_EQ(replacement->moodLevel(), 6);
      EXPECT_EQ(replacement->moodDescription()->comment(), "Old #work and #gym");
      EXPECT_EQ(replacement->moodTags().size(), 2u);
      auto photo = images_->imageForName(replacement->moodDescription()->photoName());
      ASSERT_TRUE(photo);
      EXPECT_EQ(photo->width(), 30);
    } else {
      editor->confirmCancel();
      ASSERT_FALSE(store_->lastSaveError());
      EXPECT_EQ(store_->allRecords().size(), recordsBefore - 1);
      auto all = store_->allRecords();
      EXPECT_EQ(std::count(all.begin(), all.end(), replacement), 0);
    }
  }
}

TEST_F(CaptureFlowTest, TemplateFillsOnlyNewRecordsAndTheReminderTemplateIsUsedUp) {
  MoodUserDefaultsOperator& defaults = MoodUserDefaultsOperator::sharedOperator();
  EXPECT_FALSE(defaults.setTemplateText(std::string("General #t")));
  EXPECT_FALSE(defaults.setReminderTemplateText(std::string("From reminder")));
  makeCapture()->selectMenu(4);
  auto editor = capture_->editor();
  editor->viewDidLoad();
  EXPECT_EQ(editor->text(), "From reminder");
  EXPECT_EQ(editor->currentState()->comment, "From reminder");
  EXPECT_EQ(defaults.reminderTemplateText().value_or(""), "");

  makeCapture()->selectMenu(4);
  capture_->editor()->viewDidLoad();
  EXPECT_EQ(capture_->editor()->text(), "General #t");

  // An older record with an empty comment keeps it empty.
  auto record = existingRecord("");
  auto existing = MoodRecordEditViewController::forExistingRecord(record, services(), library());
  existing->viewDidLoad();
  EXPECT_EQ(existing->text(), "");
}

// A record captured in one step (the command line's `lumeo add`) starts from
// the template as the editor's new records do, unless it is given a
// comment; an empty comment keeps it empty.
TEST_F(CaptureFlowTest, OneStepCaptureStartsFromTheTemplateUnlessGivenAComment) {
  MoodUserDefaultsOperator& defaults = MoodUserDefaultsOperator::sharedOperator();
  EXPECT_FALSE(defaults.setTemplateText(std::string("Slept #sleep:7h")));
  EXPECT_FALSE(defaults.setReminderTemplateText(std::string("After the reminder #evening")));
  auto capture = [&](std::optional<std::string> comment) {
    NewRecordInput input;
    input.level = 7;
    input.date = Date::fromTimeIntervalSince1970(1700000000);
    input.comment = std::move(comment);
    auto made = captureNewRecord(services(), defaults, input);
    EXPECT_TRUE(std::holds_alternative<std::shared_ptr<MoodRecord>>(made));
    return std::get<std::shared_ptr<MoodRecord>>(made);
  };
  auto fromReminder = capture(std::nullopt);
  EXPECT_EQ(fromReminder->moodDescription()->comment(), "After the reminder #evening");
  EXPECT_EQ(defaults.reminderTemplateText().value_or(""), "") << "a reminder's template serves one record";
  auto fromTemplate = capture(std::nullopt);
  EXPECT_EQ(fromTemplate->moodDescription()->comment(), "Slept #sleep:7h");
  ASSERT_EQ(fromTemplate->moodTags().size(), 1u) << "the template's tags become links";
  EXPECT_EQ(fromTemplate->moodTags()[0]->tagName(), "sleep");
  EXPECT_EQ(capture(std::string("Own words"))->moodDescription()->comment(), "Own words");
  EXPECT_FALSE(capture(std::string(""))->moodDescription()->comment());
  EXPECT_EQ(counter_, 4) << "every new record counts for the backup reminder";

  // Everything was saved: a fresh store sees all four.
  openStore();
  EXPECT_EQ(store_->allRecords().size(), 4u);

  EXPECT_FALSE(defaults.setTemplateText(std::nullopt));
  EXPECT_FALSE(capture(std::nullopt)->moodDescription()->comment()) << "no template, no comment";
}

TEST_F(CaptureFlowTest, UnitIsOfferedAfterTheColonButNotWhenDeletingBackToIt) {
  existingRecord("#sleep:8h");
  makeCapture()->selectMenu(2);
  auto editor = capture_->editor();
  editor->viewDidLoad();
  type(*editor, "#sleep:");
  EXPECT_EQ(editor->text(), "#sleep:h");
  EXPECT_EQ(editor->cursor(), 7u);  // in front of the unit
  type(*editor, "7");
  EXPECT_EQ(editor->text(), "#sleep:7h");
  backspace(*editor);
  EXPECT_EQ(editor->text(), "#sleep:h");
  // A suggestion has no row and so no unit.
  editor->setSelection(editor->text().size(), 0);
  type(*editor, " #calm:");
  EXPECT_EQ(editor->text(), "#sleep:h #calm:");
}

TEST_F(CaptureFlowTest, CompletionOffersTagsThenSuggestionsAndTakesTheRest) {
  existingRecord("#sleep:8h #sport");
  existingRecord("#sleep:7h #Sad");
  makeCapture()->selectMenu(3);
  auto editor = capture_->editor();
  editor->viewDidLoad();
  editor->viewWillAppear();
  type(*editor, "Went #s");
  // Most used first, then by name; "sad" is a tag already and not doubled.
  EXPECT_EQ(names(editor->completionOptions()),
            (std::vector<std::string>{"sleep", "Sad", "sport", "Sleepy"}));
  type(*editor, "LEEPY");
  EXPECT_TRUE(editor->completionOptions().empty());  // the only match is the word itself
  backspace(*editor);
  EXPECT_EQ(names(editor->completionOptions()), (std::vector<std::string>{"sleep", "Sleepy"}));
  editor->didSelectCompletionRow(1);
  EXPECT_EQ(editor->text(), "Went #sLEEPy");
  EXPECT_TRUE(editor->completionOptions().empty());

  editor->textViewDidChange("Went #sport #", 13);
  // A bare # offers all, real tags first; the ones in the text are marked.
  EXPECT_EQ(names(editor->completionOptions()),
            (std::vector<std::string>{"sleep", "Sad", "sport", "Sleepy", "calm"}));
  EXPECT_TRUE(editor->isCompletionRowUsed(2));
  EXPECT_FALSE(editor->isCompletionRowUsed(0));
  // A suggestion that is removed before saving leaves no row.
  editor->textViewDidChange("Went", 4);
  editor->done();
  EXPECT_FALSE(store_->tagNamed("Sleepy"));
}

TEST_F(CaptureFlowTest, TagPanelRenamesAndDeletesAcrossComments) {
  auto a = existingRecord("#run:5km then #run. #running");
  auto b = existingRecord("#Run");
  makeCapture()->selectMenu(5);
  auto editor = capture_->editor();
  editor->viewDidLoad();
  editor->viewWillAppear();
  auto run = store_->tagNamed("run");
  ASSERT_TRUE(run);
  editor->tagEdit(run);
  EXPECT_TRUE(editor->isTagEditing());
  editor->tagEditDone("jog", "km");
  EXPECT_FALSE(editor->isTagEditing());
  // The tag's name is "Run" now (latest spelling); the rename matches it
  // with case, so "#run" in the first comment stays.
  EXPECT_EQ(b->moodDescription()->comment(), "#jog");
  EXPECT_EQ(a->moodDescription()->comment(), "#run:5km then #run. #running");
  EXPECT_EQ(store_->tagNamed("jog")->tagUnit(), "km");

  auto running = store_->tagNamed("running");
  editor->removeMoodTag(running);
  EXPECT_FALSE(store_->tagNamed("running"));
  EXPECT_EQ(a->moodDescription()->comment(), "#run:5km then #run. ");

  // Deleting a suggestion only takes it out of the word list.
  type(*editor, "#ca");
  ASSERT_EQ(names(editor->completionOptions()), (std::vector<std::string>{"calm"}));
  editor->removeMoodTag(editor->completionOptions()[0]);
  EXPECT_EQ(readEmotionsList(library()), (std::vector<std::string>{"sad", "Sleepy"}));
  EXPECT_TRUE(editor->completionOptions().empty());
  EXPECT_FALSE(editor->suggestions().hasChildManagedObjectContext());
}

TEST_F(CaptureFlowTest, ClosingTheOfferListTellsTheTagPanelWithMinusOne) {
  existingRecord("#sleep:8h");
  makeCapture()->selectMenu(2);
  auto editor = capture_->editor();
  editor->viewDidLoad();
  editor->viewWillAppear();
  std::vector<long> posted;
  ScopedObserver observer(NotificationCenter::defaultCenter(), MoodTagEditStartNotification, nullptr,
                          [&](const Notification& n) { posted.push_back(std::any_cast<long>(n.object)); });
  type(*editor, "#sl");
  EXPECT_TRUE(posted.empty());  // the list opened
  type(*editor, " ");
  EXPECT_EQ(posted, std::vector<long>{-1});
  type(*editor, "more");  // empty stays empty: no second notice
  EXPECT_EQ(posted, std::vector<long>{-1});
  type(*editor, " #s");
  ASSERT_FALSE(editor->completionOptions().empty());
  editor->didSelectCompletionRow(0);  // taking an offer tells it too
  EXPECT_GE(posted.size(), 2u);
  EXPECT_EQ(posted.back(), -1);
}

TEST_F(CaptureFlowTest, TagPanelUnitButtonsFillTheUnitField) {
  testing::ScopedEnvironment env{{"LANGUAGE", std::nullopt},
                                 {"LC_ALL", std::nullopt},
                                 {"LC_MESSAGES", std::nullopt},
                                 {"LANG", "fr_CA.UTF-8"}};
  Localization::reload();
  auto record = existingRecord("#run:5km");
  auto view = std::make_shared<PanelView>();
  auto editor = MoodRecordEditViewController::forExistingRecord(record, services(), library());
  editor->setView(view);
  editor->viewDidLoad();
  ASSERT_EQ(view->units.size(), 16u);
  EXPECT_EQ(view->units[0], "po");  // French in Canada
  editor->tagEdit(store_->tagNamed("run"));
  editor->tagButtonClicked(1);
  editor->tagButtonClicked(99);  // no such button: nothing
  EXPECT_EQ(view->unitField, std::vector<std::string>{"pi"});
  editor->tagEditCancel();
  EXPECT_EQ(view->unitField.back(), "");
  env.set("LANG", "en_US.UTF-8");
  Localization::reload();
}

// The editor's questions may be answered after the editor is gone (the
// application went to the background and a reminder replaced it): the
// answers then change nothing, and nothing touches the destroyed editor.
TEST_F(CaptureFlowTest, AnswersThatArriveAfterTheEditorIsGoneChangeNothing) {
  auto presenter = std::make_shared<testing::ScriptedPresenter>();
  MoodViewController::setSharedPresenter(presenter);
  auto record = existingRecord("Long run #running");
  auto editor = MoodRecordEditViewController::forExistingRecord(record, services(), library());
  editor->viewDidLoad();
  type(*editor, " and more");
  editor->cancel();                                // "Your current editing progress will be lost"
  editor->tagDelete(store_->tagNamed("running"));  // "Are you sure, you want delete tag"
  editor->locationButtonClicked();                 // no place: asks nothing
  editor->actionButtonClicked();                   // the photo sheet
  ASSERT_EQ(presenter->alerts.size(), 3u);
  std::weak_ptr<Screen> watch = editor;
  editor.reset();
  ASSERT_TRUE(watch.expired());

  presenter->alerts[0].handler(1);
  presenter->alerts[1].handler(1);
  presenter->alerts[2].handler(kMoodActionDestructive);
  EXPECT_TRUE(store_->tagNamed("running")) << "the tag stays";
  EXPECT_EQ(record->moodDescription()->comment(), "Long run #running");
  EXPECT_TRUE(record->moodDescription()->photoName()) << "the photo stays";
  MoodViewController::setSharedPresenter(nullptr);
}

TEST_F(CaptureFlowTest, PhotoButtonOffersDeleteOnlyWhenThereIsAPicture) {
  auto presenter = std::make_shared<testing::ScriptedPresenter>();
  MoodViewController::setSharedPresenter(presenter);
  makeCapture()->selectMenu(5);
  auto editor = capture_->editor();
  auto view = std::make_shared<PanelView>();
  editor->setView(view);
  editor->viewDidLoad();
  presenter->answers = {2};
  editor->actionButtonClicked();
  ASSERT_EQ(presenter->alerts.size(), 1u);
  EXPECT_EQ(presenter->alerts[0].request.actions.size(), 3u);  // take, choose, cancel
  EXPECT_EQ(view->pickers,
            std::vector<MoodRecordEditView::PickerSource>{MoodRecordEditView::PickerSource::kPhotoLibrary});

  // Delete is offered once a picture is there, and clears it.
  editor->imagePicked(Image::filled(300, 200, Color::fromRGB255(0, 120, 0)));
  EXPECT_EQ(editor->currentState()->photo->width(), 300);  // smaller than 640 x 860: kept
  EXPECT_EQ(editor->currentState()->thumb->width(), 264);
  presenter->answers = {4};
  editor->actionButtonClicked();
  EXPECT_EQ(presenter->alerts[1].request.actions.size(), 4u);
  EXPECT_EQ(presenter->alerts[1].request.actions[2].title, "Delete");
  EXPECT_FALSE(editor->currentState()->photo);
  editor->done();
  EXPECT_FALSE(editor->recordInEdit()->moodDescription()->photoName());
  MoodViewController::setSharedPresenter(nullptr);
}

}  // namespace
}  // namespace lumeo
