// The resources folder: an override, the environment, the installed folder,
// the source tree.
#include "shell/resources_location.h"

#include <cstdlib>
#include <mutex>
#include <system_error>

#ifndef LUMEO_INSTALLED_RESOURCES_DIR
#define LUMEO_INSTALLED_RESOURCES_DIR ""
#endif
#ifndef LUMEO_SOURCE_RESOURCES_DIR
#define LUMEO_SOURCE_RESOURCES_DIR ""
#endif

namespace lumeo {

namespace {
std::mutex gMutex;
std::filesystem::path gOverride;
}  // namespace

std::filesystem::path installedResourcesDirectory() {
  return LUMEO_INSTALLED_RESOURCES_DIR;
}

void setResourcesDirectory(std::filesystem::path directory) {
  std::lock_guard<std::mutex> lock(gMutex);
  gOverride = std::move(directory);
}

std::filesystem::path resourcesDirectory() {
  {
    std::lock_guard<std::mutex> lock(gMutex);
    if (!gOverride.empty()) return gOverride;
  }
  if (const char* variable = std::getenv(kResourcesDirectoryVariable); variable && *variable) {
    return variable;
  }
  std::error_code ec;
  std::filesystem::path installed = installedResourcesDirectory();
  if (!installed.empty() && std::filesystem::is_directory(installed, ec)) return installed;
  return LUMEO_SOURCE_RESOURCES_DIR;
}

}  // namespace lumeo
