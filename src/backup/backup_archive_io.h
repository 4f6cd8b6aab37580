// The pieces that making, verifying and restoring an archive share:
// writing an archive from documents, a store file and the image folder, and
// unpacking a checked archive, all through the file-system seam where the
// journal's own files are concerned.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "backup/zip_archive_scan.h"
#include "platform/error.h"
#include "platform/value.h"

namespace lumeo {

struct ArchiveContents {
  // Member name ("/backup.json") and text, in this order.
  std::vector<std::pair<std::string, std::string>> documents;
  // The store file of an archive that carries it ("/Model.sqlite").
  std::optional<std::filesystem::path> storeFile;
  // Every file directly in it becomes "/imageStore/NAME"; none if absent.
  std::filesystem::path imageFolder;
  bool storeImagesUncompressed = false;
};

// Writes the archive at `path` (which must not exist yet) and flushes it to
// disk. On failure the partial file is removed.
[[nodiscard]] OptionalError writeArchive(const std::filesystem::path& path, const ArchiveContents& contents);

// Renames `from` over `to` through the seam, then flushes the folder
// (a failed flush is no failure: the file is in place).
[[nodiscard]] OptionalError moveIntoPlace(const std::filesystem::path& from, const std::filesystem::path& to);

struct UnpackedArchive {
  std::map<BackupMemberKind, std::string> documents;  // the JSON and XML documents
  std::size_t images = 0;
  bool hasStoreFile = false;
};

// Reads every member of a scanned archive and checks its CRC. With a
// folder, pictures go to folder/imageStore/ and the store file to
// folder/Model.sqlite; without one they are only checked. Errors: the
// archive changed since the scan, a member that does not match its CRC,
// a file that cannot be written (the disk is full), and the zip layer's
// own failures in kMoodDropboxHelperDomain.
std::variant<UnpackedArchive, Error> unpackArchive(const std::filesystem::path& archive,
                                                   const ScannedArchive& scan,
                                                   const std::optional<std::filesystem::path>& folder);

// Whether something is at `path`: false only when the system says there is
// nothing (ENOENT); any other failure of the look-up is an error, never
// taken for absence.
std::variant<bool, Error> presence(const std::filesystem::path& path);

// The level table a backup carries: the user's copy in `library` when there
// is one (a copy that cannot be read is an error: the backup must not
// quietly carry the shipped table instead), else the shipped one.
std::variant<Value::Array, Error> moodTableForBackup(const std::filesystem::path& library,
                                                     const std::filesystem::path& shippedTable);

// A file error as the user reads it ("the disk is full" for ENOSPC).
Error backupWriteError(const std::string& what, const Error& cause);

}  // namespace lumeo
