// The suggestion child context and the completion fetch. Suggestions live
// only in the child, so they never reach the store: a word becomes a real
// tag when a text naming it is applied.
#include "capture/suggested_tags.h"

#include "capture/emotions_list.h"
#include "capture/hashtag_grammar.h"
#include "capture/tag_extraction.h"
#include "objectgraph/managed_object_context.h"
#include "objectgraph/managed_object_model.h"
#include "objectgraph/predicate.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_tag.h"

namespace lumeo {

SuggestedTags::SuggestedTags(JournalStore& store, std::filesystem::path libraryDirectory, CompletionSort sort)
    : store_(store), libraryDirectory_(std::move(libraryDirectory)), sort_(sort) {}

std::shared_ptr<ManagedObjectContext> SuggestedTags::createChildManagedObjectContext() {
  if (child_) return child_;
  auto parent = store_.managedObjectContext();
  if (!parent) return nullptr;
  // Used directly from the main thread and only for fetches, so a confined
  // context serves both the editor and the template screen.
  auto child = std::make_shared<ManagedObjectContext>(ConcurrencyType::kConfinement);
  child->setParentContext(parent);
  for (const std::string& word : readEmotionsList(libraryDirectory_)) {
    if (!isTagName(word)) continue;  // a word no comment could hold
    if (store_.tagNamed(word)) continue;
    auto tag = child->insertNewObject<MoodTag>(kMoodTagEntity);
    tag->setTagName(word);
    tag->setFrequency(0);
  }
  child_ = child;
  return child_;
}

std::vector<std::shared_ptr<MoodTag>> SuggestedTags::completionOptionsForString(const std::string& typed,
                                                                                std::size_t limit) {
  auto context = createChildManagedObjectContext();
  if (!context) return {};
  FetchRequest request(kMoodTagEntity);
  request.setPredicate(Predicate::predicateWithFormat("tagName like[cd] %@", typed + "*"));
  if (sort_ == CompletionSort::kFrequencyThenName) {
    request.setSortDescriptors({SortDescriptor("frequency", false), SortDescriptor("tagName", true)});
  } else {
    request.setSortDescriptors({SortDescriptor("frequency", false)});
  }
  request.setFetchLimit(limit);
  std::vector<std::shared_ptr<MoodTag>> tags;
  for (const auto& object : context->executeFetchRequest(request)) {
    if (auto tag = std::dynamic_pointer_cast<MoodTag>(object)) tags.push_back(tag);
  }
  if (tags.size() == 1 && foldedTagName(tags.front()->tagName()) == foldedTagName(typed)) return {};
  // The list lives as long as the user types; records that a row's tag
  // drew into memory (its average, say) go back to faults so the offers
  // hold names, not journals. The child serves only these fetches, so every
  // record loaded in it came through an offered tag; walking the loaded
  // objects spares reading each tag's list of records just to find them.
  for (const auto& object : context->registeredObjects()) {
    if (!object->isFault() && !object->hasChanges() && object->entity().name() == kMoodRecordEntity) {
      context->refreshObject(object, false);
    }
  }
  return tags;
}

}  // namespace lumeo
