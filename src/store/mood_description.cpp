// Accessors and hooks of a record's description.
#include "store/mood_description.h"

#include <cmath>
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

// A stored coordinate, if it is one: SQLite keeps a NaN as NULL, and a
// row written by hand or by an older build may hold NULL or text.
std::optional<double> storedCoordinate(const Value& v) {
  if (!v.isNumber()) return std::nullopt;
  const double degrees = v.toDouble();
  if (!std::isfinite(degrees)) return std::nullopt;
  return degrees;
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
// A place needs both numbers: when either is missing (NULL in the file,
// NaN in memory) the record has no place, and both read as -1. Reading
// only the missing one as -1 would make (-1, lon) of it, which the CSV
// and the backup then write out as a real half of a place.
double MoodDescription::latitude() const {
  auto latitude = storedCoordinate(valueForKey("latitude"));
  return latitude && storedCoordinate(valueForKey("longitude")) ? *latitude : kNoCoordinate;
}
void MoodDescription::setLatitude(double latitude) {
  setValueForKey("latitude", Value(latitude));
}
double MoodDescription::longitude() const {
  auto longitude = storedCoordinate(valueForKey("longitude"));
  return longitude && storedCoordinate(valueForKey("latitude")) ? *longitude : kNoCoordinate;
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
