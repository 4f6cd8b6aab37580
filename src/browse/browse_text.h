// Looks up the user-visible texts of the browsing screens in the "Lumeo"
// table, with the English text as the key.
#pragma once

#include <string>

namespace lumeo {

std::string browseText(const std::string& key);

// The text with its first letter in upper case ("today, 8:05" becomes
// "Today, 8:05"); the rest stays as it is.
std::string capitalizedFirstLetter(const std::string& text);

}  // namespace lumeo
