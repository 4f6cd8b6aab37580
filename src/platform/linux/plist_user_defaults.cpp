// Property-list file storage of the settings: a locked read-modify-write of
// the file through the property-list codec and the file-system seam.
#include "platform/linux/plist_user_defaults.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/file_system.h"
#include "platform/linux/data_directories.h"
#include "platform/log.h"
#include "platform/property_list.h"

namespace lumeo {

namespace {

Error writeError(const std::string& what, const std::filesystem::path& path, const std::string& reason) {
  return Error(kUserDefaultsErrorDomain, kUserDefaultsWriteFailed,
               "could not " + what + " " + path.string() + ": " + reason);
}

// The lock that serialises writers of one file, between processes and
// between stores of this process (each open file description holds its own
// flock). It is no data, so it is not part of the file-system seam.
class FileLock {
 public:
  explicit FileLock(const std::filesystem::path& path)
      : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateFileMode)) {
    if (fd_ < 0) {
      error_ = errno;
      return;
    }
    while (::flock(fd_, LOCK_EX) != 0) {
      if (errno != EINTR) {
        error_ = errno;
        return;
      }
    }
  }
  ~FileLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the flock
  }
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  int error() const { return error_; }

 private:
  int fd_;
  int error_ = 0;
};

enum class FileState { kMissing, kReadable, kUnreadable };

struct ReadResult {
  FileState state = FileState::kMissing;
  Value::Dictionary contents;
  OptionalError error;  // the file is there but could not be read at all
};

ReadResult readSettings(FileSystem& fs, const std::filesystem::path& path) {
  ReadResult result;
  auto bytes = fs.readFile(path);
  if (auto* error = std::get_if<Error>(&bytes)) {
    if (error->code != ENOENT) {
      result.state = FileState::kUnreadable;
      result.error = *error;
    }
    return result;
  }
  const auto& data = std::get<std::vector<std::uint8_t>>(bytes);
  if (data.empty()) return result;
  auto parsed = parsePropertyList(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
  Value* root = std::get_if<Value>(&parsed);
  if (!root || !root->asDictionary()) {
    result.state = FileState::kUnreadable;
    return result;
  }
  result.state = FileState::kReadable;
  result.contents = std::move(*root->asDictionary());
  return result;
}

// Whether two values are the same in the file: kind and all (Value's own
// equality takes 1, 1.0 and true as equal).
bool sameInFile(const Value& a, const Value& b) {
  auto textA = xmlPropertyList(a);
  auto textB = xmlPropertyList(b);
  const auto* a1 = std::get_if<std::string>(&textA);
  const auto* b1 = std::get_if<std::string>(&textB);
  return a1 && b1 && *a1 == *b1;
}

// Renames an unreadable file out of the way: it may be a list written by a
// newer version or damaged by hand, and the user may want it back.
std::variant<std::filesystem::path, Error> keepAside(FileSystem& fs, const std::filesystem::path& file) {
  std::filesystem::path aside = file;
  aside += ".unreadable";
  for (int n = 2; fs.exists(aside); ++n) {
    // A thousand kept files mean something else is wrong; the write fails
    // instead of renaming over an earlier one.
    if (n > 1000) {
      return Error(kUserDefaultsErrorDomain, kUserDefaultsUnreadable,
                   "could not keep the unreadable settings file " + file.string() + " aside: too many kept");
    }
    aside = file;
    aside += ".unreadable-" + std::to_string(n);
  }
  if (OptionalError error = fs.rename(file, aside)) {
    return Error(
        kUserDefaultsErrorDomain, kUserDefaultsUnreadable,
        "could not keep the unreadable settings file " + file.string() + " aside: " + error->description);
  }
  return aside;
}

bool holdsDate(const Value& value) {
  if (value.asDate()) return true;
  if (const Value::Array* a = value.asArray()) {
    for (const Value& v : *a) {
      if (holdsDate(v)) return true;
    }
  } else if (const Value::Dictionary* d = value.asDictionary()) {
    for (const auto& [k, v] : *d) {
      if (holdsDate(v)) return true;
    }
  }
  return false;
}

// The value as it reads back from the file.
Value throughFile(const Value& value) {
  auto xml = xmlPropertyList(value);
  if (!std::holds_alternative<std::string>(xml)) return Value();
  auto back = parsePropertyList(std::get<std::string>(xml));
  return std::holds_alternative<Value>(back) ? std::get<Value>(back) : Value();
}

}  // namespace

PlistUserDefaultsStorage::PlistUserDefaultsStorage(std::filesystem::path file) : file_(std::move(file)) {}

Value::Dictionary PlistUserDefaultsStorage::load() {
  // The file is only ever replaced by rename, so an unlocked read sees either
  // the old or the new list, never a mixture.
  ReadResult r = readSettings(*FileSystem::current(), file_);
  if (r.state == FileState::kUnreadable) {
    LUMEO_LOG_WARNING("settings file %@ is not a readable property list; starting from no settings",
                      file_.string());
  }
  restoreExactValues(r.contents);
  return std::move(r.contents);
}

void PlistUserDefaultsStorage::restoreExactValues(Value::Dictionary& contents) const {
  for (const auto& [key, exact] : exact_) {
    auto it = contents.find(key);
    if (it != contents.end() && it->second == throughFile(exact)) it->second = exact;
  }
}

void PlistUserDefaultsStorage::rememberExactValues(const UserDefaultsChanges& changes) {
  for (const auto& [key, value] : changes) {
    if (value && holdsDate(*value)) {
      exact_[key] = *value;
    } else {
      exact_.erase(key);
    }
  }
}

OptionalError PlistUserDefaultsStorage::validate(const Value& value) const {
  if (OptionalError error = checkPropertyListValue(value)) {
    return Error(kUserDefaultsErrorDomain, kUserDefaultsInvalidValue, error->description);
  }
  return std::nullopt;
}

UserDefaultsStorage::ApplyResult PlistUserDefaultsStorage::apply(const UserDefaultsChanges& changes) {
  const std::shared_ptr<FileSystem> fs = FileSystem::current();
  const std::filesystem::path folder = file_.parent_path().empty() ? "." : file_.parent_path();
  if (OptionalError error = fs->makeFolders(folder, kPrivateFolderMode)) {
    return {writeError("make the folder", folder, error->description), {}};
  }

  std::filesystem::path lockPath = file_;
  lockPath += ".lock";
  FileLock lock(lockPath);
  if (lock.error()) return {writeError("lock", lockPath, std::strerror(lock.error())), {}};

  ReadResult current = readSettings(*fs, file_);
  if (current.error) {
    // The file is there but cannot be read (permissions, I/O): replacing it
    // would throw away settings that may still be good.
    return {writeError("read", file_, current.error->description), {}};
  }
  Value::Dictionary contents = std::move(current.contents);
  restoreExactValues(contents);

  // A change that leaves the file as it is (the launch stores the same
  // hand-over text each time) costs no write and no fsync.
  bool changesFile = current.state == FileState::kUnreadable && !changes.empty();
  for (const auto& [key, value] : changes) {
    auto existing = contents.find(key);
    if (value && !value->isNull()) {
      changesFile = changesFile || existing == contents.end() || !sameInFile(existing->second, *value);
      contents[key] = *value;
    } else if (existing != contents.end()) {
      changesFile = true;
      contents.erase(existing);
    }
  }
  if (!changesFile) {
    rememberExactValues(changes);
    return {std::nullopt, std::move(contents)};
  }

  auto xml = xmlPropertyList(Value(contents));
  if (auto* error = std::get_if<Error>(&xml)) {
    return {Error(kUserDefaultsErrorDomain, kUserDefaultsInvalidValue, error->description), {}};
  }

  std::optional<std::filesystem::path> aside;
  if (current.state == FileState::kUnreadable) {
    auto kept = keepAside(*fs, file_);
    if (auto* error = std::get_if<Error>(&kept)) return {*error, {}};
    aside = std::get<std::filesystem::path>(kept);
  }
  if (OptionalError error = writeFileAtomically(file_, std::string_view(std::get<std::string>(xml)))) {
    // Put the kept file back, so that a failed write changes nothing.
    if (aside) (void)fs->rename(*aside, file_);
    return {writeError("write", file_, error->description), {}};
  }
  if (aside) LUMEO_LOG_WARNING("kept the unreadable settings file as %@", aside->string());
  rememberExactValues(changes);
  return {std::nullopt, std::move(contents)};
}

// ---------------------------------------------------------------------------
// PlistUserDefaults

PlistUserDefaults::PlistUserDefaults(std::filesystem::path file)
    : PlistUserDefaults(std::make_shared<PlistUserDefaultsStorage>(std::move(file))) {}

PlistUserDefaults::PlistUserDefaults(std::shared_ptr<PlistUserDefaultsStorage> storage)
    : UserDefaults(storage), storage_(std::move(storage)) {}

std::shared_ptr<PlistUserDefaults> PlistUserDefaults::installStandard() {
  auto defaults = std::make_shared<PlistUserDefaults>(DataDirectories::current().defaultsFile);
  UserDefaults::setStandard(defaults);
  return defaults;
}

}  // namespace lumeo
