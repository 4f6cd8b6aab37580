#include "record_json.h"

#include <filesystem>

#include "journal_commands.h"
#include "store/image_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo::cli {

namespace {

template <typename T>
nlohmann::json orNull(const std::optional<T>& value) {
  return value ? nlohmann::json(*value) : nlohmann::json(nullptr);
}

nlohmann::json imageFile(const std::shared_ptr<ImageStore>& images, const std::optional<std::string>& name) {
  if (!images || !name || name->empty()) return nullptr;
  auto file = images->imageURLForName(name);
  return file ? nlohmann::json(file->string()) : nlohmann::json(nullptr);
}

}  // namespace

nlohmann::json recordJson(const MoodRecord& record) {
  nlohmann::json j;
  j["id"] = recordID(record);
  j["uri"] = record.objectID().URIRepresentation();
  j["uniqueIdentifier"] = orNull(record.uniqueIdentifier());
  j["date"] = record.date() ? nlohmann::json(isoText(*record.date())) : nlohmann::json(nullptr);
  j["level"] = record.moodLevel();
  auto description = record.moodDescription();
  j["comment"] = description ? orNull(description->comment()) : nlohmann::json(nullptr);
  nlohmann::json tags = nlohmann::json::array();
  for (const auto& tag : record.moodTags()) tags.push_back(tag->tagName());
  j["tags"] = tags;
  const bool located = description && description->hasPosition();
  j["latitude"] = located ? nlohmann::json(description->latitude()) : nlohmann::json(nullptr);
  j["longitude"] = located ? nlohmann::json(description->longitude()) : nlohmann::json(nullptr);
  auto photo = description ? description->photoName() : std::nullopt;
  if (photo && photo->empty()) photo.reset();
  j["photo"] = orNull(photo);
  auto images = ImageStore::shared();
  j["photoFile"] = imageFile(images, photo);
  j["thumbFile"] = description ? imageFile(images, description->thumbName()) : nlohmann::json(nullptr);
  bool missing = false;
  if (photo) {
    std::error_code ec;
    missing = !j["photoFile"].is_string() || !std::filesystem::exists(j["photoFile"].get<std::string>(), ec);
  }
  j["photoMissing"] = missing;
  j["edited"] = description && description->wasEdited();
  return j;
}

}  // namespace lumeo::cli
