// The place chooser of the record editor: a map that starts at the user's
// position, a search for places that runs when the user submits it (never
// on each keystroke), a list of results that moves the map, and "Done",
// which reports the map's centre — the centre, not a pin, is what the user
// chooses. Main thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "map/map_view.h"
#include "map/place_search.h"
#include "platform/dispatch_queue.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class MoodLocationViewControllerDelegate {
 public:
  virtual ~MoodLocationViewControllerDelegate() = default;
  // The chosen place (so spelled: "longtitude").
  virtual void didMoodLocationViewControllerLocationChanged(double latitude, double longtitude) = 0;
};

// The list and the messages around the map, as the GUI shows them.
class MoodLocationView {
 public:
  virtual ~MoodLocationView() = default;
  virtual void reloadResults() {}
  virtual void setResultsHidden(bool /*hidden*/) {}
  // A search that failed: why, in the user's words.
  virtual void showSearchError(const std::string& /*message*/) {}
};

class MoodLocationViewController : public MoodViewController {
 public:
  static constexpr double kShowOwnLocationDelay = 1.5;
  static constexpr double kShowOwnLocationRetry = 1.0;
  static constexpr double kMapVisibleSquare = 20000.0;

  static std::shared_ptr<MoodLocationViewController> create(std::shared_ptr<MapView> mapView,
                                                            std::shared_ptr<PlaceSearch> placeSearch);
  MoodLocationViewController(std::shared_ptr<MapView> mapView, std::shared_ptr<PlaceSearch> placeSearch);
  ~MoodLocationViewController() override;

  void setDelegate(std::weak_ptr<MoodLocationViewControllerDelegate> delegate) {
    delegate_ = std::move(delegate);
  }
  void setView(std::shared_ptr<MoodLocationView> view) { view_ = std::move(view); }

  // Starts location updates and centres on the user 1.5 s later (then
  // every second until a position is known).
  void viewDidLoad();
  // Opening on a place the record already has: no centring on the user.
  void showPlace(LocationCoordinate2D coordinate);
  void showOwnLocation();

  static std::string searchPlaceholder();
  static std::vector<std::string> mapTypeTitles();

  // Typing only keeps the text; the search runs on submit.
  void searchTextChanged(const std::string& text) { searchText_ = text; }
  const std::string& searchText() const { return searchText_; }
  void searchButtonClicked();
  bool isSearching() const { return searching_; }
  const std::vector<Place>& results() const { return results_; }
  // A row chosen: the list closes and the map moves there, keeping its zoom.
  void selectResult(std::size_t index);

  // Reports the map's centre to the delegate and stops location updates.
  void done();

 private:
  std::shared_ptr<MoodLocationViewController> self();

  std::shared_ptr<MapView> mapView_;
  std::shared_ptr<PlaceSearch> placeSearch_;
  std::weak_ptr<MoodLocationViewControllerDelegate> delegate_;
  std::shared_ptr<MoodLocationView> view_;
  std::string searchText_;
  std::vector<Place> results_;
  bool searching_ = false;
  std::uint64_t searchGeneration_ = 0;
  DelayedCall ownLocationCall_;
};

}  // namespace lumeo
