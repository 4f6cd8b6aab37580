// Tag rename and delete over the whole journal, with the case rules of each:
// a rename finds the row by its exact name, a delete removes mentions in any
// case.
#include "capture/mood_tag_editing.h"

#include "capture/emotions_list.h"
#include "capture/hashtag_grammar.h"
#include "objectgraph/managed_object_context.h"
#include "platform/log.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo {

std::shared_ptr<MoodTag> updateMoodTag(JournalStore& store, const std::string& oldName,
                                       const std::string& newName, const std::optional<std::string>& unit) {
  auto tag = store.tagWithExactName(oldName);
  if (tag) {
    for (const auto& record : tag->moodRecords()) {
      auto description = record->moodDescription();
      if (!description || !description->comment()) continue;
      std::string renamed = renameTagInText(*description->comment(), oldName, newName);
      if (renamed != *description->comment()) description->setComment(renamed);
    }
  } else {
    auto context = store.managedObjectContext();
    if (!context) return nullptr;
    tag = context->insertNewObject<MoodTag>(kMoodTagEntity);
  }
  tag->setTagName(newName);
  tag->setTagUnit(unit);
  store.saveContext();
  return tag;
}

bool removeMoodTag(JournalStore& store, const std::shared_ptr<MoodTag>& tag, const std::string& tagName,
                   const std::filesystem::path& libraryDirectory) {
  auto stored = tag ? store.tagSelf(tag) : nullptr;
  if (stored) {
    for (const auto& record : stored->moodRecords()) {
      auto description = record->moodDescription();
      if (!description || !description->comment()) continue;
      description->setComment(removeTagFromText(*description->comment(), tagName));
      store.saveContext();
    }
    if (auto context = store.managedObjectContext()) LUMEO_DROP_ERROR(context->deleteObject(stored));
    store.saveContext();
  }
  return removeTagFromEmotionsList(libraryDirectory, tagName);
}

}  // namespace lumeo
