// The editor's working copy of a record (level, comment, pictures, edited
// flag) and the one place where it goes back into the journal: applying a
// state rewrites the record's tag links from the comment's hashtags, stores
// the pictures as new files and saves.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/date.h"
#include "platform/error.h"
#include "platform/image.h"

namespace lumeo {

class ImageStore;
class JournalStore;
class LocationHelper;
class MoodRecord;

// What applying a state needs of the application: the journal (its tag
// lookups and saveContext), the image store and the backup reminder's
// counter. fromSharedDelegate() takes all three from the running
// application object.
struct RecordStateServices {
  JournalStore* store = nullptr;
  std::shared_ptr<ImageStore> images;
  std::function<void(long delta)> addToDropboxCounter;

  static RecordStateServices fromSharedDelegate();
};

class MoodRecordState {
 public:
  // The empty state: not existing, nothing set.
  MoodRecordState() = default;
  // The record's values; pictures are read from the image store (a missing
  // file reads as no picture). Takes the shared location helper and starts
  // its updates, so that a position is at hand when one is asked for.
  explicit MoodRecordState(const MoodRecord& record, const ImageStore* images);
  // As above with the shared image store.
  static MoodRecordState initWithStateOfRecord(const MoodRecord& record);

  bool existing = false;
  bool wasEdited = false;
  long moodLevel = 0;
  std::optional<std::string> comment;
  std::optional<Image> thumb;
  std::optional<Image> photo;
  // Read by the editor only; applying never writes the date.
  std::optional<Date> date;
  // The shared helper for a state taken from a record; null otherwise.
  LocationHelper* locationHelper = nullptr;

  // Clears both pictures, only for a state taken from a record.
  void removePhotoAndThumb();

  // Asks the shared location helper for a position for `record`; when it
  // has stamped the record, MoodLocationObtainedNotification is posted with
  // the record as object. The position goes into the description directly
  // and is saved by the next save.
  static void locationHelperStart(const std::shared_ptr<MoodRecord>& record);

  // Writes the state to `record` and saves:
  // - an existing state sets level, edited flag and comment, stores each
  //   picture under a new file name (the old files go; no picture clears
  //   name and checksum) and relinks the record to the comment's tags;
  // - an empty state deletes the record and its description (the cancel of
  //   a new record);
  // - an unedited state counts one more record for the backup reminder;
  // - then saveContext.
  // A picture that cannot be written stops the apply before the save and
  // gives the error; the context keeps the changes made so far (callers that
  // must lose nothing roll back). A null record does nothing.
  OptionalError applyToRecord(const std::shared_ptr<MoodRecord>& record,
                              const RecordStateServices& services) const;
  OptionalError applyToRecord(const std::shared_ptr<MoodRecord>& record) const;

  // The tag part of applying: the record loses all its links and gets one
  // per tag of `comment`, found by name up to case and accents or made new.
  // The spelling just typed becomes the tag's name; a tag without a unit
  // takes the mention's. Does not save.
  static void applyCommentTags(JournalStore& store, const std::shared_ptr<MoodRecord>& record,
                               const std::string& comment);
};

}  // namespace lumeo
