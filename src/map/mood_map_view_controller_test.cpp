// The Map tab on a headless map over a real journal: which pins show, their
// texts and pies, what a tap does, the filters and the own-location retry.
#include "map/mood_map_view_controller.h"

#include <gtest/gtest.h>

#include "capture/location_helper.h"
#include "map/headless_map_view.h"
#include "map/map_test_support.h"
#include "platform/clock.h"
#include "platform/notification_center.h"
#include "store/notification_names.h"

namespace lumeo {
namespace {

class RecordingView : public MoodMapView {
 public:
  void setTagFilterText(const std::string& text) override { tagText = text; }
  void setModeButtonImage(const std::string& name) override { modeImage = name; }
  std::string tagText;
  std::string modeImage;
};

class FixedLocation : public LocationService {
 public:
  bool enabled = false;
  bool isEnabled() const override { return enabled; }
};

class MoodMapViewControllerTest : public ::testing::Test {
 protected:
  MoodMapViewControllerTest() : map(std::make_shared<HeadlessMapView>(400, 400)) {}
  ~MoodMapViewControllerTest() override { LocationHelper::sharedInstance().setLocationService(nullptr); }

  void load(bool followsOwnLocation = false) {
    screen = MoodMapViewController::create(journal.store(), map);
    screen->setView(view);
    screen->setFollowsOwnLocation(followsOwnLocation);
    screen->viewDidLoad();
    settle();
  }
  void settle() {
    ASSERT_TRUE(testing::runUntilSettled([&] { return screen->isSettled(); }));
  }
  void show(double latitude, double longitude, double span) {
    map->setRegion({{latitude, longitude}, {span, span}}, false);
    settle();
  }

  testing::MapJournal journal;
  std::shared_ptr<HeadlessMapView> map;
  std::shared_ptr<RecordingView> view = std::make_shared<RecordingView>();
  std::shared_ptr<MoodMapViewController> screen;
};

TEST_F(MoodMapViewControllerTest, NoLocatedRecordKeepsTheMapEmpty) {
  journal.add(7, -1, -1);
  journal.add(7, 48.2, -1);
  journal.save();
  load();
  EXPECT_TRUE(screen->clusterAnnotations().empty());
  EXPECT_TRUE(screen->allAnnotations().empty());
}

TEST_F(MoodMapViewControllerTest, FewerThanThreePlacesInACellShowEachPlace) {
  // Two places a few hundred metres apart fall in one 180-point cell at city
  // zoom, and the minimum of three distinct places keeps them apart.
  journal.add(8, 48.2000, 16.3700);
  journal.add(3, 48.2000, 16.3700);
  journal.add(5, 48.2030, 16.3720);
  journal.save();
  load();
  show(48.2, 16.37, 0.5);
  auto pins = screen->clusterAnnotations();
  ASSERT_EQ(pins.size(), 2u);
  for (const auto& pin : pins) {
    EXPECT_TRUE(pin->isUniqueLocation());
    if (pin->count() == 2) {
      EXPECT_EQ(MoodMapViewController::moodsArrayForClusterAnnotation(*pin), (std::vector<long>{3, 8}));
      EXPECT_EQ(pin->title(), "2 annotations");
    } else {
      EXPECT_EQ(pin->title(), "1 annotation");
      EXPECT_EQ(pin->subtitle(), "5");
    }
  }

  // A third place in the same cell makes one pin of all of them.
  journal.add(10, 48.2010, 16.3690);
  journal.save();
  screen->refreshMap();
  settle();
  pins = screen->clusterAnnotations();
  ASSERT_EQ(pins.size(), 1u);
  EXPECT_FALSE(pins[0]->isUniqueLocation());
  EXPECT_EQ(MoodMapViewController::moodsArrayForClusterAnnotation(*pins[0]),
            (std::vector<long>{3, 5, 8, 10}));
  EXPECT_EQ(pins[0]->title(), "4 annotations");
}

TEST_F(MoodMapViewControllerTest, SubtitleListsAtMostFiveLevels) {
  for (long level = 1; level <= 7; ++level) journal.add(level, 10, 10);
  journal.save();
  load();
  show(10, 10, 1);
  auto pins = screen->clusterAnnotations();
  ASSERT_EQ(pins.size(), 1u);
  const std::string subtitle = pins[0]->subtitle();
  EXPECT_EQ(std::count(subtitle.begin(), subtitle.end(), ','), 4) << subtitle;
  EXPECT_EQ(MoodMapViewController::moodsArrayForClusterAnnotation(*pins[0]),
            (std::vector<long>{1, 2, 3, 4, 5, 6, 7}));
}

TEST_F(MoodMapViewControllerTest, NoPinsRemainAfterDeletingAllLocations) {
  journal.add(4, 40.0, -3.7);
  journal.add(9, 41.4, 2.17);
  journal.save();
  load();
  EXPECT_FALSE(screen->clusterAnnotations().empty());
  journal.store().removeCoordinates();
  screen->refreshMap();
  settle();
  EXPECT_TRUE(screen->clusterAnnotations().empty());
  EXPECT_TRUE(screen->allAnnotations().empty());
}

TEST_F(MoodMapViewControllerTest, TappingAPinCentresOnOnePlaceOrFitsManyPlaces) {
  journal.add(4, 40.0, -3.7);
  journal.add(6, 40.0, -3.7);
  journal.add(2, 37.39, -5.98);
  journal.add(9, 39.47, -0.38);
  journal.save();
  load();
  show(39, -3, 60);
  auto pins = screen->clusterAnnotations();
  ASSERT_EQ(pins.size(), 1u) << "three places in one cell at this zoom";
  screen->didSelectClusterAnnotation(pins[0]);
  settle();
  const CoordinateRegion fitted = map->region();
  EXPECT_LT(fitted.span.longitudeDelta, 10);
  EXPECT_GE(fitted.span.longitudeDelta, -0.38 - -5.98);
  EXPECT_NEAR(fitted.center.longitude, (-0.38 + -5.98) / 2, 0.2);
  EXPECT_TRUE(map->selectedAnnotations().empty());

  // Zoomed in, the pair at one place is its own pin: a tap centres on it
  // and keeps the span.
  pins = screen->clusterAnnotations();
  GeoMapClusterAnnotationPtr pair;
  for (const auto& pin : pins) {
    if (pin->count() == 2) pair = pin;
  }
  ASSERT_TRUE(pair);
  const double span = map->region().span.longitudeDelta;
  screen->didSelectClusterAnnotation(pair);
  settle();
  // (A region in degrees and the square map it fits differ a little in
  // latitude, as on any Mercator map.)
  EXPECT_NEAR(map->centerCoordinate().latitude, 40.0, 0.1);
  EXPECT_NEAR(map->centerCoordinate().longitude, -3.7, 1e-6);
  EXPECT_NEAR(map->region().span.longitudeDelta, span, span * 0.05);
}

TEST_F(MoodMapViewControllerTest, TagFilterAndModeSwitchRefreshThePins) {
  journal.add(4, 40.0, -3.7, {"work"});
  journal.add(9, 41.4, 2.17, {"home"});
  journal.add(9, 52.5, 13.4, {"travel"});
  journal.save();
  load();
  EXPECT_EQ(screen->allAnnotations().size(), 3u);

  screen->selectionCompleatedWithSet({"work", "home"});
  settle();
  EXPECT_EQ(view->tagText, " home, work");
  EXPECT_EQ(screen->allAnnotations().size(), 2u);

  screen->changeModeButtonClicked();
  settle();
  EXPECT_TRUE(screen->averageDrawing());
  EXPECT_EQ(view->modeImage, "averageCircle");
  auto pins = screen->clusterAnnotations();
  ASSERT_FALSE(pins.empty());
  auto pinView = std::dynamic_pointer_cast<MapClusterAnnotationView>(map->viewForAnnotation(pins[0]));
  ASSERT_TRUE(pinView);
  EXPECT_TRUE(pinView->averageDrawing);
  EXPECT_EQ(pinView->reuseIdentifier(), "clusterAnnotation");
  EXPECT_FALSE(pinView->canShowCallout());

  // A restored backup clears the filters.
  NotificationCenter::defaultCenter().post(Notification{MoodBackupWasLoadedNotification, nullptr, {}, {}});
  settle();
  EXPECT_EQ(view->tagText, "");
  EXPECT_EQ(screen->allAnnotations().size(), 3u);
}

TEST_F(MoodMapViewControllerTest, OwnLocationIsRetriedUntilAPositionIsKnown) {
  ScopedSimulatedClock clock(Date::fromTimeIntervalSince1970(1'700'000'000));
  auto service = std::make_shared<FixedLocation>();
  LocationHelper::sharedInstance().setLocationService(service);
  load(true);
  MainLoop::shared().runFor(4);
  const LocationCoordinate2D before = map->centerCoordinate();

  service->enabled = true;
  service->deliverFix({47.07, 15.44, 20, clock.clock().now()});
  MainLoop::shared().runFor(1.5);
  EXPECT_NEAR(map->centerCoordinate().latitude, 47.07, 1e-3);
  EXPECT_NEAR(map->centerCoordinate().longitude, 15.44, 1e-3);
  EXPECT_NE(before.latitude, map->centerCoordinate().latitude);
  // 20 km of ground from edge to edge.
  EXPECT_NEAR(map->region().span.latitudeDelta, 20000.0 / 111000.0, 0.03);
}

}  // namespace
}  // namespace lumeo
