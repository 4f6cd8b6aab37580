// Fills the journal under a home folder with COUNT records (default 100000),
// one a few hours apart going back from now, each with a description, a
// comment and one of a handful of tags, saved in batches through the store
// stack the application uses.
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "objectgraph/managed_object_context.h"
#include "platform/linux/data_directories.h"
#include "platform/user_defaults.h"
#include "store/journal_model.h"
#include "store/journal_store.h"
#include "store/mood_description.h"
#include "store/mood_record.h"
#include "store/mood_tag.h"

int main(int argc, char** argv) {
  using namespace lumeo;
  if (argc < 2) {
    std::fprintf(stderr, "usage: journal_list_seed HOME [COUNT]\n");
    return 2;
  }
  long count = argc > 2 ? std::atol(argv[2]) : 100000;
  DataDirectories dirs = DataDirectories::underHome(argv[1]);
  if (!dirs.create()) return 1;
  auto defaults = std::make_shared<UserDefaults>(std::make_shared<InMemoryUserDefaultsStorage>());
  JournalStore store({dirs.library, dirs.documents}, defaults);
  auto context = store.managedObjectContext();
  std::vector<std::shared_ptr<MoodTag>> tags;
  for (const char* name : {"sleep", "work", "walk", "friends", "coffee", "reading"}) {
    auto tag = context->insertNewObject<MoodTag>(kMoodTagEntity);
    tag->setTagName(name);
    tags.push_back(tag);
  }
  std::mt19937 random(11);
  Date now = Date::now();
  for (long i = 0; i < count; ++i) {
    auto record = store.insertRecordWithDescription();
    record->setMoodLevel(1 + static_cast<long>(random() % 10));
    record->setDate(now.dateByAddingTimeInterval(-3600.0 * 5 * static_cast<double>(i)));
    auto& tag = tags[random() % tags.size()];
    record->moodDescription()->setComment("Sample entry " + std::to_string(i) + " #" + tag->tagName());
    record->addMoodTagsObject(tag);
    if ((i + 1) % 5000 == 0 || i + 1 == count) {
      store.saveContext();
      if (store.lastSaveError()) {
        std::fprintf(stderr, "save failed: %s\n", store.lastSaveError()->toString().c_str());
        return 1;
      }
      // Keep memory flat: saved objects need not stay registered.
      context->reset();
      tags.clear();
      for (const char* name : {"sleep", "work", "walk", "friends", "coffee", "reading"})
        tags.push_back(store.tagNamed(name));
    }
  }
  std::printf("%ld records in %s\n", count, store.storeURL().c_str());
  return 0;
}
