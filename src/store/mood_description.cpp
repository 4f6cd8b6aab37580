// Accessors and hooks of a record's description.
#include "store/mood_description.h"

#include <mutex>

#include "store/mood_record.h"

namespace lumeo {

namespace {

std::optional<std::string> optionalString(const Value& v) {
  if (const std::string* s = v.asString()) return *s;
  return std::nullopt;
}
Value fromOptional(const std::optional<std::string>& s) {
  return s ? Value(*s) : Value();
}

std::mutex removerMutex;
MoodDescription::ImageFileRemover& removerSlot() {
  static MoodDescription::ImageFileRemover remover;
  return remover;
}

}  // namespace

void MoodDescription::setImageFileRemover(ImageFileRemover remover) {
  std::lock_guard lock(removerMutex);
  removerSlot() = std::move(remover);
}

std::optional<std::string> MoodDescription::uniqueIdentifier() const {
  return optionalString(valueForKey("uniqueIdentifier"));
}
void MoodDescription::setUniqueIdentifier(const std::optional<std::string>& identifier) {
  setValueForKey("uniqueIdentifier", fromOptional(identifier));
}
std::optional<std::string> MoodDescription::comment() const {
  return optionalString(valueForKey("comment"));
}
void MoodDescription::setComment(const std::optional<std::string>& comment) {
  setValueForKey("comment", fromOptional(comment));
}
std::shared_ptr<MoodRecord> MoodDescription::moodRecord() const {
  return objectForKeyAs<MoodRecord>("moodRecord");
}
void MoodDescription::setMoodRecord(const std::shared_ptr<MoodRecord>& record) {
  setObjectForKey("moodRecord", record);
}
std::optional<std::string> MoodDescription::thumbName() const {
  return optionalString(valueForKey("thumbName"));
}
void MoodDescription::setThumbName(const std::optional<std::string>& name) {
  setValueForKey("thumbName", fromOptional(name));
}
std::optional<std::string> MoodDescription::thumbChecksum() const {
  return optionalString(valueForKey("thumbChecksum"));
}
void MoodDescription::setThumbChecksum(const std::optional<std::string>& checksum) {
  setValueForKey("thumbChecksum", fromOptional(checksum));
}
std::optional<std::string> MoodDescription::photoName() const {
  return optionalString(valueForKey("photoName"));
}
void MoodDescription::setPhotoName(const std::optional<std::string>& name) {
  setValueForKey("photoName", fromOptional(name));
}
std::optional<std::string> MoodDescription::photoChecksum() const {
  return optionalString(valueForKey("photoChecksum"));
}
void MoodDescription::setPhotoChecksum(const std::optional<std::string>& checksum) {
  setValueForKey("photoChecksum", fromOptional(checksum));
}
bool MoodDescription::wasEdited() const {
  return valueForKey("wasEdited").toBool();
}
void MoodDescription::setWasEdited(bool edited) {
  setValueForKey("wasEdited", Value(edited));
}
double MoodDescription::latitude() const {
  return valueForKey("latitude").toDouble(kNoCoordinate);
}
void MoodDescription::setLatitude(double latitude) {
  setValueForKey("latitude", Value(latitude));
}
double MoodDescription::longitude() const {
  return valueForKey("longitude").toDouble(kNoCoordinate);
}
void MoodDescription::setLongitude(double longitude) {
  setValueForKey("longitude", Value(longitude));
}

void MoodDescription::awakeFromInsert() {
  ManagedObject::awakeFromInsert();
  if (!uniqueIdentifier()) setUniqueIdentifier(globallyUniqueString());
}

void MoodDescription::prepareForDeletion() {
  ManagedObject::prepareForDeletion();
  ImageFileRemover remover;
  {
    std::lock_guard lock(removerMutex);
    remover = removerSlot();
  }
  if (!remover) return;
  // Photo first, then thumbnail.
  if (auto photo = photoName()) remover(*photo);
  if (auto thumb = thumbName()) remover(*thumb);
}

}  // namespace lumeo
