// Positions for records on a real journal, with a location service that
// delivers the fixes the test gives it: which fixes stamp a waiting record
// (recent, accurate, location enabled, a coordinate still unset), the
// state's request and its notification, the editor's automatic stamping of
// new records, and its place actions, which bypass the state pair.
#include "capture/location_helper.h"

#include <gtest/gtest.h>

#include <array>
#include <utility>

#include "capture/mood_record_edit_view_controller.h"
#include "capture/mood_record_state.h"
#include "objectgraph/managed_object_context.h"
#include "platform/notification_center.h"
#include "platform/user_defaults.h"
#include "shell/shell_test_support.h"
#include "store/image_store.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_user_defaults_operator.h"
#include "store/notification_names.h"
#include "testing/temp_dir.h"

namespace lumeo {
namespace {

// Stands in for the desktop's location service: enabled or not, counting
// starts, and delivering whatever fix the test hands it.
class TestLocationService : public LocationService {
 public:
  bool enabled = true;
  int starts = 0;
  bool isEnabled() const override { return enabled; }
  void startUpdatingLocation() override { ++starts; }
  void fix(double latitude, double longitude, double accuracy, double secondsAgo = 1) {
    deliverFix({latitude, longitude, accuracy, Date::now().dateByAddingTimeInterval(-secondsAgo)});
  }
};

class PlaceView : public MoodRecordEditView {
 public:
  std::vector<std::array<double, 3>> previews;
  int hidden = 0;
  std::vector<std::pair<double, double>> choosers;
  void showMapPreview(double latitude, double longitude, double span) override {
    previews.push_back({latitude, longitude, span});
  }
  void hideMapPreview() override { ++hidden; }
  void showLocationChooser(double latitude, double longitude) override {
    choosers.emplace_back(latitude, longitude);
  }
};

class LocationTest : public ::testing::Test {
 protected:
  LocationTest()
      : defaults_(std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>())),
        images_(std::make_shared<ImageStore>(dir_ / "Library")),
        service_(std::make_shared<TestLocationService>()),
        presenter_(std::make_shared<testing::ScriptedPresenter>()) {
    previousDefaults_ = UserDefaults::standard();
    UserDefaults::setStandard(defaults_);
    store_ = std::make_unique<JournalStore>(JournalStore::Locations{dir_ / "Library", dir_ / "Documents"},
                                            defaults_);
    helper().setLocationService(service_);
    MoodViewController::setSharedPresenter(presenter_);
  }
  ~LocationTest() override {
    helper().setLocationService(nullptr);
    MoodViewController::setSharedPresenter(nullptr);
    UserDefaults::setStandard(previousDefaults_);
  }

  static LocationHelper& helper() { return LocationHelper::sharedInstance(); }
  RecordStateServices services() { return {store_.get(), images_, {}}; }
  std::shared_ptr<MoodRecord> newRecord() {
    auto record = store_->insertRecordWithDescription();
    record->setMoodLevel(7);
    record->setDate(Date::now());
    store_->saveContext();
    return record;
  }
  static std::pair<double, double> place(const std::shared_ptr<MoodRecord>& record) {
    return {record->moodDescription()->latitude(), record->moodDescription()->longitude()};
  }
  std::shared_ptr<MoodRecordEditViewController> openEditor(const std::shared_ptr<MoodRecord>& record,
                                                           bool existing) {
    auto editor = existing
                      ? MoodRecordEditViewController::forExistingRecord(record, services(), dir_ / "Library")
                      : MoodRecordEditViewController::forNewRecord(record, services(), dir_ / "Library");
    editor->setView(view_);
    editor->viewDidLoad();
    return editor;
  }

  testing::TempDir dir_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<UserDefaults> previousDefaults_;
  std::shared_ptr<ImageStore> images_;
  std::unique_ptr<JournalStore> store_;
  std::shared_ptr<TestLocationService> service_;
  std::shared_ptr<testing::ScriptedPresenter> presenter_;
  std::shared_ptr<PlaceView> view_ = std::make_shared<PlaceView>();
};

const std::pair<double, double> kNone{-1, -1};

TEST_F(LocationTest, OnlyARecentAccurateFixStampsTheWaitingRecord) {
  auto record = newRecord();
  EXPECT_EQ(place(record), kNone);
  int obtained = 0;
  helper().setTarget([&] { ++obtained; });
  helper().setRecord(record);
  helper().requestLocation();
  EXPECT_EQ(service_->starts, 1);

  service_->fix(48.1, 16.1, -1);  // invalid: kept as the last fix, never stamps
  EXPECT_DOUBLE_EQ(helper().latitude(), 48.1);
  service_->fix(48.2, 16.2, 10, 101);  // too old
  service_->fix(48.3, 16.3, 100.0);    // not accurate enough
  EXPECT_EQ(place(record), kNone);
  EXPECT_EQ(obtained, 0);

  service_->fix(48.4, 16.4, 99.9, 99);
  EXPECT_EQ(place(record), std::make_pair(48.4, 16.4));
  EXPECT_EQ(obtained, 1);
  EXPECT_FALSE(helper().record());
  service_->fix(50, 20, 5);  // the record is served; later fixes only update the known position
  EXPECT_EQ(place(record), std::make_pair(48.4, 16.4));
  EXPECT_EQ(obtained, 1);
  EXPECT_DOUBLE_EQ(helper().latitude(), 50);
}

TEST_F(LocationTest, AKnownFixStampsAtOnceButNeverOverAChosenCoordinateOrADeletedRecord) {
  service_->fix(48.2, 16.37, 20);
  // A latitude the user chose stays; the longitude still free is written.
  auto chosen = newRecord();
  chosen->moodDescription()->setLatitude(10);
  helper().setRecord(chosen);
  helper().requestLocation();
  EXPECT_EQ(place(chosen), std::make_pair(10.0, 16.37));

  // A cancelled capture deletes its record; a fix must not bring it back.
  auto cancelled = newRecord();
  helper().setRecord(cancelled);
  EXPECT_FALSE(store_->deleteRecord(cancelled));
  store_->saveContext();
  service_->fix(48.2, 16.37, 20);
  helper().requestLocation();
  EXPECT_FALSE(store_->managedObjectContext()->hasChanges());

  // After a failure the known position is gone and nothing stamps.
  service_->deliverFailure(Error{"kCLErrorDomain", 0, "no fix", {}});
  EXPECT_FALSE(helper().location());
  auto later = newRecord();
  helper().setRecord(later);
  helper().requestLocation();
  EXPECT_EQ(place(later), kNone);

  // With location switched off nothing stamps either.
  service_->enabled = false;
  service_->fix(48.2, 16.37, 20);
  EXPECT_EQ(place(later), kNone);
}

TEST_F(LocationTest, WithoutAServiceThereIsNoPosition) {
  helper().setLocationService(nullptr);
  EXPECT_FALSE(helper().isEnabled());
  EXPECT_FALSE(helper().isEnabledOnlyServices());
  auto record = newRecord();
  helper().setRecord(record);
  helper().requestLocation();
  EXPECT_EQ(place(record), kNone);
}

TEST_F(LocationTest, StateOfARecordStartsUpdatesAndItsRequestPostsWhenStamped) {
  auto record = newRecord();
  MoodRecordState empty;
  EXPECT_FALSE(empty.locationHelper);
  EXPECT_EQ(service_->starts, 0);
  MoodRecordState state(*record, nullptr);
  EXPECT_EQ(state.locationHelper, &helper());
  EXPECT_EQ(service_->starts, 1);

  std::vector<std::shared_ptr<MoodRecord>> posted;
  ScopedObserver observer(
      NotificationCenter::defaultCenter(), MoodLocationObtainedNotification, nullptr,
      [&](const Notification& n) { posted.push_back(std::any_cast<std::shared_ptr<MoodRecord>>(n.object)); });
  MoodRecordState::locationHelperStart(record);
  EXPECT_TRUE(posted.empty());
  service_->fix(1.5, 2.5, 30);
  ASSERT_EQ(posted.size(), 1u);
  EXPECT_EQ(posted[0], record);
  EXPECT_EQ(place(record), std::make_pair(1.5, 2.5));
}

TEST_F(LocationTest, EditorStampsOnlyNewRecordsAndOnlyWithAutomaticPlaces) {
  MoodUserDefaultsOperator& settings = MoodUserDefaultsOperator::sharedOperator();
  EXPECT_FALSE(settings.setIsMapAutomaticSelectLocation(false));
  auto manual = newRecord();
  openEditor(manual, false)->viewWillAppear();
  EXPECT_FALSE(helper().record());

  EXPECT_FALSE(settings.setIsMapAutomaticSelectLocation(true));
  auto older = newRecord();
  openEditor(older, true)->viewWillAppear();
  EXPECT_FALSE(helper().record()) << "an older record keeps the place it has";

  service_->enabled = false;
  auto offline = newRecord();
  openEditor(offline, false)->viewWillAppear();
  EXPECT_FALSE(helper().record());

  service_->enabled = true;
  auto fresh = newRecord();
  auto editor = openEditor(fresh, false);
  editor->viewWillAppear();
  EXPECT_EQ(helper().record(), fresh);
  service_->fix(59.33, 18.06, 15);
  EXPECT_EQ(place(fresh), std::make_pair(59.33, 18.06));
  ASSERT_EQ(view_->previews.size(), 1u);
  EXPECT_EQ(view_->previews[0], (std::array<double, 3>{59.33, 18.06, 0.05}));
  editor->done();
  EXPECT_FALSE(store_->managedObjectContext()->hasChanges());
  EXPECT_EQ(place(manual), kNone);
}

TEST_F(LocationTest, PlaceActionsWriteTheRecordDirectlyAndCancelKeepsThem) {
  auto record = newRecord();
  auto editor = openEditor(record, true);
  editor->viewDidAppear();
  EXPECT_TRUE(view_->previews.empty());

  // No place yet: the chooser opens at once.
  editor->locationButtonClicked();
  EXPECT_TRUE(presenter_->alerts.empty());
  ASSERT_EQ(view_->choosers.size(), 1u);
  EXPECT_EQ(view_->choosers[0], kNone);
  editor->didMoodLocationViewControllerLocationChanged(48.2, 16.37);
  EXPECT_EQ(place(record), std::make_pair(48.2, 16.37));
  EXPECT_EQ(view_->previews.size(), 1u);

  // With a place: Edit, Delete or Cancel.
  presenter_->answers = {0};
  editor->locationButtonClicked();
  ASSERT_EQ(presenter_->alerts.size(), 1u);
  const auto& actions = presenter_->alerts[0].request.actions;
  ASSERT_EQ(actions.size(), 3u);
  EXPECT_EQ(actions[0].title, "Edit...");
  EXPECT_EQ(actions[1].title, "Delete");
  EXPECT_EQ(actions[1].style, AlertActionStyle::kDestructive);
  EXPECT_EQ(actions[2].result, 5);
  ASSERT_EQ(view_->choosers.size(), 2u);
  EXPECT_EQ(view_->choosers[1], std::make_pair(48.2, 16.37));

  // The place bypasses the state pair: Cancel of the edit keeps it.
  editor->confirmCancel();
  EXPECT_EQ(place(record), std::make_pair(48.2, 16.37));
  EXPECT_FALSE(store_->managedObjectContext()->hasChanges());

  // Delete writes -1 to both and stops a pending stamp.
  auto again = openEditor(record, true);
  again->viewDidAppear();
  EXPECT_EQ(view_->previews.size(), 2u);
  helper().setRecord(record);
  presenter_->answers = {4};
  again->locationButtonClicked();
  EXPECT_EQ(place(record), kNone);
  EXPECT_EQ(view_->hidden, 1);
  EXPECT_FALSE(helper().record());
  again->confirmCancel();
  EXPECT_EQ(place(record), kNone);
}

}  // namespace
}  // namespace lumeo
