// The ten mood levels as the user sees them: a label and a colour each, read
// from the user's level table or, without one, from the shipped table. All
// charts share the colour of a fractional level defined here. Every instance
// reads the file afresh, so an edit shows at the next use with no cache.
#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/color.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

inline constexpr int kMoodLevelCount = 10;
// Levels up to this one count as negative, the ones above as positive.
inline constexpr int kMoodLastNegativeLevel = 5;

inline constexpr char kMoodLevelTableFileName[] = "mood.plist";
inline constexpr char kMoodLevelColorKey[] = "color1";
inline constexpr char kMoodLevelTextKey[] = "text";

// Where the level tables are. The application sets the library folder at
// start (setCurrent); until then there is no user table. An empty shipped
// path means the table built into the program.
struct MoodLevelTableFiles {
  std::filesystem::path libraryDirectory;
  std::filesystem::path shippedTable;

  // The user's copy: "mood.plist" in the library folder; empty without one.
  std::filesystem::path applicationNewCaptionURL() const;

  static MoodLevelTableFiles current();
  static void setCurrent(MoodLevelTableFiles files);
};

// The shipped table: from the file if one is set and readable, else the
// built-in one. An array of ten dictionaries, level 10 first.
Value::Array shippedMoodLevelTable(const MoodLevelTableFiles& files);
// The table in effect: the user's copy when it exists and is a readable
// list, else the shipped one. A damaged user copy is not used, so the
// labels fall back to the shipped ones instead of vanishing.
Value::Array moodLevelTable(const MoodLevelTableFiles& files);
// Writes a table atomically to the user's copy.
OptionalError writeMoodLevelTable(const MoodLevelTableFiles& files, const Value::Array& table);

// One level's entry: the colour's components go from 0..255 in the file to
// 0..1 here, alpha 1.
struct MoodLevelPresentation {
  std::string text;
  Color baseColor;
  friend bool operator==(const MoodLevelPresentation&, const MoodLevelPresentation&) = default;
};

MoodLevelPresentation presentationFromTableEntry(const Value& entry);
Value tableEntryFromPresentation(const std::string& text, const Color& color);

class MoodLevelsPresentation {
 public:
  // Reads the table in effect from MoodLevelTableFiles::current().
  MoodLevelsPresentation();
  explicit MoodLevelsPresentation(const MoodLevelTableFiles& files);
  explicit MoodLevelsPresentation(const Value::Array& table);

  static MoodLevelsPresentation defaultMoodLevels() { return MoodLevelsPresentation(); }
  static MoodLevelsPresentation colorsMoodLevels() { return MoodLevelsPresentation(); }

  // In file order: element 0 is level 10.
  const std::vector<MoodLevelPresentation>& levels() const { return levels_; }

  // Level 10 is element 0 and level 1 element 9; nothing above 10, at 0 or
  // below, or where the table is too short.
  std::optional<MoodLevelPresentation> presentationForMoodLevel(long level) const;

  // The colour of a fractional level (an average): a linear mix of the two
  // whole levels around it; at or beyond 10 and 1 the end colours. Nothing
  // when the table lacks one of the two levels.
  std::optional<Color> interpolatedColorForMoodLevel(double level) const;
  // The same as red, green, blue, alpha.
  std::optional<std::array<float, 4>> interpolatedRGBForMoodLevel(double level) const;

 private:
  std::vector<MoodLevelPresentation> levels_;
};

}  // namespace lumeo
