// Archive writing and unpacking.
#include "backup/backup_archive_io.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "backup/backup_journal_reader.h"
#include "backup/mood_dropbox_helper.h"
#include "backup/zip_file.h"
#include "capture/mood_levels_presentation.h"
#include "platform/file_system.h"
#include "platform/property_list.h"

namespace lumeo {

namespace {

constexpr std::size_t kChunk = 1 << 20;

Error zipError(const std::filesystem::path& archive, const ZipException& exception) {
  return Error(kMoodDropboxHelperDomain, 0, exception.reason(),
               {{"path", Value(archive.string())},
                {"exception", Value(exception.reason())},
                {"zipError", Value(static_cast<long long>(exception.error()))}});
}

bool isJpeg(const std::string& name) {
  auto dot = name.rfind('.');
  if (dot == std::string::npos) return false;
  std::string ext = name.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return ext == "jpg" || ext == "jpeg";
}

OptionalError syncFile(const std::filesystem::path& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return posixError(errno, "cannot open", path);
  int rc = ::fsync(fd);
  int err = errno;
  ::close(fd);
  if (rc != 0) return posixError(err, "cannot flush", path);
  return std::nullopt;
}

}  // namespace

std::variant<bool, Error> presence(const std::filesystem::path& path) {
  auto status = FileSystem::current()->status(path);
  if (std::holds_alternative<FileStatus>(status)) return true;
  const Error& error = std::get<Error>(status);
  if (error.domain == kPOSIXErrorDomain && error.code == ENOENT) return false;
  return error;
}

std::variant<Value::Array, Error> moodTableForBackup(const std::filesystem::path& library,
                                                     const std::filesystem::path& shippedTable) {
  const auto userTable = library / "mood.plist";
  auto present = presence(userTable);
  if (auto* error = std::get_if<Error>(&present)) return *error;
  if (std::get<bool>(present)) {
    auto table = readPropertyListFile(userTable);
    if (auto* error = std::get_if<Error>(&table)) {
      if (error->domain != kPropertyListErrorDomain) return *error;
    } else if (const auto* array = std::get<Value>(table).asArray()) {
      return *array;
    }
  }
  return moodLevelTable(MoodLevelTableFiles{library, shippedTable});
}

Error backupWriteError(const std::string& what, const Error& cause) {
  std::string reason = cause.description;
  if (cause.domain == kPOSIXErrorDomain && cause.code == ENOSPC) reason = "the disk is full";
  if (cause.userInfo.count("errno") && cause.userInfo.at("errno").toInt() == ENOSPC)
    reason = "the disk is full";
  return Error(kBackupErrorDomain, kBackupWriteFailed, what + ": " + reason, cause.userInfo);
}

OptionalError moveIntoPlace(const std::filesystem::path& from, const std::filesystem::path& to) {
  auto fs = FileSystem::current();
  if (auto error = fs->rename(from, to)) return error;
  // The file is whole and in place; a folder that cannot be flushed only
  // risks the rename itself in a crash, which leaves the old file.
  (void)fs->syncFolder(to.parent_path());
  return std::nullopt;
}

OptionalError writeArchive(const std::filesystem::path& path, const ArchiveContents& contents) {
  auto fs = FileSystem::current();
  std::vector<std::string> images;
  std::variant<bool, Error> hasImages = false;
  if (!contents.imageFolder.empty()) hasImages = presence(contents.imageFolder);
  if (auto* error = std::get_if<Error>(&hasImages)) {
    return backupWriteError("cannot look at the pictures in " + contents.imageFolder.string(), *error);
  }
  if (std::get<bool>(hasImages)) {
    auto listing = fs->listFolder(contents.imageFolder);
    if (auto* error = std::get_if<Error>(&listing)) {
      return backupWriteError("cannot list the pictures in " + contents.imageFolder.string(), *error);
    }
    for (const auto& entry : std::get<std::vector<FolderEntry>>(listing)) {
      if (!entry.isFolder) images.push_back(entry.name);
    }
    std::sort(images.begin(), images.end());
  }
  OptionalError failure;
  try {
    ZipFile zip(path, ZipFileMode::kCreate);
    const Date now = Date::now();
    for (const auto& [name, text] : contents.documents) {
      auto stream = zip.writeFileInZipWithName(name, now, 1);
      stream->writeData(text.data(), text.size());
      stream->finishedWriting();
    }
    if (contents.storeFile && !failure) {
      auto bytes = fs->readFile(*contents.storeFile);
      if (auto* error = std::get_if<Error>(&bytes)) {
        failure = backupWriteError("cannot read the journal " + contents.storeFile->string(), *error);
      } else {
        const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
        auto stream = zip.writeFileInZipWithName("/Model.sqlite", now, 1);
        stream->writeData(data.data(), data.size());
        stream->finishedWriting();
      }
    }
    for (const auto& name : images) {
      if (failure) break;
      const auto file = contents.imageFolder / name;
      auto status = fs->status(file);
      if (auto* error = std::get_if<Error>(&status)) {
        failure = backupWriteError("cannot read the picture " + file.string(), *error);
        break;
      }
      auto bytes = fs->readFile(file);
      if (auto* error = std::get_if<Error>(&bytes)) {
        failure = backupWriteError("cannot read the picture " + file.string(), *error);
        break;
      }
      const Date date = Date::fromTimeIntervalSince1970(std::get<FileStatus>(status).modified);
      const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
      auto stream = zip.writeFileInZipWithName("/imageStore/" + name, date,
                                               contents.storeImagesUncompressed && isJpeg(name) ? 0 : 1);
      stream->writeData(data.data(), data.size());
      stream->finishedWriting();
    }
    zip.close();
  } catch (const ZipException& exception) {
    // minizip reports a full disk as a failed write or close.
    failure = Error(kBackupErrorDomain, kBackupWriteFailed,
                    "cannot write the archive " + path.string() + ": " + exception.reason() +
                        (errno == ENOSPC ? " (the disk is full)" : ""),
                    {{"path", Value(path.string())}});
  }
  // The archive is the journal: private to the user, like the journal.
  if (!failure) {
    if (auto error = fs->setPermissions(path, kPrivateFileMode)) {
      failure = backupWriteError("cannot write the archive " + path.string(), *error);
    }
  }
  if (!failure) {
    if (auto error = syncFile(path))
      failure = backupWriteError("cannot write the archive " + path.string(), *error);
  }
  if (failure) {
    std::error_code ec;
    std::filesystem::remove(path, ec);
  }
  return failure;
}

std::variant<UnpackedArchive, Error> unpackArchive(const std::filesystem::path& archive,
                                                   const ScannedArchive& scan,
                                                   const std::optional<std::filesystem::path>& folder) {
  std::map<std::string, const ScannedMember*> byName;
  for (const auto& member : scan.members) byName.emplace(member.name, &member);
  auto fs = FileSystem::current();
  UnpackedArchive result;
  std::vector<char> buffer(kChunk);
  try {
    ZipFile zip(archive, ZipFileMode::kUnzip);
    if (zip.numFilesInZip() != scan.members.size()) {
      return Error(kBackupErrorDomain, kBackupHostileArchive,
                   archive.filename().string() + " changed while it was read");
    }
    if (scan.members.empty()) return result;
    zip.goToFirstFileInZip();
    do {
      const FileInZipInfo info = zip.getCurrentFileInZipInfo();
      auto it = byName.find(info.name);
      if (it == byName.end() || info.length != it->second->uncompressedSize) {
        return Error(kBackupErrorDomain, kBackupHostileArchive,
                     archive.filename().string() + " changed while it was read");
      }
      const ScannedMember& member = *it->second;
      if (member.kind == BackupMemberKind::kImageFolder) continue;
      const bool toDisk =
          folder && (member.kind == BackupMemberKind::kImage || member.kind == BackupMemberKind::kStoreFile);
      const bool toMemory =
          member.kind != BackupMemberKind::kImage && member.kind != BackupMemberKind::kStoreFile;
      std::unique_ptr<WritableFile> out;
      std::filesystem::path target;
      if (toDisk) {
        target = *folder / member.relativePath;
        auto created = fs->createFile(target, kPrivateFileMode);
        if (auto* error = std::get_if<Error>(&created)) {
          return backupWriteError("cannot unpack " + member.relativePath, *error);
        }
        out = std::move(std::get<std::unique_ptr<WritableFile>>(created));
      }
      std::string text;
      auto stream = zip.readCurrentFileInZip();
      std::uint64_t left = info.length;
      while (left > 0) {
        const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(left, buffer.size()));
        const std::size_t got = stream->readDataWithBuffer(buffer.data(), want);
        if (got == 0) {
          return Error(
              kBackupErrorDomain, kBackupMemberDamaged,
              "member " + member.relativePath + " of " + archive.filename().string() + " is cut short");
        }
        if (out) {
          if (auto error = out->append(buffer.data(), got)) {
            return backupWriteError("cannot unpack " + member.relativePath, *error);
          }
        }
        if (toMemory) text.append(buffer.data(), got);
        left -= got;
      }
      try {
        stream->finishedReading();
      } catch (const ZipException&) {
        return Error(kBackupErrorDomain, kBackupMemberDamaged,
                     "member " + member.relativePath + " of " + archive.filename().string() +
                         " is damaged: its data does not match its checksum");
      }
      if (out) {
        if (auto error = out->sync()) return backupWriteError("cannot unpack " + member.relativePath, *error);
        if (auto error = out->close())
          return backupWriteError("cannot unpack " + member.relativePath, *error);
      }
      if (member.kind == BackupMemberKind::kImage) ++result.images;
      if (member.kind == BackupMemberKind::kStoreFile) result.hasStoreFile = true;
      if (toMemory) result.documents[member.kind] = std::move(text);
    } while (zip.goToNextFileInZip());
    zip.close();
    // The unpacked pictures' names must survive a crash as well as their
    // data: the folder is moved into the journal as it is.
    if (folder) {
      if (auto error = fs->syncFolder(*folder / "imageStore"))
        return backupWriteError("cannot unpack the pictures", *error);
    }
  } catch (const ZipException& exception) {
    return zipError(archive, exception);
  }
  return result;
}

}  // namespace lumeo
