// The check that a backup archive passes before anything of it is
// unpacked. It reads the zip's end record, its central directory and every
// member's local header itself (no library trusts the archive on our
// behalf), and refuses, with a message that names the member and the
// reason: a file that is not a zip or is cut short, more members than a
// journal has, names outside the backup's layout (with "..", absolute
// paths, NUL or backslash, duplicates), symbolic links, encrypted members,
// absurd sizes or compression ratios (zip bombs), local headers that
// disagree with the directory, and members that overlap.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/error.h"

namespace lumeo {

// Limits of a backup archive: far above what a journal gives, far below
// what would exhaust the machine.
inline constexpr std::uint64_t kBackupMaxMembers = 100000;
// A single member: the document of a million records is a few hundred MB.
inline constexpr std::uint64_t kBackupMaxMemberSize = 2ull << 30;
inline constexpr std::uint64_t kBackupMaxTotalSize = 16ull << 30;
// Deflate gains at most about 1:1032; a journal's text reaches 1:100 at
// most, pictures 1:1. Above this ratio a large member is taken for a bomb.
inline constexpr std::uint64_t kBackupMaxRatio = 200;
inline constexpr std::uint64_t kBackupRatioCheckFloor = 16ull << 20;

// What a member is in the backup's layout.
enum class BackupMemberKind {
  kJournalDocument,  // backup.json
  kMoodsDocument,    // moods.json
  kRemindersDocument,
  kColorsDocument,
  kEmotionsDocument,
  kImage,        // imageStore/NAME
  kImageFolder,  // imageStore/ (a folder entry some zip tools add)
  kStoreFile,    // Model.sqlite of an old backup
};

struct ScannedMember {
  std::string name;          // as stored
  std::string relativePath;  // below the working folder: "backup.json", "imageStore/x.jpg"
  BackupMemberKind kind = BackupMemberKind::kImage;
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
  std::uint32_t crc32 = 0;
};

struct ScannedArchive {
  std::vector<ScannedMember> members;
  std::uint64_t totalUncompressed = 0;
};

// The member's place in the layout, or nothing when the name is not one of
// a backup: "/backup.json" and "backup.json" are the same member.
std::optional<ScannedMember> backupMemberForName(const std::string& name);

// The archive's members, or an error of kBackupErrorDomain:
// kBackupNotAnArchive (not a zip, empty, cut short) or
// kBackupHostileArchive (everything else above).
std::variant<ScannedArchive, Error> scanBackupArchive(const std::filesystem::path& archive);

}  // namespace lumeo
