// XDG and LUMEO_HOME resolution of Lumeo's folders.
#include "platform/linux/data_directories.h"

#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <string>

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
  std::error_code ec;
  bool ok = true;
  for (const auto& dir : {library, documents, applicationSupport, temporary, defaultsFile.parent_path()}) {
    std::filesystem::create_directories(dir, ec);
    if (ec) ok = false;
  }
  return ok;
}

}  // namespace lumeo
