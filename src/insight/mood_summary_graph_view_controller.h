// The landscape graph opened from the trend card: the mood line over a
// range the user pans and pinches, with lines of the numbers in hashtags
// (#sleep:8h) laid over it. The controller loads the records and the tag
// series, keeps the user's choice of series and builds the lines; the
// range logic is GraphScrollableArea, the drawing GraphLine and
// GraphTagLine, and renderGraph puts them together on a canvas.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "capture/mood_third_value.h"
#include "insight/graph_line.h"
#include "insight/graph_scrollable_area.h"
#include "platform/notification_center.h"
#include "shell/mood_view_controller.h"

namespace lumeo {

class JournalStore;
class UserDefaults;

class MoodSummaryGraphViewDelegate {
 public:
  virtual ~MoodSummaryGraphViewDelegate() = default;
  // The lines or the settings changed: draw again.
  virtual void graphNeedsRedraw() = 0;
};

class MoodSummaryGraphViewController : public MoodViewController {
 public:
  static constexpr double kTagRowHeight = 28;
  static constexpr double kTagPanelExtra = 22;
  static constexpr std::size_t kTagPanelVisibleRows = 4;

  MoodSummaryGraphViewController(JournalStore& store, std::shared_ptr<UserDefaults> defaults = nullptr);
  ~MoodSummaryGraphViewController() override;

  void setDelegate(std::weak_ptr<MoodSummaryGraphViewDelegate> delegate) { delegate_ = std::move(delegate); }

  // Fetches the records (oldest first) and the tag series.
  void viewDidLoad();
  void memoryRecords();
  void loadTags();

  const std::vector<GraphDataObject>& records() const { return records_; }
  // Series by "name:unit", and their keys ordered by tag name.
  const std::map<std::string, MoodThirdValue>& completionOptions() const { return completionOptions_; }
  const std::vector<std::string>& orderedKeys() const { return orderedKeys_; }
  // The tag panel: absent (0) without series, else up to four rows tall.
  double tagPanelHeight() const;
  // A row's texts: "8.0 - 9.0 h" and "12".
  std::string rowRangeText(const std::string& key) const;
  std::string rowCountText(const std::string& key) const;

  // The series shown, in the order chosen; their colours go by position.
  const std::vector<std::string>& selectedTags() const { return selectedTags_; }
  // Adds or removes a series; false for a key that is not a series.
  bool toggleTag(const std::string& key);
  void setSelectedTags(std::vector<std::string> keys);

  // The values of one series in every record, in time order.
  std::vector<GraphDataPoint> extractLine(const MoodThirdValue& series) const;
  // The selected series as lines, coloured by position.
  std::vector<GraphTagSeries> tagLines() const;

  bool graphSmoothed() const;
  bool graphIncreaseWidth() const;

  // The graph of [from, to) into a canvas box: the card background, the
  // axis with its grid and labels, the mood line and the tag lines, and a
  // legend of the series.
  void renderGraph(Canvas& canvas, Size size, const GraphScrollableArea& area) const;

 private:
  void graphSmoothChanged();

  JournalStore& store_;
  std::shared_ptr<UserDefaults> defaults_;
  std::weak_ptr<MoodSummaryGraphViewDelegate> delegate_;
  std::vector<GraphDataObject> records_;
  std::vector<std::string> comments_;  // by record, lower case not yet applied
  std::map<std::string, MoodThirdValue> completionOptions_;
  std::vector<std::string> orderedKeys_;
  std::vector<std::string> selectedTags_;
  std::vector<ScopedObserver> observers_;
};

// The two switches of the graph's settings: "Smooth" ("kChartsSmooth") and
// "Increase width" ("kChartsIncreaseWidth"). Each change is stored and
// announced ("MoodGraphSmoothChangedNotification",
// "MoodGraphLineWidthChangedNotification").
class MoodGraphSettingsViewController : public MoodViewController {
 public:
  struct Row {
    std::string key;
    std::string title;
    bool on = false;
  };
  explicit MoodGraphSettingsViewController(std::shared_ptr<UserDefaults> defaults = nullptr);
  std::vector<Row> rows() const;
  // Returns false for an unknown row key.
  bool setSwitch(const std::string& key, bool on);

 private:
  std::shared_ptr<UserDefaults> defaults_;
};

inline constexpr char kChartsSmooth[] = "kChartsSmooth";
inline constexpr char kChartsIncreaseWidth[] = "kChartsIncreaseWidth";

}  // namespace lumeo
