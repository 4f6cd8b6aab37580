// The journal's global identifiers.
#include "sync/sync_ensemble_hooks.h"

#include "store/mood_tag.h"

namespace lumeo {

std::optional<std::vector<std::optional<std::string>>> journalGlobalIdentifiersForManagedObjects(
    const std::vector<ManagedObjectPtr>& objects) {
  std::vector<std::optional<std::string>> out;
  out.reserve(objects.size());
  for (const auto& object : objects) {
    if (auto tag = std::dynamic_pointer_cast<MoodTag>(object)) {
      out.push_back(tag->tagName());
      continue;
    }
    const EntityDescription& entity = object->entity();
    if (entity.attributeNamed("uniqueIdentifier")) {
      Value identifier = object->valueForKey("uniqueIdentifier");
      if (const std::string* s = identifier.asString()) {
        out.push_back(*s);
        continue;
      }
    }
    out.push_back(std::nullopt);
  }
  return out;
}

}  // namespace lumeo
