// The free-form half of a record: the comment with its hashtags, the photo
// and thumbnail file names with their checksums, and the position. The image
// files belong to the description: deleting it removes them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "objectgraph/managed_object.h"

namespace lumeo {

class MoodRecord;

class MoodDescription : public ManagedObject {
 public:
  // -1 in latitude and longitude means "no position". A coordinate that is
  // missing or not a number (SQLite keeps a NaN as NULL) is no position
  // either, and then both read as -1: a place needs both numbers.
  static constexpr double kNoCoordinate = -1;

  std::optional<std::string> uniqueIdentifier() const;
  void setUniqueIdentifier(const std::optional<std::string>& identifier);
  std::optional<std::string> comment() const;
  void setComment(const std::optional<std::string>& comment);
  std::shared_ptr<MoodRecord> moodRecord() const;
  void setMoodRecord(const std::shared_ptr<MoodRecord>& record);
  std::optional<std::string> thumbName() const;
  void setThumbName(const std::optional<std::string>& name);
  std::optional<std::string> thumbChecksum() const;
  void setThumbChecksum(const std::optional<std::string>& checksum);
  std::optional<std::string> photoName() const;
  void setPhotoName(const std::optional<std::string>& name);
  std::optional<std::string> photoChecksum() const;
  void setPhotoChecksum(const std::optional<std::string>& checksum);
  bool wasEdited() const;
  void setWasEdited(bool edited);
  double latitude() const;
  void setLatitude(double latitude);
  double longitude() const;
  void setLongitude(double longitude);
  bool hasPosition() const { return latitude() != kNoCoordinate && longitude() != kNoCoordinate; }

  // How image files are removed when a description is deleted. The journal
  // store installs the image store's removal at start; tests install their
  // own. Process-wide.
  using ImageFileRemover = std::function<void(const std::string& fileName)>;
  static void setImageFileRemover(ImageFileRemover remover);

  // As for records: a new identity unless one is there already.
  void awakeFromInsert() override;

 protected:
  // The only place where deleting data removes image files; it runs for a
  // sync merge's deletes as well.
  void prepareForDeletion() override;
};

}  // namespace lumeo
