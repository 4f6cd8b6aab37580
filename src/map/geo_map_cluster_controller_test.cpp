// The clustering engine end to end on a headless map: a real background
// queue, the main loop drained by the test, and the rules users see —
// which pins show, which keep their identity, and what stays selected.
#include "map/geo_map_cluster_controller.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <set>
#include <thread>

#include "map/geo_map_cluster_controller_debug_polygon.h"
#include "map/geo_map_cluster_utility.h"
#include "map/headless_map_view.h"

namespace lumeo {
namespace {

MapAnnotationPtr pin(double latitude, double longitude, std::string title = {}) {
  return std::make_shared<PointAnnotation>(LocationCoordinate2D{latitude, longitude}, std::move(title));
}

class CountingDelegate : public GeoMapClusterControllerDelegate {
 public:
  std::optional<std::string> titleForMapClusterAnnotation(
      GeoMapClusterController&, const GeoMapClusterAnnotation& annotation) override {
    ++titleQuestions;
    return std::to_string(annotation.count()) + " annotations";
  }
  void willReuseMapClusterAnnotation(GeoMapClusterController&, GeoMapClusterAnnotation&) override {
    ++reuses;
  }
  int titleQuestions = 0;
  int reuses = 0;
};

class GeoMapClusterControllerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    map = std::make_shared<HeadlessMapView>(400, 400);
    controller = GeoMapClusterController::initWithMapView(map);
  }

  // Runs the main loop until the controller's queue and the main queue are
  // both quiet.
  void settle() {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    int quietRounds = 0;
    while (std::chrono::steady_clock::now() < deadline) {
      int ran = MainLoop::shared().runOnce();
      if (ran == 0 && controller->pendingOperationCount() == 0) {
        if (++quietRounds == 3) return;
      } else {
        quietRounds = 0;
      }
      if (ran == 0) std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    FAIL() << "the cluster controller did not settle";
  }

  void add(const MapAnnotationList& annotations) {
    bool done = false;
    controller->addAnnotations(annotations, [&] { done = true; });
    settle();
    EXPECT_TRUE(done);
  }

  // Shows `spanDegrees` of longitude around a point.
  void show(double latitude, double longitude, double spanDegrees) {
    map->setRegion({{latitude, longitude}, {spanDegrees, spanDegrees}}, false);
    settle();
  }

  std::vector<GeoMapClusterAnnotationPtr> pins() const {
    std::vector<GeoMapClusterAnnotationPtr> result;
    for (const auto& shown : map->annotations()) {
      if (auto cluster = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(shown)) result.push_back(cluster);
    }
    return result;
  }

  GeoMapClusterAnnotationPtr pinHolding(const MapAnnotationPtr& annotation) const {
    for (const auto& cluster : pins()) {
      if (cluster->containsAnnotation(annotation.get())) return cluster;
    }
    return nullptr;
  }

  std::shared_ptr<HeadlessMapView> map;
  std::shared_ptr<GeoMapClusterController> controller;
};

TEST_F(GeoMapClusterControllerTest, StartsWithTheEngineDefaults) {
  EXPECT_EQ(controller->marginFactor(), 0.5);
  EXPECT_EQ(controller->cellSize(), 60.0);
  EXPECT_EQ(controller->maxZoomLevelForClustering(), std::numeric_limits<double>::max());
  EXPECT_EQ(controller->minUniqueLocationsForClustering(), 0u);
  EXPECT_TRUE(controller->reuseExistingClusterAnnotations());
  EXPECT_NE(std::dynamic_pointer_cast<GeoCenterOfMassMapClusterer>(controller->clusterer()), nullptr);
  EXPECT_NE(std::dynamic_pointer_cast<GeoFadeInOutMapAnimator>(controller->animator()), nullptr);
  EXPECT_FALSE(controller->debuggingEnabled());
  // Held weakly: a clusterer set from outside lives only as long as its owner.
  {
    auto nearCenter = std::make_shared<GeoNearCenterMapClusterer>();
    controller->setClusterer(nearCenter);
    EXPECT_EQ(controller->clusterer(), nearCenter);
  }
  EXPECT_EQ(controller->clusterer(), nullptr);
}

TEST_F(GeoMapClusterControllerTest, MinimumOfUniqueLocationsDecidesBetweenOnePinAndSeveral) {
  controller->setMinUniqueLocationsForClustering(3);
  show(48.85, 2.35, 2);

  // Three records at one point: one location, so one pin for all three.
  MapAnnotationList samePoint{pin(48.85, 2.35), pin(48.85, 2.35), pin(48.85, 2.35)};
  add(samePoint);
  ASSERT_EQ(pins().size(), 1u);
  EXPECT_EQ(pins()[0]->count(), 3u);
  EXPECT_TRUE(pins()[0]->isUniqueLocation());
  EXPECT_TRUE(pins()[0]->isCluster());

  // A second location in the same cell: fewer than three, so shown apart.
  MapAnnotationPtr second = pin(48.86, 2.36);
  add({second});
  ASSERT_EQ(pins().size(), 2u);
  EXPECT_EQ(pinHolding(second)->count(), 1u);
  EXPECT_FALSE(pinHolding(second)->isCluster());
  EXPECT_DOUBLE_EQ(pinHolding(second)->coordinate().latitude, 48.86);

  // A third location reaches the minimum: one cluster again.
  MapAnnotationPtr third = pin(48.84, 2.34);
  add({third});
  ASSERT_EQ(pins().size(), 1u);
  EXPECT_EQ(pins()[0]->count(), 5u);
  EXPECT_FALSE(pins()[0]->isUniqueLocation());
}

TEST_F(GeoMapClusterControllerTest, MinimumOfZeroOrOneAlwaysMakesOnePinPerCell) {
  for (std::size_t minimum : {0u, 1u}) {
    controller->setMinUniqueLocationsForClustering(minimum);
    show(48.85, 2.35, 2);
    MapAnnotationList two{pin(48.85, 2.35), pin(48.86, 2.36)};
    add(two);
    ASSERT_EQ(pins().size(), 1u) << "minimum " << minimum;
    EXPECT_EQ(pins()[0]->count(), 2u);
    // The default clusterer puts the pin at the centre of mass.
    EXPECT_NEAR(pins()[0]->coordinate().latitude, 48.855, 1e-9);
    EXPECT_FALSE(pins()[0]->isUniqueLocation());
    bool done = false;
    controller->removeAnnotations(two, [&] { done = true; });
    settle();
    EXPECT_TRUE(done);
    EXPECT_TRUE(pins().empty());

    MapAnnotationList samePoint{pin(48.85, 2.35), pin(48.85, 2.35), pin(48.85, 2.35)};
    add(samePoint);
    ASSERT_EQ(pins().size(), 1u);
    EXPECT_TRUE(pins()[0]->isUniqueLocation());
    EXPECT_EQ(pins()[0]->annotations()->size(), 3u);
    controller->removeAnnotations(samePoint);
    settle();
  }
}

TEST_F(GeoMapClusterControllerTest, ZoomingPastTheMaximumShowsEveryLocationApart) {
  controller->setMaxZoomLevelForClustering(12);
  MapAnnotationList places{pin(48.850, 2.350), pin(48.850, 2.350), pin(48.851, 2.351), pin(48.852, 2.352)};
  show(48.85, 2.35, 10);  // a country: below the maximum, so clustered
  add(places);
  EXPECT_LT(controller->zoomLevel(), 12);
  ASSERT_EQ(pins().size(), 1u);

  show(48.851, 2.351, 0.05);  // a street: every location on its own
  EXPECT_GT(controller->zoomLevel(), 12);
  ASSERT_EQ(pins().size(), 3u);
  // Records at one point still share their pin.
  EXPECT_EQ(pinHolding(places[0]), pinHolding(places[1]));
  EXPECT_EQ(pinHolding(places[0])->count(), 2u);
}

TEST_F(GeoMapClusterControllerTest, PointsBeyondEightyFiveDegreesAreKeptButNeverShown) {
  MapAnnotationPtr polar = pin(86, 10);
  MapAnnotationPtr near = pin(80, 10);
  show(0, 0, 360);
  add({polar, near});
  EXPECT_EQ(controller->annotationCount(), 2u);
  auto all = controller->annotations();
  EXPECT_NE(std::find(all.begin(), all.end(), polar), all.end());
  show(84, 10, 20);
  EXPECT_EQ(pinHolding(polar), nullptr);
  ASSERT_NE(pinHolding(near), nullptr);
  // Removing it still works, though it never entered the tree.
  controller->removeAnnotations({polar});
  settle();
  EXPECT_EQ(controller->annotationCount(), 1u);
}

TEST_F(GeoMapClusterControllerTest, PanningKeepsTheSelectionAndZoomingDropsIt) {
  MapAnnotationPtr paris = pin(48.85, 2.35);
  show(48.85, 2.35, 4);
  add({paris, pin(48.86, 2.36)});
  auto selected = pinHolding(paris);
  ASSERT_NE(selected, nullptr);
  map->selectAnnotation(selected, false);

  map->setCenterCoordinate({48.9, 2.6}, false);  // pan, same span
  settle();
  ASSERT_EQ(map->selectedAnnotations().size(), 1u);
  EXPECT_EQ(map->selectedAnnotations()[0], selected);
  EXPECT_EQ(pinHolding(paris), selected);

  show(48.9, 2.6, 8);  // zoom out
  EXPECT_TRUE(map->selectedAnnotations().empty());
}

TEST_F(GeoMapClusterControllerTest, RemovingTheLastMemberRemovesItsPin) {
  MapAnnotationPtr paris = pin(48.85, 2.35);
  MapAnnotationPtr sydney = pin(-33.86, 151.21);
  show(0, 0, 360);
  add({paris, sydney});
  ASSERT_EQ(pins().size(), 2u);
  auto sydneyPin = pinHolding(sydney);
  controller->removeAnnotations({sydney});
  settle();
  ASSERT_EQ(pins().size(), 1u);
  EXPECT_EQ(pinHolding(paris)->count(), 1u);
  auto shown = map->annotations();
  EXPECT_EQ(std::find(shown.begin(), shown.end(), sydneyPin), shown.end());
}

TEST_F(GeoMapClusterControllerTest, PinsKeepTheirIdentityWhenClustersMergeAndSplit) {
  controller->setMarginFactor(0);
  auto delegate = std::make_shared<CountingDelegate>();
  controller->setDelegate(delegate);
  // Two groups of two, in different cells at the near zoom and one cell at
  // the far zoom.
  MapAnnotationList west{pin(10.0, 10.6), pin(10.01, 10.61)};
  MapAnnotationList east{pin(10.0, 11.5), pin(10.01, 11.51)};
  show(10, 10.75, 6);
  add(west);
  add(east);
  ASSERT_EQ(pins().size(), 2u);
  auto westPin = pinHolding(west[0]);
  auto eastPin = pinHolding(east[0]);
  ASSERT_NE(westPin, eastPin);
  EXPECT_EQ(westPin->title(), "2 annotations");

  show(10, 10.75, 90);  // merge
  ASSERT_EQ(pins().size(), 1u);
  auto merged = pins()[0];
  EXPECT_EQ(merged->count(), 4u);
  // The first matching pin survives and slides to the new centre.
  EXPECT_TRUE(merged == westPin || merged == eastPin);
  EXPECT_NEAR(merged->coordinate().longitude, 11.055, 1e-9);
  EXPECT_GE(delegate->reuses, 1);
  // Reuse clears the cached title, so it is asked again with the new count.
  int questions = delegate->titleQuestions;
  EXPECT_EQ(merged->title(), "4 annotations");
  EXPECT_EQ(merged->title(), "4 annotations");
  EXPECT_EQ(delegate->titleQuestions, questions + 1);

  show(10, 10.75, 6);  // split
  ASSERT_EQ(pins().size(), 2u);
  auto westAgain = pinHolding(west[0]);
  auto eastAgain = pinHolding(east[0]);
  // The first group takes the merged pin over; the other is new.
  EXPECT_TRUE((westAgain == merged) != (eastAgain == merged));
  EXPECT_EQ(westAgain->count(), 2u);
  EXPECT_EQ(eastAgain->count(), 2u);

  // Without reuse every pass makes new pins.
  controller->setReuseExistingClusterAnnotations(false);
  show(10, 10.75, 6.5);
  EXPECT_NE(pinHolding(west[0]), westAgain);
  EXPECT_NE(pinHolding(east[0]), eastAgain);
}

TEST_F(GeoMapClusterControllerTest, APinForOneLocationSurvivesOnlyWhereItStands) {
  controller->setMinUniqueLocationsForClustering(3);
  MapAnnotationPtr home = pin(48.85, 2.35);
  MapAnnotationPtr work = pin(48.86, 2.36);
  show(48.855, 2.355, 2);
  add({home, work});
  auto homePin = pinHolding(home);
  ASSERT_NE(homePin, pinHolding(work));
  // Another record at home: the pin stays where it stands, so it is kept.
  MapAnnotationPtr homeAgain = pin(48.85, 2.35);
  add({homeAgain});
  EXPECT_EQ(pinHolding(homeAgain), homePin);
  EXPECT_EQ(homePin->count(), 2u);
}

TEST_F(GeoMapClusterControllerTest, SelectingAnAnnotationZoomsCentresAndSelectsItsPin) {
  MapAnnotationPtr target = pin(35.68, 139.69);
  show(0, 0, 360);
  add({target, pin(35.69, 139.70), pin(48.85, 2.35)});
  controller->selectAnnotation(target, 20000, 20000);
  settle();
  ASSERT_EQ(map->selectedAnnotations().size(), 1u);
  auto selected = std::dynamic_pointer_cast<GeoMapClusterAnnotation>(map->selectedAnnotations()[0]);
  ASSERT_NE(selected, nullptr);
  EXPECT_TRUE(selected->containsAnnotation(target.get()));
  EXPECT_NEAR(map->centerCoordinate().latitude, selected->coordinate().latitude, 1e-6);
  EXPECT_NEAR(map->centerCoordinate().longitude, selected->coordinate().longitude, 1e-6);
  EXPECT_LT(map->region().span.longitudeDelta, 1);

  // Selecting again where the map already is still selects, through a pass
  // started by hand.
  map->deselectAnnotation(selected, false);
  controller->selectAnnotation(target, 20000, 20000);
  settle();
  EXPECT_EQ(map->selectedAnnotations().size(), 1u);

  // An annotation the controller does not hold is ignored.
  auto region = map->region();
  controller->selectAnnotation(pin(0, 0), 1000, 1000);
  settle();
  EXPECT_NEAR(map->region().center.longitude, region.center.longitude, 1e-12);
}

TEST_F(GeoMapClusterControllerTest, NewPinsFadeInAndOldOnesFadeOutBeforeLeaving) {
  show(0, 0, 360);
  MapAnnotationPtr a = pin(10, 10);
  add({a});
  auto first = pinHolding(a);
  EXPECT_EQ(map->viewForAnnotation(first)->alpha(), 1.0);
  auto firstView = map->viewForAnnotation(first);
  controller->removeAnnotations({a});
  settle();
  EXPECT_EQ(firstView->alpha(), 0.0);
  EXPECT_EQ(map->viewForAnnotation(first), nullptr);
}

TEST_F(GeoMapClusterControllerTest, DebuggingDrawsTheGridAndStoppingRemovesIt) {
  show(0, 0, 360);
  controller->setDebuggingEnabled(true);
  show(10, 10, 40);
  auto overlays = map->overlays();
  ASSERT_FALSE(overlays.empty());
  double cell = cellMapSizeForCellSize(controller->cellSize(), *map);
  MapRect grid = gridMapRectForMapRect(map->visibleMapRect(), cell, controller->marginFactor());
  std::size_t expected =
      static_cast<std::size_t>(std::llround(grid.size.width / cell) * std::llround(grid.size.height / cell));
  EXPECT_EQ(overlays.size(), expected);
  for (const auto& overlay : overlays) {
    auto polygon = std::dynamic_pointer_cast<GeoMapClusterControllerDebugPolygon>(overlay);
    ASSERT_NE(polygon, nullptr);
    EXPECT_EQ(polygon->mapClusterController(), controller);
  }
  show(10, 12, 40);  // replaced, not added to
  EXPECT_EQ(map->overlays().size(), expected);
  controller->setDebuggingEnabled(false);
  EXPECT_TRUE(map->overlays().empty());
}

TEST_F(GeoMapClusterControllerTest, TheMapsOwnDelegateStillHearsEveryCall) {
  struct Listener : MapViewDelegate {
    void regionDidChange(MapView&, bool) override { ++changes; }
    int changes = 0;
  };
  auto own = std::make_shared<Listener>();
  auto otherMap = std::make_shared<HeadlessMapView>(300, 300);
  otherMap->setDelegate(own);
  auto first = GeoMapClusterController::initWithMapView(otherMap);
  auto second = GeoMapClusterController::initWithMapView(otherMap);
  auto proxy = std::dynamic_pointer_cast<GeoMapViewDelegateProxy>(otherMap->delegate());
  ASSERT_NE(proxy, nullptr);
  EXPECT_EQ(proxy->target(), own);
  otherMap->setRegion({{1, 1}, {5, 5}}, false);
  EXPECT_EQ(own->changes, 1);
  first.reset();
  second.reset();  // leaving with passes queued must not hang
  otherMap->setRegion({{2, 2}, {5, 5}}, false);
  EXPECT_EQ(own->changes, 2);
}

// Whether the engine should show an annotation: inside the grid rectangle
// of the current map, in the projection's own terms, and within the tree.
bool expectedOnMap(const MapView& map, const GeoMapClusterController& controller, LocationCoordinate2D c) {
  if (std::abs(c.latitude) > 85) return false;
  double cell = cellMapSizeForCellSize(controller.cellSize(), map);
  MapRect grid = gridMapRectForMapRect(map.visibleMapRect(), cell, controller.marginFactor());
  if (grid.isNull()) return false;
  double top = CoordinateForMapPoint({0, std::max(grid.minY(), 0.0)}).latitude;
  double bottom = CoordinateForMapPoint({0, std::min(grid.maxY(), kMapWorldWidth)}).latitude;
  if (grid.minY() > 0 && !(c.latitude <= top)) return false;
  if (grid.maxY() < kMapWorldWidth && !(c.latitude > bottom)) return false;
  if (grid.size.width >= kMapWorldWidth - cell / 2) return true;
  double x = MapPointForCoordinate(c).x;
  for (double shifted : {x, x + kMapWorldWidth, x - kMapWorldWidth}) {
    if (shifted >= grid.minX() && shifted < grid.maxX()) return true;
  }
  return false;
}

TEST_F(GeoMapClusterControllerTest, EveryAnnotationInTheGridIsInExactlyOnePinThroughRandomChanges) {
  // The centre of mass takes whole cells from the tree's totals; the near
  // centre clusterer lists every member. Both must agree on who is shown.
  auto nearCenter = std::make_shared<GeoNearCenterMapClusterer>();
  for (std::uint64_t seed : {20261122u, 7u, 11u}) {
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    controller->setClusterer(seed == 7u ? std::shared_ptr<GeoMapClusterer>(nearCenter) : nullptr);
    std::uniform_real_distribution<double> unit(0, 1);
    std::vector<MapAnnotationPtr> present;
    auto randomPin = [&] {
      double roll = unit(random);
      if (roll < 0.3 && !present.empty()) {
        // Another record at a place already used.
        return pin(present[random() % present.size()]->coordinate().latitude,
                   present[random() % present.size()]->coordinate().longitude);
      }
      if (roll < 0.8) return pin(40 + unit(random) * 20, -10 + unit(random) * 40);  // a dense continent
      return pin(-89 + unit(random) * 178, -180 + unit(random) * 360);
    };
    for (int step = 0; step < 120; ++step) {
      // Several changes may pile up before the map settles, so that passes
      // are cancelled and tree updates queue behind each other.
      int changes = 1 + static_cast<int>(random() % 3);
      for (int change = 0; change < changes; ++change) {
        double roll = unit(random);
        if (roll < 0.35) {
          MapAnnotationList batch;
          int count = 1 + static_cast<int>(random() % 40);
          for (int i = 0; i < count; ++i) batch.push_back(randomPin());
          present.insert(present.end(), batch.begin(), batch.end());
          controller->addAnnotations(batch);
        } else if (roll < 0.55 && !present.empty()) {
          std::shuffle(present.begin(), present.end(), random);
          std::size_t count = std::min<std::size_t>(present.size(), 1 + random() % 20);
          MapAnnotationList gone(present.end() - static_cast<long>(count), present.end());
          present.resize(present.size() - count);
          controller->removeAnnotations(gone);
        } else if (roll < 0.8) {
          double span = std::pow(10, -1.5 + unit(random) * 4);  // from streets to the world
          map->setRegion({{40 + unit(random) * 20, -180 + unit(random) * 360}, {span, span}}, false);
        } else if (roll < 0.9) {
          auto center = map->centerCoordinate();
          double span = map->region().span.longitudeDelta;
          map->setCenterCoordinate({std::clamp(center.latitude + (unit(random) - 0.5) * span, -80.0, 80.0),
                                    center.longitude + (unit(random) - 0.5) * span},
                                   false);
        } else {
          controller->setMinUniqueLocationsForClustering(random() % 5);
          controller->setMarginFactor(unit(random) < 0.5 ? 0.0 : 0.5);
          controller->setCellSize(unit(random) < 0.5 ? 60 : 180);
          controller->setMaxZoomLevelForClustering(unit(random) < 0.7 ? 30 : 8);
          controller->updateAnnotationsWithCompletionHandler(nullptr);
        }
      }
      settle();

      ASSERT_EQ(controller->annotationCount(), present.size());
      std::unordered_map<const MapAnnotation*, int> pinsHolding;
      for (const auto& cluster : pins()) {
        ASSERT_TRUE(cluster->belongsTo(controller));
        ASSERT_FALSE(cluster->annotations()->empty()) << "an empty pin stayed on the map";
        for (const auto& member : *cluster->annotations()) ++pinsHolding[member.get()];
      }
      for (const auto& annotation : present) {
        int expected = expectedOnMap(*map, *controller, annotation->coordinate()) ? 1 : 0;
        ASSERT_EQ(pinsHolding[annotation.get()], expected)
            << "step " << step << " at " << annotation->coordinate().latitude << ","
            << annotation->coordinate().longitude;
        pinsHolding.erase(annotation.get());
      }
      for (const auto& [member, count] : pinsHolding)
        ASSERT_EQ(count, 0) << "a removed annotation is still shown";
    }
    controller->removeAnnotations(controller->annotations());
    settle();
    ASSERT_TRUE(pins().empty());
  }
}

}  // namespace
}  // namespace lumeo
