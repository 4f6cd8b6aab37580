// The backup archive: making it, checking it and restoring the journal from
// it. In spite of its name the helper has nothing to do with any cloud
// service; the archive is a zip file that `unzip` reads (docs/backup.md has
// the layout).
//
// A restore cannot lose the journal. The archive is checked whole (see
// zip_archive_scan.h) before anything is unpacked; it is unpacked into a
// working folder beside the library folder; the new store is built and
// passes SQLite's integrity check there; the current journal is kept as an
// archive ("before-restore.backup") before anything of it moves; and the
// current store, images and settings are moved aside, not deleted, until
// the restored journal has opened. Any failure puts everything back, so a
// failed restore leaves the journal exactly as it was.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "backup/backup_archive_io.h"
#include "platform/date.h"
#include "platform/date_formatter.h"
#include "platform/error.h"

namespace lumeo {

class JournalStore;
class UserDefaults;
class ZipFile;

// The domain of zip failures that reach a completion (the zip layer's
// ZipException, with the archive's path and the reason in userInfo).
inline constexpr char kMoodDropboxHelperDomain[] = "MoodDropboxHelperDomain";
// The archive that keeps the journal a successful restore replaced, in the
// folder above the library folder, until the next successful restore.
inline constexpr char kBeforeRestoreArchiveName[] = "before-restore.backup";

// Where the helper works and what it works on.
struct BackupEnvironment {
  std::filesystem::path library;           // the journal's folder
  std::filesystem::path temporary;         // where archives are made by default
  std::filesystem::path resources;         // the shipped "emotions.plist"
  JournalStore* store = nullptr;           // the open journal; its links are dropped around a restore
  std::shared_ptr<UserDefaults> defaults;  // nullptr: the standard store
  std::function<void()> reschedule;        // the reminder pass after a restore
  std::string deviceName;
  // Pictures are JPEG already: deflating them gains nothing. Off, as the
  // phone app deflates every member at level 1.
  bool storeImagesUncompressed = false;
};

// What an archive holds, as `backup verify` reports it.
struct BackupContents {
  std::size_t records = 0;
  std::size_t tags = 0;    // distinct names, case and accents not counting
  std::size_t photos = 0;  // records with a photo
  std::size_t images = 0;  // picture files in the archive
  std::size_t members = 0;
  bool oldFormat = false;   // carries the store file instead of the documents
  std::uint64_t bytes = 0;  // uncompressed
};

struct RestoreResult {
  std::size_t records = 0;
  std::size_t images = 0;
  bool oldFormat = false;
  bool journalReplaced = true;  // false: the archive held no record, the journal stayed
  std::filesystem::path beforeRestoreArchive;
};

class MoodDropboxHelper {
 public:
  explicit MoodDropboxHelper(BackupEnvironment environment);

  // The helper of the running application (its library, store and settings).
  static MoodDropboxHelper sharedHelper();
  const BackupEnvironment& environment() const { return environment_; }

  // "ddMMyyyy_HHmm" in the current locale and zone.
  static DateFormatter formatter();
  // "<device>_<ddMMyyyy_HHmm>.backup[1]", every "/" turned into ".".
  std::string archiveName(bool suffix, Date now) const;

  using CreateHandler = std::function<void(std::optional<std::filesystem::path> path, OptionalError error)>;
  // Makes the archive in the temporary folder and hands over its path.
  void createBackup(bool suffix, const CreateHandler& completionHandler);
  // Makes the archive in `folder`. It is written under a hidden name and
  // renamed into place when complete, so a failure never leaves a partial
  // archive where a good one stood.
  std::variant<std::filesystem::path, Error> createBackupInFolder(const std::filesystem::path& folder,
                                                                  bool suffix);
  // The pictures of `directory` (the image store) as members below
  // "/imageStore/". False when a file cannot be read.
  [[nodiscard]] OptionalError addFilesInZip(const std::filesystem::path& directory, ZipFile& zipFile);

  using RestoreHandler = std::function<void(OptionalError error)>;
  // Checks and unpacks the archive, then restores from it
  // (restoreBackupWithCompletionHandler); the handler gets the error or
  // nothing, before the working folder is removed.
  void restoreWithBackupFilePath(const std::filesystem::path& path, const RestoreHandler& completionHandler);
  // The second half: replaces the journal with the unpacked backup. Only
  // meaningful inside restoreWithBackupFilePath; on its own it reports
  // that nothing was unpacked.
  void restoreBackupWithCompletionHandler(const RestoreHandler& completionHandler);
  // Both halves, with the result.
  std::variant<RestoreResult, Error> restore(const std::filesystem::path& path);

  // Opens the archive, checks every member's CRC and parses the documents,
  // without touching the journal.
  static std::variant<BackupContents, Error> verify(const std::filesystem::path& path);

 private:
  // An archive checked and unpacked into the working folder.
  struct UnpackedBackup {
    std::filesystem::path path;
    ScannedArchive scan;
    UnpackedArchive archive;
    std::filesystem::path work;
  };
  std::variant<UnpackedBackup, Error> unpackBackup(const std::filesystem::path& path);
  std::variant<RestoreResult, Error> restoreUnpacked(const UnpackedBackup& unpacked);

  BackupEnvironment environment_;
  std::optional<UnpackedBackup> pending_;
};

}  // namespace lumeo
