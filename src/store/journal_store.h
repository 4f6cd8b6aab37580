// The journal's store stack: the model, the coordinator on "Model.sqlite" in
// the library directory and the one main context through which the whole
// application reads and writes; `saveContext`, which doubles as the signal
// that everything must refresh; and every fetch the application makes of
// the journal, each named after what asks for it.
//
// Failures are silent by design: a store that cannot be opened leaves a
// coordinator without a store, and every fetch then returns nothing; a save
// that fails leaves the objects changed in the context. Callers that must
// tell the user (the command line) ask storeOpenError() and lastSaveError().
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "objectgraph/fetch_request.h"
#include "platform/date.h"
#include "platform/error.h"
#include "platform/notification_center.h"

namespace lumeo {

class ManagedObjectContext;
class ManagedObjectModel;
class PersistentStoreCoordinator;
class UserDefaults;
class MoodRecord;
class MoodDescription;
class MoodTag;

inline constexpr const char* kJournalStoreFileName = "Model.sqlite";

// Error domain of the journal store's own checks.
inline constexpr const char* kJournalStoreErrorDomain = "LumeoJournalStoreErrorDomain";
// The file under the store's name is not an SQLite database; it is not opened.
inline constexpr long kJournalStoreNotADatabase = 1;

class JournalStore {
 public:
  struct Locations {
    std::filesystem::path libraryDirectory;
    // Where stores of older builds were kept; moved from there once.
    std::filesystem::path documentsDirectory;
  };
  using ContextHandler = std::function<void(const std::shared_ptr<ManagedObjectContext>&)>;

  JournalStore(Locations locations, std::shared_ptr<UserDefaults> defaults);
  ~JournalStore();
  JournalStore(const JournalStore&) = delete;
  JournalStore& operator=(const JournalStore&) = delete;

  std::shared_ptr<ManagedObjectModel> managedObjectModel();
  std::filesystem::path storeURL() const;
  // Created once; moves an old store from the documents directory, opens (and
  // migrates) the file and posts MoodStopMigrationNotification either way.
  std::shared_ptr<PersistentStoreCoordinator> persistentStoreCoordinator();
  // The main context; made on first use (or after applicationDropLinks) and
  // handed to the context handler, which the application object uses to
  // connect sync.
  std::shared_ptr<ManagedObjectContext> managedObjectContext();
  void setContextCreatedHandler(ContextHandler handler) { contextCreated_ = std::move(handler); }

  // Saves the main context if it has changes (a failure is kept in
  // lastSaveError() and otherwise dropped), then, always, removes the
  // cached PDF's key, synchronises the defaults and posts
  // MoodModelHasChangedNotification.
  void saveContext();
  // Forgets model, coordinator and context; the next access rebuilds them.
  void applicationDropLinks();

  // Why the store file could not be opened, if it could not.
  OptionalError storeOpenError() const { return openError_; }
  OptionalError lastSaveError() const { return saveError_; }
  bool hasStore();

  // --- Objects ---------------------------------------------------------
  // A new record with its description (the capture path: nothing else set).
  std::shared_ptr<MoodRecord> insertRecordWithDescription();
  // Deletes the record and its description (two deletes, no cascade).
  // Marks the record and its description deleted; an error (the store could
  // not read what the delete takes along) leaves both as they were.
  [[nodiscard]] OptionalError deleteRecord(const std::shared_ptr<MoodRecord>& record);
  // The object whose URI or row number this is, if it still exists.
  std::shared_ptr<MoodRecord> recordWithURI(const std::string& uri);
  std::shared_ptr<MoodRecord> recordWithRowNumber(std::int64_t row);

  // --- Lookups --------------------------------------------------------
  // "tagName ==[cd] %@", limit 1: Sleep, SLEEP and sleep are one tag. The
  // name is literal: "*" and "?" are no wildcards (no tag name holds them).
  std::shared_ptr<MoodTag> tagNamed(const std::string& name);
  std::optional<Date> getFirstDate();
  // Calls the block with the first and last record dates, only if there is
  // a record with a date.
  void requestDates(const std::function<void(Date minDate, Date maxDate)>& block);
  // Clears every description's position and saves.
  void removeCoordinates();

  // --- The fetches of the application ---------------------------------
  // Any one record (summary availability). A store that cannot be read
  // answers false.
  bool hasAnyRecord();
  // True only when the store file is open and a read of it found no record:
  // the first-start test, which must never take a journal that could not be
  // opened or read for an empty one.
  bool isKnownEmpty();
  std::vector<std::shared_ptr<MoodRecord>> recordsSortedByDate();
  std::vector<std::shared_ptr<MoodRecord>> allRecords();
  // Inclusive range, by date; the form of the predicate differs by caller
  // only in spelling.
  std::vector<std::shared_ptr<MoodRecord>> recordsFrom(Date from, Date to);
  // The date and level of every dated record, oldest first; with bounds,
  // of those in the inclusive range. What charts and averages read: when the
  // context holds no unsaved change the file is read in one query without
  // making objects, else the records are fetched so that the changes count.
  struct DatedLevel {
    Date date;
    long moodLevel = 0;
    friend bool operator==(const DatedLevel&, const DatedLevel&) = default;
  };
  std::vector<DatedLevel> datedLevels(std::optional<Date> from = std::nullopt,
                                      std::optional<Date> to = std::nullopt);
  // The newest `limit` records in the range (limit 0: all), newest first.
  std::vector<std::shared_ptr<MoodRecord>> newestRecordsFrom(Date from, Date to, std::size_t limit);
  std::vector<std::shared_ptr<MoodRecord>> recordsFromWithAnyTag(
      Date from, Date to, const std::vector<std::shared_ptr<MoodTag>>& tags);
  std::vector<std::shared_ptr<MoodRecord>> recordsFromWithTag(Date from, Date to,
                                                              const std::shared_ptr<MoodTag>& tag);
  std::vector<std::shared_ptr<MoodRecord>> recordsWithTag(const std::shared_ptr<MoodTag>& tag);
  // Records with a photo whose level is negative (1..5) or positive (6..10).
  std::vector<std::shared_ptr<MoodRecord>> recordsWithPhoto(bool positive);
  // Located records in the range holding any of the named tags (no names:
  // all located records). Located means both coordinates are numbers and
  // not both -1 (MoodDescription::hasPosition).
  std::vector<std::shared_ptr<MoodRecord>> locatedRecordsFrom(Date from, Date to,
                                                              const std::vector<std::string>& tagNames);
  std::vector<std::shared_ptr<MoodDescription>> allDescriptions();
  // The image file names that descriptions hold (photos and thumbnails),
  // read without making objects: the image store's launch clean-up keeps
  // exactly these.
  std::set<std::string> imageNamesInUse();
  // Descriptions with a place (hasPosition), the ones `removeCoordinates`
  // clears.
  std::vector<std::shared_ptr<MoodDescription>> locatedDescriptions();
  // "tagName ==[cd] %@": every tag of that name up to case and accents.
  std::vector<std::shared_ptr<MoodTag>> tagsNamedLike(const std::string& name);
  // Completion in the editor: names starting with the text, most used
  // first, then by name; at most 100.
  std::vector<std::shared_ptr<MoodTag>> completionTags(const std::string& typed);
  // Completion in template and reminder texts: most used first.
  std::vector<std::shared_ptr<MoodTag>> suggestedTags(const std::string& typed, std::size_t limit);
  std::shared_ptr<MoodTag> tagWithExactName(const std::string& name);
  std::shared_ptr<MoodTag> tagSelf(const std::shared_ptr<MoodTag>& tag);
  // Tag picker of the map: names containing the text (all for ""), by name.
  std::vector<std::shared_ptr<MoodTag>> tagsContaining(const std::string& text);
  std::vector<std::shared_ptr<MoodTag>> usedTags();
  std::vector<std::shared_ptr<MoodTag>> usedTagsFrom(Date from, Date to);
  // All tags, most used first; limit 0 for all (history filter), 15 for the
  // watch.
  std::vector<std::shared_ptr<MoodTag>> tagsByFrequency(std::size_t limit = 0);

  // Runs a fetch on the main context; a failure gives no objects.
  FetchResults executeFetch(const FetchRequest& request);

 private:
  template <class T>
  std::vector<std::shared_ptr<T>> fetchAs(const FetchRequest& request);

  Locations locations_;
  std::shared_ptr<UserDefaults> defaults_;
  std::shared_ptr<ManagedObjectModel> model_;
  std::shared_ptr<PersistentStoreCoordinator> coordinator_;
  std::shared_ptr<ManagedObjectContext> context_;
  ContextHandler contextCreated_;
  OptionalError openError_;
  OptionalError saveError_;
};

}  // namespace lumeo
