// Where Lumeo's shipped resources are: the feeling words
// ("emotions.plist"), the level table ("mood.plist"), with which the launch
// sets up a journal. Both front ends launch from the same folder.
#pragma once

#include <filesystem>

namespace lumeo {

// The variable that points a run at another resources folder (a build tree,
// a test); it wins over everything but setResourcesDirectory().
inline constexpr const char* kResourcesDirectoryVariable = "LUMEO_RESOURCES_DIR";

// The resources folder, in this order: the folder a test set with
// setResourcesDirectory(); $LUMEO_RESOURCES_DIR; the installed folder
// (`<prefix>/share/lumeo`, where `cmake --install` puts them) when it
// exists; else the `resources/` folder of the source tree the program was
// built from, so that a build runs without being installed.
std::filesystem::path resourcesDirectory();

// The installed folder, compiled in from the install prefix.
std::filesystem::path installedResourcesDirectory();

// Overrides the folder for this process; an empty path removes the override.
void setResourcesDirectory(std::filesystem::path directory);

}  // namespace lumeo
