// The row of a tag in the editors' offer list: name, unit and how often the
// tag is used, with an edit and a delete button. The count's font shrinks
// as the number grows, so that four digits still fit the round badge.
#pragma once

#include <memory>
#include <string>

namespace lumeo {

class MoodTag;

class MoodTagCellEditDelegate {
 public:
  virtual ~MoodTagCellEditDelegate() = default;
  virtual void tagEdit(const std::shared_ptr<MoodTag>& tag) = 0;
  virtual void tagDelete(const std::shared_ptr<MoodTag>& tag) = 0;
};

inline constexpr char kMoodTagTableViewCellIdentifier[] = "MoodTagTableViewCellIdentifier";

class MoodTagTableViewCell {
 public:
  // The count label's size: 15 points up to 99, 13 from 100, 10 from 1000.
  static double countFontSizeForFrequency(long frequency);

  void setDelegate(std::weak_ptr<MoodTagCellEditDelegate> delegate) { delegate_ = std::move(delegate); }
  void setMoodTag(const std::shared_ptr<MoodTag>& tag);
  void setHideButtons(bool hide) { hideButtons_ = hide; }
  bool hideButtons() const { return hideButtons_; }
  void firstButtonClicked();
  void deleteButtonClicked();

  long index = 0;
  bool isEditState = false;

  // What the row shows.
  const std::string& nameText() const { return name_; }
  const std::string& unitText() const { return unit_; }
  const std::string& frequencyText() const { return frequency_; }
  double countFontSize() const { return countFontSize_; }
  static constexpr const char* kNameFont = "HelveticaNeue";
  static constexpr const char* kCountFont = "HelveticaNeue";
  static constexpr const char* kUnitFont = "HelveticaNeue-Light";

 private:
  std::weak_ptr<MoodTagCellEditDelegate> delegate_;
  std::weak_ptr<MoodTag> moodTag_;
  bool hideButtons_ = false;
  std::string name_, unit_, frequency_;
  double countFontSize_ = 15;
};

}  // namespace lumeo
