// Accessors and insertion hook of the journal entry.
#include "store/mood_record.h"

#include <cstdio>
#include <mutex>
#include <random>

#include "store/mood_description.h"
#include "store/mood_tag.h"

namespace lumeo {

std::string globallyUniqueString() {
  static std::mutex mutex;
  static std::mt19937_64 generator{std::random_device{}()};
  std::uint64_t hi, lo;
  {
    std::lock_guard lock(mutex);
    hi = generator();
    lo = generator();
  }
  // Version 4, variant 1, as any UUID reader expects.
  hi = (hi & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;
  lo = (lo & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;
  char text[37];
  std::snprintf(text, sizeof text, "%08X-%04X-%04X-%04X-%012llX", static_cast<unsigned>(hi >> 32),
                static_cast<unsigned>((hi >> 16) & 0xFFFF), static_cast<unsigned>(hi & 0xFFFF),
                static_cast<unsigned>(lo >> 48), static_cast<unsigned long long>(lo & 0xFFFFFFFFFFFFull));
  return text;
}

namespace {
std::optional<std::string> optionalString(const Value& v) {
  if (const std::string* s = v.asString()) return *s;
  return std::nullopt;
}
}  // namespace

std::optional<std::string> MoodRecord::uniqueIdentifier() const {
  return optionalString(valueForKey("uniqueIdentifier"));
}

void MoodRecord::setUniqueIdentifier(const std::optional<std::string>& identifier) {
  setValueForKey("uniqueIdentifier", identifier ? Value(*identifier) : Value());
}

std::optional<Date> MoodRecord::date() const {
  Value v = valueForKey("date");
  if (const Date* d = v.asDate()) return *d;
  return std::nullopt;
}

void MoodRecord::setDate(std::optional<Date> date) {
  setValueForKey("date", date ? Value(*date) : Value());
}

long MoodRecord::moodLevel() const {
  return static_cast<long>(valueForKey("moodLevel").toInt());
}

void MoodRecord::setMoodLevel(long level) {
  setValueForKey("moodLevel", Value(level));
}

std::shared_ptr<MoodDescription> MoodRecord::moodDescription() const {
  return objectForKeyAs<MoodDescription>("moodDescription");
}

void MoodRecord::setMoodDescription(const std::shared_ptr<MoodDescription>& description) {
  setObjectForKey("moodDescription", description);
}

std::vector<std::shared_ptr<MoodTag>> MoodRecord::moodTags() const {
  std::vector<std::shared_ptr<MoodTag>> tags;
  for (const auto& object : objectsForKey("moodTags")) {
    if (auto tag = std::dynamic_pointer_cast<MoodTag>(object)) tags.push_back(std::move(tag));
  }
  return tags;
}

void MoodRecord::addMoodTagsObject(const std::shared_ptr<MoodTag>& tag) {
  addObjectForKey("moodTags", tag);
}

void MoodRecord::removeMoodTagsObject(const std::shared_ptr<MoodTag>& tag) {
  removeObjectForKey("moodTags", tag);
}

void MoodRecord::removeMoodTags(const std::vector<std::shared_ptr<MoodTag>>& tags) {
  for (const auto& tag : tags) removeObjectForKey("moodTags", tag);
}

void MoodRecord::awakeFromInsert() {
  ManagedObject::awakeFromInsert();
  if (!uniqueIdentifier()) setUniqueIdentifier(globallyUniqueString());
}

}  // namespace lumeo
