// Looks up the user-visible texts of the shell in the "Lumeo" table. Every
// text that reaches the user goes through here, with the English text (or
// an upper-case key) as the key.
#pragma once

#include <string>

namespace lumeo {

std::string shellText(const std::string& key);

}  // namespace lumeo
