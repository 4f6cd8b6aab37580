#include "bench_journal.h"

#include <cstdio>
#include <map>
#include <memory>

#include "objectgraph/managed_object_context.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

namespace lumeo::bench {

bool seedJournal(JournalStore& store, const JournalSeed& seed) {
  std::mt19937 random(seed.seed);
  // Tags by name, fetched again after each reset of the context.
  std::map<std::string, std::shared_ptr<MoodTag>> tags;
  const auto tagNamed = [&](const std::string& name) {
    auto& tag = tags[name];
    if (!tag) tag = store.tagWithExactName(name);
    if (!tag) {
      tag = store.managedObjectContext()->insertNewObject<MoodTag>(kMoodTagEntity);
      tag->setTagName(name);
    }
    return tag;
  };
  for (long i = 0; i < seed.count; ++i) {
    auto record = store.insertRecordWithDescription();
    if (!record) return false;
    record->setMoodLevel(1 + static_cast<long>(random() % 10));
    const double jitter = seed.jitterSeconds ? static_cast<double>(random() % seed.jitterSeconds) : 0;
    record->setDate(
        seed.newest.dateByAddingTimeInterval(-seed.spacingSeconds * static_cast<double>(i) - jitter));
    auto description = record->moodDescription();
    std::string comment = seed.comment ? seed.comment(i, random) : std::string();
    for (int t = 0; t < seed.tagsPerRecord && !seed.tagNames.empty(); ++t) {
      const std::string& name = seed.tagNames[random() % seed.tagNames.size()];
      record->addMoodTagsObject(tagNamed(name));
      comment += (comment.empty() ? "#" : " #") + name;
    }
    if (!comment.empty()) description->setComment(comment);
    if (seed.decorate) seed.decorate(i, *description, random);
    if ((i + 1) % seed.batch == 0 || i + 1 == seed.count) {
      store.saveContext();
      if (auto error = store.lastSaveError()) {
        std::fprintf(stderr, "bench journal: save failed: %s\n", error->toString().c_str());
        return false;
      }
      store.managedObjectContext()->reset();
      tags.clear();
    }
  }
  return true;
}

}  // namespace lumeo::bench
