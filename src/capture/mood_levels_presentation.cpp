// Reading the level tables and the colour arithmetic of levels.
#include "capture/mood_levels_presentation.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include "capture/shipped_resources.h"
#include "platform/image.h"
#include "platform/property_list.h"

namespace lumeo {

namespace {

std::mutex filesMutex;
MoodLevelTableFiles& filesSlot() {
  static MoodLevelTableFiles files;
  return files;
}

std::optional<Value::Array> arrayOf(const OrError<Value>& result) {
  if (const Value* v = std::get_if<Value>(&result)) {
    if (const Value::Array* a = v->asArray()) return *a;
  }
  return std::nullopt;
}

}  // namespace

std::filesystem::path MoodLevelTableFiles::applicationNewCaptionURL() const {
  if (libraryDirectory.empty()) return {};
  return libraryDirectory / kMoodLevelTableFileName;
}

MoodLevelTableFiles MoodLevelTableFiles::current() {
  std::lock_guard lock(filesMutex);
  return filesSlot();
}

void MoodLevelTableFiles::setCurrent(MoodLevelTableFiles files) {
  std::lock_guard lock(filesMutex);
  filesSlot() = std::move(files);
}

Value::Array shippedMoodLevelTable(const MoodLevelTableFiles& files) {
  if (!files.shippedTable.empty()) {
    if (auto table = arrayOf(readPropertyListFile(files.shippedTable))) return *table;
  }
  return arrayOf(parsePropertyList(shippedMoodTable())).value_or(Value::Array{});
}

Value::Array moodLevelTable(const MoodLevelTableFiles& files) {
  const std::filesystem::path user = files.applicationNewCaptionURL();
  if (!user.empty()) {
    if (auto table = arrayOf(readPropertyListFile(user))) return *table;
  }
  return shippedMoodLevelTable(files);
}

OptionalError writeMoodLevelTable(const MoodLevelTableFiles& files, const Value::Array& table) {
  const std::filesystem::path user = files.applicationNewCaptionURL();
  if (user.empty())
    return Error(kPropertyListErrorDomain, kPropertyListUnsupported, "No library folder is set");
  return writePropertyListFile(user, Value(table));
}

MoodLevelPresentation presentationFromTableEntry(const Value& entry) {
  MoodLevelPresentation p;
  p.text = entry[kMoodLevelTextKey].toString();
  double rgb[3] = {0, 0, 0};
  if (const Value::Array* c = entry[kMoodLevelColorKey].asArray()) {
    for (std::size_t i = 0; i < 3 && i < c->size(); ++i) rgb[i] = (*c)[i].toDouble();
  }
  p.baseColor = Color::fromRGB255(rgb[0], rgb[1], rgb[2]);
  return p;
}

Value tableEntryFromPresentation(const std::string& text, const Color& color) {
  // Stored as reals: an edited colour rarely falls on whole steps.
  return Value(Value::Dictionary{
      {kMoodLevelColorKey,
       Value(Value::Array{Value(color.red * 255), Value(color.green * 255), Value(color.blue * 255)})},
      {kMoodLevelTextKey, Value(text)},
  });
}

MoodLevelsPresentation::MoodLevelsPresentation() : MoodLevelsPresentation(MoodLevelTableFiles::current()) {}

MoodLevelsPresentation::MoodLevelsPresentation(const MoodLevelTableFiles& files)
    : MoodLevelsPresentation(moodLevelTable(files)) {}

MoodLevelsPresentation::MoodLevelsPresentation(const Value::Array& table) {
  levels_.reserve(table.size());
  for (const Value& entry : table) levels_.push_back(presentationFromTableEntry(entry));
}

std::optional<MoodLevelPresentation> MoodLevelsPresentation::presentationForMoodLevel(long level) const {
  if (level > kMoodLevelCount || level < 1) return std::nullopt;
  const auto index = static_cast<std::size_t>(kMoodLevelCount - level);
  if (index >= levels_.size()) return std::nullopt;
  return levels_[index];
}

std::optional<Color> MoodLevelsPresentation::interpolatedColorForMoodLevel(double level) const {
  if (std::isnan(level)) return std::nullopt;
  // Truncated toward zero, then kept within 1..9 so that i + 1 is a level.
  double truncated = std::trunc(std::clamp(level, -1e9, 1e9));
  long i = static_cast<long>(truncated);
  if (i >= 9) i = 9;
  if (i <= 1) i = 1;
  const double t = std::clamp(level - static_cast<double>(i), 0.0, 1.0);
  const auto low = presentationForMoodLevel(i);
  const auto high = presentationForMoodLevel(i + 1);
  if (!low || !high) return std::nullopt;
  const Color& a = low->baseColor;
  const Color& b = high->baseColor;
  return Color((1 - t) * a.red + t * b.red, (1 - t) * a.green + t * b.green, (1 - t) * a.blue + t * b.blue,
               (1 - t) * a.alpha + t * b.alpha);
}

std::optional<std::array<float, 4>> MoodLevelsPresentation::interpolatedRGBForMoodLevel(double level) const {
  const auto c = interpolatedColorForMoodLevel(level);
  if (!c) return std::nullopt;
  return std::array<float, 4>{static_cast<float>(c->red), static_cast<float>(c->green),
                              static_cast<float>(c->blue), static_cast<float>(c->alpha)};
}

}  // namespace lumeo
