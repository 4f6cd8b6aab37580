// XDG and LUMEO_HOME resolution of Lumeo's folders.
#include "platform/linux/data_directories.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

#include "platform/file_system.h"

namespace lumeo {

namespace {

std::mutex& overrideMutex() {
  static std::mutex m;
  return m;
}
std::optional<std::filesystem::path>& homeOverride() {
  static std::optional<std::filesystem::path> home;
  return home;
}

std::filesystem::path envPath(const char* name, const std::filesystem::path& fallback) {
  const char* v = std::getenv(name);
  if (v && *v && std::filesystem::path(v).is_absolute()) return v;
  return fallback;
}

std::filesystem::path userHome() {
  const char* h = std::getenv("HOME");
  return h && *h ? std::filesystem::path(h) : std::filesystem::path("/tmp");
}

}  // namespace

DataDirectories DataDirectories::underHome(const std::filesystem::path& home) {
  DataDirectories d;
  d.library = home / "Library";
  d.documents = home / "Documents";
  d.applicationSupport = home / "Application Support";
  d.temporary = home / "tmp";
  d.defaultsFile = home / "defaults.plist";
  return d;
}

void DataDirectories::setHomeOverride(std::optional<std::filesystem::path> home) {
  std::lock_guard lock(overrideMutex());
  homeOverride() = std::move(home);
}

DataDirectories DataDirectories::current() {
  {
    std::lock_guard lock(overrideMutex());
    if (homeOverride()) return underHome(std::filesystem::absolute(*homeOverride()));
  }
  if (const char* h = std::getenv("LUMEO_HOME"); h && *h) {
    return underHome(std::filesystem::absolute(h));
  }
  DataDirectories d;
  std::filesystem::path data = envPath("XDG_DATA_HOME", userHome() / ".local/share") / "lumeo";
  std::filesystem::path config = envPath("XDG_CONFIG_HOME", userHome() / ".config") / "lumeo";
  d.library = data / "Library";
  d.documents = data / "Documents";
  d.applicationSupport = data / "Application Support";
  if (const char* rt = std::getenv("XDG_RUNTIME_DIR"); rt && *rt) {
    d.temporary = std::filesystem::path(rt) / "lumeo";
  } else {
    d.temporary = std::filesystem::path("/tmp") / ("lumeo-" + std::to_string(getuid()));
  }
  d.defaultsFile = config / "defaults.plist";
  return d;
}

bool DataDirectories::create() const {
  const std::shared_ptr<FileSystem> fs = FileSystem::current();
  bool ok = true;
  for (const auto& dir : {library, documents, applicationSupport, temporary, defaultsFile.parent_path()}) {
    if (!dir.empty() && fs->makeFolders(dir, kPrivateFolderMode)) ok = false;
  }
  // What an earlier version made readable to all. The folders that hold
  // these (the home folder of --home may be any folder the user named) keep
  // their modes; only what is Lumeo's alone is tightened.
  for (const auto& dir : {library, applicationSupport}) {
    if (fs->makeContentsPrivate(dir)) ok = false;
  }
  for (const auto& dir : {documents, temporary}) {
    if (fs->makePrivate(dir)) ok = false;
  }
  std::filesystem::path lock = defaultsFile;
  lock += ".lock";
  for (const auto& file : {defaultsFile, lock}) {
    if (OptionalError error = fs->makePrivate(file); error && error->code != ENOENT) ok = false;
  }
  return ok;
}

}  // namespace lumeo
