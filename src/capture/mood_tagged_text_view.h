// A saved comment as the history and the gallery show it: the text typeset
// once into a picture, each hashtag a coloured lozenge that can be tapped,
// a value tag's number and unit in a second colour. What counts here is the
// line breaking, which keeps a tag whole on one line when it fits, the
// truncation of the last allowed line with "...", and the tap targets of
// the tags on screen. Text layout runs on pango, drawing through Canvas.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/canvas.h"
#include "platform/color.h"

namespace lumeo {

// The attribute that marks a token: its whole range, the tag's name.
inline constexpr char kTaggedTextViewTagAttributeName[] = "TaggedTextViewTagAttributeName";

// Colours and spacing of a token.
inline constexpr Color kTaggedTextNameColor = Color(170 / 255.0, 48 / 255.0, 0.0);
inline constexpr Color kTaggedTextValueColor = Color(1.0, 112 / 255.0, 2 / 255.0);
inline constexpr double kTaggedTextHashLetterSpacing = 5.0;
inline constexpr double kTaggedTextLastLetterSpacing = 3.0;
inline constexpr double kTaggedTextFontSize = 16.0;
// A token narrower than this has no room for a lozenge and gets no button.
inline constexpr double kTaggedTextButtonEnds = 10.0;

// One attributed range of the text, byte offsets.
struct TaggedTextRun {
  std::size_t location = 0;
  std::size_t length = 0;
  std::optional<Color> color;  // none: the colour underneath stays
  double letterSpacing = 0;    // points after each character
};

// One token: "#name" or "#name:value", byte offsets of the whole token.
struct TaggedTextTag {
  std::size_t location = 0;
  std::size_t length = 0;
  std::string name;  // without "#", value or unit
  std::size_t end() const { return location + length; }
};

// The comment with its attributes: plain text in the text colour and the
// system font at 16 points; runs on top of it in text order.
struct TaggedAttributedText {
  std::string text;  // valid UTF-8 (invalid bytes became U+FFFD)
  Color textColor;
  double fontSize = kTaggedTextFontSize;
  std::vector<TaggedTextRun> runs;
  std::vector<TaggedTextTag> tags;  // by location

  // The token covering the byte at `offset`, if any.
  const TaggedTextTag* tagAt(std::size_t offset) const;
};

// attributeTaggedText: the display pattern's tokens get a transparent "#"
// spaced 5 points, the name in red 170, green 48, blue 0, number and unit
// (when a digit follows the colon) in red 255, green 112, blue 2, and 3
// points after the token's last character.
TaggedAttributedText attributeTaggedText(const std::string& text, const Color& textColor);

// A tap target over a tag on screen.
struct TaggedTextButton {
  Rect frame;  // in the view's points
  long index = -1;
  bool highlighted = false;
};

// One typeset line.
struct TaggedTextLine {
  std::size_t location = 0;  // in the text
  std::size_t length = 0;
  bool truncated = false;  // ends in "..."
  double y = 0;            // top, in points
  double height = 0;
  double width = 0;  // drawn width
  double availableWidth = 0;
};

class MoodTaggedTextView {
 public:
  MoodTaggedTextView();
  ~MoodTaggedTextView();
  MoodTaggedTextView(const MoodTaggedTextView&) = delete;
  MoodTaggedTextView& operator=(const MoodTaggedTextView&) = delete;

  // Gets the tag's name (without "#", value or unit) of a pressed button.
  void setDelegate(std::function<void(const std::string& tagName)> didSelectTag) {
    didSelectTag_ = std::move(didSelectTag);
  }

  void setTaggedText(const std::string& text);
  const std::string& taggedText() const { return attributed_.text; }
  void setMaxLinesCount(long count);
  long maxLinesCount() const { return maxLinesCount_; }
  void setShortLinesCount(long count);
  long shortLinesCount() const { return shortLinesCount_; }
  void setShortLinesIndent(double indent);
  double shortLinesIndent() const { return shortLinesIndent_; }
  void setTextColor(const Color& color);
  // The view's size in points; the height only clips drawing.
  void setBounds(Size bounds);
  Size bounds() const { return bounds_; }
  const TaggedAttributedText& attributedText() const { return attributed_; }

  // Lays the text out at the bounds' width: lines, buttons, height.
  void layoutSubviews();
  const std::vector<TaggedTextLine>& lines() const { return lines_; }
  // The laid-out text's height (a scroll view's content height).
  double textHeight() const { return textHeight_; }

  // Tags of the buttons, by button index, and the buttons.
  const std::vector<std::string>& visibleTags() const { return visibleTags_; }
  const std::vector<TaggedTextButton>& visibleButtons() const { return visibleButtons_; }
  std::size_t reusableButtonCount() const { return reusableButtons_.size(); }
  // A button's index to the delegate; out of range does nothing.
  void tagButtonPressed(long index);
  // A tap at a point of the view: the tag under it, also to the delegate.
  std::optional<std::string> tagAtPoint(Point point);
  void removeVisibleTags();

  // Draws lozenges, then the text, with the view's top left at `origin`.
  void drawInCanvas(Canvas& canvas, Point origin = {}) const;
  // The text alone as a picture at `scale` pixels a point, transparent
  // where nothing is drawn, the bounds' width and the text's height.
  Canvas renderImage(double scale) const;

 private:
  struct Engine;
  void addButtonForTag(const std::string& name, const Rect& frame);

  std::function<void(const std::string&)> didSelectTag_;
  TaggedAttributedText attributed_;
  long maxLinesCount_ = 100;
  long shortLinesCount_ = 0;
  double shortLinesIndent_ = 0;
  Size bounds_{320, 0};
  std::vector<TaggedTextLine> lines_;
  double textHeight_ = 0;
  std::vector<std::string> visibleTags_;
  std::vector<TaggedTextButton> visibleButtons_;
  std::vector<TaggedTextButton> reusableButtons_;
};

}  // namespace lumeo
