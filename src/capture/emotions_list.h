// The list of feeling words offered as tags before any record uses them:
// "emotions.plist" in the library folder, copied from the shipped list at
// the first launch and then the user's own (deleting a tag removes its word).
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/error.h"

namespace lumeo {

inline constexpr char kEmotionsListFileName[] = "emotions.plist";

std::filesystem::path emotionsListURL(const std::filesystem::path& libraryDirectory);

// The launch copy: writes the shipped list unless a file of that name is
// there already, whatever it holds.
OptionalError installEmotionsListIfMissing(const std::filesystem::path& libraryDirectory);

// The words, in file order. A missing or unreadable file gives none, and
// entries that are not text are skipped.
std::vector<std::string> readEmotionsList(const std::filesystem::path& libraryDirectory);

// After a tag was deleted: removes every entry equal to `name` and writes
// the list back. Returns true when the list held the name (the suggestions
// must then be rebuilt). A missing or unreadable list is left alone.
bool removeTagFromEmotionsList(const std::filesystem::path& libraryDirectory, const std::string& name);

}  // namespace lumeo
