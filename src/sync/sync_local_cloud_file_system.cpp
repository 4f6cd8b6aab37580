// A plain directory as the cloud, and the directory work it shares with the
// shared folder.
#include "sync/sync_local_cloud_file_system.h"

#include <pwd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <random>

#include "platform/dispatch_queue.h"
#include "sync/sync_error.h"

namespace lumeo {

namespace sync_directory {

namespace {

int errnoOf(const Error& error) {
  return error.domain == kPOSIXErrorDomain ? static_cast<int>(error.code) : EIO;
}

// Writes `bytes` to a new file, flushed when `flush` says so; a failure
// removes the file.
OptionalError writeNewFile(FileSystem& fs, const std::filesystem::path& path, const void* bytes,
                           std::size_t size, bool flush) {
  auto created = fs.createFile(path, kPrivateFileMode);
  if (auto* error = std::get_if<Error>(&created)) return *error;
  auto& file = *std::get<std::unique_ptr<WritableFile>>(created);
  OptionalError error = file.append(bytes, size);
  if (!error && flush) error = file.sync();
  OptionalError closeError = file.close();
  if (!error) error = closeError;
  if (error) {
    (void)fs.removeFile(path);
    return error;
  }
  return std::nullopt;
}

}  // namespace

Error fileError(const Error& posix, const std::string& what) {
  Error error = syncCloudFileError(errnoOf(posix), what + ": " + posix.description);
  auto path = posix.userInfo.find("path");
  if (path != posix.userInfo.end()) error.userInfo["path"] = path->second;
  return error;
}

std::optional<std::filesystem::path> localPathFor(const std::filesystem::path& root,
                                                  const std::string& cloudPath) {
  auto normalized = syncNormalizedCloudPath(cloudPath);
  if (!normalized) return std::nullopt;
  if (*normalized == "/") return root;
  return root / normalized->substr(1);
}

std::variant<ExistsResult, Error> exists(FileSystem& fs, const std::filesystem::path& path) {
  auto status = fs.status(path);
  if (auto* error = std::get_if<Error>(&status)) {
    // A missing path, or one whose parent is a file, is simply not there.
    if (error->code == ENOENT || error->code == ENOTDIR) return ExistsResult{};
    return fileError(*error, "Cannot look at " + path.string());
  }
  return ExistsResult{true, std::get<FileStatus>(status).isFolder};
}

OptionalError createDirectory(FileSystem& fs, const std::filesystem::path& path) {
  // makeFolder takes a folder that is there as success; the cloud does not.
  auto there = exists(fs, path);
  if (auto* error = std::get_if<Error>(&there)) return *error;
  if (std::get<ExistsResult>(there).exists)
    return syncCloudFileError(EEXIST, "Cannot create the directory " + path.string() + ": it exists");
  if (auto error = fs.makeFolder(path, kPrivateFolderMode))
    return fileError(*error, "Cannot create the directory " + path.string());
  return std::nullopt;
}

OptionalError removeItem(FileSystem& fs, const std::filesystem::path& path) {
  auto status = fs.status(path);
  if (auto* error = std::get_if<Error>(&status)) return fileError(*error, "Cannot remove " + path.string());
  if (!std::get<FileStatus>(status).isFolder) {
    if (auto error = fs.removeFile(path)) return fileError(*error, "Cannot remove " + path.string());
    return std::nullopt;
  }
  auto entries = fs.listFolder(path);
  if (auto* error = std::get_if<Error>(&entries)) return fileError(*error, "Cannot remove " + path.string());
  for (const auto& entry : std::get<std::vector<FolderEntry>>(entries)) {
    if (auto error = removeItem(fs, path / entry.name)) return error;
  }
  if (auto error = fs.removeFolder(path)) return fileError(*error, "Cannot remove " + path.string());
  return std::nullopt;
}

OptionalError copyToNewFile(FileSystem& fs, const std::filesystem::path& from,
                            const std::filesystem::path& to) {
  auto bytes = fs.readFile(from);
  if (auto* error = std::get_if<Error>(&bytes)) return fileError(*error, "Cannot read " + from.string());
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  if (auto error = writeNewFile(fs, to, data.data(), data.size(), false))
    return fileError(*error, "Cannot write " + to.string());
  return std::nullopt;
}

std::string temporaryNameFor(const std::string& target) {
  static std::atomic<unsigned> counter{0};
  thread_local std::mt19937_64 random(std::random_device{}());
  char suffix[40];
  std::snprintf(suffix, sizeof suffix, "%016llx-%u", static_cast<unsigned long long>(random()), counter++);
  // Keep the target's name in it for whoever finds one left by a crash, but
  // short enough for any file system's name limit.
  return std::string(kTemporaryPrefix) + target.substr(0, 100) + "." + suffix;
}

OptionalError writeReplacing(FileSystem& fs, const std::filesystem::path& to, const void* bytes,
                             std::size_t size, Durability durability) {
  // The target must be a file or nothing: a directory is never replaced.
  auto there = exists(fs, to);
  if (auto* error = std::get_if<Error>(&there)) return *error;
  if (std::get<ExistsResult>(there).isDirectory)
    return syncCloudFileError(EISDIR, "Cannot write " + to.string() + ": a directory is there");
  auto folder = to.parent_path();
  auto temporary = folder / temporaryNameFor(to.filename().string());
  if (auto error = writeNewFile(fs, temporary, bytes, size, durability != Durability::kScratch))
    return fileError(*error, "Cannot write " + to.string());
  if (auto error = fs.rename(temporary, to)) {
    (void)fs.removeFile(temporary);
    return fileError(*error, "Cannot write " + to.string());
  }
  // The rename is done; a failed flush of the folder only weakens its
  // survival of a power cut, and the file is there for every reader.
  if (durability == Durability::kDurable) (void)fs.syncFolder(folder);
  return std::nullopt;
}

OptionalError copyReplacing(FileSystem& fs, const std::filesystem::path& from,
                            const std::filesystem::path& to, Durability durability) {
  auto bytes = fs.readFile(from);
  if (auto* error = std::get_if<Error>(&bytes)) return fileError(*error, "Cannot read " + from.string());
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  return writeReplacing(fs, to, data.data(), data.size(), durability);
}

}  // namespace sync_directory

namespace {

// Runs `work` now and hands its result to `completion` on the main queue.
void answer(const SyncCloudCompletion& completion, OptionalError error) {
  if (!completion) return;
  DispatchQueue::main().async([completion, error = std::move(error)] { completion(error); });
}

}  // namespace

SyncLocalCloudFileSystem::SyncLocalCloudFileSystem(std::filesystem::path rootDirectory)
    : rootDirectory_(std::move(rootDirectory)) {}

void SyncLocalCloudFileSystem::connect(SyncCloudCompletion completion) {
  answer(completion, std::nullopt);
}

SyncCloudIdentityToken SyncLocalCloudFileSystem::identityToken() const {
  if (const passwd* entry = ::getpwuid(::geteuid()); entry && entry->pw_name)
    return std::string(entry->pw_name);
  if (const char* user = std::getenv("USER"); user && *user) return std::string(user);
  return std::to_string(::geteuid());
}

void SyncLocalCloudFileSystem::fileExistsAtPath(const std::string& path,
                                                SyncCloudExistsCompletion completion) {
  auto local = sync_directory::localPathFor(rootDirectory_, path);
  std::variant<sync_directory::ExistsResult, Error> result =
      local ? sync_directory::exists(*FileSystem::current(), *local)
            : std::variant<sync_directory::ExistsResult, Error>(syncCloudInvalidPathError(path));
  DispatchQueue::main().async([completion = std::move(completion), result = std::move(result)] {
    if (auto* error = std::get_if<Error>(&result)) return completion(false, false, *error);
    const auto& found = std::get<sync_directory::ExistsResult>(result);
    completion(found.exists, found.isDirectory, std::nullopt);
  });
}

void SyncLocalCloudFileSystem::createDirectoryAtPath(const std::string& path,
                                                     SyncCloudCompletion completion) {
  auto local = sync_directory::localPathFor(rootDirectory_, path);
  if (!local) return answer(completion, syncCloudInvalidPathError(path));
  answer(completion, sync_directory::createDirectory(*FileSystem::current(), *local));
}

void SyncLocalCloudFileSystem::contentsOfDirectoryAtPath(const std::string& path,
                                                         SyncCloudListingCompletion completion) {
  auto normalized = syncNormalizedCloudPath(path);
  std::vector<SyncCloudItem> contents;
  OptionalError failure;
  if (!normalized) {
    failure = syncCloudInvalidPathError(path);
  } else {
    auto fs = FileSystem::current();
    auto local = *sync_directory::localPathFor(rootDirectory_, *normalized);
    auto entries = fs->listFolder(local);
    if (auto* error = std::get_if<Error>(&entries)) {
      failure = sync_directory::fileError(*error, "Couldn't create directory enumerator for path: " + path);
    } else {
      for (const auto& entry : std::get<std::vector<FolderEntry>>(entries)) {
        if (entry.name.empty() || entry.name[0] == '.') continue;
        std::string itemPath = syncCloudPathAppending(*normalized, entry.name);
        if (entry.isFolder) {
          contents.emplace_back(SyncCloudDirectory{itemPath, entry.name, {}});
          continue;
        }
        auto status = fs->status(local / entry.name);
        // A file that went away in the meantime is simply not listed.
        if (std::holds_alternative<Error>(status)) continue;
        contents.emplace_back(SyncCloudFile{itemPath, entry.name, std::get<FileStatus>(status).size});
      }
    }
  }
  DispatchQueue::main().async([completion = std::move(completion), contents = std::move(contents), failure] {
    completion(failure ? std::vector<SyncCloudItem>{} : contents, failure);
  });
}

void SyncLocalCloudFileSystem::removeItemAtPath(const std::string& path, SyncCloudCompletion completion) {
  auto normalized = syncNormalizedCloudPath(path);
  if (!normalized || *normalized == "/") return answer(completion, syncCloudInvalidPathError(path));
  answer(completion, sync_directory::removeItem(*FileSystem::current(),
                                                *sync_directory::localPathFor(rootDirectory_, *normalized)));
}

void SyncLocalCloudFileSystem::uploadLocalFile(const std::string& localPath, const std::string& toPath,
                                               SyncCloudCompletion completion) {
  auto target = sync_directory::localPathFor(rootDirectory_, toPath);
  if (!target || *target == rootDirectory_) return answer(completion, syncCloudInvalidPathError(toPath));
  answer(completion, sync_directory::copyToNewFile(*FileSystem::current(), localPath, *target));
}

void SyncLocalCloudFileSystem::downloadFromPath(const std::string& path, const std::string& toLocalFile,
                                                SyncCloudCompletion completion) {
  auto source = sync_directory::localPathFor(rootDirectory_, path);
  if (!source) return answer(completion, syncCloudInvalidPathError(path));
  answer(completion, sync_directory::copyReplacing(*FileSystem::current(), *source, toLocalFile,
                                                   sync_directory::Durability::kScratch));
}

}  // namespace lumeo
