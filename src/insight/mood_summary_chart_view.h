// The chart card of the summary screen as state: which picture it shows,
// its period button and labels, its information layer and its
// not-enough-data layer, and its background. A front end draws the card
// from this state and forwards the card's two buttons to its delegate.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "insight/mood_draw_chart.h"
#include "platform/canvas.h"
#include "platform/color.h"
#include "platform/image.h"

namespace lumeo {

class MoodSummaryChartView;

class MoodSummaryChartViewDelegate {
 public:
  virtual ~MoodSummaryChartViewDelegate() = default;
  // The tag button: opens the scrollable graph.
  virtual void moodSummaryChartViewClicked(MoodSummaryChartView& view) = 0;
  // The period button: opens the period picker.
  virtual void moodSummaryStartDateClicked(MoodSummaryChartView& view) = 0;
};

// The three cards, in page order.
using MoodSummaryChartKind = ChartKind;

// What the card's background is: the user's three-colour gradient, or the
// shipped picture.
struct MoodSummaryCardBackground {
  bool gradient = false;
  std::vector<Color> colors;  // from, middle, to, when `gradient`
  std::string imageName;      // "moodSummaryGradient" otherwise
};

class MoodSummaryChartView {
 public:
  // Card geometry and look, shared by the front ends.
  static constexpr double kCornerRadius = 4.0;
  static constexpr double kShadowOpacity = 0.4;
  static constexpr double kShadowOffsetY = 2.5;
  static constexpr double kShadowRadius = 2.0;
  static constexpr double kTitleFontSize = 17;
  static constexpr double kTextFontSize = 15;
  static constexpr double kInfoFadeSeconds = 0.2;

  // The title of a summary period (0 "From first record" .. 5 "Last 180
  // days", localised); nothing outside 0..5.
  static std::optional<std::string> summaryType(long chartType);
  // The six period titles in picker order.
  static std::vector<std::string> summaryTypes();

  // The card's information title and text ("Mood Trend", ...), localised.
  static std::string infoTitle(MoodSummaryChartKind kind);
  static std::string infoText(MoodSummaryChartKind kind);

  // The user's gradient when enabled in the settings, else the picture.
  static MoodSummaryCardBackground currentBackground();
  // Paints the background into `rect`: the gradient top to bottom, or, for
  // the picture, the default gradient colours.
  static void drawBackground(Canvas& canvas, const Rect& rect, const MoodSummaryCardBackground& background);

  explicit MoodSummaryChartView(MoodSummaryChartKind kind) : kind_(kind) {}

  MoodSummaryChartKind kind() const { return kind_; }
  void setDelegate(std::weak_ptr<MoodSummaryChartViewDelegate> delegate) { delegate_ = std::move(delegate); }

  // The trend card: frame, picture and the period's title on its button.
  void prepareAllWithFrame(const Rect& frame, std::optional<Image> chartImage, long type);
  // A cycle card: frame, picture and the two range labels (nothing hides a
  // label).
  void prepareAllWithFrame(const Rect& frame, std::optional<Image> chartImage,
                           std::optional<std::string> startDateString,
                           std::optional<std::string> endDateString);

  // Stores the flag, hides the information layer and shows the
  // not-enough-data layer when set.
  void setNotEnoughData(bool notEnoughData);
  bool notEnoughData() const { return notEnoughData_; }
  void setHasTagButton(bool has) { hasTagButton_ = has; }
  bool hasTagButton() const { return hasTagButton_; }

  void showInfo();
  void hideInfo();
  bool infoVisible() const { return infoVisible_; }
  // 1 while the not-enough-data layer shows, 0 otherwise.
  double notEnoughDataAlpha() const { return notEnoughDataAlpha_; }

  // Buttons, forwarded to the delegate.
  void tagButtonClicked();
  void startButtonClicked();

  const Rect& frame() const { return frame_; }
  const std::optional<Image>& chartImage() const { return chartImage_; }
  const std::string& buttonStartTitle() const { return buttonStartTitle_; }
  const std::optional<std::string>& labelStart() const { return labelStart_; }
  const std::optional<std::string>& labelEnd() const { return labelEnd_; }
  std::string infoTitleText() const { return infoTitle(kind_); }
  std::string infoLabelText() const { return infoText(kind_); }

 private:
  MoodSummaryChartKind kind_;
  std::weak_ptr<MoodSummaryChartViewDelegate> delegate_;
  Rect frame_;
  std::optional<Image> chartImage_;
  std::string buttonStartTitle_;
  std::optional<std::string> labelStart_;
  std::optional<std::string> labelEnd_;
  bool notEnoughData_ = false;
  bool hasTagButton_ = false;
  bool infoVisible_ = false;
  double notEnoughDataAlpha_ = 0;
};

}  // namespace lumeo
