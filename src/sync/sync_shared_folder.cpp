// The shared folder: a directory that another program syncs, with the
// robustness that such a folder needs.
#include "sync/sync_shared_folder.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <random>

#include "platform/file_system.h"
#include "platform/log.h"
#include "sync/sync_error.h"
#include "sync/sync_local_cloud_file_system.h"

namespace lumeo {

namespace {

namespace dir = sync_directory;

bool endsWith(const std::string& s, const std::string& suffix) {
  return s.size() >= suffix.size() && s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

bool startsWith(const std::string& s, const std::string& prefix) {
  return s.rfind(prefix, 0) == 0;
}

std::string lowercase(std::string s) {
  for (auto& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

std::string randomIdentity() {
  std::random_device device;
  std::mt19937_64 random((static_cast<std::uint64_t>(device()) << 32) ^ device());
  char text[33];
  std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(random()),
                static_cast<unsigned long long>(random()));
  return text;
}

bool isIdentity(const std::string& text) {
  return text.size() == 32 && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
         });
}

Error folderError(const std::string& message) {
  return syncError(kSyncErrorCodeServerError, message);
}

// Copies every entry of `from` that `to` lacks, depth first; entries that
// exist in both stay as they are in `to`, since names are unique by content.
OptionalError mergeInto(FileSystem& fs, const std::filesystem::path& from, const std::filesystem::path& to) {
  auto entries = fs.listFolder(from);
  if (auto* error = std::get_if<Error>(&entries))
    return dir::fileError(*error, "Cannot list " + from.string());
  for (const auto& entry : std::get<std::vector<FolderEntry>>(entries)) {
    // Our own half-written uploads are no one's data.
    if (startsWith(entry.name, dir::kTemporaryPrefix)) continue;
    auto source = from / entry.name;
    auto target = to / entry.name;
    auto there = dir::exists(fs, target);
    if (auto* error = std::get_if<Error>(&there)) return *error;
    const auto& found = std::get<dir::ExistsResult>(there);
    if (entry.isFolder) {
      if (!found.exists) {
        if (auto error = fs.makeFolder(target, kPrivateFolderMode))
          return dir::fileError(*error, "Cannot create " + target.string());
      } else if (!found.isDirectory) {
        continue;  // a file of that name in the original wins
      }
      if (auto error = mergeInto(fs, source, target)) return error;
    } else if (!found.exists) {
      if (auto error = dir::copyReplacing(fs, source, target, dir::Durability::kDurable)) return error;
    }
  }
  return std::nullopt;
}

// The duplicates that sync clients make of `original` beside it.
std::vector<std::filesystem::path> duplicatesOf(FileSystem& fs, const std::filesystem::path& original) {
  std::vector<std::filesystem::path> found;
  auto parent = original.parent_path();
  auto name = original.filename().string();
  std::vector<std::string> candidates;
  for (int n = 2; n <= 9; ++n) candidates.push_back(name + " " + std::to_string(n));
  for (int n = 1; n <= 9; ++n) candidates.push_back(name + " (" + std::to_string(n) + ")");
  for (const auto& candidate : candidates) {
    auto status = fs.status(parent / candidate);
    if (auto* s = std::get_if<FileStatus>(&status); s && s->isFolder) found.push_back(parent / candidate);
  }
  return found;
}

OptionalError mergeDuplicates(FileSystem& fs, const std::filesystem::path& original,
                              const std::vector<std::filesystem::path>& duplicates) {
  for (const auto& duplicate : duplicates) {
    LUMEO_LOG_VERBOSE("Merging duplicate directory into original: %@", duplicate.string());
    if (auto error = mergeInto(fs, duplicate, original)) return error;
    if (auto error = dir::removeItem(fs, duplicate)) return error;
  }
  return std::nullopt;
}

}  // namespace

SyncSharedFolderFileSystem::SyncSharedFolderFileSystem(std::filesystem::path folder,
                                                       std::optional<std::string> expectedIdentity)
    : SyncSharedFolderFileSystem(std::move(folder), std::move(expectedIdentity), Options()) {}

SyncSharedFolderFileSystem::SyncSharedFolderFileSystem(std::filesystem::path folder,
                                                       std::optional<std::string> expectedIdentity,
                                                       Options options)
    : folder_(std::move(folder)),
      options_(options),
      queue_(DispatchQueue::makeSerial("lumeo.sync.sharedfolder")) {
  if (!expectedIdentity) expectedIdentity = readIdentity(folder_);
  if (expectedIdentity) token_ = tokenForIdentity(*expectedIdentity);
}

SyncSharedFolderFileSystem::~SyncSharedFolderFileSystem() {
  // Waits for the work already queued, whose blocks use this object.
  queue_.reset();
  flushUploadedFolder();
}

void SyncSharedFolderFileSystem::flushUploadedFolder() {
  if (!unflushedFolder_) return;
  // A failed flush only weakens the names' survival of a power cut; every
  // reader sees them already.
  (void)FileSystem::current()->syncFolder(*unflushedFolder_);
  unflushedFolder_.reset();
}

bool SyncSharedFolderFileSystem::isConnected() const {
  std::lock_guard lock(mutex_);
  return connected_;
}

SyncCloudIdentityToken SyncSharedFolderFileSystem::identityToken() const {
  std::lock_guard lock(mutex_);
  return token_;
}

void SyncSharedFolderFileSystem::setToken(SyncCloudIdentityToken token) {
  {
    std::lock_guard lock(mutex_);
    if (token_ == token) return;
    token_ = std::move(token);
  }
  identityTokenDidChange();
}

std::optional<std::string> SyncSharedFolderFileSystem::readIdentity(const std::filesystem::path& folder) {
  auto bytes = FileSystem::current()->readFile(folder / kSyncSharedFolderIdentityFileName);
  if (!std::holds_alternative<std::vector<std::uint8_t>>(bytes)) return std::nullopt;
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  std::string text(data.begin(), data.end());
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  if (!isIdentity(text)) return std::nullopt;
  return text;
}

bool SyncSharedFolderFileSystem::isIgnoredEntry(const std::string& name, bool isDirectory,
                                                std::uint64_t size) {
  if (name.empty() || name[0] == '.') return true;  // hidden: .~ partials, .syncthing.*.tmp, our own
  std::string lower = lowercase(name);
  // Conflict copies: Syncthing, Dropbox and Nextcloud ("(… conflicted copy
  // …)"), ownCloud ("_conflict-").
  if (lower.find(".sync-conflict-") != std::string::npos) return true;
  if (lower.find("conflicted copy") != std::string::npos) return true;
  if (lower.find("_conflict-") != std::string::npos) return true;
  // Temporaries and partial downloads: Syncthing on file systems without
  // hidden names, ownCloud and Nextcloud chunks, browsers' and Drive's
  // downloads, Dropbox's.
  if (startsWith(lower, "~syncthing~")) return true;
  for (const char* suffix : {".part", ".partial", ".tmp", ".crdownload", ".download"}) {
    if (endsWith(lower, suffix)) return true;
  }
  // Placeholders of files that are not downloaded (Nextcloud and ownCloud
  // virtual files).
  if (endsWith(lower, ".nextcloud") || endsWith(lower, ".owncloud")) return true;
  // Lumeo never writes an empty file; an empty one is still arriving.
  return !isDirectory && size == 0;
}

OptionalError SyncSharedFolderFileSystem::checkFolder(bool createIdentity) {
  auto& fs = *FileSystem::current();
  auto status = fs.status(folder_);
  if (auto* error = std::get_if<Error>(&status)) {
    std::lock_guard lock(mutex_);
    connected_ = false;
    return folderError("The shared folder " + folder_.string() +
                       " is not there. Is its drive mounted and its sync client set up? (" +
                       error->description + ")");
  }
  if (!std::get<FileStatus>(status).isFolder) {
    std::lock_guard lock(mutex_);
    connected_ = false;
    return folderError("The shared folder " + folder_.string() + " is a file, not a folder.");
  }
  auto identity = readIdentity(folder_);
  if (!identity && createIdentity) {
    std::string id = randomIdentity();
    auto path = folder_ / kSyncSharedFolderIdentityFileName;
    auto created = fs.createFile(path, kPrivateFileMode);
    if (auto* file = std::get_if<std::unique_ptr<WritableFile>>(&created)) {
      std::string text = id + "\n";
      OptionalError error = (*file)->append(text.data(), text.size());
      if (!error) error = (*file)->sync();
      OptionalError closeError = (*file)->close();
      if (!error) error = closeError;
      if (error) {
        (void)fs.removeFile(path);
        return dir::fileError(*error, "Cannot write the shared folder's identity file");
      }
      (void)fs.syncFolder(folder_);
    } else if (std::get<Error>(created).code == EEXIST) {
      // An unreadable identity file (damaged, or half-arrived from another
      // device) is replaced whole.
      std::vector<std::uint8_t> bytes(id.begin(), id.end());
      bytes.push_back('\n');
      auto temporary = folder_ / dir::temporaryNameFor(kSyncSharedFolderIdentityFileName);
      auto replaced = fs.createFile(temporary, kPrivateFileMode);
      if (auto* error = std::get_if<Error>(&replaced))
        return dir::fileError(*error, "Cannot write the shared folder's identity file");
      auto& file = *std::get<std::unique_ptr<WritableFile>>(replaced);
      OptionalError error = file.append(bytes.data(), bytes.size());
      if (!error) error = file.sync();
      OptionalError closeError = file.close();
      if (!error) error = closeError;
      if (!error) error = fs.rename(temporary, path);
      if (error) {
        (void)fs.removeFile(temporary);
        return dir::fileError(*error, "Cannot write the shared folder's identity file");
      }
    } else {
      return dir::fileError(std::get<Error>(created), "Cannot write the shared folder's identity file");
    }
    identity = readIdentity(folder_);
    if (!identity) identity = id;
  }
  if (!identity) {
    std::lock_guard lock(mutex_);
    if (token_) {
      connected_ = false;
      return folderError("The shared folder " + folder_.string() +
                         " holds no Lumeo identity file (.lumeo-cloud-id): it is not the folder that was "
                         "chosen. Is its drive mounted?");
    }
    connected_ = true;  // a new folder: performInitialPreparation gives it an identity
    return std::nullopt;
  }
  setToken(tokenForIdentity(*identity));
  std::lock_guard lock(mutex_);
  connected_ = true;
  return std::nullopt;
}

OptionalError SyncSharedFolderFileSystem::checkConnected() {
  {
    std::lock_guard lock(mutex_);
    if (!connected_) return syncCloudNotConnectedError();
  }
  // A folder that went away (an unmounted drive) must not look empty.
  auto status = FileSystem::current()->status(folder_);
  if (auto* s = std::get_if<FileStatus>(&status); s && s->isFolder) return std::nullopt;
  if (auto* error = std::get_if<Error>(&status); error && error->code != ENOENT && error->code != ENOTDIR)
    return dir::fileError(*error, "Cannot look at the shared folder");
  std::lock_guard lock(mutex_);
  connected_ = false;
  return folderError("The shared folder " + folder_.string() + " is gone. Is its drive mounted?");
}

template <class Result>
void SyncSharedFolderFileSystem::perform(std::function<Result()> work, std::function<void(Result)> deliver,
                                         std::function<Result(Error)> failure, bool upload) {
  auto delivered = std::make_shared<std::atomic<bool>>(false);
  double timeout = options_.operationTimeout;
  queue_->async(
      [this, work = std::move(work), deliver, failure = std::move(failure), delivered, timeout, upload] {
        // The clock starts when the work does: waiting behind another call is
        // not this call's slowness.
        DelayedCall timer = DispatchQueue::main().after(timeout, [deliver, failure, delivered, timeout] {
          if (delivered->exchange(true)) return;
          char seconds[32];
          std::snprintf(seconds, sizeof seconds, "%g", timeout);
          deliver(failure(
              syncError(kSyncErrorCodeFileCoordinatorTimedOut,
                        std::string("The shared folder did not answer within ") + seconds + " seconds.")));
        });
        // What follows a run of uploads (a removal, a listing) sees their names
        // on disk for good.
        if (!upload) flushUploadedFolder();
        Result result = work();
        DispatchQueue::main().async([deliver, delivered, timer, result = std::move(result)]() mutable {
          if (delivered->exchange(true)) return;
          timer.cancel();
          deliver(std::move(result));
        });
      });
}

void SyncSharedFolderFileSystem::performSimple(std::function<OptionalError()> work,
                                               SyncCloudCompletion completion, bool upload) {
  perform<OptionalError>(
      std::move(work),
      [completion](OptionalError error) {
        if (completion) completion(std::move(error));
      },
      [](Error error) { return OptionalError(std::move(error)); }, upload);
}

void SyncSharedFolderFileSystem::connect(SyncCloudCompletion completion) {
  performSimple([this] { return checkFolder(false); }, std::move(completion));
}

void SyncSharedFolderFileSystem::performInitialPreparation(SyncCloudCompletion completion) {
  performSimple([this] { return checkFolder(true); }, std::move(completion));
}

void SyncSharedFolderFileSystem::fileExistsAtPath(const std::string& path,
                                                  SyncCloudExistsCompletion completion) {
  using Result = std::variant<dir::ExistsResult, Error>;
  perform<Result>(
      [this, path]() -> Result {
        if (auto error = checkConnected()) return *error;
        auto local = dir::localPathFor(folder_, path);
        if (!local) return syncCloudInvalidPathError(path);
        return dir::exists(*FileSystem::current(), *local);
      },
      [completion](Result result) {
        if (auto* error = std::get_if<Error>(&result)) return completion(false, false, *error);
        const auto& found = std::get<dir::ExistsResult>(result);
        completion(found.exists, found.isDirectory, std::nullopt);
      },
      [](Error error) { return Result(std::move(error)); });
}

void SyncSharedFolderFileSystem::createDirectoryAtPath(const std::string& path,
                                                       SyncCloudCompletion completion) {
  performSimple(
      [this, path]() -> OptionalError {
        if (auto error = checkConnected()) return error;
        auto local = dir::localPathFor(folder_, path);
        if (!local) return syncCloudInvalidPathError(path);
        return dir::createDirectory(*FileSystem::current(), *local);
      },
      std::move(completion));
}

void SyncSharedFolderFileSystem::contentsOfDirectoryAtPath(const std::string& path,
                                                           SyncCloudListingCompletion completion) {
  using Result = std::variant<std::vector<SyncCloudItem>, Error>;
  perform<Result>(
      [this, path]() -> Result {
        if (auto error = checkConnected()) return *error;
        auto normalized = syncNormalizedCloudPath(path);
        if (!normalized) return syncCloudInvalidPathError(path);
        auto& fs = *FileSystem::current();
        auto local = *dir::localPathFor(folder_, *normalized);
        auto entries = fs.listFolder(local);
        if (auto* error = std::get_if<Error>(&entries))
          return dir::fileError(*error, "Couldn't create directory enumerator for path: " + path);
        std::vector<SyncCloudItem> contents;
        for (const auto& entry : std::get<std::vector<FolderEntry>>(entries)) {
          if (entry.name.empty() || entry.name[0] == '.') continue;
          std::string itemPath = syncCloudPathAppending(*normalized, entry.name);
          if (entry.isFolder) {
            if (!isIgnoredEntry(entry.name, true, 0))
              contents.emplace_back(SyncCloudDirectory{itemPath, entry.name, {}});
            continue;
          }
          auto status = fs.status(local / entry.name);
          if (std::holds_alternative<Error>(status)) continue;  // gone in the meantime
          std::uint64_t size = std::get<FileStatus>(status).size;
          if (isIgnoredEntry(entry.name, false, size)) continue;
          contents.emplace_back(SyncCloudFile{itemPath, entry.name, size});
        }
        return contents;
      },
      [completion](Result result) {
        if (auto* error = std::get_if<Error>(&result)) return completion({}, *error);
        completion(std::move(std::get<std::vector<SyncCloudItem>>(result)), std::nullopt);
      },
      [](Error error) { return Result(std::move(error)); });
}

void SyncSharedFolderFileSystem::removeItemAtPath(const std::string& path, SyncCloudCompletion completion) {
  performSimple(
      [this, path]() -> OptionalError {
        if (auto error = checkConnected()) return error;
        auto normalized = syncNormalizedCloudPath(path);
        if (!normalized || *normalized == "/") return syncCloudInvalidPathError(path);
        return dir::removeItem(*FileSystem::current(), *dir::localPathFor(folder_, *normalized));
      },
      std::move(completion));
}

void SyncSharedFolderFileSystem::uploadLocalFile(const std::string& localPath, const std::string& toPath,
                                                 SyncCloudCompletion completion) {
  performSimple(
      [this, localPath, toPath]() -> OptionalError {
        if (auto error = checkConnected()) return error;
        auto normalized = syncNormalizedCloudPath(toPath);
        if (!normalized || *normalized == "/") return syncCloudInvalidPathError(toPath);
        auto target = *dir::localPathFor(folder_, *normalized);
        if (unflushedFolder_ != target.parent_path()) flushUploadedFolder();
        // The content is on disk before its name; the folder is flushed once
        // after the run of uploads into it.
        OptionalError error =
            dir::copyReplacing(*FileSystem::current(), localPath, target, dir::Durability::kContent);
        if (!error) unflushedFolder_ = target.parent_path();
        return error;
      },
      std::move(completion), true);
}

void SyncSharedFolderFileSystem::downloadFromPath(const std::string& path, const std::string& toLocalFile,
                                                  SyncCloudCompletion completion) {
  performSimple(
      [this, path, toLocalFile]() -> OptionalError {
        if (auto error = checkConnected()) return error;
        auto source = dir::localPathFor(folder_, path);
        if (!source) return syncCloudInvalidPathError(path);
        // The copy goes into the engine's transit cache: renamed into place
        // but not flushed (see Durability::kScratch).
        return dir::copyReplacing(*FileSystem::current(), *source, toLocalFile, dir::Durability::kScratch);
      },
      std::move(completion));
}

void SyncSharedFolderFileSystem::repairEnsembleDirectory(const std::string& path,
                                                         SyncCloudCompletion completion) {
  performSimple(
      [this, path]() -> OptionalError {
        if (auto error = checkConnected()) return error;
        auto normalized = syncNormalizedCloudPath(path);
        if (!normalized || *normalized == "/") return syncCloudInvalidPathError(path);
        auto& fs = *FileSystem::current();
        LUMEO_LOG_VERBOSE("Checking if repairs are needed in the shared folder");
        // A duplicate of the folder itself counts only when it holds the
        // ensemble: a sibling of the same name with a number may be the
        // user's own.
        auto ensembleName = normalized->substr(1);
        std::vector<std::filesystem::path> rootDuplicates;
        for (const auto& duplicate : duplicatesOf(fs, folder_)) {
          if (fs.exists(duplicate / ensembleName)) rootDuplicates.push_back(duplicate);
        }
        if (!rootDuplicates.empty()) {
          LUMEO_LOG_VERBOSE(
              "Discovered duplicate root directories in the shared folder. Will merge back in: %@",
              folder_.string());
          if (auto error = mergeDuplicates(fs, folder_, rootDuplicates)) return error;
        }
        auto ensemble = *dir::localPathFor(folder_, *normalized);
        auto duplicates = duplicatesOf(fs, ensemble);
        if (!duplicates.empty()) {
          LUMEO_LOG_VERBOSE("Discovered duplicate directories in the shared folder. Will merge back in: %@",
                            ensemble.string());
          if (!fs.exists(ensemble)) {
            if (auto error = fs.makeFolder(ensemble, kPrivateFolderMode))
              return dir::fileError(*error, "Cannot create " + ensemble.string());
          }
          if (auto error = mergeDuplicates(fs, ensemble, duplicates)) return error;
        }
        return std::nullopt;
      },
      std::move(completion));
}

}  // namespace lumeo
