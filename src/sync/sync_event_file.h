// Event files: how events and baselines travel between devices. Each file
// holds one or more events with everything they reach (revisions, object
// changes, global identifiers, data file names) and is named after the event
// it carries, so that a device can tell from a directory listing what it
// lacks:
//
//   non-baseline event   <global count>_<store identifier>_<revision>.syncevent
//   baseline             <global count>_<event identifier>_<store prefix>.syncevent
//   baseline, older form <global count>_<event identifier>.syncevent
//
// The store prefix is the first 8 characters of the store identifier, so a
// non-baseline event whose revision number has exactly eight digits reads as
// a baseline; that limit belongs to the naming scheme.
//
// The bytes inside are Lumeo's own event file format (docs/sync-event-file.md):
// versioned, read and written whole, with a checksum, so a truncated or
// damaged file is refused before anything of it reaches the event store.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "objectgraph/predicate.h"
#include "platform/error.h"
#include "platform/value.h"
#include "sync/sync_error.h"

namespace lumeo {

class SyncStoreModificationEvent;

inline constexpr char kSyncEventFileExtension[] = ".syncevent";

// Codes of the sync domain used by event files and transfers.
inline constexpr long kSyncErrorCodeFileWriteFailed = 105;
inline constexpr long kSyncErrorCodeNoSnapshot = 208;

class SyncEventFile {
 public:
  // From an event in the store (on its context's queue).
  explicit SyncEventFile(const SyncStoreModificationEvent& event);
  // From the values directly; `persistentStoreIdentifier` is the full one.
  SyncEventFile(bool baseline, std::int64_t globalCount, std::string uniqueIdentifier,
                std::string persistentStoreIdentifier, std::int64_t revisionNumber);
  // Parses a file name (with or without the extension); nothing when the name
  // is not one of the three forms.
  static std::optional<SyncEventFile> fromFilename(std::string_view filename);

  std::string preferredFilename() const;
  // The names under which the file may already stand in the cloud.
  std::vector<std::string> aliases() const;
  // Finds the event in an event store.
  Predicate eventFetchPredicate() const;

  bool isBaseline() const { return baseline_; }
  const std::optional<std::string>& uniqueIdentifier() const { return uniqueIdentifier_; }
  const std::optional<std::string>& persistentStoreIdentifier() const { return persistentStoreIdentifier_; }
  const std::optional<std::string>& persistentStorePrefix() const { return persistentStorePrefix_; }
  bool eventShouldBeUnique() const { return eventShouldBeUnique_; }
  std::int64_t revisionNumber() const { return revisionNumber_; }
  std::int64_t globalCount() const { return globalCount_; }

 private:
  SyncEventFile() = default;

  bool baseline_ = false;
  std::int64_t globalCount_ = 0;
  std::int64_t revisionNumber_ = -1;
  std::optional<std::string> uniqueIdentifier_;
  std::optional<std::string> persistentStoreIdentifier_;
  std::optional<std::string> persistentStorePrefix_;
  bool eventShouldBeUnique_ = true;
};

// The first 8 characters of a store identifier (all of a shorter one).
std::string syncPersistentStorePrefix(const std::string& persistentStoreIdentifier);

// Orders names by their leading number, ascending; names without one last,
// ties by the whole name.
void syncSortFilenamesByGlobalCount(std::vector<std::string>& filenames);

// --- The rows of an event file ------------------------------------------------

struct SyncEventFileRevision {
  std::string persistentStoreIdentifier;
  std::int64_t revisionNumber = -1;
};

struct SyncEventFileGlobalIdentifier {
  std::string globalIdentifier;
  std::string nameOfEntity;
};

struct SyncEventFileObjectChange {
  std::int16_t type = 0;
  std::string nameOfEntity;
  std::uint32_t globalIdentifierIndex = 0;  // into SyncEventFileContents::globalIdentifiers
  Value propertyChangeValues;               // the archived array, or null
  std::vector<std::string> dataFiles;
};

struct SyncEventFileEvent {
  std::string uniqueIdentifier;
  std::int16_t type = 0;
  std::int64_t globalCount = 0;
  double timestamp = 0;
  std::optional<std::string> modelVersion;
  SyncEventFileRevision eventRevision;
  std::vector<SyncEventFileRevision> eventRevisionsOfOtherStores;
  std::vector<SyncEventFileObjectChange> objectChanges;
};

struct SyncEventFileContents {
  std::vector<SyncEventFileGlobalIdentifier> globalIdentifiers;
  std::vector<SyncEventFileEvent> events;
};

inline constexpr std::uint32_t kSyncEventFileFormatVersion = 1;

// Encodes the rows; the bytes of a whole file.
std::vector<std::uint8_t> syncEncodeEventFile(const SyncEventFileContents& contents);
// Decodes a whole file. Empty, truncated or damaged bytes give code 107, a
// format version newer than this build reads gives 204; `name` goes into the
// message.
SyncResult<SyncEventFileContents> syncDecodeEventFile(const std::uint8_t* bytes, std::size_t size,
                                                      const std::string& name = "event file");
// Writes atomically (temporary name, then rename): 105 on failure.
OptionalError syncWriteEventFile(const std::filesystem::path& path, const SyncEventFileContents& contents);
// One read of the whole file, then decodes it: 107 when it cannot be read.
SyncResult<SyncEventFileContents> syncReadEventFile(const std::filesystem::path& path);

// CRC-32 (the zip and PNG one) of the bytes.
std::uint32_t syncCrc32(const std::uint8_t* bytes, std::size_t size, std::uint32_t crc = 0);

}  // namespace lumeo
