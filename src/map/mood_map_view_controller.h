// The Map tab's logic: located records as clustered pins, each pin a pie of
// its moods (or a circle of their average), with a date and a tag filter,
// tapping a pin to centre or fit it, and the user's own position. The view
// (the GUI's map, or a headless map on the command line) is a MapView; the
// controls around it are a MoodMapView. Main thread only.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "map/geo_map_cluster_controller.h"
#include "map/map_data_reader.h"
#include "map/mood_circle_view.h"
#include "platform/dispatch_queue.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class JournalStore;

// The clustering settings of the Map tab. These defaults, not the engine's
// own, apply here: big cells (180 points), no margin, clustering up to zoom
// 30, and a cell with fewer than three distinct places shows each place.
struct MapSettings {
  bool debuggingEnabled = false;
  bool groupingEnabled = false;
  int dataSet = 0;
  // 0 the members' centre of mass, 1 the member nearest the cell's centre,
  // anything else keeps the clusterer in use.
  int clusterer = 0;
  // 0 fades pins in and out.
  int animator = 0;
  double cellSize = 180.0;
  double marginFactor = 0.0;
  double maxZoomLevelForClustering = 30.0;
  std::size_t minUniqueLocationsForClustering = 3;
};

// The pin view of a cluster: what MoodCircleView needs to draw it.
class MapClusterAnnotationView : public AnnotationView {
 public:
  static constexpr const char* kReuseIdentifier = "clusterAnnotation";
  explicit MapClusterAnnotationView(MapAnnotationPtr annotation)
      : AnnotationView(std::move(annotation), kReuseIdentifier) {
    setCanShowCallout(false);
  }
  bool uniqueLocation = false;
  std::vector<long> moodArray;
  std::size_t count = 0;
  bool averageDrawing = false;

  MoodCircleView circleView() const {
    MoodCircleView view;
    view.moodArray = moodArray;
    view.count = count;
    view.averageCircle = averageDrawing;
    return view;
  }
};

// The controls around the map that the controller updates. Every call has
// a default that does nothing.
class MoodMapView {
 public:
  virtual ~MoodMapView() = default;
  // Both filter dates in the long style, or empty texts when cleared.
  virtual void setFilterDateTexts(const std::string& /*start*/, const std::string& /*end*/) {}
  // The chosen tags as one line, empty when none.
  virtual void setTagFilterText(const std::string& /*text*/) {}
  // "pieChart" or "averageCircle".
  virtual void setModeButtonImage(const std::string& /*imageName*/) {}
  // 0 "Standart", 1 "Satellite", 2 "Hybrid".
  virtual void setMapType(int /*type*/) {}
};

class MoodMapViewController : public MoodViewController,
                              public MapDataReaderDelegate,
                              public GeoMapClusterControllerDelegate,
                              public MapViewDelegate {
 public:
  // Half the side of the square shown around the user's own position, in
  // metres each way.
  static constexpr double kMapVisibleSquare = 20000.0;
  static constexpr double kShowOwnLocationDelay = 1.5;
  static constexpr double kShowOwnLocationRetry = 1.0;
  static constexpr const char* kUserLocationReuseIdentifier = "userLocation";
  static constexpr const char* kUserLocationImage = "myLocation";

  // The store must outlive the controller.
  static std::shared_ptr<MoodMapViewController> create(JournalStore& store, std::shared_ptr<MapView> mapView);
  MoodMapViewController(JournalStore& store, std::shared_ptr<MapView> mapView);  // use create()
  ~MoodMapViewController() override;

  void setView(std::shared_ptr<MoodMapView> view) { view_ = std::move(view); }
  // Off, the screen never centres on the user's position by itself (the
  // command line shows what it is asked to show).
  void setFollowsOwnLocation(bool follows) { followsOwnLocation_ = follows; }

  // Builds the cluster controller and starts reading; centres on the user's
  // position 1.5 seconds later.
  void viewDidLoad();

  // --- Data -----------------------------------------------------------
  // Gives the reader the filters and rebuilds with the screen's settings.
  void refreshMap();
  // Applies the settings to the clustering and reads all pins again.
  void updateWithSettings(const MapSettings& settings);
  void resetFilter();
  // The members' levels of a pin in ascending order.
  static std::vector<long> moodsArrayForClusterAnnotation(const GeoMapClusterAnnotation& annotation);
  // The records read and not left out, over all batches so far.
  const MoodMapPointAnnotationList& allAnnotations() const { return allAnnotations_; }
  // Reading done and every pass shown: what the map shows is complete.
  bool isSettled() const;
  MapDataReader& dataReader() { return *reader_; }
  GeoMapClusterController& clusterController() { return *clusterController_; }
  // The cluster pins on the map now.
  std::vector<GeoMapClusterAnnotationPtr> clusterAnnotations() const;
  const MapSettings& settings() const { return settings_; }

  // --- Pins -------------------------------------------------------------
  // "1 annotation", "3 annotations".
  static std::string titleForCount(std::size_t count);
  // The first five members' titles (their levels), joined by ", ".
  static std::string subtitleForAnnotation(const GeoMapClusterAnnotation& annotation);
  // A tap on a pin: one place centres on it keeping the zoom; several
  // places fit all members on screen. The pin is deselected either way.
  void didSelectClusterAnnotation(const GeoMapClusterAnnotationPtr& annotation);

  // --- Own location -------------------------------------------------------
  // Centres on the user's position if one is known, else tries again in a
  // second.
  void showOwnLocation();
  // The location button: recentres on the known position, keeping the zoom.
  void showLocationClicked();

  // --- Filters -----------------------------------------------------------
  static std::vector<std::string> mapTypeTitles();
  void mapTypeSelected(int type);
  std::optional<Date> startFilterDate() const { return startFilterDate_; }
  std::optional<Date> endFilterDate() const { return endFilterDate_; }
  // The date filter's choice; refreshes.
  void setFilterDates(std::optional<Date> start, std::optional<Date> end);
  const std::vector<std::string>& selectedTags() const { return selectedTags_; }
  // The tag chooser's answer: names sorted, shown as one line; refreshes.
  void selectionCompleatedWithSet(const std::set<std::string>& tagNames);
  // The line shown for chosen tags: " a, b, c".
  static std::string tagFilterText(const std::vector<std::string>& sortedNames);
  bool averageDrawing() const { return averageDrawing_; }
  // Toggles pies and average circles; refreshes.
  void changeModeButtonClicked();

  // --- Delegate calls -----------------------------------------------------
  void dataReaderAddAnnotations(MapDataReader& reader,
                                const MoodMapPointAnnotationList& annotations) override;
  std::optional<std::string> titleForMapClusterAnnotation(GeoMapClusterController& controller,
                                                          const GeoMapClusterAnnotation& annotation) override;
  std::optional<std::string> subtitleForMapClusterAnnotation(
      GeoMapClusterController& controller, const GeoMapClusterAnnotation& annotation) override;
  void willReuseMapClusterAnnotation(GeoMapClusterController& controller,
                                     GeoMapClusterAnnotation& annotation) override;
  AnnotationViewPtr viewForAnnotation(MapView& mapView, const MapAnnotationPtr& annotation) override;
  void didSelectAnnotationView(MapView& mapView, const AnnotationViewPtr& view) override;

 private:
  std::shared_ptr<MoodMapViewController> self();
  void configure(MapClusterAnnotationView& view, const GeoMapClusterAnnotation& annotation) const;
  void scheduleOwnLocation(double delay);

  JournalStore& store_;
  std::shared_ptr<MapView> mapView_;
  std::shared_ptr<MoodMapView> view_;
  std::shared_ptr<MapDataReader> reader_;
  std::shared_ptr<GeoMapClusterController> clusterController_;
  std::shared_ptr<GeoMapViewDelegateProxy> delegateProxy_;
  std::shared_ptr<GeoMapClusterer> clusterer_;
  std::shared_ptr<GeoMapAnimator> animator_;
  MapSettings settings_;
  MoodMapPointAnnotationList allAnnotations_;

  std::optional<Date> startFilterDate_;
  std::optional<Date> endFilterDate_;
  std::vector<std::string> selectedTags_;
  bool averageDrawing_ = false;
  bool tagSelecting_ = false;
  bool followsOwnLocation_ = true;
  DelayedCall ownLocationCall_;
  ScopedObserver backupLoaded_;
};

}  // namespace lumeo
