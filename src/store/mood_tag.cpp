// Tag figures, identity and labels.
#include "store/mood_tag.h"

#include <fmt/printf.h>
#include <unicode/unistr.h>

#include "store/mood_record.h"

namespace lumeo {

std::string MoodTag::tagName() const {
  return valueForKey("tagName").toString();
}
void MoodTag::setTagName(const std::string& name) {
  setValueForKey("tagName", Value(name));
}

std::optional<std::string> MoodTag::tagUnit() const {
  Value v = valueForKey("tagUnit");
  if (const std::string* s = v.asString()) return *s;
  return std::nullopt;
}
void MoodTag::setTagUnit(const std::optional<std::string>& unit) {
  setValueForKey("tagUnit", unit ? Value(*unit) : Value());
}

long MoodTag::frequency() const {
  return static_cast<long>(valueForKey("frequency").toInt());
}
void MoodTag::setFrequency(long frequency) {
  setValueForKey("frequency", Value(frequency));
}

std::vector<std::shared_ptr<MoodRecord>> MoodTag::moodRecords() const {
  std::vector<std::shared_ptr<MoodRecord>> records;
  for (const auto& object : objectsForKey("moodRecords")) {
    if (auto record = std::dynamic_pointer_cast<MoodRecord>(object)) records.push_back(std::move(record));
  }
  return records;
}

std::string MoodTag::uniqueIdentifier() const {
  return uniqueIdentifier_ ? *uniqueIdentifier_ : tagName();
}

long MoodTag::cachedLevelSum() {
  if (cachedLevelSum_) return *cachedLevelSum_;
  long sum = 0;
  auto records = moodRecords();
  for (const auto& record : records) sum += record->moodLevel();
  cachedLevelSum_ = sum;
  setFrequency(static_cast<long>(records.size()));
  return sum;
}

double MoodTag::averageMoodLevel() {
  setCachedLevelSum(std::nullopt);
  long sum = cachedLevelSum();
  long count = frequency();
  if (count < 1) return 0;
  return static_cast<double>(sum) / static_cast<double>(count);
}

void MoodTag::willSave() {
  ManagedObject::willSave();
  if (isDeleted()) return;
  // Only on a difference: a write here makes the save call this hook again.
  long count = static_cast<long>(countForKey("moodRecords"));
  if (frequency() != count) setFrequency(count);
}

std::string MoodTag::displayName(const std::string& tagName) {
  icu::UnicodeString name = icu::UnicodeString::fromUTF8(tagName);
  icu::UnicodeString lower(name);
  lower.toLower();
  if (lower != name) return tagName;
  std::string out;
  name.toTitle(nullptr).toUTF8String(out);
  return out;
}

namespace {

AttributedString tagLabel(const std::string& tagName, const std::string& figure, FontWeight nameWeight,
                          double pointSize) {
  AttributedString label;
  auto run = [&](std::string text, FontWeight weight, double kern) {
    TextRun r;
    r.text = std::move(text);
    r.weight = weight;
    r.pointSize = pointSize;
    r.kern = kern;
    label.runs.push_back(std::move(r));
  };
  // The "#" sits a little apart from the name; the gap after the name is
  // wide so that the figure reads as a separate column.
  run("#", FontWeight::kRegular, 1.0);
  run(MoodTag::displayName(tagName), nameWeight, 0);
  run(" ", FontWeight::kRegular, 7.0);
  run(figure, FontWeight::kRegular, 0);
  return label;
}

}  // namespace

AttributedString MoodTag::attributedStringWithFontFize(double pointSize) {
  return tagLabel(tagName(), fmt::sprintf("%.1lf", averageMoodLevel()), FontWeight::kBold, pointSize);
}

AttributedString MoodTag::attributedStringByCountWithFontFize(double pointSize) {
  return tagLabel(tagName(), fmt::sprintf("%ld", frequency()), FontWeight::kRegular, pointSize);
}

}  // namespace lumeo
