// Texts of the lock, looked up in the "Lumeo" table.
#include "lock/lock_text.h"

#include "platform/localization.h"

namespace lumeo {

std::string lockText(const std::string& key) {
  return localized(key);
}

}  // namespace lumeo
