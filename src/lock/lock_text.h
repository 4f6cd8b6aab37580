// The lock's user-visible texts, looked up in the "Lumeo" table with the
// English text (or the upper-case key "UNLOCK_APPLICATION") as the key.
#pragma once

#include <string>

namespace lumeo {

std::string lockText(const std::string& key);

}  // namespace lumeo
